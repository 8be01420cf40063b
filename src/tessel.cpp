// The exports: argument checks, the lock that keeps the timer out, and nothing else.
//
// The export lock is held through every export and every tick. A call that comes on a thread of the library
// itself, from inside the host's callback, would wait for a host that may be waiting for that thread, and is
// ignored. So is one from inside a service that the host has lent, since an event is under way then and holds what
// painting comes before.
#include "tessel.h"

#include <atomic>
#include <cassert>
#include <chrono>
#include <new>
#include <thread>

#include "cache.h"
#include "gfx.h"
#include "mainframe.h"
#include "platform/clock.h"
#include "platform/timer.h"
#include "resource.h"
#include "tessel_host.h"
#include "tessel_internal.h"
#include "workers.h"

namespace {

constexpr uint32_t kTimerPeriod = 100;
// A tick tries this often, so many milliseconds apart, to find no export under way. It is dropped then; the
// next one looks again.
constexpr int kTickTries = 10;
constexpr std::chrono::milliseconds kTickPause(5);

// The export lock.
constinit platform::RecursiveMutex g_mutex;

struct ExportState {
    platform::Timer timer;
    int nDepth GUARDED_BY(g_mutex) = 0;  // exports inside each other, by way of the callback
    // Between tessel_Init and tessel_ShutDown. Atomic: an unload clears it without the mutex, which somebody
    // may hold for good by then.
    std::atomic<bool> bRunning{false};
    bool bShutDown GUARDED_BY(g_mutex) = false;  // tessel_ShutDown was called from inside a callback
};

// Never destroyed: the timer's thread may still look at it while the process exits.
ExportState &State() {
    alignas(ExportState) static unsigned char s_aStorage[sizeof(ExportState)];
    static ExportState *s_lpState = new (s_aStorage) ExportState;
    return *s_lpState;
}

// One export call. Frame() is what it works on: null if the call is to do nothing, which is also so where the lock has
// not been taken.
class SCOPED_CAPABILITY ExportCall {
  public:
    enum Need { kLoaded, kRunning };

    explicit ExportCall(Need need = kRunning) ACQUIRE(g_mutex) {
        if (WorkerRegistry::OnOwnThread())
            return;
        ExportState &state = State();
        g_mutex.lock();
        ++state.nDepth;
        _bEntered = true;
        assert(g_lpMainFrame && !state.bShutDown);
        assert(need == kLoaded || state.bRunning);
        if (!g_lpMainFrame || state.bShutDown)
            return;
        if (need == kLoaded || (state.bRunning && !g_lpMainFrame->_nEventDepth))
            _lpFrame = g_lpMainFrame;
    }

    ~ExportCall() RELEASE() {
        if (!_bEntered)
            return;
        if (--State().nDepth == 0 && State().bShutDown)
            DestroyMainFrame();
        g_mutex.unlock();
    }

    ExportCall(const ExportCall &) = delete;
    ExportCall &operator=(const ExportCall &) = delete;

    MainFrame *Frame() const { return _lpFrame; }

  private:
    MainFrame *_lpFrame = nullptr;
    bool _bEntered = false;
};

int IsStopped(void *) {
    return !State().bRunning;
}

// False if an export is under way all the time, or the library is about to stop.
bool TryEnter() TRY_ACQUIRE(true, g_mutex) {
    for (int i = 0; !g_mutex.try_lock(); ++i) {
        if (i == kTickTries || !State().bRunning)
            return false;
        std::this_thread::sleep_for(kTickPause);
    }
    return true;
}

// Does a tick's work unless the host is busy.
template <class Work>
void BetweenCalls(Work work) {
    if (!TryEnter())
        return;
    const platform::MutexLock lock(g_mutex, std::adopt_lock);
    if (State().bRunning)
        work();
}

// A name service may take its time: neither the host nor those who wait for a thread are to wait for that.
void OnTick(uint32_t) {
    BetweenCalls([] { Workers().RunStranded(); });
    if (State().bRunning)
        g_lpMainFrame->PrepareRefresh(platform::Ticks(), IsStopped);
    BetweenCalls([] { g_lpMainFrame->OnTimer(platform::Ticks()); });
}

// Nobody fetches yet, but the turn is what guards the cache.
void PurgeCache(MainFrame *lpFrame) {
    FetchTurn::Waiter waiter;
    if (!lpFrame->_hFetchMutex.WaitFor(&waiter, 0))
        return;
    CachePurge();
    lpFrame->_hFetchMutex.Release();
}

using MouseEvent = int (Element::*)(uint16_t, uint16_t);
using KeyEvent = int (Element::*)(int);

int SendMouse(MouseEvent lpfnEvent, uint16_t x, uint16_t y) {
    const ExportCall call;
    return call.Frame() ? (call.Frame()->*lpfnEvent)(x, y) : 0;
}

int SendKey(KeyEvent lpfnEvent, int nKey) {
    const ExportCall call;
    return call.Frame() ? (call.Frame()->*lpfnEvent)(nKey) : 0;
}

}  // namespace

// An unload comes without the export lock, which somebody may hold for good by then.
void DestroyMainFrame() NO_THREAD_SAFETY_ANALYSIS {
    ExportState &state = State();
    state.bShutDown = false;
    state.bRunning = false;
    // First of all, so that a tick that is waiting for a name stops waiting.
    Workers().BeginClose();
    state.timer.Stop();
    if (!g_lpMainFrame)
        return;
    Workers().Close();
    delete g_lpMainFrame;
    g_lpMainFrame = nullptr;
}

extern "C" {

int tessel_Init(void *window, int width, int height) {
    const ExportCall call(ExportCall::kLoaded);
    MainFrame *lpFrame = call.Frame();
    if (!lpFrame || State().bRunning || !window || width <= 0 || height <= 0)
        return 0;
    // Without it no page would refresh itself, and nothing would end what finds no thread of its own.
    if (!State().timer.Start(kTimerPeriod, OnTick))
        return 0;
    lpFrame->hWnd = window;
    if (!lpFrame->CreateDefaultFonts()) {
        lpFrame->hWnd = nullptr;
        State().timer.Stop();
        return 0;
    }
    lpFrame->_rc.w = width;
    lpFrame->_rc.h = height;
    g_nBufferWidth = static_cast<uint32_t>(width);
    PurgeCache(lpFrame);
    State().bRunning = true;
    return 1;
}

void tessel_ShutDown(void) {
    const ExportCall call(ExportCall::kLoaded);
    if (!call.Frame())
        return;
    State().bRunning = false;
    State().bShutDown = true;
}

void tessel_SetSize(int, int) {}

void tessel_SetCallback(int index, tessel_Callback callback) {
    const ExportCall call(ExportCall::kLoaded);
    if (call.Frame() && index >= 0 && index < kCallbackSlots)
        call.Frame()->_alpfnCallback[index] = callback;
}

void tessel_OpenURL(const char *url) {
    const ExportCall call;
    assert(url);
    if (call.Frame() && url)
        call.Frame()->OpenURL(url, 1, METHOD_GET);
}

void tessel_GetTitle(char *title) {
    const ExportCall call;
    assert(title);
    if (call.Frame() && title)
        call.Frame()->GetTitle(title);
}

void tessel_Prev(void) {
    const ExportCall call;
    if (call.Frame())
        call.Frame()->Prev();
}

void tessel_Next(void) {
    const ExportCall call;
    if (call.Frame())
        call.Frame()->Next();
}

void tessel_OnCancel(void) {
    const ExportCall call;
    if (call.Frame())
        call.Frame()->OnCancel();
}

void tessel_Invalidate(void) {
    const ExportCall call;
    if (call.Frame())
        call.Frame()->Invalidate();
}

void tessel_Render(uint32_t *buffer) {
    const ExportCall call;
    assert(buffer);
    if (call.Frame() && buffer)
        call.Frame()->Render(buffer);
}

int tessel_OnMouseMove(uint16_t x, uint16_t y) {
    return SendMouse(&Element::OnMouseMove, x, y);
}

int tessel_OnLMouseDown(uint16_t x, uint16_t y) {
    return SendMouse(&Element::OnLMouseDown, x, y);
}

int tessel_OnRMouseDown(uint16_t x, uint16_t y) {
    return SendMouse(&Element::OnRMouseDown, x, y);
}

int tessel_OnLMouseUp(uint16_t x, uint16_t y) {
    return SendMouse(&Element::OnLMouseUp, x, y);
}

int tessel_OnRMouseUp(uint16_t x, uint16_t y) {
    return SendMouse(&Element::OnRMouseUp, x, y);
}

int tessel_OnLMouseDrag(uint16_t x, uint16_t y) {
    return SendMouse(&Element::OnLMouseDrag, x, y);
}

int tessel_OnRMouseDrag(uint16_t x, uint16_t y) {
    return SendMouse(&Element::OnRMouseDrag, x, y);
}

int tessel_OnChar(int c) {
    return SendKey(&Element::OnChar, c);
}

int tessel_OnKeyDown(int key) {
    return SendKey(&Element::OnKeyDown, key);
}

int tessel_OnKeyUp(int key) {
    return SendKey(&Element::OnKeyUp, key);
}

int tessel_OnSysKeyDown(int key) {
    return SendKey(&Element::OnSysKeyDown, key);
}

int tessel_OnSysKeyUp(int key) {
    return SendKey(&Element::OnSysKeyUp, key);
}

void platform_GetFetchCounts(platform_FetchCounts *counts) {
    if (counts)
        Workers().GetCounts(counts);
}

}  // extern "C"
