#include "cache.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "htmlparser.h"
#include "platform/directory.h"
#include "resource.h"

namespace {

// The directory, and what stands for it before a name.
constexpr char kDirectory[] = "cache";
constexpr char kPrefix[] = "CACHE\\";
constexpr size_t kPrefixLength = sizeof kPrefix - 1;

// The bytes "JBCF" in the file.
constexpr uint32_t kMagic = std::endian::native == std::endian::little ? 0x4643424A : 0x4A424346;

// A file is written under such a name and gets its own when it is complete. Its small letters keep it apart
// from the names of the cache.
constexpr char kTemporaryPrefix[] = "jbcf-";
constexpr size_t kTemporarySize = sizeof kTemporaryPrefix + 16;
// How many temporary names are tried, should some be taken.
constexpr int kTemporaryTries = 4;
// Seconds after which the writer of a temporary file is gone for sure: it has crashed, since writing takes a
// moment.
constexpr int64_t kStale = 3600;

constexpr int64_t kMaxAge = 2592000;
constexpr int kMaxCounted = 256;
constexpr int kKept = 16;

bool IsForbidden(char c) {
    const auto b = static_cast<uint8_t>(c);
    return b < 0x20 || b == 0x7F || c == '/' || c == '\\' || c == ':';
}

// The one gate to the directory: the plain file name behind the prefix, or null if there is none. Nothing
// else is ever opened, written or touched.
const char *FileName(const char *lpszName) {
    if (!lpszName || strlen(lpszName) >= kCacheNameSize || strncmp(lpszName, kPrefix, kPrefixLength) != 0)
        return nullptr;
    const char *lpszFile = lpszName + kPrefixLength;
    if (!*lpszFile || strcmp(lpszFile, ".") == 0 || strcmp(lpszFile, "..") == 0)
        return nullptr;
    return std::any_of(lpszFile, lpszFile + strlen(lpszFile), IsForbidden) ? nullptr : lpszFile;
}

bool ReadHead(platform::DirectoryFile *lpFile, CacheRecord *lpRecord) {
    return lpFile->IsOpen() && lpFile->Read(lpRecord, sizeof *lpRecord) == sizeof *lpRecord &&
           lpRecord->_dwMagic == kMagic;
}

// A head from a disk may lack the terminator of its URL.
bool BelongsTo(const CacheRecord &record, const Resource *lpResource) {
    return memchr(record._szURL, '\0', sizeof record._szURL) &&
           EqualsNoCase(record._szURL, lpResource->_lpszURL);
}

// Copies a string to a field of zeros; false if it does not fit with its terminator.
template <size_t nSize>
bool SetField(char (&szField)[nSize], const char *lpsz) {
    const size_t nLength = strlen(lpsz);
    if (nLength >= nSize)
        return false;
    memcpy(szField, lpsz, nLength);
    return true;
}

bool IsTemporary(const char *lpszFile) {
    return strncmp(lpszFile, kTemporaryPrefix, sizeof kTemporaryPrefix - 1) == 0;
}

// The clock makes two names of one process different; two processes that read the same moment cannot both
// make the file.
void MakeTemporaryName(char (&szName)[kTemporarySize]) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    snprintf(szName, sizeof szName, "%s%016llx", kTemporaryPrefix,
             static_cast<unsigned long long>(now.count()));
}

int64_t Now() {
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

// A walk over the files of the cache. What else may lie in a directory of that name is nobody's to delete;
// what writers that have crashed left behind goes on the way.
class CacheWalk {
  public:
    CacheWalk(platform::Directory *lpDirectory, int64_t nNow)
        : _lpDirectory(lpDirectory), _walk(*lpDirectory), _nNow(nNow) {}

    bool Next() {
        while (_walk.Next()) {
            if (!IsTemporary(_walk.Name())) {
                if (IsCacheFile())
                    return true;
            } else if (std::abs(_nNow - _walk.Time()) > kStale) {
                Remove();
            }
        }
        return false;
    }
    int64_t Time() const { return _walk.Time(); }
    void Remove() { _lpDirectory->Remove(_walk.Name()); }

  private:
    bool IsCacheFile() {
        platform::DirectoryFile file(*_lpDirectory, _walk.Name());
        CacheRecord record;
        return ReadHead(&file, &record);
    }

    platform::Directory *_lpDirectory;
    platform::DirectoryWalk _walk;
    int64_t _nNow;
};

}  // namespace

void MakeCachePath(char (&szName)[kCacheNameSize], const char *lpszPath) {
    const char *lpSlash = lpszPath ? strrchr(lpszPath, '/') : nullptr;
    const char *lpszFile = lpSlash ? lpSlash + 1 : lpszPath ? lpszPath : "";
    szName[0] = '\0';
    if (kPrefixLength + strlen(lpszFile) >= sizeof szName)
        return;
    snprintf(szName, sizeof szName, "%s%s", kPrefix, lpszFile);
    for (char *lpc = szName; *lpc; ++lpc) {
        if (*lpc >= 'a' && *lpc <= 'z')
            *lpc = static_cast<char>(*lpc - ('a' - 'A'));
    }
}

// A body of no bytes is a miss; one that the disk delivers only in part is a hit.
int CacheRead(const char *lpszName, Resource *lpResource) {
    const char *lpszFile = FileName(lpszName);
    const platform::Directory directory(kDirectory);
    if (!lpszFile || !directory.IsOpen())
        return 0;
    platform::DirectoryFile file(directory, lpszFile);
    CacheRecord record;
    if (file.Size() <= sizeof record || file.Size() > sizeof record + kMaxCachedBody ||
        !ReadHead(&file, &record) || !BelongsTo(record, lpResource))
        return 0;
    const size_t nBody = static_cast<size_t>(file.Size()) - sizeof record;
    uint8_t *lpData = new (std::nothrow) uint8_t[nBody];
    if (!lpData)
        return 0;
    lpResource->_lpData = lpData;
    lpResource->_dwLength = static_cast<uint32_t>(file.Read(lpData, nBody));
    return 1;
}

void CacheTouch(const char *lpszName) {
    const char *lpszFile = FileName(lpszName);
    platform::Directory directory(kDirectory);
    if (lpszFile && directory.IsOpen())
        directory.Touch(lpszFile);
}

void CacheWrite(const char *lpszName, const void *lpData, uint32_t dwLength, const char *lpszInfo,
                const char *lpszURL) {
    const char *lpszFile = FileName(lpszName);
    CacheRecord record = {};
    record._dwMagic = kMagic;
    if (!lpszFile || dwLength > kMaxCachedBody || (lpszInfo && !SetField(record._szInfo, lpszInfo)) ||
        !SetField(record._szURL, lpszURL) || !platform::MakeDirectory(kDirectory))
        return;
    platform::Directory directory(kDirectory);
    for (int i = 0; i < kTemporaryTries && directory.IsOpen(); ++i) {
        char szTemporary[kTemporarySize];
        MakeTemporaryName(szTemporary);
        if (directory.WriteNewFile(szTemporary, &record, sizeof record, lpData, dwLength)) {
            if (!directory.Rename(szTemporary, lpszFile))
                directory.Remove(szTemporary);
            return;
        }
    }
}

int64_t CompareTimes(const int64_t *lpnFirst, const int64_t *lpnSecond) {
    return *lpnFirst - *lpnSecond;
}

// Two passes: the first one removes what is old and notes the times of the rest, the second one removes the
// files with the earliest of these times. Of several files with the same time it does not matter which go.
void CachePurge() {
    platform::Directory directory(kDirectory);
    if (!directory.IsOpen())
        return;
    const int64_t nNow = Now();
    int64_t anTimes[kMaxCounted];
    int nTimes = 0;
    for (CacheWalk walk(&directory, nNow); nTimes < kMaxCounted && walk.Next();) {
        if (walk.Time() + kMaxAge < nNow)
            walk.Remove();
        else
            anTimes[nTimes++] = walk.Time();
    }
    if (nTimes <= kKept)
        return;
    std::sort(anTimes, anTimes + nTimes, [](int64_t a, int64_t b) { return CompareTimes(&a, &b) < 0; });
    int64_t *lpnEnd = anTimes + nTimes - kKept;
    for (CacheWalk walk(&directory, nNow); lpnEnd > anTimes && walk.Next();) {
        int64_t *lpnFound = std::find(anTimes, lpnEnd, walk.Time());
        if (lpnFound == lpnEnd)
            continue;
        walk.Remove();
        std::copy(lpnFound + 1, lpnEnd, lpnFound);
        --lpnEnd;
    }
}
