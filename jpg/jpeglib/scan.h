// The entropy-coded data: the loop over the MCUs, with restarts and the end of the scan.
#pragma once

#include "state.h"

namespace jpg {

// Decodes the scan that the reader stands at, whose header is in the state, into the pixels of the whole
// picture. False if it is damaged or cut off.
bool DecodeScan(JpegState *lpState, const ByteReader &source, uint32_t *lpPixels);

}  // namespace jpg
