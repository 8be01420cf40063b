// Colours and clamping by look-up, where samples are made one at a time. The loops over whole blocks and rows
// compute the same numbers, since vector code is faster without tables.
//
// The tables are written by the first call, without a lock. If two calls come first at the same moment, both
// write what a cell holds for good; cells are atomic so that the language agrees. A relaxed load is a plain
// one.
#pragma once

#include <atomic>
#include <cstdint>

namespace jpg {

// Clamps to 0 to 255, but what lies above 639 has wrapped around and counts as negative. From index -256 to
// 1151.
inline constexpr int kRangeLimitBase = 256;
extern std::atomic<uint8_t> g_abRangeLimit[1408];

// By a sample of chroma: what it adds to red and blue, and its parts of what both add to green, in 65536ths
// and with the rounding.
extern std::atomic<int32_t> g_anCrToR[256];
extern std::atomic<int32_t> g_anCbToB[256];
extern std::atomic<int32_t> g_anCrToG[256];
extern std::atomic<int32_t> g_anCbToG[256];

extern std::atomic<uint8_t> g_bTablesReady;

void jpg_InitRangeLimit();
void jpg_InitColorTables();

// Before any look-up.
inline void PrepareTables() {
    if (g_bTablesReady.load(std::memory_order_acquire))
        return;
    jpg_InitRangeLimit();
    jpg_InitColorTables();
    g_bTablesReady.store(1, std::memory_order_release);
}

inline uint8_t RangeLimit(int32_t n) {
    return g_abRangeLimit[kRangeLimitBase + n].load(std::memory_order_relaxed);
}

// The sample that a number of the transform stands for. Only 10 bits of it count, so what no regular file has
// wraps around. Then comes the level shift.
inline uint8_t LevelToSample(int32_t n) {
    return RangeLimit(128 + (n & 1023));
}

inline uint32_t MakePixel(uint8_t bY, uint8_t bCb, uint8_t bCr) {
    constexpr auto kOrder = std::memory_order_relaxed;
    const int32_t nGreen = (g_anCbToG[bCb].load(kOrder) + g_anCrToG[bCr].load(kOrder)) >> 16;
    const uint32_t dwRed = RangeLimit(bY + g_anCrToR[bCr].load(kOrder));
    const uint32_t dwBlue = RangeLimit(bY + g_anCbToB[bCb].load(kOrder));
    return dwBlue | uint32_t{RangeLimit(bY + nGreen)} << 8 | dwRed << 16;
}

}  // namespace jpg
