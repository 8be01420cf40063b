// All calls name their file relative to the descriptor of the directory, so that it does not matter what
// becomes of its name meanwhile.
#include "platform/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace platform {

namespace {

constexpr int64_t kLatest = int64_t{1} << 40;

// What may be done with a directory or file is left to the mask of the process, as it is with the C library's
// files.
constexpr mode_t kDirectoryMode = 0777;
constexpr mode_t kFileMode = 0666;

int OpenDirectory(int nAt, const char *lpszName) {
    return openat(nAt, lpszName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

bool GetFileInfo(int nDirectory, const char *lpszName, struct stat *lpInfo) {
    return fstatat(nDirectory, lpszName, lpInfo, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(lpInfo->st_mode);
}

bool WriteAll(int nDescriptor, const void *lpData, size_t nSize) {
    const char *lpBytes = static_cast<const char *>(lpData);
    while (nSize > 0) {
        const ssize_t nWritten = write(nDescriptor, lpBytes, nSize);
        if (nWritten < 0 && errno == EINTR)
            continue;
        if (nWritten <= 0)
            return false;
        lpBytes += nWritten;
        nSize -= static_cast<size_t>(nWritten);
    }
    return true;
}

}  // namespace

bool MakeDirectory(const char *lpszName) {
    return mkdir(lpszName, kDirectoryMode) == 0 || Directory(lpszName).IsOpen();
}

Directory::Directory(const char *lpszName) : _nHandle(OpenDirectory(AT_FDCWD, lpszName)) {}

Directory::~Directory() {
    if (IsOpen())
        close(_nHandle);
}

bool Directory::WriteNewFile(const char *lpszName, const void *lpHead, size_t nHead, const void *lpBody,
                             size_t nBody) {
    const int nFile =
        openat(_nHandle, lpszName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode);
    if (nFile < 0)
        return false;
    bool bWritten = WriteAll(nFile, lpHead, nHead) && WriteAll(nFile, lpBody, nBody);
    // Some systems tell only now that the disk is full.
    bWritten = close(nFile) == 0 && bWritten;
    if (!bWritten)
        Remove(lpszName);
    return bWritten;
}

bool Directory::Rename(const char *lpszName, const char *lpszNewName) {
    return renameat(_nHandle, lpszName, _nHandle, lpszNewName) == 0;
}

void Directory::Remove(const char *lpszName) {
    unlinkat(_nHandle, lpszName, 0);
}

void Directory::Touch(const char *lpszName) {
    utimensat(_nHandle, lpszName, nullptr, AT_SYMLINK_NOFOLLOW);
}

// A device may notice being opened, and a FIFO would wait: what is no regular file is not even opened. What
// was opened is looked at again, as the name may have come to stand for something else.
DirectoryFile::DirectoryFile(const Directory &directory, const char *lpszName) : _nHandle(-1) {
    struct stat info;
    if (!GetFileInfo(directory._nHandle, lpszName, &info))
        return;
    _nHandle =
        openat(directory._nHandle, lpszName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (!IsOpen())
        return;
    if (fstat(_nHandle, &info) == 0 && S_ISREG(info.st_mode) && info.st_size >= 0) {
        _nSize = static_cast<uint64_t>(info.st_size);
        return;
    }
    close(_nHandle);
    _nHandle = -1;
}

DirectoryFile::~DirectoryFile() {
    if (IsOpen())
        close(_nHandle);
}

size_t DirectoryFile::Read(void *lpBuffer, size_t nSize) {
    size_t nRead = 0;
    while (nRead < nSize) {
        const ssize_t nGot = read(_nHandle, static_cast<char *>(lpBuffer) + nRead, nSize - nRead);
        if (nGot < 0 && errno == EINTR)
            continue;
        if (nGot <= 0)
            break;
        nRead += static_cast<size_t>(nGot);
    }
    return nRead;
}

// The stream takes a descriptor of its own, and with it a position of its own.
DirectoryWalk::DirectoryWalk(const Directory &directory) : _lpStream(nullptr) {
    const int nOwn = OpenDirectory(directory._nHandle, ".");
    if (nOwn < 0)
        return;
    _lpStream = fdopendir(nOwn);
    if (!_lpStream)
        close(nOwn);
}

DirectoryWalk::~DirectoryWalk() {
    if (_lpStream)
        closedir(static_cast<DIR *>(_lpStream));
}

bool DirectoryWalk::Next() {
    DIR *lpStream = static_cast<DIR *>(_lpStream);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): a stream of its own, read by one thread
    while (const dirent *lpEntry = lpStream ? readdir(lpStream) : nullptr) {
        struct stat info;
        if (!GetFileInfo(dirfd(lpStream), lpEntry->d_name, &info))
            continue;
        _lpszName = lpEntry->d_name;
        _nTime = std::clamp<int64_t>(info.st_mtime, 0, kLatest);
        return true;
    }
    return false;
}

}  // namespace platform
