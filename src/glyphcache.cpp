#include "glyphcache.h"

#include <algorithm>
#include <new>

#include "platform/rasterizer.h"

namespace {

// More than a page of many faces uses; the largest take 30 KB each.
constexpr size_t kMaxEntries = 48;

uint8_t ToByte(int n) {
    return static_cast<uint8_t>(std::clamp(n, 0, 255));
}

size_t PackedSize(const CharGlyph &glyph) {
    return size_t{glyph._bWidth} * glyph._bHeight / 8 + 1;
}

// Packs the columns of a glyph, whose rows stand in the cell padded to bytes, into a stream without padding.
void PackGlyph(const CharGlyph &glyph, const uint8_t *lpRows, int nPitch, uint8_t *lpBits) {
    int nBit = 0;
    for (int nRow = 0; nRow < glyph._bHeight; ++nRow, lpRows += nPitch) {
        for (int nColumn = 0; nColumn < glyph._bWidth; nColumn += 8) {
            const int nCount = std::min(8, glyph._bWidth - nColumn);
            const int nShift = nBit & 7;
            const unsigned nInk = lpRows[nColumn / 8] & (0xFF00u >> nCount) & 0xFF;
            lpBits[nBit / 8] = static_cast<uint8_t>(lpBits[nBit / 8] | nInk >> nShift);
            if (nShift + nCount > 8)
                lpBits[nBit / 8 + 1] = static_cast<uint8_t>(nInk << (8 - nShift));
            nBit += nCount;
        }
    }
}

// Sizes first, so that all bits can lie in one piece. False if memory runs out.
bool PackGlyphs(const platform::FontCells &cells, GlyphCells *lpTo) {
    size_t nBytes = 0;
    for (int c = 0; c < platform::kCharCount; ++c) {
        const platform::FontCells::Spacing &spacing = cells.aSpacing[c];
        CharGlyph &glyph = lpTo->aGlyphs[c];
        lpTo->acSpacing[c] = static_cast<int8_t>(std::clamp(spacing.nC, -128, 0));
        glyph._bWidth = ToByte(std::min(spacing.nA + spacing.nB + std::max(spacing.nC, 0), cells.nPitch * 8));
        glyph._bHeight = ToByte(cells.nHeight);
        nBytes += PackedSize(glyph);
    }
    lpTo->lpBits.reset(new (std::nothrow) uint8_t[nBytes + kGlyphSlack]());
    if (!lpTo->lpBits)
        return false;
    uint8_t *lpBits = lpTo->lpBits.get();
    for (int c = 0; c < platform::kCharCount; ++c) {
        CharGlyph &glyph = lpTo->aGlyphs[c];
        PackGlyph(glyph, cells.lpInk.get() + static_cast<ptrdiff_t>(c) * cells.nHeight * cells.nPitch,
                  cells.nPitch, lpBits);
        glyph._lpBits = lpBits;
        lpBits += PackedSize(glyph);
    }
    return true;
}

std::shared_ptr<const GlyphCells> BuildCells(const char *lpszFace, int nHeight, uint16_t wStyle) {
    platform::FontCells cells;
    if (!platform::GetRasterizer()->Rasterize(lpszFace, nHeight, wStyle, &cells))
        return nullptr;
    auto lpCells = std::make_shared<GlyphCells>();
    lpCells->bMaxCharWidth = ToByte(cells.nMaxCharWidth);
    lpCells->bAveCharWidth = ToByte(cells.nAveCharWidth);
    lpCells->bHeight = ToByte(cells.nHeight - cells.nExternalLeading);
    if (!PackGlyphs(cells, lpCells.get()))
        return nullptr;
    return lpCells;
}

}  // namespace

// Two threads may build the same set at once; both are right.
std::shared_ptr<const GlyphCells> GlyphCache::Get(const char *lpszFace, int nHeight, uint16_t wStyle) {
    std::string strFace(lpszFace);
    for (char &c : strFace)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    if (std::shared_ptr<const GlyphCells> lpFound = Find(strFace, nHeight, wStyle))
        return lpFound;
    std::shared_ptr<const GlyphCells> lpCells = BuildCells(lpszFace, nHeight, wStyle);
    if (lpCells) {
        const platform::MutexLock lock(_hMutex);
        if (_entries.size() >= kMaxEntries)
            _entries.erase(_entries.begin());
        _entries.push_back({std::move(strFace), nHeight, wStyle, lpCells});
    }
    return lpCells;
}

std::shared_ptr<const GlyphCells> GlyphCache::Find(const std::string &strFace, int nHeight, uint16_t wStyle) {
    const platform::MutexLock lock(_hMutex);
    const auto it = std::find_if(_entries.begin(), _entries.end(), [&](const Entry &entry) {
        return entry.nHeight == nHeight && entry.wStyle == wStyle && entry.strFace == strFace;
    });
    if (it == _entries.end())
        return nullptr;
    std::rotate(it, it + 1, _entries.end());
    return _entries.back().lpCells;
}
