#include "http.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include "cases.h"
#include "engine_fixture.h"
#include "loopback_server.h"
#include "platform/clock.h"
#include "types.h"

namespace {

constexpr uint16_t kPage = ACCEPT_TEXT | ACCEPT_HTML;
constexpr uint16_t kImage = ACCEPT_TEXT | ACCEPT_IMAGE;
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
    Cases cases{"http.txt"};
    const std::ptrdiff_t nBefore = CountDescriptors();
};

}  // namespace

TEST_F(HttpTest, RequestsAreExactlyTheseBytesOrNobodyIsAsked) {
    std::string strDeaf;
    const int hDeaf = ListenOnLoopback(&strDeaf);
    shutdown(hDeaf, SHUT_RDWR);
    cases.names["HERE"] = '"' + server.strAddress + '"';
    cases.names["DEAF"] = '"' + strDeaf + '"';
    server.Prescribe({kOk + "body"});
    for (const auto &row : cases.Under("request")) {
        const std::string strPath = cases.Bytes(row[3]), strQuery = cases.Bytes(row[4]);
        SCOPED_TRACE(row[2] + " " + strPath.substr(0, 80));
        Probe probe(cases.Bytes(row[1]), row[3] == "-" ? nullptr : strPath.c_str(),
                    row[4] == "-" ? nullptr : strQuery.c_str(), kPage,
                    static_cast<uint16_t>(atoi(row[2].c_str())));
        const int nAsked = server.nAccepted;
        EXPECT_EQ(probe.Fetch(), row[5].empty() ? kNone : "body");
        EXPECT_EQ(row[5].empty() ? "" : server.TakeRequest(), cases.Bytes(row[5]));
        EXPECT_EQ(server.nAccepted, nAsked + !row[5].empty());
    }
    close(hDeaf);
}

TEST_F(HttpTest, BodyIsWhatStandsBehindAHeadThatIsAccepted) {
    const auto Expect = [this](const Reply &reply, const std::string &strImage, const std::string &strPage) {
        SCOPED_TRACE(reply.strBytes.substr(0, 100) + std::to_string(reply.strBytes.size()));
        EXPECT_TRUE(Get(reply, kImage) == strImage);
        EXPECT_TRUE(Get(reply, kPage) == strPage);
    };
    for (const auto &row : cases.Under("body for")) {
        const std::string strReply = cases.Bytes(row[1]), strBody = cases.Bytes(row[2]);
        const auto For = [&](const char *lpszWhom) {
            return row[0].find(lpszWhom) == row[0].npos ? kNone : strBody;
        };
        Expect({strReply, row[3] == "reset" ? kReset : kClose, row[3] == "drip" ? 1u : 1u << 30},
               For("pictures"), For("pages"));
    }
    // What is behind 500,000 bytes is cut off; a peer that goes on for ever is left.
    for (const size_t nSize : {499999u, 500000u, 500001u, 2000000u}) {
        std::string strReply = kOk;
        while (strReply.size() < nSize)
            strReply += std::to_string(strReply.size());
        const std::string strBody = strReply.substr(kOk.size(), std::min<size_t>(nSize, 500000) - kOk.size());
        Expect({strReply.substr(0, nSize), nSize > 500001 ? kHold : kClose}, strBody, strBody);
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
std::atomic<int> g_nLooks, g_nDescriptorFlags;

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
    const std::pair<uint32_t, bool> aEnds[] = {{1000, false}, {0xFFFFFFFFu - 15000, false}, {1000, true}};
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
    const Cases cases("http.txt");
    for (const auto &row : cases.Under("head")) {
        SCOPED_TRACE(row[1]);
        const std::string strResponse = cases.Bytes(row[1]) + "\r\n\r\nBODY: \xC4";
        const std::unique_ptr<char[]> lpBuffer(new char[strResponse.size() + 1]);
        memcpy(lpBuffer.get(), strResponse.c_str(), strResponse.size() + 1);
        HttpInfo info = {0, 12345, kBefore};
        ParseResponse(lpBuffer.get(), &info);
        EXPECT_STREQ(lpBuffer.get() + info._dwBodyOffset, "BODY: \xC4");
        EXPECT_EQ(info._dwStatus, atoi(row[2].c_str()));
        EXPECT_EQ(info._wContentType, row[3].empty() ? kBefore : std::stoi(row[3], nullptr, 16));
        EXPECT_TRUE(row[4].empty() || lpBuffer.get() == cases.Bytes(row[4]));
    }
    const std::unique_ptr<char[]> lpName(new char[14]{"content-type:"});
    uint16_t wType = kBefore;
    ParseContentType(lpName.get(), &wType);
    EXPECT_EQ(wType, kBefore);
}
