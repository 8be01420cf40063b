#include "huffman.h"

#include <cstring>

#include "state.h"

namespace jpg {

namespace {

constexpr int32_t kEndOfSearch = 0xFFFFF;

// Enters a code wherever 8 bits begin with it.
void EnterCode(uint32_t dwCode, int nLength, uint8_t bSymbol, HuffDecodeTable *lpDecode) {
    const uint32_t dwFirst = dwCode << (kShortCode - nLength);
    for (uint32_t i = dwFirst; i < dwFirst + (1u << (kShortCode - nLength)); ++i) {
        lpDecode->_anLookBits[i] = nLength;
        lpDecode->_abLookSym[i] = bSymbol;
    }
}

// What an index of the look-up holds.
LookUp MakeLookUp(const HuffDecodeTable &table, uint32_t dwIndex) {
    Bits bits{uint64_t{dwIndex} << (64 - kLookBits), kLookBits};
    const uint32_t dwShort = bits.Peek(kShortCode);
    LookUp look = {0, table._abLookSym[dwShort], static_cast<uint8_t>(table._anLookBits[dwShort])};
    if (!look.bLength)
        look = FindLongCode(&table, bits);
    if (look.bLength > kLookBits)
        return {};
    const int nValueBits = look.bSymbol & 15;
    if (nValueBits == 0 || look.bLength + nValueBits > kLookBits)
        return look;
    bits.Drop(look.bLength);
    const int16_t nValue = static_cast<int16_t>(bits.Extend(nValueBits));
    return {nValue, static_cast<uint8_t>(look.bSymbol >> 4), static_cast<uint8_t>(look.bLength + nValueBits)};
}

}  // namespace

bool jpg_BuildHuffTable(const HuffTable *lpTable, HuffDecodeTable *lpDecode) {
    memset(lpDecode, 0, sizeof *lpDecode);
    uint32_t dwCode = 0;
    int nSymbol = 0;
    for (int l = 1; l <= kLongestCode; ++l, dwCode <<= 1) {
        const int nCodes = lpTable->_abBits[l];
        if (dwCode + static_cast<uint32_t>(nCodes) > 1u << l || nSymbol + nCodes > 256)
            return false;
        lpDecode->_anMaxCode[l] = -1;
        if (nCodes == 0)
            continue;
        lpDecode->_anValPtr[l] = nSymbol;
        lpDecode->_anMinCode[l] = static_cast<int32_t>(dwCode);
        for (int i = 0; i < nCodes; ++i, ++dwCode, ++nSymbol) {
            if (l <= kShortCode)
                EnterCode(dwCode, l, lpTable->_abVals[nSymbol], lpDecode);
        }
        lpDecode->_anMaxCode[l] = static_cast<int32_t>(dwCode) - 1;
    }
    lpDecode->_anMaxCode[kLongestCode + 1] = kEndOfSearch;
    lpDecode->_lpTable = lpTable;
    for (uint32_t i = 0; i < 1u << kLookBits; ++i)
        lpDecode->_aLookUp[i] = MakeLookUp(*lpDecode, i);
    return true;
}

LookUp FindLongCode(const HuffDecodeTable *lpTable, Bits bits) {
    int l = kShortCode + 1;
    while (static_cast<int32_t>(bits.Peek(l)) > lpTable->_anMaxCode[l])
        ++l;
    const uint8_t bLength = static_cast<uint8_t>(l);
    if (l > kLongestCode) {
        if (bits._dwBitCount >= l)
            ShowMessage("Got bad Huffman code in HuffDecode");
        return {0, 0, bLength};
    }
    const int32_t nCode = static_cast<int32_t>(bits.Peek(l)) - lpTable->_anMinCode[l];
    const uint8_t bIndex = static_cast<uint8_t>(lpTable->_anValPtr[l] + nCode);
    return {0, lpTable->_lpTable->_abVals[bIndex], bLength};
}

}  // namespace jpg
