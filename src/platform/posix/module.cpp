// The module entry of a system whose loader knows constructors and destructors instead of one function.
#include "dllmain.h"

namespace {

// Its address tells this module from others.
const char g_cModule = 0;

__attribute__((constructor)) void OnLoad() {
    DllMain(const_cast<char *>(&g_cModule), PROCESS_ATTACH);
}

// Runs on dlclose and when the process exits.
__attribute__((destructor)) void OnUnload() {
    DllMain(const_cast<char *>(&g_cModule), PROCESS_DETACH);
}

}  // namespace
