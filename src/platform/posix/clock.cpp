#include "platform/clock.h"

#include <atomic>
#include <chrono>

namespace platform {

static std::atomic<TickSource> g_lpfnSource{nullptr};

uint32_t Ticks() {
    if (const TickSource lpfnSource = g_lpfnSource)
        return lpfnSource();
    const auto elapsed = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

void ReplaceTicks(TickSource lpfnSource) {
    g_lpfnSource = lpfnSource;
}

bool TicksReplaced() {
    return g_lpfnSource != nullptr;
}

}  // namespace platform
