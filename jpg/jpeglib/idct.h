// From the coefficients of a block to its samples.
#pragma once

#include "kernels.h"

namespace jpg {

// Of the constants, and what numbers keep of it between the two passes.
inline constexpr int kFraction = 13;
inline constexpr int kPassBits = 2;
inline constexpr int kColumnShift = kFraction - kPassBits;
inline constexpr int kRowShift = kFraction + kPassBits + 3;

// In zigzag order: up to here all lies in the first four rows and columns.
inline constexpr int kLastOfQuarter = 9;

// Dequantises and transforms a block, both arrays in natural order, into 64 samples, row by row.
// They are bytes: wider ones would only be more to move.
void jpg_IDCT(const uint16_t *lpQuant, const int16_t *lpCoef, uint8_t *lpSamples);

// The same for a block in which all is 0 but the first coefficient, with rows nStride bytes apart.
void FlatIDCT(uint16_t wFactor, int16_t nCoef, uint8_t *lpSamples, size_t nStride);

// The portable form, see Kernels. Blocks with little in them are faster.
void TransformBlock(const BlockQuant &quant, int nLast, int16_t *lpCoef, uint8_t *lpSamples, size_t nStride);

}  // namespace jpg
