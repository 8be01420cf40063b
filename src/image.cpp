#include "image.h"

#include <algorithm>
#include <memory>
#include <new>

#include "frame.h"
#include "gfx.h"
#include "hyperlink.h"
#include "imagehyperlink.h"
#include "mainframe.h"
#include "page.h"
#include "table.h"

namespace {

constexpr uint32_t kPlaceholderColor = 0x4C80AF;
// The icon of the placeholder stands this far in from its corner, and a placeholder without a size is so much
// wider and higher than the icon.
constexpr int kIconInset = 5;
constexpr int kIconRoom = 12;

// The icons, a digit for each pixel.
constexpr const char *kLoadingRows[] = {
    "88888888888888", "8fffffffffff70", "8f88888fffff70", "8f89990fffff70",
    "8f89990fffff70", "8f89990fffff70", "8f80000f888f70", "8ffffff8222070",
    "8ffffff8222070", "8ffff8f8222070", "8fff8c0f000f70", "8ff8ccc0ffff70",
    "8f8ccccc0fff70", "8f0000000fff70", "87777777777770", "00000000000000",
};

constexpr const char *kBrokenRows[] = {
    "8888888888888888888888888887", "8000000000000000000000000007", "8000000000000000000000000007",
    "8000000000000000000000000007", "8000000000000000000000000007", "8000000000000000000000000007",
    "8000000000000000000000000007", "8000000888888888888880000007", "80000008fffffffffff780000007",
    "80000008fffffffffff780000007", "80000008fffffffffff780000007", "80000008fffffffffff780000007",
    "80000008fff99ff99ff780000007", "80000008ffff9999fff780000007", "80000008fffff99ffff780000007",
    "80000008ffff9999fff780000007", "80000008fff99ff99ff780000007", "80000008fffffffffff780000007",
    "80000008fffffffffff780000007", "80000008fffffffffff780000007", "80000008fffffffffff780000007",
    "8000000877777777777780000007", "8000000888888888888880000007", "8000000000000000000000000007",
    "8000000000000000000000000007", "8000000000000000000000000007", "8000000000000000000000000007",
    "8000000000000000000000000007", "8000000000000000000000000007", "7777777777777777777777777777",
};

struct IconBitmap {
    uint16_t wId;
    int nWidth;
    int nHeight;
    const char *const *lpszRows;
};

constexpr IconBitmap kIcons[] = {
    {ICON_LOADING, 14, 16, kLoadingRows},
    {ICON_BROKEN, 28, 30, kBrokenRows},
};

uint32_t IconColor(char cDigit) {
    switch (cDigit) {
        case '2':
            return 0x008000;
        case '7':
            return 0xC0C0C0;
        case '8':
            return 0x808080;
        case '9':
            return 0xFF0000;
        case 'c':
            return 0x0000FF;
        case 'f':
            return 0xFFFFFF;
        default:
            return 0x000000;
    }
}

}  // namespace

Image::Image(Page *lpPage, const char *lpszURL, int nWidth, int nHeight)
    : PageItem(lpPage, 0),
      Resource(lpPage ? lpPage->_lpFrame : nullptr, lpszURL, ACCEPT_TEXT | ACCEPT_IMAGE, METHOD_GET),
      _lpCell(nullptr),
      _nWantWidth(nWidth),
      _nWantHeight(nHeight) {
    _lpHolder = lpPage;
    if (lpPage && lpPage->_lpCurTable && lpPage->_lpCurTable->lpllCurCol)
        _lpCell = lpPage->_lpCurTable->lpllCurCol->lpData;
    _rc.w = nWidth >= 0 ? nWidth : g_lpMainFrame->_lpIconLoading->_rc.w + kIconRoom;
    _rc.h = nHeight >= 0 ? nHeight : g_lpMainFrame->_lpIconLoading->_rc.h + kIconRoom;
}

Image::~Image() {
    SetPixels(nullptr, true);
}

void Image::SetPixels(uint32_t *lpPixels, bool bOwned) {
    if (_bOwnsPixels)
        delete[] _lpPixels;
    _lpPixels = lpPixels;
    _bOwnsPixels = bOwned;
}

void Image::Render(uint32_t *lpBuffer) {
    const Size clip = ClippedSize();
    if (clip.w <= 0 || clip.h <= 0)
        return;
    if (!_bDone)
        RenderPlaceholder(lpBuffer, clip.w, clip.h);
    else if (_lpPixels)
        gfx_Blit(_lpPixels, _rc.x, _rc.y, clip.w, clip.h, _rc.w, lpBuffer, 1);
}

// The icon is cut at the Page's edges, not by the box.
void Image::RenderPlaceholder(uint32_t *lpBuffer, int w, int h) const {
    gfx_Rect(kPlaceholderColor, _rc.x, _rc.y, w, h, lpBuffer);
    const Image *lpIcon = g_lpMainFrame->_lpIconLoading;
    const int x = _rc.x + kIconInset;
    const int y = _rc.y + kIconInset;
    const Size &visible = GetPage()->_szVisible;
    if (lpIcon->_lpPixels)
        gfx_Blit(lpIcon->_lpPixels, x, y, std::min(lpIcon->_rc.w, visible.w - x),
                 std::min(lpIcon->_rc.h, visible.h - y), lpIcon->_rc.w, lpBuffer, 1);
}

void Image::PlaceInLine(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
                        int *lpnWidth) {
    PlaceBox(this, lppLine, nLeft, lpnUsed, lpnLineHeight, lpPen, lpnWidth);
}

void Image::OnData() {
    if (IsCancelled())
        return;
    if (!Decode())
        LoadResourceBitmap(ICON_BROKEN);
    _bDone = 1;
    if (_lpCell) {
        _lpCell->_lpTable->RaiseMinimum(_lpCell, _rc.w);
        _lpCell->_nMinHeight = std::max(_lpCell->_nMinHeight, _rc.h);
    }
}

// The picture in the size aimed at. With one side given, the other keeps the picture's proportions.
bool Image::Decode() {
    if (!_lpData || !_lpfnDecode || !_lpfnDecode(this, _lpData, _dwLength))
        return false;
    const int64_t nWidth = _rc.w;
    const int64_t nHeight = _rc.h;
    if (_nWantWidth < 0 && _nWantHeight < 0) {
        _nWantWidth = _rc.w;
        _nWantHeight = _rc.h;
    } else if (_nWantWidth < 0) {
        _nWantWidth = static_cast<int32_t>(std::max<int64_t>(_nWantHeight * nWidth / nHeight, 1));
    } else if (_nWantHeight < 0) {
        _nWantHeight = static_cast<int32_t>(std::max<int64_t>(_nWantWidth * nHeight / nWidth, 1));
    }
    return (_nWantWidth == _rc.w && _nWantHeight == _rc.h) || Stretch();
}

// Each pixel is the nearest one of the source, taken as it stands, so that what is transparent stays so. False for a size
// that is not to be had.
bool Image::Stretch() {
    PixelArray target(_nWantWidth, _nWantHeight);
    const std::unique_ptr<int[]> lpColumns(new (std::nothrow) int[static_cast<size_t>(_nWantWidth)]);
    if (!target || !lpColumns)
        return false;
    const int64_t nWidth = _rc.w;
    const int64_t nHeight = _rc.h;
    for (int x = 0; x < _nWantWidth; ++x)
        lpColumns[static_cast<size_t>(x)] = static_cast<int>(x * nWidth / _nWantWidth);
    uint32_t *lpTarget = target.Get();
    for (int y = 0; y < _nWantHeight; ++y) {
        const uint32_t *lpRow = _lpPixels + y * nHeight / _nWantHeight * nWidth;
        for (int x = 0; x < _nWantWidth; ++x)
            *lpTarget++ = lpRow[lpColumns[static_cast<size_t>(x)]];
    }
    target.GiveTo(this);
    return true;
}

void Image::OnTimeout() {
    _lpFrame->OnResourceDone(this);
}

void Image::OnCancelled() {}

// The broken icons of a page, of which there may be many, are all the one of MainFrame.
void Image::LoadResourceBitmap(uint16_t wId) {
    const Image *lpShared = wId == ICON_BROKEN ? g_lpMainFrame->_lpIconBroken : nullptr;
    if (lpShared && lpShared->_lpPixels) {
        _rc.w = lpShared->_rc.w;
        _rc.h = lpShared->_rc.h;
        SetPixels(lpShared->_lpPixels, false);
        return;
    }
    for (const IconBitmap &icon : kIcons) {
        if (icon.wId != wId)
            continue;
        _rc.w = icon.nWidth;
        _rc.h = icon.nHeight;
        SetPixels(new uint32_t[static_cast<size_t>(icon.nWidth) * static_cast<size_t>(icon.nHeight)], true);
        uint32_t *lpPixel = _lpPixels;
        for (int nRow = 0; nRow < icon.nHeight; ++nRow) {
            for (int nColumn = 0; nColumn < icon.nWidth; ++nColumn)
                *lpPixel++ = IconColor(icon.lpszRows[nRow][nColumn]);
        }
    }
}

// A picture without a usable SRC is broken from the start, and nothing is fetched.
int OnTagImg(Page *lpPage, TagEntry *, TagAttributes *lpAttributes, const char **, int *) {
    char *lpszSrc = nullptr;
    int nWidth = -1;
    int nHeight = -1;
    for (int i = 0; i < lpAttributes->_wCount; ++i) {
        char *lpszValue = lpAttributes->_aszValues[i];
        const int nValue = std::min(ParseInt(lpszValue), kMaxAttributeLength);
        if (lpAttributes->Is(i, "SRC"))
            lpszSrc = lpszValue;
        else if (lpAttributes->Is(i, "HEIGHT") && nValue > 0)
            nHeight = nValue;
        else if (lpAttributes->Is(i, "WIDTH") && nValue > 0)
            nWidth = nValue;
    }
    Image *lpImage;
    if (lpPage->_lpCurHyperlink) {
        lpImage = new ImageHyperlink(lpPage, nullptr, nWidth, nHeight);
        lpPage->_lpCurHyperlink->AddChild(lpImage);
    } else {
        lpImage = new Image(lpPage, nullptr, nWidth, nHeight);
    }
    lpImage->_lpfnDecode = lpszSrc ? FindDecoder(lpszSrc) : nullptr;
    if (!lpImage->_lpfnDecode) {
        lpImage->_bDone = 1;
        lpImage->LoadResourceBitmap(ICON_BROKEN);
    }
    Line *lpLine = lpPage->_lpLines->lpData;
    if (TableCell *lpCell = lpLine->_lpCell) {
        lpCell->_nMinWidth = std::max(lpCell->_nMinWidth, lpImage->_nWantWidth);
        lpCell->_nRowWidth = AddLengths(lpCell->_nRowWidth, lpImage->_nWantWidth);
    }
    lpLine->AddItem(lpImage);
    lpPage->AddChild(lpImage);
    if (!lpImage->_bDone && !lpPage->IsCancelled()) {
        lpImage->_lpszURL = StrDup(lpszSrc);
        lpPage->AddFetch(lpImage);
    }
    return 0;
}
