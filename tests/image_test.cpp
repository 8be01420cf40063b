// Pictures and tables on a page, from their tags to the pixels.
#include "image.h"

#include "engine_fixture.h"
#include "tessel.h"
#include "tessel_host.h"

namespace {

// An uncompressed TGA of one colour; its 5 bits of red are all set, so that a pixel is 0xF80000.
std::string RedTGA(uint8_t bWidth, uint8_t bHeight) {
    std::string strFile = {
        0, 0,  2, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<char>(bWidth), 0, static_cast<char>(bHeight),
        0, 16, 0};
    for (int i = 0; i < bWidth * bHeight; ++i)
        strFile += std::string("\x00\x7C", 2);
    return strFile;
}

constexpr uint32_t kRed = 0xF80000;

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
    };
    for (const auto &testCase : aCases) {
        Show(testCase.lpszHTML);
        EXPECT_EQ(ParsedPage::Dump(g_lpMainFrame->_lpPage), testCase.lpszDump) << testCase.lpszHTML;
    }
}

TEST_F(ImageTest, PixelsOfPicturePlaceholderAndPage) {
    Show("<BODY BGCOLOR=WHITE><IMG SRC=red.tga WIDTH=30 HEIGHT=40>");
    EXPECT_EQ(CountPixels(kRed, 0, 0, 400, 300), 30 * 40);
    EXPECT_EQ(CountPixels(0xFFFFFF, 0, 0, 400, 300), 400 * 300 - 30 * 40);

    ParsedPage page("<IMG SRC=red.tga>", 20);
    page->Render(Buffer());
    // The outline is cut at the page's edges, and so is the icon, which is not cut by the box.
    EXPECT_EQ(PixelAt(0, 0), 0x4C80AFu);
    EXPECT_EQ(PixelAt(19, 27), 0x4C80AFu);
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
    EXPECT_EQ(counts.pages_loaded, 1u);
    EXPECT_EQ(counts.images_loaded, 2u);
    EXPECT_EQ(counts.images_failed, 1u);
    EXPECT_EQ(counts.images_running, 0u);
}

// Tables as the dump shows them: rows share their columns, and a cell ends with the next one.
TEST_F(ImageTest, TablesLayOutInColumns) {
    const struct {
        const char *lpszHTML;
        const char *lpszDump;
    } aCases[] = {
        {"<TABLE><TR><TD>a<TD>b</TABLE>c", "0,0 10x18 \"a\"\n50,0 10x18 \"b\"\n0,18 10x18 \"c\"\n"},
        {"<TABLE><TR><TD>a</TD><TD>b</TD></TR><TR><TD>c</TD><TD>d</TD></TR></TABLE>",
         "0,0 10x18 \"a\"\n50,0 10x18 \"b\"\n0,18 10x18 \"c\"\n50,18 10x18 \"d\"\n"},
        {"<TABLE><TR><TD WIDTH=50%>a<TD ALIGN=RIGHT>b</TD></TABLE>", "0,0 10x18 \"a\"\n240,0 10x18 \"b\"\n"},
        {"<TABLE><TR><TD>a<TR><TD>b<TR><TD>c</TABLE>",
         "0,0 10x18 \"a\"\n50,0 10x18 \"b\"\n0,18 10x18 \"c\"\n"},
        {"<TABLE ALIGN=CENTER><TR><TD>a<TD>b</TABLE>c",
         "150,0 10x18 \"a\"\n200,0 10x18 \"b\"\n0,18 10x18 \"c\"\n"},
        {"<CENTER><TABLE><TR><TH>a<TH>b</TABLE></CENTER>", "150,0 10x18 \"a\"\n200,0 10x18 \"b\"\n"},
        {"<TR><TD>a</TD></TR>", "0,0 10x18 \"a\"\n"},
        {"<TABLE><TR><TD>aaaaaaaa<TD>b</TABLE>", "0,0 80x18 \"aaaaaaaa\"\n80,0 10x18 \"b\"\n"},
    };
    for (const auto &testCase : aCases) {
        ParsedPage page(testCase.lpszHTML, 400);
        EXPECT_EQ(page.Dump(), testCase.lpszDump) << testCase.lpszHTML;
    }
}
