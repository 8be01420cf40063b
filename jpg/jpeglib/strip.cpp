// Chroma is repeated, not filtered: the pixel in column x takes the sample x * H / Hmax of a component, H
// being its factor and Hmax the greatest of all, and so it is with rows.
#include "strip.h"

#include <algorithm>

#include "tables.h"

namespace jpg {

namespace {

void MakeGreyPixels(const uint8_t *lpY, int nWidth, uint32_t *__restrict lpPixels) {
    for (int x = 0; x < nWidth; ++x)
        lpPixels[x] = lpY[x] * 0x010101u;
}

// Each of so many samples N times.
template <int N>
void Repeat(const uint8_t *lpFrom, int nCount, uint8_t *__restrict lpTo) {
    for (int x = 0; x < nCount; ++x) {
        for (int i = 0; i < N; ++i)
            lpTo[N * x + i] = lpFrom[x];
    }
}

// Whether every component is repeated once, twice or four times across, and evenly down.
bool IsEven(const JpegState &state) {
    for (int c = 0; c < state._bComponents; ++c) {
        const JpegComponent &component = state._aComponents[c];
        if (state._anRatioH[c] * component._bH != state._bMaxH || state._anRatioH[c] == 3 ||
            state._anRatioV[c] * component._bV != state._bMaxV)
            return false;
    }
    return true;
}

}  // namespace

// --- The MCUs ---

Strip::Strip(const JpegState &state, const Kernels &kernels, uint32_t *lpPixels)
    : _state(state),
      _kernels(kernels),
      _lpPixels(lpPixels),
      _nMaxMCUs(kWidth / (kBlock * state._bMaxH)),
      _bEven(IsEven(state)) {}

void Strip::Add() {
    ++_nMCUs;
    if (_nMCUs == _nMaxMCUs || _nColumn + _nMCUs == _state._bMCUsPerRow)
        Flush();
}

void Strip::Flush() {
    const int x = _nColumn * kBlock * _state._bMaxH;
    const int y = _nRow * kBlock * _state._bMaxV;
    const int nWidth = std::min(_nMCUs * kBlock * _state._bMaxH, _state._wWidth - x);
    const int nHeight = std::min(kBlock * _state._bMaxV, _state._wHeight - y);
    uint32_t *lpPixels = _lpPixels + static_cast<size_t>(y) * _state._wWidth + static_cast<size_t>(x);
    if (nWidth > 0 && _state._bComponents == 1)
        WriteGrey(nWidth, nHeight, lpPixels);
    else if (nWidth > 0 && _bEven)
        WriteColor(nWidth, nHeight, lpPixels);
    else if (nWidth > 0)
        WriteUneven(nWidth, nHeight, lpPixels);
    _nColumn += _nMCUs;
    _nMCUs = 0;
    if (_nColumn == _state._bMCUsPerRow) {
        _nColumn = 0;
        ++_nRow;
    }
}

void Strip::WriteGrey(int nWidth, int nHeight, uint32_t *lpPixels) const {
    for (int y = 0; y < nHeight; ++y, lpPixels += _state._wWidth)
        MakeGreyPixels(_aMCU[0][y], nWidth, lpPixels);
}

void Strip::WriteColor(int nWidth, int nHeight, uint32_t *lpPixels) const {
    Row abY, abCb, abCr;
    ColorRow colors;
    const int nRatio = _state._anRatioH[1];
    const bool bSameRatio = nRatio == _state._anRatioH[2];
    const int nSamples = (nWidth - 1) / nRatio + 1;
    for (int y = 0; y < nHeight; ++y, lpPixels += _state._wWidth) {
        const bool bSameColors =
            y > 0 && SourceRow(1, y) == SourceRow(1, y - 1) && SourceRow(2, y) == SourceRow(2, y - 1);
        if (!bSameColors && bSameRatio)
            _kernels.lpfnMakeColors(SourceRow(1, y), SourceRow(2, y), nSamples, nRatio, &colors);
        else if (!bSameColors)
            _kernels.lpfnMakeColors(WideRow(1, y, &abCb), WideRow(2, y, &abCr), nWidth, 1, &colors);
        _kernels.lpfnMakePixels(WideRow(0, y, &abY), colors, nWidth, lpPixels);
    }
}

// Pixel by pixel, for any factors.
void Strip::WriteUneven(int nWidth, int nHeight, uint32_t *lpPixels) const {
    const JpegComponent *lpComponents = _state._aComponents;
    for (int y = 0; y < nHeight; ++y, lpPixels += _state._wWidth) {
        const uint8_t *alpRows[kComponents];
        for (int c = 0; c < kComponents; ++c)
            alpRows[c] = _aMCU[c][y * lpComponents[c]._bV / _state._bMaxV];
        for (int x = 0; x < nWidth; ++x) {
            const auto sample = [&](int c) { return alpRows[c][x * lpComponents[c]._bH / _state._bMaxH]; };
            lpPixels[x] = MakePixel(sample(0), sample(1), sample(2));
        }
    }
}

// The row of a component's samples that row y of the pixels takes.
const uint8_t *Strip::SourceRow(int nComponent, int y) const {
    return _aMCU[nComponent][y / _state._anRatioV[nComponent]];
}

// That row, with one sample for each pixel of the complete MCUs.
const uint8_t *Strip::WideRow(int nComponent, int y, Row *lpBuffer) const {
    const uint8_t *lpRow = SourceRow(nComponent, y);
    const int nCount = _nMCUs * kBlock * _state._aComponents[nComponent]._bH;
    if (_state._anRatioH[nComponent] == 1)
        return lpRow;
    if (_state._anRatioH[nComponent] == 2)
        Repeat<2>(lpRow, nCount, *lpBuffer);
    else
        Repeat<4>(lpRow, nCount, *lpBuffer);
    return *lpBuffer;
}

}  // namespace jpg
