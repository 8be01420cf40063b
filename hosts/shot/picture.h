/* A picture of a page, and how it gets into a PNG file: as a whole, or not at all. */
#ifndef TESSEL_SHOT_PICTURE_H
#define TESSEL_SHOT_PICTURE_H

#include <stdint.h>

typedef struct Picture {
    int width, height; /* pixels */
    uint32_t *pixels;  /* 0x00RRGGBB each, the top row first */
} Picture;

/* Makes or replaces the file; "-" is standard output, and what is no regular file is written to where it is.
 * Returns NULL, or what went wrong: a text that holds until the next call. */
const char *WritePicture(const Picture *picture, const char *name);

#endif
