#include "http.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include "engine_fixture.h"
#include "loopback_server.h"
#include "platform/clock.h"
#include "types.h"

namespace {

constexpr uint16_t kPage = ACCEPT_TEXT | ACCEPT_HTML;
constexpr uint16_t kImage = ACCEPT_TEXT | ACCEPT_IMAGE;
using namespace std::string_literals;

const std::string kNone = "(nothing)";
const std::string kOk = "HTTP/1.0 200 OK\r\n\r\n";

class Probe : public KeptResource {
  public:
    Probe(const std::string &strHost, const char *lpszPath, const char *lpszQuery = nullptr,
          uint16_t wAccept = kImage, uint16_t wMethod = METHOD_GET)
        : KeptResource(nullptr, "url", wAccept, wMethod) {
        _lpszHost = StrDup(strHost.c_str());
        _lpszPath = StrDup(lpszPath);
        _lpszQuery = StrDup(lpszQuery);
        _dwStart = platform::Ticks();
    }
    std::string Fetch() {
        HttpFetch(this, nullptr);
        EXPECT_EQ(g_hSocket, platform::kNoSocket);
        EXPECT_TRUE(_lpData || !_dwLength);
        return Data();
    }
};

class HttpTest : public ::testing::Test {
  protected:
    void TearDown() override {
        platform::ReplaceTicks(nullptr);
        EXPECT_TRUE(WaitUntil([this] { return CountDescriptors() == nBefore; })) << "a descriptor is lost";
    }
    static std::ptrdiff_t CountDescriptors() {
        const std::filesystem::directory_iterator first("/proc/self/fd");
        return std::distance(first, std::filesystem::directory_iterator());
    }
    // What a Resource gets out of a response.
    std::string Get(const Reply &reply, uint16_t wAccept = kImage) {
        server.Prescribe(reply);
        const std::string strBody = Probe(server.strAddress, "x", nullptr, wAccept).Fetch();
        server.TakeRequest();
        return strBody;
    }
    LoopbackServer server;
    const std::ptrdiff_t nBefore = CountDescriptors();
};

}  // namespace

TEST_F(HttpTest, RequestsAreExactlyTheseBytes) {
    const std::string strHost = " HTTP/1.0\r\nHost: " + server.strAddress + "\r\n\r\n";
    const std::string strLong(65536 - strlen("GET / HTTP/1.0"), 'x');
    const std::tuple<const char *, const char *, uint16_t, std::string> aCases[] = {
        {"a/b c.html", nullptr, METHOD_GET, "GET /a/b c.html" + strHost},
        {nullptr, nullptr, METHOD_GET, "GET /" + strHost},
        {"a", "b=1&c=%\xE9", METHOD_GET, "GET /a?b=1&c=%\xE9" + strHost},
        {"a", "", METHOD_GET, "GET /a?" + strHost},
        {"a", "b=1\r\nc?", METHOD_POST, "POST /a HTTP/1.0\r\n\r\nb=1\r\nc?"},
        {nullptr, nullptr, 0, "POST / HTTP/1.0\r\n\r\n"},
        {strLong.c_str(), nullptr, METHOD_GET, "GET /" + strLong + strHost},
        {"a", strLong.c_str(), 3, "POST /a HTTP/1.0\r\n\r\n" + strLong}};
    server.Prescribe({kOk + "body"});
    for (const auto &[lpszPath, lpszQuery, wMethod, strRequest] : aCases) {
        EXPECT_EQ(Probe(server.strAddress, lpszPath, lpszQuery, kPage, wMethod).Fetch(), "body");
        EXPECT_EQ(server.TakeRequest(), strRequest);
    }
    const int nAsked = server.nAccepted;
    for (const std::string &strPath : {"a\r\nX: 1"s, "a\nX: 1"s, "a\r"s, strLong + "x"})
        EXPECT_EQ(Probe(server.strAddress, strPath.c_str()).Fetch(), kNone) << strPath.substr(0, 80);
    EXPECT_EQ(Probe(server.strAddress, "a", "b\r\n\r\nc").Fetch(), kNone);
    EXPECT_EQ(Probe(server.strAddress, "a\nb", "", kPage, METHOD_POST).Fetch(), kNone);
    std::string strDeaf;
    const int hDeaf = ListenOnLoopback(&strDeaf);
    shutdown(hDeaf, SHUT_RDWR);
    for (const std::string &strAt : {"\r\nX: 1"s, " \n"s, ":80"s})
        EXPECT_EQ(Probe(server.strAddress + strAt, "a").Fetch(), kNone) << strAt;
    for (const std::string &strAt : {"255.255.255.255"s, strDeaf})
        EXPECT_EQ(Probe(strAt, "a").Fetch(), kNone) << strAt;
    close(hDeaf);
    EXPECT_EQ(Get({kOk}), "");
    EXPECT_EQ(server.nAccepted, nAsked + 1) << "the others ask nobody";
}

TEST_F(HttpTest, BodyIsWhatStandsBehindAHeadThatIsAccepted) {
    const std::string strZeros("a\0\r\n\r\nb\0", 8);
    const std::string strManyHeaders = "HTTP/1.0 200 OK\r\n" + std::string(100000, 'x') + ": y\r\n";
    const std::string strType = "HTTP/1.0 200 OK\r\nContent-Type: ";
    std::vector<std::tuple<Reply, std::string, std::string>> cases = {
        {Reply{""}, kNone, kNone},
        {Reply{kOk}, "", ""},
        {Reply{kOk + "slow drip", kClose, 1}, "slow drip", "slow drip"},
        {Reply{kOk + "nearly everything", kReset}, kNone, kNone},
        {Reply{"", kReset}, kNone, kNone},
        {Reply{kOk + strZeros}, strZeros, strZeros},
        {Reply{"http/9 200 x\r\n\r\ncontent-type: audio/x"}, "content-type: audio/x",
         "content-type: audio/x"},
        {Reply{strManyHeaders + "\r\nb"}, "b", "b"},
        {Reply{strManyHeaders + "Content-Type: audio/x\r\n\r\nb"}, kNone, kNone},
        {Reply{"HTTP/1.0 404 Gone\r\n\r\nb"}, kNone, "b"},
        {Reply{"HTTP/1.0 200\r\n\r\nb"}, kNone, "b"},
        {Reply{"HTTP/\r\n\r\n"}, kNone, ""}};
    const auto AddTypes = [&](const std::string &strImage, const std::string &strPage,
                              const std::vector<std::string> &types) {
        for (const std::string &strValue : types)
            cases.push_back({Reply{strType + strValue + "\r\n\r\nb"}, strImage, strPage});
    };
    AddTypes("b", "b", {"text/html", "text/html; charset=x", "text/xml", "model/mesh", ""});
    AddTypes("b", kNone, {"text/plain", "image/gif"});
    AddTypes(kNone, kNone, {"application/octet-stream", "audio/mid", "video/html"});
    // No head at all: the response is its own body, with status 0.
    for (const std::string &strBody :
         {"<HTML>x\r\n\r\ny"s, "HTTP/1.0 200 OK\r\nX: y\r\n"s, "HTTP/1.0 200 OK\n\nb"s, "HTTP"s,
          "HTTP/1.0 200 OK\r\nX: " + strZeros, strZeros + kOk, std::string(1000, '\xFF')})
        cases.push_back({Reply{strBody}, kNone, strBody});
    // What is behind 500,000 bytes is cut off; a peer that goes on for ever is left.
    for (const size_t nSize : {499999u, 500000u, 500001u, 2000000u}) {
        std::string strResponse = kOk;
        while (strResponse.size() < nSize)
            strResponse += std::to_string(strResponse.size());
        const std::string strBody =
            strResponse.substr(kOk.size(), std::min<size_t>(nSize, 500000) - kOk.size());
        cases.push_back({{strResponse.substr(0, nSize), nSize > 500001 ? kHold : kClose}, strBody, strBody});
    }
    for (const auto &[reply, strImage, strPage] : cases) {
        SCOPED_TRACE(reply.strBytes.substr(0, 100) + std::to_string(reply.strBytes.size()));
        EXPECT_TRUE(Get(reply, kImage) == strImage);
        EXPECT_TRUE(Get(reply, kPage) == strPage);
    }
}

// A signal would end this process.
TEST_F(HttpTest, PeerThatGoesAwayInTheMiddleOfTheRequestDeliversNothing) {
    const std::string strBody(1 << 24, 'x');
    for (const End end : {kReset, kLeave}) {
        server.Prescribe({"", end});
        EXPECT_EQ(Probe(server.strAddress, "x", strBody.c_str(), kPage, METHOD_POST).Fetch(), kNone);
        server.TakeRequest();
    }
}

namespace {

enum Wait { kInConnect, kInReceive, kInDrip, kInSend };

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

// A listener that nobody serves: whoever comes when its queue is full gets no answer at all.
std::vector<int> FillListener(std::string *lpstrAddress) {
    std::vector<int> sockets = {ListenOnLoopback(lpstrAddress)};
    listen(sockets[0], 0);
    const sockaddr_in address = {AF_INET, htons(80), {inet_addr(lpstrAddress->c_str())}, {}};
    for (int i = 0; i < 4; ++i) {
        sockets.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        connect(sockets.back(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    }
    return sockets;
}

}  // namespace

// Wherever a fetch waits for a silent peer: with 30,000 milliseconds over it goes on, with one more it ends.
TEST_F(HttpTest, WaitEndsAtTheLimitOrWithACancellation) {
    const std::string strLong(1 << 24, 'x');
    std::string strFull;
    const std::vector<int> sockets = FillListener(&strFull);
    platform::ReplaceTicks(TestTicks);
    const struct {
        uint32_t dwStart;
        bool bCancels;
    } aEnds[] = {{1000, false}, {0xFFFFFFFFu - 15000, false}, {1000, true}};
    for (const Wait wait : {kInConnect, kInReceive, kInDrip, kInSend}) {
        for (const auto &[dwStart, bCancels] : aEnds) {
            SCOPED_TRACE("wait " + std::to_string(wait) + " from " + std::to_string(dwStart));
            server.Prescribe({std::string(wait == kInDrip ? 100000 : 0, 'x'), kHold, 1});
            g_dwNow = dwStart;
            Probe probe(wait == kInConnect ? strFull : server.strAddress, "x",
                        wait == kInSend ? strLong.c_str() : "", kPage, METHOD_POST);
            g_dwNow = dwStart + 30000;
            std::atomic<bool> bEnded{false};
            std::thread thread([&] {
                EXPECT_EQ(probe.Fetch(), kNone);
                bEnded = true;
            });
            const int nEnough = g_nLooks + 4;
            EXPECT_TRUE(WaitUntil([=] { return g_nLooks >= nEnough; }));
            EXPECT_FALSE(bEnded);
            if (bCancels)
                probe.Cancel();
            else
                g_dwNow = dwStart + 30001;
            EXPECT_TRUE(IsSwift([&] { thread.join(); }));
            EXPECT_EQ(g_nDescriptorFlags, FD_CLOEXEC) << "a process that the host starts would inherit it";
        }
    }
    server.Prescribe({""});
    std::for_each(sockets.begin(), sockets.end(), close);
}

// The buffers are of exactly their own size, so that a sanitizer sees a read behind them.
TEST(HttpHeadTest, HeadIsCutOffAndPutIntoLowerCaseForItsStatusAndType) {
    constexpr uint16_t kBefore = 0x7777;
    const auto Parse = [](const std::string &strHead) {
        const std::string strResponse = strHead + "\r\n\r\nBODY: \xC4";
        const std::unique_ptr<char[]> lpBuffer(new char[strResponse.size() + 1]);
        memcpy(lpBuffer.get(), strResponse.c_str(), strResponse.size() + 1);
        HttpInfo info = {0, 12345, kBefore};
        ParseResponse(lpBuffer.get(), &info);
        EXPECT_STREQ(lpBuffer.get() + info._dwBodyOffset, "BODY: \xC4");
        return std::tuple(std::string(lpBuffer.get()), info._dwStatus, info._wContentType);
    };
    EXPECT_EQ(Parse("Http/1.0 404 Az[@`\xC4"), std::tuple("http/1.0 404 az[@`\xC4", 404, kBefore));
    const std::pair<int, std::vector<std::string>> aStatuses[] = {{200, {"200\r\nServer: x"}},
                                                                  {2, {"2x4 x"}},
                                                                  {INT_MAX, {"99999999999999999999 x"}},
                                                                  {0, {"200", " 200 OK", "\r\n 200 OK", ""}}};
    for (const auto &[nStatus, texts] : aStatuses) {
        for (const std::string &strText : texts)
            EXPECT_EQ(std::get<1>(Parse("HTTP/1.0 " + strText)), nStatus) << strText;
    }
    const std::pair<int, std::vector<std::string>> aTypes[] = {
        {0x0101, {": Text/HTML"}},
        {0x0102, {":\ttext/plain\r\nContent-Type: audio/x"}},
        {0x0400, {": audio/x image/html"}},
        {0x0801, {": video/html\nb"}},
        {0x1000, {": application/x"}},
        {0x0200, {": image/html;"}},
        {0x0100, {": text", ": text/" + std::string(58, 'x')}},
        {0x0001, {": texts/html", ":text/html", ": /html"}},
        {0, {": tex/htm", ": text/" + std::string(59, 'x'), ": text/" + std::string(100000, 'x')}},
        {kBefore, {":  text/html", ":", ""}}};
    for (const auto &[nType, texts] : aTypes) {
        for (const std::string &strText : texts)
            EXPECT_EQ(std::get<2>(Parse("HTTP/\r\nX-Content-TYPE" + strText)), nType)
                << strText.substr(0, 80);
    }
    const std::unique_ptr<char[]> lpName(new char[14]{"content-type:"});
    uint16_t wType = kBefore;
    ParseContentType(lpName.get(), &wType);
    EXPECT_EQ(wType, kBefore);
}
