// The periodic timer. It ticks on a thread of its own, so that a host has nothing to pump.
#pragma once

#include <cstdint>

#include "platform/thread.h"

namespace platform {

class Timer {
  public:
    using Callback = void (*)(uint32_t dwTicks);

    ~Timer() { Stop(); }

    // Calls lpfnTick every nPeriod milliseconds from now on. False if there is no thread to be had.
    bool Start(uint32_t nPeriod, Callback lpfnTick);

    // Returns when no call is under way and none will come. Nothing happens if the timer does not run. The
    // callback must not wait for whatever the caller of Stop holds.
    void Stop();

  private:
    static void Run(void *lpTimer);

    Thread _thread;
    Event _stop;
    Callback _lpfnTick = nullptr;
    uint32_t _nPeriod = 0;
    bool _bRunning = false;
};

}  // namespace platform
