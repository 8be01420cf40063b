// The routing of events, the hover and the focus, in a tree whose Elements write down what they are told.
#include "element.h"

#include <sstream>
#include <utility>

#include "engine_fixture.h"

namespace {

using MouseEvent = int (Element::*)(uint16_t, uint16_t);

// Writes down under its name what it is told. Its results tell who answered: 1 for a new focus, 2 for a lost
// one, 7 for everything else.
class Probe : public Element {
  public:
    Probe(std::string *lpLog, char cName, const Rect &rc, int bTabStop = 0)
        : Element(nullptr, bTabStop), _lpLog(lpLog), _cName(cName) {
        _rc = rc;
    }
    ~Probe() override { Note("gone"); }
    void Render(uint32_t *) override { Note("render"); }
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

// A root at (100, 50) with two children, 20 pixels wide, that overlap from x = 10 to 20; a is the older one.
class ElementTest : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        Restart();
    }

    void Restart() {
        _lpRoot = std::make_unique<Element>(nullptr, 0);
        _lpRoot->_rc = Rect(100, 50, 200, 100);
        _lpRoot->AddChild(_lpA = new Probe(&_strLog, 'a', Rect(0, 0, 20, 20), 1));
        _lpRoot->AddChild(_lpB = new Probe(&_strLog, 'b', Rect(10, 0, 20, 20)));
        _strLog.clear();
    }

    std::string TakeLog() { return std::exchange(_strLog, ""); }

    // Sends mouse events, each a letter and a place, and writes down what they return besides.
    std::string Play(const char *lpszScript) {
        constexpr MouseEvent kEvents[] = {
            &Element::OnMouseMove, &Element::OnLMouseDown, &Element::OnRMouseDown, &Element::OnLMouseUp,
            &Element::OnRMouseUp,  &Element::OnLMouseDrag, &Element::OnRMouseDrag};
        std::istringstream script(lpszScript);
        char cEvent, cComma;
        for (uint16_t x, y; script >> cEvent >> x >> cComma >> y;) {
            const MouseEvent lpfnEvent = kEvents[std::string("MLRlrdD").find(cEvent)];
            _strLog += "=" + std::to_string((_lpRoot.get()->*lpfnEvent)(x, y)) + " ";
        }
        return TakeLog();
    }

    std::string _strLog;
    Probe *_lpA, *_lpB;
    std::unique_ptr<Element> _lpRoot;
};

}  // namespace

TEST_F(ElementTest, HitsIncludeTheRightAndBottomEdges) {
    Element element(nullptr, 0);
    element._rc = Rect(10, 20, 20, 5);
    const int aCases[][3] = {{10, 20, 1}, {30, 25, 1}, {9, 20, 0}, {31, 20, 0}, {10, 19, 0}, {10, 26, 0}};
    for (const auto &[x, y, bHit] : aCases)
        EXPECT_EQ(element.HitTest(x, y), bHit) << x << "," << y;
}

TEST_F(ElementTest, RectanglesThatOnlyTouchDoNotIntersect) {
    Element element(nullptr, 0);
    element._rc = Rect(10, 20, 20, 5);
    const int aCases[][5] = {{30, 20, 5, 5, 0}, {5, 20, 5, 5, 0},  {10, 25, 5, 5, 0}, {10, 15, 5, 5, 0},
                             {29, 24, 5, 5, 1}, {6, 16, 5, 5, 1},  {0, 0, 99, 99, 1}, {15, 21, 1, 1, 1},
                             {15, 21, 0, 1, 0}, {15, 21, 1, 0, 0}, {0, 20, 99, 1, 1}};
    for (const auto &[x, y, w, h, bMeets] : aCases) {
        const Rect rc(x, y, w, h);
        EXPECT_EQ(element.Intersects(&rc), bMeets) << x << "," << y << " " << w << "x" << h;
    }
}

TEST_F(ElementTest, MouseEventsTakeTheirWay) {
    const struct {
        const char *lpszWhat, *lpszScript, *lpszLog;
    } aCases[] = {
        {"a child is entered, and stays hovered while it is hit", "M105,55 M115,55 M121,55",
         "a enter a M5,5 =0 a M15,5 =0 a leave b enter b M21,5 =0 "},
        {"every child that is hit is entered, the oldest keeps the pointer", "M115,55 M200,55",
         "b enter a enter a M15,5 =0 a leave =0 "},
        {"nothing is hit left of the origin", "M105,55 M99,49", "a enter a M5,5 =0 a leave =0 "},
        {"no hover, no press", "L105,55 R5,5", "=1 =0 "},
        {"a left press moves the focus once", "M105,55 L105,55 L106,56",
         "a enter a M5,5 =0 a focus a L5,5 =7 a L6,6 =7 "},
        {"a right press does so too, and is not translated", "M105,55 L105,55 M125,55 R25,5",
         "a enter a M5,5 =0 a focus a L5,5 =7 a leave b enter b M25,5 =0 a blur b focus b R25,5 =7 "},
        {"a press outside takes the focus away", "M105,55 L105,55 L125,55 L105,55 R105,55",
         "a enter a M5,5 =0 a focus a L5,5 =7 a blur =1 a focus a L5,5 =7 a blur =0 "},
        {"a release goes to the hover if that is hit", "M105,55 l105,55 r5,5 l5,5 r105,55",
         "a enter a M5,5 =0 a l5,5 =7 a r5,5 =7 =0 =0 "},
        {"a drag that leaves the child ends the hover", "M105,55 d5,6 d105,55 d5,6 r5,5",
         "a enter a M5,5 =0 a d5,6 =7 a leave =1 =1 =0 "},
        {"with the right button too", "M105,55 D105,55 D5,5", "a enter a M5,5 =0 a leave =1 =1 "},
    };
    for (const auto &c : aCases) {
        Restart();
        EXPECT_EQ(Play(c.lpszScript), c.lpszLog) << c.lpszWhat;
    }
}

TEST_F(ElementTest, SetFocusTellsTheOldAndTheNewChild) {
    EXPECT_EQ(_lpRoot->SetFocus(_lpA), 1);
    EXPECT_EQ(_lpRoot->SetFocus(_lpA), 0);
    EXPECT_EQ(_lpRoot->SetFocus(_lpB), 3);
    EXPECT_EQ(TakeLog(), "a focus a blur b focus ");
    _lpA->_lpOwner = _lpRoot.get();
    EXPECT_TRUE(_lpA->HasFocus(_lpB));
    EXPECT_FALSE(_lpA->HasFocus(_lpA));
    EXPECT_FALSE(_lpRoot->HasFocus(_lpB)) << "the root has no owner";
}

TEST_F(ElementTest, KeysReachTheFocusedChildAlone) {
    const auto Send = [this] {
        int nResults = 0;
        for (auto lpfnEvent : {&Element::OnChar, &Element::OnKeyUp, &Element::OnKeyDown,
                               &Element::OnSysKeyDown, &Element::OnSysKeyUp})
            nResults += (_lpRoot.get()->*lpfnEvent)(65);
        return nResults;
    };
    EXPECT_EQ(Send(), 0);
    _lpRoot->SetFocus(_lpB);
    EXPECT_EQ(Send(), 5 * 7);
    EXPECT_EQ(TakeLog(), "b focus b char65 b up65 b down65 b sysdown65 b sysup65 ");
}

TEST_F(ElementTest, TabRunsThroughTheTabStopsAndWraps) {
    _lpRoot->AddChild(new Probe(&_strLog, 'c', Rect(), 1));
    _lpRoot->AddChild(new Probe(&_strLog, 'd', Rect(), 1));
    const struct {
        int bShift, nResult;
        const char *lpszLog;
    } aSteps[] = {{0, 1, "a focus "},        {0, 3, "a blur c focus "}, {0, 3, "c blur d focus "},
                  {0, 3, "d blur a focus "}, {1, 3, "a blur d focus "}, {1, 3, "d blur c focus "}};
    for (const auto &step : aSteps) {
        g_lpMainFrame->_bShift = step.bShift;
        EXPECT_EQ(_lpRoot->OnKeyDown(9), step.nResult);
        EXPECT_EQ(TakeLog(), step.lpszLog);
    }
    _lpRoot->_lpFocus = nullptr;
    EXPECT_EQ(_lpRoot->OnKeyDown(9), 1);
    EXPECT_EQ(TakeLog(), "d focus ") << "the very first Tab with Shift";
    for (auto *lpNode = _lpRoot->_lpChildren; lpNode; lpNode = lpNode->lpNext)
        lpNode->lpData->_bTabStop = 0;
    EXPECT_EQ(_lpRoot->OnKeyDown(9), 2);
    EXPECT_EQ(_lpRoot->OnKeyDown(9), 0);
    EXPECT_EQ(TakeLog(), "d blur ") << "nowhere to stop";
}

TEST_F(ElementTest, ChildrenPaintAndGoFromTheNewestToTheOldest) {
    _lpRoot->Render(Buffer());
    _lpRoot.reset();
    EXPECT_EQ(TakeLog(), "b render a render b gone a gone ");
}
