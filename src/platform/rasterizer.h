// What draws the glyphs of the engine, with the fonts of the system.
//
// A face name, a character height and three styles open a font, which has metrics. Each of the 256 characters of code
// page 1252 is then drawn by itself, once, when a text first needs it. Everything that is painted later comes from these
// cells; the system's fonts are not asked again.
#pragma once

#include <cstdint>
#include <memory>

namespace platform {

enum : uint16_t { kStyleBold = 1, kStyleItalic = 2, kStyleUnderline = 4 };

inline constexpr int kCharCount = 256;
inline constexpr int kMaxCell = 255;   // pixels of a cell, either way: the engine holds them in bytes
inline constexpr int kCellPitch = 32;  // bytes of a row

struct FontSource;

// A font that is open, as long as anybody likes. All sizes in pixels.
struct RasterFont {
    int nHeight;           // ascent and descent: the rows of every cell, 1 to kMaxCell
    int nExternalLeading;  // what the font wants between two lines
    int nOverhang;         // what a style that the rasteriser made up adds to each width; 0 for real styles
    int nAveCharWidth;
    int nMaxCharWidth;
    // What the rasteriser itself knows of it.
    std::shared_ptr<const FontSource> lpSource;
    // Hollow boxes, since no font was to be had. That may change: files and memory can be short for a moment.
    bool bBoxes = false;
};

struct CharCell {
    // The three parts of the character's advance, in pixels: the space before its ink, the ink, and the space behind it.
    // The outer two may be negative, where ink reaches over the origin or into the next character. A + B + C, a negative
    // C taken as 0, is the width of the cell.
    int nA, nB, nC;
    // Its ink, origin at the top left corner, row by row: row y starts at byte y * kCellPitch, its leftmost pixel is the
    // highest bit. Style and underline are in it. Ink left of the origin is lost. There are as many rows as the font has;
    // what is behind them is not set.
    uint8_t aInk[kMaxCell * kCellPitch];
    // A hollow box, since the font's file could not be read this time.
    bool bBox = false;
};

// Both calls return false only if memory runs out, and are safe from several threads.
class Rasterizer {
  public:
    virtual ~Rasterizer() = default;

    // lpszFace is any name, compared without regard to case; the system substitutes for one that it does not
    // have. nHeight is the height of the em square in pixels, 1 to 255.
    virtual bool Open(const char *lpszFace, int nHeight, uint16_t wStyle, RasterFont *lpFont) = 0;
    // Draws character c of a font that this rasteriser has opened.
    virtual bool Draw(const RasterFont &font, int c, CharCell *lpCell) = 0;
};

// The system's rasteriser, or the one that a test has put in its place.
Rasterizer *GetRasterizer();

// For tests: lpRasterizer, not owned, takes the place of the system's until null brings that back.
void ReplaceRasterizer(Rasterizer *lpRasterizer);

// Gives back everything that the system's rasteriser holds. It starts anew when it is asked again, by a font that was
// opened before as well.
void ReleaseRasterizer();

}  // namespace platform
