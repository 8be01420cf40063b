// Host names to IPv4 addresses.
#pragma once

#include <cstdint>

namespace platform {

// What a resolver that finds nothing returns; as an address it is the broadcast address, which nobody fetches
// from.
inline constexpr uint32_t kNoAddress = 0xFFFFFFFF;

// The IPv4 address of a dotted number or a host name, in network byte order, or kNoAddress. Safe from several
// threads. The call may take as long as the system's name service does, but gives up within about 100
// milliseconds once lpfnGiveUp(lpContext) is nonzero, and after 30 seconds at the latest; lpfnGiveUp may be
// null. An answer, good or bad, is remembered for a minute, so that a page that asks for the same name a
// hundred times asks once.
uint32_t ResolveAddress(const char *lpszHost, int (*lpfnGiveUp)(void *lpContext), void *lpContext);

// Gives back what the resolver holds, when the library is unloaded. A question that the system is still at work on stays
// with it: a few hundred bytes.
void ReleaseResolver();

}  // namespace platform
