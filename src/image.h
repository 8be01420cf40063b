// Image: a picture on a Page, or one of the two icons of MainFrame. As an item it stands in a Line and takes
// a rectangle from the start; as a Resource it is fetched on a worker, and takes its real size when its data
// has come.
#pragma once

#include "layout.h"
#include "resource.h"

class Image;

// Turns the bytes of a file into pixels of an Image: sets _lpPixels, and _rc.w and _rc.h to their size.
// Returns 0 if the bytes are no picture of the kind.
using ImageDecoder = int (*)(Image *lpImage, const uint8_t *lpData, uint32_t dwLength);

// The bitmap resources.
enum : uint16_t { ICON_LOADING = 101, ICON_BROKEN = 102 };

class Image : public PageItem, public Resource {
  public:
    // The column in which it was made, or null. Not owned.
    TableCell *_lpCell;
    // 0 while the placeholder is shown.
    int _bDone = 0;
    // WIDTH and HEIGHT of the tag, -1 for none.
    int32_t _nWantWidth;
    int32_t _nWantHeight;
    // _rc.w x _rc.h pixels, owned; null until they have come.
    uint32_t *_lpPixels = nullptr;
    ImageDecoder _lpfnDecode = nullptr;

    // lpPage is null for an icon.
    Image(Page *lpPage, const char *lpszURL, int nWidth, int nHeight);
    ~Image() override;

    void Render(uint32_t *lpBuffer) override;
    void PlaceInLine(Line **lppLine, int nLeft, int *lpnUsed, int *lpnLineHeight, Point *lpPen,
                     int *lpnWidth) override;

    void OnData() override;
    void OnTimeout() override;
    void OnCancelled() override;

    // Takes pixels and size of an icon. Leaves the Image as it was if there is no such icon.
    void LoadResourceBitmap(uint16_t wId);

  private:
    void RenderPlaceholder(uint32_t *lpBuffer, int w, int h) const;
};
