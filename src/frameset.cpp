#include "frameset.h"

#include <algorithm>

#include "frame.h"
#include "page.h"

namespace {

// Pixels, or a part of nWhole, cut towards zero. What is no number is 0, which leaves the size open.
int ParseSize(const char *lpszSize, int nWhole) {
    const int nSize = ParseInt(lpszSize);
    const double dPixels = strchr(lpszSize, '%') ? nWhole * (nSize / 100.0) : nSize;
    return static_cast<int>(std::clamp<double>(dPixels, -kMaxAttributeLength, kMaxAttributeLength));
}

// Cuts a list of sizes up, in place. Returns how many there are, those beyond the last division not counted.
uint16_t ParseSizes(char *lpszSizes, int nWhole, int *lpSizes) {
    char *alpszPieces[kMaxDivisions];
    uint16_t wCount = kMaxDivisions;
    SplitString(lpszSizes, ',', alpszPieces, &wCount);
    for (int i = 0; i < wCount; ++i)
        lpSizes[i] = ParseSize(alpszPieces[i], nWhole);
    return wCount;
}

}  // namespace

Frameset::Frameset(Frame *lpFrame) : _lpFrame(lpFrame) {}

Frameset::~Frameset() {
    List_DestroyArrays(_lpSources);
}

void Frameset::SetCols(const int *lpSizes, uint16_t wCount) {
    if (!_wCount)
        _wCount = wCount;
    for (int i = 0; i < wCount; ++i) {
        _aSize[i].w = lpSizes[i];
        _aptOrigin[i + 1].x = _aptOrigin[i].x + lpSizes[i];
    }
}

void Frameset::SetRows(const int *lpSizes, uint16_t wCount) {
    if (!_wCount)
        _wCount = wCount;
    for (int i = 0; i < wCount; ++i) {
        _aSize[i].h = lpSizes[i];
        _aptOrigin[i + 1].y = _aptOrigin[i].y + lpSizes[i];
    }
}

// NB: a division whose width was not given gets the Frame's, and only one that has a width gets the Frame's
// height, so that a column of size 0 stays 0 high.
void Frameset::AddFrame(const char *lpszSrc) {
    if (_wUsed >= _wCount)
        return;
    Size &size = _aSize[_wUsed++];
    if (size.w == 0)
        size.w = _lpFrame->_rc.w;
    else if (size.h == 0)
        size.h = _lpFrame->_rc.h;
    List_Prepend(_lpSources, StrDup(lpszSrc));
}

void Frameset::CreateFrames() {
    if (_lpFrame->_nDepth >= kMaxFrameDepth)
        return;
    int i = 0;
    for (List<char> *lpNode = List_Tail(_lpSources); lpNode; lpNode = lpNode->lpPrev, ++i) {
        Frame *lpChild = new Frame(nullptr);
        if (Frame::CountFrames() > kMaxFrames) {
            delete lpChild;
            return;
        }
        lpChild->_rc = Rect(&_aptOrigin[i], &_aSize[i]);
        lpChild->SetParent(_lpFrame);
        _lpFrame->AddChild(lpChild);
        lpChild->Fetch(new Page(lpChild, &lpChild->_rc, &lpChild->_rc, lpNode->lpData));
    }
}

int OnTagFrameset(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **, int *) {
    Frame *lpFrame = lpPage->_lpFrame;
    lpFrame->AssertDelivering();
    if (lpTag->_wClosing || lpFrame->_lpFrameset)
        return 0;
    int aCols[kMaxDivisions], aRows[kMaxDivisions];
    uint16_t wCols = 0, wRows = 0;
    for (int i = 0; i < lpAttributes->_wCount; ++i) {
        if (lpAttributes->Is(i, "COLS"))
            wCols = ParseSizes(lpAttributes->_aszValues[i], lpFrame->_rc.w, aCols);
        else if (lpAttributes->Is(i, "ROWS"))
            wRows = ParseSizes(lpAttributes->_aszValues[i], lpFrame->_rc.h, aRows);
    }
    // A grid is none of ours: its document shows as a page.
    if ((wCols != 0) == (wRows != 0))
        return 0;
    lpFrame->_lpFrameset = new Frameset(lpFrame);
    if (wCols)
        lpFrame->_lpFrameset->SetCols(aCols, wCols);
    else
        lpFrame->_lpFrameset->SetRows(aRows, wRows);
    return 0;
}

int OnTagFrame(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **, int *) {
    lpPage->_lpFrame->AssertDelivering();
    Frameset *lpFrameset = lpPage->_lpFrame->_lpFrameset;
    if (lpTag->_wClosing || !lpFrameset)
        return 0;
    const char *lpszSrc = nullptr;
    for (int i = 0; i < lpAttributes->_wCount; ++i) {
        if (lpAttributes->Is(i, "SRC"))
            lpszSrc = lpAttributes->_aszValues[i];
    }
    if (lpszSrc)
        lpFrameset->AddFrame(lpszSrc);
    return 0;
}
