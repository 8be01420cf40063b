/* A page in a window, with mouse, keys and the least around them:
 * cc sdl.c $(pkg-config --cflags --libs tessel sdl2) && ./a.out page.html
 * hosts/view in Tessel's sources is the same with an address bar, the clipboard and messages. */
#include <SDL.h>
#include <tessel.h>

enum { WIDTH = 800, HEIGHT = 600 };

/* Comes on any thread: wakes the loop below, which paints. */
static void OnChanged(int argument) {
    SDL_Event event = {.type = SDL_USEREVENT};
    event.user.code = argument;
    SDL_PushEvent(&event);
}

static void OnKeyDown(const SDL_Keysym *key) {
    static const int kKeys[][2] = {
        {SDLK_BACKSPACE, 8}, {SDLK_TAB, 9},   {SDLK_RETURN, 13}, {SDLK_ESCAPE, 27}, {SDLK_END, 35},
        {SDLK_HOME, 36},     {SDLK_LEFT, 37}, {SDLK_RIGHT, 39},  {SDLK_DELETE, 46}, {SDLK_LSHIFT, 16}};
    for (size_t i = 0; i < sizeof kKeys / sizeof *kKeys; ++i) {
        if (kKeys[i][0] != key->sym)
            continue;
        if (key->mod & KMOD_ALT) {
            tessel_OnSysKeyDown(kKeys[i][1]); /* Alt+Left and Alt+Right: back and forward */
        } else {
            tessel_OnKeyDown(kKeys[i][1]);
        }
    }
}

static void OnMouse(const SDL_Event *event) {
    if (event->type == SDL_MOUSEMOTION) {
        const uint16_t x = (uint16_t)event->motion.x, y = (uint16_t)event->motion.y;
        if (event->motion.state & SDL_BUTTON_LMASK) {
            tessel_OnLMouseDrag(x, y);
        } else {
            tessel_OnMouseMove(x, y);
        }
    } else if (event->button.button == SDL_BUTTON_LEFT) {
        const uint16_t x = (uint16_t)event->button.x, y = (uint16_t)event->button.y;
        if (event->type == SDL_MOUSEBUTTONDOWN) {
            tessel_OnLMouseDown(x, y);
        } else {
            tessel_OnLMouseUp(x, y);
        }
    }
}

int main(int argc, char **argv) {
    if (argc != 2 || SDL_Init(SDL_INIT_VIDEO) != 0)
        return 1;
    SDL_Window *window =
        SDL_CreateWindow("Tessel", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, WIDTH, HEIGHT, 0);
    SDL_Surface *page = SDL_CreateRGBSurfaceWithFormat(0, WIDTH, HEIGHT, 32, SDL_PIXELFORMAT_RGB888);
    if (window == NULL || page == NULL || !tessel_Init(window, WIDTH, HEIGHT))
        return 1;
    SDL_FillRect(page, NULL, 0xFFFFFF);
    tessel_SetCallback(TESSEL_CALLBACK_CHANGED, OnChanged);
    tessel_OpenURL(argv[1]);

    SDL_Event event;
    while (SDL_WaitEvent(&event) && event.type != SDL_QUIT) {
        switch (event.type) {
            case SDL_MOUSEMOTION:
            case SDL_MOUSEBUTTONDOWN:
            case SDL_MOUSEBUTTONUP:
                OnMouse(&event);
                break;
            case SDL_KEYDOWN:
                OnKeyDown(&event.key.keysym);
                break;
            case SDL_KEYUP:
                if (event.key.keysym.sym == SDLK_LSHIFT)
                    tessel_OnKeyUp(16);
                break;
            case SDL_TEXTINPUT: /* the characters of ASCII; the rest would have to be brought to Windows-1252 */
                for (const char *c = event.text.text; *c > 0; ++c)
                    tessel_OnChar(*c);
                break;
            case SDL_USEREVENT:
            case SDL_WINDOWEVENT:
                tessel_Render(page->pixels);
                SDL_BlitSurface(page, NULL, SDL_GetWindowSurface(window), NULL);
                SDL_UpdateWindowSurface(window);
                break;
        }
    }
    tessel_ShutDown(); /* no callback comes behind this */
    SDL_FreeSurface(page);
    SDL_DestroyWindow(window);
    SDL_Quit();
    return 0;
}
