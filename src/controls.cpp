#include "controls.h"

#include <algorithm>

#include "fontmanager.h"
#include "form.h"
#include "frame.h"
#include "gfx.h"
#include "mainframe.h"
#include "page.h"
#include "textbuilder.h"
#include "types.h"

namespace {

// The label has so much room around it, both sides together.
constexpr int kLabelRoom = 14;
// The focus rectangle stands this far in from the button's corner, and is so much smaller than the button.
constexpr int kFocusInset = 3;
constexpr int kFocusShrink = 7;
constexpr uint32_t kFocusColor = 0x7F674F;

constexpr uint32_t kButtonFill = 0x8098B0;

struct BevelColors {
    uint32_t c1, c2, c3, c4, c5, c6;
};

constexpr BevelColors kPressed = {0x000000, 0x000000, 0x4E657C, 0x8098B0, 0xC0CCD8, 0x000000};
constexpr BevelColors kFocused = {0x000000, 0xC0CCD8, 0x8098B0, 0x4E657C, 0x000000, 0x000000};
constexpr BevelColors kNormal = {0xC0CCD8, 0x8098B0, 0x8098B0, 0x8098B0, 0x4E657C, 0x000000};

}  // namespace

FormControl::FormControl(Page *lpPage, const char *lpszName, const char *lpszValue)
    : PageItem(lpPage, 0), _lpszName(StrDup(lpszName)), _lpszValue(StrDup(lpszValue)) {}

FormControl::~FormControl() {
    delete[] _lpszName;
    delete[] _lpszValue;
}

void FormControl::PlaceInLine(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
                              int *lpnWidth) {
    PlaceBox(this, lppLine, nLeft, lpnUsed, lpnLineHeight, lpPen, lpnWidth);
}

void FormControl::AppendQuery(TextBuilder *lpQuery) const {
    if (_lpszName)
        lpQuery->Append(_lpszName).Append("=").Append(_lpszValue ? _lpszValue : "").Append("&");
}

int HiddenInput::HitTest(int, int) {
    return 0;
}

void HiddenInput::PlaceInLine(Line **, int, int *, int *, Point *, int *) {}

SubmitButton::SubmitButton(Page *lpPage, const char *lpszName, const char *lpszValue)
    : FormControl(lpPage, lpszName, lpszValue) {
    const Font *lpFont = g_lpMainFrame->_lpFontSmallBold;
    _bTabStop = 1;
    _rc.w = MeasureText(lpszValue, lpFont) + kLabelRoom;
    _rc.h = lpFont->_lpCharInfo->_bHeight + kLabelRoom;
}

// NB: a button is cut at the edges of the host's picture, not of its Page: in a Frame too small for it, it
// reaches into the next one.
Size SubmitButton::VisibleSize() const {
    int x = _rc.x;
    int y = _rc.y;
    for (const Frame *lpFrame = GetPage()->_lpFrame; lpFrame; lpFrame = lpFrame->_lpParent) {
        x += lpFrame->_rc.x;
        y += lpFrame->_rc.y;
    }
    if (x < 0 || y < 0)
        return {};
    return {std::min(_rc.w, g_lpMainFrame->_rc.w - x), std::min(_rc.h, g_lpMainFrame->_rc.h - y)};
}

void SubmitButton::Render(uint32_t *lpBuffer) {
    const Size clip = VisibleSize();
    if (clip.w <= 0 || clip.h <= 0)
        return;
    const int bFocus = HasFocus(this);
    const BevelColors &colors = _bPressed ? kPressed : bFocus ? kFocused : kNormal;
    gfx_Bevel(kButtonFill, colors.c1, colors.c2, colors.c3, colors.c4, colors.c5, colors.c6, _rc.x, _rc.y,
              clip.w, clip.h, lpBuffer);
    if (_lpszValue)
        RenderLabel(clip, lpBuffer);
    const int nInset = kFocusInset + (_bPressed ? 1 : 0);
    if (bFocus)
        gfx_DottedRect(kFocusColor, _rc.x + nInset, _rc.y + nInset, clip.w - kFocusShrink,
                       clip.h - kFocusShrink, lpBuffer);
}

// In the middle of what can be seen of the button; a label that finds no room there begins at its left, or its
// top, edge. A pressed button's label stands one pixel further right and down.
void SubmitButton::RenderLabel(const Size &clip, uint32_t *lpBuffer) const {
    const Font *lpFont = g_lpMainFrame->_lpFontSmallBold;
    const CharInfo *lpCharInfo = lpFont->_lpCharInfo;
    const int nShift = _bPressed ? 1 : 0;
    const int x = std::max((clip.w - MeasureText(_lpszValue, lpFont)) >> 1, 0) + nShift;
    const int y = std::max((clip.h - lpCharInfo->_bHeight) >> 1, 0) + nShift;
    gfx_TextOut(_lpszValue, lpCharInfo, lpFont->_dwColor, _rc.x + x, _rc.y + y, clip.w - x, clip.h - y,
                lpBuffer);
}

int SubmitButton::OnSetFocus() {
    Invalidate();
    return 1;
}

int SubmitButton::OnKillFocus() {
    Invalidate();
    return 1;
}

// Once popped up, only another press brings it down again.
int SubmitButton::OnMouseLeave() {
    if (!_bPressed)
        return 0;
    Invalidate();
    _bPressed = 0;
    return 1;
}

int SubmitButton::OnLMouseDown(uint16_t, uint16_t) {
    Invalidate();
    _bPressed = 1;
    return 1;
}

// A release comes here only if the pointer is still on the button and never left it.
int SubmitButton::OnLMouseUp(uint16_t, uint16_t) {
    _bPressed = 0;
    if (HasFocus(this) && _lpForm)
        _lpForm->Submit();
    Invalidate();
    return 1;
}
