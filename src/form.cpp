#include "form.h"

#include <algorithm>

#include "controls.h"
#include "frame.h"
#include "page.h"
#include "resource.h"
#include "table.h"
#include "textbuilder.h"
#include "textinput.h"
#include "types.h"

namespace {

// What an INPUT tag asks for.
struct InputTag {
    const char *lpszType = nullptr;
    const char *lpszName = nullptr;
    const char *lpszValue = nullptr;
    uint16_t wSize = 20;
    uint16_t wMaxLength = 256;
};

// A number that counts only between two limits, both included.
void TakeNumber(const char *lpszValue, int nLeast, int nMost, uint16_t *lpwNumber) {
    const int n = ParseInt(lpszValue);
    if (n >= nLeast && n <= nMost)
        *lpwNumber = static_cast<uint16_t>(n);
}

InputTag ReadInputTag(const TagAttributes *lpAttributes) {
    InputTag tag;
    for (int i = 0; i < lpAttributes->_wCount; ++i) {
        const char *lpszValue = lpAttributes->_aszValues[i];
        if (lpAttributes->Is(i, "TYPE"))
            tag.lpszType = lpszValue;
        else if (lpAttributes->Is(i, "SIZE"))
            TakeNumber(lpszValue, 2, 399, &tag.wSize);
        else if (lpAttributes->Is(i, "MAXLENGTH"))
            TakeNumber(lpszValue, 11, 1023, &tag.wMaxLength);
        else if (lpAttributes->Is(i, "NAME"))
            tag.lpszName = lpszValue;
        else if (lpAttributes->Is(i, "VALUE"))
            tag.lpszValue = lpszValue;
    }
    return tag;
}

// Null for a type that there is not.
FormControl *NewControl(Page *lpPage, const InputTag &tag) {
    const char *lpszType = tag.lpszType ? tag.lpszType : "TEXT";
    if (EqualsNoCase(lpszType, "TEXT"))
        return new TextInput(lpPage, tag.lpszName, tag.lpszValue, tag.wMaxLength, tag.wSize);
    if (EqualsNoCase(lpszType, "PASSWORD"))
        return new PasswordInput(lpPage, tag.lpszName, tag.lpszValue, tag.wMaxLength, tag.wSize);
    if (EqualsNoCase(lpszType, "SUBMIT"))
        return new SubmitButton(lpPage, tag.lpszName, tag.lpszValue);
    if (EqualsNoCase(lpszType, "HIDDEN"))
        return new HiddenInput(lpPage, tag.lpszName, tag.lpszValue);
    return nullptr;
}

}  // namespace

Form::Form(Page *lpPage, const char *lpszAction, uint8_t bMethod)
    : _lpPage(lpPage), _lpszAction(StrDup(lpszAction)), _bMethod(bMethod) {}

Form::~Form() {
    List_FreeNodes(_lpControls);
    delete[] _lpszAction;
}

// The last character goes: the '&' behind the last pair, or the '?' if there is none. What there is no memory for is not
// sent.
void Form::Submit() {
    TextBuilder url;
    url.Append(_lpszAction).Append("?");
    for (const List<FormControl> *lpNode = _lpControls; lpNode; lpNode = lpNode->lpNext)
        lpNode->lpData->AppendQuery(&url);
    url.CutLast();
    if (url.Text())
        _lpPage->_lpFrame->OpenURL(url.Text(), 1, _bMethod);
}

// A FORM without an action is none: whatever form is open stays open. One inside another takes over from it.
int OnTagForm(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **, int *) {
    if (lpTag->_wClosing) {
        lpPage->_lpCurForm = nullptr;
        return 0;
    }
    const char *lpszAction = nullptr;
    uint8_t bMethod = METHOD_POST;
    for (int i = 0; i < lpAttributes->_wCount; ++i) {
        const char *lpszValue = lpAttributes->_aszValues[i];
        if (lpAttributes->Is(i, "ACTION") && *lpszValue)
            lpszAction = lpszValue;
        else if (lpAttributes->Is(i, "METHOD") && StartsWith(lpszValue, "GET"))
            bMethod = METHOD_GET;
    }
    if (!lpszAction)
        return 0;
    if (lpPage->_lpLines->lpData->_lpItems)
        NewLine(lpPage);
    lpPage->_lpCurForm = new Form(lpPage, lpszAction, bMethod);
    List_Prepend(lpPage->_lpForms, lpPage->_lpCurForm);
    return 0;
}

int OnTagInput(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **, int *) {
    if (lpTag->_wClosing)
        return 0;
    FormControl *lpControl = NewControl(lpPage, ReadInputTag(lpAttributes));
    if (!lpControl)
        return 0;
    if (lpPage->_lpCurForm) {
        List_Prepend(lpPage->_lpCurForm->_lpControls, lpControl);
        lpControl->_lpForm = lpPage->_lpCurForm;
    }
    Line *lpLine = lpPage->_lpLines->lpData;
    if (TableCell *lpCell = lpLine->_lpCell) {
        lpCell->_nMinWidth = std::max(lpCell->_nMinWidth, lpControl->_rc.w);
        lpCell->_nRowWidth = AddLengths(lpCell->_nRowWidth, lpControl->_rc.w);
    }
    lpLine->AddItem(lpControl);
    lpPage->AddChild(lpControl);
    return 0;
}
