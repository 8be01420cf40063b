// The segments in front of a scan. Public source: ITU T.81, annex B, and T.871 for APP0.
//
// A segment is read as it comes; its length only says how often a table repeats, and where the next marker is
// looked for. Every read may find the file at its end, which ends the call without a word: whoever reads a
// segment asks once, before anything is done with it.
#include "jpeglib.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>

#include "scan.h"
#include "tables.h"

namespace jpg {

namespace {

std::atomic<void (*)(const char *)> g_lpfnMessageBox{nullptr};

enum : uint8_t {
    kSOF0 = 0xC0,
    kDHT = 0xC4,
    kSOI = 0xD8,
    kEOI = 0xD9,
    kSOS = 0xDA,
    kDQT = 0xDB,
    kDRI = 0xDD,
    kAPP0 = 0xE0,
};

constexpr uint32_t kMaxSide = 16384;
constexpr uint64_t kMaxPixels = 64'000'000;

struct PictureSize {
    uint32_t dwWidth, dwHeight;

    bool operator==(const PictureSize &) const = default;
};

bool IsTooLarge(const PictureSize &size) {
    return size.dwWidth > kMaxSide || size.dwHeight > kMaxSide ||
           uint64_t{size.dwWidth} * size.dwHeight > kMaxPixels;
}

// Frames that are not baseline (T.81, table B.1).
bool IsOtherFrame(uint8_t bMarker) {
    return bMarker >= 0xC1 && bMarker <= 0xCE && bMarker != kDHT && bMarker != 0xC8 && bMarker != 0xCC;
}

bool Complain(const char *lpszText) {
    ShowMessage(lpszText);
    return false;
}

// A segment that has been entered: behind its marker there is a length, which counts itself.
class Segment {
  public:
    explicit Segment(ByteReader *lpReader) : _lpReader(lpReader) {
        const uint16_t wLength = lpReader->Word();
        _nLength = wLength > 2 ? wLength - 2u : 0u;
        _nBegin = lpReader->Left();
    }

    // What has not been read yet; 0 also if more than there is has been.
    size_t Left() const {
        const size_t nRead = _nBegin - _lpReader->Left();
        return nRead < _nLength ? _nLength - nRead : 0;
    }

    void SkipRest() { _lpReader->Skip(Left()); }

  private:
    ByteReader *_lpReader;
    size_t _nLength;
    size_t _nBegin;  // what was left of the file when the segment began
};

// --- Segments. Each returns false if the file is of no use ---

bool ReadAPP0(ByteReader *lpReader) {
    Segment segment(lpReader);
    if (!lpReader->Matches("JFIF"))
        return !lpReader->Failed() && Complain("Could not find \"JFIF\" marker in JFIF M_APP0");
    lpReader->Skip(1);
    if (lpReader->Byte() != 1)
        return !lpReader->Failed() && Complain("Got invalid version number in JFIF M_APP0");
    lpReader->Skip(6);  // minor version, units and densities, which are read even beyond a short segment
    segment.SkipRest();
    return true;
}

bool ReadDQT(ByteReader *lpReader, JpegState *lpState) {
    const Segment segment(lpReader);
    while (segment.Left() && !lpReader->Failed()) {
        const uint8_t bKind = lpReader->Byte();
        const int nTable = bKind & 15;
        if (nTable >= kTables)
            return Complain("Got invalid Quantization Table count in JFIF M_DQT");
        for (const uint8_t bNatural : g_anNatural)
            lpState->_awQuant[nTable][bNatural] = bKind >> 4 ? lpReader->Word() : lpReader->Byte();
    }
    return !lpReader->Failed();
}

// The counts and symbols of one table.
bool ReadHuffTable(ByteReader *lpReader, HuffTable *lpTable) {
    int nSymbols = 0;
    for (int l = 1; l <= kLongestCode; ++l) {
        lpTable->_abBits[l] = lpReader->Byte();
        nSymbols += lpTable->_abBits[l];
    }
    if (lpReader->Failed())
        return false;
    if (nSymbols > 256)
        return Complain("Got invalid Huffman Table bit count in JFIF M_DHT");
    for (int i = 0; i < nSymbols; ++i)
        lpTable->_abVals[i] = lpReader->Byte();
    return !lpReader->Failed();
}

bool ReadDHT(ByteReader *lpReader, JpegState *lpState) {
    const Segment segment(lpReader);
    while (segment.Left()) {
        const uint8_t bIndex = lpReader->Byte();
        HuffTable table = {};
        if (!ReadHuffTable(lpReader, &table))
            return false;
        const bool bAC = bIndex & 0x10;
        const int nTable = bIndex & ~0x10;
        if (nTable >= kTables)
            return Complain("Got bad Huffman Table index in JFIF DHT segment");
        HuffTable *lpTable = bAC ? &lpState->_aACTables[nTable] : &lpState->_aDCTables[nTable];
        *lpTable = table;
        if (!jpg_BuildHuffTable(lpTable, bAC ? &lpState->_aACDecode[nTable] : &lpState->_aDCDecode[nTable]))
            return false;
    }
    return !lpReader->Failed();
}

bool ReadDRI(ByteReader *lpReader, JpegState *lpState) {
    const Segment segment(lpReader);
    if (!lpReader->Failed() && segment.Left() != 2)
        ShowMessage("Got bad M_DRI length in JFIF header");
    lpState->_wRestartInterval = lpReader->Word();
    lpState->_wRestartsToGo = lpState->_wRestartInterval;
    return !lpReader->Failed();
}

bool ReadComponent(ByteReader *lpReader, JpegComponent *lpComponent) {
    lpComponent->_bId = lpReader->Byte();
    const uint8_t bFactors = lpReader->Byte();
    lpComponent->_bH = bFactors >> 4;
    lpComponent->_bV = bFactors & 15;
    lpComponent->_bQuant = lpReader->Byte();
    if (lpReader->Failed())
        return false;
    if (lpComponent->_bH == 0 || lpComponent->_bH > kMaxFactor || lpComponent->_bV == 0 ||
        lpComponent->_bV > kMaxFactor)
        return Complain("Got invalid H/V Sample Factor in JFIF M_SOF0");
    return true;
}

// The frame header, of a picture of just the given size if there is one.
bool ReadSOF0(ByteReader *lpReader, JpegState *lpState, const PictureSize *lpWanted) {
    lpReader->Skip(3);  // length and precision
    lpState->_wHeight = lpReader->Word();
    lpState->_wWidth = lpReader->Word();
    lpState->_bComponents = lpReader->Byte();
    if (lpReader->Failed())
        return false;
    const PictureSize size = {lpState->_wWidth, lpState->_wHeight};
    if (!size.dwWidth || !size.dwHeight || !lpState->_bComponents || (lpWanted && size != *lpWanted))
        return Complain("Invalid or insufficient information in JFIF M_SOF0");
    lpState->_bMaxH = lpState->_bMaxV = 1;
    for (int c = 0; c < lpState->_bComponents; ++c) {
        JpegComponent component = {};
        if (!ReadComponent(lpReader, &component))
            return false;
        // The MCU of a component that is alone is one block, whatever its factors (T.81, A.2.2).
        if (lpState->_bComponents == 1)
            component._bH = component._bV = 1;
        lpState->_bMaxH = std::max(lpState->_bMaxH, component._bH);
        lpState->_bMaxV = std::max(lpState->_bMaxV, component._bV);
        if (c < kMaxComponents)
            lpState->_aComponents[c] = component;
    }
    for (int c = 0; c < std::min<int>(lpState->_bComponents, kComponents); ++c) {
        lpState->_anRatioH[c] = lpState->_bMaxH / lpState->_aComponents[c]._bH;
        lpState->_anRatioV[c] = lpState->_bMaxV / lpState->_aComponents[c]._bV;
    }
    lpState->_bMCUsPerRow = static_cast<uint16_t>((size.dwWidth - 1) / (8u * lpState->_bMaxH) + 1);
    return true;
}

// Whether the picture is grey or of three colours, and everything is there that its scan refers to.
bool IsComplete(const JpegState &state) {
    if (state._bComponents != 1 && state._bComponents != kComponents)
        return false;
    for (int c = 0; c < state._bComponents; ++c) {
        const JpegComponent &component = state._aComponents[c];
        if (component._bQuant >= kTables || component._bDC >= kTables || component._bAC >= kTables ||
            !state._aDCDecode[component._bDC]._lpTable || !state._aACDecode[component._bAC]._lpTable)
            return false;
    }
    return true;
}

bool ReadSOS(ByteReader *lpReader, JpegState *lpState) {
    Segment segment(lpReader);
    lpState->_bScanComponents = lpReader->Byte();
    if (lpReader->Failed())
        return false;
    if (lpState->_bScanComponents == 0 || lpState->_bScanComponents > kMaxComponents)
        return Complain("Got invalid scan component count in JFIF M_SOS");
    for (int i = 0; i < lpState->_bScanComponents; ++i) {
        JpegComponent &component = lpState->_aComponents[i];
        const uint8_t bId = lpReader->Byte();
        if (lpReader->Failed())
            return false;
        if (bId != component._bId)
            return Complain("Got out-of-order AC/DC Table Number in JFIF SOS");
        const uint8_t bTables = lpReader->Byte();
        component._bDC = bTables >> 4;
        component._bAC = bTables & 15;
    }
    segment.SkipRest();
    return !lpReader->Failed() && IsComplete(*lpState);
}

// --- The way to the scan ---

enum class Stop { kScan, kEnd, kFailed };

// Reads segments up to a scan whose data comes next, or to the end of the image.
Stop ReadHeader(ByteReader *lpReader, JpegState *lpState, const PictureSize *lpWanted) {
    for (bool bGood = true; bGood;) {
        const uint8_t bMarker = lpReader->Marker();
        if (lpReader->Failed())
            return Stop::kFailed;
        switch (bMarker) {
            case kSOI:
                break;
            case kEOI:
                return Stop::kEnd;
            case kSOS:
                return ReadSOS(lpReader, lpState) ? Stop::kScan : Stop::kFailed;
            case kSOF0:
                bGood = ReadSOF0(lpReader, lpState, lpWanted);
                break;
            case kDHT:
                bGood = ReadDHT(lpReader, lpState);
                break;
            case kDQT:
                bGood = ReadDQT(lpReader, lpState);
                break;
            case kDRI:
                bGood = ReadDRI(lpReader, lpState);
                break;
            case kAPP0:
                bGood = ReadAPP0(lpReader);
                break;
            default:
                bGood = !IsOtherFrame(bMarker);
                Segment(lpReader).SkipRest();
                break;
        }
    }
    return Stop::kFailed;
}

// The array for a picture whose frame header has been read, null if that is too large. Black, since a file
// may end before all of it is drawn.
uint32_t *NewPixels(const JpegState &state) {
    if (IsTooLarge({state._wWidth, state._wHeight}))
        return nullptr;
    return new (std::nothrow) uint32_t[size_t{state._wWidth} * state._wHeight]();
}

bool IsGiven(bool bGiven, const char *lpszText) {
    return bGiven || Complain(lpszText);
}

}  // namespace

void ShowMessage(const char *lpszText) {
    if (const auto lpfnShow = g_lpfnMessageBox.load())
        lpfnShow(lpszText);
}

}  // namespace jpg

// --- What others call ---

using namespace jpg;

void jpg_SetMessageBox(void (*lpfnShow)(const char *lpszText)) {
    g_lpfnMessageBox = lpfnShow;
}

int jpg_GetDimensions(const uint8_t *lpSource, int nLength, uint32_t *lpWidth, uint32_t *lpHeight) {
    if (!IsGiven(lpSource, "Cannot pass NULL source buffer to jpg_GetDimensions") ||
        !IsGiven(nLength > 0, "Cannot pass <= 0 source buflen to jpg_GetDimensions") ||
        !IsGiven(lpWidth, "Cannot pass NULL source width  to jpg_GetDimensions") ||
        !IsGiven(lpHeight, "Cannot pass NULL source height to jpg_GetDimensions"))
        return 0;
    PrepareTables();
    *lpWidth = *lpHeight = 0;
    ByteReader reader(lpSource, static_cast<size_t>(nLength));
    bool bJFIF = false;
    uint8_t bMarker = reader.Marker();
    while (!reader.Failed() && (bMarker != kSOF0 || !bJFIF)) {
        if (bMarker == kAPP0) {
            // Only entered: what is in the segment is looked at like anything else.
            reader.Skip(2);
            if (!reader.Matches("JFIF"))
                return 0;
            bJFIF = true;
        } else if (bMarker != kSOF0 && bMarker != kSOI) {
            Segment(&reader).SkipRest();
        }
        bMarker = reader.Marker();
    }
    reader.Skip(3);  // length and precision
    const uint32_t dwHeight = reader.Word();
    const uint32_t dwWidth = reader.Word();
    if (reader.Failed())
        return 0;
    *lpWidth = dwWidth;
    *lpHeight = dwHeight;
    return 1;
}

int jpg_JPGToRGB(const uint8_t *lpSource, int nLength, uint32_t *lpWidth, uint32_t *lpHeight,
                 uint32_t **lppDest, int bAllocate) {
    if (!IsGiven(lpSource, "Cannot pass NULL source buffer to jpg_JPGToRGB") ||
        !IsGiven(nLength > 0, "Cannot pass <= 0 source buflen to jpg_JPGToRGB") ||
        !IsGiven(lpWidth, "Cannot pass NULL source width  to jpg_JPGToRGB") ||
        !IsGiven(lpHeight, "Cannot pass NULL source height to jpg_JPGToRGB") ||
        !IsGiven(lppDest, "Cannot pass NULL dest   buffer to jpg_JPGToRGB"))
        return 0;
    PrepareTables();
    if (bAllocate) {
        *lpWidth = *lpHeight = 0;
        *lppDest = nullptr;
    }
    const PictureSize wanted = {*lpWidth, *lpHeight};
    ByteReader reader(lpSource, static_cast<size_t>(nLength));
    JpegState state = {};
    const Stop stop = ReadHeader(&reader, &state, bAllocate ? nullptr : &wanted);
    if (stop == Stop::kFailed)
        return 0;
    if (stop == Stop::kScan) {
        if (bAllocate)
            *lppDest = NewPixels(state);
        if (!*lppDest)
            return 0;
        if (!DecodeScan(&state, reader, *lppDest)) {
            if (bAllocate)
                delete[] * lppDest;
            return 0;
        }
    }
    *lpWidth = state._wWidth;
    *lpHeight = state._wHeight;
    return 1;
}
