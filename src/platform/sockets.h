// IPv4 TCP connections of a client. Every call blocks until it has done its work, has failed, or is to give
// up; no signal reaches the host when a peer has gone, and no process that the host starts inherits a
// connection.
#pragma once

#include <cstdint>

namespace platform {

using SocketHandle = intptr_t;
inline constexpr SocketHandle kNoSocket = -1;

// Asked before each wait and every 50 milliseconds of it; nonzero ends the call as a failure. May be null.
using GiveUp = int (*)(void *lpContext);

// kNoSocket if there is none to be had; all that follow fail with that, or do nothing.
SocketHandle OpenSocket();

// dwAddress is in network byte order, wPort in that of the machine.
bool ConnectSocket(SocketHandle hSocket, uint32_t dwAddress, uint16_t wPort, GiveUp lpfnGiveUp,
                   void *lpContext);

// Sends some of nLength bytes, at least one. Returns how many, or -1.
int SendSocket(SocketHandle hSocket, const char *lpData, int nLength, GiveUp lpfnGiveUp, void *lpContext);

// Waits for bytes and takes up to nRoom of them. Returns how many, 0 if the peer has closed the connection,
// or -1.
int ReceiveSocket(SocketHandle hSocket, char *lpBuffer, int nRoom, GiveUp lpfnGiveUp, void *lpContext);

void CloseSocket(SocketHandle hSocket);

}  // namespace platform
