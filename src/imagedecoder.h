// The decoders: each turns the bytes of a file, held whole in memory, into the pixels of an Image. They are small readers
// that accept a narrow slice of their formats, and refuse what does not fit together.
//
// A decoder returns 1 with _lpPixels, _rc.w and _rc.h of the Image set, or 0 with the Image as it was. It runs on a
// worker and touches nothing that is shared. Pixels are 0x00RRGGBB, rows from the top down without gaps.
#pragma once

#include <cstdint>
#include <memory>

class Image;

using ImageDecoder = int (*)(Image *lpImage, const uint8_t *lpData, uint32_t dwLength);

int DecodeBMP(Image *lpImage, const uint8_t *lpData, uint32_t dwLength);
int DecodePCX(Image *lpImage, const uint8_t *lpData, uint32_t dwLength);
int DecodeTGA(Image *lpImage, const uint8_t *lpData, uint32_t dwLength);
int DecodeJPEG(Image *lpImage, const uint8_t *lpData, uint32_t dwLength);

// The decoder for a URL, chosen by what is behind its last dot, or null. NB: there is no decoder for GIF: the picture is
// to lie beside it as a PCX file, and the name in the URL is changed to that.
ImageDecoder FindDecoder(char *lpszURL);

// The pixels of a picture while it is being decoded. Of a size that is not to be had (below 1, over 16,384 in one
// direction, over 64 million pixels, or more than there is memory for) there are none.
class PixelArray {
  public:
    PixelArray(int64_t nWidth, int64_t nHeight);

    explicit operator bool() const { return _lpPixels != nullptr; }
    uint32_t *Get() { return _lpPixels.get(); }
    int Width() const { return _nWidth; }
    int Height() const { return _nHeight; }
    int Count() const { return _nWidth * _nHeight; }

    // Hands the pixels over to an Image. Returns 1, for the decoder to return.
    int GiveTo(Image *lpImage);

  private:
    std::unique_ptr<uint32_t[]> _lpPixels;
    int _nWidth = 0;
    int _nHeight = 0;
};

// Whether a picture of this size may exist.
bool IsPictureSize(int64_t nWidth, int64_t nHeight);

inline uint32_t MakePixel(uint32_t nRed, uint32_t nGreen, uint32_t nBlue) {
    return nBlue | nGreen << 8 | nRed << 16;
}
