// The sockets never block by themselves. All waiting is done in one place, a slice at a time, so that whoever
// wants the wait to end is heard between two slices.
#include "platform/sockets.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

namespace {

// Milliseconds of a slice: half of what a cancellation may take to be noticed.
constexpr int kLook = 50;

// Waits until the socket is ready, or has failed, which the call that is waited for will say.
bool WaitUntilReady(SocketHandle hSocket, short nEvents, GiveUp lpfnGiveUp, void *lpContext) {
    pollfd entry = {static_cast<int>(hSocket), nEvents, 0};
    while (!lpfnGiveUp || !lpfnGiveUp(lpContext)) {
        const int nReady = poll(&entry, 1, kLook);
        if (nReady > 0)
            return true;
        if (nReady < 0 && errno != EINTR)
            return false;
    }
    return false;
}

// What a call that did not wait has said; true if it has to be made again.
bool MustRepeat(ssize_t nResult) {
    return nResult < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK);
}

// How a connection that was under way has turned out.
bool IsConnected(SocketHandle hSocket) {
    int nError = 0;
    socklen_t nSize = sizeof nError;
    return getsockopt(static_cast<int>(hSocket), SOL_SOCKET, SO_ERROR, &nError, &nSize) == 0 && nError == 0;
}

}  // namespace

SocketHandle OpenSocket() {
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP);
}

bool ConnectSocket(SocketHandle hSocket, uint32_t dwAddress, uint16_t wPort, GiveUp lpfnGiveUp,
                   void *lpContext) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(wPort);
    address.sin_addr.s_addr = dwAddress;
    if (connect(static_cast<int>(hSocket), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return true;
    // A call that a signal has interrupted goes on by itself as well.
    if (errno != EINPROGRESS && errno != EINTR)
        return false;
    return WaitUntilReady(hSocket, POLLOUT, lpfnGiveUp, lpContext) && IsConnected(hSocket);
}

int SendSocket(SocketHandle hSocket, const char *lpData, int nLength, GiveUp lpfnGiveUp, void *lpContext) {
    ssize_t nSent;
    do {
        if (!WaitUntilReady(hSocket, POLLOUT, lpfnGiveUp, lpContext))
            return -1;
        nSent = send(static_cast<int>(hSocket), lpData, static_cast<size_t>(nLength), MSG_NOSIGNAL);
    } while (MustRepeat(nSent));
    return static_cast<int>(nSent);
}

int ReceiveSocket(SocketHandle hSocket, char *lpBuffer, int nRoom, GiveUp lpfnGiveUp, void *lpContext) {
    ssize_t nGot;
    do {
        if (!WaitUntilReady(hSocket, POLLIN, lpfnGiveUp, lpContext))
            return -1;
        nGot = recv(static_cast<int>(hSocket), lpBuffer, static_cast<size_t>(nRoom), 0);
    } while (MustRepeat(nGot));
    return static_cast<int>(nGot);
}

void CloseSocket(SocketHandle hSocket) {
    if (hSocket != kNoSocket)
        close(static_cast<int>(hSocket));
}

}  // namespace platform
