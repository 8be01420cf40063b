#include "imagedecoder.h"

#include <cstring>
#include <new>

#include "htmlparser.h"
#include "image.h"
#include "jpeglib/jpeglib.h"
#include "platform/hostservices.h"
#include "platform/memory.h"
#include "types.h"

namespace {

constexpr struct {
    const char *lpszExtension;
    ImageDecoder lpfnDecode;
} kDecoders[] = {
    {".JPG", DecodeJPEG}, {".TGA", DecodeTGA}, {".BMP", DecodeBMP}, {".PCX", DecodePCX}, {".GIF", DecodePCX},
};

constexpr char kGif[] = ".GIF";
constexpr char kInsteadOfGif[] = ".pcx";

constexpr int64_t kMaxPictureSide = kMaxAttributeLength;
constexpr int64_t kMaxPicturePixels = 64000000;

}  // namespace

ImageDecoder FindDecoder(char *lpszURL) {
    char *lpszExtension = strrchr(lpszURL, '.');
    if (!lpszExtension)
        return nullptr;
    for (const auto &row : kDecoders) {
        if (!EqualsNoCase(lpszExtension, row.lpszExtension))
            continue;
        if (EqualsNoCase(lpszExtension, kGif))
            memcpy(lpszExtension, kInsteadOfGif, sizeof kInsteadOfGif);
        return row.lpfnDecode;
    }
    return nullptr;
}

bool IsPictureSize(int64_t nWidth, int64_t nHeight) {
    return nWidth > 0 && nHeight > 0 && nWidth <= kMaxPictureSide && nHeight <= kMaxPictureSide &&
           nWidth * nHeight <= kMaxPicturePixels;
}

PixelArray::PixelArray(int64_t nWidth, int64_t nHeight) {
    if (!IsPictureSize(nWidth, nHeight))
        return;
    // Not zeroed: whoever asks for pixels writes every one, or gives up. So a size that a file only claims costs next to
    // nothing.
    const auto nPixels = static_cast<size_t>(nWidth * nHeight);
    _lpPixels.reset(new (std::nothrow) uint32_t[nPixels]);
    if (_lpPixels)
        platform::ExpectWrites(_lpPixels.get(), nPixels * sizeof(uint32_t));
    _nWidth = static_cast<int>(nWidth);
    _nHeight = static_cast<int>(nHeight);
}

int PixelArray::GiveTo(Image *lpImage) {
    lpImage->SetPixels(_lpPixels.release(), true);
    lpImage->_rc.w = _nWidth;
    lpImage->_rc.h = _nHeight;
    return 1;
}

namespace {

// The JPEG unit knows no host. Its messages carry no caption of their own.
void ShowJPEGMessage(const char *lpszText) {
    platform::ShowMessage(lpszText, "Error");
}

}  // namespace

int DecodeJPEG(Image *lpImage, const uint8_t *lpData, uint32_t dwLength) {
    jpg_SetMessageBox(ShowJPEGMessage);
    const int nLength = static_cast<int>(dwLength);
    uint32_t dwWidth = 0;
    uint32_t dwHeight = 0;
    if (!jpg_GetDimensions(lpData, nLength, &dwWidth, &dwHeight))
        return 0;
    PixelArray pixels(dwWidth, dwHeight);
    uint32_t *lpPixels = pixels.Get();
    // A size of 0 has no pixels either, but the reader tells the user of it.
    const bool bTooLarge = !pixels && dwWidth && dwHeight;
    if (bTooLarge || !jpg_JPGToRGB(lpData, nLength, &dwWidth, &dwHeight, &lpPixels, 0) || !pixels)
        return 0;
    return pixels.GiveTo(lpImage);
}
