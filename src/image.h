// Image: a picture on a Page, or one of the two icons of MainFrame. As an item it stands in a Line and takes
// a rectangle from the start; as a Resource it is fetched on a worker, and takes its real size when its data
// has come.
#pragma once

#include "htmlparser.h"
#include "imagedecoder.h"
#include "layout.h"
#include "resource.h"

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
    // _rc.w x _rc.h pixels, owned unless they are those of an icon of MainFrame; null until they have come.
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
    // Replaces the pixels. Null: there are none any more.
    void SetPixels(uint32_t *lpPixels, bool bOwned);

  private:
    bool Decode();
    bool Stretch();
    void RenderPlaceholder(uint32_t *lpBuffer, int w, int h) const;

    bool _bOwnsPixels = true;
};

int OnTagImg(Page *lpPage, TagEntry *lpTag, TagAttributes *lpAttributes, const char **lppPos,
             int *lpRemaining);
