// The registry of running workers, and the objects that wait for them to end.
//
// Every started Resource has one entry here, from Resource::Start until its worker has nothing more to do
// with it. The entry counts for the Page that the Resource belongs to, for its Frame and for every Frame
// above. A Page or Frame that has to go is handed to Retire; it is destroyed once nothing counts for it any
// more, so that no worker ever meets a destroyed object, and nothing is destroyed twice.
//
// There is one registry, and it is never destroyed: threads may still look at it while a process exits. Its
// lock is a leaf lock (frame.h); it also guards a Page's list of fetches, so that a cancellation meets a
// whole list.
#pragma once

#include <cstdint>

#include "fetch.h"
#include "tessel_host.h"

class Frame;
class Page;
class Resource;
struct Worker;

class WorkerRegistry {
  public:
    // The registry's lock. Recursive, so that a Page can cancel itself and its Images at one stroke. Static, so that
    // what it guards elsewhere can name it.
    using Lock = platform::MutexLock<platform::RecursiveMutex>;
    static constinit inline platform::RecursiveMutex _mutex;

    // Begins anew: everything counts from 0. No worker may be left.
    void Open();
    // Cancels everything; what is started from now on is cancelled at once.
    void BeginClose();
    // The same, and returns when every worker has ended. On the host's thread, with no lock held but the export lock.
    void Close() EXCLUDES(_mutex);

    // Starts a worker for lpResource. If there are enough threads, or the system gives no further one, the Resource
    // waits for a worker that ends, for one that calls Relieve, or for RunStranded.
    void Start(Resource *lpResource);
    // A worker that has the turn is about to wait for a server: gives a thread to the Resource that has waited for one
    // longest, so that it comes next, unless another stands there already.
    void Relieve() EXCLUDES(_mutex);
    // Takes care of Resources that wait for a thread: ends those that are cancelled; gives one a thread of its own while
    // the others are stuck; and while no worker runs that could take them over, tries again, and ends them as failed
    // fetches if there is still none. On the timer's thread.
    void RunStranded() EXCLUDES(_mutex);
    // Wakes the worker of lpResource, if it waits for its turn.
    void Wake(Resource *lpResource) REQUIRES(_mutex);
    // Whether nobody wants lpResource any more: it is cancelled, its Frame is on its way out, or the library is. True
    // of a Resource that is not yet started, too.
    bool IsUnwanted(const Resource *lpResource) EXCLUDES(_mutex);
    // Counts lpResource as ended, before its host is told.
    void CountEnd(Resource *lpResource);

    // Cancels and, now or later, destroys. It must be out of sight, neither on show nor a child. With no leaf
    // lock held; on a worker also for the Page that it is delivering.
    void Retire(Page *lpPage) EXCLUDES(_mutex);
    void Retire(Frame *lpFrame) EXCLUDES(_mutex);

    void GetCounts(platform_FetchCounts *lpCounts);
    // Whether the calling thread is one of the library's own.
    static bool OnOwnThread();
    // For tests: threads that serve somebody, and retired objects that still exist.
    int CountWorkers();
    int CountRetired();

  private:
    static void Run(void *lpWorker);
    void Serve(Worker *lpWorker);
    bool Continue(Worker *lpWorker);
    bool Launch(Worker *lpWorker) REQUIRES(_mutex);
    void Await(Worker *lpWorker) REQUIRES(_mutex);
    void StopWaiting(Worker *lpWorker) REQUIRES(_mutex);
    Worker *TakeWaiting() REQUIRES(_mutex);
    void EndCancelled(Worker *lpWorker) EXCLUDES(_mutex);
    void EndCancelled() EXCLUDES(_mutex);
    bool IsStuck() EXCLUDES(_mutex);
    void Leave(Worker *lpWorker) EXCLUDES(_mutex);
    void Reap() EXCLUDES(_mutex);
    void Count(Resource *lpResource, int nStep) REQUIRES(_mutex);
    void CancelBelow(const Frame *lpFrame) REQUIRES(_mutex);

    Worker *_lpRunning GUARDED_BY(_mutex) = nullptr;  // with a thread, or being served by one
    Worker *_lpWaiting GUARDED_BY(_mutex) = nullptr;  // for a thread; the one that came first at the end
    Worker *_lpLongest GUARDED_BY(_mutex) = nullptr;  // that end
    Worker *_lpEnded GUARDED_BY(_mutex) = nullptr;    // to be joined
    int _nRunning GUARDED_BY(_mutex) = 0;
    int _nRetired GUARDED_BY(_mutex) = 0;
    bool _bClosing GUARDED_BY(_mutex) = true;
    platform_FetchCounts _counts GUARDED_BY(_mutex) = {};
    // Set when a worker has ended. No condition variable: one for a recursive mutex has memory of its own, which nobody
    // would give back.
    platform::Event _ended;
};

// One entry: a Resource that was started, and the thread that serves it.
struct Worker {
    Resource *lpResource = nullptr;  // null once the worker has left it
    FetchTurn::Waiter waiter;
    platform::Thread thread;
    // The timer has seen it wait for a thread, as the first of all.
    bool bSeen GUARDED_BY(WorkerRegistry::_mutex) = false;
    // In the running members of the fetch counts.
    bool bCounted GUARDED_BY(WorkerRegistry::_mutex) = false;
    Worker *lpNext = nullptr;
    Worker *lpPrev = nullptr;
};

WorkerRegistry &Workers();
