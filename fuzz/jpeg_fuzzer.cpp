// A JPEG file, through both entry points and both ways of giving room for the pixels, once with what suits the processor
// and once with the portable code.
#include <algorithm>
#include <memory>

#include "harness.h"
#include "jpeglib/jpeglib.h"
#include "jpeglib/kernels.h"

constexpr uint32_t kUntouched = 0xDEADBEEF;
constexpr size_t kGuard = 64;
constexpr uint32_t kMostAllocated = 16384;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *lpData, size_t nSize) {
    const int nLength = static_cast<int>(nSize);
    uint32_t dwWidth = 99, dwHeight = 99;
    const int bSized = jpg_GetDimensions(lpData, nLength, &dwWidth, &dwHeight);
    REQUIRE(bSized == 1 || (!dwWidth && !dwHeight) || nSize == 0);
    // Large pictures cost time, and are no different.
    if (!bSized || uint64_t{dwWidth} * dwHeight > 100000)
        return 0;
    const size_t nPixels = size_t{dwWidth} * dwHeight;
    std::vector<uint32_t> given(nPixels + 2 * kGuard, kUntouched);
    std::fill_n(given.begin() + kGuard, nPixels, 0u);
    uint32_t *lpGiven = given.data() + kGuard;
    const int nGiven = jpg_JPGToRGB(lpData, nLength, &dwWidth, &dwHeight, &lpGiven, 0);
    REQUIRE(lpGiven == given.data() + kGuard);
    for (size_t i = 0; i < kGuard; ++i)
        REQUIRE(given[i] == kUntouched && lpGiven[nPixels + i] == kUntouched);
    if (!nGiven)
        return 0;
    uint32_t dwNewWidth, dwNewHeight, *lpNew;
    jpg::ReplaceKernels(&jpg::g_portableKernels);
    const int nNew = jpg_JPGToRGB(lpData, nLength, &dwNewWidth, &dwNewHeight, &lpNew, 1);
    jpg::ReplaceKernels(nullptr);
    // What the reader is to find room for has a limit, what it is given room for has none. Without a scan there is no
    // room to be found.
    const bool bTooLong = dwWidth > kMostAllocated || dwHeight > kMostAllocated;
    REQUIRE(nNew || bTooLong);
    const std::unique_ptr<uint32_t[]> owned(nNew ? lpNew : nullptr);
    if (!owned)
        return 0;
    REQUIRE(!bTooLong);
    REQUIRE(dwNewWidth == dwWidth && dwNewHeight == dwHeight &&
            std::equal(lpGiven, lpGiven + nPixels, lpNew));
    REQUIRE(std::all_of(lpNew, lpNew + nPixels, [](uint32_t dw) { return dw <= 0xFFFFFF; }));
    return 0;
}
