// What the tags for text do: fonts and styles, breaks, alignment, the colours of the document and its title.
#include <regex>

#include "engine_fixture.h"
#include "fontmanager.h"
#include "htmlparser.h"
#include "text.h"

class TagHandlersTest : public EngineTest {
  protected:
    // Each run of text of a page without links as text=size, followed by the styles in force (b, i, u), and
    // by colour and face where they are not the default.
    static std::string DescribeFonts(const std::string &strHTML) {
        ParsedPage page(strHTML, 400);
        std::string strFonts;
        for (auto *lpNode = List_Tail(page->_lpChildren); lpNode; lpNode = lpNode->lpPrev) {
            const Text *lpText = static_cast<Text *>(lpNode->lpData);
            const Font *lpFont = lpText->_lpFont;
            const auto style = [lpFont](uint16_t wBit, const char *lpsz) {
                return lpFont->_wStyle & wBit ? lpsz : "";
            };
            char szColor[16];
            snprintf(szColor, sizeof szColor, "#%06X", lpFont->_dwColor);
            strFonts += (strFonts.empty() ? "" : " ") + std::string(lpText->_lpszText) + "=";
            strFonts += std::to_string(lpFont->_bSize) + style(STYLE_BOLD, "b") + style(STYLE_ITALIC, "i");
            strFonts += style(STYLE_UNDERLINE, "u") + std::string(lpFont->_dwColor ? szColor : "");
            strFonts += EqualsNoCase(lpFont->_lpszFace, "ARIAL") ? "" : "@" + std::string(lpFont->_lpszFace);
        }
        return strFonts;
    }

    struct FontCase {
        const char *lpszHTML, *lpszFonts;
    };
    template <size_t n>
    static void CheckFonts(const FontCase (&aCases)[n]) {
        for (const FontCase &fontCase : aCases)
            EXPECT_EQ(DescribeFonts(fontCase.lpszHTML), fontCase.lpszFonts) << fontCase.lpszHTML;
    }
};

TEST_F(TagHandlersTest, StylesAreCounted) {
    CheckFonts({
        {"<B><B>x</B>y</B>z", "x=2b y=2b z=2"},
        {"</B></I></U>x<B>y", "x=2 y=2b"},
        {"<B>a<I>b</B>c</I>d", "a=2b b=2bi c=2i d=2"},
        {"<U>a<B><I>b", "a=2u b=2biu"},
    });
}

TEST_F(TagHandlersTest, FontTagsStack) {
    CheckFonts({
        {"<FONT SIZE=1>a<FONT SIZE=7>b<FONT SIZE=9>c<FONT SIZE=0>d<FONT SIZE=99999999999>e",
         "a=0 b=6 c=6 d=0 e=6"},
        {"<FONT SIZE=+1>a<FONT SIZE=-1>b<FONT SIZE=-5>c<FONT SIZE=+9>d<FONT SIZE=-99999999999>e",
         "a=3 b=1 c=0 d=6 e=0"},
        {"<FONT SIZE=x>a<FONT SIZE=6>b<FONT SIZE>c", "a=2 b=5 c=2"},
        {"<FONT SIZE=1 SIZE=7>x<FONT SIZEX=2>y", "x=6 y=1"},
        {"<FONT FACE=Courier>x</FONT>y", "x=2@Courier y=2"},
        {"<FONT COLOR=red SIZE=4>a<FONT FACE=F>b</FONT>c</FONT>d", "a=3#FF0000 b=3#FF0000@F c=3#FF0000 d=2"},
        {"<FONT COLOR=red>a<FONT>b</FONT>c</FONT>d", "a=2#FF0000 b=2#FF0000 c=2 d=2"},
        {"<FONT COLOR=red><FONT COLOR=none>a</FONT>b", "a=2 b=2#FF0000"},
        {"<B><U><FONT SIZE=4>x</FONT></U>y", "x=3bu y=2b"},
    });
}

TEST_F(TagHandlersTest, HeadingsAreBoldAndHaveTheirSizes) {
    CheckFonts({
        {"<H1>1</H1><H2>2</H2><H3>3</H3><H4>4</H4><H5>5</H5><H6>6</H6>x",
         "1=5b 2=4b 3=3b 4=2b 5=1b 6=0b x=2"},
        {"<FONT COLOR=lime FACE=F><H6>x</H6>y", "x=0b#00FF00@F y=2#00FF00@F"},
        {"<H1><I>x</I></H1>", "x=5bi"},
        {"<H1><FONT COLOR=RED>x</FONT>y</H1>z", "x=5#FF0000 y=5b z=2"},
        {"</FONT></H1>x", "x=2"},
    });
}

TEST_F(TagHandlersTest, BodySetsTheTextColor) {
    CheckFonts({
        {"<BODY TEXT=RED>a</FONT>b", "a=2#FF0000 b=2"},
        {"<FONT COLOR=red><BODY TEXT=BLACK>a</FONT>b", "a=2#FF0000 b=2"},
        {"<FONT SIZE=7><BODY TEXT=RED>x", "x=2#FF0000"},
        {"<B><BODY TEXT=1>x", "x=2b#000001"},
    });
}

TEST_F(TagHandlersTest, BodySetsTheColorsOfTheDocument) {
    const struct {
        const char *lpszHTML;
        uint32_t dwBg, dwLink, dwVLink, dwALink;
    } aCases[] = {
        {"x", 0xFFFFFF, 0x0000FF, 0xFFFF00, 0x00FFFF},
        {"<BODY BGCOLOR=#102030 LINK=red VLINK=lime ALINK=navy>", 0x102030, 0xFF0000, 0x00FF00, 0x000080},
        {"<BODY BACKGROUND=red></BODY BGCOLOR=red>", 0xFFFFFF, 0x0000FF, 0xFFFF00, 0x00FFFF},
        {"<BODY BGCOLOR=red LINK=red><BODY LINK=1>", 0xFF0000, 0x000001, 0xFFFF00, 0x00FFFF},
    };
    for (const auto &testCase : aCases) {
        SCOPED_TRACE(testCase.lpszHTML);
        ParsedPage page(testCase.lpszHTML, 400);
        EXPECT_EQ(page->_dwBgColor, testCase.dwBg);
        EXPECT_EQ(page->_dwLinkColor, testCase.dwLink);
        EXPECT_EQ(page->_dwVLinkColor, testCase.dwVLink);
        EXPECT_EQ(page->_dwALinkColor, testCase.dwALink);
    }
}

TEST_F(TagHandlersTest, TheFirstTitleCountsAndShowsNothingOnThePage) {
    const std::string strLong(300, 'x');
    const struct {
        std::string strHTML, strTitle, strTexts;
    } aCases[] = {
        {"<TITLE>a &lt; b</TITLE>", "a < b", ""},
        {"<TITLE>a</TITLE><TITLE>b</TITLE>c", "a", "c=2"},
        {"<TITLE></TITLE><TITLE>b</TITLE>", "", ""},
        {"<TITLE> a\n b;", " a b;", ""},
        {"<TITLE>a<B>b</TITLE>", "a", "b=2b"},
        {"<TITLE>" + strLong + "</TITLE>c", std::string(255, 'x'), "c=2"},
    };
    for (const auto &testCase : aCases) {
        SCOPED_TRACE(testCase.strHTML);
        EXPECT_STREQ(ParsedPage(testCase.strHTML, 400)->_lpszTitle, testCase.strTitle.c_str());
        EXPECT_EQ(DescribeFonts(testCase.strHTML), testCase.strTexts);
    }
    EXPECT_EQ(ParsedPage("</TITLE>a", 400)->_lpszTitle, nullptr);
}

// In a page of 200 pixels: a line of text is 18 high, an empty one 15.
TEST_F(TagHandlersTest, BreaksAndAlignment) {
    const struct {
        const char *lpszHTML, *lpszPlaces;
    } aCases[] = {
        {"a<B>b</B><FONT COLOR=red>c</FONT><BODY>d<TITLE>e</TITLE>f", "a 0,0 b 10,0 c 20,0 d 30,0 f 40,0 "},
        {"a<BR>b", "a 0,0 b 0,18 "},
        {"<BR>a", "a 0,0 "},
        {"a<BR><BR></BR>b", "a 0,0 b 0,48 "},
        {"<FONT SIZE=7>a<BR><BR>b", "a 0,0 b 0,78 "},
        {"a<P>b", "a 0,0 b 0,33 "},
        {"a<P></P>b", "a 0,0 b 0,48 "},
        {"a<BR><P>b", "a 0,0 b 0,33 "},
        {"<P>a", "a 0,15 "},
        {"a<FONT SIZE=7><P></FONT>b", "a 0,0 b 0,53 "},
        {"a<H2>b</H2>c", "a 0,0 b 0,18 c 0,44 "},
        {"<CENTER>a<CENTER>b</CENTER>c</CENTER>d", "a 95,0 b 95,18 c 95,36 d 0,54 "},
        {"</CENTER>a<CENTER>b", "a 0,0 b 95,18 "},
        {"<CENTER>a<BR>b<P>c<H1>d</H1>e", "a 95,0 b 95,18 c 95,51 d 95,69 e 95,102 "},
    };
    const std::regex line(R"re((\d+,\d+) .*"(.)")re");
    for (const auto &testCase : aCases) {
        const std::string strDump = ParsedPage(testCase.lpszHTML, 200).Dump();
        EXPECT_EQ(std::regex_replace(strDump, line, "$2 $1 ", std::regex_constants::format_no_copy),
                  testCase.lpszPlaces)
            << testCase.lpszHTML;
    }
}
