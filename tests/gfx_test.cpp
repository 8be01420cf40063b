// The pixel routines, drawn on a small sheet and compared with pictures of it: rows from the origin on, with
// '/' between them; '.' is a pixel that was not written, any other character one that has this character as
// its colour.
#include "gfx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fontmanager.h"

namespace {

constexpr int kWidth = 20;
constexpr int kHeight = 16;
// Columns and rows left of and above the origin, which nothing may write to.
constexpr int kGuard = 4;

class Sheet {
  public:
    Sheet() : _pixels(kWidth * kHeight, '.') { g_nBufferWidth = kWidth; }
    uint32_t *Origin() { return &_pixels[kGuard * kWidth + kGuard]; }
    char At(int x, int y) const {
        return static_cast<char>(_pixels[size_t((y + kGuard) * kWidth + x + kGuard)]);
    }

    // How many pixels are written that do not lie in the first w columns and h rows from the origin on.
    int CountOutside(int w, int h) const {
        int nCount = 0;
        for (int y = -kGuard; y < kHeight - kGuard; ++y) {
            for (int x = -kGuard; x < kWidth - kGuard; ++x)
                nCount += At(x, y) != '.' && (x < 0 || y < 0 || x >= w || y >= h);
        }
        return nCount;
    }

    std::string Picture() const {
        std::string strPicture;
        for (int y = 0; y < kHeight - kGuard; ++y) {
            for (int x = 0; x < kWidth - kGuard; ++x)
                strPicture += At(x, y);
            strPicture.erase(strPicture.find_last_not_of('.') + 1);
            strPicture += '/';
        }
        return strPicture.erase(strPicture.find_last_not_of('/') + 1);
    }

  private:
    std::vector<uint32_t> _pixels;
};

// A set whose characters have the given rows, '#' is ink; packed bit by bit.
struct SmallFont : CharInfo {
    void Set(uint8_t c, const std::string &strInk, int nWidth, int8_t cSpacing) {
        _aGlyphs[c]._bWidth = static_cast<uint8_t>(nWidth);
        _aGlyphs[c]._bHeight = 3;
        _aGlyphs[c]._lpBits = new uint8_t[strInk.size() / 8 + 1]();
        for (size_t i = 0; i < strInk.size(); ++i)
            _aGlyphs[c]._lpBits[i / 8] |= static_cast<uint8_t>((strInk[i] == '#') << (7 - i % 8));
        _acSpacing[c] = cSpacing;
    }
    SmallFont() {
        Set('A', "#.#####.#", 3, 0);
        Set('B', "###.##", 2, 0);
        Set('/', "..#.#.#..", 3, -1);
        Set('<', "###", 1, -2);
        Set('|', "", 0, 0);
        Set(0xC4, "##.###", 2, 0);
    }
};

const uint32_t kSource[] = {'a', 0, 'c', 'd', 0xFF000000, 0xFF000000 | 'b', 'e', 'f'};

using Draw = void (*)(int w, int h, uint32_t *lpBuffer);

constexpr Draw kBevel = [](int w, int h, uint32_t *p) {
    gfx_Bevel('0', '1', '2', '3', '4', '5', '6', 0, 0, w, h, p);
};
constexpr Draw kFill = [](int w, int h, uint32_t *p) { gfx_FillRect('f', 0, 0, w, h, p); };
constexpr Draw kOutline = [](int w, int h, uint32_t *p) { gfx_Rect('r', 0, 0, w, h, p); };
constexpr Draw kDots = [](int w, int h, uint32_t *p) { gfx_DottedRect('d', 0, 0, w, h, p); };
constexpr Draw kKeyed = [](int w, int h, uint32_t *p) { gfx_Blit(kSource, 0, 0, w, h, 4, p, 1); };

}  // namespace

TEST(GfxTest, DrawsAsThePicturesShow) {
    // The dots at the sides count from below: rows h - 2, h - 4 and so on. The right ones stand at x + w.
    const struct {
        Draw lpfnDraw;
        int w, h;
        const char *lpszPicture;
    } aCases[] = {
        {kFill, 3, 2, "fff/fff"},
        {kOutline, 4, 3, "rrrr/r..r/rrrr"},
        {kOutline, 1, 1, "r"},
        {kOutline, 2, 1, "rr"},
        {kOutline, 1, 3, "r/r/r"},
        {kDots, 6, 5, "d.d.d/d.....d//d.....d/d.d.d"},
        {kDots, 5, 6, ".d.d//d....d//d....d/.d.d"},
        {kDots, 1, 3, "/dd"},
        {kBevel, 9, 8, "111111116/122222256/123333456/123000456/123000456/124444456/155555556/666666666"},
        {kBevel, 5, 5, "11116/12256/12456/15556/66666"},
        {kKeyed, 4, 2, "a.cd/.bef"},
        {kKeyed, 2, 2, "a/.b"},
        {kKeyed, 3, 1, "a.c"},
        {kKeyed, 0, 2, ""},
        {kKeyed, 4, -1, ""}};
    for (const auto &c : aCases) {
        Sheet sheet;
        c.lpfnDraw(c.w, c.h, sheet.Origin());
        EXPECT_EQ(sheet.Picture(), c.lpszPicture) << c.w << "x" << c.h << " of " << c.lpszPicture;
        EXPECT_EQ(sheet.CountOutside(c.w + 1, c.h), 0) << c.w << "x" << c.h << " of " << c.lpszPicture;
    }
}

// Sizes that no caller should ask for. The dots are one column wider than the rectangle.
TEST(GfxTest, TinySizesStayInsideTheirRectangle) {
    for (int w = -2; w <= 6; ++w) {
        for (int h = -2; h <= 6; ++h) {
            for (const auto lpfnDraw : {kBevel, kFill, kOutline, kDots}) {
                Sheet sheet;
                lpfnDraw(w, h, sheet.Origin());
                EXPECT_EQ(sheet.CountOutside(w < 1 ? 0 : w + (lpfnDraw == kDots), h), 0)
                    << w << "x" << h << ": " << sheet.Picture();
            }
        }
    }
}

TEST(GfxTest, OpaqueBlitCopiesTopBytesAndBlack) {
    g_nBufferWidth = 3;
    uint32_t aTarget[6] = {1, 1, 1, 1, 1, 1};
    gfx_Blit(kSource, 1, 0, 2, 2, 4, aTarget, 0);
    const uint32_t aExpected[6] = {1, 'a', 0, 1, 0xFF000000, 0xFF000000 | 'b'};
    EXPECT_TRUE(std::ranges::equal(aTarget, aExpected));
}

TEST(GfxTest, FlipRowsTurnsAPictureOver) {
    const char *const aCases[][2] = {
        {"abc", "abc"}, {"abcdef", "defabc"}, {"abcdefghi", "ghidefabc"}, {"abcdefghijkl", "jklghidefabc"}};
    for (const auto &[lpszBefore, lpszAfter] : aCases) {
        const std::string strBefore(lpszBefore);
        std::vector<uint32_t> pixels(strBefore.begin(), strBefore.end());
        const int nPixels = static_cast<int>(pixels.size());
        gfx_FlipRows(3, nPixels / 3, nPixels, pixels.data());
        EXPECT_EQ(std::string(pixels.begin(), pixels.end()), lpszAfter);
    }
}

// '|' has no width and ends the string. '/' reaches into the next character; cut to one column, it takes that
// back. '<' reaches back further than it is wide, and moves on by 255.
TEST(GfxTest, TextOutClipsAndMovesOn) {
    const SmallFont font;
    const struct {
        const char *lpszText;
        int nClipW, nClipH;
        const char *lpszPicture;
    } aCases[] = {{"", 10, 10, ""},
                  {"AB", 10, 10, "#.###/####/#.###"},
                  {"\xC4", 10, 10, "##/.#/##"},
                  {"AB", 4, 10, "#.##/####/#.##"},
                  {"AB", 3, 10, "#.#/###/#.#"},
                  {"AB", 2, 10, "#/##/#"},
                  {"AB", 10, 2, "#.###/####"},
                  {"AB", 0, 10, ""},
                  {"AB", -5, 10, ""},
                  {"AB", 10, 0, ""},
                  {"AB", 10, -5, ""},
                  {"A|B", 10, 10, "#.#/###/#.#"},
                  {"/B", 10, 10, "..##/.##/#.##"},
                  {"//", 4, 10, "..#/.#.#/#.#"},
                  {"/B", 1, 10, "#/#/#"},
                  {"/", 1, 10, "//#"},
                  {"<B", 12, 10, "#/#/#"}};
    for (const auto &c : aCases) {
        Sheet sheet;
        gfx_TextOut(c.lpszText, &font, '#', 0, 0, c.nClipW, c.nClipH, sheet.Origin());
        EXPECT_EQ(sheet.Picture(), c.lpszPicture) << c.lpszText << " " << c.nClipW << "x" << c.nClipH;
        EXPECT_EQ(sheet.CountOutside(c.nClipW, c.nClipH), 0) << c.lpszText;
    }
    g_nBufferWidth = 300;
    std::vector<uint32_t> row(300);
    gfx_TextOut("<B", &font, 1, 10, 0, 256, 1, row.data());
    EXPECT_EQ(std::ranges::count(row, 1u), 2);
    EXPECT_EQ(row[10], 1u);
    EXPECT_EQ(row[10 + 255], 1u);
}
