// The JPEG reader, side by side with libjpeg-turbo at the settings that give the same pixels: its accurate
// integer transform, chroma repeated, 32-bit pixels. Bytes are those of the pixels.
//
// Turbo is that library as it comes, TurboPlain the same without its vector code, which a variable of the
// environment turns off. The library looks at it once for each thread, so every measurement has a thread of
// its own. Times to compare are those of the processor.
#include <benchmark/benchmark.h>
// jpeglib.h of libjpeg-turbo needs it, and does not say so.
#include <cstdio>

#include <jpeglib.h>

#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "jpeglib/jpeglib.h"

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

bool DecodeTessel(const Bytes &file, std::vector<uint32_t> *lpPixels) {
    uint32_t dwWidth = 0, dwHeight = 0, *lpDest = lpPixels->data();
    const int nLength = static_cast<int>(file.size());
    return jpg_GetDimensions(file.data(), nLength, &dwWidth, &dwHeight) &&
           jpg_JPGToRGB(file.data(), nLength, &dwWidth, &dwHeight, &lpDest, 0);
}

bool DecodeTurbo(const Bytes &file, std::vector<uint32_t> *lpPixels) {
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
        uint32_t *lpPixel = lpPixels->data() + size_t{decompress.output_scanline} * decompress.output_width;
        JSAMPROW lpRow = reinterpret_cast<JSAMPROW>(lpPixel);
        jpeg_read_scanlines(&decompress, &lpRow, 1);
    }
    jpeg_finish_decompress(&decompress);
    jpeg_destroy_decompress(&decompress);
    return true;
}

// --- Measurements ---

// Width, height, greatest sampling factor (1: 4:4:4, 2: 4:2:0), quality.
void Decode(benchmark::State &state, bool (*lpfnDecode)(const Bytes &, std::vector<uint32_t> *),
            bool bPlain) {
    const uint32_t dwWidth = static_cast<uint32_t>(state.range(0)),
                   dwHeight = static_cast<uint32_t>(state.range(1));
    const Bytes file =
        Compress(dwWidth, dwHeight, static_cast<int>(state.range(2)), static_cast<int>(state.range(3)));
    std::vector<uint32_t> pixels(size_t{dwWidth} * dwHeight);
    bPlain ? setenv("JSIMD_FORCENONE", "1", 1) : unsetenv("JSIMD_FORCENONE");
    std::thread([&] {
        for (auto _ : state) {
            if (!lpfnDecode(file, &pixels))
                abort();
            benchmark::ClobberMemory();
        }
    }).join();
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(pixels.size() * sizeof(uint32_t)));
}

void Pictures(benchmark::internal::Benchmark *lpBenchmark) {
    for (const int64_t nQuality : {75, 95}) {
        for (const int64_t nFactor : {2, 1}) {
            lpBenchmark->Args({640, 480, nFactor, nQuality});
            lpBenchmark->Args({1920, 1080, nFactor, nQuality});
            lpBenchmark->Args({4000, 3000, nFactor, nQuality});
        }
    }
    lpBenchmark->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(Decode, Tessel, DecodeTessel, false)->Apply(Pictures);
BENCHMARK_CAPTURE(Decode, TurboPlain, DecodeTurbo, true)->Apply(Pictures);
BENCHMARK_CAPTURE(Decode, Turbo, DecodeTurbo, false)->Apply(Pictures);

}  // namespace
