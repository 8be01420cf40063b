#include "fetch.h"

#include <algorithm>

#include "cache.h"
#include "frame.h"
#include "http.h"
#include "mainframe.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/resolver.h"
#include "resource.h"
#include "workers.h"

namespace {

// How long a waiter sleeps at a time while a test moves the clock by hand, which wakes nobody.
constexpr uint32_t kClockPoll = 10;

// Milliseconds that a waiter may sleep before its limit has passed.
uint32_t SleepFor(uint32_t dwElapsed) {
    const uint32_t nLeft = kFetchLimit + 1 - dwElapsed;
    return platform::TicksReplaced() ? std::min(nLeft, kClockPoll) : nLeft;
}

// Waits for the turn to fetch. False if the Resource has been ended here, by cancellation or for its limit.
bool WaitForTurn(Resource *lpResource, FetchTurn::Waiter *lpWaiter)
    TRY_ACQUIRE(true, g_lpMainFrame->_hFetchMutex) {
    for (;;) {
        if (lpResource->IsCancelled()) {
            lpResource->OnCancelled();
            return false;
        }
        const uint32_t dwElapsed = platform::Ticks() - lpResource->_dwStart;
        if (dwElapsed > kFetchLimit) {
            lpResource->OnTimeout();
            return false;
        }
        if (g_lpMainFrame->_hFetchMutex.WaitFor(lpWaiter, SleepFor(dwElapsed)))
            return true;
    }
}

void FetchLocalFile(Resource *lpResource) {
    if (lpResource->_lpszPath)
        platform::ReadWholeFile(lpResource->_lpszPath, &lpResource->_lpData, &lpResource->_dwLength);
}

// A picture without a query may come from the cache, and is stored there; a document never is.
void FetchFromHost(Resource *lpResource) REQUIRES(g_lpMainFrame->_hFetchMutex) {
    char szCachePath[kCacheNameSize] = "";
    if (!lpResource->IsDocument() && !lpResource->_lpszQuery) {
        MakeCachePath(szCachePath, lpResource->_lpszPath);
        if (CacheRead(szCachePath, lpResource)) {
            CacheTouch(szCachePath);
            return;
        }
    }
    Workers().Relieve();
    HttpFetch(lpResource, szCachePath);
}

// The limit counts from the start of a Resource: while its URL is taken apart it has no worker, and no limit. After
// that its worker is the one who asks, so that _lpWorker can be read without the registry's lock.
int IsGivenUp(void *lpContext) NO_THREAD_SAFETY_ANALYSIS {
    const Resource *lpResource = static_cast<const Resource *>(lpContext);
    return Workers().IsUnwanted(lpResource) ||
           (lpResource->_lpWorker && platform::Ticks() - lpResource->_dwStart > kFetchLimit);
}

}  // namespace

bool FetchTurn::Take(Waiter *lpWaiter, uint32_t nWait) {
    {
        const platform::MutexLock lock(_mutex);
        if (!_bTaken) {
            _bTaken = true;
            return true;
        }
        lpWaiter->bGranted = false;
        Append(lpWaiter);
    }
    lpWaiter->wake.WaitFor(nWait);
    const platform::MutexLock lock(_mutex);
    if (!lpWaiter->bGranted)
        Remove(lpWaiter);
    return lpWaiter->bGranted;
}

// The turn goes straight to the first who waits. The event is set under the lock: once that is free, the
// waiter may be gone.
void FetchTurn::HandOn() {
    const platform::MutexLock lock(_mutex);
    Waiter *lpNext = _lpFirst;
    _bTaken = lpNext != nullptr;
    if (lpNext) {
        Remove(lpNext);
        lpNext->bGranted = true;
        lpNext->wake.Set();
    }
}

int FetchTurn::CountWaiting() {
    const platform::MutexLock lock(_mutex);
    int nCount = 0;
    for (const Waiter *lpWaiter = _lpFirst; lpWaiter; lpWaiter = lpWaiter->lpNext)
        ++nCount;
    return nCount;
}

void FetchTurn::Append(Waiter *lpWaiter) {
    lpWaiter->lpNext = nullptr;
    lpWaiter->lpPrev = _lpLast;
    (_lpLast ? _lpLast->lpNext : _lpFirst) = lpWaiter;
    _lpLast = lpWaiter;
}

void FetchTurn::Remove(Waiter *lpWaiter) {
    (lpWaiter->lpPrev ? lpWaiter->lpPrev->lpNext : _lpFirst) = lpWaiter->lpNext;
    (lpWaiter->lpNext ? lpWaiter->lpNext->lpPrev : _lpLast) = lpWaiter->lpPrev;
}

void FetchWorker(Resource *lpResource, FetchTurn::Waiter *lpWaiter) {
    if (!WaitForTurn(lpResource, lpWaiter))
        return;
    if (lpResource->_lpszHost)
        FetchFromHost(lpResource);
    else
        FetchLocalFile(lpResource);
    g_lpMainFrame->_hFetchMutex.Release();
    lpResource->_lpFrame->OnResourceDone(lpResource);
}

uint32_t ResolveHost(const char *lpszHost, const Resource *lpResource) {
    return platform::ResolveAddress(lpszHost, IsGivenUp, const_cast<Resource *>(lpResource));
}
