#include "fetch.h"

#include <arpa/inet.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "dllmain.h"
#include "engine_fixture.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "tessel.h"
#include "tessel_host.h"
#include "workers.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A Resource that remembers how it ended: 'd' with data, 'n' with none, 't' timed out, 'c' cancelled.
class Probe : public Resource {
  public:
    Probe(Page *lpPage, const std::string &strURL, uint16_t wAccept)
        : Resource(g_lpMainFrame, strURL.c_str(), wAccept, METHOD_GET) {
        _lpHolder = lpPage;
    }
    void OnData() override {
        strEnds += _lpData ? 'd' : 'n';
        strData.assign(reinterpret_cast<const char *>(_lpData), _dwLength);
    }
    void OnTimeout() override { strEnds += 't'; }
    void OnCancelled() override { strEnds += 'c'; }
    std::string strEnds, strData;
};

// Waits, for 20 seconds at most.
bool WaitUntil(const std::function<bool()> &isDone) {
    for (int i = 0; i < 20000 && !isDone(); ++i)
        std::this_thread::sleep_for(milliseconds(1));
    return isDone();
}

class FetchTest : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        _page = std::make_unique<ParsedPage>("", 10);
        WriteFile("file", "contents");
        WriteFile("a.htm", "<TITLE>a</TITLE><A HREF=b.htm>a link</A>");
    }
    void TearDown() override {
        platform::FailThreadStarts(0);
        StopEngine();
        platform::ReplaceTicks(nullptr);
        _probes.clear();
        _page.reset();
        EngineTest::TearDown();
    }

    Probe &Start(const std::string &strURL, uint16_t wAccept = ACCEPT_IMAGE) {
        _probes.push_back(std::make_unique<Probe>(_page->Get(), strURL, wAccept));
        g_lpMainFrame->Fetch(_probes.back().get());
        return *_probes.back();
    }
    // Waits until no worker has anything to do with a Probe any more; how they all ended.
    std::string Ends() {
        EXPECT_TRUE(WaitUntil([this] {
            WorkerRegistry::Lock lock(Workers()._mutex);
            return _page->Get()->_nWorkers == 0;
        }));
        std::string strEnds;
        for (const auto &lpProbe : _probes)
            strEnds += lpProbe->strEnds;
        return strEnds;
    }

    void HoldTurn() { ASSERT_TRUE(g_lpMainFrame->_hFetchMutex.WaitFor(&_waiter, 20000)); }
    void ReleaseTurn() { g_lpMainFrame->_hFetchMutex.Release(); }
    static bool WaitForQueue(int nLength) {
        return WaitUntil([=] { return g_lpMainFrame->_hFetchMutex.CountWaiting() == nLength; });
    }

    std::unique_ptr<ParsedPage> _page;
    std::vector<std::unique_ptr<Probe>> _probes;
    FetchTurn::Waiter _waiter;
};

std::atomic<uint32_t> g_dwNow;
std::atomic<int> g_nCallbacks;

}  // namespace

TEST_F(FetchTest, TurnsAreGivenInTheOrderOfAsking) {
    FetchTurn turn;
    FetchTurn::Waiter mine, aWaiters[4];
    ASSERT_TRUE(turn.WaitFor(&mine, 0));
    EXPECT_FALSE(turn.WaitFor(&aWaiters[0], 1)) << "it is taken";
    std::string strOrder;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            if (turn.WaitFor(&aWaiters[i], 20000)) {
                strOrder += std::to_string(i);
                turn.Release();
            }
        });
        ASSERT_TRUE(WaitUntil([&] { return turn.CountWaiting() == i + 1; }));
    }
    // Whoever is called off leaves the others in their order.
    aWaiters[1].wake.Set();
    threads[1].join();
    EXPECT_EQ(turn.CountWaiting(), 3);
    turn.Release();
    for (int i : {0, 2, 3})
        threads[static_cast<size_t>(i)].join();
    EXPECT_EQ(strOrder, "023");
    EXPECT_TRUE(turn.WaitFor(&mine, 0)) << "free again";
}

TEST_F(FetchTest, CancellationInTheQueueIsSeenWithinTensOfMilliseconds) {
    HoldTurn();
    auto best = Clock::duration::max();
    for (int i = 0; i < 10; ++i) {
        Probe &probe = Start("file");
        ASSERT_TRUE(WaitForQueue(1));
        const auto start = Clock::now();
        probe.Cancel();
        Ends();
        best = std::min(best, Clock::now() - start);
    }
    // The best of ten, since the machine may be busy.
    EXPECT_LT(best, milliseconds(50));
    EXPECT_EQ(Ends(), "cccccccccc");
    ReleaseTurn();
}

TEST_F(FetchTest, WaitEndsBehind30000Milliseconds) {
    tessel_SetCallback(4, [](int) { ++g_nCallbacks; });
    for (const uint32_t dwStart : {1000u, 0xFFFFFFFFu - 15000}) {
        Load("a.htm");
        g_nCallbacks = 0;
        g_dwNow = dwStart;
        static std::atomic<int> s_nLooks;
        platform::ReplaceTicks([] { return ++s_nLooks, g_dwNow.load(); });
        HoldTurn();
        Probe &probe = Start("file");
        tessel_OpenURL("missing.htm");
        ASSERT_TRUE(WaitForQueue(2));
        g_dwNow = dwStart + 30000;
        // Both look every 10 milliseconds, so that by then each has looked at this tick.
        s_nLooks = 0;
        ASSERT_TRUE(WaitUntil([] { return s_nLooks > 40; }));
        EXPECT_EQ(Workers().CountWorkers(), 2) << dwStart;
        g_dwNow = dwStart + 30001;
        ASSERT_TRUE(WaitForWorkers());
        EXPECT_EQ(probe.strEnds, "t") << dwStart;
        EXPECT_EQ(g_lpMainFrame->_lpNextPage, nullptr);
        EXPECT_STREQ(g_lpMainFrame->_lpPage->_lpszTitle, "a") << "the old page stays";
        EXPECT_EQ(g_nCallbacks, 0) << "and nobody is told";
        ReleaseTurn();
        platform::ReplaceTicks(nullptr);
    }
}

TEST_F(FetchTest, OnlyRegularFilesDeliver) {
    WriteFile("empty", "");
    WriteFile("binary", std::string("\0\xFF\r\n<", 5));
    mkdir("folder", 0700);
    WriteFile("folder/inner", "inner");
    mkfifo("fifo", 0600);
    symlink("loop", "loop");
    const int hSocket = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = {AF_UNIX, "socket"};
    ASSERT_EQ(bind(hSocket, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const struct {
        const char *lpszName;
        std::string strData;
    } aCases[] = {{"file", "contents"},
                  {"binary", {"\0\xFF\r\n<", 5}},
                  {"folder\\inner", "inner"},
                  {"folder/inner", "inner"},
                  {"empty", ""},
                  {"missing", ""},
                  {"folder", ""},
                  {"fifo", ""},
                  {"loop", ""},
                  {"socket", ""},
                  {"/dev/zero", ""},
                  {"", ""}};
    for (const auto &c : aCases) {
        Probe &probe = Start(std::string("file://") + c.lpszName);
        Ends();
        EXPECT_EQ(probe.strEnds, c.strData.empty() ? "n" : "d") << c.lpszName;
        EXPECT_EQ(probe.strData, c.strData) << c.lpszName;
    }
    close(hSocket);
}

TEST_F(FetchTest, FileThatCannotBeOpenedCountsAsMissing) {
    HoldTurn();
    Probe &probe = Start("file");
    ASSERT_TRUE(WaitForQueue(1));
    // Nobody gets a descriptor any more, not even the superuser.
    rlimit before;
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    ReleaseTurn();
    Ends();
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(probe.strEnds, "n");
}

TEST_F(FetchTest, ResourceWithoutAThreadWaitsForAnotherWorker) {
    HoldTurn();
    Start("file");
    platform::FailThreadStarts(2);
    Start("file");
    Start("file").Cancel();
    EXPECT_EQ(Workers().CountWorkers(), 1);
    ReleaseTurn();
    EXPECT_EQ(Ends(), "ddc");
}

TEST_F(FetchTest, ResourceWithoutAnyThreadIsTriedAgainThenFails) {
    platform::FailThreadStarts(1);
    Start("file");
    EXPECT_EQ(Ends(), "d");
    platform::FailThreadStarts(1000000);
    Start("file");
    Start("file");
    EXPECT_EQ(Ends(), "dnn");
    // At the end of the library they are cancelled like all others, unless the timer was faster.
    Start("file");
    tessel_ShutDown();
    EXPECT_TRUE(_probes.back()->strEnds == "c" || _probes.back()->strEnds == "n") << _probes.back()->strEnds;
}

TEST_F(FetchTest, CountsTellPagesFromPictures) {
    HoldTurn();
    Start("file", ACCEPT_TEXT | ACCEPT_HTML);
    Start("missing", ACCEPT_TEXT | ACCEPT_HTML);
    Start("missing", ACCEPT_TEXT | ACCEPT_HTML).Cancel();
    Start("file");
    Start("file");
    Start("missing");
    platform_FetchCounts counts;
    ASSERT_TRUE(WaitForQueue(5));
    platform_GetFetchCounts(&counts);
    EXPECT_EQ(counts.images_running, 3u);
    EXPECT_GE(counts.pages_running, 2u);
    ReleaseTurn();
    EXPECT_EQ(Ends(), "dncddn");
    platform_GetFetchCounts(&counts);
    const uint32_t aCounts[] = {counts.pages_running,  counts.pages_loaded,  counts.pages_failed,
                                counts.images_running, counts.images_loaded, counts.images_failed};
    const uint32_t aExpected[] = {0, 1, 2, 0, 2, 1};
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(aCounts[i], aExpected[i]) << "member " << i;
}

// Exports, and an exit, inside the callback on a thread of the library do nothing; the page counts as ended
// there.
TEST_F(FetchTest, CallbackOnAThreadOfTheLibraryCannotCallBack) {
    g_nCallbacks = 0;
    tessel_SetCallback(4, [](int nArgument) {
        EXPECT_EQ(nArgument, 0);
        platform_FetchCounts counts;
        platform_GetFetchCounts(&counts);
        EXPECT_EQ(counts.pages_running, 0u);
        tessel_OpenURL("missing.htm");
        tessel_SetCallback(4, nullptr);
        EXPECT_EQ(tessel_Init(&counts, 10, 10), 0);
        EXPECT_EQ(tessel_OnSysKeyDown(37), 0);
        tessel_ShutDown();
        DllMain(nullptr, PROCESS_DETACH);
        ++g_nCallbacks;
    });
    for (int i = 1; i <= 2; ++i) {
        Load("a.htm");
        ASSERT_TRUE(g_lpMainFrame);
        EXPECT_STREQ(g_lpMainFrame->_lpPage->_lpszTitle, "a");
        EXPECT_EQ(g_nCallbacks, i);
    }
}

TEST_F(FetchTest, ShutDownInsideACallbackOfTheHostWaitsForTheCallToEnd) {
    Load("a.htm");
    tessel_SetCallback(4, [](int) {
        tessel_ShutDown();
        EXPECT_TRUE(g_lpMainFrame);
    });
    EXPECT_EQ(tessel_OnKeyDown(9), 0);
    EXPECT_FALSE(g_lpMainFrame);
}

TEST_F(FetchTest, ShutDownDoesNotWaitForTheQueue) {
    tessel_SetCallback(4, [](int) { ADD_FAILURE() << "nothing has been loaded"; });
    HoldTurn();
    for (int i = 0; i < 200; ++i)
        Start("file");
    tessel_OpenURL("a.htm");
    const auto start = Clock::now();
    tessel_ShutDown();
    EXPECT_LT(Clock::now() - start, milliseconds(1000));
    EXPECT_EQ(Ends(), std::string(200, 'c'));
}

TEST_F(FetchTest, HostsThatNeedNoNetwork) {
    Probe probe(_page->Get(), "", ACCEPT_IMAGE);
    const uint32_t dwNone = 0xFFFFFFFF;
    const struct {
        std::string strHost;
        uint32_t dwAddress;
    } aCases[] = {{"127.0.0.1", htonl(0x7F000001)},
                  {"10.1", htonl(0x0A000001)},
                  {"0x7f.1", htonl(0x7F000001)},
                  {"0.0.0.0", 0},
                  {"localhost", htonl(0x7F000001)},
                  {"255.255.255.255", dwNone},
                  {"", dwNone},
                  {std::string(64, 'x'), dwNone},
                  {std::string(300, '1'), dwNone}};
    for (const auto &c : aCases)
        EXPECT_EQ(ResolveHost(c.strHost.c_str(), &probe), c.dwAddress) << c.strHost;
}
