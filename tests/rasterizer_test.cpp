// The rasteriser against the fonts of the system, and against sets of fonts arranged for one test.
#include "platform/rasterizer.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>

namespace {

using platform::kStyleBold, platform::kStyleItalic, platform::kStyleUnderline;

constexpr int kHeights[] = {10, 12, 15, 17, 21, 27, 35};
constexpr uint16_t kAllStyles = kStyleBold | kStyleItalic | kStyleUnderline;

struct Extent {
    int nCount = 0, nLeft = 1000, nRight = -1, nTop = 1000, nBottom = -1;
};

// What the rasteriser makes of a face.
struct Cells : platform::FontCells {
    explicit Cells(int nAsked, uint16_t wStyle = 0, const std::string &face = "ARIAL") : FontCells() {
        EXPECT_TRUE(platform::GetRasterizer()->Rasterize(face.c_str(), nAsked, wStyle, this));
    }
    int Advance(int c) const { return aSpacing[c].nA + aSpacing[c].nB + aSpacing[c].nC; }
    int Width(int c) const { return Advance(c) - std::min(aSpacing[c].nC, 0); }
    bool Pixel(int c, int x, int y) const {
        return lpInk[(c * nHeight + y) * nPitch + x / 8] >> (7 - x % 8) & 1;
    }
    bool IsSound() const {
        int nBad = nHeight < 1 || nHeight > 255;
        for (int c = 0; c < 256; ++c)
            nBad += Width(c) < 0 || Width(c) > std::min(255, nPitch * 8);
        return !nBad;
    }
    Extent Ink(int c) const {
        Extent ink;
        for (int i = 0; i < nHeight * nPitch * 8; ++i) {
            const int x = i % (nPitch * 8), y = i / (nPitch * 8);
            if (Pixel(c, x, y))
                ink = {ink.nCount + 1, std::min(ink.nLeft, x), std::max(ink.nRight, x), std::min(ink.nTop, y),
                       std::max(ink.nBottom, y)};
        }
        return ink;
    }
    // The cells of the characters from c on.
    std::string Picture(int c, int nCount = 1) const {
        return std::string(&lpInk[c * nHeight * nPitch],
                           &lpInk[c * nHeight * nPitch] + nCount * nHeight * nPitch);
    }
    // Everything there is in a set, so that two can be compared.
    std::string Bytes() const {
        const char *lpMetrics = reinterpret_cast<const char *>(static_cast<const FontCells *>(this));
        return std::string(lpMetrics, sizeof(FontCells) - sizeof lpInk) + Picture(0, 256);
    }
    void ExpectUnderlined() const {
        int nRows = 0;
        for (int y = 0; y < nHeight; ++y) {
            int nMissing = 0;
            for (int i = 0; i < 256 * 256; ++i)
                nMissing += i % 256 < Width(i / 256) && !Pixel(i / 256, i % 256, y);
            nRows += !nMissing;
        }
        EXPECT_TRUE(nRows >= 1 && nRows <= 1 + nHeight / 8) << nRows;
    }
    void ExpectBoxes(int nAsked) const {
        EXPECT_TRUE(nHeight >= nAsked && nHeight <= 255);
        for (int c = 0; c < 256; ++c) {
            const Extent ink = Ink(c);
            const int nSides = 2 * (ink.nRight - ink.nLeft + ink.nBottom - ink.nTop);
            ASSERT_EQ(nAsked - 1, ink.nBottom - ink.nTop);
            ASSERT_TRUE(ink.nCount == (nAsked == 1 ? 1 : nSides) && ink.nRight < Width(c)) << c;
        }
    }
};

class RasterizerTest : public testing::Test {
  protected:
    void TearDown() override {
        unsetenv("FONTCONFIG_FILE");
        platform::ReleaseRasterizer();
        std::filesystem::remove_all(_path);
    }
    // From here on there are only the fonts of the test's folder, and what the rules add.
    void UseOtherFonts(const std::string &rules) {
        std::filesystem::create_directories(_path);
        const std::string folders = "<cachedir>" + _path + "/cache</cachedir><dir>" + _path + "</dir>";
        Write("/fonts.conf", "<fontconfig>" + folders + rules + "</fontconfig>");
        setenv("FONTCONFIG_FILE", (_path + "/fonts.conf").c_str(), 1);
        platform::ReleaseRasterizer();
    }
    void Write(const std::string &name, const std::string &text) { std::ofstream(_path + name) << text; }

    const std::string _path = testing::TempDir() + "rasterizer_test." + std::to_string(getpid());
};

TEST_F(RasterizerTest, EverySizeAndStyleIsSoundAndShowsInTheInk) {
    for (int i = 0; i < 7 * 8; ++i) {
        const int nHeight = kHeights[i / 8], wStyle = i % 8;
        SCOPED_TRACE(testing::Message() << "height " << nHeight << " style " << wStyle);
        const Cells plain(nHeight), cells(nHeight, static_cast<uint16_t>(wStyle));
        ASSERT_TRUE(cells.IsSound() && cells.nHeight >= nHeight && cells.nHeight <= 2 * nHeight);
        EXPECT_TRUE(cells.nExternalLeading >= 0 && cells.nExternalLeading < nHeight / 2);
        EXPECT_TRUE(cells.nAveCharWidth > nHeight / 3 && cells.nAveCharWidth < nHeight);
        EXPECT_GE(cells.nMaxCharWidth, cells.Advance('W'));
        int nInk = 0, nPlainInk = 0;
        for (int c = 0; c < 256; ++c) {
            const Extent ink = cells.Ink(c);
            nInk += ink.nCount;
            nPlainInk += plain.Ink(c).nCount;
            const int nA = cells.aSpacing[c].nA, nEnd = nA + cells.aSpacing[c].nB;
            EXPECT_LT(ink.nRight, cells.Width(c)) << c;
            EXPECT_TRUE(ink.nCount || c == ' ' || c == 0xA0) << c;
            const bool bInside = ink.nLeft >= nA && ink.nRight < nEnd;
            EXPECT_TRUE(bInside || wStyle & kStyleUnderline || !ink.nCount) << c;
        }
        const Extent l = plain.Ink('l'), styledL = cells.Ink('l');
        EXPECT_TRUE(wStyle != kStyleBold || nInk > nPlainInk);
        EXPECT_TRUE(wStyle != kStyleItalic || styledL.nRight - styledL.nLeft > l.nRight - l.nLeft);
        if (wStyle & kStyleUnderline)
            cells.ExpectUnderlined();
        const bool bSame = !memcmp(plain.aSpacing, cells.aSpacing, sizeof plain.aSpacing);
        EXPECT_TRUE(bSame || wStyle != kStyleUnderline);
        EXPECT_EQ(0, plain.Ink(' ').nCount);
    }
    for (const int nHeight : {1, 2, 3, 100, 254, 255}) {
        const Cells cells(nHeight, kAllStyles);
        EXPECT_TRUE(cells.IsSound()) << nHeight;
        cells.ExpectUnderlined();
    }
}

TEST_F(RasterizerTest, CharactersAreThoseOfCodePage1252AndStandOnOneBaseline) {
    const Cells cells(35);
    const std::string missing = cells.Picture(0x81);
    for (const int c : {0, 1, 0x0A, 0x1F, 0x7F, 0x8D, 0x8F, 0x90, 0x9D})
        EXPECT_EQ(missing, cells.Picture(c)) << c;
    for (const int c : {0x41, 0x7E, 0x80, 0x85, 0x8A, 0x92, 0x97, 0x99, 0x9F, 0xA1, 0xE9, 0xFF})
        EXPECT_NE(missing, cells.Picture(c)) << c;
    EXPECT_GT(cells.Ink(0xE9).nCount, cells.Ink('e').nCount);   // e acute
    EXPECT_GT(cells.Ink(0x8A).nCount, cells.Ink('S').nCount);   // S caron
    EXPECT_LT(cells.Ink(0x8B).nCount, cells.Ink(0xAB).nCount);  // one angle, two angles
    EXPECT_GT(cells.Advance(0x97), cells.Advance(0x96));        // em dash, en dash
    EXPECT_EQ(cells.Advance(' '), cells.Advance(0xA0));

    for (const char c : std::string("EFLTxz"))
        EXPECT_EQ(cells.Ink('H').nBottom, cells.Ink(c).nBottom) << c;
    EXPECT_GT(cells.Ink('p').nBottom, cells.Ink('H').nBottom);
    EXPECT_LT(cells.Ink('H').nTop, cells.Ink('x').nTop);
    const Extent ink = cells.Ink('L');  // not mirrored
    EXPECT_TRUE(cells.Pixel('L', ink.nLeft, ink.nTop) && cells.Pixel('L', ink.nRight, ink.nBottom));
    EXPECT_FALSE(cells.Pixel('L', ink.nRight, ink.nTop));
}

TEST_F(RasterizerTest, AnyNameGivesAFontAndIsNeverReadAsMore) {
    const std::string unknown = Cells(15, 0, "Zork").Bytes();
    EXPECT_NE(unknown, Cells(15, kStyleBold, "Zork").Bytes());
    for (const char *lpszFace : {"Zork:bold", "Zork:weight=200:slant=100", "Zork,Courier New", "Zork-35", ":",
                                 ",", "\\", "\x80\xFF", "\1\n\x1F\x7F\"<&>"})
        EXPECT_EQ(unknown, Cells(15, 0, lpszFace).Bytes()) << lpszFace;
    for (const std::string &face : {std::string(255, '\xFF'), std::string(4000, ':')})
        EXPECT_EQ(unknown, Cells(15, 0, face).Bytes()) << face;
    EXPECT_GT(Cells(15, 0, "").Ink('A').nCount, 0);
    EXPECT_EQ(Cells(15).Bytes(), Cells(15, 0, "aRiAl").Bytes());
}

TEST_F(RasterizerTest, AskingAgainGivesTheSameCellsInEveryThread) {
    const std::string first = Cells(15, kAllStyles).Bytes();
    for (int i = 1; i <= 100; ++i)  // more than is remembered, of names and of sets
        Cells(i, 0, "Zork" + std::to_string(i));
    EXPECT_EQ(first, Cells(15, kAllStyles).Bytes());
    platform::ReleaseRasterizer();
    EXPECT_EQ(first, Cells(15, kAllStyles).Bytes());

    platform::ReleaseRasterizer();  // so that both threads find it new
    std::string aResults[2];
    const auto run = [&](int nThread) {
        for (const int nHeight : kHeights)
            aResults[nThread] += Cells(nHeight, kStyleBold).Bytes();
    };
    std::thread other(run, 0);
    run(1);
    other.join();
    EXPECT_TRUE(aResults[0] == aResults[1]);
}

TEST_F(RasterizerTest, StylesThatNoFontHasAreMadeUp) {
    const std::string realItalic = Cells(35, kStyleItalic).Picture('f');
    UseOtherFonts(
        "<include>fonts.conf</include><selectfont><rejectfont>"
        "<pattern><patelt name='weight'><const>bold</const></patelt></pattern>"
        "<pattern><patelt name='slant'><const>italic</const></patelt></pattern>"
        "<pattern><patelt name='slant'><const>oblique</const></patelt></pattern>"
        "</rejectfont></selectfont>");
    const Cells plain(35), bold(35, kStyleBold), italic(35, kStyleItalic);
    EXPECT_TRUE(plain.nOverhang == 0 && bold.nOverhang == 1 && italic.nOverhang == 0);
    EXPECT_NE(realItalic, italic.Picture('f'));
    for (const char c : std::string("HliT "))
        EXPECT_EQ(plain.Advance(c) + 1, bold.Advance(c)) << c;
    const Extent l = plain.Ink('l'), boldL = bold.Ink('l'), italicL = italic.Ink('l');
    EXPECT_TRUE(boldL.nLeft == l.nLeft && boldL.nRight == l.nRight + 1);
    EXPECT_TRUE(italic.Pixel('l', italicL.nRight, italicL.nTop));  // it leans to the right
    EXPECT_GT(italicL.nRight - italicL.nLeft, l.nRight - l.nLeft + 3);
    EXPECT_EQ(plain.Advance('l'), italic.Advance('l'));
}

// A bitmap font of @ pixels with the letter A alone. It sticks out of its cell by a pixel to the left and by
// two rows above.
constexpr char kBitmapFont[] =
    "STARTFONT 2.1\nFONT -x-Dots-Medium-R-Normal--@-@0-75-75-C-80-ISO10646-1\nSIZE @ 75 75\n"
    "FONTBOUNDINGBOX 8 @ 0 0\nSTARTPROPERTIES 6\nFAMILY_NAME \"Dots\"\nPIXEL_SIZE @\nFONT_ASCENT 6\n"
    "FONT_DESCENT 2\nCHARSET_REGISTRY \"ISO10646\"\nCHARSET_ENCODING \"1\"\nENDPROPERTIES\nCHARS 1\n"
    "STARTCHAR A\nENCODING 65\nSWIDTH 500 0\nDWIDTH @ 0\nBBX 4 8 -1 0\nBITMAP\n"
    "F0\n00\n60\n60\n60\n60\n60\nE0\nENDCHAR\nENDFONT\n";

TEST_F(RasterizerTest, BitmapFontsServeWhereThereIsNoOtherAndHollowBoxesWhereThereIsNone) {
    UseOtherFonts("");
    for (const int nHeight : {1, 10, 15, 35, 255}) {
        Cells(nHeight, kStyleBold).ExpectBoxes(nHeight);
        Cells(nHeight, kStyleUnderline).ExpectUnderlined();
    }
    platform::ReleaseRasterizer();
    for (const char *lpszSize : {"8", "16", "32"})
        Write(std::string("/") + lpszSize + ".bdf",
              std::regex_replace(kBitmapFont, std::regex("@"), lpszSize));
    const Cells cells(15, 0, "Dots"), bold(7, kStyleBold, "Dots");
    EXPECT_EQ(16, cells.Advance('A'));
    EXPECT_TRUE(cells.aSpacing['A'].nA == -1 && cells.aSpacing['A'].nB == 4);
    const std::string rows("\xC0\0\xC0\0\xC0\0\xC0\0\xC0\0\xC0\0\0\0\0\0", 16);
    EXPECT_EQ(rows, cells.Picture('A'));
    EXPECT_TRUE(bold.Advance('A') == 9 && bold.aSpacing['A'].nB == 5);
    EXPECT_EQ(6 * 3, bold.Ink('A').nCount);
    Write("/32.bdf", "spoilt");  // after fontconfig has seen it
    Cells(32, 0, "Dots").ExpectBoxes(32);
}

}  // namespace
