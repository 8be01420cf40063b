// The decoders of BMP, PCX and TGA: pictures put together byte by byte, what becomes of them, and what netpbm makes of
// the same files.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
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

Bytes Number(int64_t nValue, uint32_t nBytes) {
    Bytes bytes;
    for (uint32_t i = 0; i < nBytes; ++i)
        bytes.push_back(static_cast<uint8_t>(nValue >> (8 * i)));
    return bytes;
}

// Blue, green, red, unused: entry 1 is red, entry 2 is green.
const Bytes kPalette = {0, 0, 0, 0, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0};
constexpr uint32_t R = 0xFF0000, G = 0x00FF00;

Source BMP(int nWidth, int nHeight, uint32_t nBits, uint32_t dwCompression, uint32_t dwColors, Bytes data) {
    const Bytes start = Join({{'B', 'M'}, Bytes(8), Number(54 + 4 * int64_t{dwColors}, 4), Number(40, 4)});
    const Bytes size = Join({Number(nWidth, 4), Number(nHeight, 4), Number(1, 2), Number(nBits, 2)});
    const Bytes rest = Join({Number(dwCompression, 4), Bytes(12), Number(dwColors, 4), Bytes(4)});
    return {DecodeBMP, Join({start, size, rest, data})};
}

// Of kPalette's three entries; the data are runs if there is a compression.
Source BMP8(int nWidth, int nHeight, uint32_t dwCompression, Bytes data) {
    return BMP(nWidth, nHeight, 8, dwCompression, 3, Join({kPalette, data}));
}

Source PCX(uint8_t bVersion, uint8_t bBits, uint32_t nXMax, uint32_t nYMax, uint32_t nLine, Bytes data) {
    const Bytes size = Join({Bytes(4), Number(nXMax, 2), Number(nYMax, 2), Bytes(53), {1}, Number(nLine, 2)});
    Bytes palette(768);
    std::iota(palette.begin(), palette.end(), uint8_t{0});
    return {DecodePCX, Join({{10, bVersion, 1, bBits}, size, Bytes(60), data, palette})};
}

Source TGA(uint8_t bType, uint32_t nYOrigin, uint32_t nWidth, uint32_t nHeight, Bytes data) {
    const Bytes size = Join({Number(nYOrigin, 2), Number(nWidth, 2), Number(nHeight, 2)});
    return {DecodeTGA, Join({{0, 0, bType}, Bytes(7), size, {16, 0}, data})};
}

// What comes out of a file; no width means that it is refused.
struct Picture {
    const char *lpszName;
    Source source;
    int nWidth;
    Pixels pixels;
};

std::vector<Picture> AllPictures() {
    const Bytes some(64), wide(16385 * 3 + 1);
    const Bytes full = Join({kPalette, Bytes(1024 - 12), {2, 0, 0, 0}});
    const Bytes runs = {3, 1, 0, 0, 0, 3, 2, 2, 1, 0, 2, 2, 0, 1}, cut = {0xC3, 5, 1, 0xC0, 9, 0xC2, 7};
    const Bytes padded = {3, 2, 1, 0, 6, 5, 4, 0}, packets = {0x82, 0xE0, 0x03, 0x01, 0, 0, 0x1F, 0};
    const Pixels afterCut = {0x0F1011, 0x0F1011, 0x030405, 0x151617};
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
        {"BMP of 4 bits", BMP(1, 1, 4, 0, 0, some), 0, {}},
        {"BMP of compression 2", BMP(1, 1, 8, 2, 1, some), 0, {}},
        {"BMP of no width", BMP(0, 1, 24, 0, 0, some), 0, {}},
        {"BMP of negative width", BMP(-1, 1, 24, 0, 0, some), 0, {}},
        {"BMP of the least height", BMP(1, INT32_MIN, 24, 0, 0, some), 0, {}},
        {"BMP of 16385 columns", BMP(16385, 1, 24, 0, 0, wide), 0, {}},
        {"BMP of too many pixels for its file", BMP(8000, 8000, 24, 0, 0, some), 0, {}},
        {"BMP of a palette longer than the file", BMP(1, 1, 8, 0, 0xFFFFFFFF, some), 0, {}},
        {"BMP with a run behind the picture", BMP8(2, 1, 1, {3, 1, 0, 1}), 0, {}},
        {"BMP with literal bytes behind the picture", BMP8(2, 1, 1, {0, 3, 1, 1, 1, 0}), 0, {}},
        {"PCX of version 3", PCX(3, 8, 0, 0, 1, {0}), 0, {}},
        {"PCX of 4 bits", PCX(5, 4, 0, 0, 1, {0}), 0, {}},
        {"PCX without data", PCX(5, 8, 0, 0, 1, {}), 0, {}},
        {"TGA of type 1", TGA(1, 0, 1, 1, {0, 0}), 0, {}},
        {"TGA with a run behind the picture", TGA(10, 0, 1, 1, {0x81, 0, 0}), 0, {}},
    };
}

// Ten random rows: as a BMP of runs, and as packets and plain pixels of TGA.
std::vector<Source> RandomPictures(uint32_t w) {
    std::mt19937_64 random(w);
    const auto Noise = [&](uint32_t nBytes) { return Number(static_cast<int64_t>(random()), nBytes); };
    Bytes palette, runs, packets, plain;
    while (palette.size() < 1024)
        palette = Join({palette, Noise(4)});
    for (int y = 0; y < 10; ++y, runs = Join({runs, {0, 0}})) {
        for (uint32_t x = 0, n; x < w; x += n) {
            n = std::min(1 + Noise(1)[0] % 4u, w - x);
            const bool bRun = n < 3 || random() % 2;
            runs = Join({runs, Bytes(!bRun), Number(n, 1), Noise(bRun ? 1 : n + n % 2)});
            packets = Join({packets, Number(n - 1 + 128 * bRun, 1), Noise(bRun ? 2 : 2 * n)});
            plain = Join({plain, Noise(2 * n)});
        }
    }
    const int nWidth = static_cast<int>(w);
    runs = Join({palette, runs, {0, 1}});
    return {BMP(nWidth, 10, 8, 1, 256, runs), TGA(10, 0, w, 10, packets), TGA(2, 0, w, 10, plain)};
}

// A picture of netpbm's, of 5 or 8 bits for each colour. Five bits are the high ones of a byte here.
Pixels ReadPPM(const std::string &strFile) {
    int nMax = 0, nStart = 0;
    sscanf(strFile.c_str(), "P6 %*d %*d %d%*c%n", &nMax, &nStart);
    EXPECT_TRUE(nMax == 31 || nMax == 255) << strFile;
    Pixels pixels;
    for (size_t i = static_cast<size_t>(nStart); i + 2 < strFile.size(); i += 3)
        pixels.push_back(MakePixel(strFile[i] & 0xFFu, strFile[i + 1] & 0xFFu, strFile[i + 2] & 0xFFu)
                         << (nMax == 31 ? 3 : 0));
    return pixels;
}

std::string ReadFile(const std::string &strName) {
    std::ifstream file(strName, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

class RasterTest : public EngineTest {
  protected:
    // What comes out of a copy of exactly that length, so that the address sanitizer sees a read behind it; nothing if it
    // is refused, which leaves the Image as it was.
    static Pixels Decode(const Source &source, int nWidth = -1) {
        const Bytes file(source.second);
        Image image(nullptr, nullptr, 0, 4);
        const int nResult = source.first(&image, file.data(), static_cast<uint32_t>(file.size()));
        EXPECT_TRUE(nWidth < 0 || nWidth == image._rc.w);
        EXPECT_EQ(image._lpPixels != nullptr, nResult == 1);
        EXPECT_TRUE(nResult ? IsPictureSize(image._rc.w, image._rc.h) : !image._rc.w && image._rc.h == 4);
        return Pixels(image._lpPixels, image._lpPixels + image._rc.w * image._rc.h);
    }
};

// Of the good ones also every prefix, and hundreds of damaged copies: whatever comes out, nothing is read or written
// outside.
TEST_F(RasterTest, PicturesComeOutOrAreRefusedAndDoNoHarm) {
    std::mt19937 random(7);
    for (const Picture &picture : AllPictures()) {
        SCOPED_TRACE(picture.lpszName);
        EXPECT_EQ(Decode(picture.source, picture.nWidth), picture.pixels);
        const auto &[lpfnDecode, whole] = picture.source;
        for (auto it = whole.begin(); picture.nWidth && it != whole.end(); ++it)
            Decode({lpfnDecode, Bytes(whole.begin(), it)});
        for (int i = 0; picture.nWidth && i < 100; ++i) {
            Bytes file = whole;
            for (int nChanges = 1 + i % 4; nChanges > 0; --nChanges)
                file[random() % file.size()] = static_cast<uint8_t>(random());
            Decode({lpfnDecode, file});
        }
    }
}

// Files of our own and of netpbm's encoders, which write no such BMP and TGA. Not compared: a TGA is turned over by its
// y origin here, by its descriptor there; and index 0 of a PCX is transparent here, a colour like any other there.
TEST_F(RasterTest, NetpbmSeesTheSamePixels) {
    for (const uint32_t w : {1, 2, 3, 4, 5, 6, 7, 8, 9, 16, 17}) {
        int nFile = 0;
        for (const auto &[lpfnDecode, file] : RandomPictures(w))
            WriteFile(std::to_string(w) + (nFile++ ? std::to_string(nFile) + ".tga" : ".bmp"),
                      std::string(file.begin(), file.end()));
    }
    const char *lpszConvert =
        "exec 2>log; set -e; for f in *.tga; do tgatoppm $f >$f.ppm; ppmtopcx -8bit $f.ppm >$f.pcx;"
        "ppmtobmp -bpp=24 $f.ppm >$f.24.bmp; ppmtobmp -bpp=8 $f.ppm >$f.8.bmp; done;"
        "for f in *.bmp; do bmptopnm $f >$f.ppm; done; for f in *.pcx; do pcxtoppm $f >$f.ppm; done";
    ASSERT_EQ(system(lpszConvert), 0) << "takes the programs of netpbm\n" << ReadFile("log");
    int nCompared = 0;
    for (const auto &entry : std::filesystem::directory_iterator(".")) {
        std::string strName = entry.path().filename();
        const ImageDecoder lpfnDecode = FindDecoder(strName.data());
        if (!lpfnDecode)
            continue;
        const std::string strFile = ReadFile(strName);
        Pixels expected = ReadPPM(ReadFile(strName + ".ppm"));
        if (lpfnDecode == DecodePCX)
            std::replace(expected.begin(), expected.end(),
                         ReadPPM("P6 1 1 255\n" + strFile.substr(strFile.size() - 768, 3))[0], 0u);
        EXPECT_EQ(Decode({lpfnDecode, Bytes(strFile.begin(), strFile.end())}), expected) << strName;
        ++nCompared;
    }
    EXPECT_EQ(nCompared, 11 * (3 + 2 * 3));
}
