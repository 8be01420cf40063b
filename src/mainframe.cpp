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
    DestroyDefaultFonts();
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
    if (_lpFontNormal->_lpCharInfo && _lpFontSmallBold->_lpCharInfo && _lpFontBold->_lpCharInfo)
        return true;
    DestroyDefaultFonts();
    return false;
}

void MainFrame::DestroyDefaultFonts() {
    for (Font **lplpFont : {&_lpFontNormal, &_lpFontBold, &_lpFontSmallBold}) {
        delete *lplpFont;
        *lplpFont = nullptr;
    }
    List_Destroy(_lpCharInfos);
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
