// Where things come to stand: a page goes in, the places of its items come out. A line of text is 18 pixels
// high and 10 wide for each character; a line without items is 15 high.
#include "layout.h"

#include <regex>

#include "engine_fixture.h"
#include "table.h"

namespace {

class Box : public PageItem {
  public:
    Box(Page *lpPage, int w, int h) : PageItem(lpPage, 0) {
        _rc.w = w;
        _rc.h = h;
        lpPage->AddChild(this);
        List_Prepend<PageItem>(lpPage->_lpLines->lpData->_lpItems, this);
    }
    void PlaceInLine(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
                     int *lpnWidth) override {
        PlaceBox(this, lppLine, nLeft, lpnUsed, lpnLineHeight, lpPen, lpnWidth);
    }
};

// What has no tag here stands in brackets:
//   [30x20]                a box
//   [TABLE] [TR] [/TABLE]  a table, the start of a row, the end of the table
//   [TD 80 2] [/TD]        the next cell of the row; if it makes its column, with this width and alignment
void ActOnMark(Page *lpPage, const std::string &strMark) {
    Table *&lpTable = lpPage->_lpCurTable;
    int nFirst = 0;
    int nSecond = 0;
    if (sscanf(strMark.c_str(), "%dx%d", &nFirst, &nSecond) == 2) {
        new Box(lpPage, nFirst, nSecond);
    } else if (strMark == "TABLE") {
        List_Prepend(lpPage->_lpTables, lpTable = new Table(lpPage));
    } else if (strMark == "TR") {
        lpTable->StartRow();
    } else if (strMark == "/TD") {
        lpTable->EndCell();
    } else if (strMark == "/TABLE") {
        lpTable = nullptr;
        NewLine(lpPage);
    } else {
        sscanf(strMark.c_str(), "TD %d %d", &nFirst, &nSecond);
        if (!lpTable->lpllCurCol)
            lpTable->AddColumn(nFirst, 0, static_cast<uint8_t>(nSecond));
        NewLine(lpPage);
    }
}

class MarkedPage : public ParsedPage {
  public:
    MarkedPage(const std::string &strPage, int nWidth) : ParsedPage("", nWidth) {
        for (size_t nPos = 0; nPos < strPage.size();) {
            const size_t nMark = std::min(strPage.find('[', nPos), strPage.size());
            Get()->ParseHTML(&strPage[nPos], static_cast<int>(nMark - nPos));
            nPos = std::min(strPage.find(']', nMark), strPage.size() - 1) + 1;
            if (nMark < nPos)
                ActOnMark(Get(), strPage.substr(nMark + 1, nPos - nMark - 2));
        }
        Get()->Relayout();
    }

    // In document order; a text that was cut counts by its pieces.
    std::string Places() {
        static const std::regex line(" *(\\d+,\\d+) .*\n");
        return std::regex_replace(Dump(), line, "$1 ", std::regex_constants::format_no_copy);
    }
};

}  // namespace

class LayoutTest : public EngineTest {
  protected:
    struct LayoutCase {
        const char *lpszPage, *lpszPlaces;
    };
    template <int nWidth, size_t n>
    static void CheckPlaces(const LayoutCase (&aCases)[n]) {
        for (const LayoutCase &layoutCase : aCases)
            EXPECT_EQ(MarkedPage(layoutCase.lpszPage, nWidth).Places(), layoutCase.lpszPlaces)
                << layoutCase.lpszPage;
    }
};

TEST_F(LayoutTest, BoxesStandSideBySideAndWrap) {
    CheckPlaces<150>({
        {"[100x20][100x30]", "0,0 0,20 "},
        {"[75x20][75x20]", "0,0 0,20 "},
        {"[75x20][74x20]", "0,0 75,0 "},
        {"[200x20][10x10]", "0,0 0,20 "},
        {"[20x40]a[20x10]b<BR>c", "0,0 20,0 30,0 50,0 0,40 "},
        {"a[20x40][130x5][130x7]<BR>b", "0,0 10,0 0,40 0,45 0,52 "},
        {"a[140x20]b", "0,0 0,18 140,18 "},
        {"a[200x20]b", "0,0 0,18 0,38 "},
        {"[0x0]a[0x0]b", "0,0 0,0 10,0 10,0 "},
    });
}

TEST_F(LayoutTest, CenterMovesEachLineByItself) {
    CheckPlaces<150>({
        {"<CENTER>[100x20][60x20]<BR>a", "25,0 45,20 70,40 "},
        {"<CENTER>[50x20][60x20]", "20,0 70,0 "},
        {"<CENTER>[99x20]", "25,0 "},
        {"<CENTER>[149x20]", "0,0 "},
        {"<CENTER>[160x20]a", "0,0 70,20 "},
        {"<CENTER>aaaa bbbb cccc dddd", "30,0 30,18 "},
        {"<CENTER>aa bbbbbbbbbbbbbbbbbbb cc", "65,0 0,18 65,36 "},
        {"<CENTER>aaaaaaaaaa<B>bbbbbbb</B>c</CENTER>d", "25,0 35,18 105,18 0,36 "},
    });
}

TEST_F(LayoutTest, RowsOfATableShareTheirTop) {
    CheckPlaces<400>({
        {"[TABLE][TD 100]a[/TD][TD 150]b[/TD][TR][TD]c[/TD][TD]d[/TD][/TABLE]e",
         "0,0 100,0 0,18 100,18 0,36 "},
        {"a[TABLE][TD]b[/TD][TD]c[/TD][TR][TD]d", "0,0 0,18 50,18 0,36 "},
        {"[TABLE][TD]aaaaaaaa bb[/TD][TD]c", "0,0 110,0 "},
        {"[TABLE][TD]aaaaaaaa bb", "0,0 0,18 "},
        {"[TABLE][TD 100]aaaa bbbb cccc[/TD][TD 90]d[/TD][TR][TD]e[/TD][TD]f", "0,0 0,18 100,0 0,36 100,36 "},
        {"[TABLE][TD 90]a[/TD][TD 100]b bbbbbbbbbb[/TD][TR][TD]c", "0,0 90,0 90,18 0,36 "},
        {"[TABLE][TD 100][/TD][TD]a[/TD][TR][TD]b", "100,0 0,18 "},
        {"[TABLE][TD 100][60x10][30x30][/TD][TD]a[/TD][TR][TD]b", "0,0 60,0 100,0 0,30 "},
    });
}

TEST_F(LayoutTest, LaterColumnsOfATableHaveTheirOwnWays) {
    CheckPlaces<400>({
        // A box compares the absolute position of the pen with the width of its column; a text does not.
        {"[TABLE][TD 100]a[/TD][TD 100][30x10][30x20][/TD][TR][TD]b", "0,0 100,0 100,10 0,30 "},
        {"[TABLE][TD 100]a[/TD][TD 100]bbbb<B>cccc", "0,0 100,0 140,0 "},
        // A break in the first column opens a row, in another it moves on.
        {"[TABLE][TD 100]a<BR>b[/TD][TD]c[/TD][TR][TD]d", "0,0 0,18 100,18 0,36 "},
        {"[TABLE][TD 100]a[/TD][TD 90]b<BR>c[/TD][TR][TD]d", "0,0 100,0 190,0 0,18 "},
        {"[TABLE][TD 100]a[/TD][TD 90]b<BR>[/TD][TR][TD]c", "0,0 100,0 0,33 "},
    });
}

TEST_F(LayoutTest, TablesAreAlignedAsABlockAndColumnsInThemselves) {
    CheckPlaces<400>({
        {"<CENTER>[TABLE][TD 100]aaa[/TD][TD 100]b[/TD][/TABLE]</CENTER>c", "100,0 200,0 0,18 "},
        {"<CENTER>[TABLE][TD]a[/TD][TD]bbbbbbbbbbbbbbbbbbbbbbbbbbbbbb[TR][TD]c", "25,0 75,0 25,18 "},
        {"<CENTER>[TABLE][TD]aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa[/TD][TD]bbbbbbbbbbbbb", "0,0 300,0 "},
        {"[TABLE][TD 100 1]aa[/TD][TD 80 2]b[/TD][TR][TD]ccc[/TD][TD]dd", "40,0 170,0 35,18 160,18 "},
        {"[TABLE][TD 100 2]aaaa bbbb cccc[/TD]", "0,0 0,18 "},
        {"[TABLE][TD 100 2]a[60x9][60x9]", "30,0 40,0 40,18 "},
        {"<CENTER>[TABLE][TD 100 2]a", "240,0 "},
    });
}

TEST_F(LayoutTest, PassesStartAfreshFromTheSameLines) {
    for (const char *lpszPage :
         {"", "<CENTER>aaaa bbbb cccc dddd<A HREF=x>eeee ffff gggg</A>[30x90][90x30]h<P><P>i",
          "a[TABLE][TD 60 2]b<BR>cc[/TD][TD]ddddd eeeee fffff[/TD][TR][TD]g[/TD][/TABLE]hhhhh iiiii jjjjj"}) {
        MarkedPage page(lpszPage, 120);
        MarkedPage widePage(lpszPage, 200);
        const std::string strDump = page.Dump();
        page->Relayout();
        EXPECT_EQ(page.Dump(), strDump) << lpszPage;
        page->_rc.w = 200;
        page->Relayout();
        EXPECT_EQ(page.Places(), widePage.Places()) << lpszPage;
        EXPECT_EQ(page->_lpFlowLines, nullptr) << lpszPage;
        EXPECT_EQ(page->_rcDirty, Rect(0, 0, 200, 300)) << lpszPage;
    }
}

TEST_F(LayoutTest, DirtyRectanglesAreJoined) {
    ParsedPage page("", 120, 80);
    const struct {
        Rect rcBefore, rcAdded, rcAfter;
    } aCases[] = {
        {{0, 0, 0, 0}, {20, 30, 10, 10}, {20, 30, 10, 10}},
        {{0, 10, 50, 10}, {20, 30, 10, 10}, {0, 10, 50, 30}},
        {{20, 30, 10, 10}, {0, 10, 50, 10}, {0, 10, 50, 30}},
        {{5, 5, 50, 50}, {6, 6, 2, 2}, {5, 5, 50, 50}},
        {{5, 5, 50, 50}, {0, 0, 0, 0}, {0, 0, 120, 80}},
        {{5, 5, 2, 2}, {0, 0, 0, 1}, {0, 0, 7, 7}},
    };
    for (const auto &testCase : aCases) {
        page->_rcDirty = testCase.rcBefore;
        page->AddDirtyRect(testCase.rcAdded.x, testCase.rcAdded.y, testCase.rcAdded.w, testCase.rcAdded.h);
        EXPECT_EQ(page->_rcDirty, testCase.rcAfter) << testCase.rcBefore.x << " and " << testCase.rcAdded.x;
    }
}
