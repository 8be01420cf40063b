#include "form.h"

#include "types.h"

Form::Form(Page *lpPage, const char *lpszAction, uint8_t bMethod)
    : _lpPage(lpPage), _lpszAction(StrDup(lpszAction)), _bMethod(bMethod) {}

Form::~Form() {
    List_FreeNodes(_lpControls);
    delete[] _lpszAction;
}
