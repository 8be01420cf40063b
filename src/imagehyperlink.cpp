#include "imagehyperlink.h"

#include <cassert>

#include "frame.h"
#include "hyperlink.h"
#include "page.h"

ImageHyperlink::ImageHyperlink(Page *lpPage, const char *lpszURL, int nWidth, int nHeight)
    : Image(lpPage, lpszURL, nWidth, nHeight), lpURL(lpPage->_lpCurHyperlink) {}

int ImageHyperlink::OnLMouseUp(uint16_t, uint16_t) {
    assert(lpURL);
    assert(lpURL->lpszURL);
    if (!HasFocus(this))
        return 0;
    _lpFrame->OpenURL(lpURL->lpszURL, 1, METHOD_GET);
    return 1;
}
