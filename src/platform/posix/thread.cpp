#include "platform/thread.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>

#include "platform/sanitizers.h"

namespace platform {

namespace {

// The deepest that a worker goes is the JPEG decoder, with its state and its strip of samples: 72 KB of the stack were
// touched then, and 28 KB by a page of text in new fonts. The rest is for other versions of the libraries and other font
// settings; reading those took fontconfig and FreeType 77 KB. Sanitizers make frames larger.
constexpr size_t kStackSize = size_t{kAddressSanitizer || kThreadSanitizer ? 1024 : 256} * 1024;

std::atomic<int> g_nFailures{0};

struct StartRecord {
    Thread::Body lpfnBody;
    void *lpArgument;
};

void *RunBody(void *lpStart) {
    const std::unique_ptr<StartRecord> lpOwned(static_cast<StartRecord *>(lpStart));
    const StartRecord start = *lpOwned;
    start.lpfnBody(start.lpArgument);
    return nullptr;
}

// A test's order to fail: true as long as it lasts.
bool TakeFailure() {
    int nLeft = g_nFailures;
    while (nLeft > 0 && !g_nFailures.compare_exchange_weak(nLeft, nLeft - 1)) {
    }
    return nLeft > 0;
}

}  // namespace

// The host's signals stay with the host's threads.
bool Thread::Start(Body lpfnBody, void *lpArgument) {
    static_assert(sizeof(pthread_t) <= sizeof _aHandle);
    if (TakeFailure())
        return false;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    pthread_attr_setstacksize(&attributes, kStackSize);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    auto lpStart = std::make_unique<StartRecord>(StartRecord{lpfnBody, lpArgument});
    pthread_t thread;
    const bool bStarted = pthread_create(&thread, &attributes, RunBody, lpStart.get()) == 0;
    if (bStarted) {
        static_cast<void>(lpStart.release());  // RunBody owns it now
        memcpy(_aHandle, &thread, sizeof thread);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return bStarted;
}

void Thread::Join() {
    pthread_t thread;
    memcpy(&thread, _aHandle, sizeof thread);
    pthread_join(thread, nullptr);
}

void FailThreadStarts(int nCount) {
    g_nFailures = nCount;
}

void Event::Set() {
    const MutexLock lock(_mutex);
    _bSet = true;
    _changed.notify_one();
}

bool Event::WaitFor(uint32_t nWait) {
    const MutexLock lock(_mutex);
    std::unique_lock native(_mutex.Native(), std::adopt_lock);
    const bool bSet = _changed.wait_for(native, std::chrono::milliseconds(nWait),
                                        [this]() REQUIRES(_mutex) { return _bSet; });
    native.release();
    _bSet = false;
    return bSet;
}

}  // namespace platform
