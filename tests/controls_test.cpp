// Edit fields and buttons as a person meets them: through the mouse, the keys and the clipboard, and on the screen.
#include "controls.h"

#include <algorithm>
#include <ranges>
#include <sstream>

#include "engine_fixture.h"
#include "frameset.h"
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

// A host's clipboard; null is one that refuses.
const char *g_lpszClipboard;
std::string g_strCopied;
int g_nCallbacks;

}  // namespace

class ControlsTest : public EngineTest {
  protected:
    static constexpr uint32_t kSelection = 0x506478, kDots = 0x7F674F;

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
    // "M9" a move, "P9" a move and a press, "D9" a drag, "U9" a release, 9 pixels to the right of nLeft.
    static void Point(const std::string &strWord, int nLeft = 0) {
        const auto x = static_cast<uint16_t>(nLeft + atoi(strWord.c_str() + 1));
        const char c = strWord[0];
        if (c == 'M' || c == 'P')
            tessel_OnMouseMove(x, 10);
        if (c != 'M')
            (c == 'P' ? tessel_OnLMouseDown : c == 'D' ? tessel_OnLMouseDrag : tessel_OnLMouseUp)(x, 10);
    }
    static void Key(int nKey, int nHeld) {
        tessel_OnKeyDown(nHeld);
        tessel_OnKeyDown(nKey);
        if (nKey < kShift || nHeld == kCtrl)
            tessel_OnChar(nKey & 31);
        tessel_OnKeyUp(nKey);
        tessel_OnKeyUp(nHeld);
    }
    // '<' '>' Left and Right, '(' ')' Home and End, '#' Backspace, '~' Delete, '!' Enter, '+' Shift with the next, '^'
    // Ctrl with the next. Every other character is typed.
    static void Play(const std::string &strKeys) {
        static const std::string strCodes = "<>()#~!\t";
        int nHeld = 0;
        for (const char c : strKeys) {
            const size_t nCode = strCodes.find(c);
            if (c == '+' || c == '^') {
                nHeld = c == '+' ? kShift : kCtrl;
                continue;
            }
            if (nHeld == kCtrl || nCode != std::string::npos)
                Key(nHeld == kCtrl ? c : "\x25\x27\x24\x23\x08\x2E\x0D\t"[nCode], nHeld);
            else
                tessel_OnChar(c);
            nHeld = 0;
        }
    }
    // The text of the newest item of a page, which is a field at (x, 0), with '|' at the caret and '[' ']' around the
    // selection, both as they are painted in a row below the characters.
    std::string State(int x = 0, const Page *lpPage = g_lpMainFrame->_lpPage) {
        tessel_Render(Buffer());
        const std::string strText = static_cast<FormControl *>(lpPage->_lpChildren->lpData)->_lpszValue;
        std::string strState;
        bool bSelected = false;
        for (int i = 0; i <= static_cast<int>(strText.size()); ++i) {
            const int nLeft = x + 3 + 10 * i;
            if ((PixelAt(nLeft + 1, 20) == kSelection) != bSelected) {
                strState += bSelected ? "]" : "[";
                bSelected = !bSelected;
            }
            strState += PixelAt(nLeft, 20) == 0 ? "|" : "";
            strState += strText.substr(static_cast<size_t>(i), 1);
        }
        return strState;
    }
    // The look of a button of two letters at (0, 0).
    std::string Look() {
        tessel_Render(Buffer());
        const uint32_t dwOuter = PixelAt(0, 0), dwMiddle = PixelAt(1, 1);
        const int n = dwOuter == 0 && dwMiddle == 0;
        // The label is a block of 20 by 12; it and the dots move when the button is pressed.
        EXPECT_EQ(CountPixels(0, 7 + n, 7 + n, 20, 12), 240);
        EXPECT_EQ(CountPixels(0, 4, 4, 26, 18), 240) << "the block and nothing else";
        const bool bDots = CountPixels(kDots, 3 + n, 3 + n, 28, 19) == 26 + 18;
        EXPECT_EQ(CountPixels(kDots, 0, 0, 34, 26), bDots ? 26 + 18 : 0);
        if (!bDots)
            return dwOuter == 0xC0CCD8 && dwMiddle == 0x8098B0 ? "normal" : "?";
        return dwOuter ? "?" : dwMiddle == 0xC0CCD8 ? "focused" : PixelAt(2, 2) == 0x4E657C ? "pressed" : "?";
    }
};

TEST_F(ControlsTest, KeysEditTheText) {
    // The text, the keys, what comes of it; '-' for nothing.
    const char *const aCases[] = {
        "abc - abc|", "- - |", "- #~<>()+<+>+(+)#~! |", "- it's5! it's5|", "- c\x7F\x1F\x80\xE9v cv|",
        "abcdefghijklmn - abcdefghijk|",
        // One character, and the places of the caret.
        "abc # ab|", "abc <# a|c", "abc (# |abc", "abc ~ abc|", "abc <~ ab|", "abc (~ |bc", "abc <<x ax|bc",
        "abc (x)y xabcy|", "abc <<<<< |abc", "abc (>>>>> abc|", "abc <cv abcv|c",
        // Selecting.
        "abc +< ab[|c]", "abc +<+<+<+< [|abc]", "abc +<+> abc|", "abc +<+<+> ab[|c]", "abc (+> [a]|bc",
        "abc (+>+>+>+> [abc]|", "abc (>+>+<+< [|a]bc", "abc <+( [|ab]c", "abc (>+) a[bc]|",
        "abc (>+)+( [|abc]", "abc +<+<+) a[bc]|", "abc (+( |abc",
        // The selection goes.
        "abc +<+<< |abc", "abc +<+<> ab|c", "abc +<+<+<< |abc", "abc (+>+>) abc|", "abc +<+<( |abc",
        "abc +<+<# a|", "abc +<+<~ a|", "abc (+>+># |c", "abc (+>+>~ |c", "abc +<+<x a|x", "abc (+>+>x x|c",
        "abc +(x |x",
        // An empty one, at the end of the text.
        "abc +) abc|", "abc +)# abc|", "abc +)~# ab|", "abc +)x abcx|", "abc +)+< ab[|c]", "abc +)+<# ab|",
        "abc +)+<+<+>x ab|x", "a +)+<x |x",
        // A full field.
        "- abcdefghijkl abcdefghijk|", "abcdefghijk (x |abcdefghijk", "abcdefghijk +<x abcdefghij|x",
        "abcdefghijk +)x abcdefghijk|", "abcdefghijk +)+<xy abcdefghij|x", "abcdefghijk +)#x abcdefghijk|",
        "abcdefghijk #xy abcdefghijx|"};
    for (const std::string strCase : aCases) {
        const auto words = Words(strCase);
        ShowField(words[0]);
        Play(words[1]);
        EXPECT_EQ(State(), words[2]) << strCase;
    }
}

TEST_F(ControlsTest, ClipboardTakesAndGivesText) {
    // The clipboard, the keys, what comes of "abc"; and what was copied.
    const char *const aCases[] = {
        // Copied.
        "XY +<+<^C a[|bc] bc", "XY +)+(^C [|abc] abc", "XY ^C abc| -",
        // Pasted.
        "XY ^V^V abcXYXY| -", "XY (^V XY|abc -", "XY (+>+>^V XY|c -", "XY +<+<^V aXY| -", "XY +)^V abcXY| -",
        "XY (V^C) Vabc| -", "- +<^V ab| -", "- ^V abc| -", "1234567 ^V abc1234567| -", "12345678 <^V ab|c -",
        "12345678 (+>^V 12345678|bc -", "123456789 (+>^V [a]|bc -", "\x01\xFF (^V \x01\xFF|abc -"};
    for (const std::string strCase : aCases) {
        const auto words = Words(strCase);
        ShowField("abc");
        g_lpszClipboard = words[0].c_str();
        g_strCopied = "";
        Play(words[1]);
        EXPECT_EQ(State(), words[2]) << strCase;
        EXPECT_EQ(g_strCopied, words[3]) << strCase;
    }
    ShowField("abc");
    const std::string strLong(1000000, 'x');
    for (const char *lpszText : {strLong.c_str(), static_cast<const char *>(nullptr)}) {
        g_lpszClipboard = lpszText;
        Play(")+<^V");
        EXPECT_EQ(State(), "ab[|c]");
    }
    platform_SetHostServices(nullptr);
    Play("^C)^V");
    EXPECT_EQ(State(), "abcc|") << "the library's own clipboard";
}

TEST_F(ControlsTest, HostIsToldOfChanges) {
    ShowField("abc");
    for (const auto &[nKey, nTold] :
         {std::pair(8, 1), {37, 1}, {46, 1}, {13, 0}, {38, 0}, {'C', 0}, {'V', 0}}) {
        g_nCallbacks = 0;
        tessel_OnKeyDown(nKey);
        EXPECT_EQ(g_nCallbacks, nTold) << nKey;
        tessel_OnChar(3);
        EXPECT_EQ(g_nCallbacks, nTold + 1) << "any character";
    }
}

TEST_F(ControlsTest, PointerSetsTheCaretAndSelects) {
    // A press, and drags from there on; what comes of each. The '/' is 8 wide for the pointer.
    const char *const aCases[] = {
        "P1 |/bcdef", "P6 |/bcdef", "P7 /|bcdef", "P14 /|bcdef", "P15 /b|cdef", "P180 /bcdef|",
        "P37 /bcd|ef D57 /bcd[ef]| D50 /bcd[e]|f D17 /b|cdef D7 /[|b]cdef D1 [|/b]cdef",
        "P37 /bcd|ef D17 /b[|cd]ef D27 /bc[|d]ef D37 /bcd|ef D57 /bcd[ef]|",
        // Off the field and on again: only a move brings it back.
        "P7 /|bcdef D37 /[bcd]|ef D195 /[bcd]|ef D17 /[bcd]|ef"};
    WriteFile("field", "<INPUT VALUE=/bcdef SIZE=18>");
    for (const int x : {0, 200}) {
        Load("field");
        const Page *lpPage = g_lpMainFrame->_lpPage;
        if (x) {
            // The same in the right one of two Frames.
            const int aSizes[] = {200, 200};
            auto *lpFrameset = g_lpMainFrame->_lpFrameset = new Frameset(g_lpMainFrame);
            lpFrameset->SetCols(aSizes, 2);
            lpFrameset->AddFrame("none");
            lpFrameset->AddFrame("field");
            Load("frameset");
            lpPage = static_cast<Frame *>(g_lpMainFrame->_lpChildren->lpData)->_lpPage;
        }
        for (const char *lpszCase : aCases) {
            const auto words = Words(lpszCase);
            for (size_t i = 0; i < words.size(); i += 2) {
                Point(words[i], x);
                EXPECT_EQ(State(x, lpPage), words[i + 1]) << lpszCase << " at " << words[i] << " + " << x;
            }
        }
    }
}

TEST_F(ControlsTest, FocusGoesAndComesBack) {
    Load(WriteFile("page.html", "<A HREF=x>link</A><INPUT TYPE=HIDDEN><INPUT TYPE=SUBMIT><INPUT>"));
    tessel_OnKeyDown(kTab);
    std::string strOrder;
    for (const bool bBack : {false, false, false, true, true, true}) {
        int nIndex = 0;
        for (auto *lpNode = g_lpMainFrame->_lpPage->_lpFocus; lpNode->lpNext; lpNode = lpNode->lpNext)
            ++nIndex;
        strOrder += std::to_string(nIndex);
        Key(kTab, bBack ? kShift : 0);
    }
    EXPECT_EQ(strOrder, "034043") << "anchor, text, hidden, button, field";
    ShowField("abc");
    Play("<+<");
    Point("P300");
    Play("x");
    EXPECT_EQ(State(), "abc") << "neither caret nor selection";
    tessel_OnKeyDown(kTab);
    EXPECT_EQ(State(), "a|bc");
    // A page that goes while its field is being used.
    Point("P40");
    WriteFile("other.html", "<INPUT VALUE=xyz>");
    Load("other.html");
    Point("D20");
    Play("+<^V##");
    Point("U20");
    EXPECT_EQ(State(), "xyz");
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
    Play("+(x");
    Point("P200");
    Play("y");
    EXPECT_EQ(State(), "xy|") << "a press before the next paint";
}

TEST_F(ControlsTest, ButtonsHaveThreeLooksAndOneWayToSubmit) {
    const auto words = Words(
        "M9 normal U9 normal P34 pressed D30 pressed D36 focused D9 focused U9 focused P99 normal Tab "
        "focused Key "
        "focused P9 pressed");
    for (const std::string strForm : {"", "<FORM ACTION=x>"}) {
        Load(WriteFile("page.html", strForm + "<INPUT TYPE=SUBMIT VALUE=Go>"));
        for (size_t i = 0; i < words.size(); i += 2) {
            isdigit(words[i][1]) ? Point(words[i]) : Play(words[i] == "Tab" ? "\t" : "! ");
            EXPECT_EQ(Look(), words[i + 1]) << words[i];
        }
        EXPECT_STREQ(g_lpMainFrame->_lpHistory->lpData, "page.html");
        Point("U9");
        ASSERT_TRUE(WaitForWorkers());
        EXPECT_STREQ(g_lpMainFrame->_lpHistory->lpData, strForm.empty() ? "page.html" : "x");
        EXPECT_EQ(g_lpMainFrame->_lpHistory->lpNext != nullptr, !strForm.empty());
    }
}

// Whatever the size of the page, nothing is painted outside it.
TEST_F(ControlsTest, ControlsAreCutAtTheEdges) {
    const Rect rcFrame = g_lpMainFrame->_rc;
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
    g_lpMainFrame->_rc = rcFrame;
    ShowField("abcd", "SIZE=2");
    Play("+(");
    State();
    EXPECT_EQ(CountPixels(kSelection, 0, 0, 60, 25), (20 - 1) * 4)
        << "as wide as the field allows, less the caret";
    Play(")");
    State();
    EXPECT_EQ(CountPixels(0, 26, 0, 60, 25), 0) << "a caret that is out of sight";
}
