#include "fetch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "dllmain.h"
#include "engine_fixture.h"
#include "image.h"
#include "name_service.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "tessel.h"
#include "tessel_host.h"
#include "workers.h"

static std::atomic<uint32_t> g_dwNow;
static std::atomic<int> g_nLooks, g_nCallbacks;

// Fetches pictures of a Page that is not shown; no bytes are a picture, so that they stay as they came.
class FetchTest : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        _page = std::make_unique<ParsedPage>("", 10);
        WriteFile("file", "data");
        WriteFile("a.htm", "<TITLE>a</TITLE><A HREF=b.htm>a link</A>");
        g_nCallbacks = 0;
        tessel_SetCallback(4, [](int) { ++g_nCallbacks; });
    }
    void TearDown() override {
        platform::FailThreadStarts(0);
        StopEngine();
        platform::ReplaceTicks(nullptr);
        _images.clear();
        _page.reset();
        EngineTest::TearDown();
    }
    Image &Start(const std::string &strURL) {
        _images.push_back(std::make_unique<Image>(_page->Get(), strURL.c_str(), 1, 1));
        g_lpMainFrame->Fetch(_images.back().get());
        return *_images.back();
    }
    // Waits until no worker has anything to do with them any more, and all have gone home; what came, "none" or
    // "cancelled" for each.
    std::string Ends() {
        EXPECT_TRUE(WaitUntil([this] {
            const WorkerRegistry::Lock lock(WorkerRegistry::_mutex);
            return _page->Get()->_nWorkers == 0;
        }));
        EXPECT_TRUE(WaitForWorkers());
        std::string strEnds;
        for (const auto &lpImage : std::exchange(_images, {})) {
            const std::string strData(lpImage->_lpData, lpImage->_lpData + lpImage->_dwLength);
            strEnds += (lpImage->_lpData ? strData : lpImage->_bDone ? "none" : "cancelled") + " ";
        }
        return strEnds;
    }
    // Takes the turn, so that all others wait.
    void HoldTurn() { ASSERT_TRUE(Turn().WaitFor(&_waiter, 20000)); }
    static FetchTurn &Turn() { return g_lpMainFrame->_hFetchMutex; }
    static bool WaitForQueue(int nLength) {
        return WaitUntil([=] { return Turn().CountWaiting() == nLength; });
    }

    std::unique_ptr<ParsedPage> _page;
    std::vector<std::unique_ptr<Image>> _images;
    FetchTurn::Waiter _waiter;
};

TEST_F(FetchTest, TurnsAreGivenInTheOrderOfAsking) {
    HoldTurn();
    FetchTurn::Waiter aWaiters[3];
    std::string strOrder;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&, i] {
            EXPECT_TRUE(Turn().WaitFor(&aWaiters[i], 20000));
            strOrder += std::to_string(i);
            Turn().Release();
        });
        ASSERT_TRUE(WaitForQueue(i + 1));
    }
    Turn().Release();
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(strOrder, "012");
}

TEST_F(FetchTest, WaitEndsBehind30000Milliseconds) {
    platform::ReplaceTicks([] { return ++g_nLooks, g_dwNow.load(); });
    for (const uint32_t dwStart : {1000u, ~15000u}) {
        Load("a.htm");
        g_nCallbacks = 0;
        g_dwNow = dwStart;
        HoldTurn();
        Start("file");
        tessel_OpenURL("missing.htm");
        ASSERT_TRUE(WaitForQueue(2));
        g_dwNow = dwStart + 30000;
        g_nLooks = 0;
        // Both look every 10 milliseconds, so that each has seen this tick by then.
        ASSERT_TRUE(WaitUntil([] { return g_nLooks > 40; }));
        EXPECT_EQ(Workers().CountWorkers(), 2) << dwStart;
        g_dwNow = dwStart + 30001;
        ASSERT_TRUE(WaitForWorkers());
        EXPECT_EQ(Ends(), "none ") << dwStart;
        EXPECT_STREQ(g_lpMainFrame->_lpPage->_lpszTitle, "a") << "the old page stays";
        EXPECT_EQ(g_nCallbacks, 1) << "and nobody is told, but of the picture";
        Turn().Release();
    }
}

TEST_F(FetchTest, OnlyRegularFilesDeliver) {
    const std::string strBytes("\0\xFF\r\n<", 5);
    ASSERT_EQ(
        mkdir("folder", 0700) | mkfifo("fifo", 0600) | mknod("socket", S_IFSOCK, 0) | symlink("loop", "loop"),
        0);
    WriteFile("bytes", strBytes);
    WriteFile("folder/inner", "inner");
    WriteFile("empty", "");
    Start("file://bytes");
    Start("file://folder\\inner");
    EXPECT_EQ(Ends(), strBytes + " inner ");
    for (const std::string strName : {"empty", "missing", "folder", "fifo", "loop", "socket", "/dev/zero"}) {
        Start("file://" + strName);
        EXPECT_EQ(Ends(), "none ") << strName;
    }
}

TEST_F(FetchTest, ResourceWithoutAThreadWaitsForAWorkerOrIsTriedAgain) {
    HoldTurn();
    Start("file");
    platform::FailThreadStarts(1000000);
    Start("file");
    Start("file").Cancel();
    EXPECT_EQ(Workers().CountWorkers(), 1);
    Turn().Release();
    EXPECT_EQ(Ends(), "data data cancelled ");
    platform::FailThreadStarts(1);
    Start("file");
    EXPECT_EQ(Ends(), "data ");
    platform::FailThreadStarts(1000000);
    Start("file");
    Start("file");
    EXPECT_EQ(Ends(), "none none ");
    Start("file");
    tessel_ShutDown();
    EXPECT_NE(Ends(), "data ");
}

// What is called there from the library's own threads does nothing.
TEST_F(FetchTest, ExitInsideACallbackOnTheHostsThreadWaitsForItsEnd) {
    tessel_SetCallback(4, [](int) { g_nCallbacks += DllMain(nullptr, PROCESS_DETACH); });
    Load("a.htm");
    EXPECT_TRUE(g_nCallbacks == 1 && g_lpMainFrame);
    tessel_SetCallback(4, [](int) {
        tessel_ShutDown();
        EXPECT_TRUE(g_lpMainFrame);
    });
    tessel_OnKeyDown(9);
    EXPECT_FALSE(g_lpMainFrame);
}

TEST_F(FetchTest, PicturesShareAThreadUntilItIsStuck) {
    static std::atomic<bool> bHeld;
    bHeld = true;
    tessel_SetCallback(4, [](int) { EXPECT_TRUE(g_nCallbacks++ || WaitUntil([] { return !bHeld; })); });
    HoldTurn();
    Start("file");
    ASSERT_TRUE(WaitForQueue(1));
    for (int i = 0; i < 3; ++i)
        Start("file");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(Workers().CountWorkers(), 1) << "more would wait for the turn as well";
    Turn().Release();
    EXPECT_TRUE(WaitUntil([] {
        platform_FetchCounts counts;
        platform_GetFetchCounts(&counts);
        return counts.images_loaded == 4;
    })) << "though the host does not return from the first";
    bHeld = false;
    EXPECT_EQ(Ends(), "data data data data ");
}

TEST_F(FetchTest, CancellationAndShutDownDoNotWaitForTheQueue) {
    HoldTurn();
    for (int i = 0; i < 5; ++i) {
        Image &image = Start("file");
        ASSERT_TRUE(WaitForQueue(1));
        EXPECT_TRUE(IsSwift([&] {
            image.Cancel();
            EXPECT_EQ(Ends(), "cancelled ");
        }));
    }
    // Nor for a thread, which one of these two has to do without.
    Start("file");
    ASSERT_TRUE(WaitForQueue(1));
    Image &image = Start("file");
    image.Cancel();
    EXPECT_TRUE(WaitUntil([&] {
        const WorkerRegistry::Lock lock(WorkerRegistry::_mutex);
        return !image._lpWorker;
    }));
    std::string strEnds = "cancelled cancelled ";
    for (int i = 0; i < 60; ++i, strEnds += "cancelled ")
        Start("file");
    EXPECT_TRUE(IsSwift([] {
        tessel_OpenURL("a.htm");
        tessel_OnCancel();
        EXPECT_TRUE(WaitUntil([] {
            platform_FetchCounts counts;
            platform_GetFetchCounts(&counts);
            return !counts.pages_running;
        }));
    }));
    EXPECT_TRUE(IsSwift(tessel_ShutDown));
    EXPECT_EQ(Ends(), strEnds);
    EXPECT_EQ(g_nCallbacks, 0);
}

// While the name service is being asked, neither an event nor the end of the library waits for it.
TEST_F(FetchTest, SlowNamesDoNotHoldTheHost) {
    const auto ExpectSwiftEnd = [this] {
        ASSERT_TRUE(WaitUntil([] { return g_nSlowNames > 0; }));
        g_nSlowNames = 0;
        EXPECT_TRUE(IsSwift([this] { tessel_OnChar('x'), StopEngine(); }));
    };
    // The clock stands still, so that the timer does nothing by itself. A name is asked for once.
    platform::ReplaceTicks([] { return g_dwNow.load(); });
    tessel_OpenURL(WriteFile("frames", "<FRAMESET COLS=400><FRAME SRC=slow1/x>").c_str());
    ExpectSwiftEnd();
    RestartEngine();
    Load(WriteFile("refresh", "<META HTTP-EQUIV=REFRESH CONTENT=5 URL=slow2/x>"));
    g_dwNow += 5000;
    ExpectSwiftEnd();
}
