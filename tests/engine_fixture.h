// What the tests of the engine share: an engine with a font of fixed metrics, and pages made of strings.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "mainframe.h"
#include "page.h"
#include "platform/rasterizer.h"
#include "resource.h"

// The bytes of a file; empty if there is none.
std::string Contents(const std::string &strFile);

// Waits, for 20 seconds at most; false if it was in vain.
template <class Condition>
bool WaitUntil(Condition isDone) {
    for (int i = 0; i < 20000 && !isDone(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return isDone();
}

// Whether an action is over within a second: what is promised of cancellations and of the end.
template <class Action>
bool IsSwift(Action act) {
    const auto start = std::chrono::steady_clock::now();
    act();
    return std::chrono::steady_clock::now() - start < std::chrono::seconds(1);
}

// An uncompressed TGA of one colour; its 5 bits of red are all set, so that a pixel is 0xF80000. Only the last
// pixel of the top row is black.
std::string RedTGA(uint8_t bWidth, uint8_t bHeight);

// A Resource that keeps what it gets.
class KeptResource : public Resource {
  public:
    using Resource::Resource;
    void OnData() override {}
    void OnTimeout() override {}
    void OnCancelled() override {}
    std::string Data() const {
        return _lpData ? std::string(reinterpret_cast<const char *>(_lpData), _dwLength) : "(nothing)";
    }
};

// Every character is kWidth pixels wide, whatever its style, and as high as was asked for; its cell is all
// ink. '|' has no width, and '/' reaches 2 pixels into the next character.
class FixedRasterizer : public platform::Rasterizer {
  public:
    static constexpr int kWidth = 10;
    std::atomic<int> nOpened{0};
    std::atomic<int> nDrawn{0};
    bool bFails = false;
    bool bBoxes = false;
    bool Open(const char *, int nHeight, uint16_t, platform::RasterFont *lpFont) override;
    bool Draw(const platform::RasterFont &, int c, platform::CharCell *lpCell) override;
};

// The library as a host has it after tessel_Init, 400 by 300 pixels unless a test asks for another size. The
// buffer has guard rows around it that the tear-down looks at.
class EngineTest : public ::testing::Test {
  public:
    // Waits, for 20 seconds at most, until no worker is left.
    static bool WaitForWorkers();

  protected:
    static constexpr uint32_t kUntouched = 0xDEADBEEF;

    void SetUp() override { StartEngine(400, 300); }
    void TearDown() override { EndEngine(); }
    void StartEngine(int nWidth, int nHeight);
    void EndEngine();
    void StopEngine();
    // After StopEngine, with the buffer of before.
    void RestartEngine(int nWidth = 400, int nHeight = 300);

    uint32_t *Buffer() { return _buffer.data() + kGuard; }
    uint32_t PixelAt(int x, int y) { return Buffer()[y * _nWidth + x]; }
    // How many pixels in a rectangle have this colour.
    int CountPixels(uint32_t dwColor, int x, int y, int w, int h);

    // A file in a folder of the test's own, which is the current directory; gone after the test.
    std::string WriteFile(const std::string &strName, const std::string &strContents);
    // Opens a URL and waits for what comes of it.
    static void Load(const std::string &strURL);
    // The title of the page on show, "-" if there is none.
    static std::string Title();

    FixedRasterizer _rasterizer;

  private:
    static constexpr size_t kGuard = 4096;
    std::vector<uint32_t> _buffer;
    int _nWidth = 0;
    std::string _strFolder;
};

// A page that is parsed and laid out on the calling thread, not shown by any Frame.
class ParsedPage {
  public:
    ParsedPage(const std::string &strHTML, int nWidth, int nHeight = 300);
    Page *operator->() { return _lpPage.get(); }
    Page *Get() { return _lpPage.get(); }

    // One line for each item in document order, "x,y wxh what"; the pieces of a text, indented, instead of
    // its place. What stands behind the size: "text" in quotes, "link" and the text, "anchor" and the URL, or
    // "box".
    std::string Dump() { return Dump(_lpPage.get()); }
    // The same of a page that a Frame shows.
    static std::string Dump(const Page *lpPage);
    static bool IsHyperlink(const Element *lpElement);
    // Also in a link.
    static bool IsText(const Element *lpElement);

  private:
    std::unique_ptr<Page> _lpPage;
};
