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

#include "kernels.h"
#include "strip.h"

namespace jpg {

namespace {

constexpr int kBadBlock = -1;
constexpr int kMostValueBits = 16;
constexpr uint8_t kSixteenZeros = 0xF0;
constexpr int kMostInARow = BitReader::kFull / kLookBits;  // look-ups with one filling

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
//
// Not inlined, so that the compiler has nothing else to keep in registers: what takes the time is the way from
// one code to the next.
[[gnu::noinline]] int DecodeBlock(const HuffDecodeTable &dc, const HuffDecodeTable &ac,
                                  const uint8_t *lpOrder, BitReader *lpReader, int32_t *lpLastDC,
                                  int16_t *lpCoef) {
    Bits bits = lpReader->_bits;
    int32_t nDifference;
    int nLast = ReadDifference(dc, lpReader, &bits, &nDifference) ? 0 : kBadBlock;
    *lpLastDC = static_cast<int32_t>(static_cast<uint32_t>(*lpLastDC) + static_cast<uint32_t>(nDifference));
    lpCoef[0] = static_cast<int16_t>(*lpLastDC);
    for (int k = nLast == kBadBlock ? 64 : 1; k < 64;) {
        bits = lpReader->Fill(bits);
        LookUp look = {};
        for (int i = 0; i < kMostInARow; ++i) {
            look = ac._aLookUp[bits.Peek(kLookBits)];
            if (!look.nValue)
                break;
            bits.Drop(look.bLength);
            nLast = k + look.bSymbol;
            lpCoef[lpOrder[nLast & 63]] = look.nValue;
            k = nLast + 1;
            if (k >= 64)
                break;
        }
        if (look.nValue)
            continue;
        look = HuffDecode(ac, lpReader, &bits);
        const int nValueBits = look.bSymbol & 15;
        k += look.bSymbol >> 4;
        if (nValueBits) {
            nLast = k;
            lpCoef[lpOrder[nLast & 63]] = static_cast<int16_t>(bits.Extend(nValueBits));
        } else if (look.bSymbol != kSixteenZeros) {
            break;
        }
        ++k;
    }
    lpReader->_bits = bits;
    return nLast < 64 ? nLast : kBadBlock;
}

// --- The MCUs ---

enum class Outcome { kGoOn, kEnd, kShort, kFailed };

class Scan {
  public:
    Scan(JpegState *lpState, const ByteReader &source, uint32_t *lpPixels)
        : _state(*lpState), _kernels(ActiveKernels()), _reader(source), _strip(*lpState, _kernels, lpPixels) {
        for (int t = 0; t < kTables; ++t)
            _aQuant[t] = MakeBlockQuant(lpState->_awQuant[t], _kernels.lpOrder);
    }

    Outcome Run();

  private:
    Outcome DecodeMCU();
    Outcome EndEarly(BitReader before);
    Outcome ActOnMarker(uint32_t dwMarker);

    JpegState &_state;
    const Kernels &_kernels;
    BlockQuant _aQuant[kTables];
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
        const BlockQuant &quant = _aQuant[component._bQuant];
        for (int v = 0; v < component._bV; ++v) {
            for (int h = 0; h < component._bH; ++h) {
                const int nLast =
                    DecodeBlock(dc, ac, _kernels.lpOrder, &_reader, &_state._anLastDC[c], _state._aCoef);
                if (_reader._bits._dwBitCount < 0)
                    return Outcome::kShort;
                if (nLast == kBadBlock)
                    return Outcome::kFailed;
                _kernels.lpfnTransform(quant, nLast, _state._aCoef, _strip.Place(c, h, v), Strip::kWidth);
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
