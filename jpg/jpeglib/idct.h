// From the coefficients of a block to its samples.
#pragma once

#include <cstdint>

namespace jpg {

// Dequantises and transforms a block, both arrays in natural order, into 64 samples, row by row.
// They are bytes: wider ones would only be more to move.
void jpg_IDCT(const uint16_t *lpQuant, const int16_t *lpCoef, uint8_t *lpSamples);

// The same, faster, for a block in which all is 0 but the first four rows and columns, and for one in which
// all is 0 but the first coefficient.
void QuarterIDCT(const uint16_t *lpQuant, const int16_t *lpCoef, uint8_t *lpSamples);
void FlatIDCT(const uint16_t *lpQuant, const int16_t *lpCoef, uint8_t *lpSamples);

}  // namespace jpg
