// The transform of idct.cpp with AVX2, whose registers hold 16 numbers of 16 bits or 8 of 32.
//
// The step becomes sums of products: all that an input is multiplied by on its way to one output is one factor.
// Sums that may wrap around are the same in whatever order they are made, and so are the samples. A register
// holds pairs of inputs for eight columns, which one instruction multiplies and adds up to eight numbers.
//
// Inputs have 16 bits. They suffice where all dequantised coefficients lie from -1024 to 1023, as those of a
// picture do but for the worst qualities: what the first pass makes of eight is at most 29.9 times the
// greatest. Other blocks are left to the portable form.
#if defined(__x86_64__)

#include <immintrin.h>

#include "idct.h"
#include "state.h"
#include "x86.h"

namespace jpg {

namespace {

// --- The order of coefficients ---

// Rows and columns come as 0, 4, 2, 6, 1, 3, 5, 7, in the pairs that the step multiplies together: four
// registers, with two rows each, side by side.
constexpr int kRanks[8] = {0, 4, 2, 5, 1, 6, 3, 7};

struct Order {
    uint8_t abPlaces[64];
};

constexpr Order MakeOrder() {
    Order order = {};
    for (int i = 0; i < 64; ++i) {
        const int nRow = kRanks[g_anNatural[i] >> 3], nColumn = kRanks[g_anNatural[i] & 7];
        order.abPlaces[i] = static_cast<uint8_t>(nRow / 2 * 16 + nColumn * 2 + nRow % 2);
    }
    return order;
}

constexpr Order kOrder = MakeOrder();

// --- The step ---

// The pairs of inputs 0 and 4, 2 and 6, 1 and 3, 5 and 7, each for eight columns; or rows, in the second pass.
struct Pairs {
    __m256i a[4];
};

struct Outputs {
    __m256i a[8];
};

JPG_AVX2 inline __m256i Products(__m256i pairs, int nFirst, int nSecond) {
    return _mm256_madd_epi16(pairs, _mm256_set1_epi32((nFirst & 0xFFFF) | nSecond * 65536));
}

// As the one of idct.cpp, with nHalf to round by. Inputs are 0 but for the first kSide.
template <int kSide>
JPG_AVX2 inline Outputs Step(const Pairs &in, int nHalf) {
    const auto &[p04, p26, p13, p57] = in.a;
    const __m256i half = _mm256_set1_epi32(nHalf);
    const __m256i t0 = _mm256_add_epi32(Products(p04, 8192, 8192), half);
    const __m256i t1 = kSide == 4 ? t0 : _mm256_add_epi32(Products(p04, 8192, -8192), half);
    const __m256i t2 = Products(p26, 4433, 4433 - 15137), t3 = Products(p26, 4433 + 6270, 4433);
    const __m256i a0 = _mm256_add_epi32(t0, t3), a3 = _mm256_sub_epi32(t0, t3);
    const __m256i a1 = _mm256_add_epi32(t1, t2), a2 = _mm256_sub_epi32(t1, t2);

    constexpr int k1 = 7373, k2 = 20995, k3 = 16069, k4 = 3196, k5 = 9633;
    __m256i e0 = Products(p13, k5 - k1, k5 - k3), e1 = Products(p13, k5 - k4, k5 - k2);
    __m256i e2 = Products(p13, k5, 25172 - k2 - k3 + k5), e3 = Products(p13, 12299 - k1 - k4 + k5, k5);
    if (kSide == 8) {
        e0 = _mm256_add_epi32(e0, Products(p57, k5, 2446 - k1 - k3 + k5));
        e1 = _mm256_add_epi32(e1, Products(p57, 16819 - k2 - k4 + k5, k5));
        e2 = _mm256_add_epi32(e2, Products(p57, k5 - k2, k5 - k3));
        e3 = _mm256_add_epi32(e3, Products(p57, k5 - k4, k5 - k1));
    }
    return {_mm256_add_epi32(a0, e3), _mm256_add_epi32(a1, e2), _mm256_add_epi32(a2, e1),
            _mm256_add_epi32(a3, e0), _mm256_sub_epi32(a3, e0), _mm256_sub_epi32(a2, e1),
            _mm256_sub_epi32(a1, e2), _mm256_sub_epi32(a0, e3)};
}

// --- Between and behind the passes ---

// Two outputs of the first pass, scaled, as numbers of 16 bits.
JPG_AVX2 inline __m256i Scale(__m256i a, __m256i b) {
    return _mm256_packs_epi32(_mm256_srai_epi32(a, kColumnShift), _mm256_srai_epi32(b, kColumnShift));
}

// Turns columns into rows. As the columns are ordered, those that make a pair are side by side already, and
// move together.
JPG_AVX2 inline Pairs Transpose(const Outputs &out) {
    const __m256i w04 = Scale(out.a[0], out.a[4]), w15 = Scale(out.a[1], out.a[5]);
    const __m256i w26 = Scale(out.a[2], out.a[6]), w37 = Scale(out.a[3], out.a[7]);
    const __m256i w01 = _mm256_unpacklo_epi32(w04, w15), w45 = _mm256_unpackhi_epi32(w04, w15);
    const __m256i w23 = _mm256_unpacklo_epi32(w26, w37), w67 = _mm256_unpackhi_epi32(w26, w37);
    // Four rows in each: pair 0 and 4 in the lower half with 1 and 3 in the upper, then 2 and 6 with 5 and 7.
    const __m256i top = _mm256_unpacklo_epi64(w01, w23), bottom = _mm256_unpacklo_epi64(w45, w67);
    const __m256i top2 = _mm256_unpackhi_epi64(w01, w23), bottom2 = _mm256_unpackhi_epi64(w45, w67);
    return {_mm256_permute2x128_si256(top, bottom, 0x20), _mm256_permute2x128_si256(top2, bottom2, 0x20),
            _mm256_permute2x128_si256(top, bottom, 0x31), _mm256_permute2x128_si256(top2, bottom2, 0x31)};
}

// The bits of two outputs of the second pass that count, 10 of each, in turn, as numbers of 16 bits.
JPG_AVX2 inline __m256i Levels(__m256i a, __m256i b) {
    const __m256i both = _mm256_blend_epi16(_mm256_srli_epi32(a, kRowShift - 6),
                                            _mm256_slli_epi32(b, 16 + 6 - kRowShift), 0xAA);
    return _mm256_srai_epi16(both, 6);
}

// Four columns of samples but for the level shift, the rows one after the other.
JPG_AVX2 inline __m256i FourColumns(const __m256i *lpOutputs) {
    const __m256i rows = _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15,  //
                                          0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
    const __m256i pairs =
        _mm256_packs_epi16(Levels(lpOutputs[0], lpOutputs[1]), Levels(lpOutputs[2], lpOutputs[3]));
    return _mm256_shuffle_epi8(pairs, rows);
}

JPG_AVX2 inline void StoreRows(__m128i rows, uint8_t *lpFirst, uint8_t *lpSecond) {
    _mm_storel_epi64(reinterpret_cast<__m128i *>(lpFirst), rows);
    _mm_storel_epi64(reinterpret_cast<__m128i *>(lpSecond), _mm_unpackhi_epi64(rows, rows));
}

JPG_AVX2 inline void StoreSamples(const Outputs &out, uint8_t *lpSamples, size_t nStride) {
    const __m256i shift = _mm256_set1_epi8(-128);
    const __m256i left = FourColumns(out.a), right = FourColumns(out.a + 4);
    const __m256i even = _mm256_xor_si256(_mm256_unpacklo_epi32(left, right), shift);
    const __m256i odd = _mm256_xor_si256(_mm256_unpackhi_epi32(left, right), shift);
    StoreRows(_mm256_castsi256_si128(even), lpSamples, lpSamples + nStride);
    StoreRows(_mm256_castsi256_si128(odd), lpSamples + 2 * nStride, lpSamples + 3 * nStride);
    StoreRows(_mm256_extracti128_si256(even, 1), lpSamples + 4 * nStride, lpSamples + 5 * nStride);
    StoreRows(_mm256_extracti128_si256(odd, 1), lpSamples + 6 * nStride, lpSamples + 7 * nStride);
}

// --- A block ---

// By the portable form, in its own order.
[[gnu::noinline]] void TransformLarge(const BlockQuant &quant, int16_t *lpCoef, uint8_t *lpSamples,
                                      size_t nStride) {
    BlockQuant natural;
    alignas(32) int16_t anCoef[64];
    for (int i = 0; i < 64; ++i) {
        natural.awFactors[g_anNatural[i]] = quant.awFactors[kOrder.abPlaces[i]];
        anCoef[g_anNatural[i]] = lpCoef[kOrder.abPlaces[i]];
    }
    g_portableKernels.lpfnTransform(natural, 63, anCoef, lpSamples, nStride);
}

// Coefficients are 0 but for the first kSide rows and columns.
template <int kSide>
JPG_AVX2 inline void Transform(const BlockQuant &quant, int16_t *lpCoef, uint8_t *lpSamples, size_t nStride) {
    __m256i *lpPairs = reinterpret_cast<__m256i *>(lpCoef);
    const __m256i *lpFactors = reinterpret_cast<const __m256i *>(quant.awFactors);
    const __m256i *lpReach = reinterpret_cast<const __m256i *>(quant.anReach);
    constexpr int kPairs = kSide == 8 ? 4 : 3;
    Pairs pairs = {};
    __m256i outside = _mm256_setzero_si256();
    for (int i = 0; i < kPairs; ++i) {
        pairs.a[i] = _mm256_mullo_epi16(lpPairs[i], lpFactors[i]);
        // 0 only from -1024 to 1023: 16 times the product, divided by 32768 and rounded.
        outside = _mm256_or_si256(outside, _mm256_mulhrs_epi16(lpPairs[i], lpReach[i]));
    }
    if (_mm256_testz_si256(outside, outside)) {
        const Outputs columns = Step<kSide>(pairs, 1 << (kColumnShift - 1));
        StoreSamples(Step<kSide>(Transpose(columns), 1 << (kRowShift - 1)), lpSamples, nStride);
    } else {
        TransformLarge(quant, lpCoef, lpSamples, nStride);
    }
    for (int i = 0; i < kPairs; ++i)
        lpPairs[i] = _mm256_setzero_si256();
}

}  // namespace

JPG_AVX2 void TransformAVX2(const BlockQuant &quant, int nLast, int16_t *lpCoef, uint8_t *lpSamples,
                            size_t nStride) {
    if (nLast == 0) {
        FlatIDCT(quant.awFactors[0], lpCoef[0], lpSamples, nStride);
        lpCoef[0] = 0;
    } else if (nLast <= kLastOfQuarter) {
        Transform<4>(quant, lpCoef, lpSamples, nStride);
    } else {
        Transform<8>(quant, lpCoef, lpSamples, nStride);
    }
}

const uint8_t *const g_lpAVX2Order = kOrder.abPlaces;

}  // namespace jpg

#endif
