#include "frame.h"

#include <atomic>

#include "engine_fixture.h"
#include "name_service.h"
#include "platform/clock.h"
#include "tessel.h"

static std::atomic<uint32_t> g_dwNow;

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
        g_dwNow = 1000;
        platform::ReplaceTicks([] { return g_dwNow.load(); });
    }
    void TearDown() override {
        EngineTest::TearDown();
        platform::ReplaceTicks(nullptr);
    }
    // While the name service is being asked, neither an event nor the end of the library waits for it.
    void ExpectSwiftEnd() {
        ASSERT_TRUE(WaitUntil([] { return g_nSlowNames.exchange(0) > 0; }));
        EXPECT_TRUE(IsSwift([this] { tessel_OnChar('x'), StopEngine(); }));
    }
};

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
    static std::atomic<int> s_nCallbacks;
    tessel_SetCallback(4, [](int) { ++s_nCallbacks; });
    Load(WriteFile("A", "<TITLE>A</TITLE>"));
    Page *lpPage = g_lpMainFrame->_lpPage;
    lpPage->AddChild(new Service(lpPage, 1));
    lpPage->SetFocus(lpPage->_lpChildren->lpData);
    tessel_OnChar('x');
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(Title(), "A");
    EXPECT_TRUE(!g_lpMainFrame->_lpHistory->lpNext && s_nCallbacks == 1);
}

TEST_F(FrameTest, SlowNamesDoNotHoldTheHost) {
    tessel_OpenURL(WriteFile("frames", "<FRAMESET COLS=400><FRAME SRC=" + NewSlowURL() + ">").c_str());
    ExpectSwiftEnd();
    RestartEngine();
    Load(WriteFile("refresh", "<META HTTP-EQUIV=REFRESH CONTENT=5 URL=" + NewSlowURL() + ">"));
    g_dwNow += 5000;
    ExpectSwiftEnd();
}
