// The small types that every module shares.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

struct Point {
    int32_t x = 0;
    int32_t y = 0;
};

struct Size {
    int32_t w = 0;
    int32_t h = 0;
};

// A position and a size; x, y, w and h in this order. A Rect is a Point and a Size, so that either half can
// be handed on by address.
struct Rect : Point, Size {
    Rect() = default;
    Rect(const Point *lpOrigin, const Size *lpSize) : Point(*lpOrigin), Size(*lpSize) {}
    Rect(int32_t nX, int32_t nY, int32_t nW, int32_t nH) : Point{nX, nY}, Size{nW, nH} {}

    bool IsZero() const { return (x | y | w | h) == 0; }
    bool operator==(const Rect &rc) const { return x == rc.x && y == rc.y && w == rc.w && h == rc.h; }
};

// The box around any number of rectangles, edges included; there may be none.
struct Extent {
    int32_t nLeft = INT32_MAX;
    int32_t nTop = INT32_MAX;
    int32_t nRight = INT32_MIN;
    int32_t nBottom = INT32_MIN;

    void Add(const Rect &rc) {
        nLeft = std::min(nLeft, rc.x);
        nTop = std::min(nTop, rc.y);
        nRight = std::max(nRight, rc.x + rc.w);
        nBottom = std::max(nBottom, rc.y + rc.h);
    }
    bool Meets(const Extent &other) const {
        return nLeft <= other.nRight && other.nLeft <= nRight && nTop <= other.nBottom &&
               other.nTop <= nBottom;
    }
};

// Positions and lengths of a page add up to no more than this, so that no page can make a sum of two wrap.
inline constexpr int32_t kMaxLength = 1 << 29;

inline int32_t AddLengths(int32_t n, int32_t nMore) {
    return n + nMore > kMaxLength ? kMaxLength : n + nMore;
}

// What an attribute may give as a length at most; pictures are no larger either way.
inline constexpr int32_t kMaxAttributeLength = 16384;

// A heap copy of a zero-terminated string of limited length, to be deleted with delete[]; null for null.
inline char *StrDup(const char *lpsz) {
    if (!lpsz)
        return nullptr;
    const size_t nSize = strlen(lpsz) + 1;
    char *lpszCopy = new char[nSize];
    memcpy(lpszCopy, lpsz, nSize);
    return lpszCopy;
}

// The same of any length; null also if memory runs out.
inline char *StrTryDup(const char *lpsz) {
    const size_t nSize = lpsz ? strlen(lpsz) + 1 : 0;
    char *lpszCopy = lpsz ? new (std::nothrow) char[nSize] : nullptr;
    if (lpszCopy)
        memcpy(lpszCopy, lpsz, nSize);
    return lpszCopy;
}
