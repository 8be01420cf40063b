// The JPEG reader: a JFIF file, held whole in memory, becomes an array of pixels.
//
// It reads baseline files of ITU T.81: one sequential Huffman-coded scan with all components interleaved,
// 8-bit samples, YCbCr or grey. Progressive, lossless and arithmetic-coded files, several scans and other
// numbers of components are refused; nothing is mended in a damaged scan.
//
// This folder knows nothing of the rest of the engine. All state is local to a call, so any number of threads
// may decode at the same time; a call takes about 75 KB of stack, and no memory but for the output.
#pragma once

#include <cstdint>

// The size of the picture in a file. Returns 1, or 0 with a size of 0 x 0 if the file is not for this reader:
// an APP0 segment that begins with "JFIF" has to come before a baseline frame header. Nothing behind that
// header is looked at, so a 1 does not mean that the file decodes.
int jpg_GetDimensions(const uint8_t *lpSource, int nLength, uint32_t *lpWidth, uint32_t *lpHeight);

// Decodes a file. Returns 1 with its size in *lpWidth and *lpHeight, or 0.
//
// bAllocate 0: *lppDest is an array of *lpWidth x *lpHeight pixels, and a file of another size is refused.
// bAllocate 1: the three outputs are cleared, and *lppDest becomes an array that the caller frees with
// delete[]; it stays null if the file ends without a scan. A picture of more than 16,384 pixels in one
// direction or 64 million in all is refused. After a failure the array is gone and *lppDest is not to be
// used.
//
// Pixels are 0x00RRGGBB, rows from the top down without gaps. Only what is decoded is written, on failure
// perhaps a part.
int jpg_JPGToRGB(const uint8_t *lpSource, int nLength, uint32_t *lpWidth, uint32_t *lpHeight,
                 uint32_t **lppDest, int bAllocate);

// Lends the reader the message box in which it tells what is wrong with a file. It is called on the thread
// that decodes, with text that lasts. Null, as at the start: nobody is told.
void jpg_SetMessageBox(void (*lpfnShow)(const char *lpszText));
