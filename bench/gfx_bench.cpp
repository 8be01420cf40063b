// The routines that write pixels. Bytes are those of the rectangle, whether all of it is written or not.
#include <benchmark/benchmark.h>

#include <cstring>

#include "bench.h"
#include "gfx.h"
#include "mainframe.h"

namespace {

constexpr uint32_t kColor = 0x336699;

// Does it again and again to a rectangle of the size that was asked for, rows of 800 pixels apart.
template <class Paint>
void PaintRect(benchmark::State &state, Paint paint) {
    BenchEngine engine;
    const int w = static_cast<int>(state.range(0));
    const int h = static_cast<int>(state.range(1));
    for (auto _ : state) {
        paint(engine.Buffer(), w, h);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * w * h * int64_t{sizeof(uint32_t)});
}

void FillRect(benchmark::State &state) {
    PaintRect(state, [](uint32_t *lpBuffer, int w, int h) { gfx_FillRect(kColor, 0, 0, w, h, lpBuffer); });
}
BENCHMARK(FillRect)->Args({800, 600})->Args({20, 15});

void Bevel(benchmark::State &state) {
    PaintRect(state, [](uint32_t *lpBuffer, int w, int h) {
        gfx_Bevel(kColor, 1, 2, 3, 4, 5, 6, 0, 0, w, h, lpBuffer);
    });
}
BENCHMARK(Bevel)->Args({800, 600})->Args({80, 20});

// A picture of which so many pixels in a hundred are transparent, scattered so that nobody can foresee the
// next.
std::vector<uint32_t> MakePicture(const benchmark::State &state, int nTransparent) {
    std::vector<uint32_t> pixels(static_cast<size_t>(state.range(0) * state.range(1)));
    uint32_t dwState = 1;
    for (uint32_t &dwPixel : pixels) {
        dwState = dwState * 1664525 + 1013904223;
        dwPixel = static_cast<int>((dwState >> 16) % 100) < nTransparent ? 0 : kColor;
    }
    return pixels;
}

// What a blit is to be compared with.
void Memcpy(benchmark::State &state) {
    const std::vector<uint32_t> picture = MakePicture(state, 0);
    PaintRect(state, [&](uint32_t *lpBuffer, int, int) {
        memcpy(lpBuffer, picture.data(), picture.size() * sizeof(uint32_t));
    });
}
BENCHMARK(Memcpy)->Args({800, 600})->Args({200, 150});

void Blit(benchmark::State &state, int bKeyed, int nTransparent) {
    const std::vector<uint32_t> picture = MakePicture(state, nTransparent);
    PaintRect(state, [&](uint32_t *lpBuffer, int w, int h) {
        gfx_Blit(picture.data(), 0, 0, w, h, w, lpBuffer, bKeyed);
    });
}
BENCHMARK_CAPTURE(Blit, Opaque, 0, 0)->Args({800, 600})->Args({200, 150});
BENCHMARK_CAPTURE(Blit, Keyed0, 1, 0)->Args({800, 600})->Args({200, 150});
BENCHMARK_CAPTURE(Blit, Keyed50, 1, 50)->Args({800, 600})->Args({200, 150});
BENCHMARK_CAPTURE(Blit, Keyed100, 1, 100)->Args({800, 600})->Args({200, 150});

// A line of 100 characters; items are characters. The picture has room for all of them in the largest size.
void TextOut(benchmark::State &state) {
    constexpr int kWidth = 4000, kHeight = 60;
    BenchEngine engine(kWidth, kHeight);
    const std::string strLine = MakeWords(100);
    List<CharInfo> *lpSets = nullptr;
    Font font("", 0, 0, 0);
    font._lpCharInfo = BuildCharInfo("ARIAL", static_cast<int>(state.range(0)), STYLE_ITALIC, &lpSets);
    MeasureText(strLine.c_str(), &font);
    for (auto _ : state) {
        gfx_TextOut(strLine.c_str(), font._lpCharInfo, kColor, 0, 0, kWidth, kHeight, engine.Buffer());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(strLine.size()));
    List_Destroy(lpSets);
}
BENCHMARK(TextOut)->Arg(10)->Arg(15)->Arg(35);

}  // namespace
