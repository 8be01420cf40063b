// What META tags leave behind: MetaTag, and MetaRefresh, another URL to load after some seconds.
//
// The records belong to the Page that they stand in. The Frame's pointer to an armed one is cleared before
// the Page goes.
#pragma once

#include "htmlparser.h"

class MetaTag {
  public:
    // Owned; each may be null.
    char *_lpszHttpEquiv;
    char *_lpszContent;
    char *_lpszName;

    MetaTag(const char *lpszName, const char *lpszHttpEquiv, const char *lpszContent);
    MetaTag(const MetaTag &) = delete;
    MetaTag &operator=(const MetaTag &) = delete;
    virtual ~MetaTag();
};

class MetaRefresh : public MetaTag {
  public:
    char *_lpszURL;     // owned
    uint32_t _dwStart;  // the tick count at the moment of parsing
    uint32_t _dwDelay;  // CONTENT in milliseconds

    MetaRefresh(const char *lpszName, const char *lpszHttpEquiv, const char *lpszContent, const char *lpszURL,
                uint32_t dwNow);
    ~MetaRefresh() override;
};

// META: arms the refresh of the page's Frame, unless one is armed. Nothing else that a META says leaves a record.
int OnTagMeta(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
              int *lpRemaining);
