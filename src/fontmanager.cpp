#include "fontmanager.h"

#include "htmlparser.h"
#include "mainframe.h"
#include "types.h"

const int32_t g_anFontHeights[kFontSizes] = {10, 12, 15, 17, 21, 27, 35};

namespace {

// A page may name any number of faces, and each costs a look-up among the fonts of the system and up to 256 rasterised
// cells. Behind this many, text takes the default.
constexpr int kMaxPageSets = 128;

// A set of MainFrame that fits, or null. The sets of other Pages are none of our business; nor is one with boxes, since
// the font may be there by now.
CharInfo *FindSharedCharInfo(const char *lpszFace, int nHeight, uint16_t wStyle) {
    for (List<CharInfo> *lpNode = g_lpMainFrame->_lpCharInfos; lpNode; lpNode = lpNode->lpNext) {
        CharInfo *lpCharInfo = lpNode->lpData;
        if (lpCharInfo->_bPixelHeight == nHeight && lpCharInfo->_wStyle == wStyle &&
            EqualsNoCase(lpCharInfo->_lpszFace, lpszFace) && !lpCharInfo->_lpCells->bHasBoxes)
            return lpCharInfo;
    }
    return nullptr;
}

// Measures a text that has characters without a width, which means that most of them have not been drawn yet.
[[gnu::noinline]] int DrawText(const char *lpsz, const CharInfo *lpCharInfo) {
    int nWidth = 0;
    for (; *lpsz; ++lpsz)
        nWidth += lpCharInfo->_lpCells->Draw(static_cast<uint8_t>(*lpsz));
    return nWidth;
}

}  // namespace

CharInfo::CharInfo(const std::shared_ptr<GlyphCells> &lpCells)
    : _acSpacing(lpCells->acSpacing), _aGlyphs(lpCells->aGlyphs), _lpCells(lpCells) {}

CharInfo::~CharInfo() {
    delete[] _lpszFace;
}

Font::Font(const char *lpszFace, uint16_t wStyle, uint8_t bSize, uint32_t dwColor)
    : _lpszFace(StrDup(lpszFace)), _wStyle(wStyle), _bSize(bSize), _dwColor(dwColor) {}

Font::~Font() {
    delete[] _lpszFace;
}

FontManager::FontManager(Page *lpPage) : _lpPage(lpPage) {}

FontManager::~FontManager() {
    List_Destroy(_lpFontStack);
    List_Destroy(_lpFonts);
    List_Destroy(_lpCharInfos);
}

Font *FontManager::CurrentFont() {
    if (!_lpCurrent) {
        const Font *lpTop = _lpFontStack->lpData;
        _lpCurrent = FindFont(lpTop->_lpszFace, lpTop->_bSize, lpTop->_dwColor,
                              static_cast<uint16_t>(lpTop->_wStyle | _wStyle));
    }
    return _lpCurrent;
}

// The newest record of the face, size and style decides: if its colour is another, a clone with the right one
// becomes the newest, even where an older record would fit.
Font *FontManager::FindFont(const char *lpszFace, uint8_t bSize, uint32_t dwColor, uint16_t wStyle) {
    const auto found = _newest.find({lpszFace, bSize, wStyle});
    if (found != _newest.end()) {
        if (found->second->_dwColor == dwColor)
            return found->second;
        Font *lpFont = CloneFont(found->second);
        lpFont->_dwColor = dwColor;
        return Keep(lpFont);
    }

    Font *lpFont;
    if (_nSets < kMaxPageSets) {
        const List<CharInfo> *lpBefore = _lpCharInfos;
        lpFont = NewFont(lpszFace, bSize, dwColor, wStyle, nullptr, &_lpCharInfos);
        _nSets += _lpCharInfos != lpBefore;
    } else {
        lpFont = new Font(lpszFace, wStyle, bSize, dwColor);
        lpFont->_lpCharInfo = FindSharedCharInfo(lpszFace, g_anFontHeights[bSize], wStyle);
    }
    if (!lpFont->_lpCharInfo)
        lpFont->_lpCharInfo = g_lpMainFrame->_lpFontNormal->_lpCharInfo;
    return Keep(lpFont);
}

Font *FontManager::Keep(Font *lpFont) {
    List_Prepend(_lpFonts, lpFont);
    _newest[{lpFont->_lpszFace, lpFont->_bSize, lpFont->_wStyle}] = lpFont;
    return lpFont;
}

bool FontManager::Key::operator<(const Key &other) const {
    if (bSize != other.bSize)
        return bSize < other.bSize;
    if (wStyle != other.wStyle)
        return wStyle < other.wStyle;
    return CompareNoCase(lpszFace, other.lpszFace) < 0;
}

Font *FontManager::CloneFont(const Font *lpFont) {
    Font *lpClone = new Font(lpFont->_lpszFace, lpFont->_wStyle, lpFont->_bSize, lpFont->_dwColor);
    lpClone->_lpCharInfo = lpFont->_lpCharInfo;
    return lpClone;
}

void FontManager::PushFont(const char *lpszFace, uint16_t wStyle, uint8_t bSize, uint32_t dwColor) {
    PushFontRecord(new Font(lpszFace, wStyle, bSize, dwColor), 0);
}

void FontManager::PushFontRecord(Font *lpFont, int bClone) {
    List_Prepend(_lpFontStack, bClone ? CloneFont(lpFont) : lpFont);
    _lpCurrent = nullptr;
}

void FontManager::PopFont() {
    if (!_lpFontStack || !_lpFontStack->lpNext)
        return;
    delete List_TakeHead(_lpFontStack);
    _lpCurrent = nullptr;
}

void FontManager::Count(int32_t *lpnCount, uint16_t wBit, int bOn) {
    if (bOn) {
        ++*lpnCount;
        _wStyle = static_cast<uint16_t>(_wStyle | wBit);
    } else if (*lpnCount > 0 && --*lpnCount == 0) {
        _wStyle = static_cast<uint16_t>(_wStyle ^ wBit);
    }
    _lpCurrent = nullptr;
}

Font *NewFont(const char *lpszFace, uint8_t bSize, uint32_t dwColor, uint16_t wStyle, List<Font> **lppFonts,
              List<CharInfo> **lppList) {
    Font *lpFont = new Font(lpszFace, wStyle, bSize, dwColor);
    lpFont->_lpCharInfo = BuildCharInfo(lpszFace, g_anFontHeights[bSize], wStyle, lppList);
    if (lppFonts)
        List_Prepend(*lppFonts, lpFont);
    return lpFont;
}

CharInfo *BuildCharInfo(const char *lpszFace, int nHeight, uint16_t wStyle, List<CharInfo> **lppList) {
    if (CharInfo *lpShared = FindSharedCharInfo(lpszFace, nHeight, wStyle))
        return lpShared;

    const std::shared_ptr<GlyphCells> lpCells = g_lpMainFrame->_glyphCache.Get(lpszFace, nHeight, wStyle);
    if (!lpCells)
        return nullptr;
    CharInfo *lpCharInfo = new CharInfo(lpCells);
    lpCharInfo->_wStyle = wStyle;
    lpCharInfo->_lpszFace = StrDup(lpszFace);
    lpCharInfo->_bMaxCharWidth = lpCells->bMaxCharWidth;
    lpCharInfo->_bAveCharWidth = lpCells->bAveCharWidth;
    lpCharInfo->_bHeight = lpCells->bHeight;
    lpCharInfo->_bPixelHeight = static_cast<uint8_t>(nHeight);
    List_Prepend(*lppList, lpCharInfo);
    return lpCharInfo;
}

int MeasureText(const char *lpsz, const Font *lpFont) {
    if (!lpsz)
        return 0;
    const CharGlyph *lpGlyphs = lpFont->_lpCharInfo->_aGlyphs;
    int nWidth = 0;
    for (const char *lp = lpsz; *lp; ++lp) {
        const int nGlyphWidth = lpGlyphs[static_cast<uint8_t>(*lp)].Width();
        if (nGlyphWidth == 0) [[unlikely]]
            return DrawText(lpsz, lpFont->_lpCharInfo);
        nWidth += nGlyphWidth;
    }
    return nWidth;
}
