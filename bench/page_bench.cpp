// From bytes to pixels: the three steps that every document goes through, for documents of a thousandfold
// range of sizes.
#include <benchmark/benchmark.h>

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

}  // namespace
