#include "page.h"

#include "engine_fixture.h"
#include "frameset.h"
#include "image.h"
#include "tessel.h"
#include "tessel_host.h"
#include "workers.h"

namespace {

constexpr uint32_t kMark = 0x010203;

// Paints a pixel of its own at its corner, and counts how often.
class Dot : public Element {
  public:
    Dot(Page *lpPage, const Rect &rc) : Element(lpPage, 0) { _rc = rc; }
    void Render(uint32_t *lpBuffer) override {
        ++nRendered;
        lpBuffer[_rc.y * 400 + _rc.x] = kMark;
    }
    int nRendered = 0;
};

// A document with a picture and, like a frameset, divisions; it can be cancelled at the end of its transfer.
class LatePage : public Page {
  public:
    LatePage(int bFrameset, int bCancel)
        : Page(g_lpMainFrame, &g_lpMainFrame->_rc, &g_lpMainFrame->_rc, "blue.htm"),
          _bFrameset(bFrameset),
          _bCancel(bCancel) {}

    void OnData() override {
        Image *lpImage = new Image(this, "missing.bmp", -1, -1);
        AddChild(lpImage);
        AddFetch(lpImage);
        if (_bFrameset)
            _lpFrame->_lpFrameset = new Frameset(_lpFrame);
        if (_bCancel)
            Cancel();
        Page::OnData();
    }

  private:
    int _bFrameset, _bCancel;
};

class PageTest : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        WriteFile("red.htm", "<TITLE>red</TITLE><BODY BGCOLOR=#FF0000>");
        WriteFile("blue.htm", "<TITLE>blue</TITLE><BODY BGCOLOR=#0000FF>");
    }
    static Page *Shown() { return g_lpMainFrame->_lpPage; }
    static std::string Title() {
        char szTitle[TESSEL_TITLE_SIZE] = "untouched";
        tessel_GetTitle(szTitle);
        return szTitle;
    }
};

}  // namespace

TEST_F(PageTest, DirtyRectangleGrowsToHoldAll) {
    const struct {
        std::vector<Rect> added;
        Rect rcDirty;
    } aCases[] = {
        {{{5, 6, 7, 8}}, {5, 6, 7, 8}},
        {{{0, 0, 0, 0}}, {0, 0, 100, 50}},
        {{{10, 10, 5, 5}, {30, 0, 10, 4}}, {10, 0, 30, 15}},
        {{{10, 10, 20, 20}, {12, 12, 2, 2}}, {10, 10, 20, 20}},
        {{{200, 5, 5, 5}, {0, 0, 0, 0}}, {0, 0, 100, 50}},
        {{{0, 0, 0, 0}, {90, 40, 20, 20}}, {0, 0, 110, 60}},
    };
    for (const auto &c : aCases) {
        ParsedPage page("", 100, 50);
        EXPECT_EQ(page->_rcDirty, Rect(0, 0, 100, 50)) << "after the layout";
        page->_rcDirty = Rect();
        for (const Rect &rc : c.added)
            page->AddDirtyRect(rc.x, rc.y, rc.w, rc.h);
        EXPECT_EQ(page->_rcDirty, c.rcDirty) << &c - aCases;
    }
}

TEST_F(PageTest, FirstRenderPaintsAllAndTheSecondNothing) {
    Load("red.htm");
    tessel_Render(Buffer());
    EXPECT_EQ(CountPixels(0xFF0000, 0, 0, 400, 300), 400 * 300);
    std::fill_n(Buffer(), 400 * 300, kUntouched);
    tessel_Render(Buffer());
    EXPECT_EQ(CountPixels(kUntouched, 0, 0, 400, 300), 400 * 300);
    tessel_Invalidate();
    tessel_Render(Buffer());
    EXPECT_EQ(CountPixels(0xFF0000, 0, 0, 400, 300), 400 * 300);
}

TEST_F(PageTest, RenderPaintsWhatIsDirtyAndWhatMeetsIt) {
    Load("red.htm");
    tessel_Render(Buffer());
    std::fill_n(Buffer(), 400 * 300, kUntouched);
    Dot *lpMeets = new Dot(Shown(), {8, 8, 3, 3}), *lpTouches = new Dot(Shown(), {15, 10, 3, 3});
    Dot *lpMarked = new Dot(Shown(), {300, 200, 3, 3});
    for (Dot *lpDot : {lpMeets, lpTouches, lpMarked})
        Shown()->AddChild(lpDot);
    Shown()->AddDirtyRect(10, 10, 5, 4);
    lpMarked->_bDirty = 1;
    for (int i = 0; i < 2; ++i)
        tessel_Render(Buffer());
    EXPECT_EQ(CountPixels(0xFF0000, 10, 10, 5, 4), 20);
    EXPECT_EQ(CountPixels(kMark, 0, 0, 400, 300), 2);
    EXPECT_EQ(CountPixels(kUntouched, 0, 0, 400, 300), 400 * 300 - 22);
    EXPECT_EQ(lpMeets->nRendered, 1);
    EXPECT_EQ(lpTouches->nRendered, 0);
    EXPECT_EQ(lpMarked->nRendered, 1);
    // An item marks its own place, which is painted as far as there is a page.
    lpMarked->_rc = Rect(390, 295, 50, 50);
    lpMarked->Invalidate();
    tessel_Render(Buffer());
    EXPECT_EQ(lpMarked->nRendered, 2);
    EXPECT_EQ(CountPixels(0xFF0000, 0, 0, 400, 300), 20 + 50 - 1);
}

TEST_F(PageTest, PageOfAFrameAtColumn100PaintsThere) {
    Frame frame(nullptr);
    frame._rc = Rect(100, 7, 50, 20);
    frame.SetParent(g_lpMainFrame);
    Page page(&frame, &frame._rc, &frame._rc, "");
    page.Relayout();
    page.Render(Buffer());
    EXPECT_EQ(CountPixels(0xFFFFFF, 100, 7, 50, 20), 50 * 20);
    EXPECT_EQ(CountPixels(kUntouched, 0, 0, 400, 300), 400 * 300 - 50 * 20);
}

TEST_F(PageTest, MissingFileShowsAWhitePageWithoutATitle) {
    Load("red.htm");
    EXPECT_EQ(Title(), "red");
    Load("missing.htm");
    tessel_Render(Buffer());
    EXPECT_EQ(CountPixels(0xFFFFFF, 0, 0, 400, 300), 400 * 300);
    EXPECT_EQ(Title(), "untouched");
}

// A cancelled document is not shown, whatever it is, and its pictures do not begin. It leaves nothing to the
// next one.
TEST_F(PageTest, CancelledDocumentLeavesThePageOnShow) {
    const struct {
        int bFrameset, bCancel;
        const char *lpszTitle;
        uint32_t dwPictures;
    } aCases[] = {{0, 0, "blue", 1}, {0, 1, "red", 0}, {1, 1, "red", 0}, {1, 0, "untouched", 1}};
    for (const auto &c : aCases) {
        platform_FetchCounts before, after;
        Load("red.htm");
        EXPECT_EQ(Title(), "red") << "before " << c.lpszTitle;
        platform_GetFetchCounts(&before);
        g_lpMainFrame->Fetch(new LatePage(c.bFrameset, c.bCancel));
        ASSERT_TRUE(WaitForWorkers());
        platform_GetFetchCounts(&after);
        EXPECT_EQ(Title(), c.lpszTitle);
        EXPECT_EQ(after.images_failed - before.images_failed, c.dwPictures) << c.lpszTitle;
        EXPECT_EQ(Workers().CountRetired(), 0);
    }
}
