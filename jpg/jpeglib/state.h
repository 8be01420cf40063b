// The state of one decoding call, which lives on its stack. The reading of the segments fills it, the scan
// uses it.
#pragma once

#include "huffman.h"

namespace jpg {

inline constexpr int kMaxComponents = 4;  // that a header can name; pictures have 1 or 3
inline constexpr int kComponents = 3;
inline constexpr int kTables = 4;  // of each kind
inline constexpr int kMaxFactor = 4;
inline constexpr int kBlock = 8;  // samples along a side

// Standard zigzag order (T.81, figure A.6): the natural position of each coefficient.
inline constexpr uint8_t g_anNatural[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,   //
    12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,  //
    35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,  //
    58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63,
};

struct JpegComponent {
    uint8_t _bId;
    uint8_t _bH;  // sampling factors, 1 to kMaxFactor
    uint8_t _bV;
    uint8_t _bQuant;  // table numbers, below kTables
    uint8_t _bAC;
    uint8_t _bDC;
};

struct JpegState {
    uint16_t _awQuant[kTables][64];  // in natural order
    uint16_t _wRestartInterval;      // in MCUs, 0: no restarts
    uint16_t _wRestartsToGo;         // MCUs until the next is due
    uint16_t _wHeight;               // 0 until a frame header has come
    uint16_t _wWidth;
    uint8_t _bComponents;
    uint8_t _bScanComponents;
    JpegComponent _aComponents[kMaxComponents];
    HuffTable _aACTables[kTables];
    HuffTable _aDCTables[kTables];
    HuffDecodeTable _aACDecode[kTables];
    HuffDecodeTable _aDCDecode[kTables];
    uint8_t _bMaxH;
    uint8_t _bMaxV;
    uint16_t _bMCUsPerRow;           // 8 bits would not do: a row may have up to 8192
    int32_t _anRatioH[kComponents];  // _bMaxH / _bH and _bMaxV / _bV, in whole numbers
    int32_t _anRatioV[kComponents];
    int32_t _anLastDC[kComponents];
    alignas(32) int16_t _aCoef[64];  // in the order of the transform; all 0 between two blocks
};

// Tells the user, if there is a way to.
void ShowMessage(const char *lpszText);

}  // namespace jpg
