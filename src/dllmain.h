// The module entry, called by the platform layer when the library is loaded and unloaded.
#pragma once

#include <cstdint>

enum : uint32_t { PROCESS_DETACH = 0, PROCESS_ATTACH = 1, THREAD_ATTACH = 2, THREAD_DETACH = 3 };

// hInstance, not null, tells this module from others. Returns 1, or 0 to refuse a load.
int DllMain(void *hInstance, uint32_t dwReason);
