// Threads with small stacks, and the one way in which a thread is woken.
#pragma once

#include <condition_variable>
#include <cstdint>

#include "platform/mutex.h"

namespace platform {

// A thread that is started once and joined once, by Join, before the object goes.
class Thread {
  public:
    using Body = void (*)(void *lpArgument);

    Thread() = default;
    Thread(const Thread &) = delete;
    Thread &operator=(const Thread &) = delete;

    // False if the system gives no further thread; the object can then be started again.
    bool Start(Body lpfnBody, void *lpArgument);

    // Waits for the end of the body. Once it has returned, the thread executes no code of this library any
    // more.
    void Join();

  private:
    // The system's handle, opaque here.
    alignas(8) unsigned char _aHandle[8] = {};
};

// For tests: the next nCount calls of Thread::Start fail.
void FailThreadStarts(int nCount);

// A flag to wait for. Set may come before the wait, and from any thread; a wait that sees it clears it.
class Event {
  public:
    void Set();
    // False if nWait milliseconds went by without a Set.
    bool WaitFor(uint32_t nWait);

  private:
    Mutex _mutex;
    std::condition_variable _changed;
    bool _bSet GUARDED_BY(_mutex) = false;
};

}  // namespace platform
