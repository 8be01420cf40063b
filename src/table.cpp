#include "table.h"

#include <algorithm>
#include <cassert>

#include "page.h"

Table::Table(Page *lpPage) : _lpPage(lpPage) {}

Table::~Table() {
    List_Destroy(_lpCols);
}

void Table::AddColumn(int nWidth, int nHeight, uint8_t bAlign) {
    TableCell *lpCell = new TableCell;
    lpCell->_nWantWidth = std::max(nWidth, 0);
    lpCell->_nWantHeight = std::max(nHeight, 0);
    lpCell->_bAlign = bAlign;
    lpllCurCol = List_Prepend(_lpCols, lpCell);
    if (!lpllCurCol->lpNext)
        _lpFirstCol = lpllCurCol;
}

void Table::StartRow() {
    lpllCurCol = _lpFirstCol;
}

void Table::EndCell() {
    assert(lpllCurCol);
    TableCell *lpCell = lpllCurCol->lpData;
    lpllCurCol = lpllCurCol->lpPrev;
    lpCell->_nMaxWidth = std::max(lpCell->_nMaxWidth, lpCell->_nRowWidth);
    lpCell->_nRowWidth = 0;
}

// Columns keep their widths from pass to pass, so that a pass with the same input changes nothing. They are
// visited from the last to the first.
void Table::DistributeWidths() {
    int32_t nTotal = 0;
    int nColumns = 0;
    for (List<TableCell> *lpNode = _lpCols; lpNode; lpNode = lpNode->lpNext, ++nColumns) {
        TableCell *lpCell = lpNode->lpData;
        lpCell->_nWidth = std::max(lpCell->_nWidth, lpCell->_nMinWidth);
        nTotal = AddLengths(nTotal, lpCell->_nWidth);
    }
    const int32_t nExcess = nTotal - _lpPage->_rc.w;
    if (nExcess > 0)
        nTotal -= Shrink(nExcess, nColumns);
    else if (nExcess < 0)
        nTotal += Grow(-nExcess, nColumns);
    _nWidth = nTotal;
}

// Every column gives an equal share of what is still too much, as far as its minimum lets it. Returns what
// was gained.
int32_t Table::Shrink(int32_t nExcess, int nColumns) {
    const int32_t nBefore = nExcess;
    for (List<TableCell> *lpNode = _lpCols; lpNode && nExcess > 0; lpNode = lpNode->lpNext, --nColumns) {
        TableCell *lpCell = lpNode->lpData;
        if (lpCell->_nWidth > lpCell->_nMinWidth) {
            const int32_t nCut = std::min(nExcess / nColumns, lpCell->_nWidth - lpCell->_nMinWidth);
            lpCell->_nWidth -= nCut;
            nExcess -= nCut;
        }
    }
    return nBefore - nExcess;
}

// Every column gets an equal share of the room that is left, up to its wish. NB: one that wants nothing
// leaves the count as it was, so that less than the whole room may be shared out. Returns what was given.
int32_t Table::Grow(int32_t nRoom, int nColumns) {
    const int32_t nBefore = nRoom;
    for (List<TableCell> *lpNode = _lpCols; lpNode && nRoom > 0; lpNode = lpNode->lpNext) {
        TableCell *lpCell = lpNode->lpData;
        const int32_t nGoal = lpCell->_nWantWidth ? lpCell->_nWantWidth : lpCell->_nMaxWidth;
        if (nGoal <= lpCell->_nWidth)
            continue;
        const int32_t nAdd = std::min(nRoom / nColumns, nGoal - lpCell->_nWidth);
        lpCell->_nWidth += nAdd;
        nRoom -= nAdd;
        --nColumns;
    }
    return nBefore - nRoom;
}
