#include "picture.h"

#include <errno.h>
#include <fcntl.h>
#include <png.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

/* The file that grows beside the one that was asked for. A signal that ends the program takes it along. */
static char s_beside[4096];
static volatile sig_atomic_t s_isGrowing;

static void OnDeadlySignal(int number) {
    if (s_isGrowing)
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

/* Writes the pixels to an open stream, and closes that. Returns NULL, or what went wrong. */
static const char *Encode(FILE *stream, const Picture *picture) {
    static png_image image; /* its message is handed out */
    const size_t count = (size_t)picture->width * (size_t)picture->height;
    uint8_t *packed = malloc(3 * count);
    for (size_t i = 0; packed != NULL && i < count; ++i) {
        const uint32_t pixel = picture->pixels[i];
        packed[3 * i] = (uint8_t)(pixel >> 16);
        packed[3 * i + 1] = (uint8_t)(pixel >> 8);
        packed[3 * i + 2] = (uint8_t)pixel;
    }
    image.version = PNG_IMAGE_VERSION;
    image.width = (png_uint_32)picture->width;
    image.height = (png_uint_32)picture->height;
    image.format = PNG_FORMAT_RGB;
    errno = packed == NULL ? ENOMEM : 0;
    const bool written =
        packed != NULL && png_image_write_to_stdio(&image, stream, 0, packed, 0, NULL) && fflush(stream) == 0;
    const char *problem = written ? NULL : errno != 0 ? strerror(errno) : image.message;
    if (fclose(stream) != 0 && problem == NULL)
        problem = strerror(errno);
    free(packed);
    return problem;
}

/* Writes to an open file, in which nobody may find half a picture: a failure must leave none. */
static const char *EncodeTo(int file, const Picture *picture) {
    FILE *stream = file < 0 ? NULL : fdopen(file, "wb");
    if (stream != NULL)
        return Encode(stream, picture);
    const char *problem = strerror(errno);
    if (file >= 0)
        close(file);
    return problem;
}

/* Makes or replaces a regular file: it grows beside its place and gets its name when it is whole. */
static const char *ReplaceFile(const char *name, mode_t mode, const Picture *picture) {
    const char *slash = strrchr(name, '/');
    const int folder = slash == NULL ? 0 : (int)(slash - name) + 1;
    if (snprintf(s_beside, sizeof s_beside, "%.*s.tessel-shot-XXXXXX", folder, name) >= (int)sizeof s_beside)
        return strerror(ENAMETOOLONG);
    const int file = mkstemp(s_beside);
    if (file < 0)
        return strerror(errno);
    s_isGrowing = 1;
    HandleDeadlySignals();
    fchmod(file, mode);
    const char *problem = EncodeTo(file, picture);
    if (problem == NULL && rename(s_beside, name) != 0)
        problem = strerror(errno);
    if (problem != NULL)
        unlink(s_beside);
    s_isGrowing = 0;
    return problem;
}

const char *WritePicture(const Picture *picture, const char *name) {
    if (strcmp(name, "-") == 0)
        return EncodeTo(STDOUT_FILENO, picture);

    struct stat there;
    if (stat(name, &there) != 0) {
        const mode_t mask = umask(0);
        umask(mask);
        return ReplaceFile(name, 0666 & ~mask, picture);
    }
    /* A device or a pipe cannot be replaced, it is written to; a directory fails here. */
    if (!S_ISREG(there.st_mode))
        return EncodeTo(open(name, O_WRONLY | O_NOCTTY), picture);
    if (access(name, W_OK) != 0)
        return strerror(errno);
    /* Behind a symbolic link the file is replaced, not the link. */
    char *target = realpath(name, NULL);
    if (target == NULL)
        return strerror(errno);
    const char *problem = ReplaceFile(target, there.st_mode & 0777, picture);
    free(target);
    return problem;
}
