#include "meta.h"

#include <algorithm>

#include "frame.h"
#include "page.h"
#include "platform/clock.h"
#include "types.h"

// Seconds that do not fit stand for a time that does not come.
static uint32_t ToMilliseconds(const char *lpszSeconds) {
    const int64_t nDelay = int64_t{lpszSeconds ? ParseInt(lpszSeconds) : 0} * 1000;
    return static_cast<uint32_t>(std::clamp<int64_t>(nDelay, 0, UINT32_MAX));
}

MetaTag::MetaTag(const char *lpszName, const char *lpszHttpEquiv, const char *lpszContent)
    : _lpszHttpEquiv(StrDup(lpszHttpEquiv)), _lpszContent(StrDup(lpszContent)), _lpszName(StrDup(lpszName)) {}

MetaTag::~MetaTag() {
    delete[] _lpszHttpEquiv;
    delete[] _lpszContent;
    delete[] _lpszName;
}

MetaRefresh::MetaRefresh(const char *lpszName, const char *lpszHttpEquiv, const char *lpszContent,
                         const char *lpszURL, uint32_t dwNow)
    : MetaTag(lpszName, lpszHttpEquiv, lpszContent),
      _lpszURL(StrDup(lpszURL)),
      _dwStart(dwNow),
      _dwDelay(ToMilliseconds(lpszContent)) {}

MetaRefresh::~MetaRefresh() {
    delete[] _lpszURL;
}

int OnTagMeta(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **, int *) {
    if (lpTag->_wClosing)
        return 0;
    enum { kHttpEquiv, kContent, kName, kURL, kKeywords };
    static constexpr const char *kNames[kKeywords] = {"HTTP-EQUIV", "CONTENT", "NAME", "URL"};
    const char *alpszValues[kKeywords] = {};
    for (int i = 0; i < lpAttributes->_wCount; ++i) {
        for (int nKeyword = 0; nKeyword < kKeywords; ++nKeyword) {
            if (lpAttributes->Is(i, kNames[nKeyword]))
                alpszValues[nKeyword] = lpAttributes->_aszValues[i];
        }
    }
    const auto &[lpszHttpEquiv, lpszContent, lpszName, lpszURL] = alpszValues;
    // A page cannot ask for an immediate refresh, and one without a URL does not load itself again.
    if (!lpszURL || !lpszHttpEquiv || !EqualsNoCase(lpszHttpEquiv, "REFRESH") || !lpszContent ||
        ParseInt(lpszContent) < 1)
        return 0;
    auto *lpRefresh = new MetaRefresh(lpszName, lpszHttpEquiv, lpszContent, lpszURL, platform::Ticks());
    if (lpPage->_lpFrame->ArmRefresh(lpPage, lpRefresh))
        List_Prepend<MetaTag>(lpPage->_lpMetaTags, lpRefresh);
    else
        delete lpRefresh;
    return 0;
}
