/* What a host may lend the library, and ask of it, beyond tessel.h.
 *
 * The rules of tessel.h hold here too. Both functions may be called at any time between loading and unloading the
 * library, before tessel_Init and after tessel_ShutDown included. A function of tessel.h that is called inside a
 * service has no effect and returns 0, but for tessel_SetCallback and tessel_ShutDown in the services of the clipboard:
 * the latter takes effect when the call that led there returns.
 */
#ifndef TESSEL_HOST_H
#define TESSEL_HOST_H

#include "tessel.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Services of the host. Any member may be NULL; what the library does then is said with each. */
typedef struct platform_HostServices {
    /* Handed to every function below. */
    void *context;

    /* The text of the clipboard: a zero-terminated string in Windows-1252 that stays valid until the next call of any
     * function here, or NULL if there is no text. Called on the host's thread, inside an event function.
     * NULL: a clipboard inside the library serves. */
    const char *(*get_clipboard_text)(void *context);

    /* Replaces the contents of the clipboard by text, which the host copies. Returns 0 if it could not.
     * Called on the host's thread, inside an event function. NULL: as above. */
    int (*set_clipboard_text)(void *context, const char *text);

    /* Tells the user something, under a caption. Called on a thread of the library; it must not wait for the host's
     * thread. NULL: one line on the standard error stream. */
    void (*show_message)(void *context, const char *text, const char *caption);
} platform_HostServices;

/* Lends the library services of the host.
 * services  copied; NULL takes back what was lent. What the functions and the context rest on must live until that, or
 *           until tessel_ShutDown has returned.
 * Thread: the host's. Calls nothing back. */
TESSEL_API void platform_SetHostServices(const platform_HostServices *services);

/* How far loading has come, since the library was loaded. Each fetch that was begun counts in one of three members. */
typedef struct platform_FetchCounts {
    uint32_t pages_running;  /* queued, being fetched, or being parsed */
    uint32_t pages_loaded;   /* ended with data */
    uint32_t pages_failed;   /* ended without: missing, refused, cancelled, timed out */
    uint32_t images_running; /* the same for pictures */
    uint32_t images_loaded;
    uint32_t images_failed;
} platform_FetchCounts;

/* Fills in *counts, which must not be NULL. A page counts as ended once its pictures have been counted as running
 * and before its callback comes, so that nothing is still to come when both running members are 0. After
 * tessel_ShutDown the last counts stay.
 * Thread: any, inside the callback too. Never waits for anything but other callers. Calls nothing back. */
TESSEL_API void platform_GetFetchCounts(platform_FetchCounts *counts);

#ifdef __cplusplus
}
#endif

#endif
