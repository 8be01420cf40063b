// Form: what binds the controls between a FORM tag and its end, and sends their values.
#pragma once

#include <cstdint>

#include "htmlparser.h"
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

    // Asks the Frame for the action with the values of all named controls, the last one first, as its query.
    // Names and values go as they are, without any encoding. On the host's thread, in an event.
    void Submit();
};

int OnTagForm(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
              int *lpRemaining);
int OnTagInput(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
               int *lpRemaining);
