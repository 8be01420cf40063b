// The library as a host meets it: loaded from its file, used through the symbols that it shows, unloaded
// again.
#include <unistd.h>

#include <atomic>
#include <vector>

#include "loaded_library.h"

static std::atomic<int> g_nCallbacks{0};

TEST_F(LibraryTest, TakesAHostThroughTheLifeOfAPage) {
    Library library;
    auto *lpfnInit = TESSEL_CALL(library, tessel_Init);
    EXPECT_EQ(lpfnInit(this, 80, 0) + lpfnInit(this, -1, 60) + lpfnInit(nullptr, 80, 60), 0);
    g_nCallbacks = 0;
    for (const int nSlot : {int{TESSEL_CALLBACK_CHANGED}, 5, -1})
        TESSEL_CALL(library, tessel_SetCallback)(nSlot, [](int) { ++g_nCallbacks; });
    std::filesystem::create_directory("cache");
    std::ofstream("cache/jbcf-left") << "by a writer that has crashed";
    std::filesystem::last_write_time("cache/jbcf-left", std::filesystem::file_time_type());
    ASSERT_EQ(lpfnInit(this, 80, 60), 1);
    EXPECT_FALSE(std::filesystem::exists("cache/jbcf-left")) << "the cache is purged";
    EXPECT_EQ(lpfnInit(this, 100, 100), 0) << "it runs already";
    std::vector<uint32_t> buffer(80 * 60, 0x12345678);
    TESSEL_CALL(library, tessel_Render)(buffer.data());
    EXPECT_EQ(buffer, std::vector<uint32_t>(80 * 60, 0x12345678)) << "nothing to paint yet";
    library.Load("page.html");
    TESSEL_CALL(library, tessel_Render)(buffer.data());
    EXPECT_TRUE(buffer.front() == 0x336699 && buffer.back() == 0x336699);
    char szTitle[TESSEL_TITLE_SIZE] = "";
    TESSEL_CALL(library, tessel_GetTitle)(szTitle);
    EXPECT_STREQ(szTitle, "A page");
    TESSEL_CALL(library, tessel_ShutDown)();
    EXPECT_EQ(g_nCallbacks, 1);
    EXPECT_EQ(library.Counts().pages_loaded, 1u);
}

namespace {

Library *g_lpLibrary;
std::string g_strMisuse;

// Calls every function but those that begin and end a life. Returns what a call without effect would not have done.
std::string CallEverything(Library &library) {
    const platform_FetchCounts before = library.Counts();
    std::string strEffects =
        library.Send(kMouseEvents, uint16_t{1}, uint16_t{1}) + library.Send(kKeyEvents, 37);
    for (const char *lpszName : kPlainCalls)
        library.Get<void()>(lpszName)();
    uint32_t dwPixel = 7;
    char cTitle = 'x';
    TESSEL_CALL(library, tessel_SetSize)(5, 5);
    TESSEL_CALL(library, tessel_OpenURL)("page.html");
    TESSEL_CALL(library, tessel_Render)(&dwPixel);
    TESSEL_CALL(library, tessel_GetTitle)(&cTitle);
    const platform_FetchCounts after = library.Counts();
    if (memcmp(&before, &after, sizeof before) != 0)
        strEffects += " loads";
    return strEffects + (dwPixel == 7 ? "" : " paints") + (cTitle == 'x' ? "" : " tells the title");
}

// A call against the rules: a build with assertions stops there, another one does what the block expects.
#ifdef NDEBUG
#define EXPECT_STOP_OR(...) __VA_ARGS__
#else
#define EXPECT_STOP_OR(...) EXPECT_DEATH(__VA_ARGS__, "Assertion")
#endif

// On a thread of the library; what it does there is against the rules, the life of the library included.
void MisuseCallback(int) {
    g_strMisuse += g_lpLibrary->Counts().pages_running ? " runs" : CallEverything(*g_lpLibrary);
    TESSEL_CALL(*g_lpLibrary, tessel_SetCallback)(TESSEL_CALLBACK_CHANGED, nullptr);
    TESSEL_CALL(*g_lpLibrary, tessel_ShutDown)();
    g_strMisuse += TESSEL_CALL(*g_lpLibrary, tessel_Init)(g_lpLibrary, 9, 9) ? " starts" : "";
    ++g_nCallbacks;
}

void ShutDownInCallback(int) {
    ++g_nCallbacks;
    TESSEL_CALL(*g_lpLibrary, tessel_ShutDown)();
#ifdef NDEBUG
    g_strMisuse += CallEverything(*g_lpLibrary);
    g_strMisuse += TESSEL_CALL(*g_lpLibrary, tessel_Init)(g_lpLibrary, 9, 9) ? " starts" : "";
#endif
}

void ReplaceInCallback(int) {
    ++g_nCallbacks;
    TESSEL_CALL(*g_lpLibrary, tessel_SetCallback)(TESSEL_CALLBACK_CHANGED, ShutDownInCallback);
}

// A library that runs, without a page.
class MisuseTest : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        // A copy of the process would have the timer's locks without its thread.
        testing::GTEST_FLAG(death_test_style) = "threadsafe";
        g_lpLibrary = &library;
        g_nCallbacks = 0;
        g_strMisuse.clear();
        ASSERT_EQ(TESSEL_CALL(library, tessel_Init)(this, 1, 1), 1);
    }
    // A press beside everything changes the picture as far as the library knows.
    void Press() { TESSEL_CALL(library, tessel_OnLMouseDown)(1, 1); }
    Library library;
};

}  // namespace

TEST_F(MisuseTest, CallsOnAThreadOfTheLibraryDoNothing) {
    TESSEL_CALL(library, tessel_SetCallback)(TESSEL_CALLBACK_CHANGED, MisuseCallback);
    for (int i = 1; i <= 3; ++i) {
        library.Load("page.html");
        for (int nWait = 0; nWait < 5000 && g_nCallbacks < i; ++nWait)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_EQ(g_nCallbacks, i) << "the callback is still set, and the library runs";
    }
    TESSEL_CALL(library, tessel_ShutDown)();
    EXPECT_EQ(g_strMisuse, "");
}

TEST_F(MisuseTest, ACallbackOnTheHostsThreadReplacesItselfAndShutsDown) {
    library.Load("page.html");
    TESSEL_CALL(library, tessel_SetCallback)(TESSEL_CALLBACK_CHANGED, ReplaceInCallback);
    Press();
    EXPECT_EQ(g_nCallbacks, 1);
    Press();
    EXPECT_EQ(g_nCallbacks, 2) << "the other one";
    EXPECT_STOP_OR({ EXPECT_EQ(CallEverything(library) + g_strMisuse, ""); });
    EXPECT_EQ(g_nCallbacks, 2) << "none after the shut down";
}

TEST_F(MisuseTest, UrlsOfAMegabyteFailLikeMissingPages) {
    const std::string strLong(1 << 20, 'a');
    uint32_t nFailed = 0;
    for (const std::string &strURL :
         {strLong, "file://" + strLong, "http://" + strLong, "http://127.0.0.1/" + strLong,
          "127.0.0.1/a?" + strLong, strLong + "/a", std::string(1 << 20, '/')}) {
        library.Load(strURL.c_str());
        EXPECT_EQ(library.Counts().pages_failed, ++nFailed) << strURL.substr(0, 20);
    }
    for (int i = 0; i < 3; ++i)
        TESSEL_CALL(library, tessel_Prev)();
    library.WaitUntilLoaded();
    TESSEL_CALL(library, tessel_ShutDown)();
}

TEST_F(MisuseTest, NullAndCallsAfterTheEndDoNothing) {
    EXPECT_STOP_OR({ TESSEL_CALL(library, tessel_OpenURL)(nullptr); });
    library.Load("page.html");
    EXPECT_STOP_OR({ TESSEL_CALL(library, tessel_Render)(nullptr); });
    EXPECT_STOP_OR({ TESSEL_CALL(library, tessel_GetTitle)(nullptr); });
    TESSEL_CALL(library, tessel_ShutDown)();
    EXPECT_STOP_OR({ EXPECT_EQ(CallEverything(library), ""); });
    EXPECT_STOP_OR({ EXPECT_EQ(TESSEL_CALL(library, tessel_Init)(this, 1, 1), 0); });
    EXPECT_STOP_OR({ TESSEL_CALL(library, tessel_SetCallback)(TESSEL_CALLBACK_CHANGED, MisuseCallback); });
    EXPECT_STOP_OR({ TESSEL_CALL(library, tessel_ShutDown)(); });
    EXPECT_EQ(library.Counts().pages_loaded + library.Counts().pages_failed, 1u) << "a null URL is none";
}

TEST_F(LibraryTest, CallsBeforeTheBeginningDoNothing) {
    Library library;
    EXPECT_STOP_OR({ EXPECT_EQ(CallEverything(library), ""); });
    TESSEL_CALL(library, tessel_ShutDown)();
    EXPECT_STOP_OR({ EXPECT_EQ(TESSEL_CALL(library, tessel_Init)(this, 1, 1), 0); });
}

static bool g_bExits;

// Asked by the sanitizer of leaks. What a process takes with it is none.
extern "C" int __lsan_is_turned_off() {
    return g_bExits;
}

// The clipboard is asked in the middle of an event, for whose end a worker waits by then.
TEST_F(MisuseTest, HostMayExitInsideItsClipboard) {
    std::ofstream("form.html") << "<FORM ACTION=x><INPUT NAME=a></FORM>";
    const platform_HostServices services = {nullptr,
                                            [](void *) -> const char * {
                                                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                                                alarm(10);
                                                g_bExits = true;
                                                exit(7);
                                            },
                                            nullptr, nullptr};
    TESSEL_CALL(library, platform_SetHostServices)(&services);
    // Until the page comes after the key, not before it.
    const auto Paste = [&] {
        for (int i = 0; i < 100; ++i) {
            library.Load("form.html");
            TESSEL_CALL(library, tessel_OnKeyDown)(9);
            TESSEL_CALL(library, tessel_OnKeyDown)(17);
            auto *lpfnKey = TESSEL_CALL(library, tessel_OnKeyDown);
            TESSEL_CALL(library, tessel_OpenURL)("page.html");
            lpfnKey('V');
        }
    };
    EXPECT_EXIT(Paste(), testing::ExitedWithCode(7), "");
}
