// The rasteriser against the fonts of the system, and against sets of fonts arranged for one test.
#include "platform/rasterizer.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <thread>

namespace {

using platform::FontCells;
using platform::kStyleBold, platform::kStyleItalic, platform::kStyleUnderline;

constexpr int kHeights[] = {10, 12, 15, 17, 21, 27, 35};
constexpr uint16_t kAllStyles = kStyleBold | kStyleItalic | kStyleUnderline;

FontCells Cells(const std::string &face, int nHeight, uint16_t wStyle) {
    FontCells cells = {};
    EXPECT_TRUE(platform::GetRasterizer()->Rasterize(face.c_str(), nHeight, wStyle, &cells));
    return cells;
}

int Advance(const FontCells &cells, int c) {
    return cells.aSpacing[c].nA + cells.aSpacing[c].nB + cells.aSpacing[c].nC;
}

int Width(const FontCells &cells, int c) {
    return Advance(cells, c) - std::min(cells.aSpacing[c].nC, 0);
}

bool Pixel(const FontCells &cells, int c, int x, int y) {
    return cells.lpInk[(c * cells.nHeight + y) * cells.nPitch + x / 8] >> (7 - x % 8) & 1;
}

// The whole pitch of a cell, a line for each row.
std::string Picture(const FontCells &cells, int c) {
    std::string picture;
    for (int y = 0; y < cells.nHeight; ++y) {
        for (int x = 0; x < cells.nPitch * 8; ++x)
            picture += Pixel(cells, c, x, y) ? '#' : '.';
        picture += '\n';
    }
    return picture;
}

struct Extent {
    int nCount = 0, nLeft = 1000, nRight = -1, nTop = 1000, nBottom = -1;
};

// Of the ink of the characters nFirst to nLast.
Extent InkOf(const FontCells &cells, int nFirst, int nLast) {
    Extent ink;
    for (int c = nFirst; c <= nLast; ++c) {
        for (int i = 0; i < cells.nHeight * cells.nPitch * 8; ++i) {
            const int x = i % (cells.nPitch * 8), y = i / (cells.nPitch * 8);
            if (!Pixel(cells, c, x, y))
                continue;
            ink = {ink.nCount + 1, std::min(ink.nLeft, x), std::max(ink.nRight, x), std::min(ink.nTop, y),
                   std::max(ink.nBottom, y)};
        }
    }
    return ink;
}

Extent InkOf(const FontCells &cells, int c) {
    return InkOf(cells, c, c);
}

// Everything there is in a set, so that two can be compared.
std::string Bytes(const FontCells &cells) {
    const size_t nInk = static_cast<size_t>(256 * cells.nHeight * cells.nPitch);
    return std::string(reinterpret_cast<const char *>(&cells), sizeof cells - sizeof cells.lpInk) +
           std::string(reinterpret_cast<const char *>(cells.lpInk.get()), nInk);
}

bool FullRow(const FontCells &cells, int y) {
    for (int c = 0; c < 256; ++c) {
        for (int x = 0; x < Width(cells, c); ++x) {
            if (!Pixel(cells, c, x, y))
                return false;
        }
    }
    return true;
}

void ExpectUnderlined(const FontCells &cells) {
    int nRows = 0;
    for (int y = 0; y < cells.nHeight; ++y)
        nRows += FullRow(cells, y);
    EXPECT_TRUE(nRows >= 1 && nRows <= 1 + cells.nHeight / 8) << nRows;
}

// Other fonts than those of the system, for as long as the object lives.
class OtherFonts {
  public:
    explicit OtherFonts(const std::string &rules) {
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
    std::filesystem::path _path =
        std::filesystem::temp_directory_path() / ("rasterizer_test." + std::to_string(getpid()));
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
            const std::string text = "a field is as wide as so many characters of a common text would be";
            const int nText = std::transform_reduce(text.begin(), text.end(), 0, std::plus<>(),
                                                    [&](char c) { return Advance(cells, c); });
            EXPECT_NEAR(cells.nAveCharWidth, static_cast<double>(nText) / static_cast<double>(text.size()),
                        1);
            EXPECT_GE(cells.nMaxCharWidth, Advance(cells, 'W'));
            for (int c = 0; c < 256; ++c) {
                SCOPED_TRACE(c);
                ASSERT_TRUE(Width(cells, c) >= 0 && Width(cells, c) <= std::min(255, cells.nPitch * 8));
                const Extent ink = InkOf(cells, c);
                EXPECT_LT(ink.nRight, Width(cells, c));
                EXPECT_TRUE(ink.nCount || c == ' ' || c == 0xA0);
                if (wStyle & kStyleUnderline || !ink.nCount)
                    continue;
                EXPECT_GE(ink.nLeft, cells.aSpacing[c].nA);
                EXPECT_LT(ink.nRight, cells.aSpacing[c].nA + cells.aSpacing[c].nB);
            }
        }
    }
}

TEST_F(RasterizerTest, LettersStandOnOneBaselineAndAreNotMirrored) {
    const FontCells cells = Cells("ARIAL", 35, 0);
    for (const char c : std::string("EFLTxz"))
        EXPECT_EQ(InkOf(cells, 'H').nBottom, InkOf(cells, c).nBottom) << c;
    EXPECT_GT(InkOf(cells, 'p').nBottom, InkOf(cells, 'H').nBottom);
    EXPECT_LT(InkOf(cells, 'H').nTop, InkOf(cells, 'x').nTop);
    const Extent ink = InkOf(cells, 'L');
    EXPECT_TRUE(Pixel(cells, 'L', ink.nLeft, ink.nTop) && Pixel(cells, 'L', ink.nRight, ink.nBottom));
    EXPECT_FALSE(Pixel(cells, 'L', ink.nRight, ink.nTop));
}

TEST_F(RasterizerTest, StylesShowInTheInk) {
    for (const int nHeight : kHeights) {
        SCOPED_TRACE(nHeight);
        const FontCells plain = Cells("ARIAL", nHeight, 0), bold = Cells("ARIAL", nHeight, kStyleBold);
        EXPECT_GT(InkOf(bold, '!', '~').nCount, InkOf(plain, '!', '~').nCount);
        const FontCells italic = Cells("ARIAL", nHeight, kStyleItalic);
        EXPECT_GT(InkOf(italic, 'l').nRight - InkOf(italic, 'l').nLeft,
                  InkOf(plain, 'l').nRight - InkOf(plain, 'l').nLeft);
        const FontCells underlined = Cells("ARIAL", nHeight, kStyleUnderline);
        ExpectUnderlined(underlined);
        EXPECT_EQ(0, memcmp(plain.aSpacing, underlined.aSpacing, sizeof plain.aSpacing));
        EXPECT_EQ(0, InkOf(plain, ' ').nCount);
    }
}

TEST_F(RasterizerTest, CharactersAreThoseOfCodePage1252) {
    const FontCells cells = Cells("ARIAL", 35, 0);
    const std::string missing = Picture(cells, 0x81);
    for (const int c : {0, 1, 0x0A, 0x1F, 0x7F, 0x8D, 0x8F, 0x90, 0x9D})
        EXPECT_EQ(missing, Picture(cells, c)) << c;
    for (const int c : {0x41, 0x7E, 0x80, 0x85, 0x8A, 0x92, 0x97, 0x99, 0x9F, 0xA1, 0xE9, 0xFF})
        EXPECT_NE(missing, Picture(cells, c)) << c;
    EXPECT_GT(InkOf(cells, 0xE9).nCount, InkOf(cells, 'e').nCount);   // e acute
    EXPECT_GT(InkOf(cells, 0x8A).nCount, InkOf(cells, 'S').nCount);   // S caron
    EXPECT_LT(InkOf(cells, 0x8B).nCount, InkOf(cells, 0xAB).nCount);  // one angle, two angles
    EXPECT_GT(Advance(cells, 0x97), Advance(cells, 0x96));            // em dash, en dash
    EXPECT_EQ(Advance(cells, ' '), Advance(cells, 0xA0));
}

TEST_F(RasterizerTest, AnyNameGivesAFontAndIsNeverReadAsMore) {
    const std::string unknown = Bytes(Cells("Zork", 15, 0));
    EXPECT_NE(unknown, Bytes(Cells("Zork", 15, kStyleBold)));
    std::string every;
    for (int c = 1; c < 256; ++c)
        every += static_cast<char>(c);
    for (const std::string &face :
         {std::string("Zork:bold"), std::string("Zork:weight=200:slant=100"), std::string("Zork,Courier New"),
          std::string("Zork-35"), std::string(":"), std::string(","), std::string("\\"),
          std::string("\x80\xFF"), every, std::string(255, '\xFF'), std::string(4000, ':')}) {
        EXPECT_EQ(unknown, Bytes(Cells(face, 15, 0))) << face;
    }
    EXPECT_GT(InkOf(Cells("", 15, 0), 'A').nCount, 0);
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
            aResults[nThread][nSize] = Bytes(Cells("ARIAL", kHeights[nSize], kStyleBold));
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

TEST_F(RasterizerTest, StylesThatNoFontHasAreMadeUp) {
    const std::string realBold = Picture(Cells("ARIAL", 35, kStyleBold), 'R');
    const std::string realItalic = Picture(Cells("ARIAL", 35, kStyleItalic), 'f');
    OtherFonts upright(
        "<include>fonts.conf</include><selectfont><rejectfont>"
        "<pattern><patelt name='weight'><const>bold</const></patelt></pattern>"
        "<pattern><patelt name='slant'><const>italic</const></patelt></pattern>"
        "<pattern><patelt name='slant'><const>oblique</const></patelt></pattern>"
        "</rejectfont></selectfont>");
    const FontCells plain = Cells("ARIAL", 35, 0), bold = Cells("ARIAL", 35, kStyleBold);
    const FontCells italic = Cells("ARIAL", 35, kStyleItalic);
    EXPECT_EQ("0 1 0", std::to_string(plain.nOverhang) + ' ' + std::to_string(bold.nOverhang) + ' ' +
                           std::to_string(italic.nOverhang));
    EXPECT_NE(realBold, Picture(bold, 'R'));
    EXPECT_NE(realItalic, Picture(italic, 'f'));
    for (const char c : std::string("HliT "))
        EXPECT_EQ(Advance(plain, c) + 1, Advance(bold, c)) << c;
    const Extent l = InkOf(plain, 'l'), boldL = InkOf(bold, 'l'), italicL = InkOf(italic, 'l');
    EXPECT_EQ(l.nLeft, boldL.nLeft);
    EXPECT_EQ(l.nRight + 1, boldL.nRight);
    EXPECT_TRUE(Pixel(italic, 'l', italicL.nRight, italicL.nTop));
    EXPECT_TRUE(Pixel(italic, 'l', italicL.nLeft, italicL.nBottom));
    EXPECT_GT(italicL.nRight - italicL.nLeft, l.nRight - l.nLeft + 3);
    EXPECT_EQ(Advance(plain, 'l'), Advance(italic, 'l'));
}

void ExpectBoxes(const FontCells &cells, int nHeight) {
    EXPECT_TRUE(cells.nHeight >= nHeight && cells.nHeight <= 255);
    for (int c = 0; c < 256; ++c) {
        const Extent ink = InkOf(cells, c);
        const int nSides = 2 * (ink.nRight - ink.nLeft + ink.nBottom - ink.nTop);
        ASSERT_EQ(nHeight - 1, ink.nBottom - ink.nTop);
        ASSERT_EQ(nHeight == 1 ? 1 : nSides, ink.nCount) << c;
        ASSERT_LT(ink.nRight, Width(cells, c));
    }
}

TEST_F(RasterizerTest, WithoutAnyFontEveryCharacterIsAHollowBox) {
    OtherFonts none("");
    for (const int nHeight : {1, 10, 15, 35, 255}) {
        SCOPED_TRACE(nHeight);
        ExpectBoxes(Cells("ARIAL", nHeight, kStyleBold), nHeight);
        ExpectUnderlined(Cells("ARIAL", nHeight, kStyleUnderline));
    }
}

// A bitmap font of nPixels with the letter A alone. It sticks out of its cell by a pixel to the left and by
// two rows above.
std::string BitmapFont(int nPixels) {
    const std::string pixels = std::to_string(nPixels);
    return "STARTFONT 2.1\nFONT -x-Dots-Medium-R-Normal--" + pixels + '-' + pixels +
           "0-75-75-C-80-ISO10646-1\n" + "SIZE " + pixels + " 75 75\nFONTBOUNDINGBOX 8 " + pixels +
           " 0 0\nSTARTPROPERTIES 6\n" + "FAMILY_NAME \"Dots\"\nPIXEL_SIZE " + pixels +
           "\nFONT_ASCENT 6\nFONT_DESCENT 2\n" +
           "CHARSET_REGISTRY \"ISO10646\"\nCHARSET_ENCODING \"1\"\nENDPROPERTIES\nCHARS 1\nSTARTCHAR A\n" +
           "ENCODING 65\nSWIDTH 500 0\nDWIDTH " + pixels + " 0\nBBX 4 8 -1 0\nBITMAP\n" +
           "F0\n00\n60\n60\n60\n60\n60\nE0\nENDCHAR\nENDFONT\n";
}

TEST_F(RasterizerTest, BitmapFontsServeWhereThereIsNoOther) {
    OtherFonts bitmaps("");
    bitmaps.Write("dots8.bdf", BitmapFont(8));
    bitmaps.Write("dots16.bdf", BitmapFont(16));
    bitmaps.Write("dots32.bdf", BitmapFont(32));
    const FontCells cells = Cells("Dots", 15, 0), bold = Cells("Dots", 7, kStyleBold);
    EXPECT_EQ(16, Advance(cells, 'A'));
    EXPECT_EQ(-1, cells.aSpacing['A'].nA);
    EXPECT_EQ(4, cells.aSpacing['A'].nB);
    const std::string row = "##..............\n", blank = "................\n";
    EXPECT_EQ(row + row + row + row + row + row + blank + blank, Picture(cells, 'A'));
    EXPECT_EQ(9, Advance(bold, 'A'));
    EXPECT_EQ(5, bold.aSpacing['A'].nB);
    EXPECT_EQ(6 * 3, InkOf(bold, 'A').nCount);
    bitmaps.Write("dots32.bdf", "spoilt");  // after fontconfig has seen it
    ExpectBoxes(Cells("Dots", 32, 0), 32);
}

}  // namespace
