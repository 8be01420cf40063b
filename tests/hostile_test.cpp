// Pages that nobody would write on purpose, or only on purpose: through the exports, into a buffer with guard
// rows, each in bounded time.
#include <chrono>
#include <random>
#include <ranges>

#include "page_script.h"
#include "tessel.h"

namespace {

// Sanitizers slow everything down; what is looked for then is no matter of size.
#ifdef NDEBUG
constexpr int kScale = 1;
#else
constexpr int kScale = 5;
#endif

// Bytes that look like a page every now and then.
std::string RandomPage(uint32_t nSeed, size_t nSize) {
    static const char *const aWords[] = {
        "<",       ">",      "\"",          "=",        ";",         "&nbsp",  "<A HREF=", "<FONT SIZE=",
        "</",      "<H1>",   "<P>",         "<CENTER>", "</CENTER>", "<B>",    "<U>",      "</A>",
        "<TITLE>", "<BR>",   "<BODY TEXT=", "#",        "word ",     " ",      "\n",       "<FONT COLOR=",
        "<!--",    "FACE=x", "<INPUT",      "TYPE=",    "PASSWORD",  "SUBMIT", "SIZE=3",   "<FORM ACTION=x>"};
    std::mt19937 random(nSeed);
    std::string strPage;
    while (strPage.size() < nSize) {
        if (random() % 2)
            strPage += aWords[random() % std::size(aWords)];
        else
            strPage += static_cast<char>(random());
    }
    return strPage;
}

}  // namespace

class HostileTest : public EngineTest {
  protected:
    // Far more than any of these pages takes, the slowest sanitizer included: what would miss it has stopped
    // growing in proportion to its input.
    static constexpr std::chrono::seconds kLimit{30};

    void Show(const std::string &strName, const std::string &strPage) {
        WriteFile("page.html", strPage);
        const auto start = std::chrono::steady_clock::now();
        Load("page.html");
        tessel_Render(Buffer());
        EXPECT_LT(std::chrono::steady_clock::now() - start, kLimit) << strName;
        // Into the page and around on it.
        for (uint16_t x = 0; x < 450; x = static_cast<uint16_t>(x + 90)) {
            tessel_OnMouseMove(x, x);
            tessel_OnLMouseDown(x, x);
            tessel_OnKeyDown(9);
        }
        tessel_Render(Buffer());
    }
};

TEST_F(HostileTest, LargePagesOfOneKind) {
    for (const char *lpszPage :
         {"{400000*some words and a line end\n}", "{10000000*w}", "{1250000*<B>x</B>}",
          "{50000*<H1>x<FONT SIZE=3>}", "<A HREF={5000000*x}>text", "<A HREF=\"{5000000* }text",
          "<BODY {1250000*a=b }>text", "{100000*a\\0b<\\0B>\\0}", "{1000000*\\0}", "{1000000*<}",
          "{1000000*&}", "{100000*<A HREF=x>y}", "{50000*<FONT COLOR=RED>a<FONT COLOR=BLUE>b}",
          "{25000*<FONT COLOR=1>a</FONT><B>b</B><FONT COLOR=2>c</FONT>}", "{100000*<CENTER>x}",
          "{100000*<P>}", "{500000*a }", "{25000*<FORM ACTION=x><INPUT><INPUT TYPE=SUBMIT VALUE=a>}"})
        Show(lpszPage, Expand(lpszPage, kScale));
    std::string strFaces;
    for (int i = 0; i < 20000; ++i)
        strFaces += "<FONT FACE=f" + std::to_string(i) + ">x";
    Show("as many faces as tags", strFaces);
}

TEST_F(HostileTest, RandomPages) {
    for (uint32_t nSeed = 1; nSeed <= 60; ++nSeed)
        Show("seed " + std::to_string(nSeed), RandomPage(nSeed, nSeed * 400));
    Show("1 MB of everything", RandomPage(1000, 1000000));
}

// A page that ends anywhere, its last byte the last that may be read.
TEST_F(HostileTest, EveryPrefixOfAPage) {
    const std::string strPage =
        "<TITLE>a &lt; b</TITLE><BODY BGCOLOR=\"#123456\" TEXT=red><A HREF='x'>&quot;y</A>&nbs;<BR";
    for (size_t n = 0; n <= strPage.size(); ++n)
        ParsedPage(strPage.substr(0, n), 100);
}

// Whatever the size of the page, controls fill it and are painted nowhere else.
TEST_F(HostileTest, ControlsAreCutAtTheEdges) {
    constexpr int kSizes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 20, 27, 33, 35};
    for (const char *lpszType :
         {"TEXT VALUE=abcd SIZE=2", "SUBMIT VALUE=ab", "SUBMIT VALUE=abcdefghijklmnopq"}) {
        for (const int i : std::views::iota(0, 14 * 14)) {
            const int w = kSizes[i % 14], h = kSizes[i / 14];
            g_lpMainFrame->_rc = Rect(0, 0, w, h);
            ParsedPage page(std::string("<INPUT TYPE=") + lpszType, w, h);
            std::fill_n(Buffer(), 400 * 300, kUntouched);
            page->OnKeyDown(9);
            g_lpMainFrame->_bShift = 1;
            page->OnKeyDown(36);  // Home
            g_lpMainFrame->_bShift = 0;
            page->OnMouseMove(0, 0);
            for (int nPass = 0; nPass < 2; ++nPass) {
                page->Render(Buffer());
                ASSERT_EQ(CountPixels(kUntouched, 0, 0, 400, 40), 400 * 40 - w * h)
                    << lpszType << w << "x" << h;
                page->OnLMouseDown(0, 0);
            }
        }
    }
}
