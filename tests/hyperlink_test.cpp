// Links as the reader meets them: what the A tag makes of its text, the focus, mouse and keys.
#include "hyperlink.h"

#include <sstream>

#include "engine_fixture.h"
#include "mainframe.h"

class HyperlinkTest : public EngineTest {
  protected:
    static constexpr uint32_t kLink = 0x0000FF, kActive = 0x00FFFF, kDots = 0xAFAFAF;
    static constexpr int kTab = 9, kEnter = 13;

    int CountAll(uint32_t dwColor) { return CountPixels(dwColor, 0, 0, 400, 300); }
    static std::string FocusedURL(ParsedPage &page) {
        const auto *lpFocus = page->_lpFocus;
        const bool bLink = lpFocus && lpFocus->lpData->_bTabStop;
        return bLink ? static_cast<Hyperlink *>(lpFocus->lpData)->lpszURL : "";
    }
    // The URL that was opened last; waits for what comes of it.
    static std::string OpenedURL() {
        EXPECT_TRUE(WaitForWorkers());
        return g_lpMainFrame->_lpHistory ? g_lpMainFrame->_lpHistory->lpData : "";
    }
};

TEST_F(HyperlinkTest, TextBelongsToTheLinkThatIsOpen) {
    const std::pair<const char *, const char *> aCases[] = {
        {"a<A HREF=x>b<B>c</B></A>d", R"("a" anchor x link "b" link "c" "d" )"},
        {"<A HREF=\"\">a</A><A NAME=x>b</A></A>c", R"("a" "b" "c" )"},
        {"<A HREF=x>a<A>b", R"(anchor x link "a" "b" )"},
        {"<A HREF=x><A HREF=y>a</A>b</A>c", R"(anchor x anchor y link "a" "b" "c" )"},
        {"<A HREF=x>a<P>b<H1>c", R"(anchor x link "a" link "b" link "c" )"},
    };
    for (const auto &[lpszHTML, lpszItems] : aCases) {
        std::istringstream dump(ParsedPage(lpszHTML, 400).Dump());
        std::string strItems;
        for (std::string strWord; dump >> strWord;)
            strItems += isdigit(strWord[0]) ? "" : strWord + " ";
        EXPECT_EQ(strItems, lpszItems) << lpszHTML;
    }
}

TEST_F(HyperlinkTest, TabWalksTheLinksAndEnterFollows) {
    ParsedPage page("a<A HREF=x>b</A><A HREF=y>c</A>d<A HREF=z></A>", 400);
    EXPECT_EQ(page->OnKeyDown(kEnter), 0);
    for (const char *lpszURL : {"x", "y", "z", "x", "y"}) {
        EXPECT_EQ(page->OnKeyDown(kTab), 1) << lpszURL;
        EXPECT_EQ(FocusedURL(page), lpszURL);
    }
    EXPECT_EQ(page->OnKeyDown('x'), 0);
    EXPECT_EQ(OpenedURL(), "");
    EXPECT_EQ(page->OnKeyDown(kEnter), 1);
    EXPECT_EQ(OpenedURL(), "y");
    page->OnKeyDown(kTab);
    page->Render(Buffer());
    EXPECT_EQ(CountAll(kDots), 0) << "a link without members has nothing to show";
    EXPECT_EQ(page->OnKeyDown(kEnter), 1);
    EXPECT_EQ(OpenedURL(), "z");
}

TEST_F(HyperlinkTest, EachLineOfTheFocusedLinkIsOutlined) {
    const std::string strCells = "<TABLE><TD WIDTH=60><A HREF=x>aaaa bb<TD><FONT SIZE=7>c";
    std::string strDown;
    for (int i = 0; i < 16; ++i)
        strDown += "a<BR>";
    const struct {
        const char *lpszName;
        std::string strHTML;
        int nWidth;
        std::vector<Rect> outlined;
    } aCases[] = {
        {"one word", "a<A HREF=x>b</A>", 400, {{10, 0, 10, 18}}},
        {"two members", "<A HREF=x>aa<B>bb</B></A>", 400, {{0, 0, 40, 18}}},
        {"two lines", "<A HREF=x>aa<BR>bbb</A>", 400, {{0, 0, 20, 18}, {0, 18, 30, 18}}},
        {"wrapped", "<A HREF=x>aaaa bb</A>", 60, {{0, 0, 40, 18}, {0, 18, 20, 18}}},
        {"wrapped, and more", "<A HREF=x>aaaa bb<B>c</B></A>", 60, {{0, 0, 40, 18}, {0, 18, 30, 18}}},
        {"in two columns", strCells, 400, {{0, 0, 40, 18}, {0, 18, 30, 25}}},
        {"cut at the right", "<A HREF=x>" + std::string(50, 'w') + "</A>", 400, {{0, 0, 400, 18}}},
        {"cut at the bottom", strDown + "<A HREF=x>b</A>", 400, {{0, 288, 10, 12}}},
        {"below the page", strDown + "a<BR><A HREF=x>b</A>", 400, {}},
    };
    for (const auto &testCase : aCases) {
        SCOPED_TRACE(testCase.lpszName);
        ParsedPage page(testCase.strHTML, testCase.nWidth);
        page->Render(Buffer());
        const int nInk = CountAll(kLink);
        page->OnKeyDown(kTab);
        page->Render(Buffer());
        int nDots = 0;
        for (const Rect &rc : testCase.outlined) {
            // Every second pixel of an outline that leaves out the last row of the rectangle.
            const int nExpected = 2 * ((rc.w - 1) / 2) + 2 * ((rc.h - 2) / 2);
            EXPECT_EQ(CountPixels(kDots, rc.x, rc.y, rc.w, rc.h - 1), nExpected);
            nDots += nExpected;
        }
        EXPECT_EQ(CountAll(kDots), nDots);
        EXPECT_EQ(CountAll(kLink), 0);

        page->AddDirtyRect(0, 0, 0, 0);
        page->Render(Buffer());
        EXPECT_EQ(CountAll(kActive), nInk) << "painted again for another reason: no outline";
        page->OnKeyDown(kTab);  // the only link again
        page->Render(Buffer());
        EXPECT_EQ(CountAll(kDots), nDots);
        page->OnLMouseDown(399, 299);
        page->Render(Buffer());
        EXPECT_EQ(CountAll(kDots), 0);
        EXPECT_EQ(CountAll(kLink), nInk);
    }
}

TEST_F(HyperlinkTest, AClickIsAPressAndAReleaseOnTheSameLink) {
    ParsedPage page("<A HREF=w></A>d<BR><A HREF=x>aaaa bb</A><BR><A HREF=z><A HREF=y>c</A>", 60);
    EXPECT_EQ(page->OnLMouseDown(5, 23), 1);
    EXPECT_EQ(FocusedURL(page), "") << "a press that no move has led up to";
    const struct {
        uint16_t x, yPress, yRelease;
        int nResult;
        const char *lpszFocus, *lpszOpened;
    } aClicks[] = {
        {5, 23, 59, 0, "x", ""},   // released on the other link
        {5, 59, 200, 0, "y", ""},  // released beside the links
        {5, 23, 43, 1, "x", "x"},  // the two pieces of one link
        {5, 59, 59, 1, "y", "y"},  // of links in links the inner one
        {0, 0, 0, 0, "", "y"},     // a link without members is nowhere
    };
    for (const auto &click : aClicks) {
        SCOPED_TRACE(std::to_string(click.yPress) + " to " + std::to_string(click.yRelease));
        page->OnMouseMove(click.x, click.yPress);
        EXPECT_EQ(page->OnLMouseUp(click.x, click.yPress), 0) << "a release without a press";
        EXPECT_EQ(page->OnLMouseDown(click.x, click.yPress), 1);
        EXPECT_EQ(FocusedURL(page), click.lpszFocus);
        page->OnMouseMove(click.x, click.yRelease);
        EXPECT_EQ(page->OnLMouseUp(click.x, click.yRelease), click.nResult);
        EXPECT_EQ(OpenedURL(), click.lpszOpened);
    }
}
