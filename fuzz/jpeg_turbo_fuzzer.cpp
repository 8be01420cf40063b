// A JPEG file that libjpeg-turbo accepts without a warning has the same pixels here, or is refused. An input that is none
// is what the samples of a good one are made of, which has to be accepted.
//
// Coefficients may be far greater than those of any picture. Where numbers cannot hold what becomes of them, libjpeg-turbo
// itself has different pixels with and without its vector code, and ours may be neither.
#include <csetjmp>
#include <memory>
#include <thread>

#include "harness.h"
#include "jpeg_turbo.h"
#include "jpeglib/jpeglib.h"

namespace {

using Pixels = std::vector<uint32_t>;

// The pixels, or none for a file that is not what our reader is for: one scan of all components with whole ratios.
Pixels DecodeTurbo(const uint8_t *lpData, size_t nSize, bool bPlain) {
    jpeg_decompress_struct jpeg;
    ErrorManager errors(&jpeg, bPlain);
    jpeg_create_decompress(&jpeg);
    Pixels pixels;
    std::vector<JSAMPLE> row;
    if (setjmp(errors.jump) == 0) {
        jpeg_mem_src(&jpeg, lpData, nSize);
        jpeg_read_header(&jpeg, TRUE);
        jpeg.jpeg_color_space = jpeg.num_components == 3 ? JCS_YCbCr : JCS_GRAYSCALE;
        jpeg.out_color_space = JCS_RGB;
        jpeg.dct_method = JDCT_ISLOW;
        jpeg.do_fancy_upsampling = FALSE;
        jpeg_start_decompress(&jpeg);
        row.resize(size_t{3} * jpeg.output_width);
        JSAMPROW lpRow = row.data();
        while (jpeg.output_scanline < jpeg.output_height && jpeg_read_scanlines(&jpeg, &lpRow, 1)) {
            for (size_t i = 0; i < row.size(); i += 3)
                pixels.push_back(static_cast<uint32_t>(row[i] << 16 | row[i + 1] << 8 | row[i + 2]));
        }
        const bool bOneScan = jpeg.comps_in_scan == jpeg.num_components;
        jpeg_finish_decompress(&jpeg);
        if (!bOneScan || jpeg.input_scan_number > 1)
            pixels.clear();
    } else {
        pixels.clear();
    }
    if (jpeg.err->num_warnings)
        pixels.clear();
    jpeg_destroy_decompress(&jpeg);
    return pixels;
}

Pixels DecodeTurboVector(const uint8_t *lpData, size_t nSize) {
    Pixels pixels;
    std::thread([&] { pixels = DecodeTurbo(lpData, nSize, false); }).join();
    return pixels;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *lpData, size_t nSize) {
    std::string strFile;
    if (nSize > 0 && lpData[0] != 0xFF) {
        Input input(lpData, nSize);
        strFile = MakeFile(&input);
        lpData = reinterpret_cast<const uint8_t *>(strFile.data());
        nSize = strFile.size();
    }
    uint32_t dwWidth, dwHeight, *lpPixels;
    const int nLength = static_cast<int>(nSize);
    if (!jpg_GetDimensions(lpData, nLength, &dwWidth, &dwHeight) || dwWidth * uint64_t{dwHeight} > 100000 ||
        !jpg_JPGToRGB(lpData, nLength, &dwWidth, &dwHeight, &lpPixels, 1) || !lpPixels) {
        REQUIRE(strFile.empty());
        return 0;
    }
    const std::unique_ptr<uint32_t[]> owned(lpPixels);
    const Pixels expected = DecodeTurbo(lpData, nSize, true);
    REQUIRE(strFile.empty() || !expected.empty());
    if (!expected.empty() && expected != Pixels(lpPixels, lpPixels + size_t{dwWidth} * dwHeight))
        REQUIRE(strFile.empty() && expected != DecodeTurboVector(lpData, nSize));
    return 0;
}
