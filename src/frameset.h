// Frameset: how a document wants its Frame divided, into columns or rows, and what is to be loaded into each
// division.
//
// A record lives from the FRAMESET tag to the end of Frame::SetPage, on the worker of the document, with the
// Frame's mutexes held.
#pragma once

#include "htmlparser.h"
#include "list.h"
#include "types.h"

class Frame;

inline constexpr int kMaxDivisions = 10;
// How far framesets may go, so that one that shows itself ends: Frames below the MainFrame, one inside the other; and
// Frames in all, the MainFrame and those that still wait for a worker to leave them included. What goes beyond is not
// created.
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

// FRAMESET: a document whose first one has either COLS or ROWS is divided; all others show as pages.
int OnTagFrameset(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
                  int *lpRemaining);
int OnTagFrame(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
               int *lpRemaining);
