// The fetch worker: what a thread does to load one Resource, whatever it is and wherever it comes from.
//
// A worker waits for its turn, fetches while it has it, gives it back, and delivers what came, or that
// nothing came, to the Resource's Frame. Only one worker fetches at any moment; parsing and decoding overlap
// with the next fetch where that has a thread of its own (workers.h).
#pragma once

#include <cstdint>

#include "platform/mutex.h"
#include "platform/thread.h"

class Resource;

// A worker's limit, counted from Resource::Start: for the wait for its turn and for the transfer.
inline constexpr uint32_t kFetchLimit = 30000;

// The turn to fetch: a mutex whose waiters can be called off. Turns are given in the order of asking.
class CAPABILITY("turn") FetchTurn {
  public:
    // One who waits. wake is also set by whoever wants the wait to end without a turn; what follows is for those who hold
    // the mutex of the turn.
    struct Waiter {
        platform::Event wake;
        bool bGranted = false;
        Waiter *lpNext = nullptr;
        Waiter *lpPrev = nullptr;
    };

    // Waits at most nWait milliseconds. True if the turn is the caller's now, to be given back with Release;
    // false when the time is over or somebody has set the waiter's event.
    bool WaitFor(Waiter *lpWaiter, uint32_t nWait) TRY_ACQUIRE(true) { return Take(lpWaiter, nWait); }
    void Release() RELEASE() { HandOn(); }
    int CountWaiting();

  private:
    bool Take(Waiter *lpWaiter, uint32_t nWait);
    void HandOn();
    void Append(Waiter *lpWaiter) REQUIRES(_mutex);
    void Remove(Waiter *lpWaiter) REQUIRES(_mutex);

    platform::Mutex _mutex;
    bool _bTaken GUARDED_BY(_mutex) = false;
    Waiter *_lpFirst GUARDED_BY(_mutex) = nullptr;
    Waiter *_lpLast GUARDED_BY(_mutex) = nullptr;
};

// The whole life of one fetch, on the calling thread. lpWaiter is what Resource::Cancel wakes.
void FetchWorker(Resource *lpResource, FetchTurn::Waiter *lpWaiter);

// The IPv4 address of a host in network order, or 0xFFFFFFFF. Gives up soon after lpResource has been
// cancelled. Safe from several threads.
uint32_t ResolveHost(const char *lpszHost, const Resource *lpResource);
