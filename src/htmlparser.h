// The parser: one forward pass over a document's bytes. There is no tree and no error recovery: a tag acts
// the moment it is read, by calling its handler, and a run of text becomes an item of the newest Line at
// once. What survives from one tag to the next lives in the Page. Several Pages are parsed at once, so that
// all tables are constant.
#pragma once

#include <cstdint>

class Page;
struct TagAttributes;
struct TagEntry;

// Acts on one occurrence of a tag. Always returns 0. The read position stands behind the tag; a handler may
// move it and the count of remaining bytes on together.
using TagHandler = int (*)(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
                           int *lpRemaining);

struct TagEntry {
    int _nTagId;
    const char *_lpszName;  // in capitals; null in the end row
    uint32_t _dwHasClose;   // 1 for tags that are written with a closing form
    uint16_t _wClosing;     // of one occurrence: 1 for a closing tag
    TagHandler _lpfnHandler;
};

inline constexpr int kMaxAttributes = 15;
inline constexpr int kAttributeSize = 256;

// The attributes of one tag. Slots that are not used are not initialised.
struct TagAttributes {
    char _aszNames[kMaxAttributes][kAttributeSize];
    char _aszValues[kMaxAttributes][kAttributeSize];
    uint16_t _wCount;

    // Whether the name in a slot begins with a keyword, without regard to case: SIZEX is a SIZE.
    bool Is(int nSlot, const char *lpszKeyword) const;
};

inline constexpr int kTagCount = 27;
extern const TagEntry g_aTagTable[kTagCount + 1];

struct Entity {
    const char *_lpszForm;  // as written behind the '&'
    uint8_t _bByte;
};

inline constexpr int kEntityCount = 10;
extern const Entity g_aEntities[kEntityCount];

struct ColorName {
    const char *_lpszName;
    uint32_t _dwColor;
};

inline constexpr int kColorCount = 16;
extern const ColorName g_aColorNames[kColorCount];

// Reads text up to the next '<' or the end of the data into a buffer of nCapacity bytes, terminator included.
// White space becomes single spaces, entities their bytes. What does not fit is passed over.
void ExtractText(const char **lppPos, int *lpRemaining, char *lpBuffer, int nCapacity);

// lpsz points behind an '&' and has nLength bytes. Returns the length of the entity found there and its byte,
// or 0.
int MatchEntity(const char *lpsz, int nLength, char *lpbOut);

// A colour name or a hexadecimal number, with or without '#', as 0x00RRGGBB; 0 for anything else.
uint32_t ParseColor(const char *lpsz);

// Cuts a string at a delimiter, in place. *lpwCount is the room in lppOut, then the number of pieces.
void SplitString(char *lpsz, char cDelimiter, char **lppOut, uint16_t *lpwCount);

// The whole number at the beginning of a string, 0 if there is none, cut at the limits of an int.
int ParseInt(const char *lpsz);

// Whether a string begins with lpszPrefix, or equals it, without regard to case.
bool StartsWith(const char *lpsz, const char *lpszPrefix);
bool EqualsNoCase(const char *lpsz, const char *lpszOther);
// Below 0, 0 or above it, as lpsz stands before lpszOther, equals it or stands behind it, without regard to case.
int CompareNoCase(const char *lpsz, const char *lpszOther);
