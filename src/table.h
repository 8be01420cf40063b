// The model of a table: a set of column widths that all its rows share. There are no rows and no cells: a
// Line names its column, and the layout finds the rows in the sequence of Lines.
//
// The records are written by the parser and by DistributeWidths, with the Frame's mutexes held.
#pragma once

#include <cstdint>

#include "arena.h"
#include "htmlparser.h"

class Page;

// No column is ever narrower.
inline constexpr int kMinColumnWidth = 50;

class Table;

// One column, in the Arena of its Page. Widths and heights in pixels.
struct TableCell : InArena {
    int32_t _nMaxWidth = 0;  // the widest finished row: what the column would like to have
    int32_t _nMinWidth = kMinColumnWidth;
    int32_t _nMinHeight = kMinColumnWidth;
    int32_t _nWidth = 0;       // what it has now; survives from one layout to the next
    int32_t _nWantWidth = 0;   // 0 = none
    int32_t _nWantHeight = 0;  // 0 = none
    int32_t _nRowWidth = 0;    // widths of the items since the row began
    uint8_t _bAlign = 0;
    Table *_lpTable = nullptr;  // whose column it is
};

class Table {
  public:
    int32_t _nWidth = 0;
    Page *_lpPage;
    // Head = the last column. In the Arena, too.
    List<TableCell> *_lpCols = nullptr;
    // Where the parse stands; null before the first column and behind the last.
    List<TableCell> *lpllCurCol = nullptr;
    // ALIGN of the tag: where it stands, as if a CENTER or its like were around it; 0 leaves that to what is around it.
    uint8_t _bAlign = 0;

    explicit Table(Page *lpPage);
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    void AddColumn(int nWidth, int nHeight, uint8_t bAlign);
    void StartRow();
    // lpllCurCol must not be null.
    void EndCell();
    // Shares out the width of the Page among the columns. False if doing so again would change nothing.
    bool DistributeWidths();

    // A column can no longer be narrower. The next DistributeWidths sees to the rest.
    void RaiseMinimum(TableCell *lpCell, int32_t nWidth);
    // Widths are to be shared out anew: a column needs more than it had, or the last time has not come to an end.
    void Unsettle();

    // The node of the first column, or null: where each row starts.
    List<TableCell> *_lpFirstCol = nullptr;
    // Unless it is settled it is among the unsettled of its Page.
    bool _bSettled = true;
    Table *_lpNextUnsettled = nullptr;
    // The columns are too wide for the Page, each as narrow as it can be.
    bool _bTight = false;

  private:
    int32_t Shrink(int32_t nExcess, int nColumns);
    int32_t Grow(int32_t nRoom, int nColumns);
};

int OnTagTable(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
               int *lpRemaining);
int OnTagTr(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
            int *lpRemaining);
// TD, and TH, which is the same.
int OnTagTd(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
            int *lpRemaining);
