// The disk cache: the bodies of fetched pictures, kept between runs in the directory "cache" below the
// current one.
//
// One file for each name, with the URL it belongs to in a head of fixed size; there is no index and no
// expiry. Several URLs may have the same name: then the file is that of the last one written, and a miss for
// the others. Every failure is a miss or a lost copy. The caller has the turn to fetch; other processes may
// use the same directory at the same time.
#pragma once

#include <cstddef>
#include <cstdint>

class Resource;

// The head of a file.
struct CacheRecord {
    uint32_t _dwMagic;
    char _szInfo[128];  // nobody reads it
    char _szURL[256];
};
static_assert(sizeof(CacheRecord) == 388);

// The room for a name as MakeCachePath makes it, terminator included.
inline constexpr size_t kCacheNameSize = 256;
// A longer body is neither stored nor served.
inline constexpr uint32_t kMaxCachedBody = 500000;

// The name of the file for a path: "CACHE\" and the last part of the path, in capitals. Empty if it would be
// too long. Names that are no plain file names are made as well; every read of them misses, and every write
// fails.
void MakeCachePath(char (&szName)[kCacheNameSize], const char *lpszPath);

// Fills in _lpData and _dwLength and returns 1, or returns 0 and leaves the Resource alone.
int CacheRead(const char *lpszName, Resource *lpResource);
// The file has been used: it is to stay longer than others.
void CacheTouch(const char *lpszName);
// lpszInfo may be null. At every moment the file is the whole old one or the whole new one; a system that
// loses its power in the middle may lose the copy.
void CacheWrite(const char *lpszName, const void *lpData, uint32_t dwLength, const char *lpszInfo,
                const char *lpszURL);

// Removes what has not been used for 30 days, and of the rest all but the 16 files that were used last. Files
// that are no cache files are left alone.
void CachePurge();
// The order in which files are to go: the first time minus the second. Both are from 0 to 2^40.
int64_t CompareTimes(const int64_t *lpnFirst, const int64_t *lpnSecond);
