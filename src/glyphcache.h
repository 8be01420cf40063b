// Glyph sets, packed the way gfx_TextOut reads them, and the cache of those that were used last. Pages share them: a font
// that the page before has used costs a look-up, and the characters that it has drawn cost nothing.
//
// A set fills while it is in use. MeasureText has each character drawn that it meets for the first time; every text is
// measured before it is laid out or painted, and those two only read. What has been drawn never changes.
//
// There is one cache, in MainFrame. Pages are parsed on several threads, hence its lock and that of each set, all leaves.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "arena.h"
#include "platform/mutex.h"
#include "platform/rasterizer.h"

// So far behind its end gfx_TextOut may read the bits of a glyph, which takes them in words.
inline constexpr int kGlyphSlack = 8;

struct CharGlyph {
    // 0 until the glyph is drawn, and written last: who finds a width finds the rest.
    std::atomic<uint8_t> _bWidth = 0;
    uint8_t _bHeight = 0;
    // _bWidth bits for each of _bHeight rows, the rows following each other without padding, 1 = ink, the
    // highest bit of a byte first; _bWidth * _bHeight / 8 + 1 bytes, and kGlyphSlack more that may be read.
    // Not owned. Not null once the glyph is drawn, be it without a width.
    std::atomic<const uint8_t *> _lpBits = nullptr;

    int Width() const { return _bWidth.load(std::memory_order_acquire); }
};

// What a face, a height and a style look like.
struct GlyphCells {
    uint8_t bMaxCharWidth = 0;
    uint8_t bAveCharWidth = 0;
    uint8_t bHeight = 0;
    std::atomic<int8_t> acSpacing[platform::kCharCount] = {};
    CharGlyph aGlyphs[platform::kCharCount];

    // Some of it is boxes instead of glyphs. The cache gives it to nobody else.
    std::atomic<bool> bHasBoxes = false;

    // The metrics, with no glyph yet. False if memory runs out.
    bool Open(const char *lpszFace, int nHeight, uint16_t wStyle);
    // Draws a character, unless that was done before, and returns its width. If memory runs out it stays without one, and
    // the next call tries again. On any thread.
    int Draw(uint8_t c);

  private:
    platform::Rasterizer *_lpRasterizer = nullptr;
    platform::RasterFont _font = {};
    platform::Mutex _hMutex;
    // The bits of the glyphs.
    Arena _bits GUARDED_BY(_hMutex);
};

class GlyphCache {
  public:
    // lpszFace in any case, nHeight in pixels. Null if memory runs out. On any thread.
    std::shared_ptr<GlyphCells> Get(const char *lpszFace, int nHeight, uint16_t wStyle);

  private:
    struct Entry {
        std::string strFace;  // in lower case
        int nHeight;
        uint16_t wStyle;
        std::shared_ptr<GlyphCells> lpCells;
    };

    std::shared_ptr<GlyphCells> Find(const std::string &strFace, int nHeight, uint16_t wStyle);

    platform::Mutex _hMutex;
    // The one that was used last at the end.
    std::vector<Entry> _entries GUARDED_BY(_hMutex);
};
