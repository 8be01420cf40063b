#include "bitreader.h"

namespace jpg {

Bits BitReader::FillBytes(Bits bits) {
    while (!_bStopped && bits._dwBitCount < kFull) {
        uint8_t bByte = _source.Byte();
        if (bByte == 0xFF) {
            uint8_t bNext = _source.Byte();
            while (bNext == 0xFF)
                bNext = _source.Byte();
            if (bNext != 0) {
                _dwMarker = bNext;
                _bStopped = true;
                break;
            }
        }
        if (_source.Failed()) {
            _bStopped = true;
            break;
        }
        bits._dwBitBuf |= uint64_t{bByte} << (56 - bits._dwBitCount);
        bits._dwBitCount += 8;
    }
    return bits;
}

}  // namespace jpg
