// The rasteriser against the fonts of the system, and against sets of fonts arranged for one test.
#include "platform/rasterizer.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using platform::kStyleBold, platform::kStyleItalic, platform::kStyleUnderline;

constexpr uint16_t kAllStyles = kStyleBold | kStyleItalic | kStyleUnderline;

// All characters of a font.
struct FontCells : platform::RasterFont {
    std::vector<platform::CharCell> cells{256};
};

FontCells Cells(const std::string &face, int nHeight, uint16_t wStyle) {
    FontCells cells = {};
    platform::Rasterizer *lpRasterizer = platform::GetRasterizer();
    EXPECT_TRUE(lpRasterizer->Open(face.c_str(), nHeight, wStyle, &cells));
    for (platform::CharCell &cell : cells.cells)
        EXPECT_TRUE(lpRasterizer->Draw(cells, static_cast<int>(&cell - cells.cells.data()), &cell));
    return cells;
}

// A character: its advance, the width of its cell, its cell with '#' for ink, and where the ink is.
struct Glyph {
    static constexpr int kPitch = platform::kCellPitch * 8;
    int nA, nB, nAdvance, nWidth, nLeft = 1000, nRight = -1, nTop = 1000, nBottom = -1, nCount = 0;
    std::string ink;

    Glyph(const FontCells &cells, int c) {
        const platform::CharCell &cell = cells.cells[static_cast<size_t>(c)];
        nA = cell.nA, nB = cell.nB, nAdvance = nA + nB + cell.nC;
        nWidth = nAdvance - std::min(cell.nC, 0);
        ink.assign(static_cast<size_t>(cells.nHeight * kPitch), '.');
        for (int i = 0; i < cells.nHeight * kPitch; ++i) {
            if (!(cell.aInk[i / 8] >> (7 - i % 8) & 1))
                continue;
            ink[static_cast<size_t>(i)] = '#';
            ++nCount;
            nLeft = std::min(nLeft, i % kPitch), nRight = std::max(nRight, i % kPitch);
            nTop = std::min(nTop, i / kPitch), nBottom = i / kPitch;
        }
    }
    bool At(int x, int y) const { return ink[static_cast<size_t>(y * kPitch + x)] == '#'; }
    bool IsLined(int y) const {
        return ink.find('.', static_cast<size_t>(y * kPitch)) >= size_t(y * kPitch + nWidth);
    }
    int Wide() const { return nRight - nLeft; }
};

// Everything there is in a set, so that two can be compared.
std::string Bytes(const FontCells &cells) {
    return std::string(reinterpret_cast<const char *>(&cells), offsetof(platform::RasterFont, lpSource)) +
           std::string(reinterpret_cast<const char *>(cells.cells.data()), 256 * sizeof cells.cells[0]);
}

void ExpectBoxes(const FontCells &cells, int nHeight) {
    EXPECT_TRUE(cells.nHeight >= nHeight && cells.nHeight <= 255);
    for (int c = 0; c < 256; ++c) {
        const Glyph g(cells, c);
        ASSERT_TRUE(g.nBottom - g.nTop == nHeight - 1 && g.nRight < g.nWidth) << c;
        ASSERT_EQ(g.nCount, nHeight == 1 ? 1 : 2 * (g.Wide() + nHeight - 1)) << c;
    }
}

// Other fonts than those of the system, for as long as the object lives.
struct OtherFonts {
    const std::filesystem::path path = "/tmp/tessel-fonts." + std::to_string(getpid());

    explicit OtherFonts(const std::string &rules) {
        std::filesystem::create_directories(path);
        Write("fonts.conf", "<fontconfig><cachedir>" + (path / "cache").string() + "</cachedir><dir>" +
                                path.string() + "</dir>" + rules + "</fontconfig>");
        setenv("FONTCONFIG_FILE", (path / "fonts.conf").c_str(), 1);
        platform::ReleaseRasterizer();
    }
    ~OtherFonts() {
        unsetenv("FONTCONFIG_FILE");
        platform::ReleaseRasterizer();
        std::filesystem::remove_all(path);
    }
    void Write(const std::string &name, const std::string &text) { std::ofstream(path / name) << text; }
};

class RasterizerTest : public testing::Test {
  protected:
    void TearDown() override { platform::ReleaseRasterizer(); }
};

TEST_F(RasterizerTest, EverySizeAndStyleHasSoundMetricsAndItsInkInsideTheCells) {
    const std::string text = "a field is as wide as so many characters of a common text would be";
    for (int i = 0; i < 13 * 8; ++i) {
        constexpr int kAllHeights[] = {10, 12, 15, 17, 21, 27, 35, 1, 2, 3, 100, 254, 255};
        const int nHeight = kAllHeights[i % 13];
        const uint16_t wStyle = static_cast<uint16_t>(i / 13);
        const bool bUsual = i % 13 < 7, bLined = wStyle & kStyleUnderline;
        SCOPED_TRACE(testing::Message() << "height " << nHeight << " style " << wStyle);
        if (!bUsual && wStyle < kAllStyles)
            continue;
        const FontCells cells = Cells("ARIAL", nHeight, wStyle);
        int nText = 0;
        for (const char c : text)
            nText += Glyph(cells, c).nAdvance;
        EXPECT_TRUE(cells.nHeight >= nHeight && cells.nHeight <= std::min(2 * nHeight, 255));
        EXPECT_TRUE(!bUsual || (cells.nExternalLeading >= 0 && cells.nExternalLeading < nHeight / 2 &&
                                cells.nAveCharWidth > nHeight / 3 && cells.nAveCharWidth < nHeight &&
                                cells.nMaxCharWidth >= Glyph(cells, 'W').nAdvance &&
                                std::abs(cells.nAveCharWidth - nText / static_cast<int>(text.size())) <= 1));
        const Glyph space(cells, ' ');
        EXPECT_EQ(space.nBottom - space.nTop, bLined ? space.nCount / space.nWidth - 1 : -1001);
        EXPECT_LE(space.nCount, space.nWidth * (1 + nHeight / 8));
        for (int c = 0; c < 256; c += bUsual ? 1 : 37) {
            const Glyph g(cells, c);
            ASSERT_TRUE(g.nWidth >= 0 && g.nWidth <= 255 && g.nRight < g.nWidth) << c;
            EXPECT_TRUE(!bLined || g.IsLined(space.nTop)) << c;
            EXPECT_TRUE(!bUsual || c == ' ' || c == 0xA0 || bLined ||
                        (g.nCount && g.nLeft >= g.nA && g.nRight < g.nA + g.nB))
                << c;
        }
    }
}

TEST_F(RasterizerTest, LettersStandOnOneBaselineAndStylesShow) {
    for (const int nHeight : {10, 12, 15, 17, 21, 27, 35}) {
        SCOPED_TRACE(nHeight);
        const FontCells plain = Cells("ARIAL", nHeight, 0), lined = Cells("ARIAL", nHeight, kStyleUnderline);
        const FontCells bold = Cells("ARIAL", nHeight, kStyleBold),
                        italic = Cells("ARIAL", nHeight, kStyleItalic);
        const Glyph p(plain, 'p'), H(plain, 'H'), x(plain, 'x'), L(plain, 'L'), l(plain, 'l');
        for (const char c : std::string("EFLTxz"))
            EXPECT_EQ(H.nBottom, Glyph(plain, c).nBottom) << c;
        EXPECT_TRUE(p.nBottom > H.nBottom && H.nTop < x.nTop);
        EXPECT_TRUE(L.At(L.nLeft, L.nTop) && L.At(L.nRight, L.nBottom) && !L.At(L.nRight, L.nTop));
        int nMoreInk = 0;
        for (int c = '!'; c <= '~'; ++c)
            nMoreInk += Glyph(bold, c).nCount - Glyph(plain, c).nCount;
        EXPECT_TRUE(nMoreInk > 0 && Glyph(italic, 'l').Wide() > l.Wide());
        for (int c = 0; c < 256; ++c)
            EXPECT_EQ(Glyph(plain, c).nAdvance, Glyph(lined, c).nAdvance) << c;
    }
}

TEST_F(RasterizerTest, CharactersAreThoseOfCodePage1252) {
    const FontCells cells = Cells("ARIAL", 35, 0);
    const auto Missing = [&](int c) { return Glyph(cells, c).ink == Glyph(cells, 0x81).ink; };
    for (const int c : {0, 1, 0x0A, 0x1F, 0x7F, 0x8D, 0x8F, 0x90, 0x9D})
        EXPECT_TRUE(Missing(c)) << c;
    for (const int c : {0x41, 0x7E, 0x80, 0x85, 0x8A, 0x92, 0x97, 0x99, 0x9F, 0xA1, 0xE9, 0xFF})
        EXPECT_FALSE(Missing(c)) << c;
    // More ink than the other: e acute, S caron, two angles, em dash. The two spaces are as wide.
    for (const auto &[nMore, nLess] : {std::pair{0xE9, 'e' + 0}, {0x8A, 'S'}, {0xAB, 0x8B}, {0x97, 0x96}})
        EXPECT_GT(Glyph(cells, nMore).nCount, Glyph(cells, nLess).nCount) << nMore;
    EXPECT_EQ(Glyph(cells, ' ').nAdvance, Glyph(cells, 0xA0).nAdvance);
}

// Names are remembered, fewer than are asked for here.
TEST_F(RasterizerTest, AnyNameGivesAFontTheSameEachTimeAndOnTwoThreads) {
    const std::string unknown = Bytes(Cells("Zork", 15, 0)), known = Bytes(Cells("ARIAL", 27, kAllStyles));
    EXPECT_NE(unknown, Bytes(Cells("Zork", 15, kStyleBold)));
    std::string all;
    for (int c = 255; c > 0; --c)
        all += static_cast<char>(c);
    for (const std::string &face :
         {std::string("Zork:bold"), std::string("Zork:weight=200:slant=100"), std::string("Zork,Courier New"),
          std::string("Zork-35"), std::string(":"), std::string(","), std::string("\\"),
          std::string("\x80\xFF"), std::string(255, '\xFF'), std::string(4000, ':'), all})
        EXPECT_EQ(unknown, Bytes(Cells(face, 15, 0))) << face;
    EXPECT_GT(Glyph(Cells("", 15, 0), 'A').nCount, 0);
    for (int i = 1; i <= 100; ++i)
        Cells("Zork" + std::to_string(i), 1 + i % 40, 0);
    const auto ask = [&] { EXPECT_EQ(known, Bytes(Cells("aRiAl", 27, kAllStyles))); };
    ask();
    platform::ReleaseRasterizer();
    std::thread other(ask);
    ask();
    other.join();
}

TEST_F(RasterizerTest, StylesThatNoFontHasAreMadeUp) {
    const Glyph realBold(Cells("ARIAL", 35, kStyleBold), 'R'),
        realItalic(Cells("ARIAL", 35, kStyleItalic), 'f');
    std::string rules = "<include>fonts.conf</include><selectfont><rejectfont>";
    for (const std::string rule : {"weight'><const>bold", "slant'><const>italic", "slant'><const>oblique"})
        rules += "<pattern><patelt name='" + rule + "</const></patelt></pattern>";
    OtherFonts upright(rules + "</rejectfont></selectfont>");
    const FontCells plain = Cells("ARIAL", 35, 0), bold = Cells("ARIAL", 35, kStyleBold);
    const FontCells italic = Cells("ARIAL", 35, kStyleItalic);
    EXPECT_TRUE(plain.nOverhang == 0 && bold.nOverhang == 1 && italic.nOverhang == 0);
    EXPECT_TRUE(realBold.ink != Glyph(bold, 'R').ink && realItalic.ink != Glyph(italic, 'f').ink);
    for (const char c : std::string("HliT ")) {
        EXPECT_EQ(Glyph(plain, c).nAdvance + 1, Glyph(bold, c).nAdvance) << c;
        EXPECT_EQ(Glyph(plain, c).nAdvance, Glyph(italic, c).nAdvance) << c;
    }
    const Glyph l(plain, 'l'), boldL(bold, 'l'), italicL(italic, 'l');
    EXPECT_TRUE(l.nLeft == boldL.nLeft && l.nRight + 1 == boldL.nRight && italicL.Wide() > l.Wide() + 3);
    EXPECT_TRUE(italicL.At(italicL.nRight, italicL.nTop) && italicL.At(italicL.nLeft, italicL.nBottom));
}

TEST_F(RasterizerTest, WithoutAnyFontEveryCharacterIsAHollowBox) {
    OtherFonts none("");
    for (const int nHeight : {1, 10, 15, 35, 255}) {
        SCOPED_TRACE(nHeight);
        ExpectBoxes(Cells("ARIAL", nHeight, kStyleBold), nHeight);
        const Glyph box(Cells("ARIAL", nHeight, kStyleUnderline), ' ');
        EXPECT_TRUE(box.IsLined(box.nBottom));
    }
}

// Bitmap fonts with the letter A alone, which sticks out of its cell by a pixel to the left and by two rows above.
TEST_F(RasterizerTest, BitmapFontsServeWhereThereIsNoOther) {
    OtherFonts bitmaps("");
    const std::string font = (std::ostringstream() << std::ifstream(TESSEL_CASES "/dots.bdf").rdbuf()).str();
    for (const std::string n : {"8", "16", "32"}) {
        std::string sized = font;
        for (size_t i; (i = sized.find("SIDE")) != sized.npos;)
            sized.replace(i, 4, n);
        bitmaps.Write("dots" + n + ".bdf", sized);
    }
    const FontCells cells = Cells("Dots", 15, 0), bold = Cells("Dots", 7, kStyleBold);
    const Glyph a(cells, 'A'), boldA(bold, 'A');
    EXPECT_TRUE(a.nAdvance == 16 && a.nA == -1 && a.nB == 4);
    const std::string blank(Glyph::kPitch, '.'), row = "##" + blank.substr(2);
    EXPECT_EQ(row + row + row + row + row + row + blank + blank, a.ink);
    EXPECT_TRUE(boldA.nAdvance == 9 && boldA.nB == 5 && boldA.nCount == 6 * 3);
    bitmaps.Write("dots32.bdf", "spoilt");  // after fontconfig has seen it
    ExpectBoxes(Cells("Dots", 32, 0), 32);
}

}  // namespace
