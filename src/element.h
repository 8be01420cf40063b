// Element, the root class of everything that occupies a rectangle on the screen: Frames, Pages, and what
// stands on Pages. It owns the tree and carries the default routing of events down that tree, the hover and
// focus bookkeeping, the rectangle tests and the default repaint.
//
// An Element has no lock of its own. Whoever calls it holds what frame.h prescribes: the page mutex for
// events, the paint mutex for Render.
//
// An event handler's result is nonzero when the picture has changed and the host is to be told.
#pragma once

#include <cstdint>

#include "list.h"
#include "types.h"

class Element {
  public:
    // Where it stands, in the coordinates of its parent: a child of a Page counts from that Page's origin.
    Rect _rc;
    // For things on a Page the Page, for a Page its Frame, for a Frame null. Not owned.
    Element *_lpOwner;
    // Nodes of _lpChildren, or null: the child under the pointer, and the child with the keyboard focus.
    List<Element> *_lpHover = nullptr;
    List<Element> *_lpFocus = nullptr;
    // Owned. Head = the newest child, so that the tail is the first thing in the document.
    List<Element> *_lpChildren = nullptr;
    // Nonzero: to be painted at the Page's next Render even outside the dirty rectangle. Set by MarkDirty.
    uint8_t _bDirty = 0;
    // Nonzero: Tab may stop here.
    uint8_t _bTabStop;
    // Where the ItemIndex of its Page has it.
    uint32_t _nGroup = UINT32_MAX;

    Element(Element *lpOwner, int bTabStop);
    Element(Element *lpOwner, const Point *lpOrigin, const Size *lpSize);
    Element(const Element &) = delete;
    Element &operator=(const Element &) = delete;

    virtual ~Element();
    virtual void Invalidate();
    // Both edges count as inside: an Element of width w answers to w + 1 columns.
    virtual int HitTest(int x, int y);
    // Rectangles that only touch do not intersect.
    virtual int Intersects(const Rect *lpRect);
    // Adds all places to lpExtent for which HitTest or Intersects may be nonzero.
    virtual void AddExtent(Extent *lpExtent) const;
    virtual void AddChild(Element *lpChild);
    virtual void Render(uint32_t *lpBuffer);
    virtual int SetFocus(Element *lpChild);
    virtual int OnSetFocus();
    virtual int OnKillFocus();
    virtual int OnMouseEnter();
    virtual int OnMouseLeave();
    virtual int OnMouseMove(uint16_t x, uint16_t y);
    virtual int OnLMouseDown(uint16_t x, uint16_t y);
    virtual int OnRMouseDown(uint16_t x, uint16_t y);
    virtual int OnLMouseUp(uint16_t x, uint16_t y);
    virtual int OnRMouseUp(uint16_t x, uint16_t y);
    virtual int OnLMouseDrag(uint16_t x, uint16_t y);
    virtual int OnRMouseDrag(uint16_t x, uint16_t y);
    virtual int OnChar(int c);
    virtual int OnKeyUp(int key);
    virtual int OnKeyDown(int key);
    virtual int OnSysKeyDown(int key);
    virtual int OnSysKeyUp(int key);

    // Nonzero when lpElement is the focused child of this Element's owner.
    int HasFocus(const Element *lpElement) const;

  protected:
    // For the things on a Page.
    void MarkDirty();
    // Every child that is hit is entered; of several that overlap, the oldest keeps the pointer.
    virtual void EnterChildren(uint16_t x, uint16_t y);
    void EnterIfHit(List<Element> *lpNode, uint16_t x, uint16_t y);

  private:
    bool HoverHit(uint16_t x, uint16_t y);
    void FocusHover();
    void DropFocus();
    int LeaveHover();
    int MoveFocus();
};
