/* Tessel: a small web browser engine to embed.
 *
 * The life of a page, in the order of calls:
 *
 *     tessel_Init(window, 800, 600)          once, with the size of the picture
 *     tessel_SetCallback(4, picture_changed) called from now on whenever the picture may have changed
 *     tessel_OpenURL("index.html")           returns at once; the page arrives later
 *     tessel_OnMouseMove(x, y) ...           the user's mouse and keys, as they come
 *     tessel_Render(pixels)                  after each callback: paints what has changed
 *     tessel_ShutDown()                      stops everything; afterwards unload the library or exit
 *
 * Rules for all functions
 *
 *   Threads    All calls come from one thread, the host's. The callback alone may come from another (see
 *              tessel_SetCallback), and a function that is called inside it, on that other thread, does nothing.
 *   State      Before a tessel_Init that returned 1 only tessel_SetCallback, tessel_Init and tessel_ShutDown have an
 *              effect, and after tessel_ShutDown none has: the library is started once for each time that it is
 *              loaded. A function without effect returns 0 and touches nothing that it was given. A build with
 *              assertions stops there instead.
 *   Ownership  Strings are copied. The library keeps no pointer that it was given, callbacks excepted.
 *   Text       Strings are zero-terminated, one byte a character, in Windows-1252.
 *   Positions  x and y count pixels from the top left corner of the picture, (0, 0); whole numbers from 0 to 65535.
 *   NULL       A null pointer where a URL, a title or a buffer is asked for makes the call do nothing; a build with
 *              assertions stops there. tessel_Init says 0 to a null window.
 *   Failure    A page that cannot be had shows as an empty white page, a picture as an icon. Nothing is logged.
 *   Waiting    tessel_Render and tessel_Invalidate wait while a page is being parsed; tessel_OpenURL, tessel_Prev and
 *              tessel_Next may wait for a host name to be looked up. Events never wait: they are dropped while the
 *              page under them is busy.
 *
 * The picture
 *
 *   The host owns width * height pixels of 4 bytes, rows of exactly width pixels without a gap, the top row first. A
 *   pixel is a 32-bit number 0x00RRGGBB in the machine's byte order: in memory the bytes blue, green, red, 0 on a
 *   little-endian machine. The top byte carries nothing: the library writes 0 there. tessel_Render repaints only what
 *   has changed, so that it must be given the same pixels each time, with their contents kept; only inside that call
 *   does the library touch them.
 */
#ifndef TESSEL_H
#define TESSEL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define TESSEL_VERSION_MAJOR 1
#define TESSEL_VERSION_MINOR 0
#define TESSEL_VERSION_PATCH 0
#define TESSEL_VERSION "1.0.0"

#if defined(TESSEL_BUILDING_LIBRARY)
#define TESSEL_API __attribute__((visibility("default")))
#else
#define TESSEL_API
#endif

/* The slot of tessel_SetCallback that the library calls. */
#define TESSEL_CALLBACK_CHANGED 4

/* The room that tessel_GetTitle needs, in bytes. */
#define TESSEL_TITLE_SIZE 256

typedef void (*tessel_Callback)(int nArgument);

/* Starts the library: fonts, and the timer behind pages that refresh themselves.
 * window         any pointer but NULL; the library never looks behind it.
 * width, height  the size of the picture in pixels, both above 0. It holds until tessel_ShutDown.
 * Returns 1, or 0 if an argument is out of range, the library already runs, or the system has no memory or thread for it;
 * nothing has changed then.
 * Thread: the host's. Calls nothing back. */
TESSEL_API int tessel_Init(void *window, int width, int height);

/* Stops the library: cancels all that is loading, waits for it, and gives everything back.
 * Takes less than a second whatever the network does, provided that the host's callback returns. No callback comes
 * once it has returned. Inside a callback on the host's thread it takes effect when the call that led there returns.
 * A host that unloads the library or exits without this call loses nothing but the order of events.
 * Thread: the host's. Callbacks from other threads may come until it returns. */
TESSEL_API void tessel_ShutDown(void);

/* Does nothing: the size given to tessel_Init holds. Both arguments are ignored.
 * Thread: the host's. Calls nothing back. */
TESSEL_API void tessel_SetSize(int width, int height);

/* Stores a callback.
 * index     0 to 4, anything else is ignored. Only slot TESSEL_CALLBACK_CHANGED is ever called.
 * callback  a function, or NULL to clear the slot.
 * The library calls it with 0 when the picture may have changed and tessel_Render is worth a call: on a thread of the
 * library after a page or a picture has arrived, or on the host's thread inside one of the event functions. It must
 * not wait for the host's thread. On the host's thread it may call every function here; on a thread of the library
 * calls have no effect, so that it is best to post a message to the host's own loop. May be called before
 * tessel_Init; set it before the first tessel_OpenURL. It takes effect with the next callback, inside one too; another
 * thread may just then still be in the one before.
 * Thread: the host's. Calls nothing back. */
TESSEL_API void tessel_SetCallback(int index, tessel_Callback callback);

/* Loads a page and adds it to the history; whatever was loading is cancelled. The page on show stays until the new
 * one has come.
 * url  "http://host/path?query", "file://path", the name of a local file, "host/path", or a path on the host of the
 *      page on show. Any length; one that no system and no server takes fails like a page that is missing.
 * Thread: the host's. May wait for a name to be looked up. */
TESSEL_API void tessel_OpenURL(const char *url);

/* Copies the title of the page on show.
 * title  room for TESSEL_TITLE_SIZE bytes. Left as it was when there is no page, the page has no title, or it is
 *        busy.
 * Thread: the host's. Never waits. Calls nothing back. */
TESSEL_API void tessel_GetTitle(char *title);

/* Loads the page before, or behind, the one on show in the history. Nothing happens at either end.
 * Thread: the host's. May wait for a name to be looked up. */
TESSEL_API void tessel_Prev(void);
TESSEL_API void tessel_Next(void);

/* Cancels what is loading, pictures of the page on show included. The page on show stays.
 * Thread: the host's. Calls nothing back. */
TESSEL_API void tessel_OnCancel(void);

/* Marks the whole picture as changed, so that the next tessel_Render paints all of it.
 * Thread: the host's. Waits while a page is being parsed. Calls nothing back. */
TESSEL_API void tessel_Invalidate(void);

/* Paints what has changed since the last call; cheap if nothing has.
 * buffer  the pixels, as said above.
 * Thread: the host's. Waits while a page is being parsed. Calls nothing back. */
TESSEL_API void tessel_Render(uint32_t *buffer);

/* The mouse. A press reaches what the last move has found under the pointer, so that moves are to be forwarded too;
 * a move with a button held is a drag. LMouse is the left button, RMouse the right.
 * Return 0: what an event has changed comes through the callback.
 * Thread: the host's. Never wait, but for tessel_OnLMouseUp, whose click may open a URL. Call back. */
TESSEL_API int tessel_OnMouseMove(uint16_t x, uint16_t y);
TESSEL_API int tessel_OnLMouseDown(uint16_t x, uint16_t y);
TESSEL_API int tessel_OnRMouseDown(uint16_t x, uint16_t y);
TESSEL_API int tessel_OnLMouseUp(uint16_t x, uint16_t y);
TESSEL_API int tessel_OnRMouseUp(uint16_t x, uint16_t y);
TESSEL_API int tessel_OnLMouseDrag(uint16_t x, uint16_t y);
TESSEL_API int tessel_OnRMouseDrag(uint16_t x, uint16_t y);

/* A character that was typed.
 * c  its code, 0 to 255, control characters included.
 * Returns 0. Thread: the host's. Never waits. Calls back. */
TESSEL_API int tessel_OnChar(int c);

/* A key that went down or came up; for characters tessel_OnChar follows the key that goes down.
 * key  its virtual-key code: 8 Backspace, 9 Tab, 13 Enter, 16 Shift, 17 Ctrl, 27 Escape, 35 End, 36 Home, 37 Left,
 *      39 Right, 46 Delete, letters and digits by their capital character. Shift and Ctrl are remembered from here.
 * Escape does what tessel_OnCancel does; Tab moves the focus.
 * Return 0. Thread: the host's. Never wait, but for Enter on a link, which opens its URL. Call back. */
TESSEL_API int tessel_OnKeyDown(int key);
TESSEL_API int tessel_OnKeyUp(int key);

/* A key that went down or came up while Alt was held.
 * key  as for tessel_OnKeyDown. Left (37) and Right (39) are tessel_Prev and tessel_Next.
 * Return 1 for Left and Right going down, else 0.
 * Thread: the host's. May wait for a name to be looked up. */
TESSEL_API int tessel_OnSysKeyDown(int key);
TESSEL_API int tessel_OnSysKeyUp(int key);

#ifdef __cplusplus
}
#endif

#endif
