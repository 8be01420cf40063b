#include "workers.h"

#include <new>
#include <utility>

#include "frame.h"
#include "frameset.h"
#include "mainframe.h"
#include "page.h"

namespace {

// How long Close sleeps at a time, in milliseconds, unless a worker ends.
constexpr uint32_t kCloseLook = 100;

// Threads at a time. Only one of them fetches, and those of one Frame deliver one after the other: more would only wait,
// with what they have fetched in hand.
constexpr int kMaxThreads = 16;

// How many threads must run before lpResource waits for one of them. A picture from the disk or from the cache takes less
// time than passing the turn to fetch on to another thread, so that one thread does best with hundreds of those. One from
// a host is fetched while its page is still being delivered, on the page's thread; where the server must be waited for,
// Relieve has the next one take its place behind it.
int EnoughThreadsFor(const Resource *lpResource) {
    if (lpResource->IsDocument())
        return kMaxThreads;
    return lpResource->_lpszHost ? 2 : 1;
}

// Set for the life of each thread that the library has started.
thread_local bool t_bOwnThread = false;

template <class T>
void Link(T *&lpFirst, T *lpEntry) {
    lpEntry->lpPrev = nullptr;
    lpEntry->lpNext = lpFirst;
    if (lpFirst)
        lpFirst->lpPrev = lpEntry;
    lpFirst = lpEntry;
}

template <class T>
void Unlink(T *&lpFirst, T *lpEntry) {
    (lpEntry->lpPrev ? lpEntry->lpPrev->lpNext : lpFirst) = lpEntry->lpNext;
    if (lpEntry->lpNext)
        lpEntry->lpNext->lpPrev = lpEntry->lpPrev;
}

// Whether lpFrame is lpAncestor or stands below it.
bool IsWithin(const Frame *lpFrame, const Frame *lpAncestor) {
    while (lpFrame && lpFrame != lpAncestor)
        lpFrame = lpFrame->_lpParent;
    return lpFrame != nullptr;
}

bool IsRetired(const Frame *lpFrame) REQUIRES(WorkerRegistry::_mutex) {
    while (lpFrame && !lpFrame->_bRetired)
        lpFrame = lpFrame->_lpParent;
    return lpFrame != nullptr;
}

}  // namespace

WorkerRegistry &Workers() {
    // Never destroyed: threads may still look at it while the process exits.
    alignas(WorkerRegistry) static unsigned char s_aStorage[sizeof(WorkerRegistry)];
    static WorkerRegistry *s_lpRegistry = new (s_aStorage) WorkerRegistry;
    return *s_lpRegistry;
}

bool WorkerRegistry::OnOwnThread() {
    return t_bOwnThread;
}

void WorkerRegistry::Open() {
    Lock lock(_mutex);
    _bClosing = false;
    _counts = {};
}

void WorkerRegistry::BeginClose() {
    Lock lock(_mutex);
    _bClosing = true;
    CancelBelow(nullptr);
}

void WorkerRegistry::Close() {
    BeginClose();
    Lock lock(_mutex);
    // Running workers take over those that wait for a thread; without any they end here.
    while (_lpLongest && !_nRunning) {
        Worker *lpWorker = TakeWaiting();
        lock.unlock();
        EndCancelled(lpWorker);
        lock.lock();
    }
    while (_nRunning) {
        lock.unlock();
        _ended.WaitFor(kCloseLook);
        lock.lock();
    }
    lock.unlock();
    Reap();
}

void WorkerRegistry::Start(Resource *lpResource) {
    Worker *lpWorker = new Worker{};
    lpWorker->lpResource = lpResource;
    {
        const Lock lock(_mutex);
        if (_bClosing || IsRetired(lpResource->_lpFrame))
            lpResource->_wState |= RS_CANCELLED;
        Count(lpResource, 1);
        lpWorker->bCounted = true;
        ++(lpResource->IsDocument() ? _counts.pages_running : _counts.images_running);
        lpResource->_lpWorker = lpWorker;
        if (_nRunning >= EnoughThreadsFor(lpResource) || !Launch(lpWorker))
            Await(lpWorker);
    }
    Reap();
}

// Under the lock, so that the new thread does not find its entry unlinked.
bool WorkerRegistry::Launch(Worker *lpWorker) {
    if (_nRunning >= kMaxThreads || !lpWorker->thread.Start(Run, lpWorker))
        return false;
    Link(_lpRunning, lpWorker);
    ++_nRunning;
    return true;
}

void WorkerRegistry::Relieve() {
    if (g_lpMainFrame->_hFetchMutex.CountWaiting())
        return;
    const Lock lock(_mutex);
    if (_nRunning >= kMaxThreads || !_lpLongest)
        return;
    // Without a further thread the others go first, once.
    Worker *lpWorker = TakeWaiting();
    if (!Launch(lpWorker))
        Await(lpWorker);
}

void WorkerRegistry::Run(void *lpWorker) {
    t_bOwnThread = true;
    Workers().Serve(static_cast<Worker *>(lpWorker));
}

void WorkerRegistry::Serve(Worker *lpWorker) {
    do {
        FetchWorker(lpWorker->lpResource, &lpWorker->waiter);
        Leave(lpWorker);
    } while (Continue(lpWorker));
}

// Takes over a Resource that waits for a thread, or ends the worker. The two are one step, so that nobody is
// left waiting for a worker that has just looked.
bool WorkerRegistry::Continue(Worker *lpWorker) {
    Lock lock(_mutex);
    if (_lpLongest) {
        Worker *lpWaiting = TakeWaiting();
        lpWorker->lpResource = lpWaiting->lpResource;
        lpWorker->bCounted = lpWaiting->bCounted;
        lpWorker->lpResource->_lpWorker = lpWorker;
        delete lpWaiting;
        return true;
    }
    Unlink(_lpRunning, lpWorker);
    --_nRunning;
    Link(_lpEnded, lpWorker);
    _ended.Set();
    return false;
}

void WorkerRegistry::Await(Worker *lpWorker) {
    Link(_lpWaiting, lpWorker);
    if (!_lpLongest)
        _lpLongest = lpWorker;
}

void WorkerRegistry::StopWaiting(Worker *lpWorker) {
    if (lpWorker == _lpLongest)
        _lpLongest = lpWorker->lpPrev;
    Unlink(_lpWaiting, lpWorker);
}

// The one that has waited longest.
Worker *WorkerRegistry::TakeWaiting() {
    Worker *lpWorker = _lpLongest;
    StopWaiting(lpWorker);
    return lpWorker;
}

void WorkerRegistry::EndCancelled(Worker *lpWorker) {
    lpWorker->lpResource->OnCancelled();
    Leave(lpWorker);
    delete lpWorker;
}

// The threads may all be taken for as long as a fetch may last.
void WorkerRegistry::EndCancelled() {
    Worker *lpCancelled = nullptr;
    {
        const Lock lock(_mutex);
        Worker *lpNext;
        for (Worker *lpWorker = _lpWaiting; lpWorker; lpWorker = lpNext) {
            lpNext = lpWorker->lpNext;
            if (lpWorker->lpResource->IsCancelled()) {
                StopWaiting(lpWorker);
                Link(lpCancelled, lpWorker);
            }
        }
    }
    while (lpCancelled) {
        Worker *lpNext = lpCancelled->lpNext;
        EndCancelled(lpCancelled);
        lpCancelled = lpNext;
    }
}

// Whether the first of those that wait for a thread has been that at the last look already.
bool WorkerRegistry::IsStuck() {
    const Lock lock(_mutex);
    return _lpLongest && std::exchange(_lpLongest->bSeen, true);
}

void WorkerRegistry::RunStranded() {
    t_bOwnThread = true;
    EndCancelled();
    if (IsStuck())
        Relieve();
    Lock lock(_mutex);
    while (_lpLongest && !_nRunning) {
        Worker *lpWorker = TakeWaiting();
        if (Launch(lpWorker))
            return;
        lock.unlock();
        Resource *lpResource = lpWorker->lpResource;
        if (lpResource->IsCancelled())
            lpResource->OnCancelled();
        else
            lpResource->_lpFrame->OnResourceDone(lpResource);
        Leave(lpWorker);
        delete lpWorker;
        lock.lock();
    }
    lock.unlock();
    Reap();
}

void WorkerRegistry::Wake(Resource *lpResource) {
    if (lpResource->_lpWorker)
        lpResource->_lpWorker->waiter.wake.Set();
}

bool WorkerRegistry::IsUnwanted(const Resource *lpResource) {
    Lock lock(_mutex);
    return lpResource->IsCancelled() || _bClosing || IsRetired(lpResource->_lpFrame);
}

// Adds nStep to what counts for the Page and the Frames of lpResource.
void WorkerRegistry::Count(Resource *lpResource, int nStep) {
    lpResource->_lpHolder->_nWorkers += nStep;
    for (Frame *lpFrame = lpResource->_lpFrame; lpFrame; lpFrame = lpFrame->_lpParent)
        lpFrame->_nWorkers += nStep;
}

void WorkerRegistry::CountEnd(Resource *lpResource) {
    Lock lock(_mutex);
    Worker *lpWorker = lpResource->_lpWorker;
    if (!lpWorker || !lpWorker->bCounted)
        return;
    lpWorker->bCounted = false;
    const bool bLoaded = lpResource->_lpData != nullptr;
    if (lpResource->IsDocument()) {
        --_counts.pages_running;
        ++(bLoaded ? _counts.pages_loaded : _counts.pages_failed);
    } else {
        --_counts.images_running;
        ++(bLoaded ? _counts.images_loaded : _counts.images_failed);
    }
}

// The worker has nothing more to do with its Resource. Destroys what was retired and waited for that: the
// Page first, then its Frame, then Frames above.
void WorkerRegistry::Leave(Worker *lpWorker) {
    Resource *lpResource = lpWorker->lpResource;
    Page *lpDoomedPage = nullptr;
    Frame *alpDoomed[kMaxFrameDepth + 1] = {};
    int nDoomed = 0;
    {
        const Lock lock(_mutex);
        CountEnd(lpResource);
        Count(lpResource, -1);
        lpWorker->lpResource = nullptr;
        lpResource->_lpWorker = nullptr;
        Page *lpPage = lpResource->_lpHolder;
        if (lpPage->_bRetired && !lpPage->_nWorkers)
            lpDoomedPage = lpPage;
        for (Frame *lpFrame = lpResource->_lpFrame; lpFrame; lpFrame = lpFrame->_lpParent) {
            if (lpFrame->_bRetired && !lpFrame->_nWorkers)
                alpDoomed[nDoomed++] = lpFrame;
        }
        _nRetired -= nDoomed + (lpDoomedPage != nullptr);
    }
    delete lpDoomedPage;
    for (int i = 0; i < nDoomed; ++i)
        delete alpDoomed[i];
}

// Joins the threads that have ended. Not under the lock: a thread that has just ended may still be letting go
// of it.
void WorkerRegistry::Reap() {
    Worker *lpEnded;
    {
        const Lock lock(_mutex);
        lpEnded = _lpEnded;
        _lpEnded = nullptr;
    }
    while (lpEnded) {
        Worker *lpNext = lpEnded->lpNext;
        lpEnded->thread.Join();
        delete lpEnded;
        lpEnded = lpNext;
    }
}

// Cancels everything that is started for lpFrame or below it; null means everything.
void WorkerRegistry::CancelBelow(const Frame *lpFrame) {
    for (Worker *lpFirst : {_lpRunning, _lpWaiting}) {
        for (Worker *lpWorker = lpFirst; lpWorker; lpWorker = lpWorker->lpNext) {
            Resource *lpResource = lpWorker->lpResource;
            if (lpResource && (!lpFrame || IsWithin(lpResource->_lpFrame, lpFrame)))
                lpResource->Cancel();
        }
    }
}

void WorkerRegistry::Retire(Page *lpPage) {
    lpPage->_lpFrame->Forget(lpPage);
    {
        const Lock lock(_mutex);
        lpPage->Cancel();
        lpPage->_bRetired = true;
        if (lpPage->_nWorkers) {
            ++_nRetired;
            return;
        }
    }
    delete lpPage;
}

void WorkerRegistry::Retire(Frame *lpFrame) {
    {
        const Lock lock(_mutex);
        lpFrame->_bRetired = true;
        CancelBelow(lpFrame);
        if (lpFrame->_nWorkers) {
            ++_nRetired;
            return;
        }
    }
    delete lpFrame;
}

void WorkerRegistry::GetCounts(platform_FetchCounts *lpCounts) {
    Lock lock(_mutex);
    *lpCounts = _counts;
}

int WorkerRegistry::CountWorkers() {
    Lock lock(_mutex);
    return _nRunning;
}

int WorkerRegistry::CountRetired() {
    Lock lock(_mutex);
    return _nRetired;
}
