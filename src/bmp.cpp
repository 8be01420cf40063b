// Windows bitmaps of 8 or 24 bits, as they are or run-length encoded. Public source: the BITMAPINFOHEADER of the Windows
// documentation. Of the file header nothing is read, so that the pixels begin where the palette ends.
#include <algorithm>
#include <new>

#include "bytereader.h"
#include "gfx.h"
#include "imagedecoder.h"

namespace {

constexpr size_t kHeaderSize = 54;
constexpr uint32_t kPlain = 0;
constexpr uint32_t kRunLength = 1;
constexpr uint32_t kPaletteSize = 256;

struct Header {
    int64_t nWidth;
    int64_t nHeight;  // negative: top row first
    int nBytes;       // of a pixel
    uint32_t dwCompression;
    uint32_t dwColors;
};

bool ReadHeader(ByteReader *lpReader, Header *lpHeader) {
    const uint8_t *lp = lpReader->Take(kHeaderSize);
    if (!lp)
        return false;
    lpHeader->nWidth = static_cast<int32_t>(ReadLong(lp + 18));
    lpHeader->nHeight = static_cast<int32_t>(ReadLong(lp + 22));
    const uint16_t wBits = ReadWord(lp + 28);
    lpHeader->nBytes = wBits / 8;
    lpHeader->dwCompression = ReadLong(lp + 30);
    lpHeader->dwColors = ReadLong(lp + 46);
    // An 8-bit file that does not say has a full palette.
    if (wBits == 8 && lpHeader->dwColors == 0)
        lpHeader->dwColors = kPaletteSize;
    return (wBits == 8 || wBits == 24) && lpHeader->dwCompression <= kRunLength;
}

// Entries that the file does not have stay black.
bool ReadPalette(ByteReader *lpReader, uint32_t dwColors, uint32_t (&adwPalette)[kPaletteSize]) {
    const uint8_t *lp = lpReader->Take(size_t{dwColors} * 4);
    if (!lp)
        return false;
    for (uint32_t i = 0; i < std::min(dwColors, kPaletteSize); ++i, lp += 4)
        adwPalette[i] = MakePixel(lp[2], lp[1], lp[0]);
    return true;
}

// Expands runs into an array that starts as zeros. The counter is one of bytes; lines mean nothing to it, and the escape
// that moves on moves it by whole lines and pixels. False if the file ends first, or a run reaches behind the array.
bool ExpandRuns(ByteReader *lpReader, int nWidth, int64_t nCount, uint8_t *lpWork, int64_t nWork) {
    int64_t nDone = 0;
    while (nDone < nCount) {
        const uint8_t *lpCode = lpReader->Take(2);
        if (!lpCode)
            return false;
        const int nRun = lpCode[0];
        const int nEscape = lpCode[1];
        if (nRun) {
            if (nDone + nRun > nWork)
                return false;
            std::fill_n(lpWork + nDone, nRun, lpCode[1]);
            nDone += nRun;
        } else if (nEscape == 1) {
            return true;
        } else if (nEscape == 2) {
            const uint8_t *lpOffset = lpReader->Take(2);
            if (!lpOffset)
                return false;
            nDone += lpOffset[0] + int64_t{lpOffset[1]} * nWidth;
        } else if (nEscape) {
            const uint8_t *lpBytes = lpReader->Take(static_cast<size_t>(nEscape));
            if (!lpBytes || nDone + nEscape > nWork)
                return false;
            std::copy_n(lpBytes, nEscape, lpWork + nDone);
            nDone += nEscape;
            // The next code begins on an even position. The last may end the file.
            if (nEscape & 1 && lpReader->Left())
                lpReader->Byte();
        }
    }
    return true;
}

void ConvertRow(const uint8_t *lpBytes, int nWidth, int nBytes, const uint32_t *lpPalette,
                uint32_t *lpPixels) {
    if (nBytes == 1) {
        for (int x = 0; x < nWidth; ++x)
            lpPixels[x] = lpPalette[lpBytes[x]];
    } else {
        for (int x = 0; x < nWidth; ++x, lpBytes += 3)
            lpPixels[x] = MakePixel(lpBytes[2], lpBytes[1], lpBytes[0]);
    }
}

// Rows are padded to a multiple of four bytes; the last may go without.
bool ReadPlain(ByteReader *lpReader, int nBytes, const uint32_t *lpPalette, PixelArray *lpPixels) {
    const int nRow = lpPixels->Width() * nBytes;
    const size_t nPadding = static_cast<size_t>(-nRow & 3);
    for (int y = 0; y < lpPixels->Height(); ++y) {
        const uint8_t *lpRow = lpReader->Take(static_cast<size_t>(nRow));
        if (!lpRow)
            return false;
        ConvertRow(lpRow, lpPixels->Width(), nBytes, lpPalette,
                   lpPixels->Get() + static_cast<ptrdiff_t>(y) * lpPixels->Width());
        lpReader->Take(std::min(nPadding, lpReader->Left()));
    }
    return true;
}

bool ReadRunLength(ByteReader *lpReader, int nBytes, const uint32_t *lpPalette, PixelArray *lpPixels) {
    const size_t nWork = static_cast<size_t>(lpPixels->Count()) * static_cast<size_t>(nBytes);
    const std::unique_ptr<uint8_t[]> lpWork(new (std::nothrow) uint8_t[nWork]());
    if (!lpWork || !ExpandRuns(lpReader, lpPixels->Width(), lpPixels->Count(), lpWork.get(),
                               static_cast<int64_t>(nWork)))
        return false;
    ConvertRow(lpWork.get(), lpPixels->Count(), nBytes, lpPalette, lpPixels->Get());
    return true;
}

}  // namespace

int DecodeBMP(Image *lpImage, const uint8_t *lpData, uint32_t dwLength) {
    ByteReader reader(lpData, dwLength);
    Header header;
    uint32_t adwPalette[kPaletteSize] = {};
    if (!ReadHeader(&reader, &header) || !ReadPalette(&reader, header.dwColors, adwPalette))
        return 0;
    PixelArray pixels(header.nWidth, header.nHeight < 0 ? -header.nHeight : header.nHeight);
    if (!pixels)
        return 0;
    const auto lpfnRead = header.dwCompression == kPlain ? ReadPlain : ReadRunLength;
    if (!lpfnRead(&reader, header.nBytes, adwPalette, &pixels))
        return 0;
    if (header.nHeight > 0)
        gfx_FlipRows(pixels.Width(), pixels.Height(), pixels.Count(), pixels.Get());
    return pixels.GiveTo(lpImage);
}
