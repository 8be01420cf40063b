// What lies in the cache's directory, whoever has put it there, and what is stored under any name.
#include <cstring>

#include "cache.h"
#include "harness.h"
#include "image.h"

namespace {

constexpr char kURL[] = "http://a.b/x.bmp";
constexpr size_t kHead = sizeof(CacheRecord);

// What the cache gives for a name; nothing, and a Resource as it was, where it has none.
std::string Read(const char *lpszName) {
    Image image(nullptr, kURL, 0, 0);
    const int bHit = CacheRead(lpszName, &image);
    REQUIRE(bHit == (image._lpData != nullptr) && (bHit || !image._dwLength));
    CacheTouch(lpszName);
    return std::string(reinterpret_cast<char *>(image._lpData), image._dwLength);
}

}  // namespace

// An input is a name, up to a zero byte, and a file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *lpData, size_t nSize) {
    const std::string strInput(reinterpret_cast<const char *>(lpData), nSize);
    const std::string strPath = strInput.c_str();
    const std::string strFile = strInput.substr(std::min(strPath.size() + 1, nSize));
    g_world = World();
    char szName[kCacheNameSize];
    MakeCachePath(szName, strPath.c_str());
    REQUIRE(!*szName || (strncmp(szName, "CACHE\\", 6) == 0 && strlen(szName) < kCacheNameSize));

    // Whatever is there, is there for its own URL.
    g_world.bCache = true;
    for (int i = 0; i < 20; ++i)
        g_world.cache["F" + std::to_string(i)] = {strFile, 1 << 30};
    g_world.cache["FILE"] = {strFile, int64_t{0xFFFFFFFF} + (nSize & 7)};
    const std::string strBody = Read("CACHE\\FILE");
    REQUIRE(strBody.empty() ||
            (strBody == strFile.substr(kHead) && strncmp(strFile.c_str(), "JBCF", 4) == 0 &&
             strcasecmp(strFile.c_str() + kHead - sizeof CacheRecord::_szURL, kURL) == 0));
    const bool bCacheFile = strFile.size() >= kHead && strFile.compare(0, 4, "JBCF") == 0;
    CachePurge();
    REQUIRE(g_world.cache.count("FILE") == 1);
    REQUIRE(g_world.cache.size() == (bCacheFile ? 1u : 21u));

    // What is stored is what comes back; what has no name is neither.
    CacheWrite(szName, strFile.data(), static_cast<uint32_t>(strFile.size()), nullptr, kURL);
    const bool bStored = g_world.cache.count(szName + (*szName ? 6 : 0)) == 1;
    REQUIRE(Read(szName) == (bStored ? strFile : ""));
    return 0;
}

std::vector<std::string> Seeds() {
    CacheRecord record = {};
    memcpy(&record._dwMagic, "JBCF", 4);
    memcpy(record._szURL, kURL, sizeof kURL);
    const std::string strHead(reinterpret_cast<char *>(&record), kHead);
    std::vector<std::string> seeds;
    for (const char *lpszPath : {"x.bmp", "a/b.pcx", "..", "a\\b", "", "con:"})
        seeds.push_back(lpszPath + std::string(1, '\0') + strHead + "body");
    memset(record._szURL, 'a', sizeof record._szURL);
    seeds.push_back(std::string(1, '\0') + std::string(reinterpret_cast<char *>(&record), kHead) + "b");
    seeds.push_back(std::string(300, 'n'));
    seeds.push_back("x" + std::string(1, '\0') + strHead.substr(0, 200));
    return seeds;
}
