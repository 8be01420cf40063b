// The parser, from bytes to items: runs of text, tags and their attributes, and the readers of values. Every
// document is handed over in a buffer of exactly its length.
#include "htmlparser.h"

#include "engine_fixture.h"
#include "fontmanager.h"
#include "hyperlink.h"
#include "text.h"

using namespace std::string_literals;

class HtmlParserTest : public EngineTest {};

TEST_F(HtmlParserTest, TextRunsBetweenTagsBecomeItems) {
    const struct {
        std::string strHTML, strTexts;  // a '|' behind each run
    } aCases[] = {
        {"", ""},
        {" \t\r\n\xA0; ", ""},
        {"a <B>b</B> c", "a |b|c|"},
        {"x&nbsp;&nbsp;y &nbsp; z", "x\xA0\xA0y \xA0 z|"},
        {"x \r\n\t y\n", "x y |"},
        {";;  word;<B>;a;b;", "word;|a;b;|"},
        {"&quot;x&quot", "\"x\"|"},
        {"&LT;&ltd&gTe&copy;", "<<d>e\xA9|"},
        {"&amp;&#65; &nbs<B>a&", "&amp;&#65; &nbs|a&|"},
        {"a > b<", "a > b|"},
        {"a <9 b> c", "a |c|"},
        {"a<9 b", "a|"},
        {"<!-- b -->c<!DOCTYPE x><?y?>d", "c|d|"},
        {"<!-- <B> -->c", "-->c|"},
        {"<SCRIPT>x<y</SCRIPT>z", "x|z|"},
        {"ab\0cd<B>e"s, "ab|e|"},
        {"\0ab<B>c"s, "c|"},
        {std::string(1030, 'x') + "<B>y", std::string(1023, 'x') + "|y|"},
        {std::string(1022, 'x') + "&lt;&gt;<B>y", std::string(1022, 'x') + "<|y|"},
    };
    for (const auto &testCase : aCases) {
        ParsedPage page(testCase.strHTML, 400);
        std::string strTexts;
        for (auto *lpNode = List_Tail(page->_lpChildren); lpNode; lpNode = lpNode->lpPrev)
            strTexts += static_cast<Text *>(lpNode->lpData)->_lpszText + "|"s;
        EXPECT_EQ(strTexts, testCase.strTexts) << testCase.strHTML;
    }
}

TEST_F(HtmlParserTest, TagsOpenAndCloseByTheBytesAroundTheirName) {
    const struct {
        const char *lpszHTML;
        int nOpen;  // B tags that are open at the end
    } aCases[] = {
        {"<B>", 1},      {"<b>", 1},       {"<B X=1>", 1}, {"<B ", 1},     {"<B", 0},
        {"<B/>", 0},     {"<B\n>", 0},     {"<B\t>", 0},   {"<BX>", 0},    {"<B;>", 0},
        {"<B></B>", 0},  {"<B></b x>", 0}, {"<B>< B>", 0}, {"<B><XB>", 0}, {"<B><>B>", 0},
        {"<B><//B>", 1}, {"<B></B/>", 1},  {"<B></B", 1},  {"<B><LI>", 1}, {"<B><B></B>", 1},
    };
    for (const auto &testCase : aCases) {
        ParsedPage page(testCase.lpszHTML, 400);
        EXPECT_EQ(page->_lpFontManager->_nBold, testCase.nOpen) << testCase.lpszHTML;
    }
}

TEST_F(HtmlParserTest, AttributesAreReadAsTheDialectWants) {
    const std::string strLong(300, 'x');
    const struct {
        std::string strHTML, strHREF;  // the link that is open at the end, if any
    } aCases[] = {
        {"<A HREF=x>", "x"},
        {"<a href=x", "x"},
        {"<A HREF", ""},
        {"<A HREF=", ""},
        {"<A HREF=\"x y\">", "x y"},
        {"<A HREF=\"x", "x"},
        {"<A HREF='x.gif'>", "'x.gif'"},
        {"<A HREF='x y'>", "'x"},
        {"<A HREF = \r\n;x>", "x"},
        {"<A HREF=\"a>b\">c", "a"},
        {"<A HREF=a=b\"c>", "a=b\"c"},
        {"<A HREF=a\tb>", "a\tb"},
        {"<A HREF=&lt>", "&lt"},
        {"<A HREF=\"x\"HREF=y>", "y"},
        {"<A ID=1 HREF=y>", "y"},
        {"<A ID HREF=y>", "y"},
        {"<A =\"x\" HREF=y>", "y"},
        {"<A ID=1\nHREF=y>", ""},
        {"<A ID\nHREF=y>", ""},
        {"<A ID=5;HREF=y>", "y"},
        {"<A ID=\"5;HREF=y\">", "y\""},
        {"<A HREF=x HREF=y>", "y"},
        {"<A HREF=x HREF>", ""},
        {"<A HREFLANG=x>", "x"},
        {"<A HRE=x>", ""},
        {"<A 1 2 3 4 5 6 7 8 9 10 11 12 13 14 HREF=x>", "x"},
        {"<A 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 HREF=x>", ""},
        {"<A HREF=" + strLong + " ID=y>", std::string(255, 'x')},
        {"<A HREF" + strLong + "=y>", "y"},
        {"</A HREF=x>", ""},
        {"<A\tHREF=x>", ""},
    };
    for (const auto &testCase : aCases) {
        ParsedPage page(testCase.strHTML, 400);
        const Hyperlink *lpLink = page->_lpCurHyperlink;
        EXPECT_EQ(lpLink ? lpLink->lpszURL : "", testCase.strHREF) << testCase.strHTML;
    }
}

TEST(HtmlParser, ExtractTextStopsInFrontOfATag) {
    const struct {
        const char *lpszInput;
        int nCapacity;
        const char *lpszText, *lpszRest;
    } aCases[] = {
        {"ab<c", 10, "ab", "<c"}, {" \n a", 10, " a", ""},   {"abcdef<", 4, "abc", "<"},
        {"<", 10, "", "<"},       {"a&lt;b<", 3, "a<", "<"}, {"ab  cd", 4, "ab ", ""},
    };
    for (const auto &testCase : aCases) {
        char szBuffer[10];
        const char *lpPos = testCase.lpszInput;
        int nRemaining = static_cast<int>(strlen(lpPos));
        ExtractText(&lpPos, &nRemaining, szBuffer, testCase.nCapacity);
        EXPECT_STREQ(szBuffer, testCase.lpszText) << testCase.lpszInput;
        EXPECT_STREQ(lpPos, testCase.lpszRest) << testCase.lpszInput;
        EXPECT_EQ(nRemaining, static_cast<int>(strlen(lpPos))) << testCase.lpszInput;
    }
}

TEST(HtmlParser, AnEntityMatchesWithinTheBytesThatAreLeft) {
    const struct {
        const char *lpszInput;
        int nLength, nMatched;
        char cByte;
    } aCases[] = {
        {"nbsp;", 5, 5, '\xA0'}, {"nbsp;", 4, 4, '\xA0'}, {"nbsp;", 3, 0, '?'}, {"CopyX", 5, 4, '\xA9'},
        {"gt", 2, 2, '>'},       {"amp;", 4, 0, '?'},     {"", 0, 0, '?'},
    };
    for (const auto &testCase : aCases) {
        char cByte = '?';
        EXPECT_EQ(MatchEntity(testCase.lpszInput, testCase.nLength, &cByte), testCase.nMatched)
            << testCase.lpszInput;
        EXPECT_EQ(cByte, testCase.cByte) << testCase.lpszInput << " of length " << testCase.nLength;
    }
}

TEST(HtmlParser, ReadsColors) {
    const struct {
        const char *lpszInput;
        uint32_t dwColor;
    } aCases[] = {
        {"red", 0xFF0000},     {"#FF0000", 0xFF0000},
        {"FF0000", 0xFF0000},  {"BLUE", 0x0000FF},
        {"Fuchsia", 0xFF00FF}, {"silver", 0xC0C0C0},
        {"BAD", 0x000BAD},     {"#FFF", 0x000FFF},
        {"nonsense", 0},       {"", 0},
        {"REDX", 0},           {"0x1F", 0x00001F},
        {"navy ", 0},
    };
    for (const auto &testCase : aCases)
        EXPECT_EQ(ParseColor(testCase.lpszInput), testCase.dwColor) << '"' << testCase.lpszInput << '"';
}

TEST(HtmlParser, SplitsLists) {
    const struct {
        std::string strInput;
        uint16_t wCapacity;
        std::string strPieces;  // a '|' behind each piece
    } aCases[] = {
        {"10,,20", 8, "10||20|"}, {"10,", 8, "10|"},    {"", 8, ""},    {",", 8, "|"},
        {"50%,*", 8, "50%|*|"},   {"a,b,c", 2, "a|b|"}, {"a,b", 0, ""}, {"a,b", 2, "a|b|"},
    };
    for (const auto &testCase : aCases) {
        std::string strInput = testCase.strInput;
        char *aPieces[8];
        uint16_t wCount = testCase.wCapacity;
        SplitString(strInput.data(), ',', aPieces, &wCount);
        std::string strPieces;
        for (int i = 0; i < wCount; ++i)
            strPieces += aPieces[i] + "|"s;
        EXPECT_EQ(strPieces, testCase.strPieces) << testCase.strInput << " into " << testCase.wCapacity;
    }
}

TEST(HtmlParser, ReadsNumbersWithSaturation) {
    const struct {
        const char *lpszInput;
        int nValue;
    } aCases[] = {
        {"12", 12},
        {"0040%", 40},
        {" \n+7x", 7},
        {"", 0},
        {"x5", 0},
        {"- 5", 0},
        {"2147483648", 2147483647},
        {"99999999999999999999999", 2147483647},
        {"-2147483647", -2147483647},
    };
    for (const auto &testCase : aCases)
        EXPECT_EQ(ParseInt(testCase.lpszInput), testCase.nValue) << '"' << testCase.lpszInput << '"';
    EXPECT_LE(ParseInt("-99999999999999999999999"), -2147483647);
}

TEST(HtmlParser, TheTagTableIsInOrder) {
    std::string strTable;
    for (const TagEntry *lpRow = g_aTagTable; lpRow->_lpszName; ++lpRow) {
        strTable += lpRow->_lpszName + " "s + std::to_string(lpRow->_nTagId);
        strTable += lpRow->_dwHasClose ? ", " : "!, ";
        EXPECT_EQ(lpRow->_wClosing, 0) << lpRow->_lpszName;
    }
    EXPECT_EQ(strTable,
              "HTML 0, FRAMESET 30, FRAME 31, BODY 1, BR 11, P 15, FONT 12, H1 16, H2 17, H3 18, H4 19, "
              "H5 20, H6 21, B 22, I 23, U 24, IMG 4!, TABLE 7, TR 8, TH 9, TD 10, TITLE 14, CENTER 2, A 13, "
              "FORM 25, INPUT 28, META 5!, ");
    EXPECT_EQ(g_aTagTable[kTagCount]._lpszName, nullptr);
    EXPECT_EQ(g_aTagTable[19]._lpfnHandler, g_aTagTable[20]._lpfnHandler) << "TH is a TD";
}
