// Pictures on a page, from their tags to the pixels.
#include "image.h"

#include "engine_fixture.h"
#include "table.h"
#include "tessel.h"
#include "tessel_host.h"

namespace {

// An uncompressed TGA of one colour; its 5 bits of red are all set, so that a pixel is 0xF80000. Only the last pixel of
// the top row is black.
std::string RedTGA(uint8_t bWidth, uint8_t bHeight) {
    std::string strFile = {
        0, 0,  2, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<char>(bWidth), 0, static_cast<char>(bHeight),
        0, 16, 0};
    for (int i = 1; i < bWidth * bHeight; ++i)
        strFile += std::string("\x00\x7C", 2);
    return strFile + std::string(2, '\0');
}

constexpr uint32_t kRed = 0xF80000;

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

}  // namespace

class ImageTest : public EngineTest {
  protected:
    void Show(const std::string &strHTML) {
        WriteFile("red.tga", RedTGA(20, 10));
        WriteFile("page.html", strHTML);
        Load("page.html");
        tessel_Render(Buffer());
    }
};

// Where a picture of 20 by 10 stands once it has come, or the sign for one that has not.
TEST_F(ImageTest, PicturesTakeTheirSizesWhenTheyHaveCome) {
    const struct {
        const char *lpszHTML;
        const char *lpszDump;
    } aCases[] = {
        {"a<IMG SRC=red.tga>b", "0,0 10x18 \"a\"\n10,0 20x10 box\n30,0 10x18 \"b\"\n"},
        {"<IMG SRC=red.TGA>", "0,0 28x30 box\n"},
        {"<IMG SRC=red.tga WIDTH=40 HEIGHT=5>", "0,0 40x5 box\n"},
        {"<IMG SRC=red.tga WIDTH=40>", "0,0 40x20 box\n"},
        {"<IMG SRC=red.tga HEIGHT=1>", "0,0 2x1 box\n"},
        {"<IMG SRC=red.tga WIDTH=0 HEIGHT=x>", "0,0 20x10 box\n"},
        {"<IMG SRC=red.tga WIDTH=99999 HEIGHT=99999>", "0,0 28x30 box\n"},
        {"<IMG>", "0,0 28x30 box\n"},
        {"<IMG SRC=red.tga? WIDTH=9>", "0,0 28x30 box\n"},
        {"<IMG SRC=none.tga WIDTH=9 HEIGHT=9>", "0,0 28x30 box\n"},
        {"</IMG>", "0,0 28x30 box\n"},
        {"<IMG SRC=red.tga WIDTH=9 WIDTH=x>", "0,0 9x4 box\n"},
        {"<TABLE><TR><TD><IMG SRC=red.tga HEIGHT=50><TD>b</TABLE>", "0,0 100x50 box\n100,0 10x18 \"b\"\n"},
    };
    for (const auto &testCase : aCases) {
        Show(testCase.lpszHTML);
        EXPECT_EQ(ParsedPage::Dump(g_lpMainFrame->_lpPage), testCase.lpszDump) << testCase.lpszHTML;
    }
}

TEST_F(ImageTest, PixelsOfPicturePlaceholderAndPage) {
    Show("<BODY BGCOLOR=WHITE><IMG SRC=red.tga WIDTH=30 HEIGHT=40>");
    EXPECT_EQ(CountPixels(kRed, 0, 0, 400, 300), 30 * 40 - 4);
    EXPECT_EQ(CountPixels(0xFFFFFF, 0, 0, 400, 300), 400 * 300 - 30 * 40 + 4);
    EXPECT_EQ(CountPixels(0xFFFFFF, 29, 0, 1, 4), 4) << "black lets the page through";

    ParsedPage page("<IMG SRC=red.tga>", 20);
    page->Render(Buffer());
    // The outline is cut at the page's edges, and so is the icon, which is not cut by the box.
    EXPECT_TRUE(PixelAt(0, 0) == 0x4C80AF && PixelAt(19, 27) == 0x4C80AF);
    EXPECT_EQ(PixelAt(5, 5), 0x808080u);
    EXPECT_EQ(PixelAt(6, 6), 0xFFFFFFu);
    EXPECT_EQ(PixelAt(20, 0), kRed) << "outside the page, from before";
}

// The name is that of the tag, but the file is the PCX beside it.
TEST_F(ImageTest, AGIFIsAskedForAsAPCX) {
    ParsedPage page("<IMG SRC=\"a.GIF\"><IMG SRC=b.jpeg><IMG SRC=.JPG>", 400);
    ASSERT_TRUE(page->_lpFetches && page->_lpFetches->lpNext);
    EXPECT_STREQ(page->_lpFetches->lpNext->lpData->_lpszURL, "a.pcx");
    EXPECT_STREQ(page->_lpFetches->lpData->_lpszURL, ".JPG");
    EXPECT_EQ(page->_lpFetches->lpNext->lpNext, nullptr) << "no decoder, no fetch";
}

TEST_F(ImageTest, APictureInALinkIsFollowedByAClick) {
    WriteFile("next.html", "<TITLE>next</TITLE>");
    Show("<A HREF=next.html><IMG SRC=red.tga></A>");
    tessel_OnMouseMove(5, 5);
    tessel_OnLMouseUp(5, 5);
    ASSERT_TRUE(WaitForWorkers());
    char szTitle[TESSEL_TITLE_SIZE] = "";
    tessel_GetTitle(szTitle);
    EXPECT_STREQ(szTitle, "") << "no press came first";
    tessel_OnLMouseDown(5, 5);
    tessel_OnLMouseUp(5, 5);
    ASSERT_TRUE(WaitForWorkers());
    tessel_GetTitle(szTitle);
    EXPECT_STREQ(szTitle, "next");
}

TEST_F(ImageTest, CountsTellPicturesFromPages) {
    Show("<IMG SRC=red.tga><IMG SRC=none.tga><IMG SRC=red.tga>");
    platform_FetchCounts counts;
    platform_GetFetchCounts(&counts);
    EXPECT_TRUE(counts.pages_loaded == 1 && counts.images_loaded == 2);
    EXPECT_TRUE(counts.images_failed == 1 && counts.images_running == 0);
}

// What ends without data keeps its place on the page, as the icon or, if nobody will see it, as the placeholder.
TEST_F(ImageTest, PicturesThatNeverCome) {
    constexpr char kTag[] = "<TABLE><TR><TD><IMG SRC=red.tga></TABLE>";
    ParsedPage page(kTag, 400), late(kTag, 400);
    Image *lpImage = static_cast<Image *>(page->_lpFetches->lpData);
    EXPECT_EQ(lpImage->_lpCell->_nRowWidth, -1) << "no WIDTH";
    page->Cancel();
    lpImage->OnData();
    lpImage->LoadResourceBitmap(103);
    EXPECT_TRUE(!lpImage->_bDone && !lpImage->_lpPixels && lpImage->_rc.w == 26 && lpImage->_rc.h == 28);
    page->ParseHTML(kTag, sizeof kTag - 1);
    EXPECT_EQ(page->_lpFetches->lpNext, nullptr) << "a cancelled page asks for nothing";
    lpImage = static_cast<Image *>(late->_lpFetches->lpData);
    lpImage->OnTimeout();
    EXPECT_TRUE(lpImage->_bDone && lpImage->_rc.w == 28 && lpImage->_rc.h == 30);
}

// One layout for each arrival, one look at each item in a layout: work that grows as the page does, and no faster.
TEST_F(ImageTest, FiveHundredPicturesCostOneLayoutEach) {
    WriteFile("red.tga", RedTGA(20, 10));
    std::string strHTML;
    for (int i = 0; i < 500; ++i)
        strHTML += "<IMG SRC=red.tga>";
    Page *lpPage = new Page(g_lpMainFrame, &g_lpMainFrame->_rc, &g_lpMainFrame->_rc, "test");
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
    EXPECT_TRUE(lpLast->nPlaced == 500 && s_nCallbacks == 500) << lpLast->nPlaced << " " << s_nCallbacks;
    EXPECT_EQ(lpLast->_rc, Rect(500 % 19 * 20, 500 / 19 * 10, 0, 0));
}
