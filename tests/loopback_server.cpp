#include "loopback_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>

using std::chrono::milliseconds;

// Port 80 takes a privilege. A process without it has that privilege in a network of its own, where nothing
// but the loopback device exists. Only what is opened from then on belongs to that network.
static bool EnterOwnNetwork() {
    const std::string strUser = std::to_string(getuid());
    const std::string strGroup = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << strUser + " " + strUser + " 1";
    std::ofstream("/proc/self/gid_map") << strGroup + " " + strGroup + " 1";
    std::ofstream("/proc/sys/net/ipv4/ip_unprivileged_port_start") << "0";  // for programs that a test starts
    ifreq request = {};
    snprintf(request.ifr_name, sizeof request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    const int hSocket = socket(AF_INET, SOCK_DGRAM, 0);
    const bool bUp = ioctl(hSocket, SIOCSIFFLAGS, &request) == 0;
    close(hSocket);
    return bUp;
}

int ListenOnLoopback(std::string *lpstrAddress) {
    const int nOn = 1;
    for (int i = 2; i < 255; ++i) {
        *lpstrAddress = "127.0.0." + std::to_string(i);
        const sockaddr_in address = {AF_INET, htons(80), {inet_addr(lpstrAddress->c_str())}, {}};
        const int hSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        setsockopt(hSocket, SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn);
        // Two processes may bind the same address; only one of them can listen there.
        if (bind(hSocket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
            listen(hSocket, 16) == 0)
            return hSocket;
        const bool bForbidden = errno == EACCES;
        close(hSocket);
        if (bForbidden && !EnterOwnNetwork())
            break;
    }
    ADD_FAILURE() << "these tests must listen on port 80 of 127.0.0.x: run them as root, or as: unshare -rn";
    return -1;
}

LoopbackServer::LoopbackServer() : _hListener(ListenOnLoopback(&strAddress)) {
    const int nSmall = 4096;
    setsockopt(_hListener, SOL_SOCKET, SO_RCVBUF, &nSmall, sizeof nSmall);
    _thread = std::thread(&LoopbackServer::Run, this);
}

LoopbackServer::~LoopbackServer() {
    _bStop = true;
    _thread.join();
    close(_hListener);
}

void LoopbackServer::Prescribe(const Reply &reply) {
    Prescribe([reply](const std::string &) { return reply; });
}

void LoopbackServer::Prescribe(const Answer &answer) {
    std::lock_guard lock(_mutex);
    _answer = answer;
    ++_nPrescribed;
}

std::string LoopbackServer::TakeRequest() {
    for (int i = 0; i < 20000 && _hListener >= 0; ++i) {
        std::this_thread::sleep_for(milliseconds(1));
        std::lock_guard lock(_mutex);
        if (_requests.empty())
            continue;
        const std::string strRequest = _requests.front();
        _requests.pop_front();
        return strRequest;
    }
    return "(no connection)";
}

bool LoopbackServer::Wait(int hSocket, short nEvents) {
    pollfd entry = {hSocket, nEvents, 0};
    while (!_bStop && poll(&entry, 1, 10) <= 0) {
    }
    return !_bStop;
}

void LoopbackServer::Run() {
    while (Wait(_hListener, POLLIN)) {
        const int hPeer = accept(_hListener, nullptr, nullptr);
        ++nAccepted;
        const std::string strRequest = Serve(hPeer);
        close(hPeer);
        std::lock_guard lock(_mutex);
        _requests.push_back(strRequest);
    }
}

// Reads until the text is in, or to the end of the connection.
void LoopbackServer::Read(int hPeer, const char *lpszUntil, std::string *lpstr) {
    char aBuffer[4096];
    while (lpstr->find(lpszUntil) == std::string::npos && Wait(hPeer, POLLIN)) {
        const ssize_t nGot = recv(hPeer, aBuffer, sizeof aBuffer, 0);
        if (nGot <= 0)
            break;
        lpstr->append(aBuffer, static_cast<size_t>(nGot));
    }
}

std::string LoopbackServer::Serve(int hPeer) {
    std::string strRequest;
    Read(hPeer, "\r\n\r\n", &strRequest);
    std::unique_lock lock(_mutex);
    const Reply reply = _answer ? _answer(strRequest) : Reply();
    const int nPrescribed = _nPrescribed;
    lock.unlock();
    std::this_thread::sleep_for(milliseconds(reply.nDelay));
    for (size_t i = 0; i < reply.strBytes.size() && !_bStop; i += reply.nPiece) {
        const std::string strPiece = reply.strBytes.substr(i, reply.nPiece);
        if (send(hPeer, strPiece.data(), strPiece.size(), MSG_NOSIGNAL) < 0)
            break;
        std::this_thread::sleep_for(milliseconds(1));
    }
    const linger hard = {1, 0};
    if (reply.end == kLeave)
        shutdown(hPeer, SHUT_WR);
    if (reply.end == kLeave || reply.end == kReset)
        setsockopt(hPeer, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    pollfd peer = {hPeer, POLLRDHUP, 0};
    while (reply.end == kHold && !_bStop && nPrescribed == _nPrescribed && poll(&peer, 1, 10) <= 0) {
    }
    if (reply.end == kClose) {
        // In this order: a peer that has gone may well be followed by another one.
        pollfd next = {_hListener, POLLIN, 0};
        EXPECT_TRUE(poll(&next, 1, 0) <= 0 || poll(&peer, 1, 0) > 0) << "two connections at a time";
        shutdown(hPeer, SHUT_WR);
        Read(hPeer, "(never sent)", &strRequest);
    }
    return strRequest;
}
