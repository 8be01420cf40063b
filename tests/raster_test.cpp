// The decoders of BMP, PCX and TGA: pictures put together byte by byte, and what becomes of them.
#include <random>

#include "engine_fixture.h"
#include "image.h"
#include "imagedecoder.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Pixels = std::vector<uint32_t>;
using Source = std::pair<ImageDecoder, Bytes>;  // a file and the decoder it is for

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes Number(int64_t nValue, int nBytes) {
    Bytes bytes;
    for (int i = 0; i < nBytes; ++i)
        bytes.push_back(static_cast<uint8_t>(nValue >> (8 * i)));
    return bytes;
}

// Entry i is red i, green i + 1, blue i + 2.
Bytes PCXPalette() {
    Bytes palette;
    for (int i = 0; i < 768; ++i)
        palette.push_back(static_cast<uint8_t>(i / 3 + i % 3));
    return palette;
}

// Blue, green, red, unused: entry 1 is red, entry 2 is green.
const Bytes kPalette = {0, 0, 0, 0, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0};
constexpr uint32_t R = 0xFF0000, G = 0x00FF00;

Source BMP(int nWidth, int nHeight, uint32_t nBits, uint32_t dwCompression, uint32_t dwColors, Bytes data) {
    const Bytes size = Join({Number(nWidth, 4), Number(nHeight, 4)});
    const Bytes kind = Join({Bytes(2), Number(nBits, 2), Number(dwCompression, 4), Bytes(12)});
    return {DecodeBMP, Join({Bytes(18), size, kind, Number(dwColors, 4), Bytes(4), data})};
}

// Of kPalette's three entries; the data are runs if there is a compression.
Source BMP8(int nWidth, int nHeight, uint32_t dwCompression, Bytes data) {
    return BMP(nWidth, nHeight, 8, dwCompression, 3, Join({kPalette, data}));
}

Source PCX(uint8_t bVersion, uint8_t bBits, uint32_t nXMax, uint32_t nYMax, uint32_t nLine, Bytes data) {
    const Bytes size = Join({Bytes(4), Number(nXMax, 2), Number(nYMax, 2), Bytes(54), Number(nLine, 2)});
    return {DecodePCX, Join({{10, bVersion, 1, bBits}, size, Bytes(60), data, PCXPalette()})};
}

Source TGA(uint8_t bType, uint32_t nYOrigin, uint32_t nWidth, uint32_t nHeight, Bytes data) {
    const Bytes size = Join({Number(nYOrigin, 2), Number(nWidth, 2), Number(nHeight, 2)});
    return {DecodeTGA, Join({{0, 0, bType}, Bytes(7), size, {16, 0}, data})};
}

struct Picture {
    const char *lpszName;
    Source source;
    int nWidth;
    Pixels pixels;
};

std::vector<Picture> GoodPictures() {
    const Bytes full = Join({kPalette, Bytes(1024 - 12), {2, 0, 0, 0}});
    const Bytes runs = {3, 1, 0, 0, 0, 3, 2, 2, 1, 0, 2, 2, 0, 1}, cut = {0xC3, 5, 1, 0xC0, 9, 0xC2, 7};
    const Bytes padded = {3, 2, 1, 0, 6, 5, 4, 0}, packets = {0x82, 0xE0, 0x03, 0x01, 0, 0, 0x1F, 0};
    const Pixels afterCut = {0x050607, 0x050607, 0x010203, 0x070809};
    constexpr uint32_t L = 0x00F800, B = 0x0000F8, W = 0xF8F8F8, X = 0xF80000;  // of 5 bits for each part
    return {
        {"BMP, rows padded, bottom row first", BMP(1, 2, 24, 0, 0, padded), 1, {0x040506, 0x010203}},
        {"BMP, last row without its padding", BMP(1, 1, 24, 0, 0, {3, 2, 1}), 1, {0x010203}},
        {"BMP with the top row first", BMP8(2, -2, 0, {1, 2, 0, 0, 2, 1, 0, 0}), 2, {R, G, G, R}},
        {"BMP with the full palette that 0 stands for", BMP(1, 1, 8, 0, 0, full), 1, {G}},
        {"BMP with an index that has no entry", BMP8(1, 1, 0, {9, 0, 0, 0}), 1, {0}},
        {"BMP with runs, literal bytes, line ends", BMP8(4, -2, 1, runs), 4, {R, R, R, G, G, R, G, G}},
        {"BMP that ends early: the rest is index 0", BMP8(3, -1, 1, {1, 1, 0, 1}), 3, {R, 0, 0}},
        {"BMP that moves on by 1, 1", BMP8(2, -2, 1, {1, 1, 0, 2, 0, 1, 1, 2}), 2, {R, 0, 0, G}},
        {"PCX, runs cut at the line's end", PCX(5, 8, 1, 1, 3, cut), 2, afterCut},
        {"PCX of index 0 is transparent", PCX(5, 8, 0, 0, 1, {0}), 1, {0}},
        {"TGA as it is, bottom row first", TGA(2, 0, 1, 2, {0xFF, 0x7F, 0x1F, 0x80}), 1, {B, W}},
        {"TGA with a y origin is not turned over", TGA(2, 2, 1, 2, {0xFF, 0xFF, 0x00, 0x7C}), 1, {W, X}},
        {"TGA with packets of both kinds", TGA(10, 1, 5, 1, packets), 5, {L, L, L, 0, B}},
    };
}

}  // namespace

class RasterTest : public EngineTest {
  protected:
    // Decodes a copy of exactly that length, so that the address sanitizer sees a read behind it.
    static int Decode(const Source &source, Image *lpImage) {
        const auto &[lpfnDecode, file] = source;
        const std::unique_ptr<uint8_t[]> lpData(new uint8_t[file.size()]);
        std::copy(file.begin(), file.end(), lpData.get());
        return lpfnDecode(lpImage, lpData.get(), static_cast<uint32_t>(file.size()));
    }
};

TEST_F(RasterTest, GoodPicturesComeOut) {
    for (const Picture &picture : GoodPictures()) {
        SCOPED_TRACE(picture.lpszName);
        Image image(nullptr, nullptr, 0, 0);
        ASSERT_EQ(Decode(picture.source, &image), 1);
        EXPECT_EQ(image._rc.w, picture.nWidth);
        ASSERT_EQ(static_cast<size_t>(image._rc.w * image._rc.h), picture.pixels.size());
        EXPECT_EQ(Pixels(image._lpPixels, image._lpPixels + picture.pixels.size()), picture.pixels);
    }
}

TEST_F(RasterTest, WhatDoesNotFitIsRefused) {
    const Bytes some(64), wide(16385 * 3 + 1);
    const std::pair<const char *, Source> aBad[] = {
        {"BMP of 4 bits", BMP(1, 1, 4, 0, 0, some)},
        {"BMP of compression 2", BMP(1, 1, 8, 2, 1, some)},
        {"BMP of no width", BMP(0, 1, 24, 0, 0, some)},
        {"BMP of negative width", BMP(-1, 1, 24, 0, 0, some)},
        {"BMP of the least height", BMP(1, INT32_MIN, 24, 0, 0, some)},
        {"BMP of 16385 columns", BMP(16385, 1, 24, 0, 0, wide)},
        {"BMP of too many pixels for its file", BMP(8000, 8000, 24, 0, 0, some)},
        {"BMP of a palette longer than the file", BMP(1, 1, 8, 0, 0xFFFFFFFF, some)},
        {"BMP with a run behind the picture", BMP8(2, 1, 1, {3, 1, 0, 1})},
        {"BMP with literal bytes behind the picture", BMP8(2, 1, 1, {0, 3, 1, 1, 1, 0})},
        {"PCX of version 3", PCX(3, 8, 0, 0, 1, {0})},
        {"PCX of 4 bits", PCX(5, 4, 0, 0, 1, {0})},
        {"PCX without data", PCX(5, 8, 0, 0, 1, {})},
        {"TGA of type 1", TGA(1, 0, 1, 1, {0, 0})},
        {"TGA with a run behind the picture", TGA(10, 0, 1, 1, {0x81, 0, 0})},
    };
    for (const auto &[lpszName, source] : aBad) {
        Image image(nullptr, nullptr, 3, 4);
        EXPECT_EQ(Decode(source, &image), 0) << lpszName;
        EXPECT_TRUE(!image._lpPixels && image._rc.w == 3 && image._rc.h == 4) << lpszName;
    }
}

// Every prefix, and thousands of damaged copies: whatever comes out, nothing is read or written outside.
TEST_F(RasterTest, DamagedPicturesDoNoHarm) {
    std::mt19937 random(7);
    for (const Picture &picture : GoodPictures()) {
        const auto &[lpfnDecode, whole] = picture.source;
        for (auto it = whole.begin(); it != whole.end(); ++it) {
            Image image(nullptr, nullptr, 0, 0);
            Decode({lpfnDecode, Bytes(whole.begin(), it)}, &image);
        }
        for (int i = 0; i < 300; ++i) {
            Bytes file = whole;
            for (int nChanges = 1 + i % 4; nChanges > 0; --nChanges)
                file[random() % file.size()] = static_cast<uint8_t>(random());
            Image image(nullptr, nullptr, 0, 0);
            const bool bDecoded = Decode({lpfnDecode, file}, &image) == 1;
            EXPECT_EQ(bDecoded, IsPictureSize(image._rc.w, image._rc.h));
        }
    }
}
