#include "dllmain.h"

#include "mainframe.h"
#include "platform/hostservices.h"
#include "platform/rasterizer.h"
#include "platform/resolver.h"
#include "tessel_internal.h"
#include "workers.h"

namespace {

int Attach(void *hInstance) {
    if (g_lpMainFrame)
        return 0;
    Workers().Open();
    g_lpMainFrame = new MainFrame(hInstance);
    g_lpMainFrame->LoadIcons();
    return 1;
}

}  // namespace

int DllMain(void *hInstance, uint32_t dwReason) {
    switch (dwReason) {
        case PROCESS_ATTACH:
            return Attach(hInstance);
        case PROCESS_DETACH:
            // The host exits inside its callback, on a thread of ours, which cannot wait for itself; or inside a service
            // of its own, in the middle of an event, for whose mutexes workers wait. All threads find everything in
            // its place until the process has gone.
            if (WorkerRegistry::OnOwnThread() || (g_lpMainFrame && g_lpMainFrame->_nEventDepth))
                return 1;
            DestroyMainFrame();
            platform::ReleaseRasterizer();
            platform::ReleaseClipboard();
            platform::ReleaseResolver();
            return 1;
        default:
            return 1;
    }
}
