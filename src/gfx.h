// The seven routines that write pixels. They hold no state, take no lock and call nothing else of the
// library.
//
// A pixel is 0x00RRGGBB. The buffer pointer addresses the pixel at (0, 0) of the caller's coordinates; one
// row further down is g_nBufferWidth pixels on. Coordinates and sizes are in pixels. A routine paints what
// lies inside the rectangle that it is given and nothing outside; keeping that rectangle inside the buffer is
// the duty of the caller. A size below 1 paints nothing.
#pragma once

#include <cstdint>

struct CharInfo;

// Pixels per row of the host's buffer, set by tessel_Init.
extern uint32_t g_nBufferWidth;

// A filled box with three lines along each side: c1, c2, c3 from outside in at the top and left, c6, c5, c4
// at the bottom and right, which win the corners that they share.
void gfx_Bevel(uint32_t dwFill, uint32_t c1, uint32_t c2, uint32_t c3, uint32_t c4, uint32_t c5, uint32_t c6,
               int x, int y, int w, int h, uint32_t *lpBuffer);

// Copies w x h pixels from a picture in rows of nSourceWidth. Keyed (nonzero): black is transparent, and top
// bytes are cleared; opaque (0): as it stands.
void gfx_Blit(const uint32_t *lpSource, int x, int y, int w, int h, int nSourceWidth, uint32_t *lpBuffer,
              int bKeyed);

// Turns a picture upside down in place. nPixels is nWidth * nRows. On any thread, on pixels that nobody else
// sees.
void gfx_FlipRows(int nWidth, int nRows, int nPixels, uint32_t *lpPixels);

// Every second pixel of an outline. NB: the dots of the right side stand at x + w, one column behind the top
// row's end.
void gfx_DottedRect(uint32_t dwColor, int x, int y, int w, int h, uint32_t *lpBuffer);

// A one-pixel outline.
void gfx_Rect(uint32_t dwColor, int x, int y, int w, int h, uint32_t *lpBuffer);

void gfx_FillRect(uint32_t dwColor, int x, int y, int w, int h, uint32_t *lpBuffer);

// Draws a string, its top left corner at (x, y), cut nClipW pixels to the right and nClipH further down. Only
// ink is written.
void gfx_TextOut(const char *lpsz, const CharInfo *lpCharInfo, uint32_t dwColor, int x, int y, int nClipW,
                 int nClipH, uint32_t *lpBuffer);
