#include "page.h"

#include <algorithm>

#include "fontmanager.h"
#include "form.h"
#include "gfx.h"
#include "layout.h"
#include "mainframe.h"
#include "meta.h"
#include "table.h"

Page::Page(Frame *lpFrame, const Point *lpOrigin, const Size *lpSize, const char *lpszURL)
    : Element(lpFrame, lpOrigin, lpSize),
      Resource(lpFrame, lpszURL, ACCEPT_TEXT | ACCEPT_HTML, METHOD_GET),
      _rcDirty(_rc),
      _lpFrame(lpFrame),
      _lpFontManager(new FontManager(this)),
      _szVisible(_rc) {
    _lpHolder = this;
    _lpFontManager->PushFontRecord(g_lpMainFrame->_lpFontNormal, 1);
    _lpFirstLine = List_Prepend(_lpLines, new (_arena) Line(_arena), _arena);
}

// Lines, tables and forms point at the children, which go last. The Lines are gone with their Arenas, which no longer
// are when the Element is destroyed.
Page::~Page() {
    List_Destroy(_lpMetaTags);
    List_FreeNodes(_lpFetches);
    List_Destroy(_lpTables);
    List_Destroy(_lpForms);
    List_Destroy(_lpAlignStack);
    delete[] _lpszTitle;
    delete _lpFontManager;
    List_DestroyData(_lpChildren);
}

void Page::AddChild(Element *lpChild) {
    _index.Add(List_Prepend(_lpChildren, lpChild, _arena));
    ++_nChildren;
}

void Page::Render(uint32_t *lpBuffer) {
    lpBuffer += static_cast<ptrdiff_t>(g_lpMainFrame->_rc.w) * _rc.y + _rc.x;
    Rect rcDirty;
    {
        const platform::MutexLock lock(_hDirtyMutex);
        rcDirty = _rcDirty;
        _rcDirty = Rect();
    }
    if (rcDirty.IsZero())
        return;
    const Size visible = _lpFrame->VisibleSize();
    _szVisible = {std::min(_rc.w, visible.w), std::min(_rc.h, visible.h)};
    // An item may have marked more than can be seen.
    const int w = std::min(rcDirty.w, _szVisible.w - rcDirty.x);
    const int h = std::min(rcDirty.h, _szVisible.h - rcDirty.y);
    gfx_FillRect(_dwBgColor, rcDirty.x, rcDirty.y, w, h, lpBuffer);
    RenderChildren(rcDirty, lpBuffer);
}

void Page::RenderChildren(const Rect &rcDirty, uint32_t *lpBuffer) {
    const auto render = [&](const List<Element> *lpNode) {
        Element *lpChild = lpNode->lpData;
        if (lpChild->_bDirty || lpChild->Intersects(&rcDirty)) {
            lpChild->Render(lpBuffer);
            lpChild->_bDirty = 0;
        }
    };
    if (_index.IsBuilt()) {
        _index.VisitDirty(rcDirty, render);
        return;
    }
    for (const List<Element> *lpNode = _lpChildren; lpNode; lpNode = lpNode->lpNext)
        render(lpNode);
}

void Page::EnterChildren(uint16_t x, uint16_t y) {
    if (_index.IsBuilt())
        _index.VisitAt(x, y, [&](List<Element> *lpNode) { EnterIfHit(lpNode, x, y); });
    else
        Element::EnterChildren(x, y);
}

// One stroke under the registry's lock: the list of fetches may be growing, and the Page may be destroyed by
// its worker as soon as that has seen the Page's own bit.
void Page::Cancel() {
    const WorkerRegistry::Lock lock(WorkerRegistry::_mutex);
    for (List<Resource> *lpNode = _lpFetches; lpNode; lpNode = lpNode->lpNext)
        lpNode->lpData->Cancel();
    Resource::Cancel();
}

void Page::AddFetch(Resource *lpResource) {
    const WorkerRegistry::Lock lock(WorkerRegistry::_mutex);
    List_Prepend(_lpFetches, lpResource);
    ++_nAwaited;
}

void Page::OnData() {
    _lpFrame->AssertDelivering();
    _lpFrame->SetBaseHost(_lpszHost ? _lpszHost : "");
    ParseHTML(reinterpret_cast<const char *>(_lpData), static_cast<int>(_dwLength));
    if (!_lpFrame->MayInstall(this)) {
        _lpFrame->DropFrameset();
        Workers().Retire(this);
        return;
    }
    List<Resource> *lpNode;
    {
        const WorkerRegistry::Lock lock(WorkerRegistry::_mutex);
        lpNode = _lpFetches;
    }
    // The list has stopped growing, so that it can be walked without its lock.
    for (; lpNode; lpNode = lpNode->lpNext)
        _lpFrame->Fetch(lpNode->lpData);
    _lpFrame->SetPage(this);
}

void Page::OnTimeout() {
    Workers().Retire(this);
}

void Page::OnCancelled() {
    Workers().Retire(this);
}
