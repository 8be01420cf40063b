// Form: what binds the controls between a FORM tag and its end.
#pragma once

#include <cstdint>

#include "list.h"

class FormControl;
class Page;

class Form {
  public:
    Page *_lpPage;
    char *_lpszAction;  // owned, never null or empty
    uint8_t _bMethod;   // METHOD_GET or METHOD_POST
    // Head = the newest. The nodes are owned, the controls are children of the Page.
    List<FormControl> *_lpControls = nullptr;

    Form(Page *lpPage, const char *lpszAction, uint8_t bMethod);
    Form(const Form &) = delete;
    Form &operator=(const Form &) = delete;
    ~Form();
};
