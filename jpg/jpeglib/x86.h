// What there is of the loops for x86-64 with AVX2. Each function carries the permission to use it itself, so
// that nothing else of the library is compiled for such a processor.
#pragma once

#include "kernels.h"

#if defined(__x86_64__)

#define JPG_AVX2 [[gnu::target("avx2")]]

namespace jpg {

extern const uint8_t *const g_lpAVX2Order;

void TransformAVX2(const BlockQuant &quant, int nLast, int16_t *lpCoef, uint8_t *lpSamples, size_t nStride);
void MakeColorsAVX2(const uint8_t *lpCb, const uint8_t *lpCr, int nCount, int nRepeat, ColorRow *lpColors);
void MakePixelsAVX2(const uint8_t *lpY, const ColorRow &colors, int nWidth, uint32_t *lpPixels);

}  // namespace jpg

#endif
