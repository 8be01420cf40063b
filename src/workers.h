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
#include <mutex>

#include "fetch.h"
#include "tessel_host.h"

class Frame;
class Page;
class Resource;

// One entry: a Resource that was started, and the thread that serves it.
struct Worker {
    Resource *lpResource = nullptr;  // null once the worker has left it
    FetchTurn::Waiter waiter;
    platform::Thread thread;
    bool bCounted = false;  // in the running members of the fetch counts
    Worker *lpNext = nullptr;
    Worker *lpPrev = nullptr;
};

class WorkerRegistry {
  public:
    // Holds the registry's lock. Recursive, so that a Page can cancel itself and its Images at one stroke.
    using Lock = std::lock_guard<std::recursive_mutex>;
    std::recursive_mutex _mutex;

    // Begins anew: everything counts from 0. No worker may be left.
    void Open();
    // Cancels everything; what is started from now on is cancelled at once.
    void BeginClose();
    // The same, and returns when every worker has ended. On the host's thread, with no lock held but the export lock.
    void Close();

    // Starts a worker for lpResource. If the system gives no thread, the Resource waits for a worker that
    // ends, or for RunStranded.
    void Start(Resource *lpResource);
    // Takes care of Resources that wait for a thread while no worker runs that could take them over: tries
    // again, and ends them as failed fetches if there is still none. On the timer's thread.
    void RunStranded();
    // Wakes the worker of lpResource, if it waits for its turn. The lock is held.
    void Wake(Resource *lpResource);
    // Whether nobody wants lpResource any more: it is cancelled, its Frame is on its way out, or the library is. True
    // of a Resource that is not yet started, too. The lock is not held.
    bool IsUnwanted(const Resource *lpResource);
    // Counts lpResource as ended, before its host is told.
    void CountEnd(Resource *lpResource);

    // Cancels and, now or later, destroys. It must be out of sight, neither on show nor a child. With no leaf
    // lock held; on a worker also for the Page that it is delivering.
    void Retire(Page *lpPage);
    void Retire(Frame *lpFrame);

    void GetCounts(platform_FetchCounts *lpCounts);
    // Whether the calling thread is one of the library's own.
    static bool OnOwnThread();
    // For tests: entries, and retired objects that still exist.
    int CountWorkers();
    int CountRetired();

  private:
    static void Run(void *lpWorker);
    void Serve(Worker *lpWorker);
    bool Continue(Worker *lpWorker);
    bool Launch(Worker *lpWorker);
    Worker *TakeStranded();
    void Leave(Worker *lpWorker);
    void Reap();
    void Count(Resource *lpResource, int nStep);
    void CancelBelow(const Frame *lpFrame);

    Worker *_lpRunning = nullptr;   // with a thread, or being served by one
    Worker *_lpStranded = nullptr;  // waiting for a thread
    Worker *_lpEnded = nullptr;     // to be joined
    int _nRunning = 0;
    int _nRetired = 0;
    bool _bClosing = true;
    platform_FetchCounts _counts = {};
    // Set when a worker has ended. No condition variable: one for a recursive mutex has memory of its own, which nobody
    // would give back.
    platform::Event _ended;
};

WorkerRegistry &Workers();
