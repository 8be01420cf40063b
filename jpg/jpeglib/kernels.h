// The inner loops over blocks and rows, in forms for different processors. All forms give the same bytes for
// whatever they are given: the portable one says what they are, and what another cannot do just so, it leaves
// to that one.
#pragma once

#include <cstddef>
#include <cstdint>

namespace jpg {

// A quantisation table as a form of the transform reads it: each factor stands where its coefficient does.
struct alignas(32) BlockQuant {
    uint16_t awFactors[64];
    int16_t anReach[64];  // 16 times the factor, or 32767 if that is less
};

// Of a table in natural order, for a form with that order of coefficients.
BlockQuant MakeBlockQuant(const uint16_t *lpQuant, const uint8_t *lpOrder);

// What Cb and Cr add to Y, for each of a row of pixels.
struct alignas(32) ColorRow {
    static constexpr int kWidth = 256;

    int16_t anRed[kWidth];
    int16_t anGreen[kWidth];
    int16_t anBlue[kWidth];
};

struct Kernels {
    // Where the transform has its coefficients, by their place in zigzag order; the first is the first.
    const uint8_t *lpOrder;

    // Makes samples of coefficients, the last of which that may not be 0 is nLast, in zigzag order; they
    // become 0. Rows of eight samples begin nStride bytes apart. Coefficients are aligned to 32 bytes.
    void (*lpfnTransform)(const BlockQuant &quant, int nLast, int16_t *lpCoef, uint8_t *lpSamples,
                          size_t nStride);

    // Each of so many samples of Cb and Cr stands for nRepeat pixels: 1, 2 or 4. Behind the samples, and
    // behind what is made of them, there is room up to the next multiple of 32 pixels.
    void (*lpfnMakeColors)(const uint8_t *lpCb, const uint8_t *lpCr, int nCount, int nRepeat,
                           ColorRow *lpColors);

    // Pixels are written for so many columns and no more; rows of samples have room as above.
    void (*lpfnMakePixels)(const uint8_t *lpY, const ColorRow &colors, int nWidth, uint32_t *lpPixels);
};

extern const Kernels g_portableKernels;

// Null where the processor lacks what this form is made of.
const Kernels *FindAVX2Kernels();

// Those that calls of the decoder take from now on, the fastest at first.
const Kernels &ActiveKernels();

// For tests and measurements: other ones. Null: the fastest again.
void ReplaceKernels(const Kernels *lpKernels);

}  // namespace jpg
