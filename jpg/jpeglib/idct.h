// From the coefficients of a block to its samples.
#pragma once

#include <cstdint>

namespace jpg {

// Dequantises and transforms a block, both arrays in natural order, into 8 rows of 8 samples that stand
// nPitch bytes apart.
void jpg_IDCT(const uint16_t *lpQuant, const int16_t *lpCoef, uint8_t *lpSamples, int nPitch);

// The same, faster, for a block in which all is 0 but the first four rows and columns, and for one in which
// all is 0 but the first coefficient.
void QuarterIDCT(const uint16_t *lpQuant, const int16_t *lpCoef, uint8_t *lpSamples, int nPitch);
void FlatIDCT(const uint16_t *lpQuant, const int16_t *lpCoef, uint8_t *lpSamples, int nPitch);

}  // namespace jpg
