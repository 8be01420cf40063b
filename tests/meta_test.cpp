// META: what arms a refresh, what fires it, and what takes it away.
#include "meta.h"

#include <chrono>
#include <thread>

#include "engine_fixture.h"
#include "platform/clock.h"
#include "tessel.h"
#include "workers.h"

namespace {

std::atomic<uint32_t> g_dwNow;

constexpr char kRefresh[] = "<META HTTP-EQUIV=REFRESH CONTENT=5 URL=next.html>";

}  // namespace

class MetaTest : public EngineTest {
  protected:
    // The clock stands still, so that the timer fires nothing by itself.
    void SetUp() override {
        EngineTest::SetUp();
        g_dwNow = 1000;
        platform::ReplaceTicks([] { return g_dwNow.load(); });
        WriteFile("next.html", "<TITLE>next</TITLE>");
        WriteFile("page.html", std::string("<TITLE>page</TITLE>") + kRefresh);
    }
    void TearDown() override {
        EngineTest::TearDown();
        platform::ReplaceTicks(nullptr);
    }
    static std::string Title() {
        char szTitle[TESSEL_TITLE_SIZE] = "-";
        tessel_GetTitle(szTitle);
        return szTitle;
    }
    // A tick so many milliseconds from now, and what comes of it.
    static std::string Tick(uint32_t nLater) {
        g_lpMainFrame->OnTimer(g_dwNow + nLater);
        EXPECT_TRUE(WaitForWorkers());
        return Title();
    }
};

TEST_F(MetaTest, ATagArmsARefreshOrLeavesNothing) {
    const std::pair<const char *, const char *> aCases[] = {
        {"<META HTTP-EQUIV=REFRESH CONTENT=5 URL=a.html>", "5000 a.html"},
        {"<META HTTP-EQUIV=refresh CONTENT=5;URL=a.html>", "5000 a.html"},
        {"<META HTTP-EQUIV=Refresh CONTENT=\"5;URL=a.html\">", "5000 a.html\""},
        {"<META URLX=a.html CONTENTS=1.9 HTTP-EQUIVALENT=refresh name=n>", "1000 a.html"},
        {"<META URL=a CONTENT=5 HTTP-EQUIV=x CONTENT=7s URL=b HTTP-EQUIV=REFRESH>", "7000 b"},
        {"<META HTTP-EQUIV=REFRESH CONTENT=5000000 URL=a>", "4294967295 a"},
        {"<META HTTP-EQUIV=REFRESH CONTENT=1 URL=a><META HTTP-EQUIV=REFRESH CONTENT=2 URL=b>", "1000 a"},
        {"<META HTTP-EQUIV=REFRESH CONTENT=0 URL=a><META HTTP-EQUIV=REFRESH CONTENT=2 URL=b>", "2000 b"},
        {"<META HTTP-EQUIV=REFRESHX CONTENT=5 URL=a>", ""},
        {"<META HTTP-EQUIV=REFRES CONTENT=5 URL=a>", ""},
        {"<META HTTP-EQUIV=REFRESH CONTENT=-1 URL=a>", ""},
        {"<META HTTP-EQUIV=REFRESH CONTENT=.5 URL=a>", ""},
        {"<META HTTP-EQUIV=REFRESH CONTENT URL=a>", ""},
        {"<META HTTP-EQUIV=REFRESH URL=a>", ""},
        {"<META HTTP-EQUIV=REFRESH CONTENT=5>", ""},
        {"<META CONTENT=5 URL=a><META NAME=REFRESH CONTENT=5 URL=a><META>", ""},
        {"</META HTTP-EQUIV=REFRESH CONTENT=5 URL=a>", ""},
    };
    for (const auto &[lpszHTML, lpszArmed] : aCases) {
        ParsedPage page(lpszHTML, 10);
        const List<MetaTag> *lpRecords = page->_lpMetaTags;
        const MetaRefresh *lpArmed = g_lpMainFrame->_lpRefresh;
        EXPECT_EQ(lpArmed ? std::to_string(lpArmed->_dwDelay) + " " + lpArmed->_lpszURL : "", lpszArmed)
            << lpszHTML;
        EXPECT_TRUE(lpArmed ? lpRecords->lpData == lpArmed && !lpRecords->lpNext : !lpRecords) << lpszHTML;
        EXPECT_TRUE(!lpArmed || lpArmed->_dwStart == 1000);
        tessel_OnCancel();
    }
}

TEST_F(MetaTest, ItFiresAtItsDelayAcrossTheWrapOfTheClock) {
    for (const uint32_t dwStart : {1000u, ~0u - 4998, ~0u - 4999, ~0u - 5000, ~0u}) {
        g_dwNow = dwStart;
        Load("page.html");
        EXPECT_EQ(Tick(4999), "page") << dwStart;
        EXPECT_EQ(Tick(~9u), "page") << "a tick that was on its way when the page was parsed";
        EXPECT_EQ(Tick(5000), "next") << dwStart;
        EXPECT_STREQ(g_lpMainFrame->_lpHistoryCur->lpData, "next.html") << "an entry of its own";
        tessel_Prev();
        ASSERT_TRUE(WaitForWorkers());
        EXPECT_EQ(Title(), "page");
        EXPECT_TRUE(g_lpMainFrame->_lpRefresh) << "each parse arms anew";
    }
    Load(WriteFile("self.html", "<META HTTP-EQUIV=REFRESH CONTENT=1 URL=self.html><TITLE>self</TITLE>"));
    for (int i = 0; i < 3; ++i) {
        g_dwNow += 1000;
        EXPECT_EQ(Tick(0), "self");
        EXPECT_TRUE(g_lpMainFrame->_lpRefresh && g_lpMainFrame->_lpRefresh->_dwStart == g_dwNow);
    }
}

// Nobody gets a turn to fetch meanwhile, so that no other page comes to arm one.
TEST_F(MetaTest, EveryNavigationTakesItAway) {
    const std::pair<const char *, void (*)()> aCases[] = {
        {"a URL", [] { tessel_OpenURL("page.html"); }},
        {"back", tessel_Prev},
        {"a cancellation", tessel_OnCancel},
        {"Escape", [] { tessel_OnKeyDown(0x1B); }},
        {"Alt and Left", [] { tessel_OnSysKeyDown(0x25); }},
        {"a link",
         [] {
             tessel_OnKeyDown(9);
             tessel_OnKeyDown(13);
         }},
    };
    WriteFile("page.html", std::string("<TITLE>page</TITLE><A HREF=page.html>link</A>") + kRefresh);
    for (const auto &[lpszName, lpfnNavigate] : aCases) {
        Load("next.html");
        Load("page.html");
        MetaRefresh *lpRefresh = g_lpMainFrame->_lpRefresh;
        ASSERT_TRUE(lpRefresh) << lpszName;
        FetchTurn::Waiter waiter;
        ASSERT_TRUE(g_lpMainFrame->_hFetchMutex.WaitFor(&waiter, 20000));
        lpfnNavigate();
        EXPECT_FALSE(g_lpMainFrame->_lpRefresh) << lpszName;
        EXPECT_FALSE(g_lpMainFrame->ArmRefresh(g_lpMainFrame->_lpPage, lpRefresh))
            << "nor can its page arm again";
        tessel_OnCancel();
        g_lpMainFrame->_hFetchMutex.Release();
        EXPECT_EQ(Tick(5000), "page") << lpszName;
    }
}

// What the pointer is left with, the address sanitizer would see.
TEST_F(MetaTest, ItGoesWithAFramesetDocumentAndNeverFiresInAChildFrame) {
    const std::string strFrames = "<FRAMESET COLS=200,200><FRAME SRC=page.html>";
    for (const std::string &strHTML : {kRefresh + strFrames, strFrames + kRefresh}) {
        Load(WriteFile("frames.html", strHTML));
        EXPECT_FALSE(g_lpMainFrame->_lpRefresh) << strHTML;
        const Frame *lpChild = static_cast<Frame *>(g_lpMainFrame->_lpChildren->lpData);
        EXPECT_TRUE(lpChild->_lpRefresh) << "armed, and never looked at";
        g_dwNow += 5000;
        Tick(0);
        EXPECT_STREQ(lpChild->_lpPage->_lpszTitle, "page");
        EXPECT_FALSE(g_lpMainFrame->_lpPage);
    }
}

TEST_F(MetaTest, ItFiresInRealTime) {
    platform::ReplaceTicks(nullptr);
    WriteFile("page.html", "<TITLE>page</TITLE><META HTTP-EQUIV=REFRESH CONTENT=1 URL=next.html>");
    const auto start = std::chrono::steady_clock::now();
    tessel_OpenURL("page.html");
    for (int i = 0; i < 2000 && Title() != "next"; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(Title(), "next");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(990));
}
