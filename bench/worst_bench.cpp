// Documents that nobody writes but to do harm. They come last, since they change how the process handles its memory.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <climits>
#include <string>

#include "bench.h"

namespace {

// A document of a beginning, nTimes the first piece and then nTimes the second, which meets all that the
// first has left open.
struct WorstCase {
    const char *lpszName, *lpszBegin, *lpszFirst, *lpszSecond;
    int nTimes;
};

// The smaller of the two documents of each has a million bytes or 100,000 tags of a kind, where that does not take too
// long.
constexpr WorstCase kWorstCases[] = {
    {"LessThan", "", "<", "", 1'000'000},
    {"Ampersand", "", "&", "", 1'000'000},
    {"Entity", "", "&nbsp;", "", 166'667},
    {"OpenLink", "", "<A HREF=x>", "", 100'000},
    {"OpenLinkText", "", "<A HREF=x>a", "</A>b", 100'000},
    {"OpenQuote", "", "<A HREF=\"", "", 111'111},
    {"OneWord", "", "a", "", 1'000'000},
    {"OpenQuoteTag", "", "<A HREF=\">", "", 100'000},
    {"OneLetterWords", "", "a ", "", 500'000},
    {"OneLetterTexts", "", "a<X>", "", 250'000},
    {"OneLetterLines", "", "a<BR>", "", 166'667},
    {"TwoColors", "", "<FONT COLOR=RED>a<FONT COLOR=BLUE>b", "</FONT>c", 50'000},
    {"NestedCenter", "", "<CENTER>a", "</CENTER>b", 100'000},
    {"NestedBold", "", "<B><I>a", "</B></I>b", 100'000},
    {"Columns", "<TABLE><TR>", "<TD>a", "", 100'000},
    {"ColumnsThenRows", "<TABLE><TR>", "<TD>a", "<TR><TD>b", 20'000},
    {"Tables", "", "<TABLE><TR><TD>a", "</TABLE>b", 50'000},
};

std::string MakeWorst(const WorstCase &worst, int64_t nTimes) {
    std::string strHTML = worst.lpszBegin;
    for (const char *lpszPiece : {worst.lpszFirst, worst.lpszSecond}) {
        for (int64_t i = 0; i < nTimes; ++i)
            strHTML += lpszPiece;
    }
    return strHTML;
}

// From now on what is freed stays with the process. Else the larger document alone would pay for memory that the system
// clears anew for each round, and the ratio would tell of that.
void KeepMemory() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
}

// The whole life of a page, so that nothing that is left for later goes unseen.
void Worst(benchmark::State &state, const WorstCase &worst) {
    KeepMemory();
    BenchEngine engine;
    const std::string strHTML = MakeWorst(worst, state.range(0));
    for (auto _ : state) {
        const std::unique_ptr<Page> lpPage = NewPage(strHTML);
        lpPage->Render(engine.Buffer());
    }
    state.SetBytesProcessed(static_cast<int64_t>(strHTML.size()) * state.iterations());
}

// Each at n and 2n, to be read as a ratio, which is 2 where the time grows as the document does.
[[maybe_unused]] const bool g_bRegistered = [] {
    for (const WorstCase &worst : kWorstCases) {
        benchmark::RegisterBenchmark((std::string("Worst/") + worst.lpszName).c_str(), Worst, worst)
            ->Arg(worst.nTimes)
            ->Arg(2 * worst.nTimes)
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace
