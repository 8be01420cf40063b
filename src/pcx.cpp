// PCX pictures of one plane of 8 bits, with the palette at the end of the file. Public source: the ZSoft technical
// reference. Index 0 is the transparent colour.
#include <algorithm>
#include <new>

#include "bytereader.h"
#include "imagedecoder.h"

namespace {

constexpr size_t kHeaderSize = 128;
constexpr size_t kPaletteBytes = 768;
constexpr uint8_t kVersion = 5;
constexpr uint8_t kBits = 8;
constexpr uint8_t kRunMark = 0xC0;

// Decodes one line of nEncoded bytes into nWidth indices. What is behind the width is dropped; a run does not go on in
// the next line. False if the data end first.
bool ReadLine(ByteReader *lpReader, int nEncoded, int nWidth, uint8_t *lpIndices) {
    int nColumn = 0;
    do {
        uint8_t bValue = lpReader->Byte();
        int nCount = 1;
        if ((bValue & kRunMark) == kRunMark) {
            nCount = bValue & ~kRunMark & 0xFF;
            bValue = lpReader->Byte();
        }
        if (lpReader->Failed())
            return false;
        if (nColumn < nWidth)
            std::fill_n(lpIndices + nColumn, std::min(nCount, nWidth - nColumn), bValue);
        nColumn += nCount;
    } while (nColumn < nEncoded);
    return true;
}

// Index 0 is transparent whatever the palette says, and that is what black is.
void MakePalette(const uint8_t *lpBytes, uint32_t (&adwPalette)[256]) {
    adwPalette[0] = 0;
    for (ptrdiff_t i = 1; i < 256; ++i)
        adwPalette[i] = MakePixel(lpBytes[i * 3], lpBytes[i * 3 + 1], lpBytes[i * 3 + 2]);
}

}  // namespace

int DecodePCX(Image *lpImage, const uint8_t *lpData, uint32_t dwLength) {
    if (dwLength < kHeaderSize + kPaletteBytes)
        return 0;
    ByteReader reader(lpData, dwLength);
    const uint8_t *lpHeader = reader.Take(kHeaderSize);
    if (lpHeader[1] != kVersion || lpHeader[3] != kBits)
        return 0;
    PixelArray ubits(ReadWord(lpHeader + 8) - ReadWord(lpHeader + 4) + 1,
                     ReadWord(lpHeader + 10) - ReadWord(lpHeader + 6) + 1);
    if (!ubits)
        return 0;
    const int nEncoded = ReadWord(lpHeader + 66);
    ByteReader data = reader.Cut(reader.Left() - kPaletteBytes);
    uint32_t adwPalette[256];
    MakePalette(reader.Take(kPaletteBytes), adwPalette);

    const int nWidth = ubits.Width();
    const std::unique_ptr<uint8_t[]> lpLine(new (std::nothrow) uint8_t[static_cast<size_t>(nWidth)]);
    if (!lpLine)
        return 0;
    uint32_t *lpPixels = ubits.Get();
    for (int y = 0; y < ubits.Height(); ++y, lpPixels += nWidth) {
        std::fill_n(lpLine.get(), nWidth, uint8_t{0});
        if (!ReadLine(&data, nEncoded, nWidth, lpLine.get()))
            return 0;
        for (int x = 0; x < nWidth; ++x)
            lpPixels[x] = adwPalette[lpLine[static_cast<size_t>(x)]];
    }
    return ubits.GiveTo(lpImage);
}
