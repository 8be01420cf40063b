#include "kernels.h"

#include <algorithm>
#include <atomic>

#include "color.h"
#include "idct.h"
#include "state.h"
#include "x86.h"

namespace jpg {

BlockQuant MakeBlockQuant(const uint16_t *lpQuant, const uint8_t *lpOrder) {
    BlockQuant quant;
    for (int i = 0; i < 64; ++i) {
        const uint16_t wFactor = lpQuant[g_anNatural[i]];
        quant.awFactors[lpOrder[i]] = wFactor;
        quant.anReach[lpOrder[i]] = static_cast<int16_t>(std::min(16 * wFactor, 32767));
    }
    return quant;
}

const Kernels g_portableKernels = {g_anNatural, TransformBlock, MakeColors, MakePixels};

#if defined(__x86_64__)
const Kernels *FindAVX2Kernels() {
    static const Kernels kernels = {g_lpAVX2Order, TransformAVX2, MakeColorsAVX2, MakePixelsAVX2};
    // Also false where the system does not save the registers.
    return __builtin_cpu_supports("avx2") ? &kernels : nullptr;
}
#else
const Kernels *FindAVX2Kernels() {
    return nullptr;
}
#endif

namespace {

std::atomic<const Kernels *> g_lpReplaced{nullptr};

}  // namespace

void ReplaceKernels(const Kernels *lpKernels) {
    g_lpReplaced = lpKernels;
}

const Kernels &ActiveKernels() {
    static const Kernels *const s_lpVector = FindAVX2Kernels();
    if (const Kernels *lpReplaced = g_lpReplaced)
        return *lpReplaced;
    return s_lpVector ? *s_lpVector : g_portableKernels;
}

}  // namespace jpg
