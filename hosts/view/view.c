/* tessel-view: a window to browse in, and the model of a host with a display.
 *
 * The main thread owns the window, the pixels and every call of the library. The library's callback may come on
 * another thread and does one thing: it posts an event, upon which the main thread paints. Between events the
 * program sleeps. Above the page stands a bar that the host draws itself: back, forward, stop, an address to type
 * into, and three squares that take turns while something is loading.
 */
#include <SDL.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "barfont.h"
#include "tessel.h"
#include "tessel_host.h"

enum { EXIT_CLOSED = 0, EXIT_USAGE = 1, EXIT_NO_WINDOW = 2 };
enum { MIN_SIDE = 200, MAX_SIDE = 8192 };

/* The bar, in pixels. Letters are drawn at twice their size. */
enum { BAR_HEIGHT = 32, BUTTON_WIDTH = 30, MARGIN = 4, SIGN_WIDTH = 34, ADVANCE = 2 * (GLYPH_WIDTH + 1) };
enum { BUTTON_BACK, BUTTON_FORWARD, BUTTON_STOP, BUTTON_COUNT };
enum { COLOR_BAR = 0xD4D8DC, COLOR_EDGE = 0x808890, COLOR_INK = 0x202428, COLOR_PAPER = 0xFFFFFF };
enum { COLOR_SELECTED = 0xB0C8E8, COLOR_BUSY = 0x3068C0 };

/* How often the sign moves, and the counts are looked at: a load that is cancelled ends without a callback. */
enum { LOADING_TICK_MS = 150 };

/* What the library's threads post; the numbers start where SDL lets them. */
enum { EVENT_CHANGED, EVENT_MESSAGE, EVENT_COUNT };
static Uint32 s_firstEvent;
static SDL_atomic_t s_changedPosted;

static SDL_Window *s_window;
static SDL_Surface *s_page; /* over the pixels that are lent to the library */
static SDL_Surface *s_bar;
static int s_width = 800, s_height = 600; /* of the page */
static bool s_isLoading;
static int s_heldButton; /* the mouse button that went down on the page, or 0 */

/* The address, in Windows-1252. Either all of it is selected or nothing. */
static struct Address {
    char text[2048];
    int length, caret, first; /* first: the leftmost character in view */
    bool hasFocus, isSelected;
} s_address;

/* ---- Text: the library speaks Windows-1252, SDL UTF-8 ---- */

/* Both return a text for SDL_free, or NULL. What the other side does not have is left out. */
static char *ToUtf8(const char *text) {
    return SDL_iconv_string("UTF-8", "CP1252", text, strlen(text) + 1);
}

static char *FromUtf8(const char *text) {
    return SDL_iconv_string("CP1252", "UTF-8", text, strlen(text) + 1);
}

/* ---- What the library asks of its host ---- */

static void OnChanged(int argument) {
    (void)argument;
    /* One event is enough for any number of changes. */
    if (!SDL_AtomicCAS(&s_changedPosted, 0, 1))
        return;
    SDL_Event event = {.type = s_firstEvent + EVENT_CHANGED};
    if (SDL_PushEvent(&event) != 1)
        SDL_AtomicSet(&s_changedPosted, 0);
}

/* On a thread of the library, which must not wait for the user: the main thread shows it. */
static void PostMessage(void *context, const char *text, const char *caption) {
    (void)context;
    SDL_Event event = {.type = s_firstEvent + EVENT_MESSAGE};
    event.user.data1 = SDL_strdup(text);
    event.user.data2 = SDL_strdup(caption);
    if (SDL_PushEvent(&event) != 1) {
        SDL_free(event.user.data1);
        SDL_free(event.user.data2);
    }
}

/* A page with a hundred broken pictures has a hundred messages: whoever has seen enough can say so. */
static void ShowMessage(char *text, char *caption) {
    static bool isMuted;
    static const SDL_MessageBoxButtonData kButtons[] = {
        {SDL_MESSAGEBOX_BUTTON_RETURNKEY_DEFAULT | SDL_MESSAGEBOX_BUTTON_ESCAPEKEY_DEFAULT, 0, "OK"},
        {0, 1, "No more of these"}};
    const SDL_MessageBoxData box = {SDL_MESSAGEBOX_WARNING, s_window, caption, text, 2, kButtons, NULL};
    int button = 0;
    if (!isMuted && SDL_ShowMessageBox(&box, &button) == 0)
        isMuted = button == 1;
    SDL_free(text);
    SDL_free(caption);
}

static const char *GetClipboard(void *context) {
    (void)context;
    static char *s_text; /* what was handed out last: the library has copied it by now */
    SDL_free(s_text);
    char *utf8 = SDL_HasClipboardText() ? SDL_GetClipboardText() : NULL;
    s_text = utf8 == NULL ? NULL : FromUtf8(utf8);
    SDL_free(utf8);
    return s_text;
}

static int SetClipboard(void *context, const char *text) {
    (void)context;
    char *utf8 = ToUtf8(text);
    const bool isSet = utf8 != NULL && SDL_SetClipboardText(utf8) == 0;
    SDL_free(utf8);
    return isSet;
}

/* ---- Drawing ---- */

static void Fill(int x, int y, int width, int height, Uint32 color) {
    const SDL_Rect rectangle = {x, y, width, height};
    SDL_FillRect(s_bar, &rectangle, color);
}

static void DrawGlyph(char c, int x, int y, Uint32 color) {
    int index = (unsigned char)c;
    if (index < GLYPH_FIRST || index > GLYPH_LAST)
        index = GLYPH_LAST;
    index -= GLYPH_FIRST;
    for (int row = 0; row < GLYPH_HEIGHT; ++row) {
        const char *line = kBarFont[index / GLYPHS_IN_ROW * GLYPH_HEIGHT + row];
        for (int column = 0; column < GLYPH_WIDTH; ++column) {
            if (line[index % GLYPHS_IN_ROW * (GLYPH_WIDTH + 1) + column] == '#')
                Fill(x + 2 * column, y + 2 * row, 2, 2, color);
        }
    }
}

static SDL_Rect AddressRect(void) {
    const int x = MARGIN + BUTTON_COUNT * BUTTON_WIDTH;
    return (SDL_Rect){x, MARGIN, s_width - x - SIGN_WIDTH, BAR_HEIGHT - 2 * MARGIN};
}

static void DrawAddress(void) {
    const SDL_Rect box = AddressRect();
    Fill(box.x, box.y, box.w, box.h, s_address.hasFocus ? COLOR_BUSY : COLOR_EDGE);
    Fill(box.x + 1, box.y + 1, box.w - 2, box.h - 2, COLOR_PAPER);
    /* The caret stays in view: so much of the text that it fits behind the first character. */
    const int fits = (box.w - 2 * MARGIN) / ADVANCE;
    if (s_address.first > s_address.caret)
        s_address.first = s_address.caret;
    if (s_address.caret - s_address.first > fits - 1)
        s_address.first = s_address.caret - fits + 1;
    for (int i = 0; i < fits && s_address.first + i <= s_address.length; ++i) {
        const int at = s_address.first + i, x = box.x + MARGIN + i * ADVANCE;
        if (s_address.hasFocus && s_address.isSelected && at < s_address.length)
            Fill(x - 1, box.y + 3, ADVANCE, box.h - 6, COLOR_SELECTED);
        if (at < s_address.length)
            DrawGlyph(s_address.text[at], x, box.y + MARGIN, COLOR_INK);
        if (s_address.hasFocus && at == s_address.caret)
            Fill(x - 2, box.y + 3, 2, box.h - 6, COLOR_INK);
    }
}

static void DrawBar(void) {
    static const char kSigns[BUTTON_COUNT] = {'<', '>', 'x'};
    Fill(0, 0, s_width, BAR_HEIGHT, COLOR_BAR);
    for (int i = 0; i < BUTTON_COUNT; ++i) {
        const int x = MARGIN + i * BUTTON_WIDTH, width = BUTTON_WIDTH - MARGIN;
        Fill(x, MARGIN, width, BAR_HEIGHT - 2 * MARGIN, COLOR_EDGE);
        Fill(x + 1, MARGIN + 1, width - 2, BAR_HEIGHT - 2 * MARGIN - 2, COLOR_BAR);
        const bool isOff = i == BUTTON_STOP && !s_isLoading;
        DrawGlyph(kSigns[i], x + (width - 2 * GLYPH_WIDTH) / 2, MARGIN + 5, isOff ? COLOR_EDGE : COLOR_INK);
    }
    DrawAddress();
    for (int i = 0; s_isLoading && i < 3; ++i) {
        const bool isLit = SDL_GetTicks() / LOADING_TICK_MS % 3 == (Uint32)i;
        Fill(s_width - SIGN_WIDTH + 5 + 9 * i, 12, 7, 7, isLit ? COLOR_BUSY : COLOR_EDGE);
    }
    Fill(0, BAR_HEIGHT - 1, s_width, 1, COLOR_EDGE);
}

static void Draw(void) {
    DrawBar();
    SDL_Surface *window = SDL_GetWindowSurface(s_window);
    if (window == NULL)
        return; /* the window is going or changing; it is exposed again if it stays */
    SDL_Rect below = {0, BAR_HEIGHT, s_width, s_height};
    SDL_BlitSurface(s_bar, NULL, window, NULL);
    SDL_BlitSurface(s_page, NULL, window, &below);
    SDL_UpdateWindowSurface(s_window);
}

/* Puts what the library has to show into the window: the page, its title, whether more is to come. */
static void Update(void) {
    platform_FetchCounts counts;
    platform_GetFetchCounts(&counts);
    s_isLoading = counts.pages_running + counts.images_running > 0;
    tessel_Render(s_page->pixels);

    char title[TESSEL_TITLE_SIZE] = "";
    tessel_GetTitle(title);
    if (title[0] != '\0' || !s_isLoading) { /* an empty one may only say that the page is busy */
        char *utf8 = ToUtf8(title[0] != '\0' ? title : "tessel-view");
        if (utf8 != NULL && strcmp(SDL_GetWindowTitle(s_window), utf8) != 0)
            SDL_SetWindowTitle(s_window, utf8);
        SDL_free(utf8);
    }
    Draw();
}

/* ---- The address ---- */

static void SetAddressFocus(bool hasFocus) {
    s_address.hasFocus = s_address.isSelected = hasFocus;
    s_address.caret = hasFocus ? s_address.length : 0;
}

static void RemoveFromAddress(int from, int to) {
    memmove(s_address.text + from, s_address.text + to, (size_t)(s_address.length - to) + 1);
    s_address.length -= to - from;
    s_address.caret = from;
    s_address.isSelected = false;
}

static void InsertIntoAddress(const char *text) {
    if (s_address.isSelected)
        RemoveFromAddress(0, s_address.length);
    for (; *text != '\0' && s_address.length < (int)sizeof s_address.text - 1; ++text) {
        if ((unsigned char)*text < ' ')
            continue;
        char *place = s_address.text + s_address.caret;
        memmove(place + 1, place, (size_t)(s_address.length - s_address.caret) + 1);
        *place = *text;
        ++s_address.length;
        ++s_address.caret;
    }
}

static void OnAddressCtrlKey(SDL_Keycode key) {
    if (key == SDLK_a)
        s_address.isSelected = true;
    if ((key == SDLK_c || key == SDLK_x) && s_address.isSelected)
        SetClipboard(NULL, s_address.text);
    if (key == SDLK_x && s_address.isSelected)
        RemoveFromAddress(0, s_address.length);
    const char *text = key == SDLK_v ? GetClipboard(NULL) : NULL;
    if (text != NULL)
        InsertIntoAddress(text);
}

static void MoveAddressCaret(int caret) {
    s_address.isSelected = false;
    s_address.caret = SDL_clamp(caret, 0, s_address.length);
}

static void OnAddressKey(SDL_Keycode key, bool ctrl) {
    const int caret = s_address.caret;
    if (ctrl) {
        OnAddressCtrlKey(key);
    } else if (key == SDLK_RETURN || key == SDLK_KP_ENTER) {
        SetAddressFocus(false);
        if (s_address.length > 0)
            tessel_OpenURL(s_address.text);
    } else if (key == SDLK_ESCAPE || key == SDLK_TAB) {
        SetAddressFocus(false);
    } else if (key == SDLK_LEFT || key == SDLK_RIGHT) {
        MoveAddressCaret(key == SDLK_LEFT ? caret - 1 : caret + 1);
    } else if (key == SDLK_HOME || key == SDLK_END) {
        MoveAddressCaret(key == SDLK_HOME ? 0 : s_address.length);
    } else if ((key == SDLK_BACKSPACE || key == SDLK_DELETE) && s_address.isSelected) {
        RemoveFromAddress(0, s_address.length);
    } else if (key == SDLK_BACKSPACE && caret > 0) {
        RemoveFromAddress(caret - 1, caret);
    } else if (key == SDLK_DELETE && caret < s_address.length) {
        RemoveFromAddress(caret, caret + 1);
    }
}

/* ---- The user ---- */

/* The number by which the library knows a key, or 0. */
static int VirtualKey(SDL_Keycode key) {
    static const SDL_Keycode kKeys[][2] = {
        {SDLK_BACKSPACE, 8}, {SDLK_TAB, 9},    {SDLK_RETURN, 13}, {SDLK_KP_ENTER, 13}, {SDLK_LSHIFT, 16},
        {SDLK_RSHIFT, 16},   {SDLK_LCTRL, 17}, {SDLK_RCTRL, 17},  {SDLK_LALT, 18},     {SDLK_RALT, 18},
        {SDLK_ESCAPE, 27},   {SDLK_END, 35},   {SDLK_HOME, 36},   {SDLK_LEFT, 37},     {SDLK_UP, 38},
        {SDLK_RIGHT, 39},    {SDLK_DOWN, 40},  {SDLK_DELETE, 46}};
    if ((key >= SDLK_0 && key <= SDLK_9) || key == SDLK_SPACE)
        return key;
    if (key >= SDLK_a && key <= SDLK_z)
        return key - SDLK_a + 'A';
    for (size_t i = 0; i < sizeof kKeys / sizeof *kKeys; ++i) {
        if (kKeys[i][0] == key)
            return kKeys[i][1];
    }
    return 0;
}

static void OnKeyDown(const SDL_Keysym *symbol) {
    const int key = VirtualKey(symbol->sym);
    const bool alt = symbol->mod & KMOD_ALT, ctrl = symbol->mod & KMOD_CTRL;
    if (alt) {
        tessel_OnSysKeyDown(key);
    } else if (ctrl && symbol->sym == SDLK_l) {
        SetAddressFocus(true);
    } else if (key == 16 || key == 17) {
        tessel_OnKeyDown(key); /* remembered by the library, wherever the focus is */
    } else if (s_address.hasFocus) {
        OnAddressKey(symbol->sym, ctrl);
    } else if (key != 0) {
        tessel_OnKeyDown(key);
        if (key == 8 || key == 9 || key == 13 || key == 27)
            tessel_OnChar(key);
    }
}

static void OnText(const char *utf8) {
    char *text = FromUtf8(utf8);
    if (text != NULL && s_address.hasFocus)
        InsertIntoAddress(text);
    for (const char *c = text; c != NULL && *c != '\0' && !s_address.hasFocus; ++c)
        tessel_OnChar((unsigned char)*c);
    SDL_free(text);
}

static void OnBarPress(int x, int y) {
    const int button = x < MARGIN ? -1 : (x - MARGIN) / BUTTON_WIDTH;
    const SDL_Point point = {x, y};
    const SDL_Rect box = AddressRect();
    static void (*const kButtons[BUTTON_COUNT])(void) = {tessel_Prev, tessel_Next, tessel_OnCancel};
    if (button >= 0 && button < BUTTON_COUNT)
        kButtons[button]();
    if (!SDL_PointInRect(&point, &box)) {
        SetAddressFocus(false);
    } else if (!s_address.hasFocus) {
        SetAddressFocus(true);
    } else {
        MoveAddressCaret(s_address.first + (x - box.x - MARGIN + ADVANCE / 2) / ADVANCE);
    }
}

/* A press that began on the page stays the page's until the button comes up, wherever the pointer goes. */
static void OnMouse(const SDL_Event *event) {
    const bool isMotion = event->type == SDL_MOUSEMOTION;
    const int column = isMotion ? event->motion.x : event->button.x;
    const int row = (isMotion ? event->motion.y : event->button.y) - BAR_HEIGHT;
    const uint16_t x = (uint16_t)SDL_clamp(column, 0, s_width - 1),
                   y = (uint16_t)SDL_clamp(row, 0, s_height - 1);
    const int button = isMotion ? 0 : event->button.button;
    if (isMotion && s_heldButton != 0) {
        (s_heldButton == SDL_BUTTON_LEFT ? tessel_OnLMouseDrag : tessel_OnRMouseDrag)(x, y);
    } else if (isMotion) {
        tessel_OnMouseMove(row >= 0 ? x : UINT16_MAX, row >= 0 ? y : UINT16_MAX); /* far away: over nothing */
    } else if (event->type == SDL_MOUSEBUTTONUP) {
        if (button == s_heldButton) {
            s_heldButton = 0;
            (button == SDL_BUTTON_LEFT ? tessel_OnLMouseUp : tessel_OnRMouseUp)(x, y);
        }
    } else if (row < 0) {
        if (button == SDL_BUTTON_LEFT)
            OnBarPress(column, row + BAR_HEIGHT);
    } else if (s_heldButton == 0 && (button == SDL_BUTTON_LEFT || button == SDL_BUTTON_RIGHT)) {
        s_heldButton = button;
        SetAddressFocus(false);
        (button == SDL_BUTTON_LEFT ? tessel_OnLMouseDown : tessel_OnRMouseDown)(x, y);
    }
}

/* Returns false when the window is to close. */
static bool OnEvent(const SDL_Event *event) {
    if (event->type == s_firstEvent + EVENT_CHANGED) {
        SDL_AtomicSet(&s_changedPosted, 0); /* first: what changes from now on asks again */
        Update();
        return true;
    }
    if (event->type == s_firstEvent + EVENT_MESSAGE)
        ShowMessage(event->user.data1, event->user.data2);
    switch (event->type) {
        case SDL_QUIT:
            return false;
        case SDL_MOUSEMOTION:
            OnMouse(event);
            return true; /* changes nothing of the bar */
        case SDL_MOUSEBUTTONDOWN:
        case SDL_MOUSEBUTTONUP:
            OnMouse(event);
            break;
        case SDL_KEYDOWN:
            OnKeyDown(&event->key.keysym);
            break;
        case SDL_KEYUP:
            (event->key.keysym.mod & KMOD_ALT ? tessel_OnSysKeyUp
                                              : tessel_OnKeyUp)(VirtualKey(event->key.keysym.sym));
            return true;
        case SDL_TEXTINPUT:
            OnText(event->text.text);
            break;
        case SDL_WINDOWEVENT:
            if (event->window.event == SDL_WINDOWEVENT_LEAVE && s_heldButton == 0)
                tessel_OnMouseMove(UINT16_MAX, UINT16_MAX);
            break;
        default:
            return true;
    }
    Update();
    return true;
}

static void Browse(const char *url) {
    if (url != NULL) {
        snprintf(s_address.text, sizeof s_address.text, "%s", url);
        s_address.length = (int)strlen(s_address.text);
        tessel_OpenURL(url);
    } else {
        SetAddressFocus(true);
    }
    Update();
    for (;;) {
        SDL_Event event;
        if (!SDL_WaitEventTimeout(&event, s_isLoading ? LOADING_TICK_MS : -1)) {
            Update();
        } else if (!OnEvent(&event)) {
            return;
        }
    }
}

/* ---- Start and end ---- */

static const char kHelp[] =
    "Usage: tessel-view [--size WxH] [URL]\n"
    "Browses in a window. URL is http://HOST/PATH, file://PATH, or the name of a local\n"
    "file; file names inside a local page count from the current directory.\n"
    "\n"
    "  --size WxH  the page's pixels across and down, 200 to 8192 each (default 800x600)\n"
    "  --help      show this text\n"
    "  --version   show the version\n"
    "\n"
    "Ctrl+L types an address, Alt+Left and Alt+Right go back and forward, Escape stops\n"
    "loading, Tab moves from link to link, Enter follows one.\n"
    "Exit codes: 0 the window was closed, 1 the command line is wrong, 2 no window.\n";

static int Complain(int code, const char *what, const char *why) {
    fprintf(stderr, "tessel-view: %s%s%s\n", what, *why == '\0' ? "" : ": ", why);
    return code;
}

static int RunWindow(const char *url) {
    SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION,
                "0"); /* the pixels are here already; a GPU has nothing to add */
    if (SDL_Init(SDL_INIT_VIDEO) != 0)
        return Complain(EXIT_NO_WINDOW, "no display", SDL_GetError());
    s_firstEvent = SDL_RegisterEvents(EVENT_COUNT);
    s_window = SDL_CreateWindow("tessel-view", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, s_width,
                                BAR_HEIGHT + s_height, 0);
    s_page = SDL_CreateRGBSurfaceWithFormat(0, s_width, s_height, 32, SDL_PIXELFORMAT_RGB888);
    s_bar = SDL_CreateRGBSurfaceWithFormat(0, s_width, BAR_HEIGHT, 32, SDL_PIXELFORMAT_RGB888);
    int code = EXIT_CLOSED;
    if (s_window == NULL || s_page == NULL || s_bar == NULL) {
        code = Complain(EXIT_NO_WINDOW, "no window", SDL_GetError());
    } else if (!tessel_Init(s_window, s_width, s_height)) {
        code = Complain(EXIT_NO_WINDOW, "the library does not start", "");
    } else {
        const platform_HostServices services = {NULL, GetClipboard, SetClipboard, PostMessage};
        SDL_FillRect(s_page, NULL, COLOR_PAPER);
        platform_SetHostServices(&services);
        tessel_SetCallback(TESSEL_CALLBACK_CHANGED, OnChanged);
        Browse(url);
        tessel_ShutDown(); /* first: no callback comes from here on */
    }
    SDL_FreeSurface(s_bar);
    SDL_FreeSurface(s_page);
    if (s_window != NULL)
        SDL_DestroyWindow(s_window);
    SDL_Quit();
    return code;
}

int main(int argc, char **argv) {
    const char *url = NULL;
    for (int i = 1; i < argc; ++i) {
        const bool isHelp = strcmp(argv[i], "--help") == 0;
        if (isHelp || strcmp(argv[i], "--version") == 0) {
            fputs(isHelp ? kHelp : "tessel-view " TESSEL_VERSION "\n", stdout);
            return EXIT_CLOSED;
        }
        char behind;
        if (strcmp(argv[i], "--size") == 0) {
            if (++i == argc || sscanf(argv[i], "%5dx%5d%c", &s_width, &s_height, &behind) != 2 ||
                s_width < MIN_SIDE || s_height < MIN_SIDE || s_width > MAX_SIDE || s_height > MAX_SIDE)
                return Complain(EXIT_USAGE, "--size is WxH, each from 200 to 8192; try --help", "");
        } else if (argv[i][0] == '-' || url != NULL) {
            return Complain(EXIT_USAGE, "what is this? try --help", argv[i]);
        } else {
            url = argv[i];
        }
    }
    return RunWindow(url);
}
