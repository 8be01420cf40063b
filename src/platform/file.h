// Regular files, for reading. Whatever else stands under a name (a directory, a FIFO, a socket, a device)
// counts as missing, at once. Both '\' and '/' separate the parts of a name; case matters as it does on the
// system.
#pragma once

#include <cstdint>

namespace platform {

bool FileExists(const char *lpszName);

// Reads a whole file. True if there is one, it can be opened and its size is from 1 to 2,147,483,647 bytes;
// then *lplpData is a new array of the size of the file, which the caller deletes with delete[], and
// *lpdwLength the number of bytes that were read. False otherwise, with both left alone.
bool ReadWholeFile(const char *lpszName, uint8_t **lplpData, uint32_t *lpdwLength);

}  // namespace platform
