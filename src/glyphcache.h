// The glyph sets that were built last, packed the way gfx_TextOut reads them. Pages share them: a font that the page
// before has used costs a look-up.
//
// There is one cache, in MainFrame. Pages are parsed on several threads, hence its lock, a leaf. What it hands out never
// changes, and stays as long as somebody holds it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/mutex.h"

// So far behind its end gfx_TextOut may read the bits of a glyph, which takes them in words.
inline constexpr int kGlyphSlack = 8;

struct CharGlyph {
    uint8_t _bWidth = 0;
    uint8_t _bHeight = 0;
    // _bWidth bits for each of _bHeight rows, the rows following each other without padding, 1 = ink, the
    // highest bit of a byte first; _bWidth * _bHeight / 8 + 1 bytes, and kGlyphSlack more that may be read.
    // Not owned.
    const uint8_t *_lpBits = nullptr;
};

// What a face, a height and a style look like.
struct GlyphCells {
    uint8_t bMaxCharWidth = 0;
    uint8_t bAveCharWidth = 0;
    uint8_t bHeight = 0;
    int8_t acSpacing[256] = {};
    CharGlyph aGlyphs[256];
    // The bits of all glyphs, one behind the other.
    std::unique_ptr<uint8_t[]> lpBits;
};

class GlyphCache {
  public:
    // lpszFace in any case, nHeight in pixels. Null if memory runs out. On any thread.
    std::shared_ptr<const GlyphCells> Get(const char *lpszFace, int nHeight, uint16_t wStyle);

  private:
    struct Entry {
        std::string strFace;  // in lower case
        int nHeight;
        uint16_t wStyle;
        std::shared_ptr<const GlyphCells> lpCells;
    };

    std::shared_ptr<const GlyphCells> Find(const std::string &strFace, int nHeight, uint16_t wStyle);

    platform::Mutex _hMutex;
    // The one that was used last at the end.
    std::vector<Entry> _entries GUARDED_BY(_hMutex);
};
