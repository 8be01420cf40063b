/* tessel-shot: loads a page without a display and writes what a user would see as a PNG.
 *
 * It is also the shortest host that does everything properly: start, load, wait for what is still to come,
 * paint, stop. TakePicture tells that story; what stands above it are its steps, and below it the command
 * line.
 */
#include <errno.h>
#include <fcntl.h>
#include <png.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "tessel.h"
#include "tessel_host.h"

/* 3 is left free for a page that came without all of its pictures. */
enum {
    EXIT_LOADED = 0,
    EXIT_USAGE = 1,
    EXIT_NO_PAGE = 2,
    EXIT_WAIT_OVER = 4,
    EXIT_NOT_WRITTEN = 5,
};

enum { MAX_SIDE = 16384 };

typedef struct Options {
    int width, height;
    double wait; /* seconds */
    const char *out;
    const char *url;
} Options;

static const char kHelp[] =
    "Usage: tessel-shot [OPTION]... URL\n"
    "Loads a page and its pictures and writes what they look like as a PNG.\n"
    "URL is http://HOST/PATH, file://PATH, or the name of a local file. File names\n"
    "inside a local page count from the current directory, not from the page's.\n"
    "\n"
    "  --size WxH      pixels across and down, 1 to 16384 each (default 800x600)\n"
    "  --wait SECONDS  how long to wait for the page and its pictures, decimals\n"
    "                  allowed, 0: do not wait (default 30)\n"
    "  --out FILE      where the PNG goes, - for standard output (default page.png)\n"
    "  --quiet         say nothing but what went wrong\n"
    "  --help          show this text\n"
    "  --version       show the version\n"
    "\n"
    "Exit codes:\n"
    "  0  all was loaded; a picture that the page names in vain shows as an icon\n"
    "  1  the command line is wrong\n"
    "  2  the page did not come; no PNG was written\n"
    "  4  the wait ran out; the PNG shows how far the page got\n"
    "  5  the PNG could not be written\n";

static bool s_quiet;

static void SayLine(const char *format, va_list arguments) {
    fputs("tessel-shot: ", stderr);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
}

/* What goes on, for --quiet to silence. */
__attribute__((format(printf, 1, 2))) static void Say(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    if (!s_quiet)
        SayLine(format, arguments);
    va_end(arguments);
}

/* What went wrong. Returns the exit code that goes with it. */
__attribute__((format(printf, 2, 3))) static int Complain(int code, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    SayLine(format, arguments);
    va_end(arguments);
    return code;
}

/* ---- Waiting ---- */

static pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t s_changed;
static bool s_has_changed;

/* The library's callback, on a thread of the library: nothing may be done here but to wake the host. */
static void OnChanged(int argument) {
    (void)argument;
    pthread_mutex_lock(&s_mutex);
    s_has_changed = true;
    pthread_cond_signal(&s_changed);
    pthread_mutex_unlock(&s_mutex);
}

/* The wait must not stretch when somebody sets the clock. */
static void PrepareToWait(void) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&s_changed, &attributes);
    pthread_condattr_destroy(&attributes);
}

static double Now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

/* Sleeps until the next callback, but not beyond a moment. */
static void WaitForChange(double until) {
    struct timespec limit;
    limit.tv_sec = (time_t)until;
    limit.tv_nsec = (long)((until - (double)limit.tv_sec) * 1e9);
    pthread_mutex_lock(&s_mutex);
    while (!s_has_changed && pthread_cond_timedwait(&s_changed, &s_mutex, &limit) == 0)
        continue;
    s_has_changed = false;
    pthread_mutex_unlock(&s_mutex);
}

/* Waits until nothing is still to come, or the moment is there. Returns an exit code. */
static int WaitForPage(double end, platform_FetchCounts *counts) {
    /* A fetch that was cancelled or ran out of time calls nothing back, so that the counts are looked at
     * without a callback, too. */
    const double kPoll = 0.02;
    for (;;) {
        platform_GetFetchCounts(counts);
        if (counts->pages_running == 0 && counts->images_running == 0)
            return counts->pages_loaded > 0 ? EXIT_LOADED : EXIT_NO_PAGE;
        const double now = Now();
        if (now >= end)
            return EXIT_WAIT_OVER;
        WaitForChange(now + kPoll < end ? now + kPoll : end);
    }
}

/* ---- Writing ---- */

/* The file that grows beside the one that was asked for. A signal that ends the program takes it along. */
static char *s_beside;

static void OnDeadlySignal(int number) {
    unlink(s_beside);
    raise(number); /* held back until this handler returns, and not handled by it again */
}

static void HandleDeadlySignals(void) {
    static const int kSignals[] = {SIGHUP, SIGINT, SIGTERM};
    struct sigaction ours = {.sa_handler = OnDeadlySignal, .sa_flags = (int)SA_RESETHAND}, before;
    for (size_t i = 0; i < sizeof kSignals / sizeof *kSignals; ++i) {
        /* Whoever started the program may have had a signal ignored. */
        if (sigaction(kSignals[i], NULL, &before) == 0 && before.sa_handler != SIG_IGN)
            sigaction(kSignals[i], &ours, NULL);
    }
}

/* Writes the pixels, which it packs to three bytes each on the way, to an open stream, and closes that.
 * Returns NULL, or what went wrong. */
static const char *Encode(FILE *stream, const Options *options, uint32_t *pixels) {
    static png_image image; /* its message is handed out */
    uint8_t *packed = (uint8_t *)pixels;
    const size_t count = (size_t)options->width * (size_t)options->height;
    for (size_t i = 0; i < count; ++i) {
        const uint32_t pixel = pixels[i];
        packed[3 * i] = (uint8_t)(pixel >> 16);
        packed[3 * i + 1] = (uint8_t)(pixel >> 8);
        packed[3 * i + 2] = (uint8_t)pixel;
    }
    image.version = PNG_IMAGE_VERSION;
    image.width = (png_uint_32)options->width;
    image.height = (png_uint_32)options->height;
    image.format = PNG_FORMAT_RGB;
    errno = 0;
    const bool written = png_image_write_to_stdio(&image, stream, 0, packed, 0, NULL) && fflush(stream) == 0;
    const char *problem = written ? NULL : errno != 0 ? strerror(errno) : image.message;
    if (fclose(stream) != 0 && problem == NULL)
        problem = strerror(errno);
    return problem;
}

/* Writes to an open file, in which nobody may find half a picture: a failure must leave none. */
static const char *EncodeTo(int file, const Options *options, uint32_t *pixels) {
    FILE *stream = file < 0 ? NULL : fdopen(file, "wb");
    if (stream != NULL)
        return Encode(stream, options, pixels);
    const char *problem = strerror(errno);
    if (file >= 0)
        close(file);
    return problem;
}

/* Makes or replaces a regular file: it grows beside its place and gets its name when it is whole. */
static const char *ReplaceFile(const char *name, mode_t mode, const Options *options, uint32_t *pixels) {
    static const char kPattern[] = ".tessel-shot-XXXXXX";
    const char *slash = strrchr(name, '/');
    const size_t folder = slash == NULL ? 0 : (size_t)(slash - name) + 1;
    char *beside = malloc(folder + sizeof kPattern);
    if (beside == NULL)
        return strerror(errno);
    memcpy(beside, name, folder);
    memcpy(beside + folder, kPattern, sizeof kPattern);

    const char *problem = NULL;
    const int file = mkstemp(beside);
    if (file < 0) {
        problem = strerror(errno);
    } else {
        s_beside = beside;
        HandleDeadlySignals();
        fchmod(file, mode);
        problem = EncodeTo(file, options, pixels);
        if (problem == NULL && rename(beside, name) != 0)
            problem = strerror(errno);
        if (problem != NULL)
            unlink(beside);
    }
    if (file < 0)
        free(beside); /* else the handler may still look at it */
    return problem;
}

/* Writes the picture where the options say. Returns NULL, or what went wrong. */
static const char *WritePicture(const Options *options, uint32_t *pixels) {
    if (strcmp(options->out, "-") == 0)
        return EncodeTo(STDOUT_FILENO, options, pixels);

    struct stat there;
    if (stat(options->out, &there) != 0) {
        const mode_t mask = umask(0);
        umask(mask);
        return ReplaceFile(options->out, 0666 & ~mask, options, pixels);
    }
    /* A device or a pipe cannot be replaced, it is written to; a directory fails here. */
    if (!S_ISREG(there.st_mode))
        return EncodeTo(open(options->out, O_WRONLY | O_NOCTTY), options, pixels);
    if (access(options->out, W_OK) != 0)
        return strerror(errno);
    /* Behind a symbolic link the file is replaced, not the link. */
    char *name = realpath(options->out, NULL);
    if (name == NULL)
        return strerror(errno);
    const char *problem = ReplaceFile(name, there.st_mode & 0777, options, pixels);
    free(name);
    return problem;
}

/* ---- The page ---- */

/* Loads the page and paints as much of it as comes in time. Returns an exit code. */
static int LoadPage(const Options *options, uint32_t *pixels) {
    const double start = Now();
    Say("loading %s at %dx%d", options->url, options->width, options->height);
    /* The library asks for a window only to know that there is one. */
    if (!tessel_Init(pixels, options->width, options->height))
        return Complain(EXIT_NO_PAGE, "the library does not start");

    PrepareToWait();
    tessel_SetCallback(TESSEL_CALLBACK_CHANGED, OnChanged);
    tessel_OpenURL(options->url);

    platform_FetchCounts counts;
    const int code = WaitForPage(start + options->wait, &counts);
    if (code == EXIT_LOADED) {
        Say("loaded in %.2f s: pages %u of %u, pictures %u of %u", Now() - start, counts.pages_loaded,
            counts.pages_loaded + counts.pages_failed, counts.images_loaded,
            counts.images_loaded + counts.images_failed);
    } else if (code == EXIT_WAIT_OVER) {
        Complain(code, "the wait of %g s ran out, still to come: pages %u, pictures %u", options->wait,
                 counts.pages_running, counts.images_running);
    } else {
        Complain(code, "the page did not come: %s", options->url);
    }
    if (code != EXIT_NO_PAGE)
        tessel_Render(pixels);
    tessel_ShutDown();
    return code;
}

static int TakePicture(const Options *options) {
    const size_t count = (size_t)options->width * (size_t)options->height;
    uint32_t *pixels = malloc(count * sizeof *pixels);
    if (pixels == NULL)
        return Complain(EXIT_NOT_WRITTEN, "no memory for %dx%d pixels", options->width, options->height);

    /* What the library has not painted yet is to look like an empty page. */
    for (size_t i = 0; i < count; ++i)
        pixels[i] = 0xFFFFFF;

    int code = LoadPage(options, pixels);
    if (code != EXIT_NO_PAGE) {
        const double start = Now();
        const char *place = strcmp(options->out, "-") == 0 ? "standard output" : options->out;
        const char *problem = WritePicture(options, pixels);
        if (problem != NULL) {
            code = Complain(EXIT_NOT_WRITTEN, "cannot write to %s: %s", place, problem);
        } else {
            Say("wrote to %s in %.2f s", place, Now() - start);
        }
    }
    free(pixels);
    return code;
}

/* ---- The command line ---- */

/* Reads a number from 1 to MAX_SIDE that ends before a given character. Returns what follows that, or NULL.
 */
static const char *ParseSide(const char *text, char end, int *side) {
    *side = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        *side = *side * 10 + (*text - '0');
        if (*side > MAX_SIDE)
            return NULL;
    }
    return *side > 0 && *text == end ? text + 1 : NULL;
}

static bool ParseSize(const char *text, Options *options) {
    const char *height = ParseSide(text, 'x', &options->width);
    return height != NULL && ParseSide(height, '\0', &options->height) != NULL;
}

/* Digits with at most one point among them: strtod alone would take signs, exponents and names, too. */
static bool ParseSeconds(const char *text, double *seconds) {
    char *end;
    if (text[strspn(text, "0123456789.")] != '\0')
        return false;
    *seconds = strtod(text, &end);
    return end != text && *end == '\0';
}

/* Reads an option that has a value, which may be missing. Returns an exit code. */
static int ParseOption(const char *name, const char *value, Options *options) {
    const bool is_size = strcmp(name, "--size") == 0;
    const bool is_wait = strcmp(name, "--wait") == 0;
    if (!is_size && !is_wait && strcmp(name, "--out") != 0)
        return Complain(EXIT_USAGE, "unknown option %s; try --help", name);
    if (value == NULL || *value == '\0' || strncmp(value, "--", 2) == 0)
        return Complain(EXIT_USAGE, "%s needs a value; try --help", name);
    if (is_size) {
        if (!ParseSize(value, options))
            return Complain(EXIT_USAGE, "--size is WxH, each from 1 to %d, not %s; try --help", MAX_SIDE,
                            value);
    } else if (is_wait) {
        if (!ParseSeconds(value, &options->wait))
            return Complain(EXIT_USAGE, "--wait is a number of seconds, not %s; try --help", value);
    } else {
        options->out = value;
    }
    return EXIT_LOADED;
}

/* A stream that is closed would lend its number to the next file that is opened, and messages or the picture
 * would go there. What takes its place cannot be used in the stream's direction. */
static void OccupyStandardStreams(void) {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (fcntl(stream, F_GETFD) == -1)
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

int main(int argc, char **argv) {
    OccupyStandardStreams();
    /* A reader that has gone, or a limit that is reached, is a failed write, not an end. */
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);

    Options options = {.width = 800, .height = 600, .wait = 30, .out = "page.png"};
    for (int i = 1; i < argc; ++i) {
        const bool is_help = strcmp(argv[i], "--help") == 0;
        if (is_help || strcmp(argv[i], "--version") == 0) {
            fputs(is_help ? kHelp : "tessel-shot " TESSEL_VERSION "\n", stdout);
            return EXIT_LOADED;
        }
        if (strcmp(argv[i], "--quiet") == 0) {
            s_quiet = true;
        } else if (argv[i][0] == '-') {
            const int code = ParseOption(argv[i], argv[i + 1], &options);
            if (code != EXIT_LOADED)
                return code;
            ++i;
        } else if (options.url != NULL) {
            return Complain(EXIT_USAGE, "more than one URL: %s and %s; try --help", options.url, argv[i]);
        } else {
            options.url = argv[i];
        }
    }
    if (options.url == NULL || *options.url == '\0')
        return Complain(EXIT_USAGE, "no URL; try --help");
    return TakePicture(&options);
}
