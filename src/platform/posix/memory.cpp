#include "platform/memory.h"

#include <sys/mman.h>

#include <memory>

namespace platform {

namespace {

// Of the large pages of most processors. A wrong size would only make the hint less useful.
constexpr size_t kLargePage = 2 << 20;

}  // namespace

// Only whole large pages are spoken of: the rest of the first and of the last may be somebody else's.
void ExpectWrites([[maybe_unused]] void *lpMemory, [[maybe_unused]] size_t nBytes) {
#ifdef MADV_HUGEPAGE
    if (std::align(kLargePage, kLargePage, lpMemory, nBytes))
        madvise(lpMemory, nBytes / kLargePage * kLargePage, MADV_HUGEPAGE);
#endif
}

}  // namespace platform
