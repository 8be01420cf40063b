// A host that never stops: the library is loaded, used at random with framesets and pictures from servers that
// misbehave, shut down or unloaded at any moment, and loaded again. What it is looked at for is what stays behind;
// what goes wrong on the way, the sanitizers see.
//
// TESSEL_SOAK_SECONDS in the environment says how long, in place of the few seconds of an everyday test;
// TESSEL_SOAK_SEED begins with another seed.
#include <malloc.h>

#include <atomic>
#include <random>

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

class SoakTest : public LibraryTest {
  protected:
    static constexpr int kServers = 4;

    void SetUp() override {
        LibraryTest::SetUp();
        std::string strPictures = "<TITLE>pictures</TITLE><A HREF=frames.html>a link to hit</A>";
        for (const LoopbackServer &server : _aServers)
            strPictures += "<IMG SRC=http://" + server.strAddress + "/a.bmp><IMG SRC=missing.jpg WIDTH=20>";
        const std::string strHost = "http://" + _aServers[0].strAddress;
        const std::pair<const char *, std::string> aFiles[] = {
            {"pictures.html", strPictures},
            {"frames.html", "<FRAMESET COLS=40%,60%><FRAME SRC=pictures.html><FRAME SRC=rows.html>"},
            {"rows.html",
             "<FRAMESET ROWS=30,*,90><FRAME SRC=pictures.html><FRAME SRC=missing.html><FRAME SRC=" + strHost +
                 "/page>"},
            {"self.html", "<FRAMESET ROWS=50%,50%><FRAME SRC=self.html><FRAME SRC=rows.html>" + strPictures},
            {"refresh.html", "<META HTTP-EQUIV=REFRESH CONTENT=1 URL=frames.html>" + strPictures},
        };
        for (const auto &[lpszName, strContents] : aFiles) {
            std::ofstream(lpszName) << strContents;
            _urls.push_back(lpszName);
        }
        _urls.insert(_urls.end(), {strHost + "/page", strHost, "", "missing.html"});
    }

    // Servers are slow, close too early, never answer, answer with rubbish, or do as they should.
    Reply RandomReply() {
        const std::string strOk = "HTTP/1.0 200 OK\r\nContent-Type: text/html\r\n\r\n";
        const std::string strFrames =
            strOk + "<FRAMESET COLS=50%,50%><FRAME SRC=pictures.html><FRAME SRC=rows.html>";
        std::string strRubbish(2000, '\0');
        for (char &c : strRubbish)
            c = static_cast<char>(_random());
        const Reply aReplies[] = {{strFrames},
                                  {strOk + "BM" + strRubbish, kClose, 50},
                                  {strOk + "<TITLE>x</TITLE><IMG SRC=a.bmp>", kReset},
                                  {"HTTP/1.0 200 OK\r\nContent-Length: 99999\r\n\r\nBM", kLeave},
                                  {"HTTP/1.0 200", kHold},
                                  {strRubbish, kClose, 100},
                                  {"", kClose}};
        return aReplies[_random() % std::size(aReplies)];
    }

    void DoSomething(Library &library) {
        const auto x = static_cast<uint16_t>(_random() % (kWidth + 20));
        const auto y = static_cast<uint16_t>(_random() % (kHeight + 20));
        static constexpr int kKeys[] = {9, 13, 16, 'A', 0x1B, 0x25};
        const int nKey = kKeys[_random() % std::size(kKeys)];
        char szTitle[TESSEL_TITLE_SIZE];
        switch (_random() % 12) {
            case 0:
            case 1:
                return TESSEL_CALL(library, tessel_OpenURL)(_urls[_random() % _urls.size()].c_str());
            case 2:
                return _random() % 2 ? TESSEL_CALL(library, tessel_Prev)()
                                     : TESSEL_CALL(library, tessel_Next)();
            case 3:
                return _random() % 4 ? TESSEL_CALL(library, tessel_Invalidate)()
                                     : TESSEL_CALL(library, tessel_OnCancel)();
            case 4:
                return TESSEL_CALL(library, tessel_GetTitle)(szTitle);
            case 5:
                TESSEL_CALL(library, tessel_OnChar)(nKey);
                TESSEL_CALL(library, tessel_OnKeyDown)(nKey);
                TESSEL_CALL(library, tessel_OnKeyUp)(nKey);
                return;
            case 6:
            case 7:
                return TESSEL_CALL(library, tessel_Render)(_buffer.data());
            case 8:
            case 9:
                return std::this_thread::sleep_for(std::chrono::microseconds(_random() % 20000));
            default:
                TESSEL_CALL(library, tessel_OnMouseMove)(x, y);
                TESSEL_CALL(library, tessel_OnLMouseDown)(x, y);
                TESSEL_CALL(library, tessel_OnLMouseDrag)(y, x);
                TESSEL_CALL(library, tessel_OnLMouseUp)(x, y);
                TESSEL_CALL(library, tessel_OnRMouseDown)(x, y);
        }
    }

    // One load, with everything that comes between it and the unload.
    void Live() {
        for (LoopbackServer &server : _aServers)
            server.Prescribe(RandomReply());
        g_bDown = false;
        Clock::time_point start;
        {
            Library library;
            ASSERT_EQ(TESSEL_CALL(library, tessel_Init)(this, kWidth, kHeight), 1);
            TESSEL_CALL(library, tessel_SetCallback)(TESSEL_CALLBACK_CHANGED, OnChanged);
            // One life in eight is long enough for a refresh.
            for (auto i = _random() % (_random() % 8 ? 60 : 600); i > 0; --i)
                DoSomething(library);
            start = Clock::now();
            if (_random() % 4) {
                TESSEL_CALL(library, tessel_ShutDown)();
                g_bDown = true;
                _counts = library.Counts();
                EXPECT_EQ(_counts.pages_running + _counts.images_running, 0u);
                _nLoaded += _counts.pages_loaded + _counts.images_loaded;
            }
        }
        g_bDown = true;
        EXPECT_LT(Clock::now() - start, kLongestEnd);
        // The servers have seen the ends of all connections, and have closed them too.
        for (int i = 0; i < kServers; ++i) {
            for (; _anTaken[i] < _aServers[i].nAccepted; ++_anTaken[i])
                _aServers[i].TakeRequest();
        }
    }

    LoopbackServer _aServers[kServers];
    int _anTaken[kServers] = {};
    std::vector<std::string> _urls;
    std::vector<uint32_t> _buffer = std::vector<uint32_t>(kWidth * kHeight);
    std::mt19937 _random{NumberFrom("TESSEL_SOAK_SEED", 20260701)};
    platform_FetchCounts _counts = {};
    uint32_t _nLoaded = 0;
};

}  // namespace

TEST_F(SoakTest, NothingStaysBehind) {
    // What several heaps keep for later would hide what is lost.
    mallopt(M_ARENA_MAX, 1);
    for (int i = 0; i < kWarmUp; ++i)
        Live();
    const size_t nThreads = CountEntries("/proc/self/task");
    const size_t nFiles = CountEntries("/proc/self/fd");
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
