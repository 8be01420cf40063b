#include "frameset.h"

#include "mainframe.h"
#include "page.h"

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
