#include "tables.h"

namespace jpg {

std::atomic<uint8_t> g_abRangeLimit[1408];
std::atomic<int32_t> g_anCrToR[256];
std::atomic<int32_t> g_anCbToB[256];
std::atomic<int32_t> g_anCrToG[256];
std::atomic<int32_t> g_anCbToG[256];
std::atomic<uint8_t> g_bTablesReady;

void jpg_InitRangeLimit() {
    for (int n = -kRangeLimitBase; n < 1408 - kRangeLimitBase; ++n) {
        int nLimited = n < 0 ? 0 : n;
        if (n > 255)
            nLimited = n < 640 ? 255 : 0;
        if (n >= 1024)
            nLimited = n - 1024;
        g_abRangeLimit[kRangeLimitBase + n].store(static_cast<uint8_t>(nLimited), std::memory_order_relaxed);
    }
}

// The factors of ITU T.871, clause 7, in 65536ths.
void jpg_InitColorTables() {
    for (int i = 0; i < 256; ++i) {
        const int32_t x = i - 128;
        constexpr int32_t kHalf = 1 << 15;
        g_anCrToR[i].store((91881 * x + kHalf) >> 16, std::memory_order_relaxed);
        g_anCbToB[i].store((116130 * x + kHalf) >> 16, std::memory_order_relaxed);
        g_anCrToG[i].store(-46802 * x, std::memory_order_relaxed);
        g_anCbToG[i].store(-22554 * x + kHalf, std::memory_order_relaxed);
    }
}

}  // namespace jpg
