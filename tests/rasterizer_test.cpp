// The rasteriser against the fonts of the system, and against sets of fonts made up for one test.
#include "platform/rasterizer.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace {

using platform::FontCells;

constexpr int kHeights[] = {10, 12, 15, 17, 21, 27, 35};
constexpr uint16_t kAllStyles = platform::kStyleBold | platform::kStyleItalic | platform::kStyleUnderline;

FontCells Cells(const std::string &face, int nHeight, uint16_t wStyle) {
    FontCells cells = {};
    EXPECT_TRUE(platform::GetRasterizer()->Rasterize(face.c_str(), nHeight, wStyle, &cells));
    return cells;
}

int Advance(const FontCells &cells, int c) {
    return cells.aSpacing[c].nA + cells.aSpacing[c].nB + cells.aSpacing[c].nC;
}

int Width(const FontCells &cells, int c) {
    return cells.aSpacing[c].nA + cells.aSpacing[c].nB + std::max(cells.aSpacing[c].nC, 0);
}

bool Pixel(const FontCells &cells, int c, int x, int y) {
    return cells.lpInk[(c * cells.nHeight + y) * cells.nPitch + x / 8] >> (7 - x % 8) & 1;
}

struct Extent {
    int nCount = 0, nLeft = 1000, nRight = -1, nTop = 1000, nBottom = -1;
};

// Of the ink of the characters nFirst to nLast, over the whole pitch.
Extent InkOf(const FontCells &cells, int nFirst, int nLast) {
    Extent ink;
    for (int c = nFirst; c <= nLast; ++c) {
        for (int y = 0; y < cells.nHeight; ++y) {
            for (int x = 0; x < cells.nPitch * 8; ++x) {
                if (!Pixel(cells, c, x, y))
                    continue;
                ++ink.nCount;
                ink.nLeft = std::min(ink.nLeft, x), ink.nRight = std::max(ink.nRight, x);
                ink.nTop = std::min(ink.nTop, y), ink.nBottom = std::max(ink.nBottom, y);
            }
        }
    }
    return ink;
}

// All ink as one string, and the metrics, so that two sets can be compared.
std::string Bytes(const FontCells &cells) {
    const std::string metrics = std::to_string(cells.nHeight) + ' ' + std::to_string(cells.nExternalLeading) +
                                ' ' + std::to_string(cells.nOverhang) + ' ' +
                                std::to_string(cells.nAveCharWidth) + ' ' +
                                std::to_string(cells.nMaxCharWidth) + ' ' + std::to_string(cells.nPitch);
    const std::string spacing(reinterpret_cast<const char *>(cells.aSpacing), sizeof cells.aSpacing);
    const size_t nInk = static_cast<size_t>(256 * cells.nHeight * cells.nPitch);
    return metrics + spacing + std::string(reinterpret_cast<const char *>(cells.lpInk.get()), nInk);
}

void ExpectUnderlined(const FontCells &cells) {
    int nFullRows = 0;
    for (int y = 0; y < cells.nHeight; ++y) {
        int nFullCells = 0;
        for (int c = 0; c < 256; ++c) {
            int x = 0;
            while (x < Width(cells, c) && Pixel(cells, c, x, y))
                ++x;
            nFullCells += x == Width(cells, c);
        }
        nFullRows += nFullCells == 256;
    }
    EXPECT_GE(nFullRows, 1);
    EXPECT_LE(nFullRows, 1 + cells.nHeight / 8);
}

// Other fonts than those of the system, for as long as the object lives.
class OtherFonts {
  public:
    explicit OtherFonts(const std::string &rules)
        : _path(std::filesystem::temp_directory_path() / ("rasterizer_test." + std::to_string(getpid()))) {
        std::filesystem::create_directories(_path);
        Write("fonts.conf", "<fontconfig><cachedir>" + (_path / "cache").string() + "</cachedir><dir>" +
                                _path.string() + "</dir>" + rules + "</fontconfig>");
        setenv("FONTCONFIG_FILE", (_path / "fonts.conf").c_str(), 1);
        platform::ReleaseRasterizer();
    }
    ~OtherFonts() {
        unsetenv("FONTCONFIG_FILE");
        platform::ReleaseRasterizer();
        std::filesystem::remove_all(_path);
    }
    void Write(const std::string &name, const std::string &text) { std::ofstream(_path / name) << text; }

  private:
    std::filesystem::path _path;
};

class RasterizerTest : public testing::Test {
  protected:
    void TearDown() override { platform::ReleaseRasterizer(); }
};

TEST_F(RasterizerTest, EverySizeAndStyleHasSoundMetricsAndItsInkInsideTheCells) {
    for (const int nHeight : kHeights) {
        for (uint16_t wStyle = 0; wStyle <= kAllStyles; ++wStyle) {
            SCOPED_TRACE(testing::Message() << "height " << nHeight << " style " << wStyle);
            const FontCells cells = Cells("ARIAL", nHeight, wStyle);
            EXPECT_TRUE(cells.nHeight >= nHeight && cells.nHeight <= 2 * nHeight) << cells.nHeight;
            EXPECT_TRUE(cells.nExternalLeading >= 0 && cells.nExternalLeading < nHeight / 2);
            EXPECT_TRUE(cells.nAveCharWidth > nHeight / 3 && cells.nAveCharWidth < nHeight);
            EXPECT_GE(cells.nMaxCharWidth, Advance(cells, 'W'));
            for (int c = 0; c < 256; ++c) {
                SCOPED_TRACE(c);
                ASSERT_TRUE(Width(cells, c) >= 0 && Width(cells, c) <= std::min(255, cells.nPitch * 8));
                const Extent ink = InkOf(cells, c, c);
                EXPECT_LT(ink.nRight, Width(cells, c));
                EXPECT_TRUE(ink.nCount || c == ' ' || c == 0xA0);
                if (wStyle & platform::kStyleUnderline || !ink.nCount)
                    continue;
                EXPECT_GE(ink.nLeft, cells.aSpacing[c].nA);
                EXPECT_LT(ink.nRight, cells.aSpacing[c].nA + cells.aSpacing[c].nB);
            }
        }
    }
}

TEST_F(RasterizerTest, LettersStandUprightOnOneBaseline) {
    const FontCells cells = Cells("ARIAL", 35, 0);
    const int nBaseline = InkOf(cells, 'H', 'H').nBottom;
    for (const char c : std::string("EFLTxz"))
        EXPECT_EQ(nBaseline, InkOf(cells, c, c).nBottom) << c;
    EXPECT_GT(InkOf(cells, 'p', 'p').nBottom, nBaseline);
    EXPECT_LT(InkOf(cells, 'H', 'H').nTop, InkOf(cells, 'x', 'x').nTop);
    const Extent ink = InkOf(cells, 'L', 'L');
    EXPECT_TRUE(Pixel(cells, 'L', ink.nLeft, ink.nTop));
    EXPECT_TRUE(Pixel(cells, 'L', ink.nRight, ink.nBottom));
    EXPECT_FALSE(Pixel(cells, 'L', ink.nRight, ink.nTop));
}

TEST_F(RasterizerTest, StylesShowInTheInk) {
    for (const int nHeight : kHeights) {
        SCOPED_TRACE(nHeight);
        const FontCells plain = Cells("ARIAL", nHeight, 0);
        const FontCells bold = Cells("ARIAL", nHeight, platform::kStyleBold);
        EXPECT_GT(InkOf(bold, '!', '~').nCount, InkOf(plain, '!', '~').nCount);
        const FontCells italic = Cells("ARIAL", nHeight, platform::kStyleItalic);
        EXPECT_GT(InkOf(italic, 'l', 'l').nRight - InkOf(italic, 'l', 'l').nLeft,
                  InkOf(plain, 'l', 'l').nRight - InkOf(plain, 'l', 'l').nLeft);
        const FontCells underlined = Cells("ARIAL", nHeight, platform::kStyleUnderline);
        ExpectUnderlined(underlined);
        EXPECT_EQ(0, memcmp(plain.aSpacing, underlined.aSpacing, sizeof plain.aSpacing));
        EXPECT_EQ(0, InkOf(plain, ' ', ' ').nCount);
    }
}

TEST_F(RasterizerTest, CharactersAreThoseOfCodePage1252) {
    const FontCells cells = Cells("ARIAL", 35, 0);
    const auto picture = [&](int c) {
        const size_t nCell = static_cast<size_t>(cells.nHeight * cells.nPitch);
        return std::string(reinterpret_cast<const char *>(cells.lpInk.get()) + nCell * static_cast<size_t>(c),
                           nCell);
    };
    const std::string missing = picture(0x81);
    for (const int c : {0, 1, 0x0A, 0x1F, 0x7F, 0x8D, 0x8F, 0x90, 0x9D})
        EXPECT_EQ(missing, picture(c)) << c;
    for (const int c : {0x41, 0x7E, 0x80, 0x85, 0x8A, 0x92, 0x97, 0x99, 0x9F, 0xA1, 0xE9, 0xFF})
        EXPECT_NE(missing, picture(c)) << c;
    EXPECT_GT(InkOf(cells, 0xE9, 0xE9).nCount, InkOf(cells, 'e', 'e').nCount);    // e acute
    EXPECT_GT(InkOf(cells, 0x8A, 0x8A).nCount, InkOf(cells, 'S', 'S').nCount);    // S caron
    EXPECT_LT(InkOf(cells, 0x8B, 0x8B).nCount, InkOf(cells, 0xAB, 0xAB).nCount);  // one angle, two angles
    EXPECT_GT(Advance(cells, 0x97), Advance(cells, 0x96));                        // em dash, en dash
    EXPECT_EQ(Advance(cells, ' '), Advance(cells, 0xA0));
}

TEST_F(RasterizerTest, AnyNameGivesAFontAndIsNeverReadAsMore) {
    const std::string unknown = Bytes(Cells("Zork", 15, 0));
    EXPECT_NE(Bytes(Cells("Zork", 15, platform::kStyleBold)), unknown);
    std::string every(255, ' ');
    for (int i = 0; i < 255; ++i)
        every[static_cast<size_t>(i)] = static_cast<char>(i + 1);
    for (const std::string &face :
         {std::string("Zork:bold"), std::string("Zork:weight=200:slant=100"), std::string("Zork,Courier New"),
          std::string("Zork-35"), std::string(":"), std::string(","), std::string("\\"),
          std::string("\x80\xFF"), every, std::string(255, '\xFF'), std::string(4000, ':')}) {
        EXPECT_EQ(unknown, Bytes(Cells(face, 15, 0))) << face;
    }
    EXPECT_GT(InkOf(Cells("", 15, 0), 'A', 'Z').nCount, 0);
    EXPECT_EQ(Bytes(Cells("ARIAL", 15, 0)), Bytes(Cells("aRiAl", 15, 0)));
}

TEST_F(RasterizerTest, AskingAgainGivesTheSameCells) {
    const std::string first = Bytes(Cells("ARIAL", 15, kAllStyles));
    EXPECT_EQ(first, Bytes(Cells("ARIAL", 15, kAllStyles)));
    for (int i = 1; i <= 100; ++i)  // more than is remembered, of names and of sets
        Cells("Zork" + std::to_string(i), i, 0);
    EXPECT_EQ(first, Bytes(Cells("ARIAL", 15, kAllStyles)));
    platform::ReleaseRasterizer();
    EXPECT_EQ(first, Bytes(Cells("ARIAL", 15, kAllStyles)));
}

TEST_F(RasterizerTest, ThreadsGetTheSameCells) {
    std::string aResults[2][7];
    const auto run = [&](int nThread) {
        for (int i = 0; i < 7; ++i) {
            const int nSize = nThread ? 6 - i : i;
            aResults[nThread][nSize] = Bytes(Cells("ARIAL", kHeights[nSize], platform::kStyleBold));
        }
    };
    std::thread first(run, 0), second(run, 1);
    first.join();
    second.join();
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(aResults[0][i], aResults[1][i]) << kHeights[i];
}

TEST_F(RasterizerTest, ExtremeHeightsStayInTheirCells) {
    for (const int nHeight : {1, 2, 3, 100, 254, 255}) {
        SCOPED_TRACE(nHeight);
        const FontCells cells = Cells("ARIAL", nHeight, kAllStyles);
        EXPECT_TRUE(cells.nHeight >= 1 && cells.nHeight <= 255);
        ExpectUnderlined(cells);
        for (int c = 0; c < 256; ++c)
            EXPECT_TRUE(Width(cells, c) >= 0 && Width(cells, c) <= std::min(255, cells.nPitch * 8)) << c;
    }
}

TEST_F(RasterizerTest, WithoutAnyFontEveryCharacterIsAHollowBox) {
    OtherFonts none("");
    for (const int nHeight : {1, 10, 15, 35, 255}) {
        SCOPED_TRACE(nHeight);
        const FontCells cells = Cells("ARIAL", nHeight, platform::kStyleBold);
        EXPECT_TRUE(cells.nHeight >= nHeight && cells.nHeight <= 255);
        for (int c = 0; c < 256; ++c) {
            const Extent ink = InkOf(cells, c, c);
            const int nSides = 2 * (ink.nRight - ink.nLeft + ink.nBottom - ink.nTop);
            ASSERT_EQ(nHeight - 1, ink.nBottom - ink.nTop);
            ASSERT_EQ(nHeight == 1 ? 1 : nSides, ink.nCount) << c;
            ASSERT_LT(ink.nRight, Width(cells, c));
        }
        ExpectUnderlined(Cells("ARIAL", nHeight, platform::kStyleUnderline));
    }
}

TEST_F(RasterizerTest, StylesThatNoFontHasAreMadeUp) {
    OtherFonts upright(
        "<include>fonts.conf</include><selectfont><rejectfont>"
        "<pattern><patelt name='weight'><const>bold</const></patelt></pattern>"
        "<pattern><patelt name='slant'><const>italic</const></patelt></pattern>"
        "<pattern><patelt name='slant'><const>oblique</const></patelt></pattern>"
        "</rejectfont></selectfont>");
    const FontCells plain = Cells("ARIAL", 35, 0), bold = Cells("ARIAL", 35, platform::kStyleBold);
    const FontCells italic = Cells("ARIAL", 35, platform::kStyleItalic);
    EXPECT_EQ(0, plain.nOverhang);
    EXPECT_EQ(1, bold.nOverhang);
    EXPECT_EQ(0, italic.nOverhang);
    for (const int c : {'H', 'l', 'i', 'T', ' '})
        EXPECT_EQ(Advance(plain, c) + 1, Advance(bold, c)) << c;
    const Extent l = InkOf(plain, 'l', 'l'), boldL = InkOf(bold, 'l', 'l'), italicL = InkOf(italic, 'l', 'l');
    EXPECT_EQ(l.nLeft, boldL.nLeft);
    EXPECT_EQ(l.nRight + 1, boldL.nRight);
    EXPECT_TRUE(Pixel(italic, 'l', italicL.nRight, italicL.nTop));
    EXPECT_TRUE(Pixel(italic, 'l', italicL.nLeft, italicL.nBottom));
    EXPECT_GT(italicL.nRight - italicL.nLeft, l.nRight - l.nLeft + 3);
    EXPECT_EQ(Advance(plain, 'l'), Advance(italic, 'l'));
}

// A bitmap font of nPixels with one letter, whose ink sticks out of its cell to the left and above: a column,
// and a dot far up.
std::string BitmapFont(int nPixels) {
    const std::string pixels = std::to_string(nPixels);
    return "STARTFONT 2.1\nFONT -x-Dots-Medium-R-Normal--" + pixels + '-' + pixels +
           "0-75-75-C-80-ISO10646-1\nSIZE " + pixels + " 75 75\nFONTBOUNDINGBOX 8 " + pixels +
           " 0 0\nSTARTPROPERTIES 6\nFAMILY_NAME \"Dots\"\n" + "PIXEL_SIZE " + pixels +
           "\nFONT_ASCENT 6\nFONT_DESCENT 2\nCHARSET_REGISTRY \"ISO10646\"\n" +
           "CHARSET_ENCODING \"1\"\nENDPROPERTIES\nCHARS 1\nSTARTCHAR A\nENCODING 65\nSWIDTH 500 0\n" +
           "DWIDTH " + pixels +
           " 0\nBBX 4 8 -1 0\nBITMAP\nF0\n00\n60\n60\n60\n60\n60\nE0\nENDCHAR\nENDFONT\n";
}

TEST_F(RasterizerTest, BitmapFontsServeWhereThereIsNoOther) {
    OtherFonts bitmaps("");
    bitmaps.Write("dots8.bdf", BitmapFont(8));
    bitmaps.Write("dots16.bdf", BitmapFont(16));
    const FontCells cells = Cells("Dots", 15, 0), bold = Cells("Dots", 10, platform::kStyleBold);
    EXPECT_EQ(8, cells.nHeight);
    EXPECT_EQ(16, Advance(cells, 'A'));
    EXPECT_EQ(-1, cells.aSpacing['A'].nA);
    EXPECT_EQ(4, cells.aSpacing['A'].nB);
    const uint8_t aPlain[8] = {0xC0, 0xC0, 0xC0, 0xC0, 0xC0, 0xC0, 0, 0};
    EXPECT_EQ(0, memcmp(aPlain, &cells.lpInk['A' * 8 * cells.nPitch], 1));
    EXPECT_EQ(9, Advance(bold, 'A'));
    EXPECT_EQ(5, bold.aSpacing['A'].nB);
    EXPECT_EQ(6 * 3, InkOf(bold, 'A', 'A').nCount);
    EXPECT_EQ(6 * 2, InkOf(cells, 'A', 'A').nCount);
}

}  // namespace
