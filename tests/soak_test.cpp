// A host that never stops: the library is loaded, used at random with framesets and pictures from servers that
// misbehave, shut down or unloaded at any moment, and loaded again. What it is looked at for is what stays behind;
// what goes wrong on the way, the sanitizers see.
//
// TESSEL_SOAK_SECONDS in the environment says how long, in place of the few seconds of an everyday test;
// TESSEL_SOAK_SEED begins with another seed.
#include <malloc.h>

#include <atomic>
#include <random>

#include "cases.h"
#include "loaded_library.h"
#include "loopback_server.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kWidth = 300, kHeight = 200;
// Loads before the first look: until then the system fills memories of its own.
constexpr int kWarmUp = 8;
// Stacks of threads that the system keeps, and what the loader does.
constexpr size_t kSlackKiB = 8 * 1024;
constexpr size_t kSlackOfHeap = 256 * 1024;
constexpr std::chrono::seconds kLongestEnd(5);

std::atomic<bool> g_bDown{false};
std::atomic<uint32_t> g_nCallbacks{0};

void OnChanged(int) {
    EXPECT_FALSE(g_bDown) << "a callback after the shut down";
    ++g_nCallbacks;
}

uint32_t NumberFrom(const char *lpszVariable, uint32_t nDefault) {
    const char *lpszValue = getenv(lpszVariable);
    return lpszValue ? static_cast<uint32_t>(atoi(lpszValue)) : nDefault;
}

size_t CountEntries(const char *lpszFolder) {
    const std::filesystem::directory_iterator begin(lpszFolder);
    return static_cast<size_t>(std::distance(begin, std::filesystem::directory_iterator()));
}

size_t ResidentKiB() {
    malloc_trim(0);
    size_t nSize = 0, nResident = 0;
    std::ifstream("/proc/self/statm") >> nSize >> nResident;
    return nResident * 4;
}

// A server with every vice that a name can ask for. Pages show pictures of all kinds; those behind a query are asked
// for again and again.
Reply AnswerAsNamed(const std::string &strRequest) {
    const std::string strHead = "HTTP/1.0 200 OK\r\n\r\n";
    const std::string strName = strRequest.substr(0, strRequest.find(" HTTP/"));
    const auto Is = [&](const char *lpszKind) { return strName.find(lpszKind) != std::string::npos; };
    std::string strBody = "<TITLE>net</TITLE><A HREF=late.htm><IMG SRC=good.tga> a link</A>";
    for (const char *lpszKind : {"drip", "early", "garbage", "late", "good", "none"})
        strBody += std::string("<IMG SRC=x?") + lpszKind + ".tga><IMG SRC=" + lpszKind + ".tga>";
    strBody += Is("never") ? "<IMG SRC=x?never.tga>" : "";
    if (Is("frames"))
        strBody = "<FRAMESET COLS=50%,50%><FRAME SRC=good.htm><FRAME SRC=never.htm>";
    if (Is(".tga")) {
        strBody.assign(18 + 20 * 10 * 2, '\0');
        strBody[2] = 2, strBody[12] = 20, strBody[14] = 10, strBody[16] = 16;
    }
    if (Is("x?never"))
        return {Is(".tga") ? "HTTP/1.0 200" : "", kHold};
    if (Is("early"))
        return {strHead + strBody.substr(0, strBody.size() / 2), kReset};
    if (Is("garbage"))
        return {"HTTP/1.0 200 \r\n\xFF" + strBody + strRequest};
    return {Is("none") ? "" : strHead + strBody, Is("none") ? kLeave : kClose,
            Is("drip") ? strBody.size() / 20 : 1 << 20, Is("late") ? 15 : 0};
}

class SoakTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Cases cases("soak.txt");
        cases.names["HERE"] = '"' + _server.strAddress + '"';
        for (const auto &row : cases.Under("file")) {
            std::ofstream(row[1]) << cases.Bytes(row[2]);
            _urls.push_back(row[1]);
        }
        for (const auto &row : cases.Under("url"))
            _urls.push_back(cases.Bytes(row[1]));
        _server.Prescribe(AnswerAsNamed);
    }

    void DoSomething(Library &library) {
        const auto x = static_cast<uint16_t>(_random() % (kWidth + 20));
        const auto y = static_cast<uint16_t>(_random() % (kHeight + 20) / (1 + _random() % 4));
        static constexpr int kKeys[] = {9, 13, 16, 'A', 0x1B, 0x25};
        char szTitle[TESSEL_TITLE_SIZE];
        switch (_random() % 12) {
            case 0:
            case 1:
                return TESSEL_CALL(library, tessel_OpenURL)(_urls[_random() % _urls.size()].c_str());
            case 2:
            case 3:
                return library.Get<void()>(kPlainCalls[_random() % std::size(kPlainCalls)])();
            case 4:
                return TESSEL_CALL(library, tessel_GetTitle)(szTitle);
            case 5:
                return static_cast<void>(library.Send(kKeyEvents, kKeys[_random() % std::size(kKeys)]));
            case 6:
            case 7:
                return TESSEL_CALL(library, tessel_Render)(_buffer.data());
            case 8:
            case 9:
                return std::this_thread::sleep_for(std::chrono::microseconds(_random() % 20000));
            default:
                library.Send(kMouseEvents, x, y);
        }
    }

    void Start(Library &library) {
        g_bDown = false;
        ASSERT_EQ(TESSEL_CALL(library, tessel_Init)(this, kWidth, kHeight), 1);
        TESSEL_CALL(library, tessel_SetCallback)(TESSEL_CALLBACK_CHANGED, OnChanged);
    }

    // One load, with everything that comes between it and the unload.
    void Live() {
        Clock::time_point start;
        {
            Library library;
            Start(library);
            // One life in eight is long enough for a refresh.
            for (auto i = _random() % (_random() % 8 ? 60 : 600); i > 0; --i)
                DoSomething(library);
            start = Clock::now();
            if (_random() % 4) {
                TESSEL_CALL(library, tessel_ShutDown)();
                g_bDown = true;
                const platform_FetchCounts counts = library.Counts();
                EXPECT_EQ(counts.pages_running + counts.images_running, 0u);
                _nLoaded += counts.pages_loaded + counts.images_loaded;
            }
        }
        g_bDown = true;
        EXPECT_LT(Clock::now() - start, kLongestEnd);
        // The server has seen the ends of all connections, and has closed them too.
        for (; _nTaken < _server.nAccepted; ++_nTaken)
            _server.TakeRequest();
    }

    LoopbackServer _server;
    int _nTaken = 0;
    std::vector<std::string> _urls;
    std::vector<uint32_t> _buffer = std::vector<uint32_t>(kWidth * kHeight);
    std::mt19937 _random{NumberFrom("TESSEL_SOAK_SEED", 20260701)};
    uint32_t _nLoaded = 0;
};

}  // namespace

// Several hundred loads in one life, and everything that was started has ended one way or another.
TEST_F(SoakTest, LastLoadWins) {
    {
        Library library;
        Start(library);
        for (int i = 0; i < 1500; ++i)
            DoSomething(library);
        library.Load("short.html");
        EXPECT_GT(library.Counts().pages_loaded + library.Counts().pages_failed, 100u);
        EXPECT_GT(g_nCallbacks, 50u);
        char szTitle[TESSEL_TITLE_SIZE] = "";
        TESSEL_CALL(library, tessel_GetTitle)(szTitle);
        EXPECT_STREQ(szTitle, "short");
    }
    Library library;
    Start(library);
    library.Load(("http://" + _server.strAddress + "/good.htm").c_str());
    EXPECT_EQ(library.Counts().images_loaded, 7u) << "good ones, slow ones and late ones";
    EXPECT_EQ(library.Counts().images_failed, 6u);
}

TEST_F(SoakTest, NothingStaysBehind) {
    // What several heaps keep for later would hide what is lost.
    mallopt(M_ARENA_MAX, 1);
    const size_t nThreads = CountEntries("/proc/self/task"), nFiles = CountEntries("/proc/self/fd");
    for (int i = 0; i < kWarmUp; ++i)
        Live();
    const size_t nResident = ResidentKiB();
    [[maybe_unused]] const size_t nHeap = mallinfo2().uordblks;
    const auto end = Clock::now() + std::chrono::seconds(NumberFrom("TESSEL_SOAK_SECONDS", 2));
    int nLives = 0;
    for (; (Clock::now() < end || nLives < kWarmUp) && !HasFailure(); ++nLives) {
        Live();
        EXPECT_EQ(CountEntries("/proc/self/task"), nThreads) << "life " << nLives;
        EXPECT_EQ(CountEntries("/proc/self/fd"), nFiles) << "life " << nLives;
    }
    const size_t nNow = ResidentKiB();
#ifdef NDEBUG
    EXPECT_LT(nNow, nResident + kSlackKiB);
    EXPECT_LT(mallinfo2().uordblks, nHeap + kSlackOfHeap);
#endif
    EXPECT_GT(_nLoaded, 0u);
    EXPECT_GT(g_nCallbacks, 0u);
    EXPECT_EQ(dlopen(TESSEL_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr)
        << "something keeps the library loaded";
    printf("%d loads of the library, %u pages and pictures; %zu KiB at first, %zu now\n", nLives, _nLoaded,
           nResident, nNow);
}
