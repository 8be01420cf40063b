// A host that does what no person would: loads replaced, cancelled, walked through the history, painted and
// pointed at in the middle of it all, and shut down at any moment. What it proves, the sanitizers see.
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "dllmain.h"
#include "engine_fixture.h"
#include "frameset.h"
#include "loopback_server.h"
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

// A server with every vice that a name can ask for. Pages show pictures of all kinds; those behind a query are asked
// for again and again.
Reply AnswerAsNamed(const std::string &strRequest) {
    const std::string strHead = "HTTP/1.0 200 OK\r\n\r\n";
    const std::string strName = strRequest.substr(0, strRequest.find(" HTTP/"));
    const auto Is = [&](const char *lpszKind) { return strName.find(lpszKind) != std::string::npos; };
    std::string strBody = "<TITLE>net</TITLE><A HREF=late.htm><IMG SRC=good.tga> a link</A>";
    for (const char *lpszKind : {"drip", "early", "garbage", "late", "good", "none"})
        strBody += std::string("<IMG SRC=x?") + lpszKind + ".tga><IMG SRC=" + lpszKind + ".tga>";
    strBody += Is("never") ? "<IMG SRC=x?never.tga>" : "";
    if (Is(".tga")) {
        strBody.assign(18 + 20 * 10 * 2, '\0');
        strBody[2] = 2, strBody[12] = 20, strBody[14] = 10, strBody[16] = 16;
    }
    if (Is("x?never"))
        return {"", kHold};
    if (Is("early"))
        return {strHead + strBody.substr(0, strBody.size() / 2), kReset};
    if (Is("garbage"))
        return {"HTTP/1.0 200 \r\n\xFF" + strBody + strRequest};
    return {Is("none") ? "" : strHead + strBody, kClose, Is("drip") ? strBody.size() / 20 : 1 << 20,
            Is("late") ? 15 : 0};
}

}  // namespace

class StressTest : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        tessel_SetCallback(TESSEL_CALLBACK_CHANGED, OnChanged);
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
        server.Prescribe(AnswerAsNamed);
        for (const std::string strKind :
             {"good", "drip", "early", "garbage", "late", "none", "never", "x?never"})
            _pages.push_back("http://" + server.strAddress + "/" + strKind + ".htm");
    }

    void TearDown() override {
        StopEngine();
        EXPECT_EQ(Workers().CountWorkers(), 0);
        EngineTest::TearDown();
    }

    void EndLife(bool bShutDown) {
        const auto start = std::chrono::steady_clock::now();
        if (bShutDown)
            tessel_ShutDown();
        DllMain(this, PROCESS_DETACH);
        g_bDown = true;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
        EXPECT_EQ(Workers().CountWorkers(), 0);
        EXPECT_EQ(Workers().CountRetired(), 0);
        g_bDown = false;
        RestartEngine();
        tessel_SetCallback(TESSEL_CALLBACK_CHANGED, OnChanged);
    }

    const char *RandomPage() { return _pages[_random() % _pages.size()].c_str(); }

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

    LoopbackServer server;
    std::vector<std::string> _pages{"short.html", "long.html", "links.html", "empty.html", "missing.html",
                                    "noroom/",    ""};
    std::mt19937 _random{20260101};
};

// Several hundred loads in one life, and everything that was started has ended one way or another.
TEST_F(StressTest, OneLongLife) {
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
    for (int nLife = 0; nLife < 120; ++nLife) {
        for (auto i = _random() % 30; i > 0; --i)
            DoSomething();
        EndLife(nLife % 2);
    }
}

// There is time for pictures to come, or some of them, before whatever happens to them.
TEST_F(StressTest, PicturesOfServersWithEveryVice) {
    uint32_t nLoaded = 0, nFailed = 0;
    platform_FetchCounts counts;
    for (int i = 0; i < 60; ++i) {
        tessel_OpenURL(_pages[_pages.size() - 1 - _random() % 8].c_str());
        std::this_thread::sleep_for(std::chrono::milliseconds(_random() % 60));
        for (auto n = _random() % 4; n > 0; --n)
            DoSomething();
        if (i % 4 == 3) {
            platform_GetFetchCounts(&counts);
            nLoaded += counts.images_loaded;
            nFailed += counts.images_failed;
            EndLife(i % 8 == 3);
        }
    }
    EXPECT_TRUE(nLoaded > 30 && nFailed > 30) << nLoaded << " " << nFailed;
    Load(_pages[_pages.size() - 8]);
    platform_GetFetchCounts(&counts);
    EXPECT_EQ(counts.images_loaded, 7u) << "good ones, slow ones and late ones";
    EXPECT_EQ(counts.images_failed, 6u);
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
            tessel_OnCancel();
            ASSERT_TRUE(WaitForWorkers());
        }
    }
}
