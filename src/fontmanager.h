// Fonts: what text asks for (Font), the glyphs that it is drawn with (CharInfo), and the font state of a
// parse (FontManager, one for each Page).
//
// A glyph set is opened once for a face, a height and a style, through the GlyphCache and the rasteriser behind
// it, and a character of it is drawn when it is first measured. From then on measuring is table lookup and drawing is
// the bit loop of gfx_TextOut. Fonts that differ in colour alone share a set.
//
// A FontManager is touched by the parser of its Page alone; a CharInfo never changes once it is built, and the cells
// behind it see to themselves; the sets of MainFrame are only read after tessel_Init. So there is no lock here.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "glyphcache.h"
#include "list.h"

class Page;

enum : uint16_t { STYLE_BOLD = 1, STYLE_ITALIC = 2, STYLE_UNDERLINE = 4 };

inline constexpr int kFontSizes = 7;
// Character heights in pixels, by size index.
extern const int32_t g_anFontHeights[kFontSizes];

// One glyph set.
struct CharInfo {
    uint16_t _wStyle = 0;
    uint8_t _bMaxCharWidth = 0;
    uint8_t _bAveCharWidth = 0;
    // The height of the font as far as layout is concerned.
    uint8_t _bHeight = 0;
    // The height that was asked for, from g_anFontHeights.
    uint8_t _bPixelHeight = 0;
    char *_lpszFace = nullptr;  // owned
    // The tables of _lpCells, for the characters that MeasureText has seen. How far a character reaches into the next
    // one: 0 or less.
    const std::atomic<int8_t> (&_acSpacing)[platform::kCharCount];
    const CharGlyph (&_aGlyphs)[platform::kCharCount];
    const std::shared_ptr<GlyphCells> _lpCells;

    explicit CharInfo(const std::shared_ptr<GlyphCells> &lpCells);
    CharInfo(const CharInfo &) = delete;
    CharInfo &operator=(const CharInfo &) = delete;
    ~CharInfo();
};

struct Font {
    char *_lpszFace;  // owned
    uint16_t _wStyle;
    uint8_t _bSize;  // index into g_anFontHeights
    uint32_t _dwColor;
    CharInfo *_lpCharInfo = nullptr;  // not owned; a record on a font stack has none

    Font(const char *lpszFace, uint16_t wStyle, uint8_t bSize, uint32_t dwColor);
    Font(const Font &) = delete;
    Font &operator=(const Font &) = delete;
    ~Font();
};

class FontManager {
  public:
    Page *_lpPage;
    // Owned. Head = top. The records say what is asked for; text is never drawn with them.
    List<Font> *_lpFontStack = nullptr;
    // Owned: what FindFont has made, and the sets that were built for it.
    List<Font> *_lpFonts = nullptr;
    List<CharInfo> *_lpCharInfos = nullptr;
    // How many of these tags are open.
    int32_t _nUnderline = 0;
    int32_t _nItalic = 0;
    int32_t _nBold = 0;
    int32_t _nAnchor = 0;
    // The style bits that are in force through the counters.
    uint16_t _wStyle = 0;

    explicit FontManager(Page *lpPage);
    FontManager(const FontManager &) = delete;
    FontManager &operator=(const FontManager &) = delete;
    ~FontManager();

    // The Font that text is to use now, with its glyph set. Never null.
    Font *CurrentFont();
    Font *FindFont(const char *lpszFace, uint8_t bSize, uint32_t dwColor, uint16_t wStyle);
    Font *CloneFont(const Font *lpFont);

    void PushFont(const char *lpszFace, uint16_t wStyle, uint8_t bSize, uint32_t dwColor);
    void PushFontRecord(Font *lpFont, int bClone);
    // The last record stays.
    void PopFont();

    void SetBold(int bOn) { Count(&_nBold, STYLE_BOLD, bOn); }
    void SetItalic(int bOn) { Count(&_nItalic, STYLE_ITALIC, bOn); }
    // Tag and link share the bit of underline, and each turns it over when its own count comes down to 0.
    void SetUnderline(int bOn) { Count(&_nUnderline, STYLE_UNDERLINE, bOn); }
    void SetAnchor(int bOpen) { Count(&_nAnchor, STYLE_UNDERLINE, bOpen); }

  private:
    void Count(int32_t *lpnCount, uint16_t wBit, int bOn);
    // What FindFont looks for; the face in any case.
    struct Key {
        const char *lpszFace;
        uint8_t bSize;
        uint16_t wStyle;

        bool operator<(const Key &other) const;
    };

    Font *Keep(Font *lpFont);

    // The newest record of _lpFonts for each face, size and style, so that a page that changes colours ten
    // thousand times does not walk them all. The faces belong to records. In small pieces: an array would grow with the
    // page.
    std::map<Key, Font *> _newest;
    int _nSets = 0;
    // The answer of CurrentFont as long as nothing has changed.
    Font *_lpCurrent = nullptr;
};

// A new Font with its glyph set, also added to *lppFonts unless that is null. A set that had to be built goes
// to *lppList. The set is null if there is none to be had.
Font *NewFont(const char *lpszFace, uint8_t bSize, uint32_t dwColor, uint16_t wStyle, List<Font> **lppFonts,
              List<CharInfo> **lppList);

// The set of MainFrame that fits, or a new one, added to *lppList. Null if memory runs out.
CharInfo *BuildCharInfo(const char *lpszFace, int nHeight, uint16_t wStyle, List<CharInfo> **lppList);

// The width of a string in pixels. Negative spacings are not taken off, so that it is never less than what
// gfx_TextOut moves on by. Null measures 0. Has the characters drawn that the font's glyph set lacks: a string that has not
// been measured is not painted.
int MeasureText(const char *lpsz, const Font *lpFont);
