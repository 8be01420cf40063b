/* tessel-shot: loads pages without a display and writes what a user would see as PNGs.
 *
 * It is also the shortest host that does everything properly: start, load, wait for what is still to come, act as a
 * user would, paint, stop. TakePictures tells that story; what stands above it are its steps, and below it the
 * command line.
 */
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "actions.h"
#include "picture.h"
#include "tessel.h"
#include "tessel_host.h"

enum {
    EXIT_LOADED = 0,
    EXIT_USAGE = 1,
    EXIT_NO_PAGE = 2,
    EXIT_INCOMPLETE = 3,
    EXIT_WAIT_OVER = 4,
    EXIT_NOT_WRITTEN = 5,
};

enum { MAX_SIDE = 16384 };

typedef struct Options {
    int width, height;
    double wait;  /* seconds, for each load */
    double every; /* seconds between the pictures of a series, or 0 */
    const char *out;
    const char *cache; /* the folder to run in, or NULL */
    const char **urls; /* with room for all arguments */
    Action *actions;   /* likewise */
    int urlCount, actionCount;
} Options;

static const char kHelp[] =
    "Usage: tessel-shot [OPTION]... URL...\n"
    "Loads pages with their pictures and writes what they look like as PNGs.\n"
    "URL is http://HOST/PATH, file://PATH, or a file, whose pictures are named from here.\n"
    "  --size WxH      pixels across and down, 1 to 16384 each (default 800x600)\n"
    "  --wait SECONDS  the longest wait for a page, 0: do not wait (default 30)\n"
    "  --out FILE      where the PNG goes, - for standard output (default page.png);\n"
    "                  for the second of several URLs page-2.png, and so on\n"
    "  --every MS      while waiting, also a series: page-001.png, page-002.png ...\n"
    "  --click X,Y  --type TEXT  --key NAME\n"
    "                  what is done to each page when it is there, in this order; each\n"
    "                  waits for what it loads. NAME: Tab, Shift+Tab, Ctrl+V, Alt+Left ...\n"
    "  --cache DIR     run in DIR: the cache is there, and files are named from there\n"
    "  --quiet         say nothing but what went wrong\n"
    "  --help, --version\n"
    "Exit codes, the worst of all URLs:\n"
    "  0  all was loaded\n"
    "  1  the command line is wrong\n"
    "  2  a page did not come; no PNG was written for it\n"
    "  3  the page came, a picture or another part of it did not\n"
    "  4  the wait ran out; the PNG shows how far the page got\n"
    "  5  a PNG could not be written\n";

static bool s_quiet;

/* Whether the line of progress stands on the terminal, for the next line to wipe away. */
static bool s_progress;

static void WipeProgress(void) {
    if (s_progress)
        fputs("\r\033[K", stderr);
    s_progress = false;
}

static void SayLine(const char *format, va_list arguments) {
    WipeProgress();
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

/* The counts since a moment: the library counts through all loads. */
static platform_FetchCounts CountsSince(const platform_FetchCounts *before) {
    platform_FetchCounts counts;
    platform_GetFetchCounts(&counts);
    counts.pages_loaded -= before->pages_loaded;
    counts.pages_failed -= before->pages_failed;
    counts.images_loaded -= before->images_loaded;
    counts.images_failed -= before->images_failed;
    return counts;
}

/* Where somebody looks on, a line says how far loading has come. */
static void ShowProgress(const platform_FetchCounts *counts) {
    if (s_quiet || !isatty(STDERR_FILENO))
        return;
    fprintf(stderr, "\rpages to come: %u, pictures: %u of %u \033[K", counts->pages_running,
            counts->images_loaded + counts->images_failed,
            counts->images_running + counts->images_loaded + counts->images_failed);
    s_progress = true;
}

/* ---- Pictures ---- */

static Picture s_picture;

/* The name of a picture: that of --out, with a number before its suffix if it is not the only one. */
static char *NumberedName(const Options *options, const char *format, int number) {
    const size_t size = strlen(options->out) + 32;
    char *name = malloc(size);
    if (name == NULL)
        return NULL;
    const char *slash = strrchr(options->out, '/'), *dot = strrchr(options->out, '.');
    const bool hasSuffix = dot != NULL && dot != options->out && (slash == NULL || dot > slash + 1);
    const int stem = hasSuffix ? (int)(dot - options->out) : (int)strlen(options->out);
    int used = snprintf(name, size, "%.*s", stem, options->out);
    used += snprintf(name + used, size - (size_t)used, format, number);
    snprintf(name + used, size - (size_t)used, "%s", options->out + stem);
    return name;
}

/* Paints what has changed and writes it. Returns an exit code. Takes the name. */
static int Shoot(char *name) {
    if (name == NULL)
        return Complain(EXIT_NOT_WRITTEN, "no memory");
    const double start = Now();
    const char *place = strcmp(name, "-") == 0 ? "standard output" : name;
    tessel_Render(s_picture.pixels);
    const char *problem = WritePicture(&s_picture, name);
    int code = EXIT_LOADED;
    if (problem != NULL) {
        code = Complain(EXIT_NOT_WRITTEN, "cannot write to %s: %s", place, problem);
    } else {
        Say("wrote to %s in %.2f s", place, Now() - start);
    }
    free(name);
    return code;
}

/* Waits until nothing is still to come, or the moment is there, and takes the pictures of a series on the way.
 * Returns an exit code. */
static int WaitUntilQuiet(const Options *options, const platform_FetchCounts *before) {
    /* A fetch that was cancelled or ran out of time calls nothing back, so that the counts are looked at
     * without a callback, too. */
    const double kPoll = 0.02;
    static int s_taken;
    const double end = Now() + options->wait;
    double next = Now() + options->every;
    for (;;) {
        const platform_FetchCounts counts = CountsSince(before);
        if (counts.pages_running == 0 && counts.images_running == 0) {
            WipeProgress();
            return counts.pages_failed + counts.images_failed > 0 ? EXIT_INCOMPLETE : EXIT_LOADED;
        }
        double now = Now();
        if (now >= end) {
            return Complain(EXIT_WAIT_OVER, "the wait of %g s ran out, still to come: pages %u, pictures %u",
                            options->wait, counts.pages_running, counts.images_running);
        }
        ShowProgress(&counts);
        if (options->every > 0 && now >= next) {
            if (Shoot(NumberedName(options, "-%03d", ++s_taken)) != EXIT_LOADED)
                return EXIT_NOT_WRITTEN;
            while (next <= now)
                next += options->every;
            now = Now();
        }
        double until = now + kPoll < end ? now + kPoll : end;
        WaitForChange(options->every > 0 && next < until ? next : until);
    }
}

/* ---- Pages ---- */

/* The worse of two exit codes: what could not be done at all comes before what was done in part. */
static int Worse(int a, int b) {
    static const int kOrder[] = {EXIT_LOADED, EXIT_INCOMPLETE, EXIT_WAIT_OVER, EXIT_NO_PAGE,
                                 EXIT_NOT_WRITTEN};
    int worse = a;
    for (size_t i = 0; i < sizeof kOrder / sizeof *kOrder; ++i) {
        if (kOrder[i] == a || kOrder[i] == b)
            worse = kOrder[i];
    }
    return worse;
}

/* Loads one page, does to it what was asked for and takes its picture. Returns an exit code. */
static int TakePicture(const Options *options, int index) {
    const char *url = options->urls[index];
    const double start = Now();
    platform_FetchCounts before;
    platform_GetFetchCounts(&before);
    Say("loading %s at %dx%d", url, options->width, options->height);
    tessel_OpenURL(url);
    int code = WaitUntilQuiet(options, &before);
    if (code != EXIT_WAIT_OVER && CountsSince(&before).pages_loaded == 0)
        return Complain(EXIT_NO_PAGE, "the page did not come: %s", url);

    for (int i = 0; i < options->actionCount && code != EXIT_WAIT_OVER && code != EXIT_NOT_WRITTEN; ++i) {
        DoAction(&options->actions[i]);
        code = WaitUntilQuiet(options, &before);
    }
    const platform_FetchCounts counts = CountsSince(&before);
    if (code == EXIT_LOADED || code == EXIT_INCOMPLETE) {
        Say("loaded in %.2f s: pages %u of %u, pictures %u of %u", Now() - start, counts.pages_loaded,
            counts.pages_loaded + counts.pages_failed, counts.images_loaded,
            counts.images_loaded + counts.images_failed);
    }
    if (index == 0)
        return Worse(code, Shoot(strdup(options->out)));
    return Worse(code, Shoot(NumberedName(options, "-%d", index + 1)));
}

static int TakePictures(const Options *options) {
    const size_t count = (size_t)options->width * (size_t)options->height;
    s_picture = (Picture){options->width, options->height, malloc(count * sizeof *s_picture.pixels)};
    if (s_picture.pixels == NULL)
        return Complain(EXIT_NOT_WRITTEN, "no memory for %dx%d pixels", options->width, options->height);
    /* What the library has not painted yet is to look like an empty page. */
    for (size_t i = 0; i < count; ++i)
        s_picture.pixels[i] = 0xFFFFFF;

    int code = EXIT_LOADED;
    /* The library asks for a window only to know that there is one. */
    if (!tessel_Init(s_picture.pixels, options->width, options->height)) {
        code = Complain(EXIT_NO_PAGE, "the library does not start");
    } else {
        PrepareToWait();
        tessel_SetCallback(TESSEL_CALLBACK_CHANGED, OnChanged);
        for (int i = 0; i < options->urlCount; ++i)
            code = Worse(code, TakePicture(options, i));
        tessel_ShutDown();
    }
    free(s_picture.pixels);
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

/* Digits with at most one point among them: strtod alone would take signs, exponents and names, too. */
static bool ParseSeconds(const char *text, double *seconds) {
    char *end;
    if (text[strspn(text, "0123456789.")] != '\0')
        return false;
    *seconds = strtod(text, &end);
    return end != text && *end == '\0';
}

/* Each reads a value into the options. Returns whether it is one. */
static bool TakeSize(const char *value, Options *options) {
    const char *height = ParseSide(value, 'x', &options->width);
    return height != NULL && ParseSide(height, '\0', &options->height) != NULL;
}

static bool TakeWait(const char *value, Options *options) {
    return ParseSeconds(value, &options->wait);
}

static bool TakeEvery(const char *value, Options *options) {
    options->every = atoi(value) / 1000.0;
    return value[strspn(value, "0123456789")] == '\0' && strlen(value) < 8 && options->every > 0;
}

static bool TakeOut(const char *value, Options *options) {
    options->out = value;
    return true;
}

static bool TakeCache(const char *value, Options *options) {
    options->cache = value;
    return true;
}

static bool TakeClick(const char *value, Options *options) {
    return ParseClick(value, &options->actions[options->actionCount++]);
}

static bool TakeType(const char *value, Options *options) {
    return ParseType(value, &options->actions[options->actionCount++]);
}

static bool TakeKey(const char *value, Options *options) {
    return ParseKey(value, &options->actions[options->actionCount++]);
}

static const struct OptionKind {
    const char *name;
    bool (*take)(const char *value, Options *options);
    const char *what;
} kOptions[] = {
    {"--size", TakeSize, "WxH, each from 1 to 16384"},
    {"--wait", TakeWait, "a number of seconds"},
    {"--every", TakeEvery, "a number of milliseconds, 1 to 9999999"},
    {"--out", TakeOut, "a file"},
    {"--cache", TakeCache, "a folder"},
    {"--click", TakeClick, "X,Y, each from 0 to 65535"},
    {"--type", TakeType, "a text"},
    {"--key", TakeKey, "the name of a key, such as Tab, Enter, Shift+Left, Ctrl+V or Alt+Left"},
};

/* Reads an option that has a value, which may be missing. Returns an exit code. */
static int ParseOption(const char *name, const char *value, Options *options) {
    for (size_t i = 0; i < sizeof kOptions / sizeof *kOptions; ++i) {
        if (strcmp(name, kOptions[i].name) != 0)
            continue;
        if (value == NULL || *value == '\0' || strncmp(value, "--", 2) == 0)
            return Complain(EXIT_USAGE, "%s needs a value; try --help", name);
        if (!kOptions[i].take(value, options))
            return Complain(EXIT_USAGE, "%s is %s, not %s; try --help", name, kOptions[i].what, value);
        return EXIT_LOADED;
    }
    return Complain(EXIT_USAGE, "unknown option %s; try --help", name);
}

/* Goes where --cache says. The picture stays where the user is. Returns an exit code. */
static int EnterFolder(Options *options) {
    static char s_out[8192];
    if (options->out[0] != '/' && strcmp(options->out, "-") != 0) {
        const size_t rest = strlen(options->out) + 2;
        if (rest > sizeof s_out || getcwd(s_out, sizeof s_out - rest) == NULL)
            return Complain(EXIT_USAGE, "no way back from %s; try --help", options->cache);
        const size_t length = strlen(s_out);
        snprintf(s_out + length, sizeof s_out - length, "/%s", options->out);
        options->out = s_out;
    }
    if (chdir(options->cache) != 0)
        return Complain(EXIT_USAGE, "there is no folder %s; try --help", options->cache);
    return EXIT_LOADED;
}

static int CheckOptions(Options *options) {
    if (options->urlCount == 0)
        return Complain(EXIT_USAGE, "no URL; try --help");
    if (strcmp(options->out, "-") == 0 && (options->urlCount > 1 || options->every > 0))
        return Complain(EXIT_USAGE, "more than one picture, and one standard output; try --help");
    return options->cache == NULL ? EXIT_LOADED : EnterFolder(options);
}

/* Returns an exit code, or -1 if there is something to do. */
static int ParseArguments(int argc, char **argv, Options *options) {
    for (int i = 1; i < argc; ++i) {
        const bool isHelp = strcmp(argv[i], "--help") == 0;
        if (isHelp || strcmp(argv[i], "--version") == 0) {
            fputs(isHelp ? kHelp : "tessel-shot " TESSEL_VERSION "\n", stdout);
            return EXIT_LOADED;
        }
        if (strcmp(argv[i], "--quiet") == 0) {
            s_quiet = true;
        } else if (argv[i][0] == '-') {
            const int code = ParseOption(argv[i], argv[i + 1], options);
            if (code != EXIT_LOADED)
                return code;
            ++i;
        } else if (*argv[i] != '\0') {
            options->urls[options->urlCount++] = argv[i];
        }
    }
    const int code = CheckOptions(options);
    return code == EXIT_LOADED ? -1 : code;
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
    options.urls = calloc((size_t)argc + 1, sizeof *options.urls);
    options.actions = calloc((size_t)argc + 1, sizeof *options.actions);
    int code = EXIT_NOT_WRITTEN;
    if (options.urls != NULL && options.actions != NULL)
        code = ParseArguments(argc, argv, &options);
    if (code < 0)
        code = TakePictures(&options);
    free(options.urls);
    free(options.actions);
    return code;
}
