// The module entry of a system whose loader knows constructors and destructors instead of one function.
#include "dllmain.h"

#ifdef TESSEL_RUNTIME_INSIDE
#include <cstdlib>

#include "mainframe.h"

namespace __gnu_cxx {

// Gives back what libstdc++ keeps for exceptions thrown when memory has run out. A shared one does without, since it is
// never unloaded.
void __freeres();

// Instead of that of libstdc++, which prints what was thrown, and is a fifth of this library's size with all that it
// takes to write down the names of types.
void __verbose_terminate_handler() {
    abort();
}

}  // namespace __gnu_cxx
#endif

namespace {

// Its address tells this module from others.
const char g_cModule = 0;

__attribute__((constructor)) void OnLoad() {
    DllMain(const_cast<char *>(&g_cModule), PROCESS_ATTACH);
}

// Runs on dlclose and when the process exits.
__attribute__((destructor)) void OnUnload() {
    DllMain(const_cast<char *>(&g_cModule), PROCESS_DETACH);
#ifdef TESSEL_RUNTIME_INSIDE
    if (!g_lpMainFrame)
        __gnu_cxx::__freeres();
#endif
}

}  // namespace
