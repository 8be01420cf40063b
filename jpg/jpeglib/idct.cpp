// The integer transform of C. Loeffler, A. Ligtenberg and G. Moschytz, "Practical fast 1-D DCT algorithms
// with 11 multiplications", ICASSP 1989: columns, then rows, each by the same step on eight numbers.
// Constants have 13 bits of fraction, and 2 more bits are kept between the passes.
//
// The step exists twice. Numbers of 16 bits are what compilers make good vector code of, and suffice for what
// a camera or an encoder writes. Where a file has more, which is checked, the block is done with 32 bits that
// may wrap around. Both give the same samples wherever the first is to be had.
#include "idct.h"

#include <cstring>

#include "kernels.h"
#include "tables.h"

namespace jpg {

namespace {

// --- The step ---

// From -kSmall to kSmall - 1 a number is small: four of them add up in 16 bits, and what the step makes of
// eight stays within 32. What an encoder makes of a picture is smaller still, but for the worst qualities.
constexpr int kSmall = 1 << 13;

bool IsSmall(uint32_t dwSpread) {
    return dwSpread < 2 * kSmall;
}

// Gathers numbers, so that one look at the end tells whether all were small.
constexpr uint32_t Spread(int32_t n) {
    return static_cast<uint32_t>(n) + kSmall;
}

int32_t Times(int16_t n, int16_t nFactor) {
    return n * nFactor;
}

uint32_t Times(uint32_t n, int16_t nFactor) {
    return n * static_cast<uint32_t>(nFactor);
}

// Does the step on each column of 8 x 8 numbers, which are 0 behind the first kRows rows, and scales what
// comes out. Returns its spread.
template <int kShift, int kRows, class Number>
[[gnu::always_inline]] inline uint32_t Columns(const Number *__restrict d, Number *__restrict lpOut) {
    uint32_t dwSpread = 0;
    for (int c = 0; c < 8; ++c) {
        const Number d0 = d[c], d1 = d[8 + c], d2 = d[16 + c], d3 = d[24 + c];
        const Number d4 = kRows > 4 ? d[32 + c] : Number{0}, d5 = kRows > 4 ? d[40 + c] : Number{0};
        const Number d6 = kRows > 4 ? d[48 + c] : Number{0}, d7 = kRows > 4 ? d[56 + c] : Number{0};

        constexpr int kHalf = 1 << (kShift - 1);  // for rounding; every output has it from here
        const auto t0 = Times(static_cast<Number>(d0 + d4), 1 << kFraction) + kHalf;
        const auto t1 = Times(static_cast<Number>(d0 - d4), 1 << kFraction) + kHalf;
        const auto z1 = Times(static_cast<Number>(d2 + d6), 4433);
        const auto t2 = z1 - Times(d6, 15137), t3 = z1 + Times(d2, 6270);
        const auto a0 = t0 + t3, a3 = t0 - t3, a1 = t1 + t2, a2 = t1 - t2;

        const Number z3 = static_cast<Number>(d7 + d3), z4 = static_cast<Number>(d5 + d1);
        const auto y1 = Times(static_cast<Number>(d7 + d1), 7373);
        const auto y2 = Times(static_cast<Number>(d5 + d3), 20995);
        const auto y5 = Times(static_cast<Number>(z3 + z4), 9633);
        const auto y3 = y5 - Times(z3, 16069), y4 = y5 - Times(z4, 3196);
        const auto e0 = Times(d7, 2446) - y1 + y3, e1 = Times(d5, 16819) - y2 + y4;
        const auto e2 = Times(d3, 25172) - y2 + y3, e3 = Times(d1, 12299) - y1 + y4;

        const auto put = [&](int r, auto o) {
            const int32_t n = static_cast<int32_t>(o) >> kShift;
            lpOut[8 * r + c] = static_cast<Number>(n);
            dwSpread |= Spread(n);
        };
        put(0, a0 + e3);
        put(1, a1 + e2);
        put(2, a2 + e1);
        put(3, a3 + e0);
        put(4, a3 - e0);
        put(5, a2 - e1);
        put(6, a1 - e2);
        put(7, a0 - e3);
    }
    return dwSpread;
}

// Puts the numbers of the second half between those of the first, as cards are shuffled.
template <class Number>
void Interleave(const Number *__restrict lpFrom, Number *__restrict lpTo) {
    for (ptrdiff_t i = 0; i < 32; ++i) {
        lpTo[2 * i] = lpFrom[i];
        lpTo[2 * i + 1] = lpFrom[32 + i];
    }
}

// Turns columns into rows. Each interleaving moves every index, of six bits, around by one bit; three of them
// have column and row change places, and unlike the plain loops are fast in vector code.
template <class Number>
[[gnu::always_inline]] inline void Transpose(const Number *__restrict lpFrom, Number *__restrict lpTo) {
    Number aTurned[64];
    Interleave(lpFrom, lpTo);
    Interleave(lpTo, aTurned);
    Interleave(aTurned, lpTo);
}

// As LevelToSample, for loops over a block.
uint8_t ToSample(int16_t n) {
    n = static_cast<int16_t>(n * 64);
    n = static_cast<int16_t>((n >> 6) + 128);
    n = n < 0 ? int16_t{0} : n;
    n = n > 255 ? int16_t{255} : n;
    return static_cast<uint8_t>(n);
}

// --- A block ---

// Coefficients are 0 but for the first kSide rows and columns. False if the numbers become too large.
template <int kSide>
[[gnu::always_inline]] inline bool SmallIDCT(const uint16_t *lpQuant, const int16_t *lpCoef,
                                             uint8_t *lpSamples) {
    int16_t anNumbers[64], anWork[64];
    uint32_t dwSpread = 0;
    int16_t nQuants = 0;
    for (int i = 0; i < 8 * kSide; ++i) {
        const int16_t nQuant = static_cast<int16_t>(lpQuant[i]);
        const int32_t n = lpCoef[i] * nQuant;
        anNumbers[i] = static_cast<int16_t>(n);
        dwSpread |= Spread(n);
        nQuants |= nQuant;
    }
    if (nQuants < 0 || !IsSmall(dwSpread) || !IsSmall(Columns<kColumnShift, kSide>(anNumbers, anWork)))
        return false;
    Transpose(anWork, anNumbers);
    Columns<kRowShift, kSide>(anNumbers, anWork);
    Transpose(anWork, anNumbers);
    for (int i = 0; i < 64; ++i)
        lpSamples[i] = ToSample(anNumbers[i]);
    return true;
}

[[gnu::noinline]] void LargeIDCT(const uint16_t *lpQuant, const int16_t *lpCoef, uint8_t *lpSamples) {
    uint32_t adwNumbers[64], adwWork[64];
    for (int i = 0; i < 64; ++i)
        adwNumbers[i] = static_cast<uint32_t>(lpCoef[i] * lpQuant[i]);
    Columns<kColumnShift, 8>(adwNumbers, adwWork);
    // A column with nothing below its first coefficient does not go through the step, in which it might wrap.
    for (int c = 0; c < 8; ++c) {
        bool bMore = false;
        for (int r = 1; r < 8; ++r)
            bMore |= lpCoef[8 * r + c] != 0;
        for (int r = 0; r < 8 && !bMore; ++r)
            adwWork[8 * r + c] = adwNumbers[c] << kPassBits;
    }
    Transpose(adwWork, adwNumbers);
    Columns<kRowShift, 8>(adwNumbers, adwWork);
    Transpose(adwWork, adwNumbers);
    for (int i = 0; i < 64; ++i)
        lpSamples[i] = LevelToSample(static_cast<int32_t>(adwNumbers[i]));
}

void QuarterIDCT(const uint16_t *lpQuant, const int16_t *lpCoef, uint8_t *lpSamples) {
    if (!SmallIDCT<4>(lpQuant, lpCoef, lpSamples))
        LargeIDCT(lpQuant, lpCoef, lpSamples);
}

}  // namespace

void jpg_IDCT(const uint16_t *lpQuant, const int16_t *lpCoef, uint8_t *lpSamples) {
    if (!SmallIDCT<8>(lpQuant, lpCoef, lpSamples))
        LargeIDCT(lpQuant, lpCoef, lpSamples);
}

void FlatIDCT(uint16_t wFactor, int16_t nCoef, uint8_t *lpSamples, size_t nStride) {
    const uint32_t dwFirst = static_cast<uint32_t>(nCoef * wFactor) << (kPassBits + kFraction);
    const int32_t n = static_cast<int32_t>(dwFirst + (1u << (kRowShift - 1))) >> kRowShift;
    const uint8_t bSample = LevelToSample(n);
    for (size_t y = 0; y < 8; ++y)
        memset(lpSamples + y * nStride, bSample, 8);
}

void TransformBlock(const BlockQuant &quant, int nLast, int16_t *lpCoef, uint8_t *lpSamples, size_t nStride) {
    if (nLast == 0) {
        FlatIDCT(quant.awFactors[0], lpCoef[0], lpSamples, nStride);
        lpCoef[0] = 0;
        return;
    }
    uint8_t abSamples[64];
    const auto lpfnTransform = nLast <= kLastOfQuarter ? QuarterIDCT : jpg_IDCT;
    lpfnTransform(quant.awFactors, lpCoef, abSamples);
    for (size_t y = 0; y < 8; ++y)
        memcpy(lpSamples + y * nStride, abSamples + 8 * y, 8);
    memset(lpCoef, 0, 64 * sizeof *lpCoef);
}

}  // namespace jpg
