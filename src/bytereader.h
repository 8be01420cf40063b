// The one way in which the decoders touch the bytes of a file, and a body that has been fetched leaves its answer.
//
// A reader has a position, an end and a sign of failure. Every getter asks whether enough bytes are left; if not, it
// moves to the end, fails for good and yields zero. So a check that was forgotten costs wrong pixels, never a wild read,
// and a caller tests once for each header, row or packet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

class ByteReader {
  public:
    ByteReader(const uint8_t *lpData, size_t nLength) : _lpPos(lpData), _nLeft(nLength) {}

    bool Failed() const { return _bFailed; }
    size_t Left() const { return _nLeft; }

    // The next nCount bytes, or null.
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

    uint8_t Byte() {
        const uint8_t *lpByte = Take(1);
        return lpByte ? *lpByte : uint8_t{0};
    }

    // Copies the next nCount bytes; nothing if there are not so many.
    void Copy(uint8_t *lpTo, size_t nCount) {
        if (const uint8_t *lpFrom = Take(nCount))
            memcpy(lpTo, lpFrom, nCount);
    }

    // A part of what is left, cut out of it; an empty one that has failed if there is not so much.
    ByteReader Cut(size_t nCount) {
        const uint8_t *lpPart = Take(nCount);
        ByteReader part(lpPart, lpPart ? nCount : 0);
        part._bFailed = !lpPart;
        return part;
    }

  private:
    const uint8_t *_lpPos;
    size_t _nLeft;
    bool _bFailed = false;
};

// Numbers of a header that has been taken as a whole; low byte first.
inline uint16_t ReadWord(const uint8_t *lp) {
    return static_cast<uint16_t>(lp[0] | lp[1] << 8);
}

inline uint32_t ReadLong(const uint8_t *lp) {
    return ReadWord(lp) | static_cast<uint32_t>(ReadWord(lp + 2)) << 16;
}
