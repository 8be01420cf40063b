// From bytes to pixels: the three steps that every document goes through, for documents of a thousandfold
// range of sizes, and for documents that nobody writes but to do harm.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <climits>
#include <mutex>
#include <string>

#include "bench.h"
#include "mainframe.h"
#include "table.h"
#include "tessel.h"

namespace {

void CountBytes(benchmark::State &state, size_t nBytes) {
    state.SetBytesProcessed(static_cast<int64_t>(nBytes) * state.iterations());
    state.SetComplexityN(static_cast<int64_t>(nBytes));
}

void Sizes(benchmark::internal::Benchmark *lpBenchmark) {
    for (const int64_t nBytes : {2'000, 20'000, 200'000, 2'000'000})
        lpBenchmark->Arg(nBytes);
    lpBenchmark->Unit(benchmark::kMicrosecond)->Complexity(benchmark::oN);
}

// --- Prose
// ------------------------------------------------------------------------------------------------------------

void PageParse(benchmark::State &state) {
    const BenchEngine engine;
    const std::string strHTML = MakeProse(static_cast<size_t>(state.range(0)));
    // Once beforehand, so that the rasteriser knows the fonts.
    std::unique_ptr<Page> lpPage = NewPage(strHTML);
    for (auto _ : state) {
        state.PauseTiming();
        lpPage.reset();
        state.ResumeTiming();
        lpPage = NewPage();
        lpPage->ParseHTML(strHTML.data(), static_cast<int>(strHTML.size()));
    }
    CountBytes(state, strHTML.size());
}
BENCHMARK(PageParse)->Apply(Sizes);

void PageRelayout(benchmark::State &state) {
    const BenchEngine engine;
    const std::string strHTML = MakeProse(static_cast<size_t>(state.range(0)));
    const std::unique_ptr<Page> lpPage = NewPage(strHTML);
    for (auto _ : state)
        lpPage->Relayout();
    CountBytes(state, strHTML.size());
}
BENCHMARK(PageRelayout)->Apply(Sizes);

void PagePaint(benchmark::State &state) {
    BenchEngine engine;
    const std::string strHTML = MakeProse(static_cast<size_t>(state.range(0)));
    {
        std::scoped_lock lock(g_lpMainFrame->_hPaintMutex, g_lpMainFrame->_hPageMutex);
        g_lpMainFrame->SetPage(NewPage(strHTML).release());
    }
    for (auto _ : state) {
        tessel_Invalidate();
        tessel_Render(engine.Buffer());
        benchmark::ClobberMemory();
    }
    CountBytes(state, strHTML.size());
}
BENCHMARK(PagePaint)->Apply(Sizes);

// --- A long page, looked at in one place
// -------------------------------------------------------------------------

// A page of nItems, every second one a link, that the MainFrame shows.
void ShowLinks(int64_t nItems) {
    std::string strHTML;
    for (int64_t i = 0; i < nItems / 2; ++i)
        strHTML += "<A HREF=x>link</A> text <X>";
    const std::scoped_lock lock(g_lpMainFrame->_hPaintMutex, g_lpMainFrame->_hPageMutex);
    g_lpMainFrame->SetPage(NewPage(strHTML).release());
}

// The pointer jumps from one item to another in every turn.
void MouseMove(benchmark::State &state) {
    BenchEngine engine;
    ShowLinks(state.range(0));
    tessel_Render(engine.Buffer());
    uint16_t x = 0;
    for (auto _ : state)
        tessel_OnMouseMove(x = static_cast<uint16_t>(500 - x), 300);
}
BENCHMARK(MouseMove)->Arg(1'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);

// The focus steps on, and what has changed is painted.
void RepaintOfFocus(benchmark::State &state) {
    BenchEngine engine;
    ShowLinks(state.range(0));
    tessel_Render(engine.Buffer());
    for (auto _ : state) {
        state.PauseTiming();
        tessel_OnKeyDown(9);
        state.ResumeTiming();
        tessel_Render(engine.Buffer());
    }
}
BENCHMARK(RepaintOfFocus)->Arg(1'000)->Arg(100'000)->Iterations(100)->Unit(benchmark::kMicrosecond);

// --- One paragraph without an end
// -------------------------------------------------------------------------------------

// The longest runs that there are, one behind the other in a single Line, so that nothing but word wrap ends
// a line.
void LongParagraphRelayout(benchmark::State &state) {
    constexpr size_t kRun = 1023;
    const BenchEngine engine;
    const std::string strWords = MakeWords(kRun * static_cast<size_t>(state.range(0)));
    std::string strHTML;
    for (size_t nPos = 0; nPos < strWords.size(); nPos += kRun)
        strHTML += strWords.substr(nPos, kRun) + "<X>";
    const std::unique_ptr<Page> lpPage = NewPage(strHTML);
    for (auto _ : state)
        lpPage->Relayout();
    CountBytes(state, strWords.size());
}
BENCHMARK(LongParagraphRelayout)
    ->RangeMultiplier(4)
    ->Range(16, 1024)
    ->Unit(benchmark::kMicrosecond)
    ->Complexity(benchmark::oN);

// --- A long table
// -----------------------------------------------------------------------------------------------------

// Rows of three columns, texts among them that wrap.
std::string MakeTable(int64_t nRows) {
    std::string strHTML = "<TABLE>";
    for (int64_t i = 0; i < nRows; ++i)
        strHTML += "<TR><TD>" + std::to_string(i) +
                   "</TD><TD WIDTH=200>a few words that take more than a line</TD>"
                   "<TD ALIGN=RIGHT>" +
                   std::to_string(i * i) + "</TD></TR>";
    return strHTML + "</TABLE>";
}

// Items are rows.
void TableRelayout(benchmark::State &state) {
    const BenchEngine engine;
    const std::unique_ptr<Page> lpPage = NewPage(MakeTable(state.range(0)));
    for (auto _ : state)
        lpPage->Relayout();
    state.SetItemsProcessed(state.range(0) * state.iterations());
    state.SetComplexityN(state.range(0));
}
BENCHMARK(TableRelayout)->Arg(1'000)->Arg(10'000)->Unit(benchmark::kMicrosecond);

// Items are columns. Their widths swing between the least and the widest, so that there is something to share out in
// every turn.
void TableDistribute(benchmark::State &state) {
    const BenchEngine engine;
    const std::unique_ptr<Page> lpPage = NewPage();
    Table table(lpPage.get());
    for (int64_t i = 0; i < state.range(0); ++i)
        table.AddColumn(100, 0, 0);
    for (auto _ : state) {
        lpPage->_rc.w = lpPage->_rc.w == 800 ? 1'000'000'000 : 800;
        table.DistributeWidths();
    }
    state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(TableDistribute)->Arg(10)->Arg(1'000)->Arg(10'000)->Unit(benchmark::kMicrosecond);

// --- Worst cases
// ------------------------------------------------------------------------------------------------------

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

// While one lives, what is freed stays with the process. Else the larger document alone would pay for memory that the
// system clears anew for each round, and the ratio would tell of that.
class MemoryKept {
  public:
    MemoryKept() { mallopt(M_TRIM_THRESHOLD, INT_MAX); }
    ~MemoryKept() { mallopt(M_TRIM_THRESHOLD, 128 * 1024); }
};

// The whole life of a page, so that nothing that is left for later goes unseen.
void Worst(benchmark::State &state, const WorstCase &worst) {
    const MemoryKept memory;
    BenchEngine engine;
    const std::string strHTML = MakeWorst(worst, state.range(0));
    for (auto _ : state) {
        const std::unique_ptr<Page> lpPage = NewPage(strHTML);
        lpPage->Render(engine.Buffer());
    }
    CountBytes(state, strHTML.size());
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
