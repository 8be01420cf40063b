// Frameset: how a document wants its Frame divided, into columns or rows, and what is to be loaded into each
// division.
//
// A record lives from the FRAMESET tag to the end of Frame::SetPage, on the worker of the document, with the
// Frame's mutexes held.
#pragma once

#include "list.h"
#include "types.h"

class Frame;

inline constexpr int kMaxDivisions = 10;
// How far framesets may go, so that one that shows itself ends.
inline constexpr int kMaxFrameDepth = 8;
inline constexpr int kMaxFrames = 64;

class Frameset {
  public:
    Frame *_lpFrame;
    uint16_t _wCount = 0;  // divisions
    uint16_t _wUsed = 0;   // divisions that have a FRAME
    // Top left corners in the Frame, and one behind the last; sizes, in which 0 means not given yet.
    Point _aptOrigin[kMaxDivisions + 1];
    Size _aSize[kMaxDivisions];
    // The SRC of each FRAME, owned. Head = the last.
    List<char> *_lpSources = nullptr;

    explicit Frameset(Frame *lpFrame);
    Frameset(const Frameset &) = delete;
    Frameset &operator=(const Frameset &) = delete;
    ~Frameset();

    // At most kMaxDivisions sizes, in pixels.
    void SetCols(const int *lpSizes, uint16_t wCount);
    void SetRows(const int *lpSizes, uint16_t wCount);
    void AddFrame(const char *lpszSrc);
    // Makes a child Frame for each FRAME and starts its load.
    void CreateFrames();
};
