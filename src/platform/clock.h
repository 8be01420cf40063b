// The tick count: milliseconds since some moment in the past, monotonic, 32 bits, wrapping round. Two ticks
// are compared by their unsigned difference alone, which stays right across the wrap. Safe from every thread.
#pragma once

#include <cstdint>

namespace platform {

uint32_t Ticks();

using TickSource = uint32_t (*)();

// For tests: the function that answers in place of the system's clock from now on; null brings that back. The
// waits of the system stay in real time, so whoever waits for a tick polls while a source is set
// (TicksReplaced).
void ReplaceTicks(TickSource lpfnSource);
bool TicksReplaced();

}  // namespace platform
