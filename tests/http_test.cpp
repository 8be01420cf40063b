#include "http.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include "loopback_server.h"
#include "platform/clock.h"
#include "resource.h"
#include "types.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr uint16_t kPage = ACCEPT_TEXT | ACCEPT_HTML;
constexpr uint16_t kImage = ACCEPT_TEXT | ACCEPT_IMAGE;
constexpr char kNone[] = "(nothing)";
constexpr char kOk[] = "HTTP/1.0 200 OK\r\n\r\n";

class Probe : public Resource {
  public:
    Probe(const std::string &strHost, const char *lpszPath, const char *lpszQuery = nullptr,
          uint16_t wAccept = kImage, uint16_t wMethod = METHOD_GET)
        : Resource(nullptr, "url", wAccept, wMethod) {
        _lpszHost = StrDup(strHost.c_str());
        _lpszPath = StrDup(lpszPath);
        _lpszQuery = StrDup(lpszQuery);
        _dwStart = platform::Ticks();
    }
    void OnData() override {}
    void OnTimeout() override {}
    void OnCancelled() override {}
    std::string Fetch() {
        HttpFetch(this, nullptr);
        EXPECT_EQ(g_hSocket, platform::kNoSocket);
        EXPECT_TRUE(_lpData || !_dwLength);
        return _lpData ? std::string(reinterpret_cast<const char *>(_lpData), _dwLength) : kNone;
    }
};

class HttpTest : public ::testing::Test {
  protected:
    void TearDown() override { platform::ReplaceTicks(nullptr); }
    // What a Resource gets out of a response.
    std::string Get(const Reply &reply, uint16_t wAccept = kImage) {
        server.Prescribe(reply);
        const std::string strBody = Probe(server.strAddress, "x", nullptr, wAccept).Fetch();
        server.TakeRequest();
        return strBody;
    }
    LoopbackServer server;
};

// A zero-terminated string of exactly its own size on the heap, so that a sanitizer sees a read behind it.
struct Exact {
    explicit Exact(const std::string &str) : lpsz(new char[str.size() + 1]) {
        memcpy(lpsz.get(), str.c_str(), str.size() + 1);
    }
    std::unique_ptr<char[]> lpsz;
};

}  // namespace

TEST_F(HttpTest, RequestsAreExactlyTheseBytes) {
    const std::string strHost = "\r\nHost: " + server.strAddress + "\r\n\r\n";
    const std::string strLong(65536 - strlen("GET / HTTP/1.0"), 'x');
    const struct {
        const char *lpszPath, *lpszQuery;
        uint16_t wMethod;
        std::string strRequest;
    } aCases[] = {
        {"a/b c.html", nullptr, METHOD_GET, "GET /a/b c.html HTTP/1.0" + strHost},
        {nullptr, nullptr, METHOD_GET, "GET / HTTP/1.0" + strHost},
        {"a", "b=1&c=%\xE9", METHOD_GET, "GET /a?b=1&c=%\xE9 HTTP/1.0" + strHost},
        {"a", "", METHOD_GET, "GET /a? HTTP/1.0" + strHost},
        {"a", "b=1\r\nc?", METHOD_POST, "POST /a HTTP/1.0\r\n\r\nb=1\r\nc?"},
        {nullptr, nullptr, 0, "POST / HTTP/1.0\r\n\r\n"},
        {strLong.c_str(), nullptr, METHOD_GET, "GET /" + strLong + " HTTP/1.0" + strHost},
        {"a", strLong.c_str(), 3, "POST /a HTTP/1.0\r\n\r\n" + strLong},
    };
    server.Prescribe({std::string(kOk) + "body"});
    for (const auto &c : aCases) {
        Probe probe(server.strAddress, c.lpszPath, c.lpszQuery, kPage, c.wMethod);
        EXPECT_EQ(probe.Fetch(), "body") << c.strRequest.substr(0, 80);
        EXPECT_EQ(server.TakeRequest(), c.strRequest);
    }
}

TEST_F(HttpTest, RequestsThatAreRefusedNeverReachTheServer) {
    const std::string strLong(65537 - strlen("GET / HTTP/1.0"), 'x');
    const struct {
        std::string strHost, strPath;
        const char *lpszQuery;
    } aCases[] = {{"", "a\r\nX: 1", nullptr}, {"", "a\nX: 1", nullptr},   {"", "a\r", nullptr},
                  {"", "a", "b\r\n\r\nc"},    {"\r\nX: 1", "a", nullptr}, {" \n", "a", nullptr},
                  {"", strLong, nullptr}};
    server.Prescribe({kOk});
    for (const auto &c : aCases)
        EXPECT_EQ(Probe(server.strAddress + c.strHost, c.strPath.c_str(), c.lpszQuery).Fetch(), kNone);
    EXPECT_EQ(Probe(server.strAddress, "b\nc", "", kPage, METHOD_POST).Fetch(), kNone);
    EXPECT_EQ(Probe(server.strAddress, "good").Fetch(), "");
    server.TakeRequest();
    EXPECT_EQ(server.nAccepted, 1);
}

TEST_F(HttpTest, BodyIsWhatStandsBehindTheHead) {
    const std::string strZeros("a\0\r\n\r\nb\0", 8);
    const std::string strManyHeaders = "HTTP/1.0 200 OK\r\n" + std::string(100000, 'x') + ": y\r\n";
    const struct {
        std::string strResponse, strImage, strPage;
    } aCases[] = {
        {std::string(kOk) + "Body", "Body", "Body"},
        {kOk, "", ""},
        {"", kNone, kNone},
        {kOk + strZeros, strZeros, strZeros},
        {"http/9 200 x\r\n\r\ncontent-type: audio/x", "content-type: audio/x", "content-type: audio/x"},
        {strManyHeaders + "\r\nb", "b", "b"},
        {strManyHeaders + "Content-Type: audio/x\r\n\r\nb", kNone, kNone},
        {"HTTP/1.0 404 Gone\r\n\r\nb", kNone, "b"},
        {"HTTP/1.0 200\r\n\r\nb", kNone, "b"},
        {"HTTP/\r\n\r\n", kNone, ""},
        // No head at all: the response is its own body, with status 0.
        {"<HTML>x\r\n\r\ny", kNone, "<HTML>x\r\n\r\ny"},
        {"HTTP/1.0 200 OK\r\nX: y\r\n", kNone, "HTTP/1.0 200 OK\r\nX: y\r\n"},
        {"HTTP/1.0 200 OK\n\nb", kNone, "HTTP/1.0 200 OK\n\nb"},
        {"HTTP", kNone, "HTTP"},
        {"HTTP/1.0 200 OK\r\nX: " + strZeros, kNone, "HTTP/1.0 200 OK\r\nX: " + strZeros},
        {strZeros + kOk, kNone, strZeros + kOk},
    };
    for (const auto &c : aCases) {
        SCOPED_TRACE(c.strResponse.substr(0, 100));
        EXPECT_EQ(Get({c.strResponse}, kImage), c.strImage);
        EXPECT_EQ(Get({c.strResponse}, kPage), c.strPage);
    }
    // The result does not depend on how the bytes were cut into pieces.
    EXPECT_EQ(Get({std::string(kOk) + "slow drip", kClose, 1}), "slow drip");
}

TEST_F(HttpTest, TypesThatPagesAndPicturesTake) {
    const struct {
        const char *lpszType;
        bool bPage, bImage;
    } aCases[] = {{"text/html", true, true},
                  {"text/plain", false, true},
                  {"text/xml", true, true},
                  {"image/gif", false, true},
                  {"application/octet-stream", false, false},
                  {"audio/mid", false, false},
                  {"model/mesh", true, true},
                  {"text/html; charset=x", true, true},
                  {"", true, true}};
    for (const auto &c : aCases) {
        const Reply reply = {std::string("HTTP/1.0 200 OK\r\nContent-Type: ") + c.lpszType + "\r\n\r\nb"};
        EXPECT_EQ(Get(reply, kPage), c.bPage ? "b" : kNone) << c.lpszType;
        EXPECT_EQ(Get(reply, kImage), c.bImage ? "b" : kNone) << c.lpszType;
    }
}

TEST_F(HttpTest, ResponseIsCutAt500000Bytes) {
    for (const size_t nSize : {499999u, 500000u, 500001u, 2000000u}) {
        std::string strResponse = kOk;
        while (strResponse.size() < nSize)
            strResponse += std::to_string(strResponse.size());
        strResponse.resize(nSize);
        const std::string strBody = Get({strResponse});
        EXPECT_EQ(strBody.size(), std::min<size_t>(nSize, 500000) - strlen(kOk));
        EXPECT_TRUE(strBody == strResponse.substr(strlen(kOk), strBody.size())) << nSize;
    }
    // A peer that goes on for ever is left.
    EXPECT_EQ(Get({kOk + std::string(600000, 'x'), kHold}).size(), 500000 - strlen(kOk));
}

TEST_F(HttpTest, ConnectionThatFailsDeliversNothing) {
    EXPECT_EQ(Get({std::string(kOk) + "nearly everything", kReset}), kNone);
    EXPECT_EQ(Get({"", kReset}), kNone);
    std::string strDeaf;
    const int hDeaf = BindLoopback(&strDeaf);
    EXPECT_EQ(Probe(strDeaf, "x").Fetch(), kNone) << "connection refused";
    close(hDeaf);
    EXPECT_EQ(Probe("255.255.255.255", "x").Fetch(), kNone);
    // The peer goes away in the middle of the request. A signal would end this process.
    const std::string strBody(1 << 24, 'x');
    for (const End end : {kReset, kLeave}) {
        server.Prescribe({"", end});
        EXPECT_EQ(Probe(server.strAddress, "x", strBody.c_str(), kPage, METHOD_POST).Fetch(), kNone);
        server.TakeRequest();
    }
}

TEST_F(HttpTest, NoDescriptorIsLost) {
    const auto Count = [] {
        const std::filesystem::directory_iterator first("/proc/self/fd");
        return std::distance(first, std::filesystem::directory_iterator());
    };
    const auto nBefore = Count();
    for (const End end : {kClose, kReset})
        Get({kOk, end});
    Probe("255.255.255.255", "x").Fetch();
    EXPECT_EQ(Count(), nBefore);
}

namespace {

enum Wait { kInConnect, kInSend, kInReceive, kInDrip };
constexpr Wait kWaits[] = {kInConnect, kInSend, kInReceive, kInDrip};

class HttpWaitTest : public HttpTest {
  protected:
    void SetUp() override { FillListener(); }
    void TearDown() override {
        for (const int hSocket : _sockets)
            close(hSocket);
        HttpTest::TearDown();
    }
    // A listener that nobody serves: whoever comes when its queue is full gets no answer at all.
    void FillListener() {
        _sockets.push_back(BindLoopback(&_strFull));
        ASSERT_EQ(listen(_sockets[0], 0), 0);
        const sockaddr_in address = {AF_INET, htons(80), {inet_addr(_strFull.c_str())}, {}};
        for (int i = 0; i < 4; ++i) {
            _sockets.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
            connect(_sockets.back(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
        }
    }
    // A fetch that waits there for ever, on a thread of its own; how long it takes from the end of the action
    // on.
    template <class Action>
    Clock::duration TimeOfEnd(Wait wait, uint32_t dwStart, Action action) {
        server.Prescribe({std::string(wait == kInDrip ? 100000 : 0, 'x'), kHold, 1});
        const std::string strBody(wait == kInSend ? 1 << 24 : 1, 'x');
        Probe probe(wait == kInConnect ? _strFull : server.strAddress, "x", strBody.c_str(), kPage,
                    METHOD_POST);
        probe._dwStart = dwStart;
        std::string strData;
        std::thread thread([&] { strData = probe.Fetch(); });
        action(&probe);
        const auto start = Clock::now();
        thread.join();
        EXPECT_EQ(strData, kNone) << "wait " << wait;
        return Clock::now() - start;
    }
    std::string _strFull;
    std::vector<int> _sockets;
};

std::atomic<uint32_t> g_dwNow;
std::atomic<int> g_nLooks;
std::atomic<int> g_nDescriptorFlags;

// The clock of a test. It is read on the thread that fetches, which may look at the connection.
uint32_t TestTicks() {
    if (g_hSocket != platform::kNoSocket)
        g_nDescriptorFlags = fcntl(static_cast<int>(g_hSocket), F_GETFD);
    ++g_nLooks;
    return g_dwNow;
}

// Until the fetch has looked at the clock so many times more.
void AwaitLooks(int nCount) {
    const int nUntil = g_nLooks + nCount;
    for (int i = 0; i < 20000 && g_nLooks < nUntil; ++i)
        std::this_thread::sleep_for(milliseconds(1));
    EXPECT_GE(g_nLooks, nUntil);
}

}  // namespace

TEST_F(HttpWaitTest, CancellationIsNoticedSoon) {
    for (const Wait wait : kWaits) {
        // The best of three, since the machine may be busy.
        auto best = Clock::duration::max();
        for (int i = 0; i < 3; ++i) {
            best = std::min(best, TimeOfEnd(wait, platform::Ticks(), [](Probe *lpProbe) {
                                std::this_thread::sleep_for(milliseconds(120));
                                lpProbe->Cancel();
                            }));
        }
        EXPECT_LT(best, milliseconds(150)) << wait;
    }
}

TEST_F(HttpWaitTest, LimitIsNoticedBehind30000Milliseconds) {
    platform::ReplaceTicks(TestTicks);
    for (const Wait wait : kWaits) {
        for (const uint32_t dwStart : {1000u, 0xFFFFFFFFu - 15000}) {
            g_dwNow = dwStart + 30000;
            const auto time = TimeOfEnd(wait, dwStart, [=](Probe *) {
                AwaitLooks(6);
                g_dwNow = dwStart + 30001;
            });
            EXPECT_LT(time, milliseconds(1000)) << wait;
            EXPECT_EQ(g_nDescriptorFlags, FD_CLOEXEC) << "a process that the host starts would inherit it";
        }
    }
}

TEST(HttpHeadTest, StatusStandsBetweenTheFirstTwoBlanks) {
    const struct {
        const char *lpszHead;
        int nStatus;
    } aCases[] = {{"http/1.0 200 ok", 200},
                  {"http/1.0 404 not found", 404},
                  {"http/1.0 200\r\nserver: x", 200},
                  {"http/1.0 2x4 x", 2},
                  {"http/1.0 99999999999999999999 x", INT_MAX},
                  {"http/1.0 200", 0},
                  {"http/1.0  200 ok", 0},
                  {"http/1.0 \r\n 200 ok", 0},
                  {" ", 0},
                  {"", 0}};
    for (const auto &c : aCases) {
        int32_t nStatus = 12345;
        ParseStatusCode(Exact(c.lpszHead).lpsz.get(), &nStatus);
        EXPECT_EQ(nStatus, c.nStatus) << c.lpszHead;
    }
}

TEST(HttpHeadTest, HeaderValueEndsAtABlankOrTheEndOfTheLine) {
    const std::string strFits(63, 'v');
    const struct {
        std::string strHead, strValue;
        int nResult = 1;
    } aCases[] = {{"name: value", "value"},
                  {"name:value", "alue"},
                  {"name:\tvalue here", "value"},
                  {"name:  value", ""},
                  {"name: value\nc", "value"},
                  {"other-name: 1\r\nname: 2", "1"},
                  {"name: " + strFits + " x", strFits},
                  {"name: " + strFits + "v", "", 0},
                  {"name: " + std::string(100000, 'v'), "", 0},
                  {"name:", ""},
                  {"name", ""},
                  {"", ""}};
    for (const auto &c : aCases) {
        char szValue[kHeaderValueSize] = "before";
        EXPECT_EQ(GetHeaderValue(Exact(c.strHead).lpsz.get(), "name:", szValue), c.nResult) << c.strHead;
        EXPECT_EQ(szValue, c.strValue) << c.strHead;
    }
}

TEST(HttpHeadTest, ContentTypeIsAClassAndASubtype) {
    constexpr uint16_t kBefore = 0x7777;
    const struct {
        std::string strValue;
        uint16_t wType;
    } aCases[] = {{" text/html", 0x0101},
                  {" text/plain", 0x0102},
                  {" audio/x", 0x0400},
                  {" video/html", 0x0801},
                  {" application/x", 0x1000},
                  {" text/html;", 0x0100},
                  {" texts/html", 0x0001},
                  {"text/html", 0x0001},
                  {" tex/htm", 0},
                  {" text", 0x0100},
                  {" /html", 0x0001},
                  {" text/" + std::string(58, 'x'), 0x0100},
                  {" text/" + std::string(59, 'x'), 0},
                  {"  text/html", kBefore},
                  {"", kBefore}};
    for (const auto &c : aCases) {
        uint16_t wType = kBefore;
        ParseContentType(Exact("content-type:" + c.strValue + "\r\nx: y").lpsz.get(), &wType);
        EXPECT_EQ(wType, c.wType) << c.strValue;
    }
}

TEST(HttpHeadTest, HeadIsCutOffAndPutIntoLowerCase) {
    const Exact response("Http/1.1 200 OK\r\nCONTENT-Type: Text/HTML\r\nX: \xC4Z[@`\r\n\r\nBODY: \xC4");
    HttpInfo info;
    ParseResponse(response.lpsz.get(), &info);
    EXPECT_STREQ(response.lpsz.get(), "http/1.1 200 ok\r\ncontent-type: text/html\r\nx: \xC4z[@`");
    EXPECT_STREQ(response.lpsz.get() + info._dwBodyOffset, "BODY: \xC4");
    EXPECT_EQ(info._dwStatus, 200);
    EXPECT_EQ(info._wContentType, 0x0101);
}
