// What the system can be told of memory.
#pragma once

#include <cstddef>

namespace platform {

// Says that nBytes from lpMemory on will soon be written, for the first time. A system that hands out memory in pages as
// they are touched can do so in a few large ones; the many small ones of a large picture take longer than decoding it.
// What is there stays, and what is never touched still costs nothing.
void ExpectWrites(void *lpMemory, size_t nBytes);

}  // namespace platform
