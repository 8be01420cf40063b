// What stands in a form: FormControl, the base of all inputs, and the two small ones, the hidden field and the
// submit button. The edit fields have textinput.h. All are painted by the library itself, in colours that no
// document changes.
#pragma once

#include "layout.h"

class Form;
class TextBuilder;

class FormControl : public PageItem {
  public:
    // The form that it belongs to, or null. Not owned.
    Form *_lpForm = nullptr;
    // NAME and VALUE of the tag, owned; null for none.
    char *_lpszName;
    char *_lpszValue;

    FormControl(Page *lpPage, const char *lpszName, const char *lpszValue);
    ~FormControl() override;

    void PlaceInLine(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
                     int *lpnWidth) override;

    // Appends "name=value&", as the bytes are; nothing for a control without a name.
    void AppendQuery(TextBuilder *lpQuery) const;
};

// Takes no place: its rectangle stays all zero.
class HiddenInput : public FormControl {
  public:
    using FormControl::FormControl;

    // Never under the pointer: an empty rectangle would answer at (0, 0).
    int HitTest(int x, int y) override;
    void AddExtent(Extent *) const override {}
    void PlaceInLine(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
                     int *lpnWidth) override;
};

// Its VALUE is its label, and what it sends. A click submits its form; no key does.
class SubmitButton : public FormControl {
  public:
    // Nonzero while the left button is held down on it.
    int _bPressed = 0;

    SubmitButton(Page *lpPage, const char *lpszName, const char *lpszValue);

    void Render(uint32_t *lpBuffer) override;
    int OnSetFocus() override;
    int OnKillFocus() override;
    int OnMouseLeave() override;
    int OnLMouseDown(uint16_t x, uint16_t y) override;
    int OnLMouseUp(uint16_t x, uint16_t y) override;

  private:
    Size VisibleSize() const;
    void RenderLabel(const Size &clip, uint32_t *lpBuffer) const;
};
