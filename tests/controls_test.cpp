// Edit fields and buttons as a person meets them: through the mouse, the keys and the clipboard, and on the screen.
#include "controls.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <ranges>
#include <sstream>

#include "engine_fixture.h"
#include "page_script.h"
#include "tessel.h"
#include "tessel_host.h"

namespace {

enum : int { kTab = 9, kShift = 16, kCtrl = 17 };

// The words of a case; '-' is an empty one.
std::vector<std::string> Words(const std::string &strCase) {
    std::istringstream words(strCase);
    std::vector<std::string> all;
    for (std::string strWord; words >> strWord;)
        all.push_back(strWord == "-" ? "" : strWord);
    return all;
}

// The lines under a heading of cases/controls.txt.
std::vector<std::string> CasesUnder(const std::string &strHeading) {
    std::ifstream file(TESSEL_CASES "/controls.txt");
    std::vector<std::string> lines;
    bool bUnder = false;
    for (std::string strLine; std::getline(file, strLine);) {
        if (strLine.starts_with(' ') && bUnder)
            lines.push_back(Expand(strLine));
        else if (!strLine.starts_with('#') && !strLine.starts_with(' '))
            bUnder = strLine == strHeading;
    }
    EXPECT_FALSE(lines.empty()) << strHeading;
    return lines;
}

// A host's clipboard; null is one that refuses.
const char *g_lpszClipboard;
std::string g_strCopied;
std::atomic<int> g_nCallbacks;

}  // namespace

class ControlsTest : public EngineTest {
  protected:
    static constexpr uint32_t kSelection = 0x506478, kDots = 0x7F674F, kFill = 0x8098B0;

    void SetUp() override {
        EngineTest::SetUp();
        tessel_SetCallback(TESSEL_CALLBACK_CHANGED, [](int) { ++g_nCallbacks; });
        const platform_HostServices services = {
            nullptr, [](void *) { return g_lpszClipboard; },
            [](void *, const char *lpszText) { return g_strCopied = lpszText, 1; }, nullptr};
        platform_SetHostServices(&services);
    }
    ~ControlsTest() override { platform_SetHostServices(nullptr); }
    // A page with a field that has the focus.
    void ShowField(const std::string &strValue, const std::string &strMore = "MAXLENGTH=11") {
        Load(WriteFile("page.html", "<INPUT VALUE=\"" + strValue + "\" " + strMore + ">"));
        tessel_OnKeyDown(kTab);
    }
    // Shows two Frames, parted as COLS or ROWS say.
    void LoadFrames(const std::string &strSizes, const std::string &strFirst, const std::string &strSecond) {
        Load(WriteFile("frames", "<FRAMESET " + strSizes + "><FRAME SRC=" + strFirst +
                                     "><FRAME SRC=" + strSecond + ">"));
        tessel_Render(Buffer());
    }
    // The page that is used: the only one, or that of the second Frame.
    static Page *Shown() {
        const MainFrame *lpMain = g_lpMainFrame;
        return lpMain->_lpPage ? lpMain->_lpPage : static_cast<Frame *>(lpMain->_lpChildren->lpData)->_lpPage;
    }
    // "M9" a move, "P9" a move and a press, "D9" a drag, "U9" a release, 9 pixels from the page's left edge.
    static void Point(const std::string &strWord) {
        const auto x = static_cast<uint16_t>(Shown()->_rc.x + atoi(strWord.c_str() + 1));
        const char c = strWord[0];
        if (c == 'M' || c == 'P')
            tessel_OnMouseMove(x, 0);
        if (c != 'M')
            (c == 'P' ? tessel_OnLMouseDown : c == 'D' ? tessel_OnLMouseDrag : tessel_OnLMouseUp)(x, 0);
    }
    // '<' '>' Left and Right, '(' ')' Home and End, '#' Backspace, '~' Delete, '!' Enter, '+' Shift with the next, '^'
    // Ctrl with the next. Every other character is typed.
    static void Play(const std::string &strKeys) {
        static const std::string strMarks = "<>()#~!\t", strCodes = "\x25\x27\x24\x23\x08\x2E\x0D\t";
        int nHeld = 0;
        for (const char c : strKeys) {
            if (c == '+' || c == '^') {
                tessel_OnKeyDown(nHeld = c == '+' ? kShift : kCtrl);
                continue;
            }
            const size_t nMark = strMarks.find(c);
            const bool bMark = nMark != std::string::npos;
            if (bMark || isalpha(static_cast<uint8_t>(c)))
                tessel_OnKeyDown(bMark ? strCodes[nMark] : toupper(c));
            tessel_OnChar(bMark || nHeld == kCtrl ? c & 31 : c);
            tessel_OnKeyUp(nHeld);
            nHeld = 0;
        }
    }
    // The text of the page's newest item, which is a field in its corner, with '|' at the caret and '[' ']' around the
    // selection, both as they are painted in a row below the characters.
    std::string State() {
        tessel_Render(Buffer());
        const std::string strText = static_cast<FormControl *>(Shown()->_lpChildren->lpData)->_lpszValue;
        std::string strState;
        bool bSelected = false;
        for (int i = 0; i <= static_cast<int>(strText.size()); ++i) {
            const int nLeft = Shown()->_rc.x + 3 + 10 * i;
            if ((PixelAt(nLeft + 1, 20) == kSelection) != bSelected) {
                strState += bSelected ? "]" : "[";
                bSelected = !bSelected;
            }
            strState += PixelAt(nLeft, 20) == 0 ? "|" : "";
            strState += strText.substr(static_cast<size_t>(i), 1);
        }
        return strState;
    }
    // The lines of a box of w by h pixels at (x, 0), from outside in: one at the top left, one at the bottom right.
    using Edges = std::vector<uint32_t>;
    Edges EdgesOf(int x, int w, int h) {
        Edges edges;
        for (int i = 0; i < 3; ++i) {
            edges.push_back(PixelAt(x + i, i));
            edges.push_back(PixelAt(x + w - 1 - i, h - 1 - i));
        }
        return edges;
    }
    const Edges kNormal{0xC0CCD8, 0, kFill, 0x4E657C, kFill, kFill};
    const Edges kFocused{0, 0, 0xC0CCD8, 0, kFill, 0x4E657C};
    const Edges kPressed{0, 0, 0, 0xC0CCD8, 0x4E657C, kFill};
    // The look of a button of two letters in the page's corner.
    std::string Look() {
        tessel_Render(Buffer());
        const int x = Shown()->_rc.x;
        const Edges edges = EdgesOf(x, 34, 26);
        // The label is a block of 20 by 12; it and the dots move when the button is pressed.
        const int n = edges == kPressed, nDots = edges == kNormal ? 0 : 26 + 18;
        EXPECT_EQ(CountPixels(0, x + 7 + n, 7 + n, 20, 12), 240);
        EXPECT_EQ(CountPixels(0, x + 4, 4, 26, 18), 240) << "the block and nothing else";
        EXPECT_EQ(CountPixels(kDots, x + 3 + n, 3 + n, 28, 19), nDots);
        EXPECT_EQ(CountPixels(kDots, x, 0, 34, 26), nDots);
        EXPECT_EQ(PixelAt(x + 5, 5), kFill);
        return n ? "pressed" : edges == kFocused ? "focused" : edges == kNormal ? "normal" : "?";
    }
};

TEST_F(ControlsTest, KeysAndClipboardEditTheText) {
    for (const std::string &strCase : CasesUnder("keys")) {
        const auto words = Words(strCase);
        g_lpszClipboard = words.size() > 4 ? words[4].c_str() : "XY";
        g_strCopied = "=";
        ShowField(words[0]);
        Play(words[1]);
        EXPECT_EQ(State(), words[2]) << strCase;
        EXPECT_EQ(g_strCopied, words.size() > 3 ? words[3] : "=") << strCase;
    }
    platform_SetHostServices(nullptr);
    ShowField("abc");
    Play("+<^V^C)^V");
    EXPECT_EQ(State(), "abcc|") << "the library's own clipboard, empty at first";
}

TEST_F(ControlsTest, HostIsToldOfChanges) {
    ShowField("abc");
    g_lpszClipboard = "more than there is room for";
    for (const auto &[nKey, nTold] :
         {std::pair(8, 1), {37, 1}, {46, 1}, {13, 0}, {38, 0}, {'V', 0}, {kCtrl, 0}, {'C', 0}, {'V', 1}}) {
        g_nCallbacks = 0;
        tessel_OnKeyDown(nKey);
        EXPECT_EQ(g_nCallbacks, nTold) << nKey;
        tessel_OnChar(3);
        EXPECT_EQ(g_nCallbacks, nTold + 1) << "any character";
    }
    g_lpszClipboard = nullptr;
    Point("P17");
    g_nCallbacks = 0;
    tessel_OnKeyDown('V');
    Point("D17");
    EXPECT_EQ(g_nCallbacks, 0) << "nothing to paste, a drag that gets nowhere";
}

TEST_F(ControlsTest, PointerSetsTheCaretAndSelects) {
    WriteFile("field", "<INPUT VALUE=/bcdef SIZE=18>");
    for (const int x : {0, 200}) {
        x ? LoadFrames("COLS=200,200", "none", "field") : Load("field");
        for (const std::string &strCase : CasesUnder("pointer")) {
            const auto words = Words(strCase);
            for (size_t i = 0; i < words.size(); i += 2) {
                Point(words[i]);
                EXPECT_EQ(State(), words[i + 1]) << strCase << " at " << words[i] << " + " << x;
            }
        }
    }
}

TEST_F(ControlsTest, FocusGoesAndComesBack) {
    Load(WriteFile("page.html", "<A HREF=x>link</A><INPUT TYPE=HIDDEN><INPUT TYPE=SUBMIT><INPUT>"));
    std::string strOrder;
    for (const char *lpszKeys : {"\t", "\t", "\t", "\t", "+\t", "+\t"}) {
        Play(lpszKeys);
        strOrder += ' ';
        for (auto *lpNode = Shown()->_lpFocus; lpNode->lpNext; lpNode = lpNode->lpNext)
            strOrder += '<';
    }
    EXPECT_EQ(strOrder, "  <<< <<<<  <<<< <<<") << "anchor, text, hidden, button, field";
    ShowField("abc");
    Play("<+<");
    Point("P300");
    Play("x");
    EXPECT_EQ(State(), "abc") << "neither caret nor selection";
    tessel_OnKeyDown(kTab);
    EXPECT_EQ(State(), "a|bc");
    Point("P300");
    Point("M7");
    Point("D37");
    EXPECT_EQ(State(), "a[bc]") << "a drag without a press";
    tessel_OnKeyDown(kTab);
    EXPECT_EQ(State(), "abc|");
    // A page that goes while its field is being used.
    Point("P40");
    Load(WriteFile("other.html", "<INPUT TYPE=HIDDEN><INPUT VALUE=xyz>"));
    Point("D20");
    Play("+<^V##");
    Point("U20");
    EXPECT_EQ(State(), "xyz");
    Point("P0");
    EXPECT_EQ(State(), "|xyz") << "not the hidden field";
}

TEST_F(ControlsTest, PasswordShowsAsterisksAndKeepsItsText) {
    // A '|' has no width and a '/' reaches into its neighbour; an asterisk does neither.
    ShowField("a|b/", "TYPE=password");
    EXPECT_EQ(State(), "a|b/|");
    EXPECT_EQ(CountPixels(0, 3, 3, 200, 15), 40 * 15 + 15) << "four asterisks and the caret";
    Play("+(^C~");
    EXPECT_EQ(g_strCopied, "a|b/");
    Play("hunter");
    EXPECT_EQ(State(), "hunter|");
    EXPECT_EQ(CountPixels(0, 3, 3, 200, 15), 60 * 15 + 15);
    Play("+(x");
    Point("P200");
    Play("y");
    EXPECT_EQ(State(), "xy|") << "a press before the next paint";
}

TEST_F(ControlsTest, ButtonsHaveThreeLooksAndOneWayToSubmit) {
    const auto words = Words(
        "M9 normal U9 normal P34 pressed D30 pressed D36 focused D9 focused U9 focused P99 normal "
        "Tab focused Key focused P9 pressed");
    for (const std::string strForm : {"", "<FORM ACTION=page.html>"}) {
        Load(WriteFile("page.html", strForm + "<INPUT TYPE=SUBMIT VALUE=Go>"));
        const List<char> *lpBefore = g_lpMainFrame->_lpHistory;
        for (size_t i = 0; i < words.size(); i += 2) {
            isdigit(words[i][1]) ? Point(words[i]) : Play(words[i] == "Tab" ? "\t" : "! ");
            EXPECT_EQ(Look(), words[i + 1]) << words[i];
        }
        Point("U9");
        ASSERT_TRUE(WaitForWorkers());
        EXPECT_EQ(Look(), strForm.empty() ? "focused" : "normal") << "the same page again";
        const List<char> *lpNow = g_lpMainFrame->_lpHistory;
        EXPECT_EQ(strForm.empty() ? lpNow : lpNow->lpNext, lpBefore) << "one submission at most";
    }
    LoadFrames("COLS=200,200", "none", "page.html");
    Point("P9");
    EXPECT_EQ(Look(), "pressed");
    Point("U9");
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(Look(), "normal") << "its own Frame gets the answer";
}

// NB: the edges of the picture cut a button, those of its Frame do not.
TEST_F(ControlsTest, ButtonsReachIntoTheNextFrame) {
    WriteFile("page.html", "<INPUT TYPE=SUBMIT VALUE=Go>");
    LoadFrames("COLS=20,380", "page.html", "none");
    EXPECT_EQ(EdgesOf(0, 34, 26), kNormal);
    LoadFrames("COLS=390,10", "none", "page.html");
    Point("P5");
    tessel_Render(Buffer());
    EXPECT_EQ(EdgesOf(390, 10, 26), kPressed);
    EXPECT_EQ(CountPixels(0xFFFFFF, 0, 0, 390, 300), 390 * 300);
    LoadFrames("ROWS=290,10", "none", "page.html");
    EXPECT_EQ(CountPixels(kFill, 5, 293, 1, 7), 5);
    std::fill_n(Buffer(), 400 * 300, kUntouched);
    LoadFrames("COLS=-50,100", "none", "page.html");
    EXPECT_EQ(CountPixels(kUntouched, 0, 0, 400, 300), 400 * 300);
}

// Whatever the size of the page, nothing is painted outside it.
TEST_F(ControlsTest, ControlsAreCutAtTheEdges) {
    const int aSizes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 20, 27, 33, 35};
    for (const char *lpszType :
         {"TEXT VALUE=abcd SIZE=2", "SUBMIT VALUE=ab", "SUBMIT VALUE=abcdefghijklmnopq"}) {
        for (const int i : std::views::iota(0, 14 * 14)) {
            const int w = aSizes[i % 14], h = aSizes[i / 14];
            g_lpMainFrame->_rc = Rect(0, 0, w, h);
            ParsedPage page(std::string("<INPUT TYPE=") + lpszType, w, h);
            std::fill_n(Buffer(), 400 * 300, kUntouched);
            page->OnKeyDown(kTab);
            g_lpMainFrame->_bShift = 1;
            page->OnKeyDown(36);  // Home
            g_lpMainFrame->_bShift = 0;
            page->OnMouseMove(0, 0);
            for (int nPass = 0; nPass < 2; ++nPass) {
                page->Render(Buffer());
                ASSERT_EQ(CountPixels(kUntouched, 0, 0, 400, 40), 400 * 40 - w * h)
                    << lpszType << w << "x" << h;
                page->OnLMouseDown(0, 0);
            }
        }
    }
    g_lpMainFrame->_rc = Rect(0, 0, 400, 300);
    ShowField("abcd", "SIZE=2");
    State();
    EXPECT_EQ(EdgesOf(0, 26, 25), (Edges{0x4E657C, 0xC0CCD8, 0, 0x8098B0, 0xFFFFFF, 0xFFFFFF}));
    Play("+(");
    State();
    EXPECT_EQ(CountPixels(kSelection, 0, 0, 60, 25), (20 - 1) * 4)
        << "as wide as the field allows, less the caret";
    Play(")");
    State();
    EXPECT_EQ(CountPixels(0, 26, 0, 60, 25), 0) << "a caret that is out of sight";
}
