// What the tags for text do: fonts and styles, breaks, alignment, the colours of the document and its title.
#include "engine_fixture.h"
#include "fontmanager.h"
#include "htmlparser.h"
#include "text.h"

class TagHandlersTest : public EngineTest {
  protected:
    // Each run of text as text=size, followed by the styles in force (b, i, u), and by colour and face where
    // they are not the default.
    static std::string DescribeFonts(const std::string &strHTML) {
        ParsedPage page(strHTML, 400);
        std::string strFonts;
        for (auto *lpNode = List_Tail(page->_lpChildren); lpNode; lpNode = lpNode->lpPrev) {
            if (lpNode->lpData->_bTabStop)
                continue;  // a link
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

    static void CheckFonts(std::initializer_list<std::pair<const char *, const char *>> cases) {
        for (const auto &[lpszHTML, lpszFonts] : cases)
            EXPECT_EQ(DescribeFonts(lpszHTML), lpszFonts) << lpszHTML;
    }
};

TEST_F(TagHandlersTest, StylesAreCounted) {
    CheckFonts({
        {"<B><B>x</B>y</B>z", "x=2b y=2b z=2"},
        {"</B></I></U>x<B>y", "x=2 y=2b"},
        {"<B>a<I>b</B><FONT SIZE=4>c</I>d", "a=2b b=2bi c=3i d=3"},
        {"<U>a<B><I>b", "a=2u b=2biu"},
    });
}

TEST_F(TagHandlersTest, LinksAreUnderlinedAndShareThatWithU) {
    CheckFonts({
        {"a<A HREF=x>b<B>c</B></A>d", "a=2 b=2u c=2bu d=2"},
        {"<A HREF=\"\">a</A><A>b</A></A>c", "a=2 b=2 c=2"},
        {"<A HREF=x>a<A NAME=y>b</A>c", "a=2u b=2 c=2"},
        {"<A HREF=x><A HREF=y>a</A>b</A>c", "a=2u b=2u c=2"},
        {"<U>a<A HREF=x>b</A>c</U>d", "a=2u b=2u c=2 d=2u"},
        {"<A HREF=x><U>a</U>b</A>c", "a=2u b=2 c=2u"},
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

TEST_F(TagHandlersTest, BodySetsColors) {
    CheckFonts({
        {"<BODY TEXT=RED>a</FONT>b", "a=2#FF0000 b=2"},
        {"<FONT COLOR=red><BODY TEXT=BLACK>a</FONT>b", "a=2#FF0000 b=2"},
        {"<FONT SIZE=7><BODY TEXT=RED>x", "x=2#FF0000"},
        {"<B><BODY TEXT=1>x", "x=2b#000001"},
    });
    const auto colorsOf = [](const char *lpszHTML) {
        ParsedPage page(lpszHTML, 400);
        return std::vector{page->_dwBgColor, page->_dwLinkColor, page->_dwVLinkColor, page->_dwALinkColor};
    };
    const std::vector<uint32_t> defaults{0xFFFFFF, 0x0000FF, 0xFFFF00, 0x00FFFF};
    EXPECT_EQ(colorsOf("<BODY BACKGROUND=red></BODY BGCOLOR=red>"), defaults);
    EXPECT_EQ(colorsOf("<BODY BGCOLOR=1 LINK=red VLINK=3 ALINK=4><BODY LINK=2>"),
              (std::vector<uint32_t>{1, 2, 3, 4}));
}

TEST_F(TagHandlersTest, TheFirstTitleCountsAndShowsNothingOnThePage) {
    const struct {
        std::string strHTML, strTitle, strTexts;
    } aCases[] = {
        {"<TITLE>a &lt; b</TITLE>", "a < b", ""},
        {"<TITLE>a</TITLE><TITLE>b</TITLE>c", "a", "c=2"},
        {"<TITLE></TITLE><TITLE>b</TITLE>", "", ""},
        {"<TITLE> a\n b;", " a b;", ""},
        {"<TITLE>a<B>b</TITLE>", "a", "b=2b"},
        {"<TITLE>" + std::string(300, 'x') + "</TITLE>c", std::string(255, 'x'), "c=2"},
    };
    for (const auto &testCase : aCases) {
        EXPECT_EQ(ParsedPage(testCase.strHTML, 400)->_lpszTitle, testCase.strTitle) << testCase.strHTML;
        EXPECT_EQ(DescribeFonts(testCase.strHTML), testCase.strTexts) << testCase.strHTML;
    }
    EXPECT_EQ(ParsedPage("</TITLE>a", 400)->_lpszTitle, nullptr);
}
