// The decoders of BMP, PCX and TGA: pictures put together byte by byte, and what becomes of them.
#include <random>

#include "engine_fixture.h"
#include "image.h"
#include "imagedecoder.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Pixels = std::vector<uint32_t>;

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes Number(uint32_t dwValue, int nBytes) {
    Bytes bytes;
    for (int i = 0; i < nBytes; ++i)
        bytes.push_back(static_cast<uint8_t>(dwValue >> (8 * i)));
    return bytes;
}

Bytes BMPHeader(int nWidth, int nHeight, uint32_t nBits, uint32_t dwCompression, uint32_t dwColors) {
    return Join({Bytes(18), Number(static_cast<uint32_t>(nWidth), 4),
                 Number(static_cast<uint32_t>(nHeight), 4), Bytes(2), Number(nBits, 2),
                 Number(dwCompression, 4), Bytes(12), Number(dwColors, 4), Bytes(4)});
}

Bytes PCXHeader(uint32_t nXMax, uint32_t nYMax, uint32_t nLine) {
    return Join({{10, 5, 1, 8},
                 Bytes(4),
                 Number(nXMax, 2),
                 Number(nYMax, 2),
                 Bytes(54),
                 Number(nLine, 2),
                 Bytes(60)});
}

Bytes TGAHeader(uint8_t bType, uint32_t nYOrigin, uint32_t nWidth, uint32_t nHeight) {
    return Join(
        {{0, 0, bType}, Bytes(7), Number(nYOrigin, 2), Number(nWidth, 2), Number(nHeight, 2), {16, 0}});
}

// Entry i is red i, green i + 1, blue i + 2.
Bytes PCXPalette() {
    Bytes palette;
    for (uint32_t i = 0; i < 256; ++i)
        palette.insert(palette.end(),
                       {static_cast<uint8_t>(i), static_cast<uint8_t>(i + 1), static_cast<uint8_t>(i + 2)});
    return palette;
}

// Blue, green, red, unused: entry 1 is red, entry 2 is green.
const Bytes kPalette = {0, 0, 0, 0, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0};
constexpr uint32_t R = 0xFF0000, G = 0x00FF00;

struct Picture {
    const char *lpszName;
    ImageDecoder lpfnDecode;
    Bytes file;
    int nWidth;
    Pixels pixels;
};

std::vector<Picture> GoodPictures() {
    return {
        {"BMP of 24 bits, rows padded, bottom row first",
         DecodeBMP,
         Join({BMPHeader(1, 2, 24, 0, 0), {3, 2, 1, 0, 6, 5, 4, 0}}),
         1,
         {0x040506, 0x010203}},
        {"BMP whose last row goes without its padding",
         DecodeBMP,
         Join({BMPHeader(1, 1, 24, 0, 0), {3, 2, 1}}),
         1,
         {0x010203}},
        {"BMP with the top row first",
         DecodeBMP,
         Join({BMPHeader(2, -2, 8, 0, 3), kPalette, {1, 2, 0, 0, 2, 1, 0, 0}}),
         2,
         {R, G, G, R}},
        {"BMP with the full palette that 0 stands for",
         DecodeBMP,
         Join({BMPHeader(1, 1, 8, 0, 0), kPalette, Bytes(1024 - 12), {2, 0, 0, 0}}),
         1,
         {G}},
        {"BMP with an index that has no entry",
         DecodeBMP,
         Join({BMPHeader(1, 1, 8, 0, 3), kPalette, {9, 0, 0, 0}}),
         1,
         {0}},
        {"BMP with runs, literal bytes and line ends",
         DecodeBMP,
         Join({BMPHeader(4, -2, 8, 1, 3), kPalette, {3, 1, 0, 0, 0, 3, 2, 2, 1, 0, 2, 2, 0, 1}}),
         4,
         {R, R, R, G, G, R, G, G}},
        {"BMP whose bitmap ends early: the rest is index 0",
         DecodeBMP,
         Join({BMPHeader(3, -1, 8, 1, 3), kPalette, {1, 1, 0, 1}}),
         3,
         {R, 0, 0}},
        {"BMP that moves on by one line and one pixel",
         DecodeBMP,
         Join({BMPHeader(2, -2, 8, 1, 3), kPalette, {1, 1, 0, 2, 0, 1, 1, 2}}),
         2,
         {R, 0, 0, G}},
        {"PCX with runs cut at the line's end",
         DecodePCX,
         Join({PCXHeader(1, 1, 3), {0xC3, 5, 1, 0xC0, 9, 0xC2, 7}, PCXPalette()}),
         2,
         {0x050607, 0x050607, 0x010203, 0x070809}},
        {"PCX of index 0 is transparent", DecodePCX, Join({PCXHeader(0, 0, 1), {0}, PCXPalette()}), 1, {0}},
        {"TGA as it is, bottom row first",
         DecodeTGA,
         Join({TGAHeader(2, 0, 1, 2), {0xFF, 0x7F, 0x1F, 0x80}}),
         1,
         {0x0000F8, 0xF8F8F8}},
        {"TGA with a y origin is not turned over",
         DecodeTGA,
         Join({TGAHeader(2, 2, 1, 2), {0xFF, 0xFF, 0x00, 0x7C}}),
         1,
         {0xF8F8F8, 0xF80000}},
        {"TGA with packets of both kinds",
         DecodeTGA,
         Join({TGAHeader(10, 1, 5, 1), {0x82, 0xE0, 0x03, 0x01, 0, 0, 0x1F, 0}}),
         5,
         {0x00F800, 0x00F800, 0x00F800, 0, 0x0000F8}},
    };
}

}  // namespace

class RasterTest : public EngineTest {
  protected:
    // Decodes a copy of exactly that length, so that the address sanitizer sees a read behind it.
    static int Decode(ImageDecoder lpfnDecode, const Bytes &file, Image *lpImage) {
        const std::unique_ptr<uint8_t[]> lpData(new uint8_t[file.size()]);
        std::copy(file.begin(), file.end(), lpData.get());
        return lpfnDecode(lpImage, lpData.get(), static_cast<uint32_t>(file.size()));
    }
};

TEST_F(RasterTest, GoodPicturesComeOut) {
    for (const Picture &picture : GoodPictures()) {
        SCOPED_TRACE(picture.lpszName);
        Image image(nullptr, nullptr, 0, 0);
        ASSERT_EQ(Decode(picture.lpfnDecode, picture.file, &image), 1);
        EXPECT_EQ(image._rc.w, picture.nWidth);
        ASSERT_EQ(static_cast<size_t>(image._rc.w * image._rc.h), picture.pixels.size());
        EXPECT_EQ(Pixels(image._lpPixels, image._lpPixels + picture.pixels.size()), picture.pixels);
    }
}

TEST_F(RasterTest, WhatDoesNotFitIsRefused) {
    const Picture aBad[] = {
        {"BMP of 4 bits", DecodeBMP, Join({BMPHeader(1, 1, 4, 0, 0), Bytes(64)}), 0, {}},
        {"BMP of compression 2", DecodeBMP, Join({BMPHeader(1, 1, 8, 2, 1), Bytes(64)}), 0, {}},
        {"BMP of no width", DecodeBMP, Join({BMPHeader(0, 1, 24, 0, 0), Bytes(64)}), 0, {}},
        {"BMP of negative width", DecodeBMP, Join({BMPHeader(-1, 1, 24, 0, 0), Bytes(64)}), 0, {}},
        {"BMP of the least height", DecodeBMP, Join({BMPHeader(1, INT32_MIN, 24, 0, 0), Bytes(64)}), 0, {}},
        {"BMP of 16385 columns",
         DecodeBMP,
         Join({BMPHeader(16385, 1, 24, 0, 0), Bytes(16385 * 3 + 1)}),
         0,
         {}},
        {"BMP of too many pixels for its file",
         DecodeBMP,
         Join({BMPHeader(8000, 8000, 24, 0, 0), Bytes(64)}),
         0,
         {}},
        {"BMP of a palette longer than the file",
         DecodeBMP,
         Join({BMPHeader(1, 1, 8, 0, 0xFFFFFFFF), Bytes(64)}),
         0,
         {}},
        {"BMP with a run behind the picture",
         DecodeBMP,
         Join({BMPHeader(2, 1, 8, 1, 1), Bytes(4), {3, 1, 0, 1}}),
         0,
         {}},
        {"BMP with literal bytes behind the picture",
         DecodeBMP,
         Join({BMPHeader(2, 1, 8, 1, 1), Bytes(4), {0, 3, 1, 1, 1, 0}}),
         0,
         {}},
        {"PCX of version 3", DecodePCX, Join({{10, 3, 1, 8}, Bytes(124), {0}, PCXPalette()}), 0, {}},
        {"PCX of 4 bits", DecodePCX, Join({{10, 5, 1, 4}, Bytes(124), {0}, PCXPalette()}), 0, {}},
        {"PCX without data", DecodePCX, Join({PCXHeader(0, 0, 1), PCXPalette()}), 0, {}},
        {"PCX of type 1 in place of TGA", DecodeTGA, Join({TGAHeader(1, 0, 1, 1), {0, 0}}), 0, {}},
        {"TGA with a run behind the picture", DecodeTGA, Join({TGAHeader(10, 0, 1, 1), {0x81, 0, 0}}), 0, {}},
    };
    for (const Picture &picture : aBad) {
        Image image(nullptr, nullptr, 3, 4);
        EXPECT_EQ(Decode(picture.lpfnDecode, picture.file, &image), 0) << picture.lpszName;
        EXPECT_TRUE(!image._lpPixels && image._rc.w == 3 && image._rc.h == 4) << picture.lpszName;
    }
}

// Every prefix, and thousands of damaged copies: whatever comes out, nothing is read or written outside.
TEST_F(RasterTest, DamagedPicturesDoNoHarm) {
    std::mt19937 random(7);
    for (const Picture &picture : GoodPictures()) {
        for (size_t n = 0; n < picture.file.size(); ++n) {
            Image image(nullptr, nullptr, 0, 0);
            Decode(picture.lpfnDecode,
                   Bytes(picture.file.begin(), picture.file.begin() + static_cast<ptrdiff_t>(n)), &image);
        }
        for (int i = 0; i < 300; ++i) {
            Bytes file = picture.file;
            for (int nChanges = 1 + i % 4; nChanges > 0; --nChanges)
                file[random() % file.size()] = static_cast<uint8_t>(random());
            Image image(nullptr, nullptr, 0, 0);
            const bool bDecoded = Decode(picture.lpfnDecode, file, &image) == 1;
            EXPECT_EQ(bDecoded, IsPictureSize(image._rc.w, image._rc.h));
        }
    }
}
