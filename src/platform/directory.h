// A directory below the current one, and the regular files right inside it. No link is followed, neither to
// the directory nor from it, and what is no regular file counts as missing and never blocks, so that nothing
// outside can be reached. The names of files must be single names, without any separator, and neither "." nor
// "..".
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

// False if there is no directory of that name on return.
bool MakeDirectory(const char *lpszName);

class Directory {
  public:
    // Opens it, if it is there.
    explicit Directory(const char *lpszName);
    ~Directory();
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;

    bool IsOpen() const { return _nHandle >= 0; }

    // Makes a new file of two pieces. False, with nothing left behind, if there is one of that name or not
    // all of it could be written.
    bool WriteNewFile(const char *lpszName, const void *lpHead, size_t nHead, const void *lpBody,
                      size_t nBody);
    // In one step: at every moment the new name is what it was before, or the file.
    bool Rename(const char *lpszName, const char *lpszNewName);
    void Remove(const char *lpszName);
    // Sets the modification time to the present.
    void Touch(const char *lpszName);

  private:
    friend class DirectoryFile;
    friend class DirectoryWalk;

    int _nHandle;
};

// A file of a directory, open for reading.
class DirectoryFile {
  public:
    DirectoryFile(const Directory &directory, const char *lpszName);
    ~DirectoryFile();
    DirectoryFile(const DirectoryFile &) = delete;
    DirectoryFile &operator=(const DirectoryFile &) = delete;

    bool IsOpen() const { return _nHandle >= 0; }
    // The size that it had when it was opened.
    uint64_t Size() const { return _nSize; }
    // Reads on from where the last call has ended. Returns how many bytes came: fewer than nSize only if the
    // file ends or fails.
    size_t Read(void *lpBuffer, size_t nSize);

  private:
    int _nHandle;
    uint64_t _nSize = 0;
};

// A walk over all files of a directory, in no particular order. Files may be removed meanwhile.
class DirectoryWalk {
  public:
    explicit DirectoryWalk(const Directory &directory);
    ~DirectoryWalk();
    DirectoryWalk(const DirectoryWalk &) = delete;
    DirectoryWalk &operator=(const DirectoryWalk &) = delete;

    // Goes to the next file, at first to the first one; false behind the last.
    bool Next();
    // Until the next step.
    const char *Name() const { return _lpszName; }
    // The modification time in seconds since 1970, from 0 to 2^40.
    int64_t Time() const { return _nTime; }

  private:
    void *_lpStream;  // of the system
    const char *_lpszName = nullptr;
    int64_t _nTime = 0;
};

}  // namespace platform
