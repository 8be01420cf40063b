// The layout pass. Two steps for each source Line: Relayout lets every item take its place from a pen, collecting flow
// Lines on the way; AlignLines then moves the items of each flow Line to the right where an alignment asks for it.
//
// Table rows are recognised from the Lines alone. The column of the first Line of a row is remembered; the
// next Line of that column opens the next row, and Lines of other columns stand beside it, at the same top.
#include "layout.h"

#include <algorithm>
#include <utility>

#include "frame.h"
#include "page.h"
#include "table.h"

namespace {

// A picture that comes pays for the layout of so many items. What it takes to lay a page out again and again then grows
// with the number of its pictures, however many items it has.
constexpr int64_t kItemsPerArrival = 128;

// The running state of one pass.
struct Pass {
    int nRowTop = 0;
    int nRowHeight = 0;
    int nLeft = 0;
    int nUsed = 0;
    int nLineHeight = 0;
    int nWidth = 0;
    Point pen;
    TableCell *lpRowCell = nullptr;
    TableCell *lpLastCell = nullptr;

    void BeginLine(const Line *lpSource, int nPageWidth) {
        TableCell *lpCell = lpSource->_lpCell;
        if (!lpCell || !lpRowCell || lpCell == lpRowCell) {
            nLeft = 0;
            lpRowCell = lpCell;
            pen.y = AddLengths(pen.y, nRowHeight);
            nRowTop = pen.y;
            nRowHeight = 0;
            nLineHeight = 0;
        }
        if (lpCell != lpLastCell) {
            nLineHeight = 0;
            lpLastCell = lpCell;
        }
        nUsed = 0;
        pen.x = nLeft;
        pen.y = nRowTop;
        nWidth = lpCell ? lpCell->_nWidth : nPageWidth;
    }

    void EndLine(const Line *lpSource) {
        nUsed = AddLengths(nUsed, nLineHeight);
        nRowHeight = std::max(nRowHeight, nUsed);
        pen.y = nRowTop;
        if (lpSource->_lpCell)
            nLeft = AddLengths(nLeft, lpSource->_lpCell->_nWidth);
        if (!lpSource->_lpItems)
            pen.y = AddLengths(pen.y, lpSource->_bHeight);
    }
};

int SumWidths(const Line *lpLine) {
    int nSum = 0;
    for (const List<PageItem> *lpNode = lpLine->_lpItems; lpNode; lpNode = lpNode->lpNext)
        nSum = AddLengths(nSum, lpNode->lpData->_rc.w);
    return nSum;
}

// Moves the items of a flow Line by the room that is left, or half of it. A Line wider than its space stays.
void MoveItems(const Line *lpLine, int nRoom, uint8_t bAlign) {
    if (bAlign == ALIGN_CENTER)
        nRoom >>= 1;
    if (nRoom <= 0)
        return;
    for (List<PageItem> *lpNode = lpLine->_lpItems; lpNode; lpNode = lpNode->lpNext)
        lpNode->lpData->_rc.x = AddLengths(lpNode->lpData->_rc.x, nRoom);
}

}  // namespace

PageItem::PageItem(Page *lpPage, int bTabStop) : Element(lpPage, bTabStop) {}

Page *PageItem::GetPage() const {
    return static_cast<Page *>(_lpOwner);
}

Size PageItem::ClippedSize() const {
    const Size &visible = GetPage()->_szVisible;
    return {std::max(std::min(_rc.w, visible.w - _rc.x), 0), std::max(std::min(_rc.h, visible.h - _rc.y), 0)};
}

// NB: the pen is compared by its absolute x, not by its distance from nLeft: in a column other than the first
// a second box wraps sooner than the column's width asks for.
void PlaceBox(PageItem *lpItem, Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
              const int *lpnWidth) {
    if (AddLengths(lpPen->x, lpItem->_rc.w) >= *lpnWidth && lpPen->x != nLeft) {
        lpPen->x = nLeft;
        lpPen->y = AddLengths(lpPen->y, *lpnLineHeight);
        *lpnUsed = AddLengths(*lpnUsed, *lpnLineHeight);
        *lpnLineHeight = 0;
        *lppLine = AddFlowLine(lpItem->GetPage(), *lppLine);
    }
    lpItem->_rc.x = lpPen->x;
    lpItem->_rc.y = lpPen->y;
    (*lppLine)->AddItem(lpItem);
    *lpnLineHeight = std::max(*lpnLineHeight, lpItem->_rc.h);
    lpPen->x = AddLengths(lpPen->x, lpItem->_rc.w);
}

void NewLine(Page *lpPage) {
    Line *lpLine = new (lpPage->_arena) Line(lpPage->_arena);
    if (lpPage->_lpAlignStack)
        lpLine->_bAlign = static_cast<uint8_t>(*lpPage->_lpAlignStack->lpData);
    lpLine->_lpTable = lpPage->_lpCurTable;
    if (lpLine->_lpTable && lpLine->_lpTable->_bAlign)
        lpLine->_bAlign = lpLine->_lpTable->_bAlign;
    if (lpLine->_lpTable && lpLine->_lpTable->lpllCurCol)
        lpLine->_lpCell = lpLine->_lpTable->lpllCurCol->lpData;
    List_Prepend(lpPage->_lpLines, lpLine, lpPage->_arena);
}

Line *AddFlowLine(Page *lpPage, const Line *lpLine) {
    Line *lpFlow = new (lpPage->_flowArena) Line(lpPage->_flowArena);
    lpFlow->_bAlign = lpLine->_bAlign;
    lpFlow->_lpTable = lpLine->_lpTable;
    lpFlow->_lpCell = lpLine->_lpCell;
    List_Prepend(lpPage->_lpFlowLines, lpFlow, lpPage->_flowArena);
    return lpFlow;
}

void Page::Relayout() {
    ShareWidths();
    PlaceItems();
    AddDirtyRect(0, 0, 0, 0);
}

// Widths are shared out with every arrival, since what the columns get depends on how often that is done.
void Page::OnArrival(const Resource *lpResource) {
    if (lpResource->_lpHolder == this && !lpResource->IsDocument())
        --_nAwaited;
    ShareWidths();
    AddDirtyRect(0, 0, 0, 0);
    _bLayoutDue = true;
    _nCredit += kItemsPerArrival;
    if (_nAwaited <= 0 || _nCredit >= _nChildren)
        EnsureLayout();
}

void Page::EnsureLayout() {
    if (_bLayoutDue)
        PlaceItems();
}

void Page::ShareWidths() {
    Table *lpNext;
    for (Table *lpTable = std::exchange(_lpUnsettled, nullptr); lpTable; lpTable = lpNext) {
        lpNext = lpTable->_lpNextUnsettled;
        lpTable->_bSettled = true;
        if (lpTable->DistributeWidths())
            lpTable->Unsettle();
    }
}

void Page::PlaceItems() {
    _bLayoutDue = false;
    _nCredit = 0;
    // From here on the pieces of the last pass are gone; each Text forgets its own when it is placed.
    _pieceArena.Clear();
    _index.Begin();
    Pass pass;
    for (List<Line> *lpNode = _lpFirstLine; lpNode; lpNode = lpNode->lpPrev) {
        const Line *lpSource = lpNode->lpData;
        Line *lpFlow = AddFlowLine(this, lpSource);
        pass.BeginLine(lpSource, _rc.w);
        for (List<PageItem> *lpItem = lpSource->_lpFirstItem; lpItem; lpItem = lpItem->lpPrev) {
            if (pass.nLineHeight == 0)
                pass.nLineHeight = lpItem->lpData->_rc.h;
            lpItem->lpData->PlaceInLine(&lpFlow, pass.nLeft, &pass.nUsed, &pass.nLineHeight, &pass.pen,
                                        &pass.nWidth);
        }
        pass.EndLine(lpSource);
        // An alignment moves things sideways alone and knows the tables' widths by now: it need not wait for the end of
        // the pass, and the flow Lines of a long page need not exist all at once.
        AlignLines();
        _lpFlowLines = nullptr;
        _flowArena.Clear();
        for (const List<PageItem> *lpItem = lpSource->_lpFirstItem; lpItem; lpItem = lpItem->lpPrev)
            _index.Place(lpItem->lpData);
    }
    _index.End();
}

// A table is moved as a block: by the same amount on each of its Lines, whatever stands in them.
void Page::AlignLines() {
    for (List<Line> *lpNode = _lpFlowLines; lpNode; lpNode = lpNode->lpNext) {
        const Line *lpLine = lpNode->lpData;
        if (lpLine->_bAlign)
            MoveItems(lpLine, _rc.w - (lpLine->_lpTable ? lpLine->_lpTable->_nWidth : SumWidths(lpLine)),
                      lpLine->_bAlign);
        if (lpLine->_lpCell && lpLine->_lpCell->_bAlign)
            MoveItems(lpLine, lpLine->_lpCell->_nWidth - SumWidths(lpLine), lpLine->_lpCell->_bAlign);
    }
}

void Page::AddDirtyRect(int x, int y, int w, int h) {
    const platform::MutexLock lock(_hDirtyMutex);
    const Rect rc(x, y, w, h);
    if (rc.IsZero()) {
        _rcDirty = Rect(0, 0, _rc.w, _rc.h);
    } else if (_rcDirty.IsZero()) {
        _rcDirty = rc;
    } else {
        const int nRight = std::max(_rcDirty.x + _rcDirty.w, x + w);
        const int nBottom = std::max(_rcDirty.y + _rcDirty.h, y + h);
        _rcDirty.x = std::min(_rcDirty.x, x);
        _rcDirty.y = std::min(_rcDirty.y, y);
        _rcDirty.w = nRight - _rcDirty.x;
        _rcDirty.h = nBottom - _rcDirty.y;
    }
}
