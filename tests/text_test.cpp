// How text is cut, painted and hit. A character is 10 pixels wide and 15 high, a line of text 18.
#include "text.h"

#include <sstream>

#include "engine_fixture.h"

class TextTest : public EngineTest {
  protected:
    static constexpr uint32_t kBlack = 0;
};

TEST_F(TextTest, RunsAreCutAtSpaces) {
    const struct {
        const char *lpszHTML;
        int nWidth;
        const char *lpszPieces;  // x,y and text, a '|' behind each
    } aCases[] = {
        {"aaa bbb", 70, "0,0 aaa bbb|"},
        {"aaa bbb", 69, "0,0 aaa|0,18 bbb|"},
        {"aa bb cc", 50, "0,0 aa|0,18 bb|0,36 cc|"},  // a piece that fills the line is too wide
        {"aa bb c", 51, "0,0 aa|0,18 bb c|"},         // and the space behind a piece counts
        {"aa bb c ", 61, "0,0 aa bb|0,18 c |"},
        {"aaaa ", 45, "0,0 aaaa |"},
        {"aa&nbsp;zz-zz y", 60, "0,0 aa\xA0zz-zz|0,18 y|"},
        {"aaaaaaaaaaaa<B>b", 100, "0,0 aaaaaaaaaaaa|0,18 b|"},
        {"aa bbbbbbbbbbbbbb cc", 100, "0,0 aa|0,18 bbbbbbbbbbbbbb|0,36 cc|"},
        {"aaaaaa<B>bbbb", 100, "0,0 aaaaaa|60,0 bbbb|"},
        {"aaaaaa<B>bbbb cccc d", 100, "0,0 aaaaaa|60,0 bbbb|0,18 cccc d|"},
        {"aaaaaa<B>bbbbb c", 100, "0,0 aaaaaa|0,18 bbbbb c|"},
        {"aaaaaa<B>bbbbb cc dddd", 100, "0,0 aaaaaa|0,18 bbbbb cc|0,36 dddd|"},
        {"aaaaaa<B>bbbbbbbbbbbbbb c", 100, "0,0 aaaaaa|0,18 bbbbbbbbbbbbbb|0,36 c|"},
        {"aa bbbbbbbb<B>cc<I>dd", 100, "0,0 aa|0,18 bbbbbbbb|80,18 cc|0,36 dd|"},
        // The height of the line stays behind a cut, and goes when a word moves down whole.
        {"<FONT SIZE=7>a</FONT>b cccc dddd<BR>e", 100, "0,0 a|10,0 b cccc|0,43 dddd|0,86 e|"},
        {"<FONT SIZE=7>aaaaaaa</FONT>bbbb<BR>c", 100, "0,0 aaaaaaa|0,43 bbbb|0,61 c|"},
    };
    for (const auto &testCase : aCases) {
        std::istringstream lines(ParsedPage(testCase.lpszHTML, testCase.nWidth).Dump());
        std::string strPieces;
        for (std::string strPlace, strText; lines >> strPlace && std::getline(lines, strText);) {
            strText.back() = '|';  // a quote
            strPieces += isdigit(strPlace[0]) ? strPlace + " " + strText.substr(strText.find('"') + 1) : "";
        }
        EXPECT_EQ(strPieces, testCase.lpszPieces) << testCase.lpszHTML << " in " << testCase.nWidth;
    }
}

TEST_F(TextTest, PiecesAreHitAndTheirHoverGoesWithThem) {
    ParsedPage page("aaaa bb", 60);
    Element *lpText = page->_lpChildren->lpData;
    EXPECT_TRUE(lpText->HitTest(40, 18));
    EXPECT_TRUE(lpText->HitTest(20, 36));
    EXPECT_FALSE(lpText->HitTest(21, 19)) << "beside the second piece";
    const Rect rcFirst(30, 0, 9, 9), rcBeside(20, 18, 30, 18);
    EXPECT_TRUE(lpText->Intersects(&rcFirst));
    EXPECT_FALSE(lpText->Intersects(&rcBeside));

    page->OnMouseMove(5, 5);
    page->OnLMouseDown(5, 5);
    EXPECT_TRUE(lpText->_lpHover && lpText->_lpFocus);
    page->Relayout();
    EXPECT_EQ(lpText->_lpHover, nullptr);
    EXPECT_EQ(lpText->_lpFocus, nullptr);
    EXPECT_EQ(page->_lpHover->lpData, lpText) << "the text itself stays under the pointer";
    page->_rc.w = 70;
    page->Relayout();
    EXPECT_EQ(page.Dump(), "0,0 70x18 \"aaaa bb\"\n");
}

TEST_F(TextTest, NothingIsPaintedOutsideThePage) {
    std::string strLines(50, 'w');
    for (int i = 0; i < 18; ++i)
        strLines += "<BR>b";
    ParsedPage page(strLines, 400);
    page->Render(Buffer());
    EXPECT_EQ(CountPixels(kBlack, 0, 0, 400, 15), 400 * 15) << "a word of 500 pixels";
    EXPECT_EQ(CountPixels(kBlack, 0, 15, 400, 3), 0);
    // Fifteen lines of 15 rows, and twelve rows of the one at 288; the others stand below the page.
    EXPECT_EQ(CountPixels(kBlack, 0, 18, 10, 282), 15 * 150 + 120);
    EXPECT_EQ(CountPixels(kBlack, 10, 18, 390, 282), 0);
}
