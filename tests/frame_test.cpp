#include "frame.h"

#include <netdb.h>

#include <atomic>
#include <thread>

#include "engine_fixture.h"
#include "image.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "tessel.h"
#include "workers.h"

static platform::Event g_asked;
static std::atomic<int> g_nCallbacks;
static std::atomic<uint32_t> g_dwNow;

// Take the place of the system's name service, so that no test leaves the machine: nothing but localhost exists, and
// names that begin with "slow" are never answered.
extern "C" int getaddrinfo_a(int, gaicb *alpRequests[], int, sigevent *) {
    const bool bSlow = strncmp(alpRequests[0]->ar_name, "slow", 4) == 0;
    const bool bKnown = strcmp(alpRequests[0]->ar_name, "localhost") == 0;
    alpRequests[0]->__return = bSlow ? EAI_INPROGRESS : EAI_NONAME;
    if (bKnown)
        alpRequests[0]->__return =
            getaddrinfo("localhost", nullptr, alpRequests[0]->ar_request, &alpRequests[0]->ar_result);
    if (bSlow)
        g_asked.Set();
    return 0;
}
extern "C" int gai_suspend(const gaicb *const[], int, const timespec *) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return EAI_AGAIN;
}

// A name that was asked for before would be remembered.
static std::string NewSlowURL() {
    static int s_nURLs;
    return "slow" + std::to_string(++s_nURLs) + "/x";
}

class FrameTest : public EngineTest {
  protected:
    // The clock stands still, so that the timer does nothing by itself.
    void SetUp() override {
        EngineTest::SetUp();
        for (const std::string strName : {"A", "B", "C", "D"})
            WriteFile(strName, "<TITLE>" + strName + "</TITLE>");
        g_nCallbacks = 0;
        tessel_SetCallback(4, [](int) { ++g_nCallbacks; });
        g_dwNow = 1000;
        platform::ReplaceTicks([] { return g_dwNow.load(); });
    }
    void TearDown() override {
        EngineTest::TearDown();
        platform::ReplaceTicks(nullptr);
    }
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
    // While the name service is being asked, neither an event nor the end of the library waits for it.
    void ExpectSwiftEnd() {
        ASSERT_TRUE(g_asked.WaitFor(20000));
        EXPECT_TRUE(IsSwift([this] { tessel_OnChar('x'), StopEngine(); }));
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
}

TEST_F(FrameTest, EscapeKeepsTheOldPageAndTheUrl) {
    Load("A");
    HoldTurn();
    tessel_OpenURL("B");
    tessel_OnKeyDown(0x1B);
    ASSERT_TRUE(WaitForWorkers()) << "its turn has not come";
    ReleaseTurn();
    EXPECT_EQ(State(), "B*A A");
    EXPECT_EQ(g_nCallbacks, 1) << "for A alone";
}

// A service that the host has lent is called inside an event, in the middle of everything.
TEST_F(FrameTest, CallsFromInsideAnEventDoNothing) {
    class Service : public Element {
      public:
        using Element::Element;
        int OnChar(int) override {
            uint32_t dwPixel = 0;
            tessel_OpenURL("B");
            tessel_Render(&dwPixel);
            return tessel_OnSysKeyDown(0x25);
        }
    };
    Load("A");
    Page *lpPage = g_lpMainFrame->_lpPage;
    lpPage->AddChild(new Service(lpPage, 1));
    lpPage->SetFocus(lpPage->_lpChildren->lpData);
    tessel_OnChar('x');
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(State(), "A* A");
    EXPECT_EQ(g_nCallbacks, 1);
}

TEST_F(FrameTest, FrameWithASlowNameDoesNotHoldTheHost) {
    tessel_OpenURL(WriteFile("frames", "<FRAMESET COLS=400><FRAME SRC=" + NewSlowURL() + ">").c_str());
    ExpectSwiftEnd();
}

TEST_F(FrameTest, RefreshWithASlowNameDoesNotHoldTheHost) {
    Load(WriteFile("refresh", "<META HTTP-EQUIV=REFRESH CONTENT=5 URL=" + NewSlowURL() + ">"));
    g_dwNow += 5000;
    ExpectSwiftEnd();
}
