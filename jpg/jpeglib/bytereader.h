// The one way in which the reader touches the bytes of a file.
//
// A ByteReader has a position, an end and a sign of failure. A getter that finds too few bytes moves to the
// end, fails for good and yields zero; so a check that was forgotten costs wrong pixels, never a wild read,
// and a caller tests once for each segment.
#pragma once

#include <cstddef>
#include <cstdint>

namespace jpg {

class ByteReader {
  public:
    ByteReader(const uint8_t *lpData, size_t nLength) : _lpPos(lpData), _nLeft(nLength) {}

    bool Failed() const { return _bFailed; }
    size_t Left() const { return _nLeft; }

    void Skip(size_t nCount) { Take(nCount); }

    uint8_t Byte() {
        const uint8_t *lp = Take(1);
        return lp ? *lp : uint8_t{0};
    }

    uint16_t Word() {
        const uint8_t *lp = Take(2);
        return lp ? static_cast<uint16_t>(lp[0] << 8 | lp[1]) : uint16_t{0};
    }

    // Whether the next bytes are those of a string, which is taken.
    bool Matches(const char *lpsz) {
        bool bEqual = true;
        for (; *lpsz; ++lpsz)
            bEqual &= Byte() == static_cast<uint8_t>(*lpsz);
        return bEqual;
    }

    // Takes everything up to the next 0xFF, and the byte behind it, which it returns.
    uint8_t Marker() {
        while (!_bFailed && Byte() != 0xFF) {
        }
        return Byte();
    }

    // The next eight bytes, the first at the top, without taking them. False if there are not so many.
    bool PeekEight(uint64_t *lpqwBytes) const {
        if (_nLeft < 8)
            return false;
        const uint8_t *lp = _lpPos;
        *lpqwBytes = uint64_t{lp[0]} << 56 | uint64_t{lp[1]} << 48 | uint64_t{lp[2]} << 40 |
                     uint64_t{lp[3]} << 32 | uint64_t{lp[4]} << 24 | uint64_t{lp[5]} << 16 |
                     uint64_t{lp[6]} << 8 | uint64_t{lp[7]};
        return true;
    }

    // Takes some of those eight.
    void SkipPeeked(size_t nCount) {
        _lpPos += nCount;
        _nLeft -= nCount;
    }

  private:
    const uint8_t *Take(size_t nCount) {
        if (nCount > _nLeft) {
            _nLeft = 0;
            _bFailed = true;
            return nullptr;
        }
        const uint8_t *lpTaken = _lpPos;
        _lpPos += nCount;
        _nLeft -= nCount;
        return lpTaken;
    }

    const uint8_t *_lpPos;
    size_t _nLeft;
    bool _bFailed = false;
};

}  // namespace jpg
