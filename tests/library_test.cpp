// The library as a host meets it: loaded from its file, used through the symbols that it shows, unloaded
// again.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tessel.h"
#include "tessel_host.h"

namespace {

std::atomic<int> g_nCallbacks{0};

void CountCallback(int) {
    ++g_nCallbacks;
}

// One load of the library, with the functions that these tests call.
class Library {
  public:
    Library() : _hLibrary(dlopen(TESSEL_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_TRUE(_hLibrary) << dlerror();
    }
    ~Library() {
        if (_hLibrary)
            dlclose(_hLibrary);
    }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;

    template <class Function>
    Function *Get(const char *lpszName) {
        void *lpSymbol = dlsym(_hLibrary, lpszName);
        EXPECT_TRUE(lpSymbol) << lpszName;
        return reinterpret_cast<Function *>(lpSymbol);
    }

    platform_FetchCounts Counts() {
        platform_FetchCounts counts;
        Get<decltype(platform_GetFetchCounts)>("platform_GetFetchCounts")(&counts);
        return counts;
    }

    void WaitUntilLoaded() {
        for (int i = 0; i < 5000 && Counts().pages_running; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_EQ(Counts().pages_running, 0u);
    }

  private:
    void *_hLibrary;
};

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

class LibraryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char szFolder[] = "/tmp/tessel-test-XXXXXX";
        _strFolder = mkdtemp(szFolder);
        std::filesystem::current_path(_strFolder);
        std::ofstream("page.html") << "<TITLE>A page</TITLE><BODY BGCOLOR=#336699>text";
    }
    void TearDown() override {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(_strFolder);
    }
    std::string _strFolder;
};

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

#ifdef NDEBUG
// A build with assertions stops at each of these.
TEST_F(LibraryTest, CallsOutOfOrderDoNothing) {
    Library library;
    int nWindow = 0;
    uint32_t dwPixel = 7;
    const auto CallAll = [&] {
        library.Get<decltype(tessel_Render)>("tessel_Render")(&dwPixel);
        library.Get<decltype(tessel_OpenURL)>("tessel_OpenURL")("page.html");
        EXPECT_EQ(library.Get<decltype(tessel_OnSysKeyDown)>("tessel_OnSysKeyDown")(37), 0);
        library.Get<decltype(tessel_Invalidate)>("tessel_Invalidate")();
        EXPECT_EQ(library.Counts().pages_running, 0u);
    };
    CallAll();
    ASSERT_EQ(library.Get<decltype(tessel_Init)>("tessel_Init")(&nWindow, 1, 1), 1);
    library.Get<decltype(tessel_Render)>("tessel_Render")(nullptr);
    library.Get<decltype(tessel_OpenURL)>("tessel_OpenURL")(nullptr);
    library.Get<decltype(tessel_GetTitle)>("tessel_GetTitle")(nullptr);
    library.Get<decltype(tessel_ShutDown)>("tessel_ShutDown")();
    library.Get<decltype(tessel_ShutDown)>("tessel_ShutDown")();
    EXPECT_EQ(library.Get<decltype(tessel_Init)>("tessel_Init")(&nWindow, 1, 1), 0) << "once for each load";
    CallAll();
    EXPECT_EQ(dwPixel, 7u);
}
#endif
