// The pixel routines, drawn on a small sheet and compared with pictures of it: rows with '/' between them, '.' for a
// pixel that was not written, any other character for one that has this character as its colour.
#include "gfx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fontmanager.h"

namespace {

// Draws something of w by h pixels at an origin with 4 columns and rows of guard. What is not in the first w columns
// and h rows from there on shows as an error.
template <class Draw>
std::string Drawn(Draw draw, int w, int h) {
    constexpr int kSize = 20, kGuard = 4;
    std::vector<uint32_t> pixels(kSize * kSize, '.');
    g_nBufferWidth = kSize;
    draw(w, h, &pixels[kGuard * kSize + kGuard]);
    std::string strPicture;
    for (int i = 0; i < kSize * kSize; ++i) {
        const int x = i % kSize - kGuard, y = i / kSize - kGuard;
        const auto c = static_cast<char>(pixels[static_cast<size_t>(i)]);
        if (c != '.' && (x < 0 || y < 0 || x >= w || y >= h))
            return "written at " + std::to_string(x) + "," + std::to_string(y);
        if (x >= 0 && y >= 0)
            strPicture += c;
        if (x == kSize - kGuard - 1 && y >= 0)
            strPicture.erase(strPicture.find_last_not_of('.') + 1) += '/';
    }
    return strPicture.erase(strPicture.find_last_not_of('/') + 1);
}

const uint32_t kSource[] = {'a', 0, 'c', 'd', 0xFF000000, 0xFF000000 | 'b', 'e', 'f'};

constexpr auto kFill = [](int w, int h, uint32_t *p) { gfx_FillRect('f', 0, 0, w, h, p); };
constexpr auto kOutline = [](int w, int h, uint32_t *p) { gfx_Rect('r', 0, 0, w, h, p); };
constexpr auto kBevel = [](int w, int h, uint32_t *p) {
    gfx_Bevel('0', '1', '2', '3', '4', '5', '6', 0, 0, w, h, p);
};
constexpr auto kBlit = [](int w, int h, uint32_t *p) { gfx_Blit(kSource, 0, 0, w, h, 4, p, 1); };
// With the column behind, where the dots of the right side stand.
constexpr auto kDots = [](int w, int h, uint32_t *p) { gfx_DottedRect('d', 0, 0, w - 1, h, p); };

// '|' has no width. '/' reaches into the next character. '<' reaches back further than it is wide.
struct SmallFont : CharInfo {
    SmallFont() : CharInfo(std::make_shared<GlyphCells>()) {
        Set('A', 0, "#.#####.#");
        Set('B', 0, "###.##");
        Set('/', -1, "..#.#.#..");
        Set('<', -2, "###");
        Set('|', 0, "");
        Set(0xC4, 0, "##.###");
    }
    void Set(uint8_t c, int8_t cSpacing, const std::string &strInk) {
        _lpCells->acSpacing[c] = cSpacing;
        _lpCells->aGlyphs[c]._bHeight = 3;
        _lpCells->aGlyphs[c]._bWidth = static_cast<uint8_t>(strInk.size() / 3);
        _lpCells->aGlyphs[c]._lpBits = _aBits[c];
        for (size_t i = 0; i < strInk.size(); ++i)
            _aBits[c][i / 8] |= static_cast<uint8_t>((strInk[i] == '#') << (7 - i % 8));
    }
    uint8_t _aBits[256][2 + kGlyphSlack] = {};
};

}  // namespace

TEST(GfxTest, DrawsAsThePicturesShow) {
    EXPECT_EQ(Drawn(kFill, 3, 2), "fff/fff");
    EXPECT_EQ(Drawn(kOutline, 4, 3), "rrrr/r..r/rrrr");
    EXPECT_EQ(Drawn(kOutline, 1, 1), "r");
    // At the sides dots count from below: rows h - 2, h - 4 and so on.
    EXPECT_EQ(Drawn(kDots, 7, 5), "d.d.d/d.....d//d.....d/d.d.d");
    EXPECT_EQ(Drawn(kDots, 6, 6), ".d.d//d....d//d....d/.d.d");
    EXPECT_EQ(Drawn(kBevel, 9, 8),
              "111111116/122222256/123333456/123000456/123000456/124444456/155555556/666666666");
    EXPECT_EQ(Drawn(kBevel, 5, 5), "11116/12256/12456/15556/66666");
    EXPECT_EQ(Drawn(kBlit, 4, 2), "a.cd/.bef") << "black is transparent, whatever its top byte";
    EXPECT_EQ(Drawn(kBlit, 2, 2), "a/.b") << "cut at the right";
    uint32_t aPixels[] = {1, 2, 3, 4, 5, 6, 7};
    g_nBufferWidth = 3;
    gfx_Blit(kSource, 1, 0, 2, 2, 4, aPixels, 0);
    EXPECT_TRUE(std::ranges::equal(aPixels, std::vector<uint32_t>{1, 'a', 0, 4, kSource[4], kSource[5], 7}));
    // The middle row stays.
    gfx_FlipRows(2, 3, 6, aPixels);
    EXPECT_TRUE(std::ranges::equal(aPixels, std::vector<uint32_t>{kSource[4], kSource[5], 0, 4, 1, 'a', 7}));
    gfx_FlipRows(3, 2, 6, aPixels);
    EXPECT_TRUE(std::ranges::equal(aPixels, std::vector<uint32_t>{4, 1, 'a', kSource[4], kSource[5], 0, 7}));
}

// Sizes that no caller should ask for.
TEST(GfxTest, TinySizesStayInsideTheirRectangle) {
    for (int w = -2; w <= 6; ++w) {
        for (int h = -2; h <= 6; ++h) {
            const std::string strAll =
                Drawn(kFill, w, h) + Drawn(kOutline, w, h) + Drawn(kDots, w, h) + Drawn(kBevel, w, h);
            EXPECT_EQ(strAll.find("written"), std::string::npos) << w << "x" << h;
        }
    }
    EXPECT_EQ(Drawn(kBlit, 0, 2) + Drawn(kBlit, 2, -1), "");
}

TEST(GfxTest, TextOutClipsAndMovesOn) {
    const SmallFont font;
    const auto Text = [&](const char *lpsz, int nClipW, int nClipH) {
        return Drawn([&](int w, int h, uint32_t *p) { gfx_TextOut(lpsz, &font, '#', 0, 0, w, h, p); }, nClipW,
                     nClipH);
    };
    EXPECT_EQ(Text("", 9, 9), "");
    EXPECT_EQ(Text("AB", 9, 9), "#.###/####/#.###");
    EXPECT_EQ(Text("\xC4", 9, 9), "##/.#/##");
    EXPECT_EQ(Text("AB", 4, 9), "#.##/####/#.##");
    EXPECT_EQ(Text("AB", 3, 9), "#.#/###/#.#");
    EXPECT_EQ(Text("AB", 2, 2), "#/##");
    EXPECT_EQ(Text("AB", 0, 9) + Text("AB", -5, 9) + Text("AB", 9, 0) + Text("AB", 9, -5), "");
    EXPECT_EQ(Text("A|B", 9, 9), "#.#/###/#.#") << "a character without width ends the string";
    EXPECT_EQ(Text("//", 4, 9), "..#/.#.#/#.#");
    EXPECT_EQ(Text("/B", 1, 9), "#/#/#") << "cut to one column, which it takes back";
    // The step is a byte: 1 - 2 is 255.
    g_nBufferWidth = 300;
    std::vector<uint32_t> row(300);
    gfx_TextOut("<B", &font, 1, 10, 0, 256, 1, row.data());
    EXPECT_EQ(std::ranges::count(row, 1u), 2);
    EXPECT_EQ(row[10] + row[10 + 255], 2u);
}
