#include "frame.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "frameset.h"
#include "htmlparser.h"
#include "mainframe.h"
#include "meta.h"
#include "page.h"
#include "platform/file.h"
#include "platform/resolver.h"

namespace {

constexpr int kKeyEscape = 0x1B;
constexpr int kKeyLeft = 0x25;
constexpr int kKeyRight = 0x27;

// The room of _szBaseHost, terminator included. A longer host is refused.
constexpr size_t kHostSize = 260;

constexpr char kFileScheme[] = "file://";
constexpr char kHttpScheme[] = "http://";

// A record may have been made while a tick was on its way; its start is then behind the tick's time by a
// moment.
constexpr uint32_t kTickSlack = 1000;

std::atomic<int> g_nFrames{0};

// Cuts a string at the first c. Returns what is behind, or null if there is no c.
char *CutAt(char *lpsz, char c) {
    char *lpCut = strchr(lpsz, c);
    if (!lpCut)
        return nullptr;
    *lpCut = '\0';
    return lpCut + 1;
}

// Whether splitting a URL means asking whether the text before its first '/' is a host.
bool NeedsLookup(const char *lpszURL) {
    return strchr(lpszURL, '/') && !StartsWith(lpszURL, kFileScheme) && !StartsWith(lpszURL, kHttpScheme) &&
           !platform::FileExists(lpszURL);
}

void SetParts(Resource *lpResource, const char *lpszHost, const char *lpszPath, const char *lpszQuery) {
    if (lpszHost && strlen(lpszHost) >= kHostSize)
        return;
    char *aszParts[] = {StrTryDup(lpszHost), StrTryDup(lpszPath), StrTryDup(lpszQuery)};
    // All or none, so that never a part is fetched instead of the whole.
    if ((lpszHost && !aszParts[0]) || (lpszPath && !aszParts[1]) || (lpszQuery && !aszParts[2])) {
        for (const char *lpszPart : aszParts)
            delete[] lpszPart;
        return;
    }
    lpResource->_lpszHost = aszParts[0];
    lpResource->_lpszPath = aszParts[1];
    lpResource->_lpszQuery = aszParts[2];
}

}  // namespace

Frame::Frame(Page *lpPage) : Element(nullptr, 0), _lpPage(lpPage) {
    ++g_nFrames;
}

// No worker refers to this Frame any more. Taking the mutexes once lets whoever held one last let go of it.
Frame::~Frame() {
    OnCancel();
    {
        const platform::MutexLock paint(_hPaintMutex);
        const platform::MutexLock page(_hPageMutex);
        const platform::MutexLock load(_hLoadMutex);
    }
    DropFrameset();
    List_DestroyArrays(_lpHistory);
    --g_nFrames;
}

int Frame::CountFrames() {
    return g_nFrames;
}

void Frame::SetParent(Frame *lpParent) {
    _lpParent = lpParent;
    _nDepth = lpParent->_nDepth + 1;
}

Size Frame::VisibleSize() const {
    if (!_lpParent)
        return _rc;
    const Size parent = _lpParent->VisibleSize();
    if (_rc.x < 0 || _rc.y < 0)
        return {};
    return {std::clamp(_rc.w, 0, std::max(parent.w - _rc.x, 0)),
            std::clamp(_rc.h, 0, std::max(parent.h - _rc.y, 0))};
}

// --- Painting
// ---------------------------------------------------------------------------------------------------------

void Frame::Render(uint32_t *lpBuffer) {
    const platform::MutexLock lock(_hPaintMutex);
    if (Page *lpPage = PageToPaint()) {
        if (lpPage->IsLayoutDue()) {
            const platform::MutexLock page(_hPageMutex);
            lpPage->EnsureLayout();
        }
        lpPage->Render(lpBuffer);
        return;
    }
    // Child Frames count from the origin of this one.
    lpBuffer += static_cast<ptrdiff_t>(g_lpMainFrame->_rc.w) * _rc.y + _rc.x;
    Element::Render(lpBuffer);
}

void Frame::Invalidate() {
    const platform::MutexLock lock(_hPaintMutex);
    if (Page *lpPage = PageToPaint()) {
        lpPage->AddDirtyRect(0, 0, 0, 0);
        return;
    }
    for (List<Element> *lpNode = _lpChildren; lpNode; lpNode = lpNode->lpNext)
        lpNode->lpData->Invalidate();
}

// --- Events
// -----------------------------------------------------------------------------------------------------------

// An event must meet the items where the host will see them. False if somebody delivers or paints at this moment.
// The paint mutex comes out of order, which the analysis minds, and may: nobody waits for it here.
bool Frame::LayOutForEvent() NO_THREAD_SAFETY_ANALYSIS {
    Page *lpPage = PageForEvents();
    if (!lpPage || !lpPage->IsLayoutDue())
        return true;
    if (!_hPaintMutex.try_lock())
        return false;
    const platform::MutexLock lock(_hPaintMutex, std::adopt_lock);
    lpPage->EnsureLayout();
    return true;
}

// Hands an event to the Page, or to the child Frames by way of Element. A Frame that is busy drops it. The
// host is told once the outermost Frame has let go of its mutex, since it may call back at once.
template <class Operation>
int Frame::Dispatch(Operation operation) {
    int &nDepth = g_lpMainFrame->_nEventDepth;
    {
        if (!_hPageMutex.try_lock())
            return 0;
        const platform::MutexLock lock(_hPageMutex, std::adopt_lock);
        if (!LayOutForEvent())
            return 0;
        ++nDepth;
        if (operation(PageForEvents()))
            g_lpMainFrame->_bNotify = true;
        --nDepth;
    }
    if (nDepth == 0 && g_lpMainFrame->_bNotify) {
        g_lpMainFrame->_bNotify = false;
        NotifyHost();
    }
    return 0;
}

int Frame::OnMouseMove(uint16_t x, uint16_t y) {
    return Dispatch(
        [=, this](Page *p) { return p ? p->OnMouseMove(x, y) : (Element::OnMouseMove(x, y), 0); });
}

int Frame::OnLMouseDown(uint16_t x, uint16_t y) {
    return Dispatch(
        [=, this](Page *p) { return p ? p->OnLMouseDown(x, y) : (Element::OnLMouseDown(x, y), 0); });
}

int Frame::OnLMouseUp(uint16_t x, uint16_t y) {
    return Dispatch([=, this](Page *p) { return p ? p->OnLMouseUp(x, y) : (Element::OnLMouseUp(x, y), 0); });
}

// Element does not translate right presses and drags, so that it is done here: both the Page and the child
// Frames expect them from the Frame's origin on.
int Frame::OnRMouseDown(uint16_t x, uint16_t y) {
    x = static_cast<uint16_t>(x - _rc.x);
    y = static_cast<uint16_t>(y - _rc.y);
    return Dispatch(
        [=, this](Page *p) { return p ? p->OnRMouseDown(x, y) : (Element::OnRMouseDown(x, y), 0); });
}

int Frame::OnRMouseUp(uint16_t x, uint16_t y) {
    x = static_cast<uint16_t>(x - _rc.x);
    y = static_cast<uint16_t>(y - _rc.y);
    return Dispatch([=, this](Page *p) { return p ? p->OnRMouseUp(x, y) : (Element::OnRMouseUp(x, y), 0); });
}

int Frame::OnLMouseDrag(uint16_t x, uint16_t y) {
    x = static_cast<uint16_t>(x - _rc.x);
    y = static_cast<uint16_t>(y - _rc.y);
    return Dispatch(
        [=, this](Page *p) { return p ? p->OnLMouseDrag(x, y) : (Element::OnLMouseDrag(x, y), 0); });
}

int Frame::OnRMouseDrag(uint16_t x, uint16_t y) {
    x = static_cast<uint16_t>(x - _rc.x);
    y = static_cast<uint16_t>(y - _rc.y);
    return Dispatch(
        [=, this](Page *p) { return p ? p->OnRMouseDrag(x, y) : (Element::OnRMouseDrag(x, y), 0); });
}

int Frame::OnChar(int c) {
    return Dispatch([=, this](Page *p) { return p ? p->OnChar(c) : (Element::OnChar(c), 0); });
}

int Frame::OnKeyUp(int key) {
    return Dispatch([=, this](Page *p) { return p ? p->OnKeyUp(key) : (Element::OnKeyUp(key), 0); });
}

int Frame::OnKeyDown(int key) {
    if (key == kKeyEscape) {
        OnCancel();
        return 0;
    }
    return Dispatch([=, this](Page *p) { return p ? p->OnKeyDown(key) : (Element::OnKeyDown(key), 0); });
}

// The Page never sees these keys; they go to the child Frame that has the focus.
int Frame::OnSysKeyDown(int key) {
    if (key == kKeyLeft || key == kKeyRight) {
        key == kKeyLeft ? Prev() : Next();
        return 1;
    }
    if (!_hPageMutex.try_lock())
        return 0;
    const platform::MutexLock lock(_hPageMutex, std::adopt_lock);
    return Element::OnSysKeyDown(key);
}

int Frame::OnSysKeyUp(int key) {
    if (!_hPageMutex.try_lock())
        return 0;
    const platform::MutexLock lock(_hPageMutex, std::adopt_lock);
    return Element::OnSysKeyUp(key);
}

// --- Navigation
// -------------------------------------------------------------------------------------------------------

void Frame::OpenURL(const char *lpszURL, int bHistory, uint16_t wMethod) {
    const platform::MutexLock lock(_hLoadMutex);
    OnCancel();
    if (bHistory)
        RememberURL(lpszURL);
    _lpNextPage = new Page(this, &_rc, &_rc, lpszURL);
    _lpNextPage->_wMethod = wMethod;
    Fetch(_lpNextPage);
}

// A visit after going back forgets the way forward. One that there is no memory for is left out.
void Frame::RememberURL(const char *lpszURL) {
    while (_lpHistoryCur && _lpHistory != _lpHistoryCur)
        delete[] List_TakeHead(_lpHistory);
    if (char *lpszCopy = StrTryDup(lpszURL))
        _lpHistoryCur = List_Prepend(_lpHistory, lpszCopy);
}

void Frame::Prev() {
    StepHistory(&List<char>::lpNext);
}

void Frame::Next() {
    StepHistory(&List<char>::lpPrev);
}

void Frame::StepHistory(List<char> *List<char>::*lpStep) {
    const platform::MutexLock lock(_hLoadMutex);
    if (!_lpHistoryCur || !(_lpHistoryCur->*lpStep))
        return;
    _lpHistoryCur = _lpHistoryCur->*lpStep;
    OpenURL(_lpHistoryCur->lpData, 0, METHOD_GET);
}

// The refresh goes second: a Page that has been cancelled cannot arm another one.
void Frame::OnCancel() {
    {
        const platform::MutexLock lock(_hLoadMutex);
        if (_lpNextPage)
            _lpNextPage->Cancel();
        _lpNextPage = nullptr;
    }
    const platform::MutexLock lock(_hRefreshMutex);
    _lpRefresh = nullptr;
}

void Frame::GetTitle(char *lpszTitle) {
    if (!_hPageMutex.try_lock())
        return;
    const platform::MutexLock lock(_hPageMutex, std::adopt_lock);
    const Page *lpPage = PageForEvents();
    if (lpPage && lpPage->_lpszTitle)
        snprintf(lpszTitle, kTitleSize, "%s", lpPage->_lpszTitle);
}

// The URL of the armed refresh if its time has come, else null. The record is taken before the load starts, so that
// a fast answer can arm the next one.
char *Frame::CopyDueURL(uint32_t dwTime, bool bTake) {
    const platform::MutexLock lock(_hRefreshMutex);
    if (!_lpRefresh)
        return nullptr;
    const uint32_t dwElapsed = dwTime - _lpRefresh->_dwStart;
    if (dwElapsed < _lpRefresh->_dwDelay || dwElapsed > UINT32_MAX - kTickSlack)
        return nullptr;
    char *lpszURL = StrDup(_lpRefresh->_lpszURL);
    if (bTake)
        _lpRefresh = nullptr;
    return lpszURL;
}

void Frame::PrepareRefresh(uint32_t dwTime, int (*lpfnGiveUp)(void *)) {
    char *lpszURL = CopyDueURL(dwTime, false);
    if (lpszURL && NeedsLookup(lpszURL)) {
        CutAt(lpszURL, '/');
        platform::ResolveAddress(lpszURL, lpfnGiveUp, nullptr);
    }
    delete[] lpszURL;
}

void Frame::OnTimer(uint32_t dwTime) {
    char *lpszURL = CopyDueURL(dwTime, true);
    if (lpszURL)
        OpenURL(lpszURL, 1, METHOD_GET);
    delete[] lpszURL;
}

bool Frame::ArmRefresh(Page *lpPage, MetaRefresh *lpRefresh) {
    const platform::MutexLock lock(_hRefreshMutex);
    if (_lpRefresh || lpPage->IsCancelled())
        return false;
    _lpRefresh = lpRefresh;
    return true;
}

void Frame::SetBaseHost(const char *lpszHost) {
    const platform::MutexLock lock(_hBaseHostMutex);
    snprintf(_szBaseHost, sizeof _szBaseHost, "%s", lpszHost);
}

void Frame::Fetch(Resource *lpResource) {
    if (!lpResource)
        return;
    if (char *lpszURL = StrTryDup(lpResource->_lpszURL)) {
        SplitURL(lpszURL, lpResource);
        delete[] lpszURL;
    }
    lpResource->Start();
}

// The forms of a URL, in the order of trying; the first that fits is taken. With none, nothing is set and the
// fetch fails. A relative URL resolves against the host alone; one with a '/' in it is taken for a host name
// first.
void Frame::SplitURL(char *lpszURL, Resource *lpResource) {
    if (StartsWith(lpszURL, kFileScheme)) {
        SetParts(lpResource, nullptr, lpszURL + strlen(kFileScheme), nullptr);
        return;
    }
    const bool bHttp = StartsWith(lpszURL, kHttpScheme);
    if (!bHttp && platform::FileExists(lpszURL)) {
        SetParts(lpResource, nullptr, lpszURL, nullptr);
        return;
    }
    char *lpszHost = bHttp ? lpszURL + strlen(kHttpScheme) : lpszURL;
    char *lpszPath = CutAt(lpszHost, '/');
    if (bHttp || lpszPath) {
        if (bHttp || ResolveHost(lpszHost, lpResource) != platform::kNoAddress)
            SetParts(lpResource, lpszHost, lpszPath, lpszPath ? CutAt(lpszPath, '?') : nullptr);
        return;
    }
    char szBaseHost[kHostSize];
    {
        const platform::MutexLock lock(_hBaseHostMutex);
        memcpy(szBaseHost, _szBaseHost, sizeof szBaseHost);
    }
    if (*szBaseHost)
        SetParts(lpResource, szBaseHost, lpszURL, CutAt(lpszURL, '?'));
}

// --- Arrival
// ----------------------------------------------------------------------------------------------------------

void Frame::OnResourceDone(Resource *lpResource) {
    {
        const platform::MutexLock paint(_hPaintMutex);
        const platform::MutexLock page(_hPageMutex);
        lpResource->OnData();
        if (_lpPage)
            _lpPage->OnArrival(lpResource);
    }
    Workers().CountEnd(lpResource);
    NotifyHost();
}

bool Frame::MayInstall(const Page *lpPage) {
    const platform::MutexLock lock(_hLoadMutex);
    return !lpPage->IsCancelled();
}

void Frame::SetPage(Page *lpPage) {
    RetireContent();
    if (!_lpFrameset) {
        _lpPage = lpPage;
        AddChild(lpPage);
        return;
    }
    Workers().Retire(lpPage);
    _lpFrameset->CreateFrames();
    DropFrameset();
}

void Frame::DropFrameset() {
    delete _lpFrameset;
    _lpFrameset = nullptr;
}

// Takes the Page, or the child Frames, out of sight and retires them.
void Frame::RetireContent() {
    _lpHover = nullptr;
    _lpFocus = nullptr;
    Page *lpPage = _lpPage;
    _lpPage = nullptr;
    while (_lpChildren) {
        Element *lpChild = List_TakeHead(_lpChildren);
        if (lpPage)
            Workers().Retire(lpPage);
        else
            Workers().Retire(static_cast<Frame *>(lpChild));
    }
}

void Frame::Forget(const Page *lpPage) {
    {
        const platform::MutexLock lock(_hLoadMutex);
        if (_lpNextPage == lpPage)
            _lpNextPage = nullptr;
    }
    const platform::MutexLock lock(_hRefreshMutex);
    for (const List<MetaTag> *lpNode = lpPage->_lpMetaTags; lpNode; lpNode = lpNode->lpNext) {
        if (lpNode->lpData == _lpRefresh)
            _lpRefresh = nullptr;
    }
}

void Frame::NotifyHost() {
    if (const MainFrame::Callback lpfnCallback = g_lpMainFrame->_alpfnCallback[kCallbackChanged])
        lpfnCallback(0);
}
