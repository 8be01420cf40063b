// The decoders of BMP, PCX and TGA: pictures put together byte by byte, what becomes of them, and what netpbm makes of
// the same files.
#include <cstdlib>
#include <filesystem>
#include <random>

#include "cases.h"
#include "engine_fixture.h"
#include "image.h"
#include "imagedecoder.h"

namespace {

using Bytes = std::string;
using Pixels = std::vector<uint32_t>;

Bytes Number(int64_t nValue, uint32_t nBytes) {
    return Bytes(reinterpret_cast<const char *>(&nValue), nBytes);
}

// Ten random rows: as a BMP of runs, and as packets and plain pixels of TGA.
std::vector<Bytes> RandomPictures(uint32_t w) {
    std::mt19937_64 random(w);
    const auto Noise = [&](uint32_t nBytes) { return Number(static_cast<int64_t>(random()), nBytes); };
    Bytes palette, runs, packets, plain;
    while (palette.size() < 1024)
        palette += Noise(4);
    for (int y = 0; y < 10; ++y, runs += Number(0, 2)) {
        for (uint32_t x = 0, n; x < w; x += n) {
            n = std::min(1 + static_cast<uint32_t>(random()) % 4, w - x);
            const bool bRun = n < 3 || random() % 2;
            runs += Bytes(!bRun, '\0') + Number(n, 1) + Noise(bRun ? 1 : n + n % 2);
            packets += Number(n - 1 + 128 * bRun, 1) + Noise(bRun ? 2 : 2 * n);
            plain += Noise(2 * n);
        }
    }
    Cases cases("raster.txt");
    const Bytes size = Number(w, 2) + Number(10, 2) + cases.Bytes("DEPTH");
    return {cases.Bytes("424D 00*8 36040000 28000000") + Number(w, 4) + Number(10, 4) +
                cases.Bytes("01000800 01000000 00*12 00010000 00*4") + palette + runs + Number(256, 2),
            cases.Bytes("PACKED 0000") + size + packets, cases.Bytes("TGA 0000") + size + plain};
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

}  // namespace

class RasterTest : public EngineTest {
  protected:
    // What comes out of a copy of exactly that length, so that the address sanitizer sees a read behind it; nothing if it
    // is refused, which leaves the Image as it was.
    static Pixels Decode(std::string strName, const Bytes &source, int nWidth = -1) {
        const std::vector<uint8_t> file(source.begin(), source.end());
        Image image(nullptr, nullptr, 0, 4);
        const int nResult =
            FindDecoder(strName.data())(&image, file.data(), static_cast<uint32_t>(file.size()));
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
    const Cases cases("raster.txt");
    for (const auto &row : cases.Under()) {
        SCOPED_TRACE(row[1]);
        const std::string strName = "a." + row[0];
        const Bytes whole = cases.Bytes(row[2]), rgb = cases.Bytes(row[4]);
        EXPECT_EQ(Decode(strName, whole, atoi(row[3].c_str())), ReadPPM("P6 1 1 255\n" + rgb));
        for (size_t i = 0; !rgb.empty() && i < whole.size(); ++i)
            Decode(strName, whole.substr(0, i));
        for (int i = 0; !rgb.empty() && i < 100; ++i) {
            Bytes file = whole;
            for (int nChanges = 1 + i % 4; nChanges > 0; --nChanges)
                file[random() % file.size()] = static_cast<char>(random());
            Decode(strName, file);
        }
    }
}

// Files of our own and of netpbm's encoders, which write no such BMP and TGA. Not compared: a TGA is turned over by its
// y origin here, by its descriptor there; and index 0 of a PCX is transparent here, a colour like any other there.
TEST_F(RasterTest, NetpbmSeesTheSamePixels) {
    for (const uint32_t w : {1, 2, 3, 4, 5, 6, 7, 8, 9, 16, 17}) {
        int nFile = 0;
        for (const Bytes &file : RandomPictures(w))
            WriteFile(std::to_string(w) + (nFile++ ? std::to_string(nFile) + ".tga" : ".bmp"), file);
    }
    const char *lpszConvert =
        "exec 2>log; set -e; for f in *.tga; do tgatoppm $f >$f.ppm; ppmtopcx -8bit $f.ppm >$f.pcx;"
        "ppmtobmp -bpp=24 $f.ppm >$f.24.bmp; ppmtobmp -bpp=8 $f.ppm >$f.8.bmp; done;"
        "for f in *.bmp; do bmptopnm $f >$f.ppm; done; for f in *.pcx; do pcxtoppm $f >$f.ppm; done";
    ASSERT_EQ(system(lpszConvert), 0) << "takes the programs of netpbm\n" << Contents("log");
    int nCompared = 0;
    for (const auto &entry : std::filesystem::directory_iterator(".")) {
        std::string strName = entry.path().filename();
        const ImageDecoder lpfnDecode = FindDecoder(strName.data());
        if (!lpfnDecode)
            continue;
        const std::string strFile = Contents(strName);
        Pixels expected = ReadPPM(Contents(strName + ".ppm"));
        if (lpfnDecode == DecodePCX)
            std::replace(expected.begin(), expected.end(),
                         ReadPPM("P6 1 1 255\n" + strFile.substr(strFile.size() - 768, 3))[0], 0u);
        EXPECT_EQ(Decode(strName, strFile), expected) << strName;
        ++nCompared;
    }
    EXPECT_EQ(nCompared, 11 * (3 + 2 * 3));
}
