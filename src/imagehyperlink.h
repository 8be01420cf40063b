// ImageHyperlink: a picture inside an open link. It takes the focus itself and follows the link itself.
#pragma once

#include "image.h"

class Hyperlink;

class ImageHyperlink : public Image {
  public:
    // The link that it stands in. Not owned.
    Hyperlink *lpURL;

    ImageHyperlink(Page *lpPage, const char *lpszURL, int nWidth, int nHeight);

    int OnLMouseUp(uint16_t x, uint16_t y) override;
};
