// The JPEG reader, side by side with libjpeg-turbo at the settings that give the same pixels: its accurate
// integer transform, chroma repeated, 32-bit pixels.
//
// Tessel is the reader with what suits the processor, TesselPortable without. Turbo is that library as it
// comes, TurboPlain the same without its vector code, which a variable of the environment turns off. The library
// looks at it once for each thread, so every measurement has a thread of its own.
//
// They take turns, each with the same picture: of each the counters tell the least time of the processor, in
// ms, and of all but Turbo how many times Turbo's it is.
#include <benchmark/benchmark.h>
// jpeglib.h of libjpeg-turbo needs it, and does not say so.
#include <cstdio>

#include <jpeglib.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "jpeglib/jpeglib.h"
#include "jpeglib/kernels.h"

namespace {

using Bytes = std::vector<uint8_t>;

// --- Pictures ---

// Something between a photograph and noise: slopes of all directions, edges, and a grain.
Bytes MakePicture(uint32_t dwWidth, uint32_t dwHeight) {
    Bytes rgb(size_t{dwWidth} * dwHeight * 3);
    uint32_t dwState = 1;
    uint8_t *lp = rgb.data();
    for (uint32_t y = 0; y < dwHeight; ++y) {
        for (uint32_t x = 0; x < dwWidth; ++x, lp += 3) {
            dwState = dwState * 1664525 + 1013904223;
            const uint32_t dwGrain = dwState >> 28;
            const uint32_t dwEdge = (x / 37 + y / 29) % 3 * 40;
            lp[0] = static_cast<uint8_t>((x * y / 1024 % 256 + dwEdge) / 2 + dwGrain);
            lp[1] = static_cast<uint8_t>((x + y) / 8 % 160 + dwEdge / 2 + dwGrain);
            lp[2] = static_cast<uint8_t>((x * x + y * y) / 8192 % 200 + dwGrain);
        }
    }
    return rgb;
}

Bytes Compress(uint32_t dwWidth, uint32_t dwHeight, int nFactor, int nQuality) {
    jpeg_compress_struct compress;
    jpeg_error_mgr errors;
    compress.err = jpeg_std_error(&errors);
    jpeg_create_compress(&compress);
    unsigned char *lpData = nullptr;
    unsigned long nSize = 0;
    jpeg_mem_dest(&compress, &lpData, &nSize);
    compress.image_width = dwWidth;
    compress.image_height = dwHeight;
    compress.input_components = 3;
    compress.in_color_space = JCS_RGB;
    jpeg_set_defaults(&compress);
    jpeg_set_quality(&compress, nQuality, TRUE);
    compress.comp_info[0].h_samp_factor = compress.comp_info[0].v_samp_factor = nFactor;
    jpeg_start_compress(&compress, TRUE);
    Bytes rgb = MakePicture(dwWidth, dwHeight);
    while (compress.next_scanline < dwHeight) {
        JSAMPROW lpRow = &rgb[size_t{compress.next_scanline} * dwWidth * 3];
        jpeg_write_scanlines(&compress, &lpRow, 1);
    }
    jpeg_finish_compress(&compress);
    jpeg_destroy_compress(&compress);
    const Bytes file(lpData, lpData + nSize);
    free(lpData);
    return file;
}

// --- Decoders ---

void DecodeTessel(const Bytes &file, bool bPlain, uint32_t *lpPixels) {
    uint32_t dwWidth = 0, dwHeight = 0;
    const int nLength = static_cast<int>(file.size());
    jpg::ReplaceKernels(bPlain ? &jpg::g_portableKernels : nullptr);
    if (!jpg_GetDimensions(file.data(), nLength, &dwWidth, &dwHeight) ||
        !jpg_JPGToRGB(file.data(), nLength, &dwWidth, &dwHeight, &lpPixels, 0))
        abort();
}

void DecodeTurbo(const Bytes &file, bool bPlain, uint32_t *lpPixels) {
    bPlain ? setenv("JSIMD_FORCENONE", "1", 1) : unsetenv("JSIMD_FORCENONE");
    jpeg_decompress_struct decompress;
    jpeg_error_mgr errors;
    decompress.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&decompress);
    jpeg_mem_src(&decompress, file.data(), file.size());
    jpeg_read_header(&decompress, TRUE);
    decompress.dct_method = JDCT_ISLOW;
    decompress.do_fancy_upsampling = FALSE;
    decompress.out_color_space = JCS_EXT_BGRX;
    jpeg_start_decompress(&decompress);
    while (decompress.output_scanline < decompress.output_height) {
        uint32_t *lpPixel = lpPixels + size_t{decompress.output_scanline} * decompress.output_width;
        JSAMPROW lpRow = reinterpret_cast<JSAMPROW>(lpPixel);
        jpeg_read_scanlines(&decompress, &lpRow, 1);
    }
    jpeg_finish_decompress(&decompress);
    jpeg_destroy_decompress(&decompress);
}

struct Decoder {
    const char *lpszName;
    void (*lpfnDecode)(const Bytes &, bool bPlain, uint32_t *);
    bool bPlain;
};

constexpr Decoder kDecoders[] = {
    {"Turbo", DecodeTurbo, false},
    {"TurboPlain", DecodeTurbo, true},
    {"Tessel", DecodeTessel, false},
    {"TesselPortable", DecodeTessel, true},
};

// --- Measurements ---

double ThreadTime() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

double Time(const Decoder &decoder, const Bytes &file, uint32_t *lpPixels) {
    double time = 0;
    std::thread([&] {
        decoder.lpfnDecode(file, decoder.bPlain, lpPixels);  // the first of a thread pays for memory
        const double start = ThreadTime();
        decoder.lpfnDecode(file, decoder.bPlain, lpPixels);
        time = ThreadTime() - start;
    }).join();
    return time;
}

// Width, height, greatest sampling factor (1: 4:4:4, 2: 4:2:0), quality.
void Decode(benchmark::State &state) {
    const uint32_t dwWidth = static_cast<uint32_t>(state.range(0)),
                   dwHeight = static_cast<uint32_t>(state.range(1));
    const Bytes file =
        Compress(dwWidth, dwHeight, static_cast<int>(state.range(2)), static_cast<int>(state.range(3)));
    std::vector<uint32_t> pixels(size_t{dwWidth} * dwHeight);
    double aLeast[std::size(kDecoders)];
    std::fill(std::begin(aLeast), std::end(aLeast), 1e9);
    for (auto _ : state) {
        for (size_t d = 0; d < std::size(kDecoders); ++d)
            aLeast[d] = std::min(aLeast[d], Time(kDecoders[d], file, pixels.data()));
    }
    for (size_t d = 0; d < std::size(kDecoders); ++d) {
        state.counters[kDecoders[d].lpszName] = aLeast[d];
        if (d)
            state.counters[kDecoders[d].lpszName + std::string("/Turbo")] = aLeast[d] / aLeast[0];
    }
}

void Pictures(benchmark::internal::Benchmark *lpBenchmark) {
    for (const int64_t nQuality : {75, 95}) {
        for (const int64_t nFactor : {2, 1}) {
            lpBenchmark->Args({640, 480, nFactor, nQuality});
            lpBenchmark->Args({1920, 1080, nFactor, nQuality});
            lpBenchmark->Args({4000, 3000, nFactor, nQuality});
        }
    }
    lpBenchmark->Unit(benchmark::kMillisecond)->Iterations(25);
}

BENCHMARK(Decode)->Name("JPEG")->Apply(Pictures);

}  // namespace
