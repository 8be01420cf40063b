// The routing of events and the hover, among Elements that write down what they are told.
#include "element.h"

#include <atomic>
#include <sstream>
#include <thread>
#include <utility>

#include "engine_fixture.h"
#include "tessel.h"

namespace {

std::atomic<int> g_nCallbacks;

// Writes down under its name what it is told. Its results tell who answered: 1 for a new focus, 2 for a lost
// one, 7 for everything else.
class Probe : public Element {
  public:
    Probe(std::string *lpLog, char cName, const Rect &rc)
        : Element(nullptr, 0), _lpLog(lpLog), _cName(cName) {
        _rc = rc;
    }
    int OnSetFocus() override { return Note("focus") - 6; }
    int OnKillFocus() override { return Note("blur") - 5; }
    int OnMouseEnter() override { return Note("enter"); }
    int OnMouseLeave() override { return Note("leave"); }
    int OnMouseMove(uint16_t x, uint16_t y) override { return Note("M", x, y); }
    int OnLMouseDown(uint16_t x, uint16_t y) override { return Note("L", x, y); }
    int OnRMouseDown(uint16_t x, uint16_t y) override { return Note("R", x, y); }
    int OnLMouseUp(uint16_t x, uint16_t y) override { return Note("l", x, y); }
    int OnRMouseUp(uint16_t x, uint16_t y) override { return Note("r", x, y); }
    int OnLMouseDrag(uint16_t x, uint16_t y) override { return Note("d", x, y); }
    int OnChar(int c) override { return Note("char", c); }
    int OnKeyUp(int key) override { return Note("up", key); }
    int OnKeyDown(int key) override { return Note("down", key); }
    int OnSysKeyDown(int key) override { return Note("sysdown", key); }
    int OnSysKeyUp(int key) override { return Note("sysup", key); }

  private:
    int Note(const char *lpszWhat, int x = -1, int y = -1) {
        *_lpLog += std::string{_cName, ' '} + lpszWhat + (x < 0 ? "" : std::to_string(x));
        *_lpLog += y < 0 ? " " : "," + std::to_string(y) + " ";
        return 7;
    }

    std::string *_lpLog;
    char _cName;
};

}  // namespace

class ElementTest : public EngineTest {
  protected:
    // A root at (100, 50) with two children, 20 pixels wide, that overlap from x = 10 to 20; a is the older one.
    // Gets mouse events, each a letter and a place; what the children write down, and the results.
    std::string Play(const char *lpszScript) {
        constexpr int (Element::*kEvents[])(uint16_t, uint16_t) = {
            &Element::OnMouseMove, &Element::OnLMouseDown, &Element::OnRMouseDown, &Element::OnLMouseUp,
            &Element::OnRMouseUp,  &Element::OnLMouseDrag, &Element::OnRMouseDrag};
        Element root(nullptr, 0);
        root._rc = Rect(100, 50, 200, 100);
        root.AddChild(new Probe(&_strLog, 'a', Rect(0, 0, 20, 20)));
        root.AddChild(new Probe(&_strLog, 'b', Rect(10, 0, 20, 20)));
        std::istringstream script(lpszScript);
        char cEvent, cComma;
        for (uint16_t x, y; script >> cEvent >> x >> cComma >> y;) {
            const auto lpfnEvent = kEvents[std::string("MLRlrdD").find(cEvent)];
            _strLog += "=" + std::to_string((root.*lpfnEvent)(x, y)) + " ";
        }
        return TakeLog();
    }
    std::string TakeLog() { return std::exchange(_strLog, ""); }

    std::string _strLog;
};

TEST_F(ElementTest, MouseEventsTakeTheirWay) {
    // Both edges count as inside. Every child that is hit is entered, and the oldest keeps the pointer while it is hit.
    EXPECT_EQ(Play("M100,50 M120,70 M120,71"), "a enter a M0,0 =0 a M20,20 =0 a leave =0 ");
    EXPECT_EQ(Play("M130,70 M131,70"), "b enter b M30,20 =0 b leave =0 ");
    EXPECT_EQ(Play("M105,55 M115,55 M121,55"), "a enter a M5,5 =0 a M15,5 =0 a leave b enter b M21,5 =0 ");
    EXPECT_EQ(Play("M115,55 M99,49"), "b enter a enter a M15,5 =0 a leave =0 ");
    // The hover alone gets presses, and only while it is hit; they move the focus. Right ones are not translated.
    EXPECT_EQ(Play("L105,55 R5,5"), "=1 =0 ");
    EXPECT_EQ(Play("M105,55 L105,55 L106,56"), "a enter a M5,5 =0 a focus a L5,5 =7 a L6,6 =7 ");
    EXPECT_EQ(Play("M105,55 L105,55 M125,55 R25,5"),
              "a enter a M5,5 =0 a focus a L5,5 =7 a leave b enter b M25,5 =0 a blur b focus b R25,5 =7 ");
    EXPECT_EQ(Play("M105,55 L105,55 L125,55 L105,55 R105,55"),
              "a enter a M5,5 =0 a focus a L5,5 =7 a blur =1 a focus a L5,5 =7 a blur =0 ");
    EXPECT_EQ(Play("M105,55 l105,55 r5,5 l5,5 r105,55"), "a enter a M5,5 =0 a l5,5 =7 a r5,5 =7 =0 =0 ");
    // A drag that leaves the child ends the hover.
    EXPECT_EQ(Play("M105,55 d5,6 d105,55 d5,6 r5,5"), "a enter a M5,5 =0 a d5,6 =7 a leave =1 =1 =0 ");
    EXPECT_EQ(Play("M105,55 D105,55 D5,5"), "a enter a M5,5 =0 a leave =1 =1 ");
}

// From the host through two Frames, at (100, 60) and (60, 40) of that, to a Page; and what a busy Page misses.
TEST_F(ElementTest, EventsReachThePageOfAFrameUnlessAWorkerHasIt) {
    const auto SendAll = [this] {
        g_nCallbacks = 0;
        for (auto lpfnSend : {tessel_OnMouseMove, tessel_OnLMouseDown, tessel_OnLMouseDrag, tessel_OnLMouseUp,
                              tessel_OnRMouseDown, tessel_OnRMouseUp})
            EXPECT_EQ(lpfnSend(165, 107), 0);
        for (auto lpfnSend :
             {tessel_OnChar, tessel_OnKeyDown, tessel_OnKeyUp, tessel_OnSysKeyDown, tessel_OnSysKeyUp})
            EXPECT_EQ(lpfnSend(65), 0);
        return TakeLog() + std::to_string(g_nCallbacks);
    };
    Frame *lpFrame = g_lpMainFrame;
    for (const Rect &rc : {Rect(100, 60, 300, 200), Rect(60, 40, 100, 100)}) {
        Frame *lpParent = std::exchange(lpFrame, new Frame(nullptr));
        lpFrame->_rc = rc;
        lpFrame->SetParent(lpParent);
        lpParent->AddChild(lpFrame);
    }
    tessel_SetCallback(4, [](int) {
        ++g_nCallbacks;
        auto &mutex = g_lpMainFrame->_hPageMutex;
        std::thread([&] { EXPECT_TRUE(std::unique_lock(mutex, std::try_to_lock).owns_lock()); }).join();
    });
    EXPECT_EQ(SendAll(), "0") << "there is no Page yet";
    lpFrame->OpenURL("none", 1, METHOD_GET);
    ASSERT_TRUE(WaitForWorkers());
    lpFrame->_lpPage->AddChild(new Probe(&_strLog, 'a', Rect(0, 0, 50, 50)));
    {
        std::lock_guard lock(lpFrame->_hPageMutex);
        std::thread([&] { EXPECT_EQ(SendAll(), "0"); }).join();
    }
    // The host is told of each but the move, whose result goes no further. A Page gets no keys of the system.
    EXPECT_EQ(SendAll(),
              "a enter a M5,7 a focus a L5,7 a d5,7 a l5,7 a R5,7 a r5,7 a char65 a down65 a up65 8");
    EXPECT_EQ(tessel_OnKeyDown(0x10) + tessel_OnKeyDown(0x11), 0);
    EXPECT_EQ(g_lpMainFrame->_bShift + g_lpMainFrame->_bCtrl, 2);
    EXPECT_EQ(tessel_OnKeyUp(0x10) + tessel_OnKeyUp(0x11), 0);
    EXPECT_EQ(g_lpMainFrame->_bShift + g_lpMainFrame->_bCtrl, 0);
    EXPECT_EQ(TakeLog(), "") << "Shift and Ctrl are never seen by a Page";
}

// A service that the host has lent is called inside an event, in the middle of everything.
TEST_F(ElementTest, CallsFromInsideAnEventDoNothing) {
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
    g_nCallbacks = 0;
    tessel_SetCallback(4, [](int) { ++g_nCallbacks; });
    Load(WriteFile("A", "<TITLE>A</TITLE>"));
    Page *lpPage = g_lpMainFrame->_lpPage;
    lpPage->AddChild(new Service(lpPage, 1));
    lpPage->SetFocus(lpPage->_lpChildren->lpData);
    tessel_OnChar('x');
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(Title(), "A");
    EXPECT_TRUE(!g_lpMainFrame->_lpHistory->lpNext && g_nCallbacks == 1);
}
