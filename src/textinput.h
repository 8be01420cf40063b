// TextInput, the single-line edit field, and PasswordInput, which shows asterisks.
//
// A field is an edit control built from nothing: it keeps its text, its caret and its selection, and is told of keys
// and characters by the Page while it has the focus. A character is one byte, and all positions count bytes from the
// start of the text. The text does not scroll: what does not fit the field is cut off at its right edge.
//
// Where something is selected the caret stands at one end of it.
#pragma once

#include "controls.h"

class TextInput : public FormControl {
  public:
    // The width of the field in average characters, and the most bytes that the text may have.
    uint16_t _wSize;
    uint16_t _wMaxLength;
    int _nCaret = 0;
    // The first selected byte, and the one behind the last; the latter 0 if nothing is selected. They may be equal:
    // Shift and End with the caret at the end of the text select nothing, but do select.
    int _nSelStart = 0;
    int _nSelEnd = 0;
    // What is painted and measured: here _lpszValue itself, in a PasswordInput a string of its own of the same length.
    char *_lpszDisplay;

    // _lpszValue becomes the edit buffer, of wMaxLength + 1 bytes. What is too long in lpszValue is cut off.
    TextInput(Page *lpPage, const char *lpszName, const char *lpszValue, uint16_t wMaxLength, uint16_t wSize);

    void Render(uint32_t *lpBuffer) override;
    int OnSetFocus() override;
    int OnKillFocus() override;
    int OnLMouseDown(uint16_t x, uint16_t y) override;
    int OnLMouseDrag(uint16_t x, uint16_t y) override;
    int OnChar(int c) override;
    int OnKeyDown(int key) override;

    // Where the caret goes for a pointer at x, which counts from the origin of the Page.
    int IndexFromX(int x);

  protected:
    // Brings _lpszDisplay up to date.
    virtual void UpdateDisplay();

  private:
    struct Range {
        int nStart, nEnd;
    };

    int Length() const;
    int Changed();
    int WidthUpTo(int nIndex) const;
    Range Target() const;
    void Select(int nStart, int nEnd);
    void Replace(const Range &range, const char *lpText, int nLength);
    void Jump(int nTo);
    void Step(int nStep);
    void Extend(int nTo);
    void Erase(int nIndex);
    void Type(char c);
    void Copy() const;
    bool Paste();
};

class PasswordInput : public TextInput {
  public:
    PasswordInput(Page *lpPage, const char *lpszName, const char *lpszValue, uint16_t wMaxLength,
                  uint16_t wSize);
    ~PasswordInput() override;

  protected:
    void UpdateDisplay() override;
};
