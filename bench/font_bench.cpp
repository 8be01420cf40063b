// Glyph sets, the widths that come from them, and the start of the library, most of which is its first font.
#include <benchmark/benchmark.h>

#include "bench.h"
#include "dllmain.h"
#include "mainframe.h"
#include "platform/rasterizer.h"
#include "tessel.h"

namespace {

// With all its characters. Not of the face of the default fonts, whose sets are there.
void BuildSet(GlyphCache *lpCache, int64_t nHeight, unsigned nStyle = 0) {
    const auto lpCells =
        lpCache->Get("TIMES NEW ROMAN", static_cast<int>(nHeight), static_cast<uint16_t>(nStyle));
    for (int c = 0; c < platform::kCharCount; ++c)
        lpCells->Draw(static_cast<uint8_t>(c));
}

void MeasureRun(benchmark::State &state) {
    const BenchEngine engine;
    const std::string strRun = MakeWords(1023);
    for (auto _ : state)
        benchmark::DoNotOptimize(MeasureText(strRun.c_str(), g_lpMainFrame->_lpFontNormal));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(strRun.size()));
}
BENCHMARK(MeasureRun);

// The first set of all: the list of the system's fonts is read, and a font file opened.
void GlyphSetCold(benchmark::State &state) {
    const BenchEngine engine;
    for (auto _ : state) {
        state.PauseTiming();
        platform::ReleaseRasterizer();
        GlyphCache cache;
        state.ResumeTiming();
        BuildSet(&cache, state.range(0));
    }
}
BENCHMARK(GlyphSetCold)->Arg(15)->Arg(35)->Unit(benchmark::kMicrosecond);

// The 56 sets that a page can ask of one face, in turn; more than the cache keeps, so that each is drawn.
void GlyphSetNew(benchmark::State &state) {
    const BenchEngine engine;
    unsigned nTurn = 0;
    for (auto _ : state) {
        BuildSet(&g_lpMainFrame->_glyphCache, g_anFontHeights[nTurn % kFontSizes], nTurn / kFontSizes % 8);
        ++nTurn;
    }
}
BENCHMARK(GlyphSetNew)->Unit(benchmark::kMicrosecond);

// A set that the page before has had as well.
void GlyphSetWarm(benchmark::State &state) {
    const BenchEngine engine;
    for (auto _ : state)
        BuildSet(&g_lpMainFrame->_glyphCache, state.range(0));
}
BENCHMARK(GlyphSetWarm)->Arg(15)->Arg(35)->Unit(benchmark::kMicrosecond);

// Load, Init, ShutDown, unload. In real time, since the timer's thread is waited for.
void LifeCold(benchmark::State &state) {
    for (auto _ : state)
        const BenchEngine engine(1, 1);
}
BENCHMARK(LifeCold)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The same but for the unload, which is what makes the rasteriser forget.
void LifeWarm(benchmark::State &state) {
    int nInstance;
    for (auto _ : state) {
        DllMain(&nInstance, PROCESS_ATTACH);
        tessel_Init(&nInstance, 1, 1);
        tessel_ShutDown();
    }
    DllMain(&nInstance, PROCESS_DETACH);
}
BENCHMARK(LifeWarm)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace
