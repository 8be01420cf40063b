// MainFrame: the top Frame and the library's single global object. It holds what the whole library shares.
#pragma once

#include <atomic>

#include "fetch.h"
#include "fontmanager.h"
#include "frame.h"

class Image;

inline constexpr int kCallbackSlots = 5;
inline constexpr int kCallbackChanged = 4;

class MainFrame : public Frame {
  public:
    using Callback = void (*)(int);

    // 1 while the key is held. On the host's thread alone.
    int _bShift = 0;
    int _bCtrl = 0;
    // The turn to fetch: held by a worker for the length of one fetch.
    FetchTurn _hFetchMutex;
    // Set at load and by tessel_Init, and only read afterwards.
    void *hInst;
    void *hWnd = nullptr;
    uint32_t _dwSelColor = 0x506478;
    Font *_lpFontNormal = nullptr;
    Font *_lpFontBold = nullptr;
    Font *_lpFontSmallBold = nullptr;
    // What all glyph sets are made of. It outlives the Pages, whose sets hold on to their part of it.
    GlyphCache _glyphCache;
    // The glyph sets of the default fonts, which all Pages share.
    List<CharInfo> *_lpCharInfos = nullptr;
    // Atomic: the host sets them, workers call them.
    std::atomic<Callback> _alpfnCallback[kCallbackSlots] = {};
    Image *_lpIconLoading = nullptr;
    Image *_lpIconBroken = nullptr;
    // How many Frames an event is under way in, and whether the host is to be told when the last has let go
    // of it. On the host's thread alone.
    int _nEventDepth = 0;
    bool _bNotify = false;

    explicit MainFrame(void *hInstance);
    ~MainFrame() override;

    int OnKeyUp(int key) override;
    int OnKeyDown(int key) override;

    void LoadIcons();
    // False, with no font made, if there is not even a glyph set to be had.
    bool CreateDefaultFonts();

  private:
    void DestroyDefaultFonts();
};

// The one MainFrame: set when the library is loaded, null after tessel_ShutDown.
extern MainFrame *g_lpMainFrame;
