// Huffman tables: from the form that a file holds to the forms that decode. Public source: ITU T.81, annexes
// C and F.2.2.3.
//
// There are two ways to a symbol. Nearly always the next kLookBits bits of the scan, as an index, lead to all
// there is to know: a code, and nearly always the value behind it as well. Longer codes are found by their
// length, one bit at a time.
#pragma once

#include "bitreader.h"

namespace jpg {

inline constexpr int kShortCode = 8;  // bits of the longest code that is looked up while the look-up is made
inline constexpr int kLookBits = 10;  // some more, so that values find room behind their codes; with 11 fewer
                                      // tables stay close to the processor, which costs more than it saves
inline constexpr int kLongestCode = 16;

// What a DHT segment says.
struct HuffTable {
    uint8_t _abBits[kLongestCode + 1];  // [l]: the number of codes of length l; [0] is not used
    uint8_t _abVals[256];               // the symbols, by rising code
};

// What the next kLookBits bits begin with.
struct LookUp {
    int16_t nValue;   // of the coefficient, if all of it is there; else 0
    uint8_t bSymbol;  // with a value: the zero coefficients before it
    uint8_t bLength;  // of all that was named, in bits; 0 if the code is long
};

struct HuffDecodeTable {
    int32_t _anMinCode[kLongestCode + 1];  // by length, from 1; so are the next two
    int32_t _anMaxCode[kLongestCode + 2];  // -1: no code of this length. The last ends every search
    int32_t _anValPtr[kLongestCode + 1];   // index in _abVals
    int32_t _anLookBits[256];              // by the next 8 bits: the length of their code, 0 if it is long
    uint8_t _abLookSym[256];
    const HuffTable *_lpTable;  // null as long as no file has defined the table
    LookUp _aLookUp[1 << kLookBits];
};

// False if there are more codes of some length than that length has room for; the decoding table is then
// undefined.
bool jpg_BuildHuffTable(const HuffTable *lpTable, HuffDecodeTable *lpDecode);

// The symbol of a code that is not in the look-up, and the length of the code. What is no code counts as
// symbol 0 of 17 bits, and the user is told.
LookUp FindLongCode(const HuffDecodeTable *lpTable, Bits bits);

}  // namespace jpg
