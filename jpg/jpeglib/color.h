// From samples to pixels. Public source of the colours: ITU T.871, clause 7, here with 16 bits of fraction.
//
// The factors are, in 65536ths: Cr to red 91881, Cb to blue 116130, and to green, where both add up, -46802
// and -22554. What does not fit into 16 bits is cut into a whole number and a rest: it makes no difference to
// the result, and products of 16 bits are the fast ones.
#pragma once

#include "kernels.h"

namespace jpg {

inline constexpr int16_t kRedRest = 91881 - 65536;
inline constexpr int16_t kBlueRest = 116130 - 2 * 65536;
inline constexpr int16_t kGreenRest = 65536 - 46802;
inline constexpr int16_t kGreenCb = -22554;

// The portable form, see Kernels.
void MakeColors(const uint8_t *lpCb, const uint8_t *lpCr, int nCount, int nRepeat, ColorRow *lpColors);
void MakePixels(const uint8_t *lpY, const ColorRow &colors, int nWidth, uint32_t *lpPixels);

}  // namespace jpg
