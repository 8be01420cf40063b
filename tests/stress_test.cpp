// A host that does what no person would: loads replaced, cancelled, walked through the history, painted and
// pointed at in the middle of it all, and shut down at any moment. What it proves, the sanitizers see.
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "dllmain.h"
#include "engine_fixture.h"
#include "frameset.h"
#include "tessel.h"
#include "tessel_host.h"
#include "workers.h"

namespace {

std::atomic<int> g_nCallbacks{0};
std::atomic<bool> g_bDown{false};

void OnChanged(int) {
    EXPECT_FALSE(g_bDown) << "a callback after the shut down";
    ++g_nCallbacks;
}

constexpr const char *kPages[] = {"short.html", "long.html", "links.html", "empty.html", "missing.html",
                                  "noroom/",    ""};

}  // namespace

class StressTest : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        WriteFile("short.html", "<TITLE>short</TITLE>short");
        std::string strLong = "<TITLE>long</TITLE>";
        for (int i = 0; i < 600; ++i)
            strLong += "<B>some bold</B> words and <A HREF=short.html>a link</A> to follow<BR>";
        WriteFile("long.html", strLong);
        WriteFile(
            "links.html",
            "<A HREF=long.html>one link that is long enough to be hit</A><BR><A HREF=missing.html>two</A>"
            "<FORM ACTION=long.html><INPUT SIZE=9><INPUT TYPE=SUBMIT VALUE=\"a button to be hit\">");
        WriteFile("empty.html", "");
    }

    void TearDown() override {
        StopEngine();
        EXPECT_EQ(Workers().CountWorkers(), 0);
        EngineTest::TearDown();
    }

    const char *RandomPage() { return kPages[_random() % std::size(kPages)]; }

    void DoSomething() {
        const auto x = static_cast<uint16_t>(_random() % 450);
        const auto y = static_cast<uint16_t>(_random() % 60);
        char szTitle[TESSEL_TITLE_SIZE];
        switch (_random() % 14) {
            case 0:
            case 1:
            case 2:
                return tessel_OpenURL(RandomPage());
            case 3:
                return tessel_Prev();
            case 4:
                return tessel_Next();
            case 5:
                return static_cast<void>(tessel_OnKeyDown(0x1B));
            case 6:
                return tessel_OnCancel();
            case 7:
                return tessel_Render(Buffer());
            case 8:
                return tessel_Invalidate();
            case 9:
                return tessel_GetTitle(szTitle);
            case 10:
                return static_cast<void>(tessel_OnKeyDown(_random() % 2 ? 9 : 13));
            case 11:
                return std::this_thread::sleep_for(std::chrono::microseconds(_random() % 3000));
            default:
                tessel_OnMouseMove(x, y);
                tessel_OnLMouseDown(x, y);
                tessel_OnLMouseUp(x, y);
                tessel_OnLMouseDrag(y, x);
        }
    }

    std::mt19937 _random{20260101};
};

// Several hundred loads in one life, and everything that was started has ended one way or another.
TEST_F(StressTest, OneLongLife) {
    tessel_SetCallback(TESSEL_CALLBACK_CHANGED, OnChanged);
    g_nCallbacks = 0;
    for (int i = 0; i < 2500; ++i)
        DoSomething();
    tessel_OpenURL("short.html");
    ASSERT_TRUE(WaitForWorkers());
    platform_FetchCounts counts;
    platform_GetFetchCounts(&counts);
    EXPECT_EQ(counts.pages_running, 0u);
    EXPECT_GT(counts.pages_loaded + counts.pages_failed, 500u);
    EXPECT_GT(g_nCallbacks, 100);
    char szTitle[TESSEL_TITLE_SIZE] = "";
    tessel_GetTitle(szTitle);
    EXPECT_STREQ(szTitle, "short") << "the last load wins";
    tessel_SetCallback(TESSEL_CALLBACK_CHANGED, nullptr);
}

// Many short lives, ended by ShutDown or by the unload at any moment, within a second.
TEST_F(StressTest, ManyShortLives) {
    int nWindow = 0;
    for (int nLife = 0; nLife < 120; ++nLife) {
        tessel_SetCallback(TESSEL_CALLBACK_CHANGED, OnChanged);
        for (auto i = _random() % 30; i > 0; --i)
            DoSomething();
        const auto start = std::chrono::steady_clock::now();
        if (nLife % 2)
            tessel_ShutDown();
        DllMain(&nWindow, PROCESS_DETACH);
        g_bDown = true;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << "life " << nLife;
        EXPECT_EQ(Workers().CountWorkers(), 0);
        EXPECT_EQ(Workers().CountRetired(), 0);
        g_bDown = false;
        ASSERT_EQ(DllMain(&nWindow, PROCESS_ATTACH), 1);
        ASSERT_EQ(tessel_Init(&nWindow, 400, 300), 1);
    }
}

namespace {

// A document that turns out to be a frameset, on its worker.
class FramesetPage : public Page {
  public:
    FramesetPage(Frame *lpFrame, int nDepth)
        : Page(lpFrame, &lpFrame->_rc, &lpFrame->_rc, "short.html"), _nDepth(nDepth) {}

    void OnData() override {
        const int anSizes[] = {_rc.w / 2, _rc.w / 2};
        _lpFrame->_lpFrameset = new Frameset(_lpFrame);
        _lpFrame->_lpFrameset->SetCols(anSizes, 2);
        _lpFrame->_lpFrameset->AddFrame("long.html");
        _lpFrame->_lpFrameset->AddFrame("links.html");
        Frame *lpFrame = _lpFrame;
        Page::OnData();
        if (_nDepth == 0 || lpFrame->_lpPage)
            return;
        for (auto *lpNode = lpFrame->_lpChildren; lpNode; lpNode = lpNode->lpNext) {
            Frame *lpChild = static_cast<Frame *>(lpNode->lpData);
            lpChild->Fetch(new FramesetPage(lpChild, _nDepth - 1));
        }
    }

  private:
    int _nDepth;
};

}  // namespace

// Child Frames that load, nest, are clicked in and are retired with all their loads.
TEST_F(StressTest, FramesThatComeAndGo) {
    for (int i = 0; i < 200; ++i) {
        if (i % 3 == 0)
            g_lpMainFrame->Fetch(new FramesetPage(g_lpMainFrame, i % 4));
        DoSomething();
        if (i % 50 == 49) {
            ASSERT_TRUE(WaitForWorkers());
        }
    }
}
