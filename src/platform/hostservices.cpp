#include "platform/hostservices.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "platform/mutex.h"

namespace platform {

namespace {

// Guards what was lent; a service itself is called without it.
Mutex g_mutex;
platform_HostServices g_services GUARDED_BY(g_mutex) = {};
// The clipboard of the library, in use while the host has lent none. On the host's thread alone.
char *g_lpszClipboard = nullptr;

platform_HostServices Services() {
    const MutexLock lock(g_mutex);
    return g_services;
}

// Null if memory runs out: a clipboard may hold anything.
char *Copy(const char *lpsz) {
    const size_t nSize = strlen(lpsz) + 1;
    char *lpCopy = new (std::nothrow) char[nSize];
    if (lpCopy)
        memcpy(lpCopy, lpsz, nSize);
    return lpCopy;
}

}  // namespace

char *GetClipboardText() {
    const platform_HostServices services = Services();
    const char *lpszText =
        services.get_clipboard_text ? services.get_clipboard_text(services.context) : g_lpszClipboard;
    return lpszText ? Copy(lpszText) : nullptr;
}

int SetClipboardText(const char *lpszText) {
    const platform_HostServices services = Services();
    if (services.set_clipboard_text)
        return services.set_clipboard_text(services.context, lpszText);
    ReleaseClipboard();
    g_lpszClipboard = Copy(lpszText);
    return g_lpszClipboard != nullptr;
}

void ReleaseClipboard() {
    delete[] g_lpszClipboard;
    g_lpszClipboard = nullptr;
}

void ShowMessage(const char *lpszText, const char *lpszCaption) {
    const platform_HostServices services = Services();
    if (services.show_message)
        services.show_message(services.context, lpszText, lpszCaption);
    else
        fprintf(stderr, "%s: %s\n", lpszCaption, lpszText);
}

}  // namespace platform

extern "C" void platform_SetHostServices(const platform_HostServices *services) {
    const platform::MutexLock lock(platform::g_mutex);
    platform::g_services = services ? *services : platform_HostServices{};
}
