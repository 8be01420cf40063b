#include "cache.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "engine_fixture.h"
#include "resource.h"

namespace {

namespace fs = std::filesystem;

constexpr char kName[] = "CACHE\\A.BMP";
constexpr char kUrl[] = "http://host/a.bmp";

class Picture : public Resource {
  public:
    explicit Picture(const std::string &strURL = kUrl)
        : Resource(nullptr, strURL.c_str(), ACCEPT_IMAGE, METHOD_GET) {}
    void OnData() override {}
    void OnTimeout() override {}
    void OnCancelled() override {}
};

// What the cache has for a name and a URL; "(miss)" if nothing.
std::string Read(const std::string &strName = kName, const std::string &strURL = kUrl) {
    Picture picture(strURL);
    if (CacheRead(strName.c_str(), &picture))
        return {reinterpret_cast<const char *>(picture._lpData), picture._dwLength};
    EXPECT_TRUE(!picture._lpData && !picture._dwLength) << "a miss leaves the picture alone";
    return "(miss)";
}

void Write(const std::string &strBody, const std::string &strName = kName, const std::string &strURL = kUrl) {
    CacheWrite(strName.c_str(), strBody.data(), static_cast<uint32_t>(strBody.size()), nullptr,
               strURL.c_str());
}

std::string NameOf(const char *lpszPath) {
    char szName[kCacheNameSize];
    MakeCachePath(szName, lpszPath);
    return szName;
}

std::string Contents(const std::string &strFile) {
    std::ifstream file(strFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The bytes of a file with this URL.
std::string FileOf(const std::string &strURL, const std::string &strBody) {
    return "JBCF" + std::string(128, '\0') + strURL + std::string(256 - strURL.size(), '\0') + strBody;
}

void SetTime(const std::string &strFile, time_t nTime) {
    const timeval aTimes[2] = {{nTime, 0}, {nTime, 0}};
    ASSERT_EQ(utimes(strFile.c_str(), aTimes), 0);
}

time_t TimeOf(const std::string &strFile) {
    struct stat info = {};
    stat(strFile.c_str(), &info);
    return info.st_mtime;
}

int CountFiles() {
    return static_cast<int>(std::distance(fs::directory_iterator("cache"), fs::directory_iterator()));
}

// Cache files FIRST, FIRST + 1 and so on, each used a second before the one before it; the first at nTime.
void MakeFiles(int nFirst, int nCount, time_t nTime) {
    for (int i = nFirst; i < nFirst + nCount; ++i) {
        Write("x", "CACHE\\" + std::to_string(i));
        SetTime("cache/" + std::to_string(i), nTime - (i - nFirst));
    }
}

}  // namespace

class CacheTest : public EngineTest {};

TEST_F(CacheTest, NameIsTheLastPartOfThePathInCapitals) {
    const std::string strLongest(249, 'x'), strTooLong(250, 'x');
    const struct {
        const char *lpszPath;
        std::string strName;
    } aCases[] = {{"images/Logo.gif", "CACHE\\LOGO.GIF"},
                  {"logo.gif", "CACHE\\LOGO.GIF"},
                  {"a//b/1_z{\xE9}", "CACHE\\1_Z{\xE9}"},
                  {"a/", "CACHE\\"},
                  {"", "CACHE\\"},
                  {nullptr, "CACHE\\"},
                  {strLongest.c_str(), "CACHE\\" + std::string(249, 'X')},
                  {strTooLong.c_str(), ""}};
    for (const auto &c : aCases)
        EXPECT_EQ(NameOf(c.lpszPath), c.strName) << (c.lpszPath ? c.lpszPath : "null");
}

TEST_F(CacheTest, FileIsAHeadOf388BytesAndTheBody) {
    EXPECT_EQ(Read(), "(miss)") << "no directory yet";
    const std::string strBody("b\0\r\n\xFF", 5);
    Write(strBody);
    EXPECT_EQ(Contents("cache/A.BMP"), FileOf(kUrl, strBody));
    EXPECT_EQ(Read(), strBody);
    CacheWrite(kName, "b", 1, "text", kUrl);
    EXPECT_EQ(Contents("cache/A.BMP").substr(4, 6), std::string("text\0\0", 6));
    EXPECT_EQ(Read(), "b");
    EXPECT_EQ(CountFiles(), 1) << "an existing file is replaced, and nothing stays beside it";
}

TEST_F(CacheTest, FileServesItsOwnUrlAlone) {
    Write("first", NameOf("a/pic.gif"), "http://host/a/pic.gif");
    EXPECT_EQ(Read(NameOf("x/PIC.GIF"), "http://host/x/PIC.GIF"), "(miss)");
    EXPECT_EQ(Read(NameOf("a/pic.gif"), "HTTP://Host/A/pic.GIF"), "first");
    EXPECT_EQ(Read(NameOf("a/pic.gif"), "http://host/a/pic.gifs"), "(miss)");
    Write("second", NameOf("x/PIC.GIF"), "http://host/x/PIC.GIF");
    EXPECT_EQ(Read(NameOf("a/pic.gif"), "http://host/a/pic.gif"), "(miss)");
    EXPECT_EQ(Read(NameOf("x/PIC.GIF"), "http://host/x/PIC.GIF"), "second");
}

TEST_F(CacheTest, WhatDoesNotFitIsNotStored) {
    for (const size_t nLength : {255u, 256u, 100000u}) {
        const std::string strURL(nLength, 'u');
        Write("x", kName, strURL);
        EXPECT_EQ(Read(kName, strURL), nLength > 255 ? "(miss)" : "x") << nLength;
    }
    for (const size_t nSize : {500000u, 500001u}) {
        const std::string strName = NameOf(std::to_string(nSize).c_str());
        Write(std::string(nSize, 'x'), strName);
        EXPECT_EQ(Read(strName).size(), nSize > 500000 ? strlen("(miss)") : nSize);
    }
    CacheWrite("CACHE\\INFO", "x", 1, std::string(128, 'i').c_str(), kUrl);
    EXPECT_EQ(CountFiles(), 2);
}

TEST_F(CacheTest, HostileNamesReachNothing) {
    fs::create_directory("cache");
    fs::create_directory("cache/SUB");
    WriteFile("OUTSIDE", FileOf(kUrl, "secret"));
    WriteFile("cache/SUB/INSIDE", FileOf(kUrl, "secret"));
    SetTime("OUTSIDE", 1000);
    const std::string strOutside = fs::current_path().string() + "/OUTSIDE";
    const std::string aNames[] = {"",
                                  "OUTSIDE",
                                  "cache/OUTSIDE",
                                  "CACHE\\",
                                  "CACHE\\.",
                                  "CACHE\\..",
                                  "CACHE\\../OUTSIDE",
                                  "CACHE\\..\\OUTSIDE",
                                  "CACHE\\SUB/INSIDE",
                                  "CACHE\\SUB\\INSIDE",
                                  "CACHE\\SUB",
                                  "CACHE\\A:B",
                                  "CACHE\\A\nB",
                                  "CACHE\\A\x7F",
                                  "CACHE\\" + strOutside,
                                  "CACHE\\" + std::string(250, 'X')};
    for (const std::string &strName : aNames) {
        EXPECT_EQ(Read(strName), "(miss)") << strName;
        CacheTouch(strName.c_str());
        Write("written", strName);
    }
    EXPECT_EQ(Read(NameOf("a/..\\OUTSIDE")), "(miss)");
    EXPECT_EQ(CountFiles(), 1);
    EXPECT_EQ(Contents("OUTSIDE") + Contents("cache/SUB/INSIDE"),
              FileOf(kUrl, "secret") + FileOf(kUrl, "secret"));
    EXPECT_EQ(TimeOf("OUTSIDE"), 1000);
}

TEST_F(CacheTest, OnlyRegularFilesInTheDirectoryAreServed) {
    fs::create_directory("cache");
    WriteFile("OUTSIDE", FileOf(kUrl, "secret"));
    SetTime("OUTSIDE", 1000);
    fs::create_symlink("../OUTSIDE", "cache/LINK");
    fs::create_symlink("/dev/zero", "cache/ZERO");
    fs::create_directory("cache/FOLDER");
    mkfifo("cache/FIFO", 0600);
    for (const char *lpszName : {"CACHE\\LINK", "CACHE\\ZERO", "CACHE\\FOLDER", "CACHE\\FIFO"}) {
        EXPECT_EQ(Read(lpszName), "(miss)") << lpszName;
        CacheTouch(lpszName);
        Write("own", lpszName);
        EXPECT_EQ(Read(lpszName), strstr(lpszName, "FOLDER") ? "(miss)" : "own") << lpszName;
    }
    EXPECT_EQ(Contents("OUTSIDE"), FileOf(kUrl, "secret")) << "the link was replaced, not followed";
    EXPECT_EQ(TimeOf("OUTSIDE"), 1000);
    EXPECT_EQ(CountFiles(), 4);
    // Nor may the directory itself be a link.
    fs::rename("cache", "elsewhere");
    fs::create_directory_symlink("elsewhere", "cache");
    EXPECT_EQ(Read("CACHE\\LINK"), "(miss)");
    Write("x", "CACHE\\NEW");
    SetTime("elsewhere/LINK", 1000);
    CachePurge();
    EXPECT_FALSE(fs::exists("elsewhere/NEW"));
    EXPECT_TRUE(fs::exists("elsewhere/LINK"));
}

TEST_F(CacheTest, DamagedFilesAreMisses) {
    fs::create_directory("cache");
    const std::string strGood = FileOf(kUrl, "b");
    WriteFile("cache/A.BMP", strGood);
    for (size_t nSize = strGood.size(); nSize-- > 0;) {
        fs::resize_file("cache/A.BMP", nSize);
        ASSERT_EQ(Read(), "(miss)") << nSize;
    }
    const std::string aFiles[] = {"JBCG" + strGood.substr(4), FileOf("http://host/b.bmp", "b"),
                                  FileOf("", "b"), FileOf(std::string(256, 'u'), "b"),
                                  FileOf(kUrl, std::string(500001, 'b'))};
    for (const std::string &strFile : aFiles) {
        WriteFile("cache/A.BMP", strFile);
        EXPECT_EQ(Read(), "(miss)") << strFile.substr(0, 500);
        EXPECT_EQ(Read(kName, std::string(256, 'u')), "(miss)");
    }
    WriteFile("cache/A.BMP", strGood);
    fs::resize_file("cache/A.BMP", uintmax_t{1} << 40);
    EXPECT_EQ(Read(), "(miss)") << "a terabyte";
    Write("new");
    EXPECT_EQ(Read(), "new") << "the next response replaces a damaged file";
}

TEST_F(CacheTest, FailuresLoseTheCopyAlone) {
    WriteFile("cache", "no directory");
    Write("x");
    EXPECT_EQ(Read(), "(miss)");
    EXPECT_EQ(Contents("cache"), "no directory");
    fs::remove("cache");
    Write("old");
    // The disk is full in the middle of the body.
    signal(SIGXFSZ, SIG_IGN);
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full = {1000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    Write(std::string(1000, 'x'));
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(Read(), "old");
    EXPECT_EQ(CountFiles(), 1);
}

TEST_F(CacheTest, HitMakesTheFileYoung) {
    Write("x");
    SetTime("cache/A.BMP", 1000);
    const time_t nBefore = time(nullptr);
    CacheTouch(kName);
    EXPECT_GE(TimeOf("cache/A.BMP"), nBefore - 1);
    EXPECT_EQ(Read(), "x");
}

TEST_F(CacheTest, PurgeKeepsThe16NewestOfThoseThatAreYoung) {
    CachePurge();
    EXPECT_FALSE(fs::exists("cache")) << "nothing to do";
    const time_t nNow = time(nullptr);
    MakeFiles(0, 16, nNow);
    CachePurge();
    EXPECT_EQ(CountFiles(), 16);
    MakeFiles(16, 4, nNow - 100);
    CachePurge();
    EXPECT_EQ(CountFiles(), 16);
    for (int i = 0; i < 16; ++i)
        EXPECT_TRUE(fs::exists("cache/" + std::to_string(i))) << i;
    // Files of the same second are as good as each other.
    MakeFiles(0, 20, nNow);
    for (int i = 10; i < 20; ++i)
        SetTime("cache/" + std::to_string(i), nNow - 100);
    CachePurge();
    EXPECT_EQ(CountFiles(), 16);
    EXPECT_TRUE(fs::exists("cache/0") && fs::exists("cache/9"));
    // No more than 256 are counted at a time.
    MakeFiles(0, 300, nNow);
    CachePurge();
    EXPECT_EQ(CountFiles(), 300 - 240);
    CachePurge();
    EXPECT_EQ(CountFiles(), 16);
}

TEST_F(CacheTest, PurgeRemovesWhatIsOlderThan30Days) {
    constexpr time_t kMonth = 2592000;
    MakeFiles(0, 12, time(nullptr));
    MakeFiles(12, 5, time(nullptr) - kMonth - 1);
    SetTime("cache/16", -1000000);
    SetTime("cache/0", 4102444800);  // in the year 2100
    CachePurge();
    EXPECT_EQ(CountFiles(), 12);
    // Exactly 30 days, as long as the second lasts.
    time_t nNow;
    bool bStays;
    do {
        nNow = time(nullptr);
        MakeFiles(50, 1, nNow - kMonth);
        CachePurge();
        bStays = fs::exists("cache/50");
    } while (time(nullptr) != nNow);
    EXPECT_TRUE(bStays);
}

TEST_F(CacheTest, PurgeLeavesStrangersAlone) {
    MakeFiles(0, 16, time(nullptr));
    fs::create_directory("cache/folder");
    WriteFile("outside", FileOf(kUrl, "x"));
    SetTime("outside", 1000);
    fs::create_symlink("../outside", "cache/link");
    WriteFile("cache/README", "somebody else's");
    WriteFile("cache/empty", "");
    for (const char *lpszName : {"cache/folder", "cache/README", "cache/empty"})
        SetTime(lpszName, 1000);
    CachePurge();
    EXPECT_EQ(CountFiles(), 20);
    EXPECT_TRUE(fs::exists("outside"));
}

// A process that dies in the middle of a write leaves the old file, and a file that goes later.
TEST_F(CacheTest, CrashWhileWritingLeavesTheOldFile) {
    Write("old");
    const pid_t child = fork();
    if (child == 0) {
        const rlimit nearlyFull = {1000, 1000};
        const rlimit noCore = {0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        signal(SIGXFSZ, SIG_DFL);
        setrlimit(RLIMIT_FSIZE, &nearlyFull);
        Write(std::string(1000, 'x'));
        _exit(0);
    }
    int nStatus = 0;
    ASSERT_EQ(waitpid(child, &nStatus, 0), child);
    ASSERT_TRUE(WIFSIGNALED(nStatus)) << "it must die in the middle";
    EXPECT_EQ(Read(), "old");
    ASSERT_EQ(CountFiles(), 2);
    std::string strLeft;
    for (const auto &entry : fs::directory_iterator("cache"))
        strLeft = entry.path().filename() == "A.BMP" ? strLeft : entry.path().string();
    SetTime(strLeft, time(nullptr) - 3000);
    CachePurge();
    EXPECT_TRUE(fs::exists(strLeft)) << "its writer may still be at it";
    SetTime(strLeft, time(nullptr) - 4000);
    CachePurge();
    EXPECT_FALSE(fs::exists(strLeft));
    EXPECT_EQ(Read(), "old");
}

// Processes know nothing of each other's turns. Threads without a turn are as bad.
TEST_F(CacheTest, FileIsNeverSeenHalfWritten) {
    Write(std::string(200000, 'a'));
    std::atomic<bool> bStop{false};
    std::vector<std::thread> threads;
    for (const char c : {'a', 'b'}) {
        threads.emplace_back([&bStop, c] {
            while (!bStop)
                Write(std::string(c == 'a' ? 200000 : 300000, c));
        });
    }
    threads.emplace_back([&bStop] {
        while (!bStop)
            CachePurge();
    });
    int anSeen[2] = {};
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while ((!anSeen[0] || !anSeen[1] || anSeen[0] + anSeen[1] < 60) &&
           std::chrono::steady_clock::now() < end) {
        const std::string strBody = Read();
        const bool bFirst = strBody[0] == 'a';
        EXPECT_TRUE(strBody == std::string(bFirst ? 200000 : 300000, bFirst ? 'a' : 'b')) << strBody.size();
        ++anSeen[bFirst];
    }
    bStop = true;
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_TRUE(anSeen[0] && anSeen[1]);
    EXPECT_EQ(CountFiles(), 1);
}
