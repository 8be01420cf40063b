// Hyperlink: what the A tag makes. It holds the URL and takes the keyboard focus, but has no place on the
// Page of its own. What the reader sees and clicks are its members, texts and pictures that were made while
// the link was open.
#pragma once

#include "element.h"
#include "htmlparser.h"

class Page;

class Hyperlink : public Element {
  public:
    // The value of HREF, owned, never null or empty.
    char *lpszURL;

    // _lpChildren are the members: children of the Page, whose Arena has the nodes.
    Hyperlink(Page *lpPage, const char *lpszHREF);
    ~Hyperlink() override;

    void AddChild(Element *lpMember) override;
    void Invalidate() override;
    // Never under the pointer: its rectangle is empty for good, and an empty one would answer at (0, 0).
    int HitTest(int x, int y) override;
    void AddExtent(Extent *) const override {}
    // Draws the focus rectangles.
    void Render(uint32_t *lpBuffer) override;
    int OnSetFocus() override;
    int OnKillFocus() override;
    int OnLMouseDown(uint16_t x, uint16_t y) override;
    int OnLMouseUp(uint16_t x, uint16_t y) override;
    int OnKeyDown(int key) override;

  private:
    void Follow();
};

int OnTagA(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos, int *lpRemaining);
