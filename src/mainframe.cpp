#include "mainframe.h"

#include <cassert>

#include "image.h"
#include "page.h"

MainFrame *g_lpMainFrame = nullptr;

namespace {

constexpr int kKeyShift = 0x10;
constexpr int kKeyCtrl = 0x11;

constexpr char kDefaultFace[] = "ARIAL";

}  // namespace

MainFrame::MainFrame(void *hInstance) : Frame(nullptr), hInst(hInstance) {}

// A MainFrame that was never initialised has none of what is destroyed here. What is loading has ended
// before.
MainFrame::~MainFrame() {
    delete _lpIconLoading;
    delete _lpIconBroken;
    delete _lpFontNormal;
    delete _lpFontBold;
    delete _lpFontSmallBold;
    List_Destroy(_lpCharInfos);
}

void MainFrame::LoadIcons() {
    assert(hInst);
    _lpIconLoading = new Image(nullptr, nullptr, 0, 0);
    _lpIconLoading->LoadResourceBitmap(ICON_LOADING);
    _lpIconBroken = new Image(nullptr, nullptr, 0, 0);
    _lpIconBroken->LoadResourceBitmap(ICON_BROKEN);
}

bool MainFrame::CreateDefaultFonts() {
    assert(hWnd);
    _lpFontNormal = NewFont(kDefaultFace, 2, 0, 0, nullptr, &_lpCharInfos);
    _lpFontSmallBold = NewFont(kDefaultFace, 1, 0, STYLE_BOLD, nullptr, &_lpCharInfos);
    _lpFontBold = NewFont(kDefaultFace, 2, 0, STYLE_BOLD, nullptr, &_lpCharInfos);
    return _lpFontNormal->_lpCharInfo && _lpFontSmallBold->_lpCharInfo && _lpFontBold->_lpCharInfo;
}

// Shift and Ctrl are remembered here and go no further.
int MainFrame::OnKeyDown(int key) {
    if (key != kKeyShift && key != kKeyCtrl)
        return Frame::OnKeyDown(key);
    (key == kKeyShift ? _bShift : _bCtrl) = 1;
    return 0;
}

int MainFrame::OnKeyUp(int key) {
    if (key != kKeyShift && key != kKeyCtrl)
        return Frame::OnKeyUp(key);
    (key == kKeyShift ? _bShift : _bCtrl) = 0;
    return 0;
}
