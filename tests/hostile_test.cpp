// Pages that nobody would write on purpose, or only on purpose: through the exports, into a buffer with guard
// rows, each in bounded time.
#include <chrono>
#include <random>

#include "engine_fixture.h"
#include "tessel.h"

namespace {

// Sanitizers slow everything down; what is looked for then is no matter of size.
#ifdef NDEBUG
constexpr size_t kScale = 1;
#else
constexpr size_t kScale = 5;
#endif

std::string Repeat(const std::string &str, size_t nCount) {
    std::string strAll;
    for (size_t i = 0; i < nCount / kScale; ++i)
        strAll += str;
    return strAll;
}

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
    constexpr size_t kMany = 100000;
    const struct {
        const char *lpszName;
        std::string strPage;
    } aCases[] = {
        {"10 MB of text", Repeat("some words and a line end\n", 400000)},
        {"10 MB in one word", std::string(10000000, 'w')},
        {"10 MB of tags", Repeat("<B>x</B>", 1250000)},
        {"100,000 tags", Repeat("<H1>x<FONT SIZE=3>", kMany / 2)},
        {"one attribute of 5 MB", "<A HREF=" + std::string(5000000, 'x') + ">text"},
        {"one quoted attribute of 5 MB", "<A HREF=\"" + std::string(5000000, ' ') + "text"},
        {"one tag of 5 MB of attributes", "<BODY " + Repeat("a=b ", 1250000) + ">text"},
        {"zero bytes", Repeat(std::string("a\0b<\0B>\0", 8), kMany)},
        {"nothing but zero bytes", std::string(1000000, '\0')},
        {"open brackets", std::string(1000000, '<')},
        {"ampersands", std::string(1000000, '&')},
        {"links in links", Repeat("<A HREF=x>y", kMany)},
        {"colours in turn", Repeat("<FONT COLOR=RED>a<FONT COLOR=BLUE>b", kMany / 2)},
        {"closed fonts in turn", Repeat("<FONT COLOR=1>a</FONT><B>b</B><FONT COLOR=2>c</FONT>", kMany / 4)},
        {"as many faces as tags",
         [] {
             std::string str;
             for (int i = 0; i < 20000; ++i)
                 str += "<FONT FACE=f" + std::to_string(i) + ">x";
             return str;
         }()},
        {"centres in centres", Repeat("<CENTER>x", kMany)},
        {"paragraphs without text", Repeat("<P>", kMany)},
        {"one-letter words", Repeat("a ", 500000)},
        {"fields and forms in forms", Repeat("<FORM ACTION=x><INPUT><INPUT TYPE=SUBMIT VALUE=a>", kMany / 4)},
    };
    for (const auto &testCase : aCases)
        Show(testCase.lpszName, testCase.strPage);
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
