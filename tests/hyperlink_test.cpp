// Links as the reader meets them: what the A tag makes of the text in it, the focus and its outline, mouse
// and keys.
#include "hyperlink.h"

#include "engine_fixture.h"
#include "fontmanager.h"
#include "mainframe.h"
#include "text.h"

class HyperlinkTest : public EngineTest {
  protected:
    static constexpr uint32_t kLink = 0x0000FF;
    static constexpr uint32_t kActive = 0x00FFFF;
    static constexpr uint32_t kDots = 0xAFAFAF;
    static constexpr int kTab = 9;
    static constexpr int kEnter = 13;

    int CountAll(uint32_t dwColor) { return CountPixels(dwColor, 0, 0, 400, 300); }
    static std::string FocusedURL(ParsedPage &page) {
        const auto *lpFocus = page->_lpFocus;
        return lpFocus && lpFocus->lpData->_bTabStop ? static_cast<Hyperlink *>(lpFocus->lpData)->lpszURL
                                                     : "";
    }
    // The URL that was opened last; waits for what comes of it.
    static std::string OpenedURL() {
        EXPECT_TRUE(WaitForWorkers());
        return g_lpMainFrame->_lpHistory ? g_lpMainFrame->_lpHistory->lpData : "";
    }
};

// Each text, with a '_' behind it if it is underlined; before them the link that they belong to, with its
// members.
TEST_F(HyperlinkTest, TextBelongsToTheLinkThatIsOpen) {
    const struct {
        const char *lpszHTML, *lpszTexts;
    } aCases[] = {
        {"a<A HREF=x>b<B>c</B></A>d", "a x(bc) b_ c_ d "},
        {"<A HREF=\"\">a</A><A NAME=x>b</A></A>c", "a b c "},
        {"<A HREF=x>a<A>b", "x(a) a_ b "},
        {"<A HREF=x>a<A NAME=y>b</A>c", "x(a) a_ b c "},
        {"<A HREF=x><A HREF=y>a</A>b</A>c", "x() y(a) a_ b_ c "},
        {"<A HREF=x>a<P>b<H1>c", "x(abc) a_ b_ c_ "},
        {"<U>a<A HREF=x>b</A>c</U>d", "a_ x(b) b_ c d_ "},
        {"<A HREF=x><U>a</U>b</A>c", "x(ab) a_ b c_ "},
    };
    for (const auto &testCase : aCases) {
        ParsedPage page(testCase.lpszHTML, 400);
        std::string strTexts;
        for (auto *lpNode = List_Tail(page->_lpChildren); lpNode; lpNode = lpNode->lpPrev) {
            if (lpNode->lpData->_bTabStop) {
                strTexts += std::string(static_cast<Hyperlink *>(lpNode->lpData)->lpszURL) + "(";
                for (auto *lpMember = List_Tail(lpNode->lpData->_lpChildren); lpMember;
                     lpMember = lpMember->lpPrev)
                    strTexts += static_cast<Text *>(lpMember->lpData)->_lpszText;
                strTexts += ") ";
            } else {
                const Text *lpText = static_cast<Text *>(lpNode->lpData);
                strTexts += std::string(lpText->_lpszText) +
                            (lpText->_lpFont->_wStyle & STYLE_UNDERLINE ? "_ " : " ");
            }
        }
        EXPECT_EQ(strTexts, testCase.lpszTexts) << testCase.lpszHTML;
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
    ParsedPage page("<A HREF=x>aaaa bb</A><BR><A HREF=y>c</A><BR><A HREF=z></A>d", 60);
    EXPECT_EQ(page->OnLMouseDown(5, 5), 1);
    EXPECT_EQ(FocusedURL(page), "") << "a press that no move has led up to";
    const struct {
        uint16_t x, yPress, yRelease;
        int nResult;
        const char *lpszFocus, *lpszOpened;
    } aClicks[] = {
        {5, 5, 41, 0, "x", ""},                             // released on the other link
        {5, 5, 200, 0, "x", ""},                            // released beside the links
        {15, 25, 5, 1, "x", "x"},                           // the two pieces of one link
        {5, 41, 41, 1, "y", "y"}, {5, 65, 65, 0, "", "y"},  // text behind a link without members
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
