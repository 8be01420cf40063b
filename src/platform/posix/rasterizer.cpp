// The rasteriser of systems with fontconfig and FreeType.
//
// A font is opened in two steps, and each step has a memory of what it gave last:
//   face name, height, style --fontconfig--> FontFile: a face of a font file and the styles that it lacks
//   FontFile, height, underline --FreeType--> metrics, and FontSource, by which its characters are drawn
// So the many names that no system knows, which all lead to the same few files, cost one look-up each. Few files are open
// at a time; one that was closed is opened again for the next character. Where no font is to be had, every character is a
// hollow box.
//
// One lock guards everything here. It is a leaf: nothing of the engine is called while it is held. What it
// guards hangs from one pointer and is not destroyed at process exit, when other threads may still run.
#include "platform/rasterizer.h"

#include <dlfcn.h>
#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_ADVANCES_H
#include FT_BITMAP_H
#include FT_OUTLINE_H
#include FT_TRUETYPE_TABLES_H

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string>

#include "platform/mutex.h"

namespace platform {
namespace {

constexpr int kMaxFace = 255;     // bytes of a face name that count
constexpr int kMaxOpenFaces = 8;  // each holds a file open
constexpr int kLeastC = -128;     // of a C spacing, which the engine holds in a signed byte
constexpr FT_Pos kMaxInk = 1024;  // pixels; a larger outline is not drawn, so that no font makes FreeType
                                  // allocate more than 128 KB for a glyph
constexpr size_t kNameCount = 64;
constexpr FT_Int32 kLoadFlags = FT_LOAD_TARGET_MONO;

struct FontFile {
    std::string strPath;   // empty: no font at all
    int nIndex = 0;        // of the face in the file
    uint16_t wMadeUp = 0;  // bold and italic, where asked for and not in the file
};

// Where the underline of a font runs, in rows of the cell; none of them if it has no underline.
struct Line {
    int nTop, nRows;
};

}  // namespace

struct FontSource {
    FontFile file;
    int nEm;      // the height that was asked for
    int nAscent;  // rows above the baseline
    Line line;
};

namespace {

// --- Cells ---

int WidthOf(const CharCell &cell) {
    return cell.nA + cell.nB + std::max(cell.nC, 0);
}

// Everything that is drawn goes through here, so nothing is written outside the cells.
void Plot(CharCell *lpCell, int nRows, int x, int y) {
    if (x < 0 || x >= kMaxCell || y < 0 || y >= nRows)
        return;
    uint8_t *lpByte = lpCell->aInk + ptrdiff_t{y} * kCellPitch + x / 8;
    *lpByte = static_cast<uint8_t>(*lpByte | 0x80 >> x % 8);
}

void DrawUnderline(Line line, int nRows, CharCell *lpCell) {
    const int nWidth = WidthOf(*lpCell);
    for (int y = line.nTop; y < line.nTop + line.nRows; ++y) {
        for (int x = 0; x < nWidth; ++x)
            Plot(lpCell, nRows, x, y);
    }
}

// --- Hollow boxes, where there is no font ---

// The proportions are those of a common text font: an eighth of the em below the baseline, half an em wide.
int BoxAdvance(int nEm) {
    return std::max(3, (nEm + 1) / 2);
}

void MeasureBoxes(RasterFont *lpFont, FontSource *lpSource) {
    const int nEm = lpSource->nEm, nAdvance = BoxAdvance(nEm);
    lpFont->nHeight = std::min(nEm + (nEm + 7) / 8, kMaxCell);
    lpFont->nExternalLeading = 0;
    lpFont->nOverhang = 0;
    lpFont->nAveCharWidth = nAdvance;
    lpFont->nMaxCharWidth = nAdvance;
    lpFont->bBoxes = true;
    lpSource->file = {};
    lpSource->line = {nEm, 1};
}

void DrawBox(int nEm, int nRows, CharCell *lpCell) {
    lpCell->bBox = true;
    lpCell->nA = lpCell->nC = 1;
    lpCell->nB = BoxAdvance(nEm) - 2;
    const int nLeft = 1, nRight = lpCell->nB, nBottom = std::min(nEm, nRows) - 1;
    for (int x = nLeft; x <= nRight; ++x) {
        Plot(lpCell, nRows, x, 0);
        Plot(lpCell, nRows, x, nBottom);
    }
    for (int y = 0; y <= nBottom; ++y) {
        Plot(lpCell, nRows, nLeft, y);
        Plot(lpCell, nRows, nRight, y);
    }
}

// --- Characters ---

// The Unicode values of 0x80 to 0x9F in Windows-1252; 0 where it has no character.
constexpr uint16_t kUpperControls[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178,
};

// 0 for a code that has no picture.
unsigned UnicodeOf(int c) {
    if (c < 0x20 || c == 0x7F)
        return 0;
    return c >= 0x80 && c <= 0x9F ? kUpperControls[c - 0x80] : static_cast<unsigned>(c);
}

// 0, the font's sign for a missing character, where the font has none.
FT_UInt GlyphOf(FT_Face lpFace, int c) {
    // The pictures of a symbol font stand at private codes, not at those of the letters that call for them.
    if (lpFace->charmap && lpFace->charmap->encoding == FT_ENCODING_MS_SYMBOL)
        return FT_Get_Char_Index(lpFace, 0xF000u + static_cast<unsigned>(c));
    const unsigned nCode = UnicodeOf(c);
    const FT_UInt nGlyph = nCode ? FT_Get_Char_Index(lpFace, nCode) : 0;
    if (!nGlyph && nCode == 0xA0)
        return FT_Get_Char_Index(lpFace, ' ');
    if (!nGlyph && nCode == 0xAD)
        return FT_Get_Char_Index(lpFace, '-');
    return nGlyph;
}

// --- A font's metrics ---

int RoundPixels(FT_Pos n26Dot6) {
    return static_cast<int>(std::clamp<FT_Pos>((n26Dot6 + 32) >> 6, -kMaxCell, kMaxCell));
}

// Font units to pixels.
int Scale(FT_Face lpFace, int nUnits, int nHeight) {
    const FT_Long nPixels = FT_MulDiv(nUnits, nHeight, lpFace->units_per_EM);
    return static_cast<int>(std::clamp<FT_Long>(nPixels, -kMaxCell, kMaxCell));
}

// A scalable font gets an em of nHeight pixels, any other the strike that is nearest to it.
bool SetHeight(FT_Face lpFace, int nHeight) {
    if (FT_IS_SCALABLE(lpFace))
        return lpFace->units_per_EM && !FT_Set_Pixel_Sizes(lpFace, 0, static_cast<FT_UInt>(nHeight));
    int nBest = 0;
    for (int i = 1; i < lpFace->num_fixed_sizes; ++i) {
        const auto distance = [&](int n) {
            return std::abs(lpFace->available_sizes[n].y_ppem - FT_Pos{nHeight} * 64);
        };
        if (distance(i) < distance(nBest))
            nBest = i;
    }
    return !FT_Select_Size(lpFace, nBest);
}

// What a font says of itself, taken as GDI takes it: from the table made for that system where there is one.
struct Measures {
    int nAscent, nDescent, nLeading, nAverage;
};

// How often the letters a to z, and behind them the space, occur in a thousand characters of English text.
constexpr int kFrequencies[] = {64, 14, 27, 35, 100, 20, 14, 42, 63, 3, 6,  35, 20, 56,
                                56, 17, 4,  49, 56,  71, 31, 10, 18, 3, 18, 2,  166};

// In font units, weighted by how often a character occurs in a text; 0 if the font lacks one of them.
int WeightedAverage(FT_Face lpFace) {
    FT_Fixed nSum = 0;
    for (int i = 0; i < static_cast<int>(std::size(kFrequencies)); ++i) {
        const FT_UInt nGlyph = GlyphOf(lpFace, i < 26 ? 'a' + i : ' ');
        FT_Fixed nAdvance = 0;
        if (!nGlyph || FT_Get_Advance(lpFace, nGlyph, FT_LOAD_NO_SCALE, &nAdvance))
            return 0;
        nSum += std::clamp<FT_Fixed>(nAdvance, 0, INT16_MAX) * kFrequencies[i];
    }
    return static_cast<int>(nSum / 1000);
}

// From version 3 of the table on its figure is the mean of all glyphs, which a font with many wide ones makes far too
// large for text. Before, it was the weighted average.
int AverageWidth(FT_Face lpFace, const TT_OS2 *lpOs2) {
    const int nWeighted = lpOs2->version >= 3 ? WeightedAverage(lpFace) : 0;
    return nWeighted ? nWeighted : lpOs2->xAvgCharWidth;
}

Measures MeasureFace(FT_Face lpFace, int nHeight) {
    const FT_Size_Metrics &size = lpFace->size->metrics;
    Measures measures = {RoundPixels(size.ascender), RoundPixels(-size.descender), 0, 0};
    const auto *lpOs2 = static_cast<const TT_OS2 *>(FT_Get_Sfnt_Table(lpFace, FT_SFNT_OS2));
    if (!FT_IS_SCALABLE(lpFace) || !lpOs2 || lpOs2->version == 0xFFFF)
        return measures;
    measures.nAverage = Scale(lpFace, AverageWidth(lpFace, lpOs2), nHeight);
    const int nWindows = lpOs2->usWinAscent + lpOs2->usWinDescent;
    if (!nWindows)
        return measures;
    measures.nAscent = Scale(lpFace, lpOs2->usWinAscent, nHeight);
    measures.nDescent = Scale(lpFace, lpOs2->usWinDescent, nHeight);
    const auto *lpHhea = static_cast<const TT_HoriHeader *>(FT_Get_Sfnt_Table(lpFace, FT_SFNT_HHEA));
    if (lpHhea) {
        // The line gap counts from the font's own ascent and descent; what the cell has more is used up.
        const int nGap = lpHhea->Line_Gap - (nWindows - (lpHhea->Ascender - lpHhea->Descender));
        measures.nLeading = Scale(lpFace, std::max(nGap, 0), nHeight);
    }
    return measures;
}

Line UnderlineOf(FT_Face lpFace, int nHeight, int nAscent) {
    if (!FT_IS_SCALABLE(lpFace))
        return {nAscent + 1, 1};
    // The position is that of the middle of the line, upwards from the baseline.
    const int nTop = lpFace->underline_position + lpFace->underline_thickness / 2;
    return {nAscent - Scale(lpFace, nTop, nHeight), Scale(lpFace, lpFace->underline_thickness, nHeight)};
}

// Every figure of the font is brought to what a cell can hold. The average width is 0 if the font does not tell it.
void MeasureFont(FT_Face lpFace, RasterFont *lpFont, FontSource *lpSource) {
    const Measures measures = MeasureFace(lpFace, lpSource->nEm);
    const int nOverhang = lpSource->file.wMadeUp & kStyleBold ? 1 : 0;
    const int nMax = RoundPixels(lpFace->size->metrics.max_advance);
    lpSource->nAscent = std::clamp(measures.nAscent, 0, kMaxCell);
    lpSource->line = UnderlineOf(lpFace, lpSource->nEm, lpSource->nAscent);
    lpFont->nHeight = std::clamp(lpSource->nAscent + std::max(measures.nDescent, 0), 1, kMaxCell);
    lpFont->nExternalLeading = std::clamp(measures.nLeading, 0, lpFont->nHeight - 1);
    lpFont->nOverhang = nOverhang;
    lpFont->nAveCharWidth = measures.nAverage > 0 ? std::min(measures.nAverage + nOverhang, kMaxCell) : 0;
    lpFont->nMaxCharWidth = std::clamp(nMax + nOverhang, 1, kMaxCell);
}

// --- A font's cells ---

// Draws one character of a face that has the right height, underline excepted.
class CellPainter {
  public:
    // The cell is all background. Whatever is drawn stays within nRows rows of it.
    CellPainter(FT_Library lpLibrary, FT_Face lpFace, const FontSource &source, int nRows, CharCell *lpCell)
        : _lpLibrary(lpLibrary), _lpFace(lpFace), _source(source), _nRows(nRows), _lpCell(lpCell) {}

    void Paint(int c);

  private:
    bool Load(FT_UInt nGlyph);
    bool MakeUp();
    void SetSpacing(int nLeft, int nInk, int nAdvance);
    void CopyInk();

    FT_Library _lpLibrary;
    FT_Face _lpFace;
    const FontSource &_source;
    int _nRows;
    CharCell *_lpCell;
};

void CellPainter::Paint(int c) {
    const FT_GlyphSlot lpSlot = _lpFace->glyph;
    const FT_UInt nGlyph = GlyphOf(_lpFace, c);
    if (!Load(nGlyph)) {
        // No ink to be had; the tables of the font often know the advance all the same.
        FT_Fixed n16Dot16 = 0;
        if (FT_Get_Advance(_lpFace, nGlyph, FT_LOAD_NO_HINTING, &n16Dot16))
            n16Dot16 = 0;
        SetSpacing(0, 0, RoundPixels(n16Dot16 >> 10));
        return;
    }
    int nAdvance = RoundPixels(lpSlot->advance.x);
    if (nAdvance > 0 && _source.file.wMadeUp & kStyleBold)
        ++nAdvance;
    if (!lpSlot->bitmap.buffer || lpSlot->bitmap.pixel_mode != FT_PIXEL_MODE_MONO) {
        SetSpacing(0, 0, nAdvance);
        return;
    }
    const int nInk = static_cast<int>(std::min<unsigned>(lpSlot->bitmap.width, kMaxInk));
    SetSpacing(lpSlot->bitmap_left, nInk, nAdvance);
    CopyInk();
}

// Leaves the glyph as a bitmap in the face's slot, made-up styles in it.
bool CellPainter::Load(FT_UInt nGlyph) {
    const FT_GlyphSlot lpSlot = _lpFace->glyph;
    // Styles are made up from outlines where the font has any, so that all characters get them alike.
    const bool bOutline = _source.file.wMadeUp && FT_IS_SCALABLE(_lpFace);
    if (FT_Load_Glyph(_lpFace, nGlyph, kLoadFlags | (bOutline ? FT_LOAD_NO_BITMAP : 0)))
        return false;
    if (_source.file.wMadeUp && !MakeUp())
        return false;
    if (lpSlot->format == FT_GLYPH_FORMAT_BITMAP)
        return true;
    if (lpSlot->format != FT_GLYPH_FORMAT_OUTLINE)
        return false;
    FT_BBox box;
    FT_Outline_Get_CBox(&lpSlot->outline, &box);
    if (box.xMax - box.xMin > kMaxInk * 64 || box.yMax - box.yMin > kMaxInk * 64)
        return false;
    // A stroke thinner than a pixel must not vanish, which it may in a font without instructions.
    lpSlot->outline.flags &= ~FT_OUTLINE_IGNORE_DROPOUTS;
    return !FT_Render_Glyph(lpSlot, FT_RENDER_MODE_MONO);
}

// Bold is one pixel more in each stem, to the right, so that what was hinted stays on its pixels. Italic
// leans by a fifth; a bitmap cannot be leant without breaking its strokes and stays upright.
bool CellPainter::MakeUp() {
    const FT_GlyphSlot lpSlot = _lpFace->glyph;
    const bool bBold = _source.file.wMadeUp & kStyleBold;
    if (lpSlot->format == FT_GLYPH_FORMAT_BITMAP && bBold)
        return !FT_GlyphSlot_Own_Bitmap(lpSlot) && !FT_Bitmap_Embolden(_lpLibrary, &lpSlot->bitmap, 64, 0);
    if (lpSlot->format != FT_GLYPH_FORMAT_OUTLINE)
        return true;
    if (bBold)
        FT_Outline_EmboldenXY(&lpSlot->outline, 64, 0);
    if (_source.file.wMadeUp & kStyleItalic) {
        const FT_Matrix lean = {0x10000, 0x3333, 0, 0x10000};
        FT_Outline_Transform(&lpSlot->outline, &lean);
    }
    return true;
}

// Splits an advance into the three parts. However strange the font, what comes out fits a cell.
void CellPainter::SetSpacing(int nLeft, int nInk, int nAdvance) {
    nAdvance = std::clamp(nAdvance, 0, kMaxCell);
    _lpCell->nA = _lpCell->nC = 0;
    _lpCell->nB = nAdvance;
    if (nInk <= 0)
        return;
    const int nMostRight = std::min(kMaxCell, nAdvance - kLeastC);
    _lpCell->nA = std::clamp(nLeft, -kMaxCell, nMostRight);
    _lpCell->nB = std::min(nInk, nMostRight - _lpCell->nA);
    _lpCell->nC = nAdvance - _lpCell->nA - _lpCell->nB;
}

void CellPainter::CopyInk() {
    const FT_GlyphSlot lpSlot = _lpFace->glyph;
    const FT_Bitmap &bitmap = lpSlot->bitmap;
    const int nTop = _source.nAscent - lpSlot->bitmap_top;
    const int nRows = static_cast<int>(std::min<unsigned>(bitmap.rows, kMaxInk));
    for (int y = 0; y < nRows; ++y) {
        // With a negative pitch the buffer begins with the lowest row.
        const int nStored = bitmap.pitch < 0 ? y - (static_cast<int>(bitmap.rows) - 1) : y;
        const uint8_t *lpRow = bitmap.buffer + static_cast<ptrdiff_t>(nStored) * bitmap.pitch;
        for (int x = 0; x < _lpCell->nB; ++x) {
            if (lpRow[x / 8] & 0x80 >> x % 8)
                Plot(_lpCell, _nRows, _lpCell->nA + x, nTop + y);
        }
    }
}

// --- Faces ---

// The name as fontconfig wants it. lpszUtf8 has room for three bytes for every byte of the name.
void FaceToUtf8(const char *lpszFace, char *lpszUtf8) {
    for (int i = 0; i < kMaxFace && lpszFace[i]; ++i) {
        const int c = static_cast<unsigned char>(lpszFace[i]);
        const unsigned nUpper = c >= 0x80 && c <= 0x9F ? kUpperControls[c - 0x80] : 0u;
        const unsigned nCode = nUpper ? nUpper : static_cast<unsigned>(c);
        if (nCode < 0x80) {
            *lpszUtf8++ = static_cast<char>(nCode);
        } else if (nCode < 0x800) {
            *lpszUtf8++ = static_cast<char>(0xC0 | nCode >> 6);
            *lpszUtf8++ = static_cast<char>(0x80 | (nCode & 0x3F));
        } else {
            *lpszUtf8++ = static_cast<char>(0xE0 | nCode >> 12);
            *lpszUtf8++ = static_cast<char>(0x80 | (nCode >> 6 & 0x3F));
            *lpszUtf8++ = static_cast<char>(0x80 | (nCode & 0x3F));
        }
    }
    *lpszUtf8 = 0;
}

// Puts the question to fontconfig. The caller destroys what it gets, which is null if there is no font.
FcPattern *FindFont(FcConfig *lpConfig, const char *lpszFace, int nHeight, uint16_t wStyle) {
    FcPattern *lpAsked = FcPatternCreate();
    if (!lpAsked)
        return nullptr;
    // The name goes in as a value. As text to be parsed it could carry properties of its own.
    char szUtf8[3 * kMaxFace + 1];
    FaceToUtf8(lpszFace, szUtf8);
    if (szUtf8[0])
        FcPatternAddString(lpAsked, FC_FAMILY, reinterpret_cast<const FcChar8 *>(szUtf8));
    // Everything that counts is said here; the defaults that fontconfig could fill in belong to the process.
    FcPatternAddInteger(lpAsked, FC_WEIGHT, wStyle & kStyleBold ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
    FcPatternAddInteger(lpAsked, FC_SLANT, wStyle & kStyleItalic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
    FcPatternAddInteger(lpAsked, FC_WIDTH, FC_WIDTH_NORMAL);
    FcPatternAddDouble(lpAsked, FC_PIXEL_SIZE, nHeight);
    FcPatternAddString(lpAsked, FC_LANG, reinterpret_cast<const FcChar8 *>("en"));
    FcPatternAddBool(lpAsked, FC_SCALABLE, FcTrue);
    // The instances of a variable font are listed as fonts of their own, and those have a weight.
    FcPatternAddBool(lpAsked, FC_VARIABLE, FcFalse);
    FcPatternAddBool(lpAsked, FC_COLOR, FcFalse);
    FcPatternAddBool(lpAsked, FC_SYMBOL, FcFalse);
    FcConfigSubstitute(lpConfig, lpAsked, FcMatchPattern);
    FcResult nResult;
    FcPattern *lpFound = FcFontMatch(lpConfig, lpAsked, &nResult);
    FcPatternDestroy(lpAsked);
    return lpFound;
}

// The styles that were asked for and that the file lacks. What fontconfig is set up to make up (a matrix, an
// emboldening) is not in the file either, though the pattern then claims the style.
uint16_t MissingStyle(FcPattern *lpFound, uint16_t wStyle) {
    uint16_t wMissing = 0;
    int nWeight = FC_WEIGHT_REGULAR, nSlant = FC_SLANT_ROMAN;
    FcBool bEmbolden = FcFalse;
    FcMatrix *lpMatrix = nullptr;
    FcPatternGetInteger(lpFound, FC_WEIGHT, 0, &nWeight);
    FcPatternGetInteger(lpFound, FC_SLANT, 0, &nSlant);
    FcPatternGetBool(lpFound, FC_EMBOLDEN, 0, &bEmbolden);
    FcPatternGetMatrix(lpFound, FC_MATRIX, 0, &lpMatrix);
    if (wStyle & kStyleBold && (nWeight < FC_WEIGHT_DEMIBOLD || bEmbolden))
        wMissing |= kStyleBold;
    if (wStyle & kStyleItalic && (nSlant == FC_SLANT_ROMAN || (lpMatrix && lpMatrix->xy != 0)))
        wMissing |= kStyleItalic;
    return wMissing;
}

bool IsScalable(FcPattern *lpFound) {
    FcBool bScalable = FcFalse;
    FcPatternGetBool(lpFound, FC_SCALABLE, 0, &bScalable);
    return bScalable;
}

// --- The system's fonts, and what has been opened of them ---

constinit Mutex g_mutex;

struct KeptName {
    char szFace[kMaxFace + 1];  // in lower case
    int nHeight;                // 0: a font for all heights
    uint16_t wStyle;
    FontFile file;
    uint64_t nLastUse;  // 0: free
};

struct OpenFace {
    std::string strPath;
    int nIndex;
    FT_Face lpFace;
    int nHeight;  // of its characters now; 0: none
    uint64_t nLastUse;
};

class Engine {
  public:
    Engine();
    ~Engine();
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    void Open(const char *lpszFace, int nHeight, uint16_t wStyle, RasterFont *lpFont) REQUIRES(g_mutex);
    void Draw(const FontSource &source, int nRows, int c, CharCell *lpCell) REQUIRES(g_mutex);

  private:
    FontFile FindFile(const char *lpszFace, int nHeight, uint16_t wStyle);
    FontFile MatchFace(const char *lpszFace, int nHeight, uint16_t wStyle, bool *lpbScalable);
    FT_Face FaceOf(const FontSource &source);
    OpenFace *FindFace(const FontFile &file);

    FT_Library _lpLibrary = nullptr;  // null, like the next, if it is not to be had; then there are no fonts
    FcConfig *_lpConfig = nullptr;
    OpenFace _aFaces[kMaxOpenFaces] = {};
    uint64_t _nUses = 0;  // the time, for what was used last
    KeptName _aNames[kNameCount] = {};
};

template <typename Entry, size_t nCount>
Entry &LeastRecentlyUsed(Entry (&aEntries)[nCount]) {
    return *std::min_element(aEntries, aEntries + nCount, [](const Entry &left, const Entry &right) {
        return left.nLastUse < right.nLastUse;
    });
}

// fontconfig has memory of its own that only a call which ends it for the whole process gives back. So it stays where
// it is when this library is unloaded: the next load finds that memory again, instead of leaking it each time.
void KeepFontconfigLoaded() {
    Dl_info info;
    if (dladdr(reinterpret_cast<void *>(&FcInitLoadConfigAndFonts), &info) && info.dli_fname)
        // cppcheck-suppress leakReturnValNotUsed ; never to be unloaded
        dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

// A configuration of our own, since that of the process belongs to the host.
Engine::Engine() {
    KeepFontconfigLoaded();
    _lpConfig = FcInitLoadConfigAndFonts();
    if (FT_Init_FreeType(&_lpLibrary))
        _lpLibrary = nullptr;
}

Engine::~Engine() {
    for (const OpenFace &face : _aFaces) {
        if (face.lpFace)
            FT_Done_Face(face.lpFace);
    }
    if (_lpLibrary)
        FT_Done_FreeType(_lpLibrary);
    if (_lpConfig)
        FcConfigDestroy(_lpConfig);
}

void Engine::Open(const char *lpszFace, int nHeight, uint16_t wStyle, RasterFont *lpFont) {
    auto lpSource = std::make_shared<FontSource>();
    lpSource->file = FindFile(lpszFace, nHeight, wStyle & (kStyleBold | kStyleItalic));
    lpSource->nEm = nHeight;
    if (const FT_Face lpFace = FaceOf(*lpSource))
        MeasureFont(lpFace, lpFont, lpSource.get());
    else
        MeasureBoxes(lpFont, lpSource.get());
    Line &line = lpSource->line;
    line.nRows = wStyle & kStyleUnderline ? std::clamp(line.nRows, 1, lpFont->nHeight) : 0;
    line.nTop = std::clamp(line.nTop, 0, lpFont->nHeight - line.nRows);
    if (lpFont->nAveCharWidth <= 0) {
        CharCell x;
        Draw(*lpSource, lpFont->nHeight, 'x', &x);
        lpFont->nAveCharWidth = std::max(x.nA + x.nB + x.nC, 1);
    }
    lpFont->lpSource = std::move(lpSource);
}

// A file that was a font when it was opened may have gone since.
void Engine::Draw(const FontSource &source, int nRows, int c, CharCell *lpCell) {
    memset(lpCell->aInk, 0, static_cast<size_t>(nRows) * kCellPitch);
    if (const FT_Face lpFace = FaceOf(source))
        CellPainter(_lpLibrary, lpFace, source, nRows, lpCell).Paint(c);
    else
        DrawBox(source.nEm, nRows, lpCell);
    DrawUnderline(source.line, nRows, lpCell);
}

FontFile Engine::FindFile(const char *lpszFace, int nHeight, uint16_t wStyle) {
    char szFace[kMaxFace + 1] = {};
    for (int i = 0; i < kMaxFace && lpszFace[i]; ++i) {
        const char c = lpszFace[i];
        szFace[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    for (KeptName &name : _aNames) {
        if (name.nLastUse && (!name.nHeight || name.nHeight == nHeight) && name.wStyle == wStyle &&
            !strcmp(name.szFace, szFace)) {
            name.nLastUse = ++_nUses;
            return name.file;
        }
    }
    bool bScalable = false;
    FontFile file = MatchFace(szFace, nHeight, wStyle, &bScalable);
    // Nothing found may have been want of memory, and is not remembered.
    if (!file.strPath.empty()) {
        KeptName &name = LeastRecentlyUsed(_aNames);
        memcpy(name.szFace, szFace, sizeof szFace);
        name.nHeight = bScalable ? 0 : nHeight;
        name.wStyle = wStyle;
        name.file = file;
        name.nLastUse = ++_nUses;
    }
    return file;
}

FontFile Engine::MatchFace(const char *lpszFace, int nHeight, uint16_t wStyle, bool *lpbScalable) {
    FontFile file;
    FcPattern *lpFound = _lpConfig ? FindFont(_lpConfig, lpszFace, nHeight, wStyle) : nullptr;
    if (!lpFound)
        return file;
    FcChar8 *lpszPath = nullptr;
    if (FcPatternGetString(lpFound, FC_FILE, 0, &lpszPath) == FcResultMatch) {
        FcPatternGetInteger(lpFound, FC_INDEX, 0, &file.nIndex);
        // fontconfig sets the sign for a variable font as a whole; FreeType wants the number of the face alone.
        if (file.nIndex < 0)
            file.nIndex &= 0xFFFF;
        file.strPath = reinterpret_cast<const char *>(lpszPath);
        file.wMadeUp = MissingStyle(lpFound, wStyle);
        *lpbScalable = IsScalable(lpFound);
    }
    FcPatternDestroy(lpFound);
    return file;
}

// The open face of a font, its height set. Null if the file cannot be read or is no font.
FT_Face Engine::FaceOf(const FontSource &source) {
    OpenFace *lpOpen = source.file.strPath.empty() || !_lpLibrary ? nullptr : FindFace(source.file);
    if (!lpOpen)
        return nullptr;
    // Each change has the font run the program by which it scales itself.
    if (lpOpen->nHeight != source.nEm)
        lpOpen->nHeight = SetHeight(lpOpen->lpFace, source.nEm) ? source.nEm : 0;
    return lpOpen->nHeight ? lpOpen->lpFace : nullptr;
}

OpenFace *Engine::FindFace(const FontFile &file) {
    for (OpenFace &face : _aFaces) {
        if (face.lpFace && face.nIndex == file.nIndex && face.strPath == file.strPath) {
            face.nLastUse = ++_nUses;
            return &face;
        }
    }
    FT_Face lpFace;
    if (FT_New_Face(_lpLibrary, file.strPath.c_str(), file.nIndex, &lpFace))
        return nullptr;
    if (!lpFace->charmap)
        FT_Select_Charmap(lpFace, FT_ENCODING_MS_SYMBOL);
    OpenFace &oldest = LeastRecentlyUsed(_aFaces);
    if (oldest.lpFace)
        FT_Done_Face(oldest.lpFace);
    oldest = {file.strPath, file.nIndex, lpFace, 0, ++_nUses};
    return &oldest;
}

class SystemRasterizer final : public Rasterizer {
  public:
    bool Open(const char *lpszFace, int nHeight, uint16_t wStyle, RasterFont *lpFont) override;
    bool Draw(const RasterFont &font, int c, CharCell *lpCell) override;
};

// The system's rasteriser is made in place and never destroyed: it has no state, only a type.
constinit Engine *g_lpEngine GUARDED_BY(g_mutex) PT_GUARDED_BY(g_mutex) = nullptr;
constinit Rasterizer *g_lpReplacement GUARDED_BY(g_mutex) = nullptr;
constinit SystemRasterizer *g_lpSystem GUARDED_BY(g_mutex) = nullptr;
alignas(SystemRasterizer) unsigned char g_aSystem[sizeof(SystemRasterizer)];

// Null if memory runs out.
Engine *GetEngine() REQUIRES(g_mutex) {
    if (!g_lpEngine)
        g_lpEngine = new (std::nothrow) Engine;
    return g_lpEngine;
}

bool SystemRasterizer::Open(const char *lpszFace, int nHeight, uint16_t wStyle, RasterFont *lpFont) {
    const MutexLock lock(g_mutex);
    Engine *lpEngine = GetEngine();
    if (lpEngine)
        lpEngine->Open(lpszFace, std::clamp(nHeight, 1, kMaxCell), wStyle, lpFont);
    return lpEngine;
}

bool SystemRasterizer::Draw(const RasterFont &font, int c, CharCell *lpCell) {
    const MutexLock lock(g_mutex);
    Engine *lpEngine = GetEngine();
    if (lpEngine)
        lpEngine->Draw(*font.lpSource, font.nHeight, c, lpCell);
    return lpEngine;
}

}  // namespace

Rasterizer *GetRasterizer() {
    const MutexLock lock(g_mutex);
    if (g_lpReplacement)
        return g_lpReplacement;
    if (!g_lpSystem)
        g_lpSystem = new (g_aSystem) SystemRasterizer;
    return g_lpSystem;
}

void ReplaceRasterizer(Rasterizer *lpRasterizer) {
    const MutexLock lock(g_mutex);
    g_lpReplacement = lpRasterizer;
}

void ReleaseRasterizer() {
    const MutexLock lock(g_mutex);
    delete g_lpEngine;
    g_lpEngine = nullptr;
}

}  // namespace platform
