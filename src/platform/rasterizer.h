// What builds glyph sets from the fonts of the system.
//
// One call turns a face name, a character height and three styles into the metrics and the 1-bit cells of all
// 256 characters of code page 1252. Everything that is drawn later comes from these cells; the system's fonts
// are not asked again.
#pragma once

#include <cstdint>
#include <memory>

namespace platform {

enum : uint16_t { kStyleBold = 1, kStyleItalic = 2, kStyleUnderline = 4 };

inline constexpr int kCharCount = 256;

// All sizes in pixels.
struct FontCells {
    int nHeight;           // ascent and descent: the rows of every cell
    int nExternalLeading;  // what the font wants between two lines
    int nOverhang;         // what a style that the rasteriser made up adds to each width; 0 for real styles
    int nAveCharWidth;
    int nMaxCharWidth;

    // The three parts of a character's advance: the space before its ink, the ink, and the space behind it.
    // The outer two may be negative, where ink reaches over the origin or into the next character.
    struct Spacing {
        int nA, nB, nC;
    };
    Spacing aSpacing[kCharCount];

    // The ink of character c, origin at the top left corner of its cell, row by row: row y of c starts at
    // byte (c * nHeight + y) * nPitch, its leftmost pixel is the highest bit. nPitch * 8 is at least A + B +
    // C (a negative C taken as 0) of every character. Style and underline are in it. Ink left of the origin
    // is lost.
    int nPitch;
    std::unique_ptr<uint8_t[]> lpInk;
};

class Rasterizer {
  public:
    virtual ~Rasterizer() = default;

    // lpszFace is any name, compared without regard to case; the system substitutes for one that it does not
    // have. nHeight is the height of the em square in pixels, 1 to 255. Returns false only if memory runs
    // out. Safe from several threads.
    virtual bool Rasterize(const char *lpszFace, int nHeight, uint16_t wStyle, FontCells *lpCells) = 0;
};

// The system's rasteriser, or the one that a test has put in its place.
Rasterizer *GetRasterizer();

// For tests: lpRasterizer, not owned, takes the place of the system's until null brings that back.
void ReplaceRasterizer(Rasterizer *lpRasterizer);

// Gives back everything that the system's rasteriser holds. It starts anew when it is asked again.
void ReleaseRasterizer();

}  // namespace platform
