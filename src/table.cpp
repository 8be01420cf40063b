#include "table.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

#include "layout.h"
#include "page.h"
#include "types.h"

namespace {

uint8_t ParseAlign(const char *lpszValue, uint8_t bDefault) {
    if (StartsWith(lpszValue, "CENTER"))
        return ALIGN_CENTER;
    return StartsWith(lpszValue, "RIGHT") ? uint8_t{ALIGN_RIGHT} : bDefault;
}

// A WIDTH or HEIGHT in pixels, or in per cent of nWhole; nBefore if the value is none.
int ParseLength(const char *lpszValue, int nWhole, int nBefore) {
    const int nValue = ParseInt(lpszValue);
    if (nValue <= 0)
        return nBefore;
    const double dLength = strchr(lpszValue, '%') ? nWhole * (nValue / 100.0) : nValue;
    // The page may have a negative width.
    return static_cast<int>(std::clamp<double>(dLength, 0, kMaxAttributeLength));
}

// A cell that nobody has closed ends when the next one, or the next row, begins.
void EndOpenCell(Page *lpPage) {
    Table *lpTable = lpPage->_lpCurTable;
    if (lpTable->lpllCurCol && lpTable->lpllCurCol->lpData == lpPage->_lpLines->lpData->_lpCell)
        lpTable->EndCell();
}

}  // namespace

Table::Table(Page *lpPage) : _lpPage(lpPage) {
    Unsettle();
}

void Table::AddColumn(int nWidth, int nHeight, uint8_t bAlign) {
    TableCell *lpCell = new (_lpPage->_arena) TableCell;
    lpCell->_nWantWidth = std::max(nWidth, 0);
    lpCell->_nWantHeight = std::max(nHeight, 0);
    lpCell->_bAlign = bAlign;
    lpCell->_lpTable = this;
    lpllCurCol = List_Prepend(_lpCols, lpCell, _lpPage->_arena);
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

// Columns keep their widths from pass to pass. They are visited from the last to the first. NB: a pass that could not
// share out all the room, or not take back all that was too much, leaves the rest to the next one.
bool Table::DistributeWidths() {
    int32_t nTotal = 0;
    int32_t nLeast = 0;
    int nColumns = 0;
    bool bChanged = false;
    for (List<TableCell> *lpNode = _lpCols; lpNode; lpNode = lpNode->lpNext, ++nColumns) {
        TableCell *lpCell = lpNode->lpData;
        if (lpCell->_nWidth < lpCell->_nMinWidth) {
            lpCell->_nWidth = lpCell->_nMinWidth;
            bChanged = true;
        }
        nTotal = AddLengths(nTotal, lpCell->_nWidth);
        nLeast = AddLengths(nLeast, lpCell->_nMinWidth);
    }
    const int32_t nExcess = nTotal - _lpPage->_rc.w;
    int32_t nChange = 0;
    if (nExcess > 0)
        nChange = -Shrink(nExcess, nColumns);
    else if (nExcess < 0)
        nChange = Grow(-nExcess, nColumns);
    _nWidth = nTotal + nChange;
    _bTight = nExcess > 0 && _nWidth == nLeast && nLeast < kMaxLength;
    return !_bTight && (bChanged || nChange != 0);
}

// In a tight table sharing out would give this column what it needs and find nothing to take from another: that is
// done here, without a look at the others, of which there may be very many.
void Table::RaiseMinimum(TableCell *lpCell, int32_t nWidth) {
    if (nWidth <= lpCell->_nMinWidth)
        return;
    lpCell->_nMinWidth = nWidth;
    if (_bSettled && _bTight) {
        _nWidth = AddLengths(_nWidth, nWidth - lpCell->_nWidth);
        lpCell->_nWidth = nWidth;
    } else {
        Unsettle();
    }
}

void Table::Unsettle() {
    if (!_bSettled)
        return;
    _bSettled = false;
    _lpNextUnsettled = std::exchange(_lpPage->_lpUnsettled, this);
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

int OnTagTable(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **, int *) {
    if (!lpTag->_wClosing) {
        Table *lpTable = new Table(lpPage);
        for (int i = 0; i < lpAttributes->_wCount; ++i) {
            if (lpAttributes->Is(i, "ALIGN"))
                lpTable->_bAlign = ParseAlign(lpAttributes->_aszValues[i], ALIGN_LEFT);
        }
        lpPage->_lpCurTable = lpTable;
        List_Prepend(lpPage->_lpTables, lpTable);
    } else if (lpPage->_lpCurTable) {
        lpPage->_lpCurTable = nullptr;
        NewLine(lpPage);
    }
    return 0;
}

int OnTagTr(Page *lpPage, TagEntry *lpTag, TagAttributes *, const char **, int *) {
    if (lpTag->_wClosing || !lpPage->_lpCurTable)
        return 0;
    EndOpenCell(lpPage);
    lpPage->_lpCurTable->StartRow();
    return 0;
}

// NB: only the cell that creates a column sets its attributes.
int OnTagTd(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **, int *) {
    Table *lpTable = lpPage->_lpCurTable;
    if (!lpTable)
        return 0;
    if (lpTag->_wClosing) {
        if (lpTable->lpllCurCol)
            lpTable->EndCell();
        return 0;
    }
    int nWidth = 0;
    int nHeight = 0;
    uint8_t bAlign = ALIGN_LEFT;
    for (int i = 0; i < lpAttributes->_wCount; ++i) {
        const char *lpszValue = lpAttributes->_aszValues[i];
        if (lpAttributes->Is(i, "WIDTH"))
            nWidth = ParseLength(lpszValue, lpPage->_rc.w, nWidth);
        else if (lpAttributes->Is(i, "HEIGHT"))
            nHeight = ParseLength(lpszValue, lpPage->_rc.h, nHeight);
        else if (lpAttributes->Is(i, "ALIGN"))
            bAlign = ParseAlign(lpszValue, bAlign);
    }
    EndOpenCell(lpPage);
    if (!lpTable->lpllCurCol)
        lpTable->AddColumn(nWidth, nHeight, bAlign);
    NewLine(lpPage);
    return 0;
}
