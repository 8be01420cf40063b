// Framesets, from the tags to what a reader sees of them and can point at.
#include "frameset.h"

#include <set>

#include "engine_fixture.h"
#include "hyperlink.h"
#include "tessel.h"
#include "workers.h"

namespace {

Frame *AsFrame(List<Element> *lpNode) {
    return static_cast<Frame *>(lpNode->lpData);
}

// The child Frame at a place in document order.
Frame *Child(const Frame *lpFrame, int nIndex) {
    List<Element> *lpNode = List_Tail(lpFrame->_lpChildren);
    while (nIndex-- > 0)
        lpNode = lpNode->lpPrev;
    return AsFrame(lpNode);
}

// The Page under the pointer, found the way that the events take; null if there is none.
Page *HoverPage() {
    Frame *lpFrame = g_lpMainFrame;
    while (!lpFrame->_lpPage && lpFrame->_lpHover)
        lpFrame = AsFrame(lpFrame->_lpHover);
    return lpFrame->_lpPage;
}

int DepthBelow(const Frame *lpFrame) {
    int nDepth = 0;
    for (auto *lpNode = lpFrame->_lpPage ? nullptr : lpFrame->_lpChildren; lpNode; lpNode = lpNode->lpNext)
        nDepth = std::max(nDepth, 1 + DepthBelow(AsFrame(lpNode)));
    return nDepth;
}

}  // namespace

class FramesetTest : public EngineTest {
  protected:
    void SetUp() override {
        StartEngine(640, 480);
        WriteFile("link.html", "<TITLE>link</TITLE><BODY BGCOLOR=#102030><A HREF=next.html>linklinklink</A>");
        WriteFile("next.html", "<TITLE>next</TITLE>");
        for (const std::string strColour : {"red", "green", "blue"})
            WriteFile(strColour, "<BODY BGCOLOR=" + strColour + ">");
    }
    // "x,y wxh SRC;" for each FRAME, or "none" for a document that shows as a page.
    static std::string Divide(const std::string &strHTML, int nWidth = 640) {
        Frame frame(nullptr);
        frame._rc = Rect(7, 9, nWidth, 480);
        Page page(&frame, &frame._rc, &frame._rc, "");
        page.ParseHTML(strHTML.data(), static_cast<int>(strHTML.size()));
        const Frameset *lpFrameset = frame._lpFrameset;
        std::string strFrames = lpFrameset ? "" : "none";
        const List<char> *lpNode = lpFrameset ? List_Tail(lpFrameset->_lpSources) : nullptr;
        for (int i = 0; lpNode; lpNode = lpNode->lpPrev, ++i) {
            const Point &origin = lpFrameset->_aptOrigin[i];
            const Size &size = lpFrameset->_aSize[i];
            strFrames += std::to_string(origin.x) + "," + std::to_string(origin.y) + " " +
                         std::to_string(size.w) + "x" + std::to_string(size.h) + " " + lpNode->lpData + ";";
        }
        return strFrames;
    }
    int CountUntouched() { return CountPixels(kUntouched, 0, 0, 640, 480); }
    void Show(const std::string &strHTML) {
        Load(WriteFile("frameset.html", strHTML));
        tessel_Render(Buffer());
    }
    static void Press(uint16_t x, uint16_t y) {
        tessel_OnMouseMove(x, y);
        tessel_OnLMouseDown(x, y);
    }
    static std::string Title(const Frame *lpFrame) {
        return lpFrame->_lpPage && lpFrame->_lpPage->_lpszTitle ? lpFrame->_lpPage->_lpszTitle : "";
    }
};

TEST_F(FramesetTest, SizesDivideTheFrame) {
    const std::string strFrames = "><FRAME SRC=a><FRAME SRC=b><FRAME SRC=c>";
    const std::pair<const char *, const char *> aCases[] = {
        {"COLS=25%,75%", "0,0 160x480 a;160,0 480x480 b;"},
        {"ROWS=100,380", "0,0 640x100 a;0,100 640x380 b;"},
        {"ROWS=50%,50%", "0,0 640x240 a;0,240 640x240 b;"},
        {"COLS=100,*", "0,0 100x480 a;100,0 640x0 b;"},
        {"ROWS=*,100", "0,0 640x0 a;0,0 640x100 b;"},
        {"COLS=x5,7x,\"9", "0,0 640x0 a;0,0 7x480 b;7,0 640x0 c;"},
        {"COLS=\"10, 20 , +30%%\"", "0,0 10x480 a;10,0 20x480 b;30,0 192x480 c;"},
        {"COLS=10,,20", "0,0 10x480 a;10,0 640x0 b;10,0 20x480 c;"},
        {"COLS=-50,100", "0,0 -50x480 a;-50,0 100x480 b;"},
        {"COLS=0%,5000000000%,5000000000", "0,0 640x0 a;0,0 16384x480 b;16384,0 16384x480 c;"},
        {"COLS=10,10,10,10 XROWS=5", "0,0 10x480 a;10,0 10x480 b;20,0 10x480 c;"},
        {"COLS=1,2,3 colspan=4", "0,0 4x480 a;"},
        {"ROWS=5,6 COLS=1 ROWS= ", "0,0 1x480 a;"},
        {"COLS=1,2 ROWS=1,2", "none"},
        {"COLS=\"\" ROWS=\"\"", "none"},
        {"", "none"},
    };
    for (const auto &[lpszSizes, lpszFrames] : aCases)
        EXPECT_EQ(Divide("<FRAMESET " + std::string(lpszSizes) + strFrames), lpszFrames) << lpszSizes;
    EXPECT_EQ(Divide("<FRAMESET COLS=33%,29%,0.9" + strFrames, 100),
              "0,0 33x480 a;33,0 28x480 b;61,0 100x0 c;");
}

TEST_F(FramesetTest, FramesAreTakenInOrderAsFarAsThereAreSizes) {
    const std::pair<std::string, const char *> aCases[] = {
        {"<FRAMESET COLS=1,2><FRAME SRC=a>", "0,0 1x480 a;"},
        {"<FRAMESET COLS=1>", ""},
        {"<FRAME SRC=a><FRAMESET COLS=1,2><FRAME><FRAME SRC=b SRCX=c><FRAME SRC=>",
         "0,0 1x480 c;1,0 2x480 ;"},
        {"<FRAMESET COLS=1,2><FRAME SRC=a><FRAMESET ROWS=5,6><FRAME SRC=b></FRAMESET><FRAME "
         "SRC=c></FRAMESET>",
         "0,0 1x480 a;1,0 2x480 b;"},
        {"</FRAMESET COLS=1></FRAME SRC=a><FRAMESET COLS=3></FRAME SRC=a><FRAME SRC=b>", "0,0 3x480 b;"},
        {"<FRAMESET COLS=1 ROWS=1><FRAMESET COLS=2><FRAME SRC=a>", "0,0 2x480 a;"},
    };
    for (const auto &[strHTML, lpszFrames] : aCases)
        EXPECT_EQ(Divide(strHTML), lpszFrames) << strHTML;
    std::string strMany = "<FRAMESET ROWS=1,1,1,1,1,1,1,1,1,1,1,1>";
    for (int i = 0; i < 1000; ++i)
        strMany += "<FRAME SRC=a>";
    const std::string strTaken = Divide(strMany);
    EXPECT_EQ(std::count(strTaken.begin(), strTaken.end(), ';'), 10);
}

// Three deep; the last one oversteps the frames around it.
TEST_F(FramesetTest, WhatIsUnderThePointerIsWhatIsPaintedThere) {
    WriteFile("inner.html", "<FRAMESET COLS=50,100,500><FRAME SRC=red><FRAME SRC=link.html><FRAME SRC=blue>");
    WriteFile("outer.html", "<FRAMESET ROWS=37%,200><FRAME SRC=green><FRAME SRC=inner.html>");
    Show("<BODY BGCOLOR=red><IMG SRC=x.bmp><FRAMESET COLS=100,400><FRAME SRC=blue><FRAME SRC=outer.html>");
    std::set<uint32_t> colours;
    for (uint16_t y = 4; y < 480; y = static_cast<uint16_t>(y + 11)) {
        for (uint16_t x = 4; x < 640; x = static_cast<uint16_t>(x + 7)) {
            tessel_OnMouseMove(x, y);
            const Page *lpPage = HoverPage();
            if (lpPage && lpPage->_lpHover)
                continue;  // on the link's text
            ASSERT_EQ(PixelAt(x, y), lpPage ? lpPage->_dwBgColor : kUntouched) << x << "," << y;
            colours.insert(PixelAt(x, y));
        }
    }
    EXPECT_EQ(colours, (std::set<uint32_t>{0xFF0000, 0x008000, 0x0000FF, 0x102030, kUntouched}));
    EXPECT_EQ(CountUntouched(), 640 * 480 - 100 * 480 - 400 * (177 + 200));
    const int nLink = CountPixels(0x102030, 150, 177, 100, 200);
    EXPECT_GT(nLink, 100 * 200 / 2);
    EXPECT_EQ(nLink, CountPixels(0x102030, 0, 0, 640, 480)) << "no further than its frame";

    const std::vector<uint32_t> before(Buffer(), Buffer() + 640 * 480);
    std::fill_n(Buffer(), 640 * 480, kUntouched);
    tessel_Render(Buffer());
    EXPECT_EQ(CountUntouched(), 640 * 480) << "nothing has changed";
    tessel_Invalidate();
    tessel_Render(Buffer());
    EXPECT_EQ(std::vector<uint32_t>(Buffer(), Buffer() + 640 * 480), before) << "all of it again";
    std::fill_n(Buffer(), 640 * 480, kUntouched);
    Show("<FRAMESET COLS=-50,100><FRAME SRC=red><FRAME SRC=red>");
    EXPECT_EQ(CountUntouched(), 640 * 480) << "nothing further left";
}

TEST_F(FramesetTest, FramesAreClickedInAndTypedIntoOnTheirOwn) {
    WriteFile("inner.html", "<FRAMESET ROWS=80,400><FRAME SRC=link.html><FRAME SRC=link.html>");
    Show("<FRAMESET COLS=40%,384><FRAME SRC=link.html><FRAME SRC=inner.html>");
    const Frame *lpLeft = Child(g_lpMainFrame, 0);
    const Frame *lpRight = Child(g_lpMainFrame, 1);
    const Frame *lpTop = Child(lpRight, 0);
    const Frame *lpBottom = Child(lpRight, 1);
    Press(256 + 5, 80 + 5);
    tessel_OnLMouseUp(256 + 5, 80 + 5);
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(Title(lpLeft) + Title(lpTop) + Title(lpBottom), "linklinknext");
    EXPECT_STREQ(lpBottom->_lpHistory->lpData, "next.html");
    EXPECT_FALSE(lpBottom->_lpHistory->lpNext || lpTop->_lpHistory) << "a history of its own";
    tessel_OnSysKeyDown(0x25);
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(Title(lpBottom), "next") << "only the history of the top Frame is walked";

    // A press gives the focus, keys follow it; Tab at the top finds no stop and takes it away.
    Press(5, 5);
    EXPECT_TRUE(g_lpMainFrame->_lpFocus->lpData == lpLeft && lpLeft->_lpPage->_lpFocus);
    tessel_OnKeyDown(9);
    EXPECT_FALSE(g_lpMainFrame->_lpFocus);
    tessel_OnKeyDown(13);
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(Title(lpLeft), "link") << "nobody has the focus";
    Press(256 + 5, 5);
    tessel_OnKeyDown(13);
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(Title(lpLeft) + Title(lpTop) + Title(lpBottom), "linknextnext");
}

// The text of the link is 120 by 12 pixels.
TEST_F(FramesetTest, DragsAndRightPressesCountFromTheFrame) {
    WriteFile("inner.html", "<FRAMESET ROWS=300,180><FRAME SRC=red><FRAME SRC=link.html>");
    Show("<FRAMESET COLS=300,340><FRAME SRC=red><FRAME SRC=inner.html>");
    const Page *lpPage = Child(Child(g_lpMainFrame, 1), 1)->_lpPage;
    for (const auto lpfnDrag : {tessel_OnLMouseDrag, tessel_OnRMouseDrag}) {
        tessel_OnMouseMove(300 + 5, 300 + 5);
        tessel_OnRMouseDown(300 + 6, 300 + 6);
        ASSERT_TRUE(lpPage->_lpFocus && lpPage->_lpFocus == lpPage->_lpHover);
        tessel_OnRMouseUp(300 + 6, 300 + 6);
        lpfnDrag(300 + 115, 300 + 9);
        EXPECT_TRUE(lpPage->_lpHover) << "still on the text";
        lpfnDrag(300 + 115, 300 + 60);
        EXPECT_FALSE(lpPage->_lpHover) << "on the page alone";
        EXPECT_EQ(HoverPage(), lpPage);
        lpfnDrag(200, 300 + 60);
        EXPECT_FALSE(g_lpMainFrame->_lpHover) << "a drag out of the frame";
    }
}

// Loads that still wait for their turn go at once when something else comes.
TEST_F(FramesetTest, WhatReplacesAFramesetRetiresAllOfIt) {
    WriteFile("inner.html", "<FRAMESET COLS=50,50><FRAME SRC=red><FRAME SRC=link.html>");
    Show("<FRAMESET ROWS=100,100><FRAME SRC=inner.html><FRAME SRC=link.html>");
    FetchTurn::Waiter waiter;
    ASSERT_TRUE(g_lpMainFrame->_hFetchMutex.WaitFor(&waiter, 20000));
    Child(Child(g_lpMainFrame, 0), 1)->OpenURL("blue", 1, METHOD_GET);
    {
        std::scoped_lock lock(g_lpMainFrame->_hPaintMutex, g_lpMainFrame->_hPageMutex);
        g_lpMainFrame->SetPage(new Page(g_lpMainFrame, &g_lpMainFrame->_rc, &g_lpMainFrame->_rc, ""));
    }
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(Frame::CountFrames() + Workers().CountRetired(), 1);
    g_lpMainFrame->_hFetchMutex.Release();
}

TEST_F(FramesetTest, FramesetsThatShowThemselvesEnd) {
    static std::atomic<int> s_nCallbacks;
    s_nCallbacks = 0;
    tessel_SetCallback(TESSEL_CALLBACK_CHANGED, [](int) { ++s_nCallbacks; });
    Show("<FRAMESET COLS=90%><FRAME SRC=frameset.html>");
    EXPECT_EQ(DepthBelow(g_lpMainFrame), kMaxFrameDepth);
    EXPECT_EQ(Frame::CountFrames(), 1 + kMaxFrameDepth);
    EXPECT_EQ(s_nCallbacks, 1 + kMaxFrameDepth) << "one for each document";
    std::string strMany = "<FRAMESET ROWS=9%,9%,9%,9%,9%,9%,9%,9%,9%,9%>";
    for (int i = 0; i < 1000; ++i)
        strMany += "<FRAME SRC=frameset.html>";
    Show(strMany);
    EXPECT_EQ(Frame::CountFrames(), kMaxFrames);
    EXPECT_LE(DepthBelow(g_lpMainFrame), kMaxFrameDepth);
    Show("<TITLE>a page</TITLE>");
    EXPECT_EQ(Title(g_lpMainFrame), "a page");
    EXPECT_EQ(Frame::CountFrames() + Workers().CountRetired(), 1);
}

TEST_F(FramesetTest, ADocumentThatIsCancelledOrEmptyDividesNothing) {
    class CancelledPage : public Page {
      public:
        using Page::Page;
        void OnData() override {
            Cancel();
            Page::OnData();
        }
    };
    Load(WriteFile("frameset.html", "<FRAMESET COLS=50><FRAME SRC=link.html>"));
    const Frame *lpChild = Child(g_lpMainFrame, 0);
    Rect &rc = g_lpMainFrame->_rc;
    g_lpMainFrame->Fetch(new CancelledPage(g_lpMainFrame, &rc, &rc, "frameset.html"));
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_FALSE(g_lpMainFrame->_lpFrameset);
    EXPECT_EQ(Child(g_lpMainFrame, 0), lpChild) << "the old frames stay";
    Show("<TITLE>x</TITLE><FRAMESET COLS=50,50>");
    EXPECT_FALSE(g_lpMainFrame->_lpChildren || g_lpMainFrame->_lpPage) << "nothing is shown";
    EXPECT_EQ(CountUntouched(), 640 * 480);
}
