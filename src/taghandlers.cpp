#include "taghandlers.h"

#include <algorithm>

#include "fontmanager.h"
#include "layout.h"
#include "mainframe.h"
#include "page.h"
#include "types.h"

namespace {

// SIZE of FONT: a digit first means the sizes 1 to 7, a sign means so much above or below the default size.
uint8_t ParseFontSize(const char *lpszValue) {
    const int nBase = *lpszValue >= '0' && *lpszValue <= '9' ? -1 : g_lpMainFrame->_lpFontNormal->_bSize;
    const int64_t nSize = int64_t{nBase} + ParseInt(lpszValue);
    return static_cast<uint8_t>(std::clamp<int64_t>(nSize, 0, kFontSizes - 1));
}

// The text colour of the document goes on the font stack, above what is there.
void SetTextColor(Page *lpPage, uint32_t dwColor) {
    const Font *lpNormal = g_lpMainFrame->_lpFontNormal;
    if (dwColor == lpNormal->_dwColor)
        return;
    Font *lpFont = lpPage->_lpFontManager->CloneFont(lpNormal);
    lpFont->_dwColor = dwColor;
    lpPage->_lpFontManager->PushFontRecord(lpFont, 0);
}

uint8_t CurrentHeight(const Page *lpPage) {
    return lpPage->_lpFontManager->CurrentFont()->_lpCharInfo->_bHeight;
}

}  // namespace

int OnTagBody(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **, int *) {
    if (lpTag->_wClosing)
        return 0;
    for (int i = 0; i < lpAttributes->_wCount; ++i) {
        const uint32_t dwColor = ParseColor(lpAttributes->_aszValues[i]);
        if (lpAttributes->Is(i, "BGCOLOR"))
            lpPage->_dwBgColor = dwColor;
        else if (lpAttributes->Is(i, "TEXT"))
            SetTextColor(lpPage, dwColor);
        else if (lpAttributes->Is(i, "LINK"))
            lpPage->_dwLinkColor = dwColor;
        else if (lpAttributes->Is(i, "VLINK"))
            lpPage->_dwVLinkColor = dwColor;
        else if (lpAttributes->Is(i, "ALINK"))
            lpPage->_dwALinkColor = dwColor;
    }
    return 0;
}

int OnTagBr(Page *lpPage, TagEntry *, TagAttributes *, const char **, int *) {
    NewLine(lpPage);
    lpPage->_lpLines->lpData->_bHeight = CurrentHeight(lpPage);
    return 0;
}

int OnTagP(Page *lpPage, TagEntry *, TagAttributes *, const char **, int *) {
    if (lpPage->_lpLines->lpData->_lpItems)
        NewLine(lpPage);
    lpPage->_lpLines->lpData->_bHeight = CurrentHeight(lpPage);
    NewLine(lpPage);
    return 0;
}

int OnTagFont(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **, int *) {
    FontManager *lpFonts = lpPage->_lpFontManager;
    if (lpTag->_wClosing) {
        lpFonts->PopFont();
        return 0;
    }
    const Font *lpCurrent = lpFonts->CurrentFont();
    const char *lpszFace = lpCurrent->_lpszFace;
    uint8_t bSize = lpCurrent->_bSize;
    uint32_t dwColor = lpCurrent->_dwColor;
    bool bChanged = false;
    for (int i = 0; i < lpAttributes->_wCount; ++i) {
        const char *lpszValue = lpAttributes->_aszValues[i];
        if (lpAttributes->Is(i, "FACE"))
            lpszFace = lpszValue;
        else if (lpAttributes->Is(i, "SIZE"))
            bSize = ParseFontSize(lpszValue);
        else if (lpAttributes->Is(i, "COLOR"))
            dwColor = ParseColor(lpszValue);
        else
            continue;
        bChanged = true;
    }
    if (bChanged)
        lpFonts->PushFont(lpszFace, 0, bSize, dwColor);
    return 0;
}

template <int nSize>
int OnTagHeading(Page *lpPage, TagEntry *lpTag, TagAttributes *, const char **, int *) {
    FontManager *lpFonts = lpPage->_lpFontManager;
    if (lpTag->_wClosing) {
        lpFonts->PopFont();
    } else {
        const Font *lpCurrent = lpFonts->CurrentFont();
        lpFonts->PushFont(lpCurrent->_lpszFace, STYLE_BOLD, nSize, lpCurrent->_dwColor);
    }
    NewLine(lpPage);
    return 0;
}

template int OnTagHeading<0>(Page *, TagEntry *, TagAttributes *, const char **, int *);
template int OnTagHeading<1>(Page *, TagEntry *, TagAttributes *, const char **, int *);
template int OnTagHeading<2>(Page *, TagEntry *, TagAttributes *, const char **, int *);
template int OnTagHeading<3>(Page *, TagEntry *, TagAttributes *, const char **, int *);
template int OnTagHeading<4>(Page *, TagEntry *, TagAttributes *, const char **, int *);
template int OnTagHeading<5>(Page *, TagEntry *, TagAttributes *, const char **, int *);

int OnTagB(Page *lpPage, TagEntry *lpTag, TagAttributes *, const char **, int *) {
    lpPage->_lpFontManager->SetBold(!lpTag->_wClosing);
    return 0;
}

int OnTagI(Page *lpPage, TagEntry *lpTag, TagAttributes *, const char **, int *) {
    lpPage->_lpFontManager->SetItalic(!lpTag->_wClosing);
    return 0;
}

int OnTagU(Page *lpPage, TagEntry *lpTag, TagAttributes *, const char **, int *) {
    lpPage->_lpFontManager->SetUnderline(!lpTag->_wClosing);
    return 0;
}

int OnTagTitle(Page *lpPage, TagEntry *lpTag, TagAttributes *, const char **lppPos, int *lpRemaining) {
    if (lpTag->_wClosing)
        return 0;
    char szTitle[kTitleSize];
    ExtractText(lppPos, lpRemaining, szTitle, kTitleSize);
    if (!lpPage->_lpszTitle)
        lpPage->_lpszTitle = StrDup(szTitle);
    return 0;
}

int OnTagCenter(Page *lpPage, TagEntry *lpTag, TagAttributes *, const char **, int *) {
    List<int32_t> *&lpStack = lpPage->_lpAlignStack;
    if (!lpTag->_wClosing)
        List_Prepend(lpStack, new int32_t{ALIGN_CENTER});
    else if (lpStack && *lpStack->lpData == ALIGN_CENTER)
        delete List_TakeHead(lpStack);
    NewLine(lpPage);
    return 0;
}
