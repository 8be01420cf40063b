// The platform of the targets, in the place of the system's.
#include <algorithm>
#include <cstring>
#include <deque>

#include "harness.h"
#include "platform/clock.h"
#include "platform/directory.h"
#include "platform/file.h"
#include "platform/resolver.h"
#include "platform/sockets.h"
#include "platform/thread.h"

World g_world;

namespace {

std::deque<std::pair<platform::Thread::Body, void *>> g_threads;
size_t g_nReceived, g_nRead;
std::string g_strWalked;

// Names go to the disk only if they are plain: whatever a page asks for, nothing outside the cache is touched.
std::string PlainName(const char *lpszName) {
    REQUIRE(*lpszName && strcmp(lpszName, ".") != 0 && strcmp(lpszName, "..") != 0 && strlen(lpszName) < 256);
    REQUIRE(!strpbrk(lpszName, "/\\:"));
    return lpszName;
}

const std::string *FindFile(const char *lpszName) {
    const auto found = g_world.files.find(lpszName);
    return found == g_world.files.end() ? nullptr : &found->second;
}

}  // namespace

bool RunThreads() {
    const bool bAny = !g_threads.empty();
    while (!g_threads.empty()) {
        const auto [lpfnBody, lpArgument] = g_threads.front();
        g_threads.pop_front();
        lpfnBody(lpArgument);
    }
    return bAny;
}

namespace platform {

uint32_t Ticks() {
    return g_world.dwTicks;
}

bool TicksReplaced() {
    return true;
}

bool Thread::Start(Body lpfnBody, void *lpArgument) {
    g_threads.emplace_back(lpfnBody, lpArgument);
    memcpy(_aHandle, &lpArgument, sizeof lpArgument);
    return true;
}

void Thread::Join() {
    void *lpArgument;
    memcpy(&lpArgument, _aHandle, sizeof lpArgument);
    for (const auto &thread : g_threads)
        REQUIRE(thread.second != lpArgument);
}

void Event::Set() {
    _bSet = true;
}

bool Event::WaitFor(uint32_t) {
    REQUIRE(_bSet || RunThreads());  // else nobody would ever end this wait
    const bool bSet = _bSet;
    _bSet = false;
    return bSet;
}

uint32_t ResolveAddress(const char *lpszHost, int (*)(void *), void *) {
    return strchr(lpszHost, '.') ? 0x0100007F : kNoAddress;
}

void ReleaseResolver() {}

bool FileExists(const char *lpszName) {
    return FindFile(lpszName) != nullptr;
}

bool ReadWholeFile(const char *lpszName, uint8_t **lplpData, uint32_t *lpdwLength) {
    const std::string *lpstrFile = FindFile(lpszName);
    if (!lpstrFile || lpstrFile->empty())
        return false;
    *lplpData = new uint8_t[lpstrFile->size()];
    memcpy(*lplpData, lpstrFile->data(), lpstrFile->size());
    *lpdwLength = static_cast<uint32_t>(lpstrFile->size());
    return true;
}

SocketHandle OpenSocket() {
    g_nReceived = 0;
    g_world.strSent.clear();
    return 1;
}

bool ConnectSocket(SocketHandle, uint32_t, uint16_t wPort, GiveUp, void *) {
    REQUIRE(wPort == 80);
    return g_world.lpResponse != nullptr;
}

int SendSocket(SocketHandle, const char *lpData, int nLength, GiveUp, void *) {
    const int nSent = static_cast<int>(std::min(static_cast<size_t>(nLength), g_world.nPiece));
    g_world.strSent.append(lpData, static_cast<size_t>(nSent));
    return nSent;
}

int ReceiveSocket(SocketHandle, char *lpBuffer, int nRoom, GiveUp, void *) {
    const size_t nMost = std::min(static_cast<size_t>(nRoom), g_world.nPiece);
    const size_t nCount = g_world.lpResponse->copy(lpBuffer, nMost, g_nReceived);
    g_nReceived += nCount;
    return static_cast<int>(nCount);
}

void CloseSocket(SocketHandle) {}

bool MakeDirectory(const char *) {
    return g_world.bCache = true;
}

Directory::Directory(const char *) : _nHandle(g_world.bCache ? 1 : -1) {}

Directory::~Directory() {}

bool Directory::WriteNewFile(const char *lpszName, const void *lpHead, size_t nHead, const void *lpBody,
                             size_t nBody) {
    const std::string strFile = std::string(static_cast<const char *>(lpHead), nHead);
    return g_world.cache
        .try_emplace(PlainName(lpszName), strFile + std::string(static_cast<const char *>(lpBody), nBody), 0)
        .second;
}

bool Directory::Rename(const char *lpszName, const char *lpszNewName) {
    auto node = g_world.cache.extract(PlainName(lpszName));
    g_world.cache[PlainName(lpszNewName)] = node.mapped();
    return true;
}

void Directory::Remove(const char *lpszName) {
    REQUIRE(g_world.cache.erase(PlainName(lpszName)) == 1);
}

void Directory::Touch(const char *lpszName) {
    PlainName(lpszName);
}

// The handle of a file is its place in the directory; one file is open at a time.
DirectoryFile::DirectoryFile(const Directory &, const char *lpszName) : _nHandle(-1) {
    const auto found = g_world.cache.find(PlainName(lpszName));
    g_nRead = 0;
    if (found == g_world.cache.end())
        return;
    _nHandle = static_cast<int>(std::distance(g_world.cache.begin(), found));
    _nSize = found->second.first.size();
}

DirectoryFile::~DirectoryFile() {}

size_t DirectoryFile::Read(void *lpBuffer, size_t nSize) {
    const std::string &strFile = std::next(g_world.cache.begin(), _nHandle)->second.first;
    const size_t nCount = strFile.copy(static_cast<char *>(lpBuffer), nSize, g_nRead);
    g_nRead += nCount;
    return nCount;
}

DirectoryWalk::DirectoryWalk(const Directory &) : _lpStream(nullptr) {}

DirectoryWalk::~DirectoryWalk() {}

// The name is a copy: the file may have been removed since.
bool DirectoryWalk::Next() {
    const auto next = _lpszName ? g_world.cache.upper_bound(g_strWalked) : g_world.cache.begin();
    if (next == g_world.cache.end())
        return false;
    g_strWalked = next->first;
    _lpszName = g_strWalked.c_str();
    _nTime = next->second.second;
    return true;
}

}  // namespace platform
