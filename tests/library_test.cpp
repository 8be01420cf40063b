// The library as a host meets it: loaded from its file, used through the symbols that it shows, unloaded
// again.
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <set>
#include <vector>

#include "loaded_library.h"

namespace {

std::atomic<int> g_nCallbacks{0};

void CountCallback(int) {
    ++g_nCallbacks;
}

// The first words of each line that a command prints, the last column of nm among them.
std::set<std::string> RunForLastWords(const std::string &strCommand) {
    std::set<std::string> words;
    FILE *lpPipe = popen(strCommand.c_str(), "r");
    char szLine[1024];
    while (lpPipe && fgets(szLine, sizeof szLine, lpPipe)) {
        std::string strLine(szLine);
        strLine.erase(strLine.find_last_not_of(" \n") + 1);
        words.insert(strLine.substr(strLine.rfind(' ') + 1));
    }
    if (lpPipe)
        pclose(lpPipe);
    return words;
}

}  // namespace

// The list of symbols, the headers and the library agree.
TEST_F(LibraryTest, ShowsItsFunctionsAndNothingElse) {
    const std::set<std::string> listed =
        RunForLastWords("grep -o '[a-z]*_[A-Za-z]*;' '" TESSEL_SOURCE_DIR "/src/tessel.map' | tr -d ';'");
    EXPECT_EQ(listed.size(), 25u);
    EXPECT_EQ(RunForLastWords("nm -D --defined-only '" TESSEL_LIBRARY "'"), listed);
    EXPECT_EQ(RunForLastWords("grep -oh '^TESSEL_API .*(' '" TESSEL_SOURCE_DIR "'/include/*.h | tr -d '('"),
              listed);
    EXPECT_TRUE(
        RunForLastWords("readelf -d '" TESSEL_LIBRARY "' | grep SONAME").contains("[libtessel.so.1]"));
}

TEST_F(LibraryTest, TakesAHostThroughTheLifeOfAPage) {
    Library library;
    int nWindow = 0;
    auto *lpfnInit = library.Get<decltype(tessel_Init)>("tessel_Init");
    EXPECT_EQ(lpfnInit(&nWindow, 80, 0), 0);
    EXPECT_EQ(lpfnInit(&nWindow, -1, 60), 0);
    EXPECT_EQ(lpfnInit(nullptr, 80, 60), 0);
    g_nCallbacks = 0;
    auto *lpfnSetCallback = library.Get<decltype(tessel_SetCallback)>("tessel_SetCallback");
    lpfnSetCallback(TESSEL_CALLBACK_CHANGED, CountCallback);
    lpfnSetCallback(5, CountCallback);
    lpfnSetCallback(-1, CountCallback);
    ASSERT_EQ(lpfnInit(&nWindow, 80, 60), 1);
    EXPECT_EQ(lpfnInit(&nWindow, 100, 100), 0) << "it runs already";

    std::vector<uint32_t> buffer(80 * 60, 0x12345678);
    auto *lpfnRender = library.Get<decltype(tessel_Render)>("tessel_Render");
    lpfnRender(buffer.data());
    EXPECT_EQ(buffer, std::vector<uint32_t>(80 * 60, 0x12345678)) << "nothing to paint yet";

    library.Get<decltype(tessel_OpenURL)>("tessel_OpenURL")("page.html");
    library.WaitUntilLoaded();
    lpfnRender(buffer.data());
    EXPECT_EQ(buffer.front(), 0x336699u);
    EXPECT_EQ(buffer.back(), 0x336699u);
    char szTitle[TESSEL_TITLE_SIZE] = "";
    library.Get<decltype(tessel_GetTitle)>("tessel_GetTitle")(szTitle);
    EXPECT_STREQ(szTitle, "A page");
    library.Get<decltype(tessel_ShutDown)>("tessel_ShutDown")();
    EXPECT_EQ(g_nCallbacks, 1);
    EXPECT_EQ(library.Counts().pages_loaded, 1u);
}

// Each load starts anew; a host may also unload without shutting down, even in the middle of a load.
TEST_F(LibraryTest, LoadsAndUnloadsManyTimes) {
    int nWindow = 0;
    for (int i = 0; i < 20; ++i) {
        Library library;
        ASSERT_EQ(library.Get<decltype(tessel_Init)>("tessel_Init")(&nWindow, 80, 60), 1) << "load " << i;
        library.Get<decltype(tessel_OpenURL)>("tessel_OpenURL")("page.html");
        if (i % 3 == 0)
            library.WaitUntilLoaded();
        if (i % 2 == 0)
            library.Get<decltype(tessel_ShutDown)>("tessel_ShutDown")();
    }
    EXPECT_EQ(dlopen(TESSEL_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr)
        << "something keeps the library loaded";
}

namespace {

Library *g_lpLibrary;
std::string g_strMisuse;

// Calls every function but those that begin and end a life. Returns what a call without effect would not have done.
std::string CallEverything(Library &library) {
    std::string strEffects;
    const platform_FetchCounts before = library.Counts();
    for (const char *lpszName :
         {"tessel_OnMouseMove", "tessel_OnLMouseDown", "tessel_OnRMouseDown", "tessel_OnLMouseUp",
          "tessel_OnRMouseUp", "tessel_OnLMouseDrag", "tessel_OnRMouseDrag"})
        strEffects += library.Get<int(uint16_t, uint16_t)>(lpszName)(1, 1) ? lpszName : "";
    for (const char *lpszName :
         {"tessel_OnChar", "tessel_OnKeyDown", "tessel_OnKeyUp", "tessel_OnSysKeyDown", "tessel_OnSysKeyUp"})
        strEffects += library.Get<int(int)>(lpszName)(37) ? lpszName : "";
    for (const char *lpszName : {"tessel_Prev", "tessel_Next", "tessel_OnCancel", "tessel_Invalidate"})
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
    g_strMisuse += CallEverything(*g_lpLibrary);
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
    void Load(const char *lpszURL) {
        TESSEL_CALL(library, tessel_OpenURL)(lpszURL);
        library.WaitUntilLoaded();
    }
    // A press beside everything changes the picture as far as the library knows.
    void Press() { TESSEL_CALL(library, tessel_OnLMouseDown)(1, 1); }
    Library library;
};

}  // namespace

TEST_F(MisuseTest, CallsOnAThreadOfTheLibraryDoNothing) {
    TESSEL_CALL(library, tessel_SetCallback)(TESSEL_CALLBACK_CHANGED, MisuseCallback);
    for (int i = 1; i <= 3; ++i) {
        Load("page.html");
        for (int nWait = 0; nWait < 5000 && g_nCallbacks < i; ++nWait)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_EQ(g_nCallbacks, i) << "the callback is still set, and the library runs";
    }
    TESSEL_CALL(library, tessel_ShutDown)();
    EXPECT_EQ(g_strMisuse, "");
}

TEST_F(MisuseTest, ACallbackOnTheHostsThreadReplacesItselfAndShutsDown) {
    Load("page.html");
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
        Load(strURL.c_str());
        EXPECT_EQ(library.Counts().pages_failed, ++nFailed) << strURL.substr(0, 20);
    }
    for (int i = 0; i < 3; ++i)
        TESSEL_CALL(library, tessel_Prev)();
    library.WaitUntilLoaded();
    TESSEL_CALL(library, tessel_ShutDown)();
}

TEST_F(MisuseTest, NullAndCallsAfterTheEndDoNothing) {
    EXPECT_STOP_OR({ TESSEL_CALL(library, tessel_Render)(nullptr); });
    EXPECT_STOP_OR({ TESSEL_CALL(library, tessel_OpenURL)(nullptr); });
    Load("page.html");
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
            Load("form.html");
            TESSEL_CALL(library, tessel_OnKeyDown)(9);
            TESSEL_CALL(library, tessel_OnKeyDown)(17);
            auto *lpfnKey = TESSEL_CALL(library, tessel_OnKeyDown);
            TESSEL_CALL(library, tessel_OpenURL)("page.html");
            lpfnKey('V');
        }
    };
    EXPECT_EXIT(Paste(), testing::ExitedWithCode(7), "");
}
