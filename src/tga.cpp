// Truevision TGA pictures of 16-bit pixels, as they are or run-length encoded. Public source: the Truevision TGA file
// format, version 2. The pixels begin right behind the header, whatever that says of an identification or a colour map.
#include <algorithm>

#include "bytereader.h"
#include "gfx.h"
#include "imagedecoder.h"

namespace {

constexpr size_t kHeaderSize = 18;
constexpr uint8_t kTrueColor = 2;
constexpr uint8_t kRunLengthTrueColor = 10;
constexpr uint8_t kRunFlag = 0x80;

// Five bits each of red, green and blue become the high bits of a byte. The top bit is not looked at.
uint32_t ConvertPixel(const uint8_t *lp) {
    const uint32_t nLow = lp[0];
    const uint32_t nHigh = lp[1];
    return MakePixel((nHigh & 0x7C) << 1, (nLow & 0xE0) >> 2 | (nHigh & 0x03) << 6, (nLow & 0x1F) << 3);
}

bool ReadPlain(ByteReader *lpReader, uint32_t *lpPixels, int nCount) {
    const uint8_t *lp = lpReader->Take(static_cast<size_t>(nCount) * 2);
    if (!lp)
        return false;
    for (ptrdiff_t i = 0; i < nCount; ++i)
        lpPixels[i] = ConvertPixel(lp + i * 2);
    return true;
}

bool ReadRun(ByteReader *lpReader, uint32_t *lpPixels, int nCount) {
    const uint8_t *lp = lpReader->Take(2);
    if (lp)
        std::fill_n(lpPixels, nCount, ConvertPixel(lp));
    return lp != nullptr;
}

// False if the file ends first, or a packet reaches behind the picture.
bool ReadPackets(ByteReader *lpReader, uint32_t *lpPixels, int nCount) {
    while (nCount > 0) {
        const uint8_t bHeader = lpReader->Byte();
        const int nPacket = (bHeader & ~kRunFlag) + 1;
        const auto lpfnRead = bHeader & kRunFlag ? ReadRun : ReadPlain;
        if (lpReader->Failed() || nPacket > nCount || !lpfnRead(lpReader, lpPixels, nPacket))
            return false;
        lpPixels += nPacket;
        nCount -= nPacket;
    }
    return true;
}

}  // namespace

int DecodeTGA(Image *lpImage, const uint8_t *lpData, uint32_t dwLength) {
    ByteReader reader(lpData, dwLength);
    const uint8_t *lpHeader = reader.Take(kHeaderSize);
    if (!lpHeader || (lpHeader[2] != kTrueColor && lpHeader[2] != kRunLengthTrueColor))
        return 0;
    PixelArray pixels(ReadWord(lpHeader + 12), ReadWord(lpHeader + 14));
    if (!pixels)
        return 0;
    const auto lpfnRead = lpHeader[2] == kTrueColor ? ReadPlain : ReadPackets;
    if (!lpfnRead(&reader, pixels.Get(), pixels.Count()))
        return 0;
    if (ReadWord(lpHeader + 10) == 0)
        gfx_FlipRows(pixels.Width(), pixels.Height(), pixels.Count(), pixels.Get());
    return pixels.GiveTo(lpImage);
}
