#include "htmlparser.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "fontmanager.h"
#include "form.h"
#include "frameset.h"
#include "hyperlink.h"
#include "image.h"
#include "layout.h"
#include "meta.h"
#include "page.h"
#include "table.h"
#include "taghandlers.h"
#include "text.h"

constexpr TagEntry g_aTagTable[kTagCount + 1] = {
    {0, "HTML", 1, 0, nullptr},        {30, "FRAMESET", 1, 0, OnTagFrameset},
    {31, "FRAME", 1, 0, OnTagFrame},   {1, "BODY", 1, 0, OnTagBody},
    {11, "BR", 1, 0, OnTagBr},         {15, "P", 1, 0, OnTagP},
    {12, "FONT", 1, 0, OnTagFont},     {16, "H1", 1, 0, OnTagHeading<5>},
    {17, "H2", 1, 0, OnTagHeading<4>}, {18, "H3", 1, 0, OnTagHeading<3>},
    {19, "H4", 1, 0, OnTagHeading<2>}, {20, "H5", 1, 0, OnTagHeading<1>},
    {21, "H6", 1, 0, OnTagHeading<0>}, {22, "B", 1, 0, OnTagB},
    {23, "I", 1, 0, OnTagI},           {24, "U", 1, 0, OnTagU},
    {4, "IMG", 0, 0, OnTagImg},        {7, "TABLE", 1, 0, OnTagTable},
    {8, "TR", 1, 0, OnTagTr},          {9, "TH", 1, 0, OnTagTd},
    {10, "TD", 1, 0, OnTagTd},         {14, "TITLE", 1, 0, OnTagTitle},
    {2, "CENTER", 1, 0, OnTagCenter},  {13, "A", 1, 0, OnTagA},
    {25, "FORM", 1, 0, OnTagForm},     {28, "INPUT", 1, 0, OnTagInput},
    {5, "META", 0, 0, OnTagMeta},      {0, nullptr, 0, 0, nullptr},
};

const Entity g_aEntities[kEntityCount] = {
    {"nbsp;", 0xA0}, {"nbsp", 0xA0},  {"lt;", 0x3C},  {"lt", 0x3C},    {"gt;", 0x3E},
    {"gt", 0x3E},    {"quot;", 0x22}, {"quot", 0x22}, {"copy;", 0xA9}, {"copy", 0xA9},
};

const ColorName g_aColorNames[kColorCount] = {
    {"BLACK", 0x000000},  {"SILVER", 0xC0C0C0}, {"GRAY", 0x808080},   {"WHITE", 0xFFFFFF},
    {"MAROON", 0x800000}, {"RED", 0xFF0000},    {"PURPLE", 0x800080}, {"FUCHSIA", 0xFF00FF},
    {"GREEN", 0x008000},  {"LIME", 0x00FF00},   {"OLIVE", 0x808000},  {"YELLOW", 0xFFFF00},
    {"NAVY", 0x000080},   {"BLUE", 0x0000FF},   {"TEAL", 0x008080},   {"AQUA", 0x00FFFF},
};

namespace {

// The longest run of text that becomes one item, terminator included.
constexpr int kTextSize = 1024;

constexpr char ToUpper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

// The bytes that are passed over between tags and runs of text, and between attributes.
bool IsSkipped(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\xA0' || c == ';';
}

// The read position and the number of bytes left, which move on together. Every look at a byte is checked.
struct Reader {
    const char *lpPos;
    int nLeft;

    bool AtEnd() const { return nLeft <= 0; }
    bool Is(char c) const { return nLeft > 0 && *lpPos == c; }
    void Step(int n = 1) {
        lpPos += n;
        nLeft -= n;
    }
    void SkipSet() {
        while (nLeft > 0 && IsSkipped(*lpPos))
            Step();
    }
};

// Tag names have eight letters and digits at most, so that a name is one number: its bytes, the last one lowest, behind a
// 1 unless there are eight. Other bytes could pass for that 1 and for the zeros in front of it.
constexpr int kLongestName = 8;
constexpr char kLowestInName = '0';

constexpr uint64_t AppendLetter(uint64_t qwName, char c) {
    return qwName << 8 | static_cast<uint8_t>(ToUpper(c));
}

// Rows of g_aTagTable by the numbers of their names. The factor was found by trying: with it no two names share a place.
struct TagIndex {
    uint64_t aqwNames[64] = {};
    uint8_t abRows[64] = {};

    static constexpr size_t Place(uint64_t qwName) { return qwName * 0x063238DA1A1FE3F9u >> 58; }

    constexpr TagIndex() {
        for (uint8_t bRow = 0; bRow < kTagCount; ++bRow) {
            uint64_t qwName = 1;
            for (const char *lpsz = g_aTagTable[bRow]._lpszName; *lpsz; ++lpsz)
                qwName = AppendLetter(qwName, *lpsz);
            aqwNames[Place(qwName)] = qwName;
            abRows[Place(qwName)] = bRow;
        }
    }
    constexpr int CountPlaces() const {
        int nCount = 0;
        for (const uint64_t qwName : aqwNames)
            nCount += qwName != 0;
        return nCount;
    }
};

constexpr TagIndex kTagIndex;
static_assert(kTagIndex.CountPlaces() == kTagCount, "two names share a place: find another factor");

// The row of the name that begins nAhead bytes on and ends with '>' or a space; null if no tag is called that.
const TagEntry *FindRow(const Reader &reader, int nAhead, int *lpnLength) {
    uint64_t qwName = 1;
    const int nLimit = std::min(reader.nLeft, nAhead + kLongestName + 1);
    for (int i = nAhead; i < nLimit; ++i) {
        const char c = reader.lpPos[i];
        if (c == '>' || c == ' ') {
            *lpnLength = i - nAhead;
            const size_t nPlace = TagIndex::Place(qwName);
            return kTagIndex.aqwNames[nPlace] == qwName ? &g_aTagTable[kTagIndex.abRows[nPlace]] : nullptr;
        }
        if (static_cast<uint8_t>(c) < kLowestInName)
            return nullptr;
        qwName = AppendLetter(qwName, c);
    }
    return nullptr;
}

// Finds the tag at the position, steps behind its name and returns a copy of its row, that of the end row if
// it is not known. The byte in front of the name of a closing tag is not looked at: any byte makes one.
TagEntry FindTag(Reader *lpReader) {
    for (uint16_t wClosing = 0; wClosing <= 1; ++wClosing) {
        int nLength;
        if (const TagEntry *lpRow = FindRow(*lpReader, wClosing, &nLength)) {
            lpReader->Step(nLength + wClosing);
            TagEntry entry = *lpRow;
            entry._wClosing = wClosing;
            return entry;
        }
    }
    return g_aTagTable[kTagCount];
}

// What becomes of a byte of text: white space is a space, and 0 says that it takes a closer look.
struct TextBytes {
    char ac[256];

    constexpr TextBytes() : ac() {
        for (int i = 0; i < 256; ++i)
            ac[i] = static_cast<char>(i);
        ac[u8'\t'] = ac[u8'\n'] = ac[u8'\r'] = ' ';
        ac[u8'<'] = ac[u8'&'] = '\0';
    }
};

constexpr TextBytes kTextBytes;

// Copies text up to a byte that takes a closer look. A space behind a space is stored, too, and then overwritten: whether
// one follows is nothing that a processor could guess.
void CopyPlainText(const char **lppPos, const char *lpEnd, char **lppOut, char *lpcLast) {
    const char *lp = *lppPos;
    char *lpOut = *lppOut;
    char cLast = *lpcLast;
    for (; lp != lpEnd; ++lp) {
        const char c = kTextBytes.ac[static_cast<uint8_t>(*lp)];
        if (!c)
            break;
        *lpOut = c;
        lpOut += (c != ' ') | (cLast != ' ');
        cLast = c;
    }
    *lppPos = lp;
    *lppOut = lpOut;
    *lpcLast = cLast;
}

// Copies bytes into a slot for as long as stops(byte) says no; what does not fit is passed over.
template <class Stops>
void CopyToSlot(Reader *lpReader, char *lpSlot, Stops stops) {
    int nStored = 0;
    for (; !lpReader->AtEnd() && !stops(*lpReader->lpPos); lpReader->Step()) {
        if (nStored < kAttributeSize - 1)
            lpSlot[nStored++] = *lpReader->lpPos;
    }
    lpSlot[nStored] = '\0';
}

// Reads the value behind a '='. Only the double quote quotes, and '>' and ';' end a value even inside quotes.
void ScanValue(Reader *lpReader, char *lpSlot) {
    lpReader->SkipSet();
    const char cEnd = lpReader->Is('"') ? '"' : ' ';
    if (cEnd == '"')
        lpReader->Step();
    CopyToSlot(lpReader, lpSlot, [cEnd](char c) { return c == '>' || c == ';' || c == cEnd; });
    if (lpReader->Is('"'))
        lpReader->Step();
}

// Reads up to the '>' of a tag. A closing tag keeps no attributes.
void ScanAttributes(Reader *lpReader, uint16_t wClosing, TagAttributes *lpAttributes) {
    while (!lpReader->AtEnd() && *lpReader->lpPos != '>') {
        if (wClosing || lpAttributes->_wCount == kMaxAttributes || IsSkipped(*lpReader->lpPos)) {
            lpReader->Step();
            continue;
        }
        char *lpValue = lpAttributes->_aszValues[lpAttributes->_wCount];
        *lpValue = '\0';
        CopyToSlot(lpReader, lpAttributes->_aszNames[lpAttributes->_wCount],
                   [](char c) { return c == ' ' || c == '>' || c == '='; });
        lpReader->SkipSet();
        if (lpReader->Is('=')) {
            lpReader->Step();
            ScanValue(lpReader, lpValue);
        }
        ++lpAttributes->_wCount;
    }
}

}  // namespace

bool TagAttributes::Is(int nSlot, const char *lpszKeyword) const {
    return StartsWith(_aszNames[nSlot], lpszKeyword);
}

bool StartsWith(const char *lpsz, const char *lpszPrefix) {
    for (; *lpszPrefix; ++lpsz, ++lpszPrefix) {
        if (ToUpper(*lpsz) != ToUpper(*lpszPrefix))
            return false;
    }
    return true;
}

int CompareNoCase(const char *lpsz, const char *lpszOther) {
    while (*lpsz && ToUpper(*lpsz) == ToUpper(*lpszOther))
        ++lpsz, ++lpszOther;
    return static_cast<uint8_t>(ToUpper(*lpsz)) - static_cast<uint8_t>(ToUpper(*lpszOther));
}

bool EqualsNoCase(const char *lpsz, const char *lpszOther) {
    return CompareNoCase(lpsz, lpszOther) == 0;
}

int ParseInt(const char *lpsz) {
    while (*lpsz == ' ' || (*lpsz >= '\t' && *lpsz <= '\r'))
        ++lpsz;
    const bool bNegative = *lpsz == '-';
    if (*lpsz == '-' || *lpsz == '+')
        ++lpsz;
    int64_t nValue = 0;
    for (; *lpsz >= '0' && *lpsz <= '9' && nValue <= INT_MAX; ++lpsz)
        nValue = nValue * 10 + (*lpsz - '0');
    nValue = nValue > INT_MAX ? INT_MAX : nValue;
    return static_cast<int>(bNegative ? -nValue : nValue);
}

// Reads what the C library's scanf reads for "%x": white space, a sign, "0x", digits.
static uint32_t ParseHex(const char *lpsz) {
    return static_cast<uint32_t>(strtoul(lpsz, nullptr, 16));
}

uint32_t ParseColor(const char *lpsz) {
    if (*lpsz == '#')
        return ParseHex(lpsz + 1) & 0xFFFFFF;
    for (const ColorName &row : g_aColorNames) {
        if (EqualsNoCase(lpsz, row._lpszName))
            return row._dwColor;
    }
    return ParseHex(lpsz) & 0xFFFFFF;
}

void SplitString(char *lpsz, char cDelimiter, char **lppOut, uint16_t *lpwCount) {
    const uint16_t wCapacity = *lpwCount;
    *lpwCount = 0;
    while (*lpwCount < wCapacity && *lpsz) {
        lppOut[(*lpwCount)++] = lpsz;
        while (*lpsz && *lpsz != cDelimiter)
            ++lpsz;
        if (*lpsz)
            *lpsz++ = '\0';
    }
}

int MatchEntity(const char *lpsz, int nLength, char *lpbOut) {
    for (const Entity &row : g_aEntities) {
        int n = 0;
        while (n < nLength && row._lpszForm[n] && ToUpper(lpsz[n]) == ToUpper(row._lpszForm[n]))
            ++n;
        if (!row._lpszForm[n]) {
            *lpbOut = static_cast<char>(row._bByte);
            return n;
        }
    }
    return 0;
}

void ExtractText(const char **lppPos, int *lpRemaining, char *lpBuffer, int nCapacity) {
    const char *lp = *lppPos;
    const char *const lpEnd = lp + *lpRemaining;
    char *lpOut = lpBuffer;
    char *const lpOutEnd = lpBuffer + nCapacity - 1;
    char cLast = '\0';
    while (lp != lpEnd && lpOut != lpOutEnd && *lp != '<') {
        CopyPlainText(&lp, lp + std::min(lpEnd - lp, lpOutEnd - lpOut), &lpOut, &cLast);
        if (lp == lpEnd || lpOut == lpOutEnd || kTextBytes.ac[static_cast<uint8_t>(*lp)] || *lp == '<')
            continue;
        cLast = *lp++;
        if (cLast == '&')
            lp += MatchEntity(lp, static_cast<int>(lpEnd - lp), &cLast);
        *lpOut++ = cLast;
    }
    *lpOut = '\0';
    const void *lpTag = lp == lpEnd ? nullptr : memchr(lp, '<', static_cast<size_t>(lpEnd - lp));
    *lppPos = lpTag ? static_cast<const char *>(lpTag) : lpEnd;
    *lpRemaining = static_cast<int>(lpEnd - *lppPos);
}

void Page::ParseHTML(const char *lpData, int nLength) {
    while (nLength > 0) {
        if (IsSkipped(*lpData)) {
            ++lpData;
            --nLength;
        } else if (*lpData == '<') {
            ParseTag(&lpData, &nLength);
        } else {
            ParseText(&lpData, &nLength);
        }
    }
}

void Page::ParseText(const char **lppPos, int *lpRemaining) {
    char szText[kTextSize];
    ExtractText(lppPos, lpRemaining, szText, kTextSize);
    if (!*szText)
        return;
    Line *lpLine = _lpLines->lpData;
    Font *lpFont = _lpFontManager->CurrentFont();
    Text *lpText;
    if (_lpCurHyperlink) {
        lpText = new (_arena) LinkText(this, szText, lpFont);
        _lpCurHyperlink->AddChild(lpText);
    } else {
        lpText = new (_arena) Text(this, szText, lpFont);
    }
    AddChild(lpText);
    if (TableCell *lpCell = lpLine->_lpCell) {
        const int nLongest = lpText->LongestWord();
        if (nLongest > lpCell->_nMinWidth)
            lpCell->_nMinWidth = nLongest;
        lpCell->_nRowWidth = AddLengths(lpCell->_nRowWidth, lpText->_rc.w);
    }
    lpLine->AddItem(lpText);
}

void Page::ParseTag(const char **lppPos, int *lpRemaining) {
    Reader reader{*lppPos, *lpRemaining};
    TagAttributes attributes;
    attributes._wCount = 0;
    reader.Step();
    TagEntry entry = FindTag(&reader);
    ScanAttributes(&reader, entry._wClosing, &attributes);
    if (!reader.AtEnd())
        reader.Step();
    *lppPos = reader.lpPos;
    *lpRemaining = reader.nLeft;
    if (entry._lpfnHandler)
        entry._lpfnHandler(this, &entry, &attributes, lppPos, lpRemaining);
}
