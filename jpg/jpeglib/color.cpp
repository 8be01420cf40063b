// Loops that compilers turn into vector code.
#include "color.h"

#include <algorithm>

namespace jpg {

namespace {

// Each of so many numbers kRepeat times, in place.
template <int kRepeat>
void Repeat(int16_t *lpNumbers, int nCount) {
    int16_t anFrom[ColorRow::kWidth / kRepeat];
    std::copy_n(lpNumbers, nCount, anFrom);
    for (int x = 0; x < nCount; ++x) {
        for (int i = 0; i < kRepeat; ++i)
            lpNumbers[kRepeat * x + i] = anFrom[x];
    }
}

int16_t Clamp(int16_t n) {
    n = n < 0 ? int16_t{0} : n;
    return n > 255 ? int16_t{255} : n;
}

}  // namespace

void MakeColors(const uint8_t *lpCb, const uint8_t *lpCr, int nCount, int nRepeat,
                ColorRow *__restrict lpColors) {
    constexpr int kHalf = 1 << 15;
    for (int x = 0; x < nCount; ++x) {
        const int16_t nCb = static_cast<int16_t>(lpCb[x] - 128);
        const int16_t nCr = static_cast<int16_t>(lpCr[x] - 128);
        const int nGreen = (nCr * kGreenRest + nCb * kGreenCb + kHalf) >> 16;
        lpColors->anRed[x] = static_cast<int16_t>(nCr + ((nCr * kRedRest + kHalf) >> 16));
        lpColors->anGreen[x] = static_cast<int16_t>(nGreen - nCr);
        lpColors->anBlue[x] = static_cast<int16_t>(2 * nCb + ((nCb * kBlueRest + kHalf) >> 16));
    }
    for (int16_t *lpColor : {lpColors->anRed, lpColors->anGreen, lpColors->anBlue}) {
        if (nRepeat == 2)
            Repeat<2>(lpColor, nCount);
        else if (nRepeat == 4)
            Repeat<4>(lpColor, nCount);
    }
}

void MakePixels(const uint8_t *lpY, const ColorRow &colors, int nWidth, uint32_t *__restrict lpPixels) {
    for (int x = 0; x < nWidth; ++x) {
        const int16_t nRed = Clamp(static_cast<int16_t>(lpY[x] + colors.anRed[x]));
        const int16_t nGreen = Clamp(static_cast<int16_t>(lpY[x] + colors.anGreen[x]));
        const int16_t nBlue = Clamp(static_cast<int16_t>(lpY[x] + colors.anBlue[x]));
        const uint16_t wLow = static_cast<uint16_t>(nBlue | nGreen << 8);
        lpPixels[x] = wLow | static_cast<uint32_t>(nRed) << 16;
    }
}

}  // namespace jpg
