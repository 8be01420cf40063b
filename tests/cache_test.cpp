#include "cache.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>

#include "engine_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
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

std::string NameOf(const char *lpszPath) {
    char szName[kCacheNameSize];
    return MakeCachePath(szName, lpszPath), szName;
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
    CachePurge();
    return CountFiles();
}

}  // namespace

class CacheTest : public EngineTest {};

TEST_F(CacheTest, FileServesItsOwnUrlAlone) {
    EXPECT_EQ(Read(), kMiss) << "no directory yet";
    const std::string strBody("b\0\r\n\xFF", 5);
    Write(strBody);
    EXPECT_EQ(Contents("cache/A.BMP"), FileOf(kUrl, strBody));
    EXPECT_EQ(Read(), strBody);
    EXPECT_EQ(Read(kName, "HTTP://Host/A.bmp"), strBody);
    EXPECT_EQ(Read(kName, "http://host/a.bmps"), kMiss);
    Age("cache/A.BMP", 1000);
    const auto old = fs::last_write_time("cache/A.BMP");
    CacheTouch(kName);
    EXPECT_GT(fs::last_write_time("cache/A.BMP"), old + std::chrono::seconds(990)) << "it has been used";
    CacheWrite(kName, "b", 1, "text", "http://host/x/A.bmp");
    EXPECT_EQ(Contents("cache/A.BMP").substr(4, 6), std::string("text\0\0", 6));
    EXPECT_EQ(Read() + Read(kName, "http://host/x/A.bmp"), kMiss + "b") << "an existing file is replaced";
    EXPECT_EQ(CountFiles(), 1) << "and nothing stays beside it";
}

TEST_F(CacheTest, NameIsTheLastPartOfThePathInCapitals) {
    EXPECT_EQ(NameOf("images/Logo.gif"), "CACHE\\LOGO.GIF");
    EXPECT_EQ(NameOf("a//b/1_z{\xE9}"), "CACHE\\1_Z{\xE9}");
    EXPECT_EQ(NameOf("a/") + NameOf("") + NameOf(nullptr), "CACHE\\CACHE\\CACHE\\");
    EXPECT_EQ(NameOf(std::string(249, 'x').c_str()), "CACHE\\" + std::string(249, 'X'));
    EXPECT_EQ(NameOf(std::string(250, 'x').c_str()), "");
    // What does not fit is not stored.
    for (const size_t nLength : {255u, 256u, 100000u}) {
        const std::string strURL(nLength, 'u');
        Write("x", kName, strURL);
        EXPECT_EQ(Read(kName, strURL), nLength > 255 ? kMiss : "x") << nLength;
    }
    for (const size_t nSize : {500000u, 500001u}) {
        const std::string strName = NameOf(to_string(nSize).c_str());
        Write(std::string(nSize, 'x'), strName);
        EXPECT_EQ(Read(strName).size(), nSize > 500000 ? kMiss.size() : nSize);
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
    for (const std::string &strName :
         {"SUB"s, ""s, "."s, ".."s, "../OUTSIDE"s, "..\\OUTSIDE"s, "SUB/INSIDE"s, "SUB\\INSIDE"s, "A:B"s,
          "A\nB"s, "A\x7F"s, fs::current_path().string() + "/OUTSIDE", std::string(250, 'X')})
        Try("CACHE\\" + strName, kMiss);
    for (const char *lpszName : {"", "OUTSIDE", "cache/OUTSIDE"})
        Try(lpszName, kMiss);
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

TEST_F(CacheTest, DamagedFilesAreMisses) {
    fs::create_directory("cache");
    const std::string strGood = FileOf(kUrl, "b");
    WriteFile("cache/A.BMP", strGood);
    EXPECT_EQ(Read(), "b");
    for (size_t nSize = strGood.size(); nSize-- > 0;) {
        fs::resize_file("cache/A.BMP", nSize);
        ASSERT_EQ(Read(), kMiss) << nSize;
    }
    for (const std::string &strFile :
         {"JBCG" + strGood.substr(4), FileOf("http://host/b.bmp", "b"), FileOf("", "b"),
          FileOf(std::string(256, 'u'), "b"), FileOf(kUrl, std::string(500001, 'b'))}) {
        WriteFile("cache/A.BMP", strFile);
        EXPECT_EQ(Read() + Read(kName, std::string(256, 'u')), kMiss + kMiss) << strFile.substr(0, 500);
    }
    WriteFile("cache/A.BMP", strGood);
    fs::resize_file("cache/A.BMP", uintmax_t{1} << 40);
    EXPECT_EQ(Read(), kMiss) << "a terabyte";
    Write("new");
    EXPECT_EQ(Read(), "new") << "the next response replaces a damaged file";
    Write("");
    EXPECT_EQ(Read(), kMiss);
    EXPECT_EQ(Contents("cache/A.BMP"), FileOf(kUrl, "")) << "an empty body is written, and never served";
    fs::remove_all("cache");
    WriteFile("cache", "no directory");
    Write("x");
    EXPECT_EQ(Read() + Contents("cache"), kMiss + "no directory");
}

TEST_F(CacheTest, PurgeKeepsThe16NewestOfThoseThatAreYoung) {
    CachePurge();
    EXPECT_FALSE(fs::exists("cache")) << "nothing to do";
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
}

// The disk is full in the middle of a write: the process is told, or dies of it. Either way the old file stays; what
// a process that has died leaves behind goes later.
TEST_F(CacheTest, WriteThatEndsInTheMiddleLeavesTheOldFile) {
    Write("old");
    for (const bool bDies : {false, true}) {
        const pid_t child = fork();
        if (child == 0) {
            const rlimit nearlyFull = {1000, 1000};
            const rlimit noCore = {0, 0};
            setrlimit(RLIMIT_CORE, &noCore);
            signal(SIGXFSZ, bDies ? SIG_DFL : SIG_IGN);
            setrlimit(RLIMIT_FSIZE, &nearlyFull);
            Write(std::string(1000, 'x'));
            _exit(0);
        }
        int nStatus = 0;
        ASSERT_EQ(waitpid(child, &nStatus, 0), child);
        ASSERT_EQ(WIFSIGNALED(nStatus), bDies);
        EXPECT_EQ(Read(), "old");
        ASSERT_EQ(CountFiles(), bDies ? 2 : 1);
    }
    fs::path left;
    for (const auto &entry : fs::directory_iterator("cache"))
        left = entry.path().filename() == "A.BMP" ? left : entry.path();
    Age(left, 3000);
    EXPECT_EQ(Purge(), 2) << "its writer may still be at it";
    Age(left, 4000);
    EXPECT_EQ(Purge(), 1);
    EXPECT_EQ(Read(), "old");
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
