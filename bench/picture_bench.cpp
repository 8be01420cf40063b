// The decoders of BMP, PCX and TGA, and pages full of pictures: how long 500 of them take from the disk to the last
// layout, next to nothing but the decoding of the same files.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench.h"
#include "image.h"
#include "imagedecoder.h"
#include "tessel.h"
#include "workers.h"

namespace {

using Bytes = std::vector<uint8_t>;

// --- Decoders
// ---------------------------------------------------------------------------------------------------------

constexpr int kWidth = 1024;
constexpr int kHeight = 768;
constexpr int kPixels = kWidth * kHeight;

void PutWord(Bytes *lpFile, size_t nOffset, int nValue) {
    (*lpFile)[nOffset] = static_cast<uint8_t>(nValue);
    (*lpFile)[nOffset + 1] = static_cast<uint8_t>(nValue >> 8);
}

// Noise, so that no branch can be foretold; for PCX of bytes that begin no run.
void PutNoise(Bytes *lpFile, int nBytes, uint8_t bMask) {
    uint32_t dwState = 1;
    for (int i = 0; i < nBytes; ++i) {
        dwState = dwState * 1664525 + 1013904223;
        lpFile->push_back(static_cast<uint8_t>(dwState >> 24) & bMask);
    }
}

// Rows of runs of 3 to 18 pixels, shorter only where a row ends, over which no run goes on. With bRaw, every second run is
// written as it is. header(run, literal) writes what stands before each.
template <class Header>
void PutRuns(Bytes *lpFile, int nBytesPerPixel, bool bRaw, Header header) {
    uint32_t dwState = 1;
    for (int nRow = 0; nRow < kHeight; ++nRow) {
        for (int x = 0; x < kWidth;) {
            dwState = dwState * 1664525 + 1013904223;
            const int nRun = std::min<int>(3 + (dwState >> 28), kWidth - x);
            const bool bLiteral = bRaw && (dwState >> 27 & 1) && nRun >= 3;
            header(nRun, bLiteral);
            for (int i = 0; i < (bLiteral ? nRun : 1) * nBytesPerPixel; ++i)
                lpFile->push_back(static_cast<uint8_t>(dwState >> (8 + i % 3)));
            if (bLiteral && nBytesPerPixel == 1 && nRun % 2)
                lpFile->push_back(0);
            x += nRun;
        }
    }
}

Bytes MakeBMP(int nBits, int nCompression) {
    Bytes file(54 + (nBits == 8 ? 1024 : 0));
    PutWord(&file, 18, kWidth);
    PutWord(&file, 22, kHeight);
    PutWord(&file, 28, nBits);
    PutWord(&file, 30, nCompression);
    if (!nCompression)
        PutNoise(&file, kPixels * nBits / 8, 0xFF);
    else
        PutRuns(&file, 1, true, [&](int nRun, bool bLiteral) {
            if (bLiteral)
                file.push_back(0);
            file.push_back(static_cast<uint8_t>(nRun));
        });
    return file;
}

Bytes MakePCX(bool bRuns) {
    Bytes file(128);
    file[1] = 5;
    file[3] = 8;
    PutWord(&file, 8, kWidth - 1);
    PutWord(&file, 10, kHeight - 1);
    PutWord(&file, 66, kWidth);
    if (bRuns)
        PutRuns(&file, 1, false, [&](int nRun, bool) { file.push_back(static_cast<uint8_t>(0xC0 | nRun)); });
    else
        PutNoise(&file, kPixels, 0xBF);
    PutNoise(&file, 768, 0xFF);
    return file;
}

Bytes MakeTGA(bool bRuns) {
    Bytes file(18);
    file[2] = bRuns ? 10 : 2;
    PutWord(&file, 12, kWidth);
    PutWord(&file, 14, kHeight);
    if (bRuns)
        PutRuns(&file, 2, true, [&](int nRun, bool bLiteral) {
            file.push_back(static_cast<uint8_t>((bLiteral ? 0 : 0x80) | (nRun - 1)));
        });
    else
        PutNoise(&file, kPixels * 2, 0xFF);
    return file;
}

// Items are pixels.
void Decode(benchmark::State &state, ImageDecoder lpfnDecode, Bytes (*lpfnMake)()) {
    const BenchEngine engine;
    const Bytes file = lpfnMake();
    for (auto _ : state) {
        Image image(nullptr, nullptr, 0, 0);
        if (!lpfnDecode(&image, file.data(), static_cast<uint32_t>(file.size())))
            abort();
    }
    state.SetItemsProcessed(kPixels * state.iterations());
}
BENCHMARK_CAPTURE(Decode, BMP24, DecodeBMP, [] { return MakeBMP(24, 0); })->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Decode, BMP8, DecodeBMP, [] { return MakeBMP(8, 0); })->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Decode, BMPRuns, DecodeBMP, [] { return MakeBMP(8, 1); })->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Decode, PCX, DecodePCX, [] { return MakePCX(false); })->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Decode, PCXRuns, DecodePCX, [] { return MakePCX(true); })->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Decode, TGA, DecodeTGA, [] { return MakeTGA(false); })->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Decode, TGARuns, DecodeTGA, [] { return MakeTGA(true); })->Unit(benchmark::kMicrosecond);

// --- A page of pictures
// -----------------------------------------------------------------------------------------------

struct Sample {
    const char *lpszName;
    ImageDecoder lpfnDecode;
};

// Those of the demo pages, of 150 by 110 pixels and less.
constexpr Sample kSamples[] = {
    {"morning.jpg", DecodeJPEG}, {"noon.bmp", DecodeBMP}, {"dusk.tga", DecodeTGA}, {"lily.pcx", DecodePCX}};
constexpr int kSampleCount = sizeof kSamples / sizeof *kSamples;

// A folder that is the current one as long as the object lives.
class Folder {
  public:
    Folder() {
        char szFolder[] = "/tmp/tessel-bench-XXXXXX";
        _folder = mkdtemp(szFolder);
        std::filesystem::current_path(_folder);
    }
    ~Folder() {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(_folder);
    }

  private:
    std::filesystem::path _folder;
};

// Has the library load page.html, which shows it all, again and again.
void LoadPage(benchmark::State &state, const std::string &strHTML) {
    BenchEngine engine;
    std::ofstream("page.html") << strHTML;
    for (auto _ : state) {
        tessel_OpenURL("page.html");
        while (Workers().CountWorkers())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        tessel_Render(engine.Buffer());
    }
}

void PicturesLoad(benchmark::State &state) {
    const Folder folder;
    std::string strHTML;
    for (int64_t i = 0; i < state.range(0); ++i) {
        const std::filesystem::path from = kSamples[i % kSampleCount].lpszName;
        const std::string strName = std::to_string(i) + from.extension().string();
        std::filesystem::copy_file(std::filesystem::path(TESSEL_PAGES) / from, strName);
        strHTML += "<IMG SRC=" + strName + ">\n";
    }
    LoadPage(state, strHTML);
    state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(PicturesLoad)
    ->Arg(125)
    ->Arg(250)
    ->Arg(500)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

void PicturesDecode(benchmark::State &state) {
    const int nPictures = static_cast<int>(state.range(0));
    const BenchEngine engine;
    Bytes aFiles[kSampleCount];
    for (int i = 0; i < kSampleCount; ++i) {
        std::ifstream file(std::filesystem::path(TESSEL_PAGES) / kSamples[i].lpszName, std::ios::binary);
        aFiles[i].assign(std::istreambuf_iterator<char>(file), {});
    }
    for (auto _ : state) {
        for (int i = 0; i < nPictures; ++i) {
            const Bytes &file = aFiles[i % kSampleCount];
            Image image(nullptr, nullptr, 0, 0);
            if (!kSamples[i % kSampleCount].lpfnDecode(&image, file.data(),
                                                       static_cast<uint32_t>(file.size())))
                abort();
        }
    }
    state.SetItemsProcessed(nPictures * state.iterations());
}
BENCHMARK(PicturesDecode)->Arg(500)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

// --- Pages that ask for much
// ------------------------------------------------------------------------------------------

// At n and 2n, to be read as a ratio, which is 2 where the time grows as the document does. There is a limit to the
// Frames that are made.
void MissingPicturesLoad(benchmark::State &state) {
    const Folder folder;
    std::string strHTML;
    for (int64_t i = 0; i < state.range(0); ++i)
        strHTML += "<IMG SRC=" + std::to_string(i) + ".bmp>";
    LoadPage(state, strHTML);
}
BENCHMARK(MissingPicturesLoad)->Arg(10'000)->Arg(20'000)->Unit(benchmark::kMillisecond)->UseRealTime();

void FrameTagsLoad(benchmark::State &state) {
    const Folder folder;
    std::ofstream("frame.html") << "a frame";
    std::string strHTML = "<FRAMESET COLS=*>";
    for (int64_t i = 0; i < state.range(0); ++i)
        strHTML += "<FRAME SRC=frame.html>";
    LoadPage(state, strHTML);
}
BENCHMARK(FrameTagsLoad)->Arg(1'000)->Arg(2'000)->Unit(benchmark::kMillisecond)->UseRealTime();

void OwnFramesetLoad(benchmark::State &state) {
    const Folder folder;
    LoadPage(state, "<FRAMESET COLS=50%,50%><FRAME SRC=page.html><FRAME SRC=page.html></FRAMESET>");
}
BENCHMARK(OwnFramesetLoad)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
