// What the fuzz targets share: how an input is taken apart, how a broken promise ends a run, and an engine that depends
// on nothing but its input.
//
// That engine runs on one thread: what would be threads waits until RunThreads. It knows no network, no files and no
// fonts but what World says, so that every run of an input is the same.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "element.h"

// --- What a target defines ---

// One run. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *lpData, size_t nSize);
// Inputs to begin with, which also run in the ordinary tests.
std::vector<std::string> Seeds();

// --- Inputs and promises ---

#define REQUIRE(condition) ((condition) ? void() : Fail(#condition, __FILE__, __LINE__))
[[noreturn]] void Fail(const char *lpszPromise, const char *lpszFile, int nLine);

// Takes an input apart from the front. Behind its end everything is 0.
class Input {
  public:
    Input(const uint8_t *lpData, size_t nSize) : _lpPos(lpData), _lpEnd(lpData + nSize) {}

    bool AtEnd() const { return _lpPos == _lpEnd; }
    uint8_t Byte() { return AtEnd() ? uint8_t{0} : *_lpPos++; }
    int OddNumber() { return 2 * (Byte() % 64) + 1; }
    std::string Rest() {
        return {reinterpret_cast<const char *>(_lpPos), static_cast<size_t>(_lpEnd - _lpPos)};
    }

  private:
    const uint8_t *_lpPos;
    const uint8_t *_lpEnd;
};

// --- The platform ---

struct World {
    std::map<std::string, std::string> files;  // what a page finds under a name
    // What every server answers, in pieces of so many bytes at most; null: nobody answers. And what was sent.
    const std::string *lpResponse = nullptr;
    size_t nPiece = 1;
    std::string strSent;
    // The directory of the cache: contents and times. It is there once somebody has made it.
    bool bCache = false;
    std::map<std::string, std::pair<std::string, int64_t>> cache;
    uint32_t dwTicks = 0;
};
extern World g_world;

// Runs what would be threads, in the order of their starts, until none is left. False if there was none.
bool RunThreads();

// --- The engine ---

// The library of one host, from attach to the end, at which nothing of it may be left. The buffer has guard zones above,
// below and right of the picture.
class Engine {
  public:
    Engine(int nWidth, int nHeight);
    ~Engine();
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    // Loads a document, with all that it asks for.
    void Show(const std::string &strDocument);
    // Paints what is dirty; then everything, which must not make a difference.
    void Paint();
    // Looks at every Frame and at all that stands in it.
    void Check() const;

  private:
    void Render();

    int _nWidth, _nHeight;
    std::vector<uint32_t> _buffer;
};

// A 24-bit bitmap.
std::string MakeBitmap(int nWidth, int nHeight);
