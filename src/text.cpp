// The cutting of a run keeps a running width, so that each byte is measured once, and a piece not again.
#include "text.h"

#include <algorithm>
#include <cassert>

#include "fontmanager.h"
#include "gfx.h"
#include "hyperlink.h"
#include "page.h"

namespace {

// A line of text is a quarter higher than its font; the extra space is below.
int LineHeight(const Font *lpFont) {
    return lpFont->_lpCharInfo->_bHeight * 5 / 4;
}

}  // namespace

Text::Text(Page *lpPage, const char *lpszText, Font *lpFont)
    : Text(lpPage, lpszText, MeasureText(lpszText, lpFont), lpFont, lpPage->_arena) {}

Text::Text(Page *lpPage, std::string_view text, int nWidth, Font *lpFont, Arena &arena)
    : PageItem(lpPage, 0), _lpszText(arena.CopyString(text)), _lpFont(lpFont) {
    assert(_lpFont);
    _rc.w = nWidth;
    _rc.h = LineHeight(_lpFont);
}

void Text::AddChild(Element *lpPiece) {
    List_Prepend(_lpChildren, lpPiece, GetPage()->_pieceArena);
}

// Where pieces stand, the rectangle of the whole is not kept.
void Text::Invalidate() {
    if (!_lpChildren) {
        Element::Invalidate();
        return;
    }
    for (List<Element> *lpNode = _lpChildren; lpNode; lpNode = lpNode->lpNext)
        lpNode->lpData->Invalidate();
    MarkDirty();
}

int Text::HitTest(int x, int y) {
    if (!_lpChildren)
        return Element::HitTest(x, y);
    for (List<Element> *lpNode = _lpChildren; lpNode; lpNode = lpNode->lpNext) {
        if (lpNode->lpData->HitTest(x, y))
            return 1;
    }
    return 0;
}

int Text::Intersects(const Rect *lpRect) {
    if (!_lpChildren)
        return Element::Intersects(lpRect);
    for (List<Element> *lpNode = _lpChildren; lpNode; lpNode = lpNode->lpNext) {
        if (lpNode->lpData->Intersects(lpRect))
            return 1;
    }
    return 0;
}

void Text::AddExtent(Extent *lpExtent) const {
    if (!_lpChildren)
        lpExtent->Add(_rc);
    for (const List<Element> *lpNode = _lpChildren; lpNode; lpNode = lpNode->lpNext)
        lpExtent->Add(lpNode->lpData->_rc);
}

void Text::Render(uint32_t *lpBuffer) {
    if (_lpChildren)
        Element::Render(lpBuffer);
    else
        Draw(_lpFont->_dwColor, lpBuffer);
}

void Text::Draw(uint32_t dwColor, uint32_t *lpBuffer) const {
    const Size clip = ClippedSize();
    if (clip.w > 0 && clip.h > 0)
        gfx_TextOut(_lpszText, _lpFont->_lpCharInfo, dwColor, _rc.x, _rc.y, clip.w, clip.h, lpBuffer);
}

// The pointer or the focus may be on a piece.
void Text::DropPieces() {
    _lpHover = nullptr;
    _lpFocus = nullptr;
    _lpChildren = nullptr;
}

void Text::PlaceInLine(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
                       int *lpnWidth) {
    DropPieces();
    const int nWidth = _rc.w;
    int nAvail = *lpnWidth - (lpPen->x - nLeft);
    if (nWidth > nAvail && SplitText(nAvail, *lpnWidth)) {
        // Not even the first word fits here: the run begins on a line of its own.
        lpPen->x = nLeft;
        lpPen->y = AddLengths(lpPen->y, *lpnLineHeight);
        *lpnUsed = AddLengths(*lpnUsed, *lpnLineHeight);
        *lpnLineHeight = 0;
        if (!(*lppLine)->_lpCell)
            *lppLine = AddFlowLine(GetPage(), *lppLine);
        nAvail = *lpnWidth;
        if (nWidth > nAvail)
            SplitText(nAvail, *lpnWidth);
    }
    if (_lpChildren) {
        PlacePieces(lppLine, nLeft, lpnUsed, lpnLineHeight, lpPen);
        return;
    }
    (*lppLine)->AddItem(this);
    _rc.x = lpPen->x;
    _rc.y = lpPen->y;
    lpPen->x = AddLengths(lpPen->x, nWidth);
    *lpnLineHeight = std::max(*lpnLineHeight, _rc.h);
}

// Every piece but the last ends its line. In a table cell they all stay in one flow Line.
void Text::PlacePieces(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen) {
    for (List<Element> *lpNode = List_Tail(_lpChildren); lpNode; lpNode = lpNode->lpPrev) {
        Text *lpPiece = static_cast<Text *>(lpNode->lpData);
        lpPiece->_rc.x = lpPen->x;
        lpPiece->_rc.y = lpPen->y;
        *lpnLineHeight = std::max(*lpnLineHeight, lpPiece->_rc.h);
        (*lppLine)->AddItem(lpPiece);
        if (!lpNode->lpPrev) {
            lpPen->x = AddLengths(lpPen->x, lpPiece->_rc.w);
            break;
        }
        lpPen->x = nLeft;
        lpPen->y = AddLengths(lpPen->y, *lpnLineHeight);
        *lpnUsed = AddLengths(*lpnUsed, *lpnLineHeight);
        if (!(*lppLine)->_lpCell)
            *lppLine = AddFlowLine(GetPage(), *lppLine);
    }
}

Text *Text::AddPiece(std::string_view text, int nWidth) {
    Arena &arena = GetPage()->_pieceArena;
    Text *lpPiece = new (arena) Text(GetPage(), text, nWidth, _lpFont, arena);
    AddChild(lpPiece);
    return lpPiece;
}

int Text::SplitText(int nFirst, int nFull) {
    const CharGlyph *lpGlyphs = _lpFont->_lpCharInfo->_aGlyphs;
    const char *lpPiece = _lpszText;  // where the piece being read begins
    const char *lpSpace = nullptr;    // the last space in it
    int nWidth = 0;                   // from there to the byte being read
    int nWidthToSpace = 0;
    int nLimit = nFirst;
    const char *lp = _lpszText;
    if (nFirst < nFull) {
        for (; *lp && *lp != ' '; ++lp) {
            nWidth += lpGlyphs[static_cast<uint8_t>(*lp)].Width();
            if (nWidth > nFirst)
                return 1;
        }
    }
    for (; *lp; ++lp) {
        const int nAdvance = lpGlyphs[static_cast<uint8_t>(*lp)].Width();
        nWidth += nAdvance;
        if (nWidth >= nLimit && lpSpace) {
            const int nSpaceWidth = lpGlyphs[static_cast<uint8_t>(' ')].Width();
            AddPiece({lpPiece, lpSpace}, nWidthToSpace);
            nWidth -= nWidthToSpace + nSpaceWidth;
            lpPiece = lpSpace + 1;
            lpSpace = nullptr;
            nLimit = nFull;
        }
        if (*lp == ' ') {
            lpSpace = lp;
            nWidthToSpace = nWidth - nAdvance;
        }
    }
    if (*lpPiece)
        AddPiece({lpPiece, lp}, nWidth);
    return 0;
}

int Text::LongestWord() const {
    const CharGlyph *lpGlyphs = _lpFont->_lpCharInfo->_aGlyphs;
    int nLongest = 0;
    int nWord = 0;
    for (const char *lp = _lpszText; *lp; ++lp) {
        nWord = *lp == ' ' ? 0 : nWord + lpGlyphs[static_cast<uint8_t>(*lp)].Width();
        nLongest = std::max(nLongest, nWord);
    }
    return nLongest;
}

LinkText::LinkText(Page *lpPage, const char *lpszText, Font *lpFont)
    : Text(lpPage, lpszText, lpFont), _lpHyperlink(lpPage->_lpCurHyperlink) {}

LinkText::LinkText(const LinkText *lpWhole, std::string_view text, int nWidth, Arena &arena)
    : Text(lpWhole->GetPage(), text, nWidth, lpWhole->_lpFont, arena), _lpHyperlink(lpWhole->_lpHyperlink) {}

void LinkText::Render(uint32_t *lpBuffer) {
    const Page *lpPage = GetPage();
    if (_lpChildren)
        Element::Render(lpBuffer);  // NOLINT(bugprone-parent-virtual-call): Text would paint itself
    else
        Draw(HasFocus(_lpHyperlink) ? lpPage->_dwALinkColor : lpPage->_dwLinkColor, lpBuffer);
}

int LinkText::OnLMouseDown(uint16_t x, uint16_t y) {
    return _lpHyperlink->OnLMouseDown(x, y);
}

int LinkText::OnLMouseUp(uint16_t x, uint16_t y) {
    return _lpHyperlink->OnLMouseUp(x, y);
}

int LinkText::OnKeyDown(int key) {
    return _lpHyperlink->OnKeyDown(key);
}

Text *LinkText::AddPiece(std::string_view text, int nWidth) {
    Arena &arena = GetPage()->_pieceArena;
    LinkText *lpPiece = new (arena) LinkText(this, text, nWidth, arena);
    AddChild(lpPiece);
    return lpPiece;
}
