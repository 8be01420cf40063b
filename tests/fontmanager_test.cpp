#include "fontmanager.h"

#include "dllmain.h"
#include "engine_fixture.h"
#include "gfx.h"
#include "tessel.h"

namespace {

// Any ink that is not regular: whether the pixel at (x, y) of the cell of c is set.
bool InkAt(int c, int x, int y) {
    return ((c * 31 + x * 7 + y * 13) * 2654435761u >> 24) & 1;
}

// Cells of 40 columns filled with that ink, from which the characters cut different widths; other figures as
// no font of the system has them all.
class OddRasterizer : public platform::Rasterizer {
  public:
    bool Rasterize(const char *, int nHeight, uint16_t, platform::FontCells *lpCells) override {
        *lpCells = {nHeight + 3, 2, 0, 7, 300, {}, 5, nullptr};
        for (int c = 0; c < platform::kCharCount; ++c)
            lpCells->aSpacing[c] = {c % 41, 0, 0};
        lpCells->aSpacing['a'] = {1, 8, 1};
        lpCells->aSpacing['b'] = {1, 9, -2};
        lpCells->aSpacing['c'] = {-1, 5, 0};
        lpCells->aSpacing['d'] = {-9, 5, 0};
        lpCells->aSpacing['e'] = {0, 5, -200};
        lpCells->aSpacing['f'] = {20, 20, 20};
        const int nRows = platform::kCharCount * lpCells->nHeight;
        lpCells->lpInk.reset(new uint8_t[static_cast<size_t>(nRows * 5)]());
        for (int i = 0; i < nRows * 40; ++i) {
            const int nRow = i / 40;
            if (InkAt(nRow / lpCells->nHeight, i % 40, nRow % lpCells->nHeight))
                lpCells->lpInk[static_cast<size_t>(i / 8)] |= static_cast<uint8_t>(0x80 >> i % 8);
        }
        return true;
    }
};

class FontManagerTest : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        _manager = std::make_unique<FontManager>(nullptr);
        _manager->PushFontRecord(g_lpMainFrame->_lpFontNormal, 1);
        _rasterizer.nCalls = 0;
    }
    void TearDown() override {
        _manager.reset();
        EngineTest::TearDown();
    }

    std::unique_ptr<FontManager> _manager;
};

template <class T>
int Length(const List<T> *lpList) {
    int nLength = 0;
    for (; lpList; lpList = lpList->lpNext)
        ++nLength;
    return nLength;
}

}  // namespace

TEST_F(FontManagerTest, SetsArePackedBitByBit) {
    OddRasterizer odd;
    platform::ReplaceRasterizer(&odd);
    const CharInfo *lpSet = _manager->FindFont("odd", 3, 0, STYLE_ITALIC)->_lpCharInfo;
    platform::ReplaceRasterizer(&_rasterizer);
    EXPECT_EQ(lpSet->_wStyle, STYLE_ITALIC);
    EXPECT_STREQ(lpSet->_lpszFace, "odd");
    EXPECT_EQ(lpSet->_bPixelHeight, 17);
    EXPECT_EQ(lpSet->_bHeight, 17 + 3 - 2) << "the cell without the external leading";
    EXPECT_EQ(lpSet->_bAveCharWidth, 7);
    EXPECT_EQ(lpSet->_bMaxCharWidth, 255) << "300 does not fit";
    const int aSpacings[][3] = {{'a', 10, 0}, {'b', 10, -2},  {'c', 4, 0},
                                {'d', 0, 0},  {'e', 5, -128}, {'f', 40, 0}};
    for (const auto &[c, nWidth, nSpacing] : aSpacings) {
        EXPECT_EQ(lpSet->_aGlyphs[c]._bWidth, nWidth) << c;
        EXPECT_EQ(lpSet->_acSpacing[c], nSpacing) << c;
    }
    g_nBufferWidth = 40;
    for (int c = 0; c < 256; ++c) {
        const CharGlyph &glyph = lpSet->_aGlyphs[c];
        ASSERT_EQ(glyph._bHeight, 20);
        const int nBits = glyph._bWidth * glyph._bHeight;
        // Up to the end of the byte that is always there behind the last whole one.
        for (int i = 0; i < nBits / 8 * 8 + 8; ++i) {
            const bool bExpected = i < nBits && InkAt(c, i % glyph._bWidth, i / glyph._bWidth);
            ASSERT_EQ(glyph._lpBits[i / 8] >> (7 - i % 8) & 1, bExpected) << c << ", bit " << i;
        }
        // And the same ink comes out when the character is drawn.
        uint32_t aSheet[40 * 20] = {};
        const char szText[] = {static_cast<char>(c), 0};
        gfx_TextOut(szText, lpSet, 1, 0, 0, 39, 19, aSheet);
        for (int i = 0; i < 40 * 20; ++i) {
            const int x = i % 40, y = i / 40;
            const bool bExpected = c && x < std::min<int>(glyph._bWidth, 39) && y < 19 && InkAt(c, x, y);
            ASSERT_EQ(aSheet[i], bExpected) << c << " at " << x << "," << y;
        }
    }
}

TEST_F(FontManagerTest, DefaultSetsAreSharedWhateverTheCaseOfTheFace) {
    EXPECT_EQ(_manager->FindFont("arial", 2, 0xFF, 0)->_lpCharInfo,
              g_lpMainFrame->_lpFontNormal->_lpCharInfo);
    EXPECT_EQ(_manager->FindFont("Arial", 2, 0, 1)->_lpCharInfo, g_lpMainFrame->_lpFontBold->_lpCharInfo);
    EXPECT_EQ(_manager->FindFont("ARIAL", 1, 0, 1)->_lpCharInfo,
              g_lpMainFrame->_lpFontSmallBold->_lpCharInfo);
    EXPECT_EQ(_rasterizer.nCalls, 0);
    FontManager other(nullptr);
    EXPECT_NE(_manager->FindFont("ARIAL", 1, 0, 0)->_lpCharInfo,
              other.FindFont("ARIAL", 1, 0, 0)->_lpCharInfo);
    EXPECT_EQ(_rasterizer.nCalls, 2) << "a set that was built for a page belongs to that page";
}

TEST_F(FontManagerTest, AnotherColorClonesTheNewestRecord) {
    Font *lpRed = _manager->FindFont("x", 2, 0xFF0000, 0);
    EXPECT_EQ(_manager->FindFont("X", 2, 0xFF0000, 0), lpRed);
    Font *lpBlue = _manager->FindFont("x", 2, 0x0000FF, 0);
    EXPECT_EQ(lpBlue->_dwColor, 0x0000FFu);
    EXPECT_EQ(lpBlue->_lpCharInfo, lpRed->_lpCharInfo);
    EXPECT_EQ(lpRed->_dwColor, 0xFF0000u);
    // The older record of the right colour is not looked for.
    EXPECT_NE(_manager->FindFont("x", 2, 0xFF0000, 0), lpRed);
    EXPECT_EQ(Length(_manager->_lpFonts), 3);
    EXPECT_NE(_manager->FindFont("x", 3, 0xFF0000, 0)->_lpCharInfo, lpRed->_lpCharInfo);
    EXPECT_NE(_manager->FindFont("x", 2, 0xFF0000, 4)->_lpCharInfo, lpRed->_lpCharInfo);
    EXPECT_EQ(_rasterizer.nCalls, 3);
}

// Capitals open a tag, small letters close it; A is a link. U and A share a bit.
TEST_F(FontManagerTest, StylesFollowTheCounters) {
    const struct {
        const char *lpszTags;
        int nStyle;
    } aCases[] = {{"", 0},    {"B", 1},    {"Bb", 0},  {"BBb", 1}, {"b", 0},   {"bB", 1},
                  {"I", 2},   {"BIb", 2},  {"U", 4},   {"A", 4},   {"UUu", 4}, {"UA", 4},
                  {"UAa", 0}, {"UAau", 4}, {"AUu", 0}, {"Aa", 0},  {"BIU", 7}, {"AAa", 4}};
    for (const auto &c : aCases) {
        FontManager manager(nullptr);
        manager.PushFont("x", 0, 2, 0);
        for (const char *p = c.lpszTags; *p; ++p) {
            const int bOpen = *p < 'a';
            switch (*p | 0x20) {
                case 'b':
                    manager.SetBold(bOpen);
                    break;
                case 'i':
                    manager.SetItalic(bOpen);
                    break;
                case 'u':
                    manager.SetUnderline(bOpen);
                    break;
                default:
                    manager.SetAnchor(bOpen);
            }
            manager.CurrentFont();
        }
        EXPECT_EQ(manager._wStyle, c.nStyle) << c.lpszTags;
        EXPECT_EQ(manager.CurrentFont()->_wStyle, c.nStyle) << c.lpszTags;
    }
}

TEST_F(FontManagerTest, CurrentFontIsTheTopOfTheStackInTheStyleInForce) {
    _manager->PushFont("x", STYLE_BOLD, 5, 0x123456);
    _manager->SetItalic(1);
    const Font *lpFont = _manager->CurrentFont();
    EXPECT_EQ(_manager->CurrentFont(), lpFont);
    EXPECT_EQ(lpFont->_wStyle, STYLE_BOLD | STYLE_ITALIC);
    EXPECT_EQ(lpFont->_bSize, 5);
    EXPECT_EQ(lpFont->_dwColor, 0x123456u);
    EXPECT_EQ(lpFont->_lpCharInfo->_bPixelHeight, 27);
    for (int i = 0; i < 3; ++i)
        _manager->PopFont();
    EXPECT_STREQ(_manager->CurrentFont()->_lpszFace, "ARIAL") << "the last record stays";
    EXPECT_EQ(_manager->CurrentFont()->_wStyle, STYLE_ITALIC);
}

TEST_F(FontManagerTest, PagesWithTooManyFacesFallBackToTheDefault) {
    const CharInfo *lpDefault = g_lpMainFrame->_lpFontNormal->_lpCharInfo;
    for (int i = 0; i < 128; ++i)
        ASSERT_NE(_manager->FindFont(("face" + std::to_string(i)).c_str(), 2, 0, 0)->_lpCharInfo, lpDefault)
            << i;
    EXPECT_EQ(_manager->FindFont("one more", 2, 0, 0)->_lpCharInfo, lpDefault);
    EXPECT_EQ(_manager->FindFont("arial", 2, 0, 1)->_lpCharInfo, g_lpMainFrame->_lpFontBold->_lpCharInfo);
    EXPECT_NE(_manager->FindFont("face0", 2, 0xFF, 0)->_lpCharInfo, lpDefault);
    EXPECT_EQ(_rasterizer.nCalls, 128);
}

TEST_F(FontManagerTest, RasterizerThatFailsLeavesTheDefaultOrNoStart) {
    _rasterizer.bFails = true;
    EXPECT_EQ(_manager->FindFont("x", 6, 0, 0)->_lpCharInfo, g_lpMainFrame->_lpFontNormal->_lpCharInfo);
    _manager.reset();
    StopEngine();
    int nWindow = 0;
    ASSERT_EQ(DllMain(&nWindow, PROCESS_ATTACH), 1);
    EXPECT_EQ(tessel_Init(&nWindow, 10, 10), 0);
    _rasterizer.bFails = false;
    EXPECT_EQ(tessel_Init(&nWindow, 10, 10), 1) << "a second try is as good as the first";
}

// The width of the whole glyphs, without what reaches over.
TEST_F(FontManagerTest, MeasureTextAddsUpWidths) {
    const Font *lpFont = g_lpMainFrame->_lpFontNormal;
    EXPECT_EQ(MeasureText(nullptr, lpFont), 0);
    EXPECT_EQ(MeasureText("", lpFont), 0);
    EXPECT_EQ(MeasureText("a|/\xFF", lpFont), 10 + 0 + 10 + 10);
}
