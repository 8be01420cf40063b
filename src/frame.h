// Frame: shows one Page at a time, or child Frames side by side, and knows how to get the next Page. It keeps
// the history, starts loads, splits URLs, and stands between the world and the Page: every event and every
// repaint passes through it.
//
// Threads
//
//   host    makes all export calls: events, Render, OpenURL come from here.
//   timer   one thread, from tessel_Init to tessel_ShutDown. It runs OnTimer of the MainFrame under the export
//           lock, so that it never runs beside an export.
//   worker  one for each document that is being fetched, few for all the pictures (workers.h). It parses, decodes and lays
//           out, inside OnResourceDone.
//
// Locks, outermost first. A thread that holds one takes only locks further down.
//
//   export lock (tessel.cpp)    held through every export and every tick. Workers never take it.
//     _hPaintMutex of a Frame   the Page against painting. Held by Render, and by OnResourceDone throughout.
//       _hPageMutex             the Page's tree against events. Held by OnResourceDone; events only try it, and
//                               are dropped when it is busy.
//         _hLoadMutex           _lpNextPage, the history and its cursor, and the decision whether a loaded Page
//                               is installed or was cancelled before.
//           leaf locks          the dirty rectangle of a Page, the refresh record of a Frame, the base host of a
//                               Frame, the registry of workers, the turn to fetch, the resolver, the
//                               rasteriser. Nothing is taken while one of these is held, but for the mutex inside
//                               an Event that is being set.
//
//   The three mutexes of a Frame are recursive. A Frame's mutex of one kind comes before the mutex of that kind of
//   its child Frames; a worker holds the mutexes of one Frame only, and takes those of a child Frame only to retire
//   it. The turn to fetch (_hFetchMutex of MainFrame) is never held together with a mutex of a Frame. The host's
//   callback is called with none of these held but the export lock.
//
// How things end
//
//   A Page, with its Images, or a child Frame that has to go is retired (workers.h): cancelled, taken out of
//   sight, and destroyed at once if no running worker refers to it, else by the last worker that does, when
//   that holds no mutex. Replaced, cancelled, timed out, failed, frameset document: all go this one road.
#pragma once

#include "element.h"
#include "workers.h"

class Frameset;
class MetaRefresh;
class Page;
class Resource;

class Frame : public Element {
  public:
    // The armed META refresh, or null; the record belongs to a Page.
    MetaRefresh *_lpRefresh GUARDED_BY(_hRefreshMutex) = nullptr;
    // The Page on show, or null; also the one child. Written with paint and page mutex held, read with
    // either.
    Page *_lpPage GUARDED_BY(_hPaintMutex) GUARDED_BY(_hPageMutex);
    // The Page started last by OpenURL, or null; still set when that Page has become _lpPage.
    Page *_lpNextPage GUARDED_BY(_hLoadMutex) = nullptr;
    // What the document being parsed turns out to be, consumed by SetPage.
    Frameset *_lpFrameset GUARDED_BY(_hPaintMutex) GUARDED_BY(_hPageMutex) = nullptr;
    platform::RecursiveMutex _hPaintMutex;
    platform::RecursiveMutex _hPageMutex ACQUIRED_AFTER(_hPaintMutex);
    platform::RecursiveMutex _hLoadMutex ACQUIRED_AFTER(_hPageMutex);
    // Visited URLs, head = newest, owned; and the node of the one on show. lpNext of the cursor is older.
    List<char> *_lpHistory GUARDED_BY(_hLoadMutex) = nullptr;
    List<char> *_lpHistoryCur GUARDED_BY(_hLoadMutex) = nullptr;
    // The host that relative URLs resolve against; empty at first and after a local file.
    char _szBaseHost[260] GUARDED_BY(_hBaseHostMutex) = {};

    explicit Frame(Page *lpPage);
    ~Frame() override;

    void Invalidate() override;
    void Render(uint32_t *lpBuffer) override;
    int OnMouseMove(uint16_t x, uint16_t y) override;
    int OnLMouseDown(uint16_t x, uint16_t y) override;
    int OnRMouseDown(uint16_t x, uint16_t y) override;
    int OnLMouseUp(uint16_t x, uint16_t y) override;
    int OnRMouseUp(uint16_t x, uint16_t y) override;
    int OnLMouseDrag(uint16_t x, uint16_t y) override;
    int OnRMouseDrag(uint16_t x, uint16_t y) override;
    int OnChar(int c) override;
    int OnKeyUp(int key) override;
    int OnKeyDown(int key) override;
    int OnSysKeyDown(int key) override;
    int OnSysKeyUp(int key) override;

    // Starts a load; what was loading is cancelled. bHistory nonzero makes a new entry of the history.
    // Returns at once, but for a name lookup. On the host's thread, also inside an event, or the timer's.
    void OpenURL(const char *lpszURL, int bHistory, uint16_t wMethod);
    // Walk the history. Nothing happens at its ends.
    void Prev();
    void Next();
    // Stops what is loading, and disarms the refresh.
    void OnCancel();
    // Copies the title of the Page on show to a buffer of 256 bytes; leaves it alone if there is none or it
    // is busy.
    void GetTitle(char *lpszTitle);
    // Fires the armed refresh if its time has come. dwTime is the tick count.
    void OnTimer(uint32_t dwTime);
    // Looks up the host that a refresh whose time has come is about to ask for, so that OnTimer finds the answer
    // in memory. lpfnGiveUp as in platform/resolver.h. On the timer's thread, with nothing held.
    void PrepareRefresh(uint32_t dwTime, int (*lpfnGiveUp)(void *));
    // Splits the URL of a Resource into host, path and query and starts its worker; null does nothing.
    void Fetch(Resource *lpResource);
    // A fetch has ended: delivers it, lays the Page on show out again and tells the host. On a worker.
    void OnResourceDone(Resource *lpResource);
    // Installs a Page that has been parsed and may be shown, or what its frameset asks for. On a worker. The Page may
    // be gone on return.
    void SetPage(Page *lpPage) REQUIRES(_hPaintMutex, _hPageMutex);
    void NotifyHost() EXCLUDES(_hPaintMutex, _hPageMutex, _hLoadMutex);
    // Tells the compiler what is known of everything that a delivery calls: OnResourceDone holds both mutexes.
    void AssertDelivering() const ASSERT_CAPABILITY(_hPaintMutex, _hPageMutex) {}

    // Whether a Page that has been parsed may be installed: decides, under the load mutex, between it and a
    // cancellation. On a worker.
    bool MayInstall(const Page *lpPage);
    // Forgets what a document wanted its Frame divided into. On a worker.
    void DropFrameset() REQUIRES(_hPaintMutex, _hPageMutex);
    // Clears _lpNextPage and _lpRefresh where they refer to lpPage, which is about to go.
    void Forget(const Page *lpPage);
    // Arms a refresh that lpPage has asked for, unless one is armed or lpPage was cancelled; true if it did.
    bool ArmRefresh(Page *lpPage, MetaRefresh *lpRefresh);
    void SetBaseHost(const char *lpszHost);
    // Makes this Frame a child of lpParent, for good.
    void SetParent(Frame *lpParent);
    // The part of this Frame that lies in the buffer, which a frameset may have overstepped; counted from its
    // origin.
    Size VisibleSize() const;
    // How many Frames there are, retired ones included. On any thread.
    static int CountFrames();

    // Set before the Frame is published.
    Frame *_lpParent = nullptr;
    int _nDepth = 0;
    // Running workers whose Resource belongs to this Frame or to one below it; and whether the Frame is on
    // its way out.
    int _nWorkers GUARDED_BY(WorkerRegistry::_mutex) = 0;
    bool _bRetired GUARDED_BY(WorkerRegistry::_mutex) = false;

  private:
    template <class Operation>
    int Dispatch(Operation operation);
    // One of the two mutexes is enough to read what is written with both.
    Page *PageToPaint() const REQUIRES(_hPaintMutex) NO_THREAD_SAFETY_ANALYSIS { return _lpPage; }
    Page *PageForEvents() const REQUIRES(_hPageMutex) NO_THREAD_SAFETY_ANALYSIS { return _lpPage; }
    bool LayOutForEvent() REQUIRES(_hPageMutex);
    void RememberURL(const char *lpszURL) REQUIRES(_hLoadMutex);
    void StepHistory(List<char> *List<char>::*lpStep);
    char *CopyDueURL(uint32_t dwTime, bool bTake);
    void RetireContent() REQUIRES(_hPaintMutex, _hPageMutex);
    void SplitURL(char *lpszURL, Resource *lpResource);

    platform::Mutex _hRefreshMutex;
    platform::Mutex _hBaseHostMutex;
};
