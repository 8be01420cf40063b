#include "meta.h"

#include <algorithm>

#include "htmlparser.h"
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
