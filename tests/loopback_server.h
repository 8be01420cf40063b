// A server on the loopback device, for tests of what the library says to servers and makes of their answers.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

// A socket that listens on port 80 of a loopback address of its own, for tests run side by side. Call it first before
// the process has threads: where port 80 is not for everybody, the process moves to a network of its own.
int ListenOnLoopback(std::string *lpstrAddress);

// What a server sends once the head of a request is in, and how it ends the connection. kLeave: without reading
// the rest of the request. kHold: not before another reply is prescribed; nor does it read any further.
enum End { kClose, kReset, kLeave, kHold };
struct Reply {
    std::string strBytes;
    End end = kClose;
    size_t nPiece = 1 << 30;  // the bytes go in pieces of that size, a millisecond apart
    int nDelay = 0;           // milliseconds before the first of them
};
// Called on the thread of the server.
using Answer = std::function<Reply(const std::string &strRequest)>;

// Has an address of its own, and serves one connection after the other. Two at a time fail the test.
class LoopbackServer {
  public:
    LoopbackServer();
    ~LoopbackServer();
    void Prescribe(const Reply &reply);
    void Prescribe(const Answer &answer);
    // Waits for the end of a connection, for 20 seconds at most; everything that came on it.
    std::string TakeRequest();

    std::string strAddress;
    std::atomic<int> nAccepted{0};

  private:
    bool Wait(int hSocket, short nEvents);
    void Run();
    void Read(int hPeer, const char *lpszUntil, std::string *lpstr);
    std::string Serve(int hPeer);

    int _hListener;
    std::mutex _mutex;
    Answer _answer;
    std::atomic<int> _nPrescribed{0};
    std::deque<std::string> _requests;
    std::atomic<bool> _bStop{false};
    std::thread _thread;
};
