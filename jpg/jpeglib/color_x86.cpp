// The loops of color.cpp with AVX2, for 16 samples or 32 pixels at a time.
#if defined(__x86_64__)

#include <immintrin.h>

#include <cstring>

#include "color.h"
#include "x86.h"

namespace jpg {

namespace {

JPG_AVX2 inline __m256i LoadCentered(const uint8_t *lp) {
    const __m128i samples = _mm_loadu_si128(reinterpret_cast<const __m128i *>(lp));
    return _mm256_sub_epi16(_mm256_cvtepu8_epi16(samples), _mm256_set1_epi16(128));
}

// The products with a factor in 65536ths, rounded: the bit below the upper half of a product is the rest of it
// that matters.
JPG_AVX2 inline __m256i Part(__m256i n, int16_t nFactor) {
    const __m256i factor = _mm256_set1_epi16(nFactor);
    const __m256i rest = _mm256_srli_epi16(_mm256_mullo_epi16(n, factor), 15);
    return _mm256_add_epi16(_mm256_mulhi_epi16(n, factor), rest);
}

JPG_AVX2 inline __m256i Green(__m256i pairs) {
    const __m256i factors = _mm256_set1_epi32((kGreenCb & 0xFFFF) | kGreenRest * 65536);
    const __m256i sum = _mm256_add_epi32(_mm256_madd_epi16(pairs, factors), _mm256_set1_epi32(1 << 15));
    return _mm256_srai_epi32(sum, 16);
}

template <int kRepeat>
JPG_AVX2 inline void Store(__m256i n, int16_t *lpTo) {
    __m256i *lp = reinterpret_cast<__m256i *>(lpTo);
    if (kRepeat == 1) {
        _mm256_store_si256(lp, n);
    } else {
        const __m256i turned = _mm256_permute4x64_epi64(n, 0xD8);
        _mm256_store_si256(lp, _mm256_unpacklo_epi16(turned, turned));
        _mm256_store_si256(lp + 1, _mm256_unpackhi_epi16(turned, turned));
    }
}

template <int kRepeat>
JPG_AVX2 inline void MakeColors(const uint8_t *lpCb, const uint8_t *lpCr, int nCount, ColorRow *lpColors) {
    for (int x = 0; x < nCount; x += 16) {
        const __m256i cb = LoadCentered(lpCb + x), cr = LoadCentered(lpCr + x);
        const __m256i low = _mm256_unpacklo_epi16(cb, cr), high = _mm256_unpackhi_epi16(cb, cr);
        const __m256i green = _mm256_packs_epi32(Green(low), Green(high));
        const ptrdiff_t nPixel = ptrdiff_t{kRepeat} * x;
        Store<kRepeat>(_mm256_add_epi16(cr, Part(cr, kRedRest)), lpColors->anRed + nPixel);
        Store<kRepeat>(_mm256_sub_epi16(green, cr), lpColors->anGreen + nPixel);
        Store<kRepeat>(_mm256_add_epi16(_mm256_add_epi16(cb, cb), Part(cb, kBlueRest)),
                       lpColors->anBlue + nPixel);
    }
}

// The samples of one colour, clamped: of pixels 0 to 7 and 16 to 23 in the lower half, of the others in the
// upper one.
JPG_AVX2 inline __m256i Add(__m256i left, __m256i right, const int16_t *lpColor) {
    const __m256i *lp = reinterpret_cast<const __m256i *>(lpColor);
    return _mm256_packus_epi16(_mm256_add_epi16(left, lp[0]), _mm256_add_epi16(right, lp[1]));
}

// Sixteen pixels, of which the first and third four are in the one register and the others in the other.
JPG_AVX2 inline void StorePixels(__m256i blueGreen, __m256i red, uint32_t *lpPixels) {
    const __m256i even = _mm256_unpacklo_epi16(blueGreen, red), odd = _mm256_unpackhi_epi16(blueGreen, red);
    __m256i *lp = reinterpret_cast<__m256i *>(lpPixels);
    _mm256_storeu_si256(lp, _mm256_permute2x128_si256(even, odd, 0x20));
    _mm256_storeu_si256(lp + 1, _mm256_permute2x128_si256(even, odd, 0x31));
}

}  // namespace

JPG_AVX2 void MakeColorsAVX2(const uint8_t *lpCb, const uint8_t *lpCr, int nCount, int nRepeat,
                             ColorRow *lpColors) {
    if (nRepeat == 1)
        MakeColors<1>(lpCb, lpCr, nCount, lpColors);
    else if (nRepeat == 2)
        MakeColors<2>(lpCb, lpCr, nCount, lpColors);
    else
        g_portableKernels.lpfnMakeColors(lpCb, lpCr, nCount, nRepeat, lpColors);
}

JPG_AVX2 void MakePixelsAVX2(const uint8_t *lpY, const ColorRow &colors, int nWidth, uint32_t *lpPixels) {
    const __m256i zero = _mm256_setzero_si256();
    alignas(32) uint32_t adwLast[32] = {};
    for (int x = 0; x < nWidth; x += 32) {
        const __m128i *lp = reinterpret_cast<const __m128i *>(lpY + x);
        const __m256i left = _mm256_cvtepu8_epi16(_mm_loadu_si128(lp));
        const __m256i right = _mm256_cvtepu8_epi16(_mm_loadu_si128(lp + 1));
        const __m256i red = Add(left, right, colors.anRed + x), green = Add(left, right, colors.anGreen + x);
        const __m256i blue = Add(left, right, colors.anBlue + x);
        const bool bWhole = nWidth - x >= 32;
        uint32_t *lpTo = bWhole ? lpPixels + x : adwLast;
        StorePixels(_mm256_unpacklo_epi8(blue, green), _mm256_unpacklo_epi8(red, zero), lpTo);
        StorePixels(_mm256_unpackhi_epi8(blue, green), _mm256_unpackhi_epi8(red, zero), lpTo + 16);
        if (!bWhole)
            memcpy(lpPixels + x, adwLast, sizeof *lpPixels * static_cast<size_t>(nWidth - x));
    }
}

}  // namespace jpg

#endif
