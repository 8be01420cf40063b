#include "page.h"

#include "engine_fixture.h"
#include "frameset.h"
#include "image.h"
#include "tessel.h"
#include "tessel_host.h"

namespace {

constexpr uint32_t kDot = 0x010203;

// Paints a pixel at its corner.
class Dot : public Element {
  public:
    Dot(Page *lpPage, const Rect &rc) : Element(lpPage, 0) {
        _rc = rc;
        lpPage->AddChild(this);
    }
    void Render(uint32_t *lpBuffer) override { lpBuffer[_rc.y * 400 + _rc.x] = kDot; }
};

class PageTest : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        Load(WriteFile("red.htm", "<TITLE>red</TITLE><BODY BGCOLOR=#FF0000>"));
    }
    // Paints on a clean buffer; how many pixels have this colour then.
    int Render(uint32_t dwColor) {
        std::fill_n(Buffer(), 400 * 300, kUntouched);
        tessel_Render(Buffer());
        return CountPixels(dwColor, 0, 0, 400, 300);
    }
    static std::string Title() {
        char szTitle[TESSEL_TITLE_SIZE] = "untouched";
        tessel_GetTitle(szTitle);
        return szTitle;
    }
};

}  // namespace

TEST_F(PageTest, RenderPaintsWhatIsDirtyAndWhatMeetsIt) {
    EXPECT_EQ(Render(0xFF0000), 400 * 300);
    EXPECT_EQ(Render(kUntouched), 400 * 300) << "nothing has changed";
    Page *lpPage = g_lpMainFrame->_lpPage;
    new Dot(lpPage, {8, 8, 3, 3});    // meets it
    new Dot(lpPage, {15, 10, 3, 3});  // touches it
    Dot *lpMarked = new Dot(lpPage, {300, 200, 3, 3});
    lpMarked->_bDirty = 1;
    lpPage->AddDirtyRect(12, 10, 3, 1);
    lpPage->AddDirtyRect(10, 11, 4, 3);  // both stand in (10, 10) to (15, 14)
    EXPECT_EQ(Render(kUntouched), 400 * 300 - 5 * 4 - 2);
    EXPECT_EQ(CountPixels(0xFF0000, 10, 10, 5, 4), 5 * 4);
    EXPECT_TRUE(PixelAt(8, 8) == kDot && PixelAt(300, 200) == kDot);
    EXPECT_EQ(lpMarked->_bDirty, 0);
    // What marks its own place is painted as far as there is a page.
    lpMarked->_rc = Rect(390, 295, 50, 50);
    lpMarked->Invalidate();
    EXPECT_EQ(Render(kUntouched), 400 * 300 - 10 * 5);
    EXPECT_EQ(PixelAt(390, 295), kDot);
}

// The pictures of a document begin when it has been parsed. One that was cancelled before is not shown, be it a page or
// a frameset; its pictures do not begin, and it leaves nothing to the next document. One without data is white.
TEST_F(PageTest, DocumentIsShownUnlessItWasCancelled) {
    const int aCases[][2] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
    for (const auto &[bFrameset, bCancel] : aCases) {
        SCOPED_TRACE(bFrameset * 2 + bCancel);
        platform_FetchCounts before, after;
        Load("red.htm");
        EXPECT_EQ(Title(), "red");
        platform_GetFetchCounts(&before);
        Page *lpPage = new Page(g_lpMainFrame, &g_lpMainFrame->_rc, &g_lpMainFrame->_rc, "");
        Image *lpImage = new Image(lpPage, "missing.bmp", -1, -1);
        lpPage->AddChild(lpImage);
        lpPage->AddFetch(lpImage);
        if (bCancel)
            lpPage->Cancel();
        {
            std::scoped_lock lock(g_lpMainFrame->_hPaintMutex, g_lpMainFrame->_hPageMutex);
            g_lpMainFrame->_lpFrameset = bFrameset ? new Frameset(g_lpMainFrame) : nullptr;
            lpPage->OnData();
        }
        ASSERT_TRUE(WaitForWorkers());
        platform_GetFetchCounts(&after);
        EXPECT_EQ(Title(), bCancel ? "red" : "untouched");
        EXPECT_EQ(after.images_failed - before.images_failed, bCancel ? 0u : 1u);
    }
    Load("missing.htm");
    EXPECT_EQ(Render(0xFFFFFF), 400 * 300);
    EXPECT_EQ(Title(), "untouched");
}
