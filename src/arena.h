// Arena: memory for the many small things that a document is made of. They come one by one and go all at once, so that
// taking a piece is a step of a pointer, and neighbours in the document are neighbours in memory.
//
// What stands in an Arena is not freed by itself. Objects derive from InArena, are made by "new (arena) T", and can be
// deleted like any other, which ends them and leaves their memory alone.
//
// An Arena has no lock: it belongs to a Page, or a glyph set, and follows its rules.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include "list.h"

class Arena {
  public:
    Arena() = default;
    Arena(const Arena &) = delete;
    Arena &operator=(const Arena &) = delete;
    ~Arena() { FreeChunks(); }

    // So many bytes, aligned for pointers.
    void *Take(size_t nBytes) {
        nBytes = (nBytes + sizeof(void *) - 1) / sizeof(void *) * sizeof(void *);
        if (nBytes > static_cast<size_t>(_lpEnd - _lpFree))
            return TakeFromNewChunk(nBytes);
        char *lp = _lpFree;
        _lpFree += nBytes;
        return lp;
    }

    // A copy with a zero behind it.
    char *CopyString(std::string_view text) {
        char *lpszCopy = static_cast<char *>(Take(text.size() + 1));
        memcpy(lpszCopy, text.data(), text.size());
        lpszCopy[text.size()] = '\0';
        return lpszCopy;
    }

    // Takes everything back. What was in here must not be touched any more.
    void Clear();

  private:
    struct Chunk {
        Chunk *lpNext;
        size_t nSize;  // of what follows this head
    };

    void *TakeFromNewChunk(size_t nBytes);
    void FreeChunks();

    // Head = the newest.
    Chunk *_lpChunks = nullptr;
    char *_lpFree = nullptr;
    char *_lpEnd = nullptr;
};

struct InArena {
    static void *operator new(size_t nSize, Arena &arena) { return arena.Take(nSize); }
    static void operator delete(void *, Arena &) {}
    static void operator delete(void *) {}
};

// List_Prepend for a list whose nodes go with an Arena.
template <class T>
List<T> *List_Prepend(List<T> *&lpHead, T *lpData, Arena &arena) {
    return List_Link(lpHead, new (arena.Take(sizeof(List<T>))) List<T>{lpData, nullptr, nullptr});
}
