#include "textinput.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "fontmanager.h"
#include "gfx.h"
#include "mainframe.h"
#include "page.h"
#include "platform/hostservices.h"

namespace {

// Virtual-key codes.
enum : int {
    kKeyBackspace = 8,
    kKeyEnd = 35,
    kKeyHome = 36,
    kKeyLeft = 37,
    kKeyRight = 39,
    kKeyDelete = 46,
    kKeyC = 'C',
    kKeyV = 'V',
};

// The edge of the box; and the room that it takes from the text, above and below and to both sides.
constexpr int kEdge = 3;
constexpr int kRoomBeside = 2 * kEdge;
constexpr int kRoomAbove = 10;
// Where the first character begins for the pointer. NB: it is painted at kEdge.
constexpr int kPointerInset = 6;

constexpr uint32_t kCaretColor = 0x000000;

const CharInfo *Glyphs() {
    return g_lpMainFrame->_lpFontBold->_lpCharInfo;
}

// Has the glyphs of a text drawn. Whatever comes into a field goes through here, so that painting finds them.
void PrepareGlyphs(const char *lpszText) {
    MeasureText(lpszText, g_lpMainFrame->_lpFontBold);
}

}  // namespace

TextInput::TextInput(Page *lpPage, const char *lpszName, const char *lpszValue, uint16_t wMaxLength,
                     uint16_t wSize)
    : FormControl(lpPage, lpszName, nullptr), _wSize(wSize), _wMaxLength(wMaxLength) {
    _bTabStop = 1;
    _lpszValue = _lpszDisplay = new char[size_t{wMaxLength} + 1]();
    if (lpszValue) {
        _nCaret = static_cast<int>(strnlen(lpszValue, wMaxLength));
        memcpy(_lpszValue, lpszValue, static_cast<size_t>(_nCaret));
    }
    PrepareGlyphs(_lpszValue);
    _rc.w = Glyphs()->_bAveCharWidth * wSize + kRoomBeside;
    _rc.h = Glyphs()->_bHeight + kRoomAbove;
}

// --- Painting ---

void TextInput::UpdateDisplay() {}

int TextInput::WidthUpTo(int nIndex) const {
    int nWidth = 0;
    for (int i = 0; i < nIndex; ++i)
        nWidth += Glyphs()->_aGlyphs[static_cast<uint8_t>(_lpszDisplay[i])].Width();
    return nWidth;
}

// NB: the widths do not take off negative spacings, so that caret and selection may stand a little to the right of
// what is painted.
void TextInput::Render(uint32_t *lpBuffer) {
    UpdateDisplay();
    const Size clip = ClippedSize();
    if (clip.w <= 0 || clip.h <= 0)
        return;
    gfx_Bevel(0xFFFFFF, 0x4E657C, 0x000000, 0xFFFFFF, 0xFFFFFF, 0x8098B0, 0xC0CCD8, _rc.x, _rc.y, clip.w,
              clip.h, lpBuffer);
    const Rect inner(_rc.x + kEdge, _rc.y + kEdge, clip.w - 2 * kEdge, clip.h - 2 * kEdge);
    // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult): it does not see that the bases of a Rect are set
    if (inner.w <= 0 || inner.h <= 0)
        return;
    const int nStart = WidthUpTo(_nSelStart);
    const int nEnd = std::min(WidthUpTo(_nSelEnd), inner.w);
    gfx_FillRect(g_lpMainFrame->_dwSelColor, inner.x + nStart, inner.y, nEnd - nStart, inner.h, lpBuffer);
    gfx_TextOut(_lpszDisplay, Glyphs(), g_lpMainFrame->_lpFontBold->_dwColor, inner.x, inner.y, inner.w,
                inner.h, lpBuffer);
    const int nCaret = WidthUpTo(_nCaret);
    if (HasFocus(this) && nCaret < inner.w)
        gfx_FillRect(kCaretColor, inner.x + nCaret, inner.y, 1, inner.h, lpBuffer);
}

// --- Focus and mouse ---

int TextInput::Changed() {
    Invalidate();
    return 1;
}

int TextInput::OnSetFocus() {
    Select(0, 0);
    return Changed();
}

int TextInput::OnKillFocus() {
    Select(0, 0);
    return Changed();
}

// Behind the character that the pointer is in: there is no rounding to the nearer edge.
int TextInput::IndexFromX(int x) {
    UpdateDisplay();
    int nLeft = x - (_rc.x + kPointerInset);
    int nIndex = 0;
    for (; _lpszDisplay[nIndex] && nLeft > 0; ++nIndex) {
        const uint8_t c = static_cast<uint8_t>(_lpszDisplay[nIndex]);
        nLeft -= Glyphs()->_aGlyphs[c].Width() + Glyphs()->_acSpacing[c];
    }
    return nIndex;
}

int TextInput::OnLMouseDown(uint16_t x, uint16_t) {
    Select(0, 0);
    _nCaret = IndexFromX(x);
    return Changed();
}

// The caret is the end that moves. A drag across the other end leaves nothing selected until it moves on.
int TextInput::OnLMouseDrag(uint16_t x, uint16_t) {
    const int nTo = IndexFromX(x);
    if (nTo == _nCaret)
        return 0;
    const bool bBack = nTo < _nCaret;
    if (!_nSelEnd)
        Select(std::min(nTo, _nCaret), std::max(nTo, _nCaret));
    else if (_nCaret == (bBack ? _nSelEnd : _nSelStart))
        (bBack ? _nSelEnd : _nSelStart) = nTo;
    else
        (bBack ? _nSelStart : _nSelEnd) = nTo;
    _nCaret = nTo;
    if (_nSelEnd <= _nSelStart)
        Select(0, 0);
    return Changed();
}

// --- Keys ---

int TextInput::OnChar(int c) {
    const uint8_t b = static_cast<uint8_t>(c);
    if (b >= 0x20 && b <= 0x7E)
        Type(static_cast<char>(b));
    return Changed();
}

int TextInput::OnKeyDown(int key) {
    switch (key) {
        case kKeyBackspace:
            Erase(_nCaret - 1);
            return Changed();
        case kKeyDelete:
            Erase(_nCaret);
            return Changed();
        case kKeyHome:
            Jump(0);
            return Changed();
        case kKeyEnd:
            Jump(Length());
            return Changed();
        case kKeyLeft:
            Step(-1);
            return Changed();
        case kKeyRight:
            Step(1);
            return Changed();
        case kKeyC:
            Copy();
            return 0;
        case kKeyV:
            return Paste() ? Changed() : 0;
        default:
            return 0;
    }
}

int TextInput::Length() const {
    return static_cast<int>(strlen(_lpszValue));
}

void TextInput::Select(int nStart, int nEnd) {
    _nSelStart = nStart;
    _nSelEnd = nEnd;
}

// With Shift what lies on the way to nTo is selected, instead of what was selected before.
void TextInput::Jump(int nTo) {
    Select(0, 0);
    if (g_lpMainFrame->_bShift)
        Select(std::min(nTo, _nCaret), std::max(nTo, _nCaret));
    _nCaret = nTo;
}

void TextInput::Step(int nStep) {
    const int nTo = _nCaret + nStep;
    if (!g_lpMainFrame->_bShift)
        Select(0, 0);
    if (nTo < 0 || nTo > Length())
        return;
    if (g_lpMainFrame->_bShift)
        Extend(nTo);
    _nCaret = nTo;
}

// Moves that end of the selection at which the caret stands. One that is empty begins anew, since its ends would
// change places.
void TextInput::Extend(int nTo) {
    if (_nSelEnd == _nSelStart)
        Select(std::min(nTo, _nCaret), std::max(nTo, _nCaret));
    else
        (_nCaret == _nSelEnd ? _nSelEnd : _nSelStart) = nTo;
    if (_nSelEnd == _nSelStart)
        Select(0, 0);
}

// --- Editing ---

// Puts nLength bytes in the place of a range. There is room for them.
void TextInput::Replace(const Range &range, const char *lpText, int nLength) {
    const char *lpTail = _lpszValue + range.nEnd;
    memmove(_lpszValue + range.nStart + nLength, lpTail, strlen(lpTail) + 1);
    memcpy(_lpszValue + range.nStart, lpText, static_cast<size_t>(nLength));
    PrepareGlyphs(_lpszValue);
    Select(0, 0);
}

// What the next character takes the place of: the selection, or nothing at the caret.
TextInput::Range TextInput::Target() const {
    return _nSelEnd ? Range{_nSelStart, _nSelEnd} : Range{_nCaret, _nCaret};
}

// Removes the selection, an empty one too, or else one character.
void TextInput::Erase(int nIndex) {
    if (_nSelEnd) {
        _nCaret = _nSelStart;
        Replace(Target(), "", 0);
    } else if (nIndex >= 0 && _lpszValue[nIndex]) {
        Replace({nIndex, nIndex + 1}, "", 0);
        _nCaret = nIndex;
    }
}

// NB: a caret at the start of what is replaced stays there, in front of the new character.
void TextInput::Type(char c) {
    const Range range = Target();
    if (range.nStart == range.nEnd && Length() >= _wMaxLength)
        return;
    if (_nCaret == range.nEnd)
        _nCaret = range.nStart + 1;
    Replace(range, &c, 1);
}

void TextInput::Copy() const {
    if (!g_lpMainFrame->_bCtrl || !_nSelEnd)
        return;
    const std::string strText(_lpszValue + _nSelStart, _lpszValue + _nSelEnd);
    platform::SetClipboardText(strText.c_str());
}

// False if there is nothing to paste. All or nothing goes in, and one byte of the field stays free.
bool TextInput::Paste() {
    if (!g_lpMainFrame->_bCtrl)
        return false;
    const std::unique_ptr<char[]> lpszText(platform::GetClipboardText());
    if (!lpszText)
        return false;
    const Range range = Target();
    const int nKept = Length() - (range.nEnd - range.nStart);
    const size_t nLength = strlen(lpszText.get());
    if (nLength >= static_cast<size_t>(std::max(_wMaxLength - nKept, 0)))
        return true;
    _nCaret = range.nStart + static_cast<int>(nLength);
    Replace(range, lpszText.get(), static_cast<int>(nLength));
    return true;
}

// --- Passwords ---

PasswordInput::PasswordInput(Page *lpPage, const char *lpszName, const char *lpszValue, uint16_t wMaxLength,
                             uint16_t wSize)
    : TextInput(lpPage, lpszName, lpszValue, wMaxLength, wSize) {
    _lpszDisplay = new char[size_t{wMaxLength} + 1];
    PasswordInput::UpdateDisplay();
    PrepareGlyphs("*");
}

PasswordInput::~PasswordInput() {
    delete[] _lpszDisplay;
}

void PasswordInput::UpdateDisplay() {
    const size_t nLength = strlen(_lpszValue);
    memset(_lpszDisplay, '*', nLength);
    _lpszDisplay[nLength] = '\0';
}
