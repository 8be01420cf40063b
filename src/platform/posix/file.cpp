#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <new>

namespace platform {

namespace {

// A descriptor that closes itself.
class Descriptor {
  public:
    explicit Descriptor(int nDescriptor) : _nDescriptor(nDescriptor) {}
    ~Descriptor() {
        if (_nDescriptor >= 0)
            close(_nDescriptor);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int Get() const { return _nDescriptor; }

  private:
    int _nDescriptor;
};

// A name as the system writes it; false if it is longer than any that the system takes.
bool MakeSystemName(const char *lpszName, char (&szName)[PATH_MAX]) {
    const size_t nLength = strlen(lpszName);
    if (nLength >= sizeof szName)
        return false;
    for (size_t i = 0; i <= nLength; ++i)
        szName[i] = lpszName[i] == '\\' ? '/' : lpszName[i];
    return true;
}

// Reads until nSize bytes have come, or the file ends or fails.
size_t ReadAll(int nDescriptor, uint8_t *lpData, size_t nSize) {
    size_t nRead = 0;
    while (nRead < nSize) {
        const ssize_t nGot = read(nDescriptor, lpData + nRead, nSize - nRead);
        if (nGot < 0 && errno == EINTR)
            continue;
        if (nGot <= 0)
            break;
        nRead += static_cast<size_t>(nGot);
    }
    return nRead;
}

}  // namespace

bool FileExists(const char *lpszName) {
    char szName[PATH_MAX];
    struct stat info;
    return MakeSystemName(lpszName, szName) && stat(szName, &info) == 0 && S_ISREG(info.st_mode);
}

// The file is opened without waiting, so that a FIFO does not hold the caller, and looked at before it is
// read, so that nothing is asked of a device. A device may notice being opened: what is no regular file is
// not even opened.
bool ReadWholeFile(const char *lpszName, uint8_t **lplpData, uint32_t *lpdwLength) {
    char szName[PATH_MAX];
    if (!FileExists(lpszName) || !MakeSystemName(lpszName, szName))
        return false;
    const Descriptor file(open(szName, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat info;
    if (file.Get() < 0 || fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    if (info.st_size < 1 || info.st_size > INT_MAX)
        return false;
    const size_t nSize = static_cast<size_t>(info.st_size);
    std::unique_ptr<uint8_t[]> lpData(new (std::nothrow) uint8_t[nSize]);
    if (!lpData)
        return false;
    *lpdwLength = static_cast<uint32_t>(ReadAll(file.Get(), lpData.get(), nSize));
    *lplpData = lpData.release();
    return true;
}

}  // namespace platform
