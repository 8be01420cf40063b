// The model of a table: how the width of the page is shared out, and what the parse leaves in the columns.
#include "table.h"

#include "engine_fixture.h"
#include "layout.h"

class TableTest : public EngineTest {};

TEST_F(TableTest, WidthsAreSharedOut) {
    struct Column {
        int nMin, nWant, nMax, nBefore, nAfter;
    };
    const struct {
        const char *lpszName;
        std::vector<Column> columns;  // the first of the table first
    } aCases[] = {
        {"short texts", {{50, 0, 30, 0, 50}, {50, 0, 0, 0, 50}}},
        {"goals beyond the room", {{50, 200, 0, 0, 200}, {50, 300, 0, 0, 200}}},
        {"goals within it", {{50, 100, 0, 0, 100}, {50, 200, 0, 0, 200}}},
        {"texts as goals", {{50, 0, 120, 0, 120}, {70, 0, 80, 0, 80}}},
        {"a wish below the text", {{90, 100, 300, 0, 100}, {60, 20, 300, 0, 60}}},
        {"the last takes little", {{50, 0, 900, 0, 340}, {50, 60, 0, 0, 60}}},
        {"a column without a wish leaves its share", {{50, 0, 900, 0, 200}, {50, 0, 0, 0, 50}}},
        {"thirds", {{50, 999, 0, 0, 134}, {50, 999, 0, 0, 133}, {50, 999, 0, 0, 133}}},
        {"minima wider than the page", {{150, 300, 0, 0, 150}, {300, 0, 0, 0, 300}}},
        {"too wide", {{50, 0, 0, 300, 200}, {50, 0, 0, 300, 200}}},
        {"too wide, the last gives little", {{50, 0, 0, 300, 150}, {250, 0, 0, 300, 250}}},
        {"too wide, the first gives little", {{250, 0, 0, 300, 250}, {50, 0, 0, 300, 200}}},
        {"a picture has raised a minimum", {{50, 200, 0, 200, 100}, {300, 200, 0, 200, 300}}},
        {"widths stay", {{50, 0, 0, 70, 70}, {50, 60, 0, 80, 80}}},
    };
    for (const auto &testCase : aCases) {
        SCOPED_TRACE(testCase.lpszName);
        ParsedPage page("", 400);
        Table table(page.Get());
        for (const Column &column : testCase.columns) {
            table.AddColumn(column.nWant, 0, 0);
            TableCell *lpCell = table.lpllCurCol->lpData;
            lpCell->_nMinWidth = column.nMin;
            lpCell->_nMaxWidth = column.nMax;
            lpCell->_nWidth = column.nBefore;
        }
        table.DistributeWidths();
        table.StartRow();
        int nTotal = 0;
        for (const Column &column : testCase.columns) {
            EXPECT_EQ(table.lpllCurCol->lpData->_nWidth, column.nAfter);
            table.EndCell();
            nTotal += column.nAfter;
        }
        EXPECT_EQ(table._nWidth, nTotal);
    }
}

TEST_F(TableTest, ColumnsCollectWhatTheirTextsNeed) {
    ParsedPage page("", 400);
    Table *lpTable = page->_lpCurTable = new Table(page.Get());
    List_Prepend(page->_lpTables, lpTable);
    lpTable->StartRow();
    NewLine(page.Get());
    EXPECT_EQ(page->_lpLines->lpData->_lpCell, nullptr) << "no column yet";

    lpTable->AddColumn(-5, -1, ALIGN_RIGHT);
    const TableCell *lpFirst = lpTable->lpllCurCol->lpData;
    EXPECT_TRUE(lpFirst->_nWantWidth == 0 && lpFirst->_nWantHeight == 0 && lpFirst->_bAlign == ALIGN_RIGHT);
    const struct {
        const char *lpszCell;
        int nMinWidth, nMaxWidth;
    } aRows[] = {{"a", 50, 10}, {"aa bb&nbsp;b-b<BR>cccc ", 60, 140}, {"d|ddddddddd e", 100, 140}};
    for (const auto &row : aRows) {
        lpTable->StartRow();
        NewLine(page.Get());
        EXPECT_EQ(page->_lpLines->lpData->_lpCell, lpFirst);
        const int nBefore = lpFirst->_nMaxWidth;
        page->ParseHTML(row.lpszCell, static_cast<int>(strlen(row.lpszCell)));
        EXPECT_EQ(lpFirst->_nMaxWidth, nBefore) << "the row is not finished";
        lpTable->EndCell();
        EXPECT_EQ(lpTable->lpllCurCol, nullptr) << "behind the last column";
        EXPECT_EQ(lpFirst->_nMinWidth, row.nMinWidth) << row.lpszCell;
        EXPECT_EQ(lpFirst->_nMaxWidth, row.nMaxWidth) << row.lpszCell;
    }
}

// Tables as the dump shows them: rows share their columns, and a cell ends with the next one.
TEST_F(TableTest, TablesLayOutInColumns) {
    const struct {
        const char *lpszHTML;
        const char *lpszDump;
    } aCases[] = {
        {"<TABLE><TR><TD>a<TD>b</TABLE>c", "0,0 10x18 \"a\"\n50,0 10x18 \"b\"\n0,18 10x18 \"c\"\n"},
        {"<TABLE><TR><TD>a</TD><TD>b</TD></TR><TR><TD>c</TD><TD>d</TD></TR></TABLE>",
         "0,0 10x18 \"a\"\n50,0 10x18 \"b\"\n0,18 10x18 \"c\"\n50,18 10x18 \"d\"\n"},
        {"<TABLE><TR><TD WIDTH=50%>a<TD ALIGN=RIGHT>b</TD></TABLE>", "0,0 10x18 \"a\"\n240,0 10x18 \"b\"\n"},
        {"<TABLE><TR><TD>a<TR><TD>b<TR><TD>c</TABLE>",
         "0,0 10x18 \"a\"\n50,0 10x18 \"b\"\n0,18 10x18 \"c\"\n"},
        {"<TABLE ALIGN=CENTER><TR><TD>a<TD>b</TABLE>c",
         "150,0 10x18 \"a\"\n200,0 10x18 \"b\"\n0,18 10x18 \"c\"\n"},
        {"<CENTER><TABLE><TR><TH>a<TH>b</TABLE></CENTER>", "150,0 10x18 \"a\"\n200,0 10x18 \"b\"\n"},
        {"<TR><TD>a</TD></TR>", "0,0 10x18 \"a\"\n"},
        {"<TABLE><TR><TD WIDTH=100 WIDTH=x>a<TR><TD WIDTH=150>b<TD WIDTH=0>c</TABLE>",
         "0,0 10x18 \"a\"\n100,0 10x18 \"b\"\n233,0 10x18 \"c\"\n"},
        {"<TABLE><TR><TD>a<TABLE><TR><TD>b</TABLE><TD>c</TABLE>d",
         "0,0 10x18 \"a\"\n50,0 10x18 \"b\"\n0,18 10x18 \"c\"\n10,18 10x18 \"d\"\n"},
        {"<TABLE>a<TR>b<TD>c</TD>d</TABLE>",
         "0,0 10x18 \"a\"\n10,0 10x18 \"b\"\n0,18 10x18 \"c\"\n10,18 10x18 \"d\"\n"},
        {"<TABLE><TR><TD>aaaaaaaa<TD>b</TABLE>", "0,0 80x18 \"aaaaaaaa\"\n80,0 10x18 \"b\"\n"},
    };
    for (const auto &testCase : aCases) {
        ParsedPage page(testCase.lpszHTML, 400);
        EXPECT_EQ(page.Dump(), testCase.lpszDump) << testCase.lpszHTML;
    }
}
