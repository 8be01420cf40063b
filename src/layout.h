// The flow of lines: what the parser leaves for the layout, and what the layout asks of the things that stand
// in lines.
//
// The parser leaves a list of source Lines, one for each stretch between two tags that break the line. A
// layout pass walks them in document order and gives every item its place; the Lines that it makes on the
// way, one for each line on the screen, live for that pass alone and serve the alignment at its end.
#pragma once

#include "arena.h"
#include "element.h"

class Page;
class PageItem;
class Table;
struct TableCell;

enum : uint8_t { ALIGN_LEFT = 0, ALIGN_CENTER = 1, ALIGN_RIGHT = 2 };

// Stands in an Arena of its Page, and so do the nodes of its items.
class Line : public InArena {
  public:
    // The height of a Line without items.
    uint8_t _bHeight = 0;
    uint8_t _bAlign = ALIGN_LEFT;
    // The table and the column that it stands in, or null. Not owned.
    Table *_lpTable = nullptr;
    TableCell *_lpCell = nullptr;
    // Added to by AddItem alone. The items are not owned: they are children of the Page, or pieces of one.
    List<PageItem> *_lpItems = nullptr;

    explicit Line(Arena &arena) : _arena(arena) {}
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    void AddItem(PageItem *lpItem) {
        List<PageItem> *lpNode = List_Prepend(_lpItems, lpItem, _arena);
        if (!lpNode->lpNext)
            _lpFirstItem = lpNode;
    }
    // The node of the oldest item, where the walk in document order begins; null if there is none.
    List<PageItem> *_lpFirstItem = nullptr;

  private:
    Arena &_arena;
};

// Everything that stands in a Line. Its _lpOwner is the Page.
class PageItem : public Element {
  public:
    PageItem(Page *lpPage, int bTabStop);

    // Adds itself, or its pieces, to the items of *lppLine and takes its place from the pen.
    //   lppLine        the flow Line being filled; replaced when the item begins a new one
    //   nLeft          x at which a line of this column begins
    //   lpnUsed        height of the lines of this source Line that are finished
    //   lpnLineHeight  height of the line in progress, that of its highest item; 0 after a break
    //   lpPen          where the next item goes
    //   lpnWidth       width of the flow: that of the column, or of the Page
    virtual void PlaceInLine(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
                             int *lpnWidth) = 0;

    Page *GetPage() const;
    // The item's size as far as it can be painted: cut at the right and bottom edges of the Page, never below
    // 0.
    Size ClippedSize() const;
};

// PlaceInLine of everything that is a box: pictures and form controls.
void PlaceBox(PageItem *lpItem, Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
              const int *lpnWidth);

// Begins a new source Line of lpPage, with the alignment, the table and the column that are open.
void NewLine(Page *lpPage);

// Begins a new flow Line of lpPage, with the alignment, the table and the column of lpLine.
Line *AddFlowLine(Page *lpPage, const Line *lpLine);
