// Text, one run of text in one font, and LinkText, the same inside a link.
//
// A Text that fits into what remains of its line stands whole. One that does not is cut at spaces into
// pieces, which are Texts of their own, held as its children; from then on the pieces are what is placed,
// drawn and hit. Every layout pass makes them anew.
#pragma once

#include <string_view>

#include "layout.h"

class Hyperlink;
struct Font;

// A run stands in the Arena of its Page, a piece in the Arena of the layout pass, with its string beside it.
class Text : public PageItem, public InArena {
  public:
    // Never null.
    char *_lpszText;
    // Belongs to the Page's FontManager, never null.
    Font *_lpFont;

    Text(Page *lpPage, const char *lpszText, Font *lpFont);
    // Its pieces go with their Arena.
    ~Text() override { _lpChildren = nullptr; }

    void AddChild(Element *lpPiece) override;
    void Invalidate() override;
    int HitTest(int x, int y) override;
    int Intersects(const Rect *lpRect) override;
    void AddExtent(Extent *lpExtent) const override;
    void Render(uint32_t *lpBuffer) override;
    void PlaceInLine(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
                     int *lpnWidth) override;
    // Adds a piece with this text, nWidth pixels wide, to the children.
    virtual Text *AddPiece(std::string_view text, int nWidth);

    // Cuts the run into pieces for lines of nFull pixels, the first of nFirst. Returns 0; or 1, with no piece
    // made, if not even the first word fits into nFirst although a full line has more room.
    int SplitText(int nFirst, int nFull);
    // The width in pixels of the widest word.
    int LongestWord() const;

  protected:
    // Copies the text, which is nWidth pixels wide, to an Arena.
    Text(Page *lpPage, std::string_view text, int nWidth, Font *lpFont, Arena &arena);

    void Draw(uint32_t dwColor, uint32_t *lpBuffer) const;

  private:
    void DropPieces();
    void PlacePieces(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen);
};

class LinkText : public Text {
  public:
    // Not owned.
    Hyperlink *_lpHyperlink;

    LinkText(Page *lpPage, const char *lpszText, Font *lpFont);

    void Render(uint32_t *lpBuffer) override;
    int OnLMouseDown(uint16_t x, uint16_t y) override;
    int OnLMouseUp(uint16_t x, uint16_t y) override;
    int OnKeyDown(int key) override;
    Text *AddPiece(std::string_view text, int nWidth) override;

  private:
    LinkText(const LinkText *lpWhole, std::string_view text, int nWidth, Arena &arena);
};
