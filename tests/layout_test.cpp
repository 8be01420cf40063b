// Where things come to stand. A character is 10 pixels wide, a line of text 18 high, one without items 15.
#include "layout.h"

#include <sstream>

#include "engine_fixture.h"
#include "table.h"

namespace {

class Box : public PageItem {
  public:
    Box(Page *lpPage, int w, int h) : PageItem(lpPage, 0) {
        _rc = Rect(0, 0, w, h);
        lpPage->AddChild(this);
        lpPage->_lpLines->lpData->AddItem(this);
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
    int nFirst = 0, nSecond = 0;
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
        std::istringstream lines(Dump());
        std::string strPlaces;
        for (std::string strPlace, strRest; lines >> strPlace && std::getline(lines, strRest);)
            strPlaces += isdigit(strPlace[0]) ? strPlace + " " : "";
        return strPlaces;
    }
};

}  // namespace

class LayoutTest : public EngineTest {
  protected:
    template <int nWidth>
    static void CheckPlaces(std::initializer_list<std::pair<const char *, const char *>> cases) {
        for (const auto &[lpszPage, lpszPlaces] : cases)
            EXPECT_EQ(MarkedPage(lpszPage, nWidth).Places(), lpszPlaces) << lpszPage;
    }
};

TEST_F(LayoutTest, BreaksAndParagraphs) {
    CheckPlaces<200>({
        {"a<B>b</B><FONT COLOR=red>c</FONT><BODY>d<TITLE>e</TITLE>f", "0,0 10,0 20,0 30,0 40,0 "},
        {"<BR>a<BR><BR></BR>b", "0,0 0,48 "},
        {"a<P></P>b", "0,0 0,48 "},
        {"a<BR><P>b", "0,0 0,33 "},
        {"<P>a", "0,15 "},
        {"a<FONT SIZE=7><P></FONT>b<FONT SIZE=7><BR><BR></FONT>c", "0,0 0,53 0,106 "},
        {"a<H2>b</H2>c", "0,0 0,18 0,44 "},
    });
}

TEST_F(LayoutTest, BoxesStandSideBySideAndWrap) {
    CheckPlaces<150>({
        {"[100x20][100x30]", "0,0 0,20 "},
        {"[75x20][75x20]", "0,0 0,20 "},
        {"[75x20][74x20]", "0,0 75,0 "},
        {"[20x40]a[20x10]b<BR>c", "0,0 20,0 30,0 50,0 0,40 "},
        {"a[20x40][130x5][130x7]<BR>b", "0,0 10,0 0,40 0,45 0,52 "},
        {"a[140x20]b", "0,0 0,18 140,18 "},
        {"a[200x20]b", "0,0 0,18 0,38 "},
        {"[0x0]a[0x0]b", "0,0 0,0 10,0 10,0 "},
    });
}

TEST_F(LayoutTest, CenterMovesEachLineByItself) {
    CheckPlaces<150>({
        {"<CENTER>a<CENTER>b</CENTER>c</CENTER>d", "70,0 70,18 70,36 0,54 "},
        {"</CENTER>a<CENTER>b<BR>c<P>d<H1>e</H1>f", "0,0 70,18 70,36 70,69 70,87 70,120 "},
        {"<CENTER>[100x20][60x20]<BR>[30x9]a", "25,0 45,20 55,40 85,40 "},
        {"<CENTER>[160x20]a<BR>[99x9]", "0,0 70,20 25,38 "},
        {"<CENTER>aaaa bbbb cccc dddd", "30,0 30,18 "},
        {"<CENTER>aa bbbbbbbbbbbbbbbbbbb cc", "65,0 0,18 65,36 "},
        {"<CENTER>aaaaaaaaaa<B>bbbbbbb</B>c</CENTER>d", "25,0 35,18 105,18 0,36 "},
    });
}

TEST_F(LayoutTest, RowsOfATableShareTheirTop) {
    CheckPlaces<400>({
        {"[TABLE][TD 90]a[/TD][TD 80]b[/TD][TR][TD]c[/TD][TD]d[/TABLE]e", "0,0 90,0 0,18 90,18 0,36 "},
        {"a[TABLE][TD]b[/TD][TD]c[/TD][TR][TD]d", "0,0 0,18 50,18 0,36 "},
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
        {"[TABLE][TD 100]a[/TD][TD 100]bbbb<B>cccc<BR>[/TD][TD]d", "0,0 100,0 140,0 300,0 "},
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
    const auto join = [&page](const Rect &rcBefore, const Rect &rc) {
        page->_rcDirty = rcBefore;
        page->AddDirtyRect(rc.x, rc.y, rc.w, rc.h);
        return page->_rcDirty;
    };
    EXPECT_EQ(join({0, 0, 0, 0}, {20, 30, 10, 10}), Rect(20, 30, 10, 10));
    EXPECT_EQ(join({0, 10, 50, 10}, {20, 30, 10, 10}), Rect(0, 10, 50, 30));
    EXPECT_EQ(join({5, 5, 50, 50}, {6, 6, 2, 2}), Rect(5, 5, 50, 50));
    EXPECT_EQ(join({5, 5, 50, 50}, {0, 0, 0, 0}), Rect(0, 0, 120, 80));
}
