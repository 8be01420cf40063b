#include "fontmanager.h"

#include <sys/resource.h>

#include <thread>

#include "dllmain.h"
#include "engine_fixture.h"
#include "gfx.h"
#include "tessel.h"

namespace {

// Some spacings, and what is to come of them.
constexpr struct {
    int c, nA, nB, nC, nWidth, nSpacing;
} kSpacings[] = {{'a', 1, 8, 1, 10, 0}, {'b', 1, 9, -2, 10, -2},    {'c', -1, 5, 0, 4, 0},
                 {'d', -9, 5, 0, 0, 0}, {'e', 0, 5, -200, 5, -128}, {'f', 100, 90, 80, 255, 0}};

// Ink without any order: whether the pixel at (x, y) of the cell of c is set.
bool InkAt(int c, int x, int y) {
    return (static_cast<uint32_t>(c * 31 + x * 7 + y * 13) * 2654435761u >> 24) & 1;
}

// Cells of 20 rows filled with that ink, of which the characters take 0 to 70 columns, and one all that there are.
class OddRasterizer : public platform::Rasterizer {
  public:
    bool Open(const char *, int, uint16_t, platform::RasterFont *lpFont) override {
        *lpFont = {20, 2, 0, 7, 300, nullptr};
        return true;
    }
    bool Draw(const platform::RasterFont &, int c, platform::CharCell *lpCell) override {
        *lpCell = {c % 71, 0, 0, {}};
        for (const auto &spacing : kSpacings) {
            if (c == spacing.c)
                *lpCell = {spacing.nA, spacing.nB, spacing.nC, {}};
        }
        for (int i = 0; i < 256 * 20; ++i)
            lpCell->aInk[i / 8] |= static_cast<uint8_t>(InkAt(c, i % 256, i / 256) << (7 - i % 8));
        return true;
    }
};

class FontManagerTest : public EngineTest {
  protected:
    const CharInfo *Find(const char *lpszFace, uint8_t bSize, uint16_t wStyle) {
        return _manager.FindFont(lpszFace, bSize, 0, wStyle)->_lpCharInfo;
    }
    FontManager _manager{nullptr};
};

}  // namespace

TEST_F(FontManagerTest, SetsArePackedBitByBitAndDrawnSo) {
    OddRasterizer odd;
    platform::ReplaceRasterizer(&odd);
    const Font *lpFont = _manager.FindFont("odd", 3, 0, 0);
    const CharInfo *lpSet = lpFont->_lpCharInfo;
    EXPECT_EQ(lpSet->_bPixelHeight, 17);
    EXPECT_EQ(lpSet->_bHeight, 20 - 2) << "the cell without the external leading";
    EXPECT_EQ(lpSet->_bMaxCharWidth, 255) << "300 does not fit";
    std::string strAll;
    for (int c = 1; c < 256; ++c)
        strAll += static_cast<char>(c);
    uint32_t dwPixel = 0;
    gfx_TextOut(strAll.c_str(), lpSet, 1, 0, 0, 1, 1, &dwPixel);
    EXPECT_EQ(dwPixel, 0u) << "nobody has measured it";
    // Two Pages may need the same characters at once.
    std::thread other([&] { MeasureText(strAll.c_str(), lpFont); });
    const int nAll = MeasureText(strAll.c_str(), lpFont);
    other.join();
    EXPECT_EQ(MeasureText(strAll.c_str(), lpFont), nAll);
    for (const auto &spacing : kSpacings) {
        EXPECT_EQ(lpSet->_aGlyphs[spacing.c]._bWidth, spacing.nWidth) << spacing.c;
        EXPECT_EQ(lpSet->_acSpacing[spacing.c], spacing.nSpacing) << spacing.c;
    }
    g_nBufferWidth = 256;
    for (int c = 1; c < 256; ++c) {
        const CharGlyph &glyph = lpSet->_aGlyphs[c];
        const int nWidth = glyph._bWidth, nBits = nWidth * 20;
        // As far as the byte that is always there behind the last whole one.
        for (int i = 0; i < nBits / 8 * 8 + 8; ++i)
            ASSERT_EQ(glyph._lpBits.load()[i / 8] >> (7 - i % 8) & 1,
                      i < nBits && InkAt(c, i % nWidth, i / nWidth))
                << c << ", bit " << i;
        uint32_t aSheet[256 * 20] = {};
        gfx_TextOut(strAll.substr(size_t(c - 1), 1).c_str(), lpSet, 1, 0, 0, 254, 19, aSheet);
        for (int i = 0; i < 256 * 20; ++i) {
            const int x = i % 256, y = i / 256;
            ASSERT_EQ(aSheet[i], x < std::min(nWidth, 254) && y < 19 && InkAt(c, x, y))
                << c << ", pixel " << i;
        }
    }
}

TEST_F(FontManagerTest, RecordsAndSetsAreSharedWhereTheyCanBe) {
    _rasterizer.nOpened = 0;
    EXPECT_EQ(Find("arial", 2, 0), g_lpMainFrame->_lpFontNormal->_lpCharInfo);
    EXPECT_EQ(Find("Arial", 2, 1), g_lpMainFrame->_lpFontBold->_lpCharInfo);
    EXPECT_EQ(Find("ARIAL", 1, 1), g_lpMainFrame->_lpFontSmallBold->_lpCharInfo);
    EXPECT_EQ(_rasterizer.nOpened, 0);
    Font *lpRed = _manager.FindFont("x", 2, 0xFF0000, 0);
    EXPECT_EQ(_manager.FindFont("X", 2, 0xFF0000, 0), lpRed);
    Font *lpBlue = _manager.FindFont("x", 2, 0x0000FF, 0);
    EXPECT_EQ(lpBlue->_dwColor, 0x0000FFu);
    EXPECT_EQ(lpRed->_dwColor, 0xFF0000u);
    EXPECT_EQ(lpBlue->_lpCharInfo, lpRed->_lpCharInfo);
    EXPECT_NE(_manager.FindFont("x", 2, 0xFF0000, 0), lpRed)
        << "a record behind the newest is not looked for";
    EXPECT_NE(Find("x", 3, 0), lpRed->_lpCharInfo);
    EXPECT_NE(Find("x", 2, 4), lpRed->_lpCharInfo);
    FontManager other(nullptr);
    const CharInfo *lpSet = other.FindFont("X", 2, 0, 0)->_lpCharInfo;
    EXPECT_NE(lpSet, lpRed->_lpCharInfo) << "of another Page";
    EXPECT_EQ(lpSet->_lpCells, lpRed->_lpCharInfo->_lpCells);
    EXPECT_EQ(_rasterizer.nOpened, 3);
    // Each character is drawn once, for all Pages, also one without a width; and again where there was no memory for it.
    _rasterizer.nDrawn = 0;
    _rasterizer.bFails = true;
    EXPECT_EQ(MeasureText("aab|", lpRed), 0);
    _rasterizer.bFails = false;
    for (Font *lpFont : {lpRed, lpBlue, other.FindFont("X", 2, 1, 0)})
        EXPECT_EQ(MeasureText("aab|", lpFont), 30);
    EXPECT_EQ(_rasterizer.nDrawn, 4 + 3);
}

TEST_F(FontManagerTest, WhereNoSetIsToBeHadTheDefaultServesOrNothingStarts) {
    const CharInfo *lpDefault = g_lpMainFrame->_lpFontNormal->_lpCharInfo;
    for (int i = 0; i < 128; ++i)
        ASSERT_NE(Find(std::to_string(i).c_str(), 2, 0), lpDefault) << i;
    EXPECT_EQ(Find("one too many", 2, 0), lpDefault);
    EXPECT_EQ(Find("arial", 2, 1), g_lpMainFrame->_lpFontBold->_lpCharInfo);
    _rasterizer.bFails = true;
    EXPECT_EQ(FontManager(nullptr).FindFont("x", 2, 0, 0)->_lpCharInfo, lpDefault);
    StopEngine();
    ASSERT_EQ(DllMain(this, PROCESS_ATTACH), 1);
    EXPECT_EQ(tessel_Init(this, 10, 10), 0);
    EXPECT_EQ(g_lpMainFrame->_rc.w, 0) << "nothing has changed";
    _rasterizer.bFails = false;
    EXPECT_EQ(tessel_Init(this, 10, 10), 1);
    // The width of whole glyphs, whatever reaches over.
    EXPECT_EQ(MeasureText("a|/\xFF", g_lpMainFrame->_lpFontNormal), 10 + 0 + 10 + 10);
    EXPECT_EQ(MeasureText(nullptr, g_lpMainFrame->_lpFontNormal), 0);
}

// A font's file may be out of reach for a moment, when the font is opened or when a character is drawn.
TEST_F(FontManagerTest, BoxesOfABadMomentAreNotKept) {
    const auto OpensFor = [this](const char *lpszFace, bool bBoxes) {
        const int nBefore = _rasterizer.nOpened;
        _rasterizer.bBoxes = bBoxes;
        FontManager manager(nullptr);
        MeasureText("x", manager.FindFont(lpszFace, 2, 0, 0));
        return _rasterizer.nOpened - nBefore;
    };
    for (const char *lpszFace : {"x", "ARIAL"}) {
        OpensFor(lpszFace, true);
        EXPECT_EQ(OpensFor(lpszFace, false), 1) << lpszFace;
        EXPECT_EQ(OpensFor(lpszFace, false), 0) << lpszFace;
    }

    platform::ReplaceRasterizer(nullptr);
    // fontconfig reads its files now; the face asked for next is in another one.
    EXPECT_GT(MeasureText("i", _manager.FindFont("Courier New", 3, 0, 0)), 0);
    const auto WidthOf = [](const char *lpszText) {
        FontManager manager(nullptr);
        return MeasureText(lpszText, manager.FindFont("Times New Roman", 3, 0, 0));
    };
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(WidthOf("i"), WidthOf("W"));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_LT(WidthOf("i"), WidthOf("W"));
}
