#include "platform/timer.h"

#include "platform/clock.h"

namespace platform {

bool Timer::Start(uint32_t nPeriod, Callback lpfnTick) {
    _nPeriod = nPeriod;
    _lpfnTick = lpfnTick;
    _bRunning = _thread.Start(Run, this);
    return _bRunning;
}

void Timer::Stop() {
    if (!_bRunning)
        return;
    _stop.Set();
    _thread.Join();
    _bRunning = false;
}

void Timer::Run(void *lpTimer) {
    Timer *lpThis = static_cast<Timer *>(lpTimer);
    while (!lpThis->_stop.WaitFor(lpThis->_nPeriod))
        lpThis->_lpfnTick(Ticks());
}

}  // namespace platform
