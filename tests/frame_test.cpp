#include "frame.h"

#include <dlfcn.h>
#include <netdb.h>

#include <atomic>

#include "engine_fixture.h"
#include "frameset.h"
#include "image.h"
#include "meta.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "tessel.h"
#include "workers.h"

static platform::Event g_asked, g_answer;
static std::atomic<int> g_nCallbacks;
static std::atomic<uint32_t> g_dwNow;

// Takes the place of the system's name service, so that no test leaves the machine: nothing but localhost exists.
// Names that begin with "slow" are answered when a test lets it.
extern "C" int getaddrinfo(const char *lpszName, const char *lpszService, const addrinfo *lpHints,
                           addrinfo **lplpResult) {
    const auto lpfnSystem = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (strcmp(lpszName, "localhost") == 0)
        return lpfnSystem(lpszName, lpszService, lpHints, lplpResult);
    if (strncmp(lpszName, "slow", 4) == 0) {
        g_asked.Set();
        g_answer.WaitFor(20000);
    }
    return EAI_NONAME;
}

using Sizes = std::vector<int>;
using Sources = std::vector<const char *>;
constexpr bool kCols = true, kRows = false;

class FrameTest : public EngineTest {
  protected:
    // The clock stands still, so that the timer does nothing by itself.
    void SetUp() override {
        EngineTest::SetUp();
        for (const std::string strName : {"A", "B", "C", "D"})
            WriteFile(strName, "<TITLE>" + strName + "</TITLE>");
        WriteFile("red", "<BODY BGCOLOR=red>");
        WriteFile("blue", "<BODY BGCOLOR=blue>");
        g_nCallbacks = 0;
        tessel_SetCallback(4, [](int) { ++g_nCallbacks; });
        g_dwNow = 1000;
        platform::ReplaceTicks([] { return g_dwNow.load(); });
    }
    void TearDown() override {
        EngineTest::TearDown();
        platform::ReplaceTicks(nullptr);
    }
    int CountAll(uint32_t dwColor) { return CountPixels(dwColor, 0, 0, 400, 300); }
    void HoldTurn() { ASSERT_TRUE(g_lpMainFrame->_hFetchMutex.WaitFor(&_waiter, 20000)); }
    void ReleaseTurn() { g_lpMainFrame->_hFetchMutex.Release(); }

    // The history, newest entry first, '*' behind the one on show; and the title.
    static std::string State(Frame *lpFrame = g_lpMainFrame) {
        std::string strState;
        for (auto *lpNode = lpFrame->_lpHistory; lpNode; lpNode = lpNode->lpNext)
            strState += std::string(lpNode->lpData) + (lpNode == lpFrame->_lpHistoryCur ? "*" : "");
        char szTitle[TESSEL_TITLE_SIZE] = "-";
        lpFrame->GetTitle(szTitle);
        return strState + " " + szTitle;
    }
    // Loads a document that turns out to be a frameset.
    static void Divide(Frame *lpFrame, bool bCols, const Sizes &sizes, const Sources &sources,
                       bool bWait = true) {
        Frameset *lpFrameset = lpFrame->_lpFrameset = new Frameset(lpFrame);
        const auto wCount = static_cast<uint16_t>(sizes.size());
        bCols ? lpFrameset->SetCols(sizes.data(), wCount) : lpFrameset->SetRows(sizes.data(), wCount);
        for (const char *lpszSource : sources)
            lpFrameset->AddFrame(lpszSource);
        lpFrame->OpenURL("A", 0, METHOD_GET);
        ASSERT_TRUE(!bWait || WaitForWorkers());
    }
    // Counted from the newest.
    static Frame *Child(Frame *lpFrame, int nIndex = 0) {
        auto *lpNode = lpFrame->_lpChildren;
        while (nIndex-- > 0)
            lpNode = lpNode->lpNext;
        return static_cast<Frame *>(lpNode->lpData);
    }
    static MetaRefresh *Arm(const char *lpszURL = "B") {
        Page *lpPage = g_lpMainFrame->_lpPage;
        MetaRefresh *lpRefresh = new MetaRefresh(nullptr, "REFRESH", "5", lpszURL, g_dwNow);
        List_Prepend<MetaTag>(lpPage->_lpMetaTags, lpRefresh);
        EXPECT_TRUE(g_lpMainFrame->ArmRefresh(lpPage, lpRefresh));
        return lpRefresh;
    }

    FetchTurn::Waiter _waiter;
};

// Nobody gets a turn to fetch meanwhile, so that nothing is asked of the hosts.
TEST_F(FrameTest, UrlsAreSplit) {
    ParsedPage page("", 10);
    HoldTurn();
    const auto Split = [&](const std::string &strURL, const char *lpszBase = "") {
        g_lpMainFrame->SetBaseHost(lpszBase);
        Image picture(page.Get(), strURL.c_str(), 1, 1);
        g_lpMainFrame->Fetch(&picture);
        picture.Cancel();
        EXPECT_TRUE(WaitForWorkers());
        std::string strParts;
        for (const char *lpszPart : {picture._lpszHost, picture._lpszPath, picture._lpszQuery})
            strParts += lpszPart ? "[" + std::string(lpszPart) + "]" : "-";
        return strParts;
    };
    EXPECT_EQ(Split("FILE://a.htm?x"), "-[a.htm?x]-");
    EXPECT_EQ(Split("HTTP://example/p/q?x=1"), "[example][p/q][x=1]");
    EXPECT_EQ(Split("http://example/p?x?y"), "[example][p][x?y]");
    EXPECT_EQ(Split("http://example?x"), "[example?x]--");
    EXPECT_EQ(Split("A", "example") + Split("./A", "example"), "-[A]--[./A]-") << "a file goes first";
    EXPECT_EQ(Split("127.0.0.1/p?q") + Split("127.1/"), "[127.0.0.1][p][q][127.1][]-");
    EXPECT_EQ(Split("localhost/"), "[localhost][]-");
    EXPECT_EQ(Split("255.255.255.255/") + Split("/p") + Split(std::string(300, '1') + "/p"), "---------");
    EXPECT_EQ(Split("img/b.gif", "example"), "---") << "there is no host img";
    EXPECT_EQ(Split("ftp://example/f", "example"), "---");
    EXPECT_EQ(Split("b.asp?y=2#z", "example"), "[example][b.asp][y=2#z]");
    EXPECT_EQ(Split("b.gif"), "---");
    const std::string strLongest(259, 'h');
    EXPECT_EQ(Split("http://" + strLongest + "/p"), "[" + strLongest + "][p]-");
    EXPECT_EQ(Split("http://h" + strLongest + "/p"), "---");
    g_lpMainFrame->Fetch(nullptr);
    ReleaseTurn();
}

TEST_F(FrameTest, HistoryIsAListAndACursor) {
    const std::pair<std::string, std::string> aCases[] = {
        {"<>", " -"}, {"A<>", "A* A"}, {"ABC<<<>", "CB*A B"}, {"ABC<<D>", "D*A D"}, {"AA<B", "B*A B"}};
    for (const auto &[strVisits, strState] : aCases) {
        Frame frame(nullptr);
        for (const char cVisit : strVisits) {
            if (cVisit == '<' || cVisit == '>')
                EXPECT_EQ(frame.OnSysKeyDown(cVisit == '<' ? 0x25 : 0x27), 1);
            else
                frame.OpenURL(std::string(1, cVisit).c_str(), 1, METHOD_GET);
            EXPECT_TRUE(WaitForWorkers());
        }
        EXPECT_EQ(State(&frame), strState) << strVisits;
    }
    // Escape keeps the old page and the URL.
    Load("A");
    HoldTurn();
    g_nCallbacks = 0;
    tessel_OpenURL("B");
    tessel_OnKeyDown(0x1B);
    ASSERT_TRUE(WaitForWorkers()) << "its turn has not come";
    ReleaseTurn();
    EXPECT_EQ(State(), "B*A A");
    EXPECT_EQ(g_nCallbacks, 0);
}

TEST_F(FrameTest, RefreshFiresAtItsDelay) {
    const uint32_t aCases[][3] = {{1000, 5999, 0}, {1000, 6000, 1}, {1000, 9000, 1}, {1000, 990, 0},
                                  {~15u, ~0u, 0},  {~15u, 4983, 0}, {~15u, 4984, 1}};
    for (const auto &[dwStart, dwTime, bFires] : aCases) {
        Load("A");
        g_dwNow = dwStart;
        const MetaRefresh *lpRefresh = Arm();
        g_lpMainFrame->OnTimer(dwTime);
        EXPECT_EQ(g_lpMainFrame->_lpRefresh, bFires ? nullptr : lpRefresh)
            << dwTime;  // the next Load disarms it
        ASSERT_TRUE(WaitForWorkers());
        EXPECT_EQ(State().back(), bFires ? 'B' : 'A') << dwTime;
    }
}

TEST_F(FrameTest, RefreshIsTakenAwayByNavigationAndWithItsPage) {
    Load("A");
    MetaRefresh *lpRefresh = Arm();
    EXPECT_FALSE(g_lpMainFrame->ArmRefresh(g_lpMainFrame->_lpPage, lpRefresh)) << "the first one stays";
    tessel_OnCancel();
    EXPECT_FALSE(g_lpMainFrame->_lpRefresh) << "a cancellation";
    EXPECT_FALSE(g_lpMainFrame->ArmRefresh(g_lpMainFrame->_lpPage, lpRefresh))
        << "of a page that arms no more";
    for (const bool bForget : {false, true}) {
        Load("A");
        EXPECT_FALSE(g_lpMainFrame->_lpRefresh) << "another load";
        Arm();
        if (bForget)
            g_lpMainFrame->Forget(g_lpMainFrame->_lpPage);
        EXPECT_EQ(g_lpMainFrame->_lpRefresh == nullptr, bForget) << "its page goes";
    }
}

TEST_F(FrameTest, FramesInFramesPaintAtTheirPlacesAsFarAsTheyCanBeSeen) {
    tessel_Render(Buffer());
    EXPECT_EQ(CountAll(kUntouched), 400 * 300) << "nothing before there is a page";
    // A FRAME too many is dropped; a row without a size gets a width, but stays 0 high.
    Divide(g_lpMainFrame, kCols, {100, 300}, {"red", "A", "blue"});
    Divide(Child(g_lpMainFrame), kRows, {100, 200, 0}, {"A", "blue", "red"});
    EXPECT_EQ(Child(Child(g_lpMainFrame))->_rc, Rect(0, 300, 300, 0));
    EXPECT_EQ(g_nCallbacks, 1 + 2 + 1 + 3) << "one for each document";
    for (int i = 0; i < 2; ++i) {
        std::fill_n(Buffer(), 400 * 300, kUntouched);
        tessel_Render(Buffer());
        EXPECT_EQ(CountPixels(0xFF0000, 0, 0, 100, 300), 100 * 300);
        EXPECT_EQ(CountPixels(0xFFFFFF, 100, 0, 300, 100), 300 * 100);
        EXPECT_EQ(CountPixels(0x0000FF, 100, 100, 300, 200), 300 * 200);
        tessel_Invalidate();
    }
    // What oversteps the frame is cut.
    Divide(g_lpMainFrame, kCols, {300, 300, 50}, {"A", "A", "red"});
    Divide(Child(g_lpMainFrame, 1), kRows, {200, 400}, {"A", "blue"});
    tessel_Render(Buffer());
    EXPECT_EQ(CountPixels(0x0000FF, 300, 200, 100, 100), 100 * 100);
    EXPECT_EQ(CountAll(0x0000FF) + CountAll(0xFF0000), 100 * 100) << "nothing further right";
    Divide(g_lpMainFrame, kCols, {-50, 100}, {"red", "red"});
    tessel_Render(Buffer());
    EXPECT_EQ(CountAll(0xFF0000), 0) << "nor further left";
}

// Those that still wait for their turn to load go at once when something else comes.
TEST_F(FrameTest, FramesInFramesEnd) {
    Frame *lpFrame = g_lpMainFrame;
    int nDepth = 0;
    for (; nDepth < 20 && (Divide(lpFrame, kCols, {400}, {"A"}), lpFrame->_lpChildren); ++nDepth)
        lpFrame = Child(lpFrame);
    EXPECT_EQ(nDepth, 8);
    Divide(g_lpMainFrame, kCols, Sizes(10, 40), Sources(10, "A"));
    for (int i = 0; i < 10; ++i)
        Divide(Child(g_lpMainFrame, i), kCols, Sizes(10, 4), Sources(10, "A"));
    EXPECT_EQ(Frame::CountFrames(), 64);
    HoldTurn();
    Child(Child(g_lpMainFrame))->OpenURL("B", 1, METHOD_GET);
    {
        std::scoped_lock lock(g_lpMainFrame->_hPaintMutex, g_lpMainFrame->_hPageMutex);
        g_lpMainFrame->SetPage(new Page(g_lpMainFrame, &g_lpMainFrame->_rc, &g_lpMainFrame->_rc, ""));
    }
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(Frame::CountFrames() + Workers().CountRetired(), 1);
    ReleaseTurn();
}

// While the name service is being asked, neither an event nor the end of the library waits for it.
TEST_F(FrameTest, FramesAndRefreshesWithSlowNamesDoNotHoldTheHost) {
    for (const bool bRefresh : {false, true}) {
        Load("A");
        const std::string strURL =
            "slow" + std::to_string(bRefresh) + "/x";  // a name that was asked for is remembered
        if (bRefresh)
            Arm(strURL.c_str());
        else
            Divide(g_lpMainFrame, kCols, {400}, {strURL.c_str()}, false);
        g_dwNow += 5000;
        ASSERT_TRUE(g_asked.WaitFor(20000));
        EXPECT_TRUE(IsSwift([this] { tessel_OnChar('x'), StopEngine(); }));
        g_answer.Set();
        RestartEngine();
    }
}
