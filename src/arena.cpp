#include "arena.h"

#include <algorithm>
#include <new>

#include "platform/sanitizers.h"

namespace {

// Chunks double, so that a small document takes little. They stay as small as what the library takes without asking
// whether it is there.
constexpr size_t kFirstChunk = 1024;
constexpr size_t kLargestChunk = 8 * 1024 - 64;

// Where the sanitizer watches memory, each piece is a chunk of its own: what reaches beyond it, or comes too late, is seen.
constexpr bool kOneByOne = platform::kAddressSanitizer;

}  // namespace

void *Arena::TakeFromNewChunk(size_t nBytes) {
    size_t nSize = nBytes;
    if (!kOneByOne)
        nSize = std::max(nBytes, _lpChunks ? std::min(_lpChunks->nSize * 2, kLargestChunk) : kFirstChunk);
    Chunk *lpChunk = static_cast<Chunk *>(::operator new(sizeof(Chunk) + nSize));
    lpChunk->lpNext = _lpChunks;
    lpChunk->nSize = nSize;
    _lpChunks = lpChunk;
    char *lp = reinterpret_cast<char *>(lpChunk + 1);
    _lpFree = lp + nBytes;
    _lpEnd = lp + nSize;
    return lp;
}

void Arena::Clear() {
    if (kOneByOne || !_lpChunks) {
        FreeChunks();
        return;
    }
    // The newest is kept, for what is taken next.
    Chunk *lpKept = _lpChunks;
    _lpChunks = lpKept->lpNext;
    FreeChunks();
    lpKept->lpNext = nullptr;
    _lpChunks = lpKept;
    _lpFree = reinterpret_cast<char *>(lpKept + 1);
    _lpEnd = _lpFree + lpKept->nSize;
}

void Arena::FreeChunks() {
    while (_lpChunks) {
        Chunk *lpNext = _lpChunks->lpNext;
        ::operator delete(_lpChunks);
        _lpChunks = lpNext;
    }
    _lpFree = _lpEnd = nullptr;
}
