#include "cache.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>

#include "cases.h"
#include "engine_fixture.h"

namespace {

namespace fs = std::filesystem;
using std::to_string;

constexpr char kName[] = "CACHE\\A.BMP";
constexpr char kUrl[] = "http://host/a.bmp";
const std::string kMiss = "(nothing)";
constexpr int64_t kMonth = 2592000, kOld = 10 * kMonth;

// What the cache has for a name and a URL.
std::string Read(const std::string &strName = kName, const std::string &strURL = kUrl) {
    KeptResource picture(nullptr, strURL.c_str(), ACCEPT_IMAGE, METHOD_GET);
    const bool bHit = CacheRead(strName.c_str(), &picture);
    EXPECT_TRUE(bHit ? picture._lpData != nullptr : !picture._lpData && !picture._dwLength);
    return picture.Data();
}

void Write(const std::string &strBody, const std::string &strName = kName, const std::string &strURL = kUrl) {
    CacheWrite(strName.c_str(), strBody.data(), static_cast<uint32_t>(strBody.size()), nullptr,
               strURL.c_str());
}

// The bytes of a file with this URL.
std::string FileOf(const std::string &strURL, const std::string &strBody) {
    return "JBCF" + std::string(128, '\0') + strURL + std::string(256 - strURL.size(), '\0') + strBody;
}

void Age(const std::string &strFile, int64_t nSeconds) {
    fs::last_write_time(strFile, fs::file_time_type::clock::now() - std::chrono::seconds(nSeconds));
}

int CountFiles() {
    return static_cast<int>(std::distance(fs::directory_iterator("cache"), fs::directory_iterator()));
}

// Cache files FIRST, FIRST + 1 and so on, each used a second before the one before it; the first so many seconds ago.
void MakeFiles(int nFirst, int nCount, int64_t nAge = 0) {
    for (int i = nFirst; i < nFirst + nCount; ++i) {
        Write("x", "CACHE\\" + to_string(i));
        Age("cache/" + to_string(i), nAge + i - nFirst);
    }
}

// How many files a purge leaves.
int Purge() {
    return CachePurge(), CountFiles();
}

}  // namespace

struct CacheTest : EngineTest {
    Cases cases{"cache.txt"};
};

TEST_F(CacheTest, FileServesItsOwnUrlAlone) {
    EXPECT_EQ(Read(), kMiss) << "no directory yet";
    Write("body");
    EXPECT_EQ(Contents("cache/A.BMP"), FileOf(kUrl, "body"));
    for (const auto &row : cases.Under("file")) {
        WriteFile("cache/A.BMP", cases.Bytes(row[1]));
        EXPECT_TRUE(Read(kName, cases.Bytes(row[2])) == (row[3].empty() ? kMiss : cases.Bytes(row[3])))
            << row[1];
    }
    const std::string strGood = FileOf(kUrl, "b");
    WriteFile("cache/A.BMP", strGood);
    for (size_t nSize = strGood.size(); nSize-- > 0;) {
        fs::resize_file("cache/A.BMP", nSize);
        ASSERT_EQ(Read(), kMiss) << nSize;
    }
    fs::resize_file("cache/A.BMP", uintmax_t{1} << 40);
    EXPECT_EQ(Read(), kMiss) << "a terabyte";
    Write("");
    EXPECT_EQ(Contents("cache/A.BMP"), FileOf(kUrl, "")) << "an empty body is written, and never served";
    Write("new");
    EXPECT_EQ(Read(), "new") << "the next response replaces a file";
    Age("cache/A.BMP", 1000);
    const auto old = fs::last_write_time("cache/A.BMP");
    CacheTouch(kName);
    EXPECT_GT(fs::last_write_time("cache/A.BMP"), old + std::chrono::seconds(990)) << "it has been used";
    CacheWrite(kName, "b", 1, "text", "http://host/x/A.bmp");
    EXPECT_EQ(Contents("cache/A.BMP").substr(4, 6), std::string("text\0\0", 6));
    EXPECT_EQ(Read() + Read(kName, "http://host/x/A.bmp") + to_string(CountFiles()), kMiss + "b1");
    fs::remove_all("cache");
    WriteFile("cache", "no directory");
    Write("x");
    EXPECT_EQ(Read() + Contents("cache"), kMiss + "no directory");
}

TEST_F(CacheTest, NameIsTheLastPartOfThePathInCapitals) {
    for (const auto &row : cases.Under("name")) {
        char szName[kCacheNameSize];
        MakeCachePath(szName, row[1] == "-" ? nullptr : cases.Bytes(row[1]).c_str());
        EXPECT_EQ(szName, cases.Bytes(row[2])) << row[1];
    }
    // What does not fit is not stored.
    for (const size_t nOver : {0, 1, 100000}) {
        const std::string strURL(255 + nOver, 'u'), strBody(500000 + nOver, 'x');
        Write("x", kName, strURL);
        EXPECT_EQ(Read(kName, strURL), nOver ? kMiss : "x") << nOver;
        Write(strBody, "CACHE\\B" + to_string(nOver));
        EXPECT_TRUE(Read("CACHE\\B" + to_string(nOver)) == (nOver ? kMiss : strBody)) << nOver;
    }
    CacheWrite("CACHE\\INFO", "x", 1, std::string(128, 'i').c_str(), kUrl);
    EXPECT_EQ(CountFiles(), 2);
}

TEST_F(CacheTest, NothingOutsideTheDirectoryIsReached) {
    const std::string strSecret = FileOf(kUrl, "secret");
    fs::create_directories("cache/SUB");
    for (const char *lpszFile : {"OUTSIDE", "cache/SUB/INSIDE"}) {
        WriteFile(lpszFile, strSecret);
        Age(lpszFile, kOld);
    }
    const auto old = fs::last_write_time("OUTSIDE");
    fs::create_symlink("../OUTSIDE", "cache/LINK");
    fs::create_symlink("/dev/zero", "cache/ZERO");
    mkfifo("cache/FIFO", 0600);
    const auto Try = [](const std::string &strName, const std::string &strThen) {
        EXPECT_EQ(Read(strName), kMiss) << strName;
        CacheTouch(strName.c_str());
        Write("own", strName);
        EXPECT_EQ(Read(strName), strThen) << strName;
    };
    for (const char *lpszName : {"LINK", "ZERO", "FIFO"})
        Try(std::string("CACHE\\") + lpszName, "own");
    cases.names["HERE"] = '"' + fs::current_path().string() + '"';
    for (const auto &row : cases.Under("outside"))
        Try(cases.Bytes(row[1]), kMiss);
    for (const char *lpszFile : {"OUTSIDE", "cache/SUB/INSIDE"}) {
        EXPECT_EQ(Contents(lpszFile), strSecret);
        EXPECT_LE(fs::last_write_time(lpszFile), old + std::chrono::seconds(1));
    }
    EXPECT_EQ(CountFiles(), 4);
    // Nor may the directory itself be a link.
    fs::rename("cache", "elsewhere");
    fs::create_directory_symlink("elsewhere", "cache");
    EXPECT_EQ(Read("CACHE\\LINK"), kMiss);
    Write("x", "CACHE\\NEW");
    Age("elsewhere/LINK", kOld);
    CachePurge();
    EXPECT_TRUE(!fs::exists("elsewhere/NEW") && fs::exists("elsewhere/LINK"));
}

TEST_F(CacheTest, PurgeKeepsThe16NewestOfThoseThatAreYoung) {
    MakeFiles(0, 16);
    EXPECT_EQ(Purge(), 16);
    MakeFiles(16, 4, 100);
    EXPECT_EQ(Purge(), 16);
    EXPECT_TRUE(fs::exists("cache/0") && fs::exists("cache/15") && !fs::exists("cache/16"));
    // Files of the same second are as good as each other.
    MakeFiles(0, 20);
    for (int i = 10; i < 20; ++i)
        Age("cache/" + to_string(i), 100);
    EXPECT_EQ(Purge(), 16);
    EXPECT_TRUE(fs::exists("cache/0") && fs::exists("cache/9"));
    // No more than 256 are counted at a time.
    MakeFiles(0, 300);
    EXPECT_EQ(Purge(), 300 - 240);
    EXPECT_EQ(Purge(), 16);
    fs::remove_all("cache");
    MakeFiles(0, 12);
    MakeFiles(12, 5, kMonth + 1);
    Age("cache/16", 100 * 12 * kMonth);  // before 1970
    Age("cache/0", -100 * 12 * kMonth);
    EXPECT_EQ(Purge(), 12);
    // Exactly 30 days, as long as the second lasts.
    int nLeft = 0;
    for (time_t nThen = 0; nThen != time(nullptr); nLeft = Purge()) {
        nThen = time(nullptr);
        MakeFiles(50, 1, kMonth);
    }
    EXPECT_EQ(nLeft, 13);
    // What else lies there is nobody's to delete.
    fs::create_directory("cache/folder");
    WriteFile("outside", FileOf(kUrl, "x"));
    WriteFile("cache/README", "somebody else's");
    WriteFile("cache/empty", "");
    fs::create_symlink("../outside", "cache/link");
    for (const char *lpszName : {"outside", "cache/folder", "cache/README", "cache/empty"})
        Age(lpszName, kOld);
    EXPECT_EQ(Purge(), 17);
    EXPECT_TRUE(fs::exists("outside"));
    // What a writer leaves that has died goes when it cannot be at it any more.
    WriteFile("cache/jbcf-left", "JBCF");
    for (const auto &[nAge, nStay] : {std::pair(3000, 18), {4000, 17}}) {
        Age("cache/jbcf-left", nAge);
        EXPECT_EQ(Purge(), nStay);
    }
}

// Part of a write is as bad as none.
TEST_F(CacheTest, WriteThatEndsInTheMiddleLeavesTheOldFile) {
    Write("old");
    rlimit limit, nearlyFull;
    getrlimit(RLIMIT_FSIZE, &limit);
    nearlyFull = {1000, limit.rlim_max};
    const auto lpfnBefore = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &nearlyFull);
    Write(std::string(1000, 'x'));
    setrlimit(RLIMIT_FSIZE, &limit);
    signal(SIGXFSZ, lpfnBefore);
    EXPECT_EQ(Read() + to_string(CountFiles()), "old1");
}

// Processes know nothing of each other's turns.
TEST_F(CacheTest, FileIsNeverSeenHalfWritten) {
    const std::string aBodies[] = {std::string(200000, 'a'), std::string(300000, 'b')};
    Write(aBodies[0]);
    std::vector<pid_t> children;
    const pid_t parent = getpid();
    for (int i = 0; i < 3; ++i) {
        children.push_back(fork());
        while (children.back() == 0 && getppid() == parent)
            i == 2 ? CachePurge() : Write(aBodies[i]);
        if (children.back() == 0)
            _exit(0);
    }
    int anSeen[2] = {};
    EXPECT_TRUE(WaitUntil([&] {
        const std::string strBody = Read();
        ++anSeen[strBody == aBodies[1]];
        return strBody != aBodies[strBody[0] == 'b'] ||
               (anSeen[0] && anSeen[1] && anSeen[0] + anSeen[1] >= 60);
    }));
    EXPECT_TRUE(anSeen[0] && anSeen[1] && anSeen[0] + anSeen[1] >= 60) << "neither of the two";
    for (const pid_t child : children) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}
