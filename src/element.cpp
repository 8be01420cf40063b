#include "element.h"

#include <algorithm>

#include "mainframe.h"
#include "page.h"

namespace {

constexpr int kKeyTab = 9;

// The first child from lpNode on, in the direction of lpStep, where Tab may stop; null if there is none.
List<Element> *FindTabStop(List<Element> *lpNode, List<Element> *List<Element>::*lpStep) {
    while (lpNode && !lpNode->lpData->_bTabStop)
        lpNode = lpNode->*lpStep;
    return lpNode;
}

}  // namespace

Element::Element(Element *lpOwner, int bTabStop) : _lpOwner(lpOwner), _bTabStop(bTabStop != 0) {}

Element::Element(Element *lpOwner, const Point *lpOrigin, const Size *lpSize)
    : _rc(lpOrigin, lpSize), _lpOwner(lpOwner), _bTabStop(0) {}

Element::~Element() {
    List_Destroy(_lpChildren);
}

void Element::Invalidate() {
    if (_lpOwner)
        static_cast<Page *>(_lpOwner)->AddDirtyRect(_rc.x, _rc.y, _rc.w, _rc.h);
    MarkDirty();
}

void Element::MarkDirty() {
    _bDirty = 1;
    if (_lpOwner)
        static_cast<Page *>(_lpOwner)->_index.MarkDirty(this);
}

int Element::HitTest(int x, int y) {
    return _rc.x <= x && x <= _rc.x + _rc.w && _rc.y <= y && y <= _rc.y + _rc.h;
}

int Element::Intersects(const Rect *lpRect) {
    const int nRight = std::min(lpRect->x + lpRect->w, _rc.x + _rc.w);
    const int nBottom = std::min(lpRect->y + lpRect->h, _rc.y + _rc.h);
    const int nLeft = std::max(lpRect->x, _rc.x);
    const int nTop = std::max(lpRect->y, _rc.y);
    return nRight > nLeft && nBottom > nTop;
}

void Element::AddExtent(Extent *lpExtent) const {
    lpExtent->Add(_rc);
}

void Element::AddChild(Element *lpChild) {
    List_Prepend(_lpChildren, lpChild);
}

void Element::Render(uint32_t *lpBuffer) {
    for (List<Element> *lpNode = _lpChildren; lpNode; lpNode = lpNode->lpNext)
        lpNode->lpData->Render(lpBuffer);
}

int Element::SetFocus(Element *lpChild) {
    int nResult = 0;
    if (_lpFocus) {
        if (_lpFocus->lpData == lpChild)
            return 0;
        nResult = _lpFocus->lpData->OnKillFocus();
    }
    for (List<Element> *lpNode = _lpChildren; lpNode; lpNode = lpNode->lpNext) {
        if (lpNode->lpData == lpChild) {
            _lpFocus = lpNode;
            nResult |= lpChild->OnSetFocus();
            break;
        }
    }
    return nResult;
}

int Element::OnSetFocus() {
    return 0;
}

int Element::OnKillFocus() {
    return 0;
}

int Element::OnMouseEnter() {
    return 0;
}

int Element::OnMouseLeave() {
    return 0;
}

bool Element::HoverHit(uint16_t x, uint16_t y) {
    return _lpHover && _lpHover->lpData->HitTest(x, y);
}

// Moves the focus to the child under the pointer.
void Element::FocusHover() {
    if (_lpFocus == _lpHover)
        return;
    if (_lpFocus)
        _lpFocus->lpData->OnKillFocus();
    _lpFocus = _lpHover;
    _lpFocus->lpData->OnSetFocus();
}

void Element::DropFocus() {
    if (_lpFocus)
        _lpFocus->lpData->OnKillFocus();
    _lpFocus = nullptr;
}

int Element::LeaveHover() {
    if (_lpHover)
        _lpHover->lpData->OnMouseLeave();
    _lpHover = nullptr;
    return 1;
}

// Mouse coordinates are translated modulo 65536 by OnMouseMove, OnLMouseDown and OnLMouseUp, and by these
// alone.
int Element::OnMouseMove(uint16_t x, uint16_t y) {
    x = static_cast<uint16_t>(x - _rc.x);
    y = static_cast<uint16_t>(y - _rc.y);
    if (!HoverHit(x, y)) {
        LeaveHover();
        EnterChildren(x, y);
    }
    if (_lpHover)
        _lpHover->lpData->OnMouseMove(x, y);
    return 0;
}

void Element::EnterChildren(uint16_t x, uint16_t y) {
    for (List<Element> *lpNode = _lpChildren; lpNode; lpNode = lpNode->lpNext)
        EnterIfHit(lpNode, x, y);
}

void Element::EnterIfHit(List<Element> *lpNode, uint16_t x, uint16_t y) {
    if (lpNode->lpData->HitTest(x, y)) {
        _lpHover = lpNode;
        lpNode->lpData->OnMouseEnter();
    }
}

int Element::OnLMouseDown(uint16_t x, uint16_t y) {
    x = static_cast<uint16_t>(x - _rc.x);
    y = static_cast<uint16_t>(y - _rc.y);
    if (HoverHit(x, y)) {
        FocusHover();
        return _lpHover->lpData->OnLMouseDown(x, y);
    }
    DropFocus();
    return 1;
}

int Element::OnRMouseDown(uint16_t x, uint16_t y) {
    if (HoverHit(x, y)) {
        FocusHover();
        return _lpHover->lpData->OnRMouseDown(x, y);
    }
    DropFocus();
    return 0;
}

int Element::OnLMouseUp(uint16_t x, uint16_t y) {
    x = static_cast<uint16_t>(x - _rc.x);
    y = static_cast<uint16_t>(y - _rc.y);
    return HoverHit(x, y) ? _lpHover->lpData->OnLMouseUp(x, y) : 0;
}

int Element::OnRMouseUp(uint16_t x, uint16_t y) {
    return HoverHit(x, y) ? _lpHover->lpData->OnRMouseUp(x, y) : 0;
}

int Element::OnLMouseDrag(uint16_t x, uint16_t y) {
    return HoverHit(x, y) ? _lpHover->lpData->OnLMouseDrag(x, y) : LeaveHover();
}

int Element::OnRMouseDrag(uint16_t x, uint16_t y) {
    return HoverHit(x, y) ? _lpHover->lpData->OnRMouseDrag(x, y) : LeaveHover();
}

int Element::OnChar(int c) {
    return _lpFocus ? _lpFocus->lpData->OnChar(c) : 0;
}

int Element::OnKeyUp(int key) {
    return _lpFocus ? _lpFocus->lpData->OnKeyUp(key) : 0;
}

int Element::OnKeyDown(int key) {
    if (key == kKeyTab)
        return MoveFocus();
    return _lpFocus ? _lpFocus->lpData->OnKeyDown(key) : 0;
}

// Tab: the focus runs through the tab stops in document order, backwards with Shift, and wraps at either end.
int Element::MoveFocus() {
    const bool bBackwards = g_lpMainFrame->_bShift != 0;
    const auto lpStep = bBackwards ? &List<Element>::lpNext : &List<Element>::lpPrev;
    int nResult = 0;
    if (_lpFocus) {
        nResult = _lpFocus->lpData->OnKillFocus();
        _lpFocus = FindTabStop(_lpFocus->*lpStep, lpStep);
    }
    if (!_lpFocus)
        _lpFocus = FindTabStop(bBackwards ? _lpChildren : List_Tail(_lpChildren), lpStep);
    if (_lpFocus)
        nResult |= _lpFocus->lpData->OnSetFocus();
    return nResult;
}

int Element::OnSysKeyDown(int key) {
    return _lpFocus ? _lpFocus->lpData->OnSysKeyDown(key) : 0;
}

int Element::OnSysKeyUp(int key) {
    return _lpFocus ? _lpFocus->lpData->OnSysKeyUp(key) : 0;
}

int Element::HasFocus(const Element *lpElement) const {
    return _lpOwner && _lpOwner->_lpFocus && _lpOwner->_lpFocus->lpData == lpElement;
}
