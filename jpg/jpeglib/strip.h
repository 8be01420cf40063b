// A few MCUs of one row, side by side: the samples of their components, until they become pixels.
//
// The MCUs are taken together so that the loops over samples are long, and not so many that they would not
// stay close to the processor. For a picture in 4:2:0, component 0 uses 16 rows of 256 samples here and the
// others 8 rows of 128; for one in 4:4:4 all three use 8 rows of 256.
#pragma once

#include "kernels.h"
#include "state.h"

namespace jpg {

class Strip {
  public:
    static constexpr int kWidth = ColorRow::kWidth;
    static constexpr int kHeight = kBlock * kMaxFactor;

    // Of a picture whose frame header has been read, and its pixels.
    Strip(const JpegState &state, const Kernels &kernels, uint32_t *lpPixels);

    // Where the samples of a block go, rows kWidth apart: of the MCU that comes next, the block in column h and
    // row v of a component.
    uint8_t *Place(int nComponent, int h, int v) {
        const int nRow = v * kBlock;
        const int nColumn = (_nMCUs * _state._aComponents[nComponent]._bH + h) * kBlock;
        return &_aMCU[nComponent][nRow][nColumn];
    }

    // That MCU is complete.
    void Add();

    // Writes the pixels of the complete MCUs, as far as they lie within the picture.
    void Flush();

  private:
    using Row = uint8_t[kWidth];

    void WriteGrey(int nWidth, int nHeight, uint32_t *lpPixels) const;
    void WriteColor(int nWidth, int nHeight, uint32_t *lpPixels) const;
    void WriteUneven(int nWidth, int nHeight, uint32_t *lpPixels) const;
    const uint8_t *SourceRow(int nComponent, int y) const;
    const uint8_t *WideRow(int nComponent, int y, Row *lpBuffer) const;

    const JpegState &_state;
    const Kernels &_kernels;
    uint32_t *_lpPixels;  // of the whole picture
    int _nMaxMCUs;        // that find room
    int _nMCUs = 0;       // complete
    int _nColumn = 0;     // where they begin in the picture, in MCUs
    int _nRow = 0;
    bool _bEven;  // every component is repeated once, twice or four times across, and evenly down
    Row _aMCU[kComponents][kHeight];
};

}  // namespace jpg
