#include "gfx.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "fontmanager.h"

uint32_t g_nBufferWidth = 0;

namespace {

uint32_t *PixelAt(uint32_t *lpBuffer, int x, int y) {
    return lpBuffer + static_cast<ptrdiff_t>(y) * static_cast<ptrdiff_t>(g_nBufferWidth) + x;
}

void FillSpan(uint32_t *lpPixels, int nCount, uint32_t dwColor) {
    std::fill_n(lpPixels, nCount, dwColor);
}

// One rectangle of a bevel, whose lines may be asked for in rows and columns that a small one does not have.
struct BevelBox {
    int x, y, w, h;
    uint32_t *lpBuffer;

    // Row nRow, columns nFirst to nLast, both included.
    void Row(int nRow, int nFirst, int nLast, uint32_t dwColor) const {
        nFirst = std::max(nFirst, 0);
        nLast = std::min(nLast, w - 1);
        if (nRow >= 0 && nRow < h && nFirst <= nLast)
            FillSpan(PixelAt(lpBuffer, x + nFirst, y + nRow), nLast - nFirst + 1, dwColor);
    }

    void Column(int nColumn, int nFirst, int nLast, uint32_t dwColor) const {
        if (nColumn < 0 || nColumn >= w)
            return;
        nLast = std::min(nLast, h - 1);
        for (int nRow = std::max(nFirst, 0); nRow <= nLast; ++nRow)
            *PixelAt(lpBuffer, x + nColumn, y + nRow) = dwColor;
    }
};

// The bits of a stream from bit nBit on, at the top of a word. What is behind kSureBits of them is whatever was read.
constexpr int kSureBits = 57;

uint64_t TakeBits(const uint8_t *lpBits, uint32_t nBit) {
    uint64_t qwBits;
    memcpy(&qwBits, lpBits + (nBit >> 3), sizeof qwBits);
    if constexpr (std::endian::native == std::endian::little)
        qwBits = __builtin_bswap64(qwBits);
    return qwBits << (nBit & 7);
}

// Jumps from ink to ink, from right to left: clearing the lowest bit of a word is what processors are good at. The lowest
// bit of qwBits is the pixel at lpLast.
void DrawBits(uint64_t qwBits, uint32_t dwColor, uint32_t *lpLast) {
    for (; qwBits; qwBits &= qwBits - 1)
        lpLast[-std::countr_zero(qwBits)] = dwColor;
}

// A glyph with rows too long for one word.
void DrawWideGlyph(const CharGlyph &glyph, int nColumns, int nRows, uint32_t dwColor, uint32_t *lpPixels) {
    const uint8_t *lpBits = glyph._lpBits;
    const auto nWidth = static_cast<uint32_t>(glyph.Width());
    uint32_t nRowBit = 0;
    for (int nRow = 0; nRow < nRows; ++nRow, nRowBit += nWidth, lpPixels += g_nBufferWidth) {
        for (int nColumn = 0; nColumn < nColumns; nColumn += kSureBits) {
            const int nCount = std::min(kSureBits, nColumns - nColumn);
            const uint64_t qwBits = TakeBits(lpBits, nRowBit + static_cast<uint32_t>(nColumn));
            DrawBits(qwBits >> (64 - nCount), dwColor, lpPixels + nColumn + nCount - 1);
        }
    }
}

// As many rows as a word has room for are taken from memory at a time.
void DrawGlyph(const CharGlyph &glyph, int nColumns, int nRows, uint32_t dwColor, uint32_t *lpPixels) {
    const int nWidth = glyph.Width();
    if (nWidth > kSureBits) {
        DrawWideGlyph(glyph, nColumns, nRows, dwColor, lpPixels);
        return;
    }
    const uint8_t *lpBits = glyph._lpBits;
    uint64_t qwBits = 0;
    uint32_t nRowBit = 0;
    int nSure = 0;
    uint32_t *lpLast = lpPixels + nColumns - 1;
    for (int nRow = 0; nRow < nRows; ++nRow, lpLast += g_nBufferWidth) {
        if (nSure < nWidth) {
            qwBits = TakeBits(lpBits, nRowBit);
            nSure = kSureBits;
        }
        DrawBits(qwBits >> (64 - nColumns), dwColor, lpLast);
        qwBits <<= nWidth;
        nSure -= nWidth;
        nRowBit += static_cast<uint32_t>(nWidth);
    }
}

}  // namespace

void gfx_Bevel(uint32_t dwFill, uint32_t c1, uint32_t c2, uint32_t c3, uint32_t c4, uint32_t c5, uint32_t c6,
               int x, int y, int w, int h, uint32_t *lpBuffer) {
    gfx_FillRect(dwFill, x, y, w, h, lpBuffer);
    const BevelBox box{x, y, w, h, lpBuffer};
    box.Row(0, 0, w - 2, c1);
    box.Row(1, 1, w - 3, c2);
    box.Row(2, 2, w - 3, c3);
    box.Column(0, 0, h - 2, c1);
    box.Column(1, 1, h - 3, c2);
    box.Column(2, 2, h - 3, c3);
    box.Column(w - 3, 2, h - 2, c4);
    box.Column(w - 2, 1, h - 1, c5);
    box.Column(w - 1, 0, h - 1, c6);
    box.Row(h - 3, 2, w - 3, c4);
    box.Row(h - 2, 1, w - 2, c5);
    box.Row(h - 1, 0, w - 1, c6);
}

void gfx_Blit(const uint32_t *lpSource, int x, int y, int w, int h, int nSourceWidth, uint32_t *lpBuffer,
              int bKeyed) {
    if (w < 1 || h < 1)
        return;
    uint32_t *lpTarget = PixelAt(lpBuffer, x, y);
    for (int nRow = 0; nRow < h; ++nRow, lpSource += nSourceWidth, lpTarget += g_nBufferWidth) {
        if (!bKeyed) {
            std::copy_n(lpSource, w, lpTarget);
            continue;
        }
        // A store in every turn, of the old pixel if need be, is what lets the compiler use vectors.
        for (int i = 0; i < w; ++i) {
            const uint32_t dwPixel = lpSource[i] & 0x00FFFFFF;
            lpTarget[i] = dwPixel ? dwPixel : lpTarget[i];
        }
    }
}

void gfx_FlipRows(int nWidth, int nRows, int nPixels, uint32_t *lpPixels) {
    if (nWidth < 1 || nRows < 2)
        return;
    uint32_t *lpLast = lpPixels + nPixels - nWidth;
    for (; lpPixels < lpLast; lpPixels += nWidth, lpLast -= nWidth)
        std::swap_ranges(lpPixels, lpPixels + nWidth, lpLast);
}

void gfx_DottedRect(uint32_t dwColor, int x, int y, int w, int h, uint32_t *lpBuffer) {
    if (w < 1 || h < 1)
        return;
    for (int i = w & 1; i < w; i += 2) {
        *PixelAt(lpBuffer, x + i, y) = dwColor;
        *PixelAt(lpBuffer, x + i, y + h - 1) = dwColor;
    }
    for (int nRow = 1; nRow <= h - 2; ++nRow) {
        if ((h - 1 - nRow) & 1) {
            *PixelAt(lpBuffer, x, y + nRow) = dwColor;
            *PixelAt(lpBuffer, x + w, y + nRow) = dwColor;
        }
    }
}

void gfx_Rect(uint32_t dwColor, int x, int y, int w, int h, uint32_t *lpBuffer) {
    if (w < 1 || h < 1)
        return;
    FillSpan(PixelAt(lpBuffer, x, y), w, dwColor);
    for (int nRow = 0; nRow < h; ++nRow) {
        *PixelAt(lpBuffer, x, y + nRow) = dwColor;
        *PixelAt(lpBuffer, x + w - 1, y + nRow) = dwColor;
    }
    FillSpan(PixelAt(lpBuffer, x, y + h - 1), w, dwColor);
}

void gfx_FillRect(uint32_t dwColor, int x, int y, int w, int h, uint32_t *lpBuffer) {
    if (w < 1 || h < 1)
        return;
    // The C library copies with the widest vectors that the processor has, which no loop of ours may count on, and the
    // first row stays in the nearest cache.
    uint32_t *lpFirst = PixelAt(lpBuffer, x, y);
    FillSpan(lpFirst, w, dwColor);
    uint32_t *lpRow = lpFirst;
    for (int nRow = 1; nRow < h; ++nRow)
        std::copy_n(lpFirst, w, lpRow += g_nBufferWidth);
}

void gfx_TextOut(const char *lpsz, const CharInfo *lpCharInfo, uint32_t dwColor, int x, int y, int nClipW,
                 int nClipH, uint32_t *lpBuffer) {
    int nDone = 0;
    for (; *lpsz; ++lpsz) {
        const uint8_t c = static_cast<uint8_t>(*lpsz);
        const CharGlyph &glyph = lpCharInfo->_aGlyphs[c];
        const int nColumns = std::min(std::max(nClipW - nDone, 0), glyph.Width());
        if (nColumns == 0)
            return;
        const int nRows = std::min<int>(std::max(nClipH, 0), glyph._bHeight);
        if (nRows == 0)
            return;
        DrawGlyph(glyph, nColumns, nRows, dwColor, PixelAt(lpBuffer, x + nDone, y));
        // The step is a byte: a character that reaches further back than it is wide moves far to the right.
        nDone += static_cast<uint8_t>(nColumns + lpCharInfo->_acSpacing[c]);
    }
}
