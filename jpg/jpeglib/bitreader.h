// The bits of a scan: bytes with the stuffed zeros taken out, up to a marker or the end of the file.
//
// Behind the last bit there are zeros without end, and the count of the bits in hand falls below zero as they
// are used. So nobody has to ask for each bit whether it is there: whoever has decoded something looks at the
// count once, and if it is negative, what was decoded is worth nothing.
#pragma once

#include "bytereader.h"

namespace jpg {

enum : uint8_t { kRestart0 = 0xD0, kRestart7 = 0xD7, kEndOfImage = 0xD9 };

// The bits in hand, the next one at the top. Below the count there may stand more bits of the file, which the
// next filling only repeats. It is handed about by value, to stay in two registers. Both have 64 bits, so
// that one filling lasts for several codes, and the count a sign.
struct Bits {
    uint64_t _dwBitBuf = 0;
    int64_t _dwBitCount = 0;

    // The next n bits, n from 1 to 63.
    uint32_t Peek(int n) const { return static_cast<uint32_t>(_dwBitBuf >> (64 - n)); }

    void Drop(int n) {
        _dwBitBuf <<= n;
        _dwBitCount -= n;
    }

    // Reads n bits, 1 to 16, as T.81 writes the values of n bits (F.2.2.1, EXTEND): those without the top bit
    // set are the negative ones.
    int32_t Extend(int n) {
        const int32_t nBits = static_cast<int32_t>(Peek(n));
        const int32_t nNegative = ~static_cast<int32_t>(static_cast<int64_t>(_dwBitBuf) >> 63);
        Drop(n);
        return nBits + (nNegative & (1 - (1 << n)));
    }
};

class BitReader {
  public:
    // As many as a code and the value behind it take at most, or a code that does not exist.
    static constexpr int kEnough = 32;

    // And as many as there are after a filling, unless the scan ends before.
    static constexpr int kFull = 56;

    explicit BitReader(const ByteReader &source) : _source(source) {}

    // The bits in hand. A loop works on a copy and puts it back.
    Bits _bits;

    // Takes in what finds room, whole bytes, for up to 63 bits.
    Bits Fill(Bits bits) {
        constexpr uint64_t kOnes = 0x0101010101010101;
        uint64_t qw;
        if (_bStopped || !_source.PeekEight(&qw) || ((~qw - kOnes) & qw & (kOnes << 7)))
            return FillBytes(bits);
        // None of the eight is 0xFF. Those that find room are seven or fewer.
        bits._dwBitBuf |= qw >> bits._dwBitCount;
        _source.SkipPeeked(static_cast<size_t>(63 - bits._dwBitCount) >> 3);
        bits._dwBitCount |= kFull;
        return bits;
    }

    // Whether nothing is left before the marker but what fills up the last byte.
    bool IsAtPadding() {
        _bits = FillBytes(_bits);
        return _bits._dwBitCount < 8;
    }

    // Drops the bits in hand and goes on behind the next marker, which it returns; 0 if there is none. Fill
    // bytes before a marker and what looks like a stuffed zero are passed over.
    uint32_t TakeMarker() {
        uint32_t dwMarker = _dwMarker;
        while (!_source.Failed() && (dwMarker == 0 || dwMarker == 0xFF))
            dwMarker = dwMarker == 0xFF ? _source.Byte() : _source.Marker();
        _bits = {};
        _dwMarker = 0;
        _bStopped = false;
        return dwMarker;
    }

  private:
    // One byte after the other, while there is room for it.
    Bits FillBytes(Bits bits);

    ByteReader _source;
    uint32_t _dwMarker = 0;  // met, and not yet taken
    bool _bStopped = false;  // at the marker or at the end
};

}  // namespace jpg
