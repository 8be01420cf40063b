// The library as a host has it: loaded from its file, used through the symbols that it shows, unloaded again.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tessel.h"
#include "tessel_host.h"

// The exports of one kind, in the order of what a host sees.
constexpr const char *kMouseEvents[] = {"tessel_OnMouseMove", "tessel_OnLMouseDown", "tessel_OnLMouseDrag",
                                        "tessel_OnLMouseUp",  "tessel_OnRMouseDown", "tessel_OnRMouseDrag",
                                        "tessel_OnRMouseUp"};
constexpr const char *kKeyEvents[] = {"tessel_OnKeyDown", "tessel_OnChar", "tessel_OnKeyUp",
                                      "tessel_OnSysKeyDown", "tessel_OnSysKeyUp"};
constexpr const char *kPlainCalls[] = {"tessel_Prev", "tessel_Next", "tessel_OnCancel", "tessel_Invalidate"};

// One load of the library.
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

    // Sends events; the names of those that something was done with.
    template <class Names, class... Arguments>
    std::string Send(const Names &names, Arguments... arguments) {
        std::string strDone;
        for (const char *lpszName : names)
            strDone += Get<int(Arguments...)>(lpszName)(arguments...) ? lpszName : "";
        return strDone;
    }

    platform_FetchCounts Counts() {
        platform_FetchCounts counts;
        Get<decltype(platform_GetFetchCounts)>("platform_GetFetchCounts")(&counts);
        return counts;
    }

    // Waits until nothing is still to come, for 20 seconds at most.
    void WaitUntilLoaded() {
        for (int i = 0; i < 10000 && Counts().pages_running + Counts().images_running; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_EQ(Counts().pages_running + Counts().images_running, 0u);
    }

    void Load(const char *lpszURL) {
        Get<decltype(tessel_OpenURL)>("tessel_OpenURL")(lpszURL);
        WaitUntilLoaded();
    }

  private:
    void *_hLibrary;
};

// A function of a Library by its name.
#define TESSEL_CALL(library, name) (library).Get<decltype(name)>(#name)

// The current directory is a new one with a page in it, gone after the test.
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

  private:
    std::string _strFolder;
};
