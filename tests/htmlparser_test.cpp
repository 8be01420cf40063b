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
    const std::pair<std::string, std::string> aCases[] = {
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
        {"<!-- b -->c<!DOCTYPE x><?y?>d", "c|d|"},
        {"<!-- <B> -->c", "-->c|"},
        {"<SCRIPT>x<y</SCRIPT>z", "x|z|"},
        {"ab\0cd<B>e"s, "ab|e|"},
        {"\0ab<B>c"s, "c|"},
        {std::string(1030, 'x') + "<B>y", std::string(1023, 'x') + "|y|"},
        {std::string(1022, 'x') + "&lt;&gt;<B>y", std::string(1022, 'x') + "<|y|"},
    };
    for (const auto &[strHTML, strExpected] : aCases) {
        ParsedPage page(strHTML, 400);
        std::string strTexts;  // a '|' behind each run
        for (auto *lpNode = List_Tail(page->_lpChildren); lpNode; lpNode = lpNode->lpPrev)
            strTexts += static_cast<Text *>(lpNode->lpData)->_lpszText + "|"s;
        EXPECT_EQ(strTexts, strExpected) << strHTML;
    }
}

TEST_F(HtmlParserTest, TagsOpenAndCloseByTheBytesAroundTheirName) {
    const auto countOpen = [](const std::string &strHTML) {
        return ParsedPage(strHTML, 400)->_lpFontManager->_nBold;
    };
    for (const char *lpszHTML : {"<B>", "<b>", "<B X=1>", "<B ", "<B><//B>", "<B></B/>", "<B></B", "<B><LI>"})
        EXPECT_EQ(countOpen(lpszHTML), 1) << lpszHTML;
    for (const char *lpszHTML : {"<B", "<B/>", "<B\n>", "<B\t>", "<BX>", "<B;>", "<//B>", "<B></B>",
                                 "<B></b x>", "<B>< B>", "<B><XB>", "<B><>B>"})
        EXPECT_EQ(countOpen(lpszHTML), 0) << lpszHTML;
}

TEST_F(HtmlParserTest, AttributesAreReadAsTheDialectWants) {
    const std::string strLong(300, 'x');
    const std::pair<std::string, std::string> aCases[] = {
        {"<A HREF=x>", "x"},
        {"<a href=x", "x"},
        {"<A HREF=\"x y\">", "x y"},
        {"<A HREF=\"x", "x"},
        {"<A HREF='x.gif'>", "'x.gif'"},
        {"<A HREF = \r\n;x>", "x"},
        {"<A HREF=\"a>b\">c", "a"},
        {"<A HREF=a=b\"c>", "a=b\"c"},
        {"<A HREF=a\tb>", "a\tb"},
        {"<A HREF=&lt>", "&lt"},
        {"<A HREF=\"x\"HREF=y>", "y"},
        {"<A =\"x\" HREF=y>", "y"},
        {"<A ID\nHREF=y>", ""},
        {"<A HREF=x></A><A HREF>", ""},
        {"<A ID=5;HREF=y>", "y"},
        {"<A ID=\"5;HREF=y\">", "y\""},
        {"<A HREF=x HREF=y>", "y"},
        {"<A HREFLANG=x>", "x"},
        {"<A 1 2 3 4 5 6 7 8 9 10 11 12 13 14 HREF=x>", "x"},
        {"<A 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 HREF=x>", ""},
        {"<A HREF=" + strLong + " ID=y>", std::string(255, 'x')},
        {"<A HREF" + strLong + "=y>", "y"},
        {"</A HREF=x>", ""},
    };
    for (const auto &[strHTML, strHREF] : aCases) {
        ParsedPage page(strHTML, 400);
        const Hyperlink *lpLink = page->_lpCurHyperlink;
        EXPECT_EQ(lpLink ? lpLink->lpszURL : "", strHREF) << strHTML;
    }
}

TEST(HtmlParser, ReadsColors) {
    const std::pair<uint32_t, std::vector<const char *>> aCases[] = {
        {0xFF0000, {"red", "Red", "#FF0000", "#ff0000", "FF0000", "0xFF0000"}},
        {0x0000FF, {"BLUE", "#FF", "0000FF"}},
        {0xC0C0C0, {"Silver", "#c0C0c0"}},
        {0x000BAD, {"BAD", "#BAD", "BADX", " bad"}},
        {0, {"nonsense", "REDX", "#red", "#", "navy ", ""}},
    };
    for (const auto &[dwColor, inputs] : aCases) {
        for (const char *lpszInput : inputs)
            EXPECT_EQ(ParseColor(lpszInput), dwColor) << '"' << lpszInput << '"';
    }
}

TEST(HtmlParser, ReadsNumbersWithSaturation) {
    const std::pair<int, std::vector<const char *>> aCases[] = {
        {12, {"12", "0012%", " \n+12x", "12.9"}},
        {0, {"", "x5", "- 5", "-0"}},
        {2147483647, {"2147483647", "99999999999999999999999"}},
        {-12, {"-12", "-012-"}},
    };
    for (const auto &[nValue, inputs] : aCases) {
        for (const char *lpszInput : inputs)
            EXPECT_EQ(ParseInt(lpszInput), nValue) << '"' << lpszInput << '"';
    }
    EXPECT_LE(ParseInt("-99999999999999999999999"), -2147483647);
}

TEST(HtmlParser, SplitsLists) {
    const struct {
        std::string strInput;
        uint16_t wCapacity;
        std::string strPieces;  // a '|' behind each piece
    } aCases[] = {
        {"10,,20", 8, "10||20|"}, {"10,", 8, "10|"},    {"", 8, ""},
        {"50%,*", 8, "50%|*|"},   {"a,b,c", 2, "a|b|"}, {"a,b", 0, ""},
    };
    for (const auto &testCase : aCases) {
        std::string strInput = testCase.strInput, strPieces;
        char *aPieces[8];
        uint16_t wCount = testCase.wCapacity;
        SplitString(strInput.data(), ',', aPieces, &wCount);
        for (int i = 0; i < wCount; ++i)
            strPieces += aPieces[i] + "|"s;
        EXPECT_EQ(strPieces, testCase.strPieces) << testCase.strInput << " into " << testCase.wCapacity;
    }
}

TEST(HtmlParser, TheTagTableIsInOrder) {
    std::string strTable;
    for (const TagEntry *lpRow = g_aTagTable; lpRow->_lpszName; ++lpRow) {
        strTable += lpRow->_lpszName + " "s + std::to_string(lpRow->_nTagId);
        strTable += lpRow->_dwHasClose ? ", " : "!, ";
    }
    EXPECT_EQ(strTable,
              "HTML 0, FRAMESET 30, FRAME 31, BODY 1, BR 11, P 15, FONT 12, H1 16, H2 17, H3 18, H4 19, "
              "H5 20, H6 21, B 22, I 23, U 24, IMG 4!, TABLE 7, TR 8, TH 9, TD 10, TITLE 14, CENTER 2, A 13, "
              "FORM 25, INPUT 28, META 5!, ");
    EXPECT_EQ(g_aTagTable[19]._lpfnHandler, g_aTagTable[20]._lpfnHandler) << "TH is a TD";
}
