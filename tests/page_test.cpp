// What becomes of documents and pictures that come late, in crowds or not at all.
#include "page.h"

#include <set>

#include "engine_fixture.h"
#include "frameset.h"
#include "image.h"
#include "table.h"
#include "tessel.h"
#include "tessel_host.h"

namespace {

// Stands in a Line and counts the layouts that come by.
struct Milestone : PageItem {
    int nPlaced = 0;
    explicit Milestone(Page *lpPage) : PageItem(lpPage, 0) {}
    void Render(uint32_t *) override {}
    void PlaceInLine(Line **, int, int *, int *, Point *lpPen, int *) override {
        ++nPlaced;
        _rc = Rect(lpPen->x, lpPen->y, 0, 0);
    }
};

class CancelledPage : public Page {
  public:
    using Page::Page;
    void OnData() override {
        Cancel();
        Page::OnData();
    }
};

class PageTest : public EngineTest {
  protected:
    static Page *NewPage() {
        return new Page(g_lpMainFrame, &g_lpMainFrame->_rc, &g_lpMainFrame->_rc, "test");
    }
};

}  // namespace

// The pictures of a document begin when it has been parsed. One that was cancelled before is not shown, be it a page or
// a frameset; its pictures do not begin, and it leaves nothing to the next document. One without data is white.
TEST_F(PageTest, DocumentIsShownUnlessItWasCancelled) {
    WriteFile("red.htm", "<TITLE>red</TITLE><BODY BGCOLOR=#FF0000>");
    const int aCases[][2] = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};
    for (const auto &[bFrameset, bCancel] : aCases) {
        SCOPED_TRACE(bFrameset * 2 + bCancel);
        platform_FetchCounts before, after;
        Load("red.htm");
        EXPECT_EQ(Title(), "red");
        platform_GetFetchCounts(&before);
        Page *lpPage = NewPage();
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
        EXPECT_EQ(Title(), bCancel ? "red" : "-");
        EXPECT_EQ(after.images_failed - before.images_failed, bCancel ? 0u : 1u);
    }
    Load("missing.htm");
    tessel_Render(Buffer());
    EXPECT_EQ(CountPixels(0xFFFFFF, 0, 0, 400, 300), 400 * 300);
    EXPECT_EQ(Title(), "-");

    Load(WriteFile("frameset.html", "<FRAMESET COLS=50><FRAME SRC=red.htm>"));
    const Element *lpChild = g_lpMainFrame->_lpChildren->lpData;
    const Rect &rc = g_lpMainFrame->_rc;
    g_lpMainFrame->Fetch(new CancelledPage(g_lpMainFrame, &rc, &rc, "frameset.html"));
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_FALSE(g_lpMainFrame->_lpFrameset);
    EXPECT_EQ(g_lpMainFrame->_lpChildren->lpData, lpChild) << "the old frames stay";
}

// What ends without data keeps its place on the page, as the icon or, if nobody will see it, as the placeholder.
TEST_F(PageTest, PicturesThatNeverCome) {
    constexpr char kTag[] = "<TABLE><TR><TD><IMG SRC=red.tga></TABLE>";
    constexpr char kRefresh[] = "<IMG SRC=red.tga><META HTTP-EQUIV=REFRESH CONTENT=5 URL=x>";
    ParsedPage page(kTag, 400), late(kTag, 400);
    Image *lpImage = static_cast<Image *>(page->_lpFetches->lpData);
    EXPECT_EQ(lpImage->_lpCell->_nRowWidth, -1) << "no WIDTH";
    page->Cancel();
    g_lpMainFrame->Fetch(nullptr);
    lpImage->OnData();
    lpImage->LoadResourceBitmap(103);
    EXPECT_TRUE(!lpImage->_bDone && !lpImage->_lpPixels && lpImage->_rc.w == 26 && lpImage->_rc.h == 28);
    page->ParseHTML(kRefresh, sizeof kRefresh - 1);
    EXPECT_FALSE(page->_lpFetches->lpNext || g_lpMainFrame->_lpRefresh)
        << "a cancelled page asks for nothing";
    lpImage = static_cast<Image *>(late->_lpFetches->lpData);
    lpImage->OnTimeout();
    EXPECT_TRUE(lpImage->_bDone && lpImage->_rc.w == 28 && lpImage->_rc.h == 30);
}

TEST_F(PageTest, AColumnThatAsksForLessThanNothingAsksForNothing) {
    ParsedPage page("", 400);
    Table table(page.Get());
    table.AddColumn(-5, -1, ALIGN_RIGHT);
    const TableCell *lpCell = table.lpllCurCol->lpData;
    EXPECT_TRUE(lpCell->_nWantWidth == 0 && lpCell->_nWantHeight == 0 && lpCell->_bAlign == ALIGN_RIGHT);
}

// Arrivals share layouts, so that work grows as the page does, and no faster. The host hears of each all the same.
TEST_F(PageTest, FiveHundredPicturesShareLayouts) {
    WriteFile("red.tga", RedTGA(20, 10));
    std::string strHTML;
    for (int i = 0; i < 500; ++i)
        strHTML += "<IMG SRC=red.tga>";
    Page *lpPage = NewPage();
    lpPage->ParseHTML(strHTML.data(), static_cast<int>(strHTML.size()));
    Milestone *lpLast = new Milestone(lpPage);
    lpPage->_lpLines->lpData->AddItem(lpLast);
    lpPage->AddChild(lpLast);
    static std::atomic<int> s_nCallbacks;
    tessel_SetCallback(TESSEL_CALLBACK_CHANGED, [](int) { ++s_nCallbacks; });
    {
        std::scoped_lock lock(g_lpMainFrame->_hPaintMutex, g_lpMainFrame->_hPageMutex);
        g_lpMainFrame->SetPage(lpPage);
        for (auto *lpNode = lpPage->_lpFetches; lpNode; lpNode = lpNode->lpNext)
            g_lpMainFrame->Fetch(lpNode->lpData);
    }
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_TRUE(lpLast->nPlaced > 100 && lpLast->nPlaced < 150 && s_nCallbacks == 500)
        << lpLast->nPlaced << " " << s_nCallbacks;
    EXPECT_EQ(lpLast->_rc, Rect(500 % 19 * 20, 500 / 19 * 10, 0, 0));
}

// Painting and the mouse meet the items where they belong.
TEST_F(PageTest, ALayoutThatWasPutOffIsDoneForWhoeverLooks) {
    for (const bool bMouse : {false, true}) {
        Page *lpPage = NewPage();
        std::string strHTML = "<IMG SRC=a.bmp><IMG SRC=b.bmp>";
        for (int i = 0; i < 200; ++i)
            strHTML += "x<X>";
        lpPage->ParseHTML(strHTML.data(), static_cast<int>(strHTML.size()));
        Image *lpSecond = static_cast<Image *>(lpPage->_lpFetches->lpData);
        Image *lpFirst = static_cast<Image *>(lpPage->_lpFetches->lpNext->lpData);
        {
            std::scoped_lock lock(g_lpMainFrame->_hPaintMutex, g_lpMainFrame->_hPageMutex);
            g_lpMainFrame->SetPage(lpPage);
            lpPage->Relayout();
            lpFirst->OnData();
            lpPage->OnArrival(lpFirst);
        }
        EXPECT_TRUE(lpPage->IsLayoutDue() && lpSecond->_rc.x == 26);
        bMouse ? (void)tessel_OnMouseMove(1, 1) : (void)tessel_Render(Buffer());
        EXPECT_TRUE(!lpPage->IsLayoutDue() && lpSecond->_rc.x == lpFirst->_rc.w && lpFirst->_rc.w == 28)
            << bMouse;
    }
}

TEST_F(PageTest, ARefreshFiresInRealTime) {
    WriteFile("next.html", "<TITLE>next</TITLE>");
    const auto start = std::chrono::steady_clock::now();
    tessel_OpenURL(WriteFile("page.html", "<META HTTP-EQUIV=REFRESH CONTENT=1 URL=next.html>").c_str());
    EXPECT_TRUE(WaitUntil([] { return Title() == "next"; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(990));
}

// Three deep; the last one oversteps the frames around it.
TEST_F(PageTest, WhatIsUnderThePointerIsWhatIsPaintedThere) {
    for (const std::string strColour : {"red", "green", "blue"})
        WriteFile(strColour, "<BODY BGCOLOR=" + strColour + ">");
    WriteFile("inner.html", "<FRAMESET COLS=50,100,500><FRAME SRC=red><FRAME SRC=green><FRAME SRC=blue>");
    WriteFile("outer.html", "<FRAMESET ROWS=37%,100><FRAME SRC=green><FRAME SRC=inner.html>");
    Load(WriteFile("page.html", "<FRAMESET COLS=63,300><FRAME SRC=blue><FRAME SRC=outer.html>"));
    tessel_Render(Buffer());
    std::set<uint32_t> colours;
    // Never on an edge, which counts as inside of both frames.
    for (int i = 0; i < 57 * 27; ++i) {
        const auto x = static_cast<uint16_t>(4 + i % 57 * 7), y = static_cast<uint16_t>(4 + i / 57 * 11);
        tessel_OnMouseMove(x, y);
        const Frame *lpFrame = g_lpMainFrame;
        while (!lpFrame->_lpPage && lpFrame->_lpHover)
            lpFrame = static_cast<Frame *>(lpFrame->_lpHover->lpData);
        ASSERT_EQ(PixelAt(x, y), lpFrame->_lpPage ? lpFrame->_lpPage->_dwBgColor : kUntouched)
            << x << "," << y;
        colours.insert(PixelAt(x, y));
    }
    EXPECT_EQ(colours, (std::set<uint32_t>{0xFF0000, 0x008000, 0x0000FF, kUntouched}));
    tessel_OnMouseMove(5, 5);
    ASSERT_TRUE(g_lpMainFrame->_lpHover);
    tessel_OnRMouseDrag(399, 299);
    EXPECT_FALSE(g_lpMainFrame->_lpHover) << "a drag out of all frames";
}
