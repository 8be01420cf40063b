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
        int nPageWidth;
        std::vector<Column> columns;  // the first of the table first
        int nTotal;
    } aCases[] = {
        {"nothing", 400, {}, 0},
        {"short texts", 400, {{50, 0, 30, 0, 50}, {50, 0, 0, 0, 50}}, 100},
        {"goals beyond the room", 400, {{50, 200, 0, 0, 200}, {50, 300, 0, 0, 200}}, 400},
        {"goals within it", 1000, {{50, 200, 0, 0, 200}, {50, 300, 0, 0, 300}}, 500},
        {"texts as goals", 400, {{50, 0, 120, 0, 120}, {70, 0, 80, 0, 80}}, 200},
        {"a wish below the text", 400, {{90, 100, 300, 0, 100}, {60, 20, 300, 0, 60}}, 160},
        {"the last takes little", 400, {{50, 0, 900, 0, 340}, {50, 60, 0, 0, 60}}, 400},
        {"a column without a wish leaves its share", 400, {{50, 0, 900, 0, 200}, {50, 0, 0, 0, 50}}, 250},
        {"thirds", 500, {{50, 999, 0, 0, 167}, {50, 999, 0, 0, 167}, {50, 999, 0, 0, 166}}, 500},
        {"minima as wide as the page", 400, {{150, 300, 0, 0, 150}, {250, 300, 0, 0, 250}}, 400},
        {"minima wider than the page",
         400,
         {{150, 0, 0, 0, 150}, {200, 0, 0, 0, 200}, {100, 0, 0, 0, 100}},
         450},
        {"too wide", 400, {{50, 0, 0, 300, 200}, {50, 0, 0, 300, 200}}, 400},
        {"too wide, the last gives little", 400, {{50, 0, 0, 300, 150}, {250, 0, 0, 300, 250}}, 400},
        {"too wide, the first gives little", 400, {{250, 0, 0, 300, 250}, {50, 0, 0, 300, 200}}, 450},
        {"a picture has raised a minimum", 400, {{50, 200, 0, 200, 100}, {300, 200, 0, 200, 300}}, 400},
        {"widths stay", 400, {{50, 0, 0, 70, 70}, {50, 60, 0, 80, 80}}, 150},
    };
    for (const auto &testCase : aCases) {
        SCOPED_TRACE(testCase.lpszName);
        ParsedPage page("", testCase.nPageWidth);
        Table table(page.Get());
        for (const Column &column : testCase.columns) {
            table.AddColumn(column.nWant, 0, 0);
            TableCell *lpCell = table.lpllCurCol->lpData;
            lpCell->_nMinWidth = column.nMin;
            lpCell->_nMaxWidth = column.nMax;
            lpCell->_nWidth = column.nBefore;
        }
        table.DistributeWidths();
        EXPECT_EQ(table._nWidth, testCase.nTotal);
        table.StartRow();
        for (const Column &column : testCase.columns) {
            EXPECT_EQ(table.lpllCurCol->lpData->_nWidth, column.nAfter);
            table.EndCell();
        }
    }
}

TEST_F(TableTest, ColumnsCollectWhatTheirTextsNeed) {
    ParsedPage page("", 400);
    Table *lpTable = page->_lpCurTable = new Table(page.Get());
    List_Prepend(page->_lpTables, lpTable);
    lpTable->StartRow();
    NewLine(page.Get());
    EXPECT_EQ(page->_lpLines->lpData->_lpTable, lpTable);
    EXPECT_EQ(page->_lpLines->lpData->_lpCell, nullptr) << "no column yet";

    lpTable->AddColumn(-5, -1, ALIGN_RIGHT);
    const TableCell *lpFirst = lpTable->lpllCurCol->lpData;
    EXPECT_TRUE(lpFirst->_nWantWidth == 0 && lpFirst->_nWantHeight == 0 && lpFirst->_bAlign == ALIGN_RIGHT);
    const struct {
        const char *lpszCell;
        int nMinWidth, nMaxWidth;
    } aRows[] = {{"a", 50, 10}, {"aaaa bbbbbb<BR>cccc", 60, 150}, {"dddddddddd", 100, 150}};
    for (const auto &row : aRows) {
        lpTable->StartRow();
        EXPECT_EQ(lpTable->lpllCurCol->lpData, lpFirst);
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
