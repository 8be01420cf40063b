#include "hyperlink.h"

#include <algorithm>

#include "fontmanager.h"
#include "frame.h"
#include "gfx.h"
#include "page.h"

namespace {

constexpr uint32_t kFocusColor = 0xAFAFAF;
constexpr int kKeyEnter = 13;

// Collects rectangles in document order into one for each line, and draws a dotted outline around each.
class FocusOutline {
  public:
    FocusOutline(const Page *lpPage, uint32_t *lpBuffer) : _lpPage(lpPage), _lpBuffer(lpBuffer) {}

    // Widths are added up; gaps between the rectangles of a line are not counted. One that begins higher, in a
    // later column of a table, counts as far as it reaches down.
    void Add(const Rect &rc) {
        if (_bStarted && rc.y <= _rc.y) {
            _rc.w = AddLengths(_rc.w, rc.w);
            _rc.h = std::max(_rc.h, rc.y + rc.h - _rc.y);
            return;
        }
        End();
        _rc = rc;
        _bStarted = true;
    }

    // The dots stand inside the rectangle, so that what wipes out the members wipes them out too.
    void End() {
        if (!_bStarted)
            return;
        const int w = std::min(_rc.w, _lpPage->_szVisible.w - _rc.x);
        const int h = std::min(_rc.h, _lpPage->_szVisible.h - _rc.y);
        gfx_DottedRect(kFocusColor, _rc.x, _rc.y, w - 1, h - 1, _lpBuffer);
    }

  private:
    const Page *_lpPage;
    uint32_t *_lpBuffer;
    Rect _rc;
    bool _bStarted = false;
};

}  // namespace

Hyperlink::Hyperlink(Page *lpPage, const char *lpszHREF) : Element(lpPage, 1), lpszURL(StrDup(lpszHREF)) {}

Hyperlink::~Hyperlink() {
    delete[] lpszURL;
    _lpChildren = nullptr;
}

void Hyperlink::AddChild(Element *lpMember) {
    List_Prepend(_lpChildren, lpMember, static_cast<Page *>(_lpOwner)->_arena);
}

void Hyperlink::Invalidate() {
    for (List<Element> *lpNode = _lpChildren; lpNode; lpNode = lpNode->lpNext)
        lpNode->lpData->Invalidate();
    MarkDirty();
}

int Hyperlink::HitTest(int, int) {
    return 0;
}

// A member that word wrap has cut counts by its pieces. The first member has been painted by the Page
// already; the others are painted again, under the outlines that follow.
void Hyperlink::Render(uint32_t *lpBuffer) {
    if (!HasFocus(this))
        return;
    FocusOutline outline(static_cast<Page *>(_lpOwner), lpBuffer);
    const List<Element> *lpFirst = List_Tail(_lpChildren);
    for (const List<Element> *lpNode = lpFirst; lpNode; lpNode = lpNode->lpPrev) {
        Element *lpMember = lpNode->lpData;
        if (lpNode != lpFirst)
            lpMember->Render(lpBuffer);
        const List<Element> *lpPiece = List_Tail(lpMember->_lpChildren);
        if (!lpPiece)
            outline.Add(lpMember->_rc);
        for (; lpPiece; lpPiece = lpPiece->lpPrev)
            outline.Add(lpPiece->lpData->_rc);
    }
    outline.End();
}

int Hyperlink::OnSetFocus() {
    Invalidate();
    return 1;
}

int Hyperlink::OnKillFocus() {
    Invalidate();
    return 1;
}

int Hyperlink::OnLMouseDown(uint16_t, uint16_t) {
    return _lpOwner->SetFocus(this);
}

int Hyperlink::OnLMouseUp(uint16_t, uint16_t) {
    if (!HasFocus(this))
        return 0;
    Follow();
    return 1;
}

int Hyperlink::OnKeyDown(int key) {
    if (key != kKeyEnter)
        return 0;
    Follow();
    return 1;
}

// The Page and this link stay alive: a new Page takes their place later, on a worker.
void Hyperlink::Follow() {
    static_cast<Page *>(_lpOwner)->_lpFrame->OpenURL(lpszURL, 1, METHOD_GET);
}

int OnTagA(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **, int *) {
    const char *lpszHREF = "";
    for (int i = 0; i < lpAttributes->_wCount; ++i) {
        if (lpAttributes->Is(i, "HREF"))
            lpszHREF = lpAttributes->_aszValues[i];
    }
    if (!lpTag->_wClosing && *lpszHREF) {
        lpPage->_lpCurHyperlink = new Hyperlink(lpPage, lpszHREF);
        lpPage->AddChild(lpPage->_lpCurHyperlink);
        lpPage->_lpFontManager->SetAnchor(1);
    } else {
        lpPage->_lpCurHyperlink = nullptr;
        lpPage->_lpFontManager->SetAnchor(0);
    }
    return 0;
}
