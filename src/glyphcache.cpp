#include "glyphcache.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

// More than a page of many faces uses; the largest, with every character drawn, take 30 KB each.
constexpr size_t kMaxEntries = 48;

uint8_t ToByte(int n) {
    return static_cast<uint8_t>(std::clamp(n, 0, 255));
}

// Packs the columns of a glyph, whose rows stand in the cell padded to bytes, into a stream without padding.
void PackGlyph(const platform::CharCell &cell, int nWidth, int nHeight, uint8_t *lpBits) {
    const uint8_t *lpRows = cell.aInk;
    int nBit = 0;
    for (int nRow = 0; nRow < nHeight; ++nRow, lpRows += platform::kCellPitch) {
        for (int nColumn = 0; nColumn < nWidth; nColumn += 8) {
            const int nCount = std::min(8, nWidth - nColumn);
            const int nShift = nBit & 7;
            const unsigned nInk = lpRows[nColumn / 8] & (0xFF00u >> nCount) & 0xFF;
            lpBits[nBit / 8] = static_cast<uint8_t>(lpBits[nBit / 8] | nInk >> nShift);
            if (nShift + nCount > 8)
                lpBits[nBit / 8 + 1] = static_cast<uint8_t>(nInk << (8 - nShift));
            nBit += nCount;
        }
    }
}

}  // namespace

bool GlyphCells::Open(const char *lpszFace, int nHeight, uint16_t wStyle) {
    _lpRasterizer = platform::GetRasterizer();
    if (!_lpRasterizer->Open(lpszFace, nHeight, wStyle, &_font))
        return false;
    bHasBoxes = _font.bBoxes;
    bMaxCharWidth = ToByte(_font.nMaxCharWidth);
    bAveCharWidth = ToByte(_font.nAveCharWidth);
    bHeight = ToByte(_font.nHeight - _font.nExternalLeading);
    return true;
}

// The rasteriser is asked before the lock is taken, which so remains a leaf. Two threads may have the same character
// drawn at once; the first serves both.
int GlyphCells::Draw(uint8_t c) {
    CharGlyph &glyph = aGlyphs[c];
    platform::CharCell cell;
    if (glyph._lpBits || !_lpRasterizer->Draw(_font, c, &cell))
        return glyph.Width();
    if (cell.bBox)
        bHasBoxes = true;
    const uint8_t bGlyphWidth = ToByte(cell.nA + cell.nB + std::max(cell.nC, 0));
    const uint8_t bGlyphHeight = ToByte(_font.nHeight);
    const platform::MutexLock lock(_hMutex);
    if (!glyph._lpBits) {
        const size_t nBytes = size_t{bGlyphWidth} * bGlyphHeight / 8 + 1 + kGlyphSlack;
        uint8_t *lpBits = static_cast<uint8_t *>(memset(_bits.Take(nBytes), 0, nBytes));
        PackGlyph(cell, bGlyphWidth, bGlyphHeight, lpBits);
        acSpacing[c] = static_cast<int8_t>(std::clamp(cell.nC, -128, 0));
        glyph._bHeight = bGlyphHeight;
        glyph._lpBits = lpBits;
        glyph._bWidth = bGlyphWidth;
    }
    return glyph.Width();
}

// Two threads may open the same set at once; both are right.
std::shared_ptr<GlyphCells> GlyphCache::Get(const char *lpszFace, int nHeight, uint16_t wStyle) {
    std::string strFace(lpszFace);
    for (char &c : strFace)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    if (std::shared_ptr<GlyphCells> lpFound = Find(strFace, nHeight, wStyle))
        return lpFound;
    auto lpCells = std::make_shared<GlyphCells>();
    if (!lpCells->Open(lpszFace, nHeight, wStyle))
        return nullptr;
    if (lpCells->bHasBoxes)
        return lpCells;
    const platform::MutexLock lock(_hMutex);
    if (_entries.size() >= kMaxEntries)
        _entries.erase(_entries.begin());
    _entries.push_back({std::move(strFace), nHeight, wStyle, lpCells});
    return lpCells;
}

std::shared_ptr<GlyphCells> GlyphCache::Find(const std::string &strFace, int nHeight, uint16_t wStyle) {
    const platform::MutexLock lock(_hMutex);
    std::erase_if(_entries, [](const Entry &entry) { return entry.lpCells->bHasBoxes.load(); });
    const auto it = std::find_if(_entries.begin(), _entries.end(), [&](const Entry &entry) {
        return entry.nHeight == nHeight && entry.wStyle == wStyle && entry.strFace == strFace;
    });
    if (it == _entries.end())
        return nullptr;
    std::rotate(it, it + 1, _entries.end());
    return _entries.back().lpCells;
}
