// MCUs are counted, and a marker that the bit reader meets is not acted on before the bits in front of it are
// used up. So it does not matter how far the reader is ahead of the decoding:
//
//   all MCUs decoded   what is left of the bits is padding, and the next marker has to be EOI
//   a restart is due   likewise, and it has to be RST; or EOI, of a picture with MCUs missing
//   an MCU lacks bits  the end, and one in order only if nothing but padding was left and the marker is EOI
//
// Public source of the coding: ITU T.81, F.2.
#include "scan.h"

#include <cstring>

#include "idct.h"
#include "strip.h"

namespace jpg {

namespace {

constexpr int kBadBlock = -1;
constexpr int kLastOfQuarter = 9;  // in zigzag order: up to here all lies in the first four rows and columns
constexpr int kMostValueBits = 16;

// --- A block ---

// Takes the next code, and leaves enough bits in hand for all that belongs to it.
[[gnu::always_inline]] inline LookUp HuffDecode(const HuffDecodeTable &table, BitReader *lpReader,
                                                Bits *lpBits) {
    if (lpBits->_dwBitCount < BitReader::kEnough)
        *lpBits = lpReader->Fill(*lpBits);
    LookUp look = table._aLookUp[lpBits->Peek(kLookBits)];
    if (!look.bLength)
        look = FindLongCode(&table, *lpBits);
    lpBits->Drop(look.bLength);
    return look;
}

// The difference to the first coefficient of the block before. False for one of more bits than there are.
[[gnu::always_inline]] inline bool ReadDifference(const HuffDecodeTable &table, BitReader *lpReader,
                                                  Bits *lpBits, int32_t *lpnDifference) {
    const LookUp look = HuffDecode(table, lpReader, lpBits);
    *lpnDifference = look.nValue;
    if (look.nValue)
        return look.bSymbol == 0;
    if (look.bSymbol > kMostValueBits)
        return false;
    if (look.bSymbol)
        *lpnDifference = lpBits->Extend(look.bSymbol);
    return true;
}

// Decodes a block into coefficients that are all 0. Returns the index of the last that is not, in zigzag
// order, or kBadBlock. Both are to be believed only if the reader has not run out of bits.
int DecodeBlock(const HuffDecodeTable &dc, const HuffDecodeTable &ac, BitReader *lpReader, int32_t *lpLastDC,
                int16_t *lpCoef) {
    Bits bits = lpReader->_bits;
    int32_t nDifference;
    int nLast = ReadDifference(dc, lpReader, &bits, &nDifference) ? 0 : kBadBlock;
    *lpLastDC = static_cast<int32_t>(static_cast<uint32_t>(*lpLastDC) + static_cast<uint32_t>(nDifference));
    lpCoef[0] = static_cast<int16_t>(*lpLastDC);
    for (int k = 1; k < 64 && nLast != kBadBlock; ++k) {
        const LookUp look = HuffDecode(ac, lpReader, &bits);
        int nValue = look.nValue;
        if (nValue) {
            k += look.bSymbol;
        } else {
            k += look.bSymbol >> 4;
            if (look.bSymbol == 0xF0)
                continue;
            if ((look.bSymbol & 15) == 0)
                break;
            nValue = bits.Extend(look.bSymbol & 15);
        }
        nLast = k < 64 ? k : kBadBlock;
        lpCoef[g_anNatural[k & 63]] = static_cast<int16_t>(nValue);
    }
    lpReader->_bits = bits;
    return nLast;
}

// Makes samples of coefficients, which become 0 again.
void Transform(int nLast, const uint16_t *lpQuant, int16_t *lpCoef, uint8_t *lpSamples) {
    if (nLast == 0) {
        FlatIDCT(lpQuant, lpCoef, lpSamples);
        lpCoef[0] = 0;
    } else {
        const auto lpfnTransform = nLast <= kLastOfQuarter ? QuarterIDCT : jpg_IDCT;
        lpfnTransform(lpQuant, lpCoef, lpSamples);
        memset(lpCoef, 0, 64 * sizeof *lpCoef);
    }
}

// --- The MCUs ---

enum class Outcome { kGoOn, kEnd, kShort, kFailed };

class Scan {
  public:
    Scan(JpegState *lpState, const ByteReader &source, uint32_t *lpPixels)
        : _state(*lpState), _reader(source), _strip(*lpState, lpPixels) {}

    Outcome Run();

  private:
    Outcome DecodeMCU();
    Outcome EndEarly(BitReader before);
    Outcome ActOnMarker(uint32_t dwMarker);

    JpegState &_state;
    BitReader _reader;
    Strip _strip;
};

Outcome Scan::Run() {
    const uint32_t dwRows = (_state._wHeight - 1u) / (8u * _state._bMaxV) + 1;
    uint32_t dwLeft = _state._bMCUsPerRow * dwRows;
    Outcome outcome = Outcome::kGoOn;
    while (outcome == Outcome::kGoOn) {
        if (dwLeft == 0 || (_state._wRestartInterval && _state._wRestartsToGo == 0)) {
            outcome = ActOnMarker(_reader.TakeMarker());
            continue;
        }
        const BitReader before = _reader;
        outcome = DecodeMCU();
        if (outcome == Outcome::kShort) {
            outcome = EndEarly(before);
        } else if (outcome == Outcome::kGoOn) {
            _strip.Add();
            --_state._wRestartsToGo;
            --dwLeft;
        }
    }
    _strip.Flush();
    return outcome;
}

Outcome Scan::DecodeMCU() {
    for (int c = 0; c < _state._bComponents; ++c) {
        const JpegComponent &component = _state._aComponents[c];
        const HuffDecodeTable &dc = _state._aDCDecode[component._bDC];
        const HuffDecodeTable &ac = _state._aACDecode[component._bAC];
        const uint16_t *lpQuant = _state._awQuant[component._bQuant];
        for (int v = 0; v < component._bV; ++v) {
            for (int h = 0; h < component._bH; ++h) {
                const int nLast = DecodeBlock(dc, ac, &_reader, &_state._anLastDC[c], _state._aCoef);
                if (_reader._bits._dwBitCount < 0)
                    return Outcome::kShort;
                if (nLast == kBadBlock)
                    return Outcome::kFailed;
                Transform(nLast, lpQuant, _state._aCoef, _state._aSamples);
                _strip.Put(c, h, v, _state._aSamples);
            }
        }
    }
    return Outcome::kGoOn;
}

// An MCU has run out of bits; the reader is given as it was before.
Outcome Scan::EndEarly(BitReader before) {
    const bool bWholeMCUs = before.IsAtPadding();
    const uint32_t dwMarker = before.TakeMarker();
    return dwMarker == kEndOfImage && !bWholeMCUs ? Outcome::kFailed : ActOnMarker(dwMarker);
}

Outcome Scan::ActOnMarker(uint32_t dwMarker) {
    if (dwMarker == 0)
        return Outcome::kFailed;
    if (dwMarker == kEndOfImage)
        return Outcome::kEnd;
    if (dwMarker < kRestart0 || dwMarker > kRestart7) {
        ShowMessage("Unhandled marker in JPG data stream");
        return Outcome::kFailed;
    }
    if (_state._wRestartInterval && _state._wRestartsToGo == 0) {
        _state._wRestartsToGo = _state._wRestartInterval;
        memset(_state._anLastDC, 0, sizeof _state._anLastDC);
        return Outcome::kGoOn;
    }
    if (!_state._wRestartInterval)
        ShowMessage("Got M_RST in non-DRI image?");
    if (_state._wRestartsToGo)
        ShowMessage("Got M_RST with MCUs left");
    return Outcome::kFailed;
}

}  // namespace

bool DecodeScan(JpegState *lpState, const ByteReader &source, uint32_t *lpPixels) {
    return Scan(lpState, source, lpPixels).Run() == Outcome::kEnd;
}

}  // namespace jpg
