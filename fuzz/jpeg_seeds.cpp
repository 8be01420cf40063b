// Pictures of all kinds of sampling, with and without restarts, as libjpeg-turbo writes them.
#include <cstdlib>

#include "harness.h"
#include "jpeg_turbo.h"

// Of luma, H and V; 0: grey.
constexpr int kFactors[] = {0, 11, 21, 12, 22, 31, 41, 14};

static std::string Compress(int nWidth, int nHeight, int nQuality, int nFactors, unsigned nRestart,
                            const std::string &strSamples) {
    jpeg_compress_struct jpeg;
    ErrorManager errors(&jpeg);
    jpeg_create_compress(&jpeg);
    unsigned char *lpFile = nullptr;
    unsigned long nSize = 0;
    jpeg_mem_dest(&jpeg, &lpFile, &nSize);
    jpeg.image_width = static_cast<JDIMENSION>(nWidth);
    jpeg.image_height = static_cast<JDIMENSION>(nHeight);
    jpeg.input_components = nFactors ? 3 : 1;
    jpeg.in_color_space = nFactors ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, nQuality, TRUE);
    jpeg.optimize_coding = TRUE;  // small tables
    jpeg.restart_interval = nRestart;
    if (nFactors) {
        jpeg.comp_info[0].h_samp_factor = nFactors / 10;
        jpeg.comp_info[0].v_samp_factor = nFactors % 10;
    }
    jpeg_start_compress(&jpeg, TRUE);
    std::vector<JSAMPLE> row(static_cast<size_t>(nWidth * jpeg.input_components));
    for (int y = 0; y < nHeight; ++y) {
        for (size_t i = 0; i < row.size(); ++i)
            row[i] = static_cast<JSAMPLE>(
                strSamples[(i + row.size() * static_cast<size_t>(y)) % strSamples.size()]);
        JSAMPROW lpRow = row.data();
        jpeg_write_scanlines(&jpeg, &lpRow, 1);
    }
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    const std::string strFile(reinterpret_cast<char *>(lpFile), nSize);
    free(lpFile);
    return strFile;
}

std::string MakeFile(Input *lpInput) {
    const int nWidth = lpInput->OddNumber(), nHeight = lpInput->OddNumber();
    const int nQuality = 1 + lpInput->Byte() % 100, nFactors = kFactors[lpInput->Byte() % 8];
    const unsigned nRestart = lpInput->Byte() % 8u;
    return Compress(nWidth, nHeight, nQuality, nFactors, nRestart, lpInput->Rest() + '\0');
}

std::vector<std::string> Seeds() {
    std::vector<std::string> seeds;
    std::string strSamples;
    for (int i = 0; i < 60; ++i)
        strSamples += static_cast<char>(i * i);
    for (const int nFactors : kFactors)
        for (const unsigned nRestart : {0u, 1u, 2u})
            seeds.push_back(
                Compress(17 + nFactors % 9, 9, nRestart ? 30 : 90, nFactors, nRestart, strSamples));
    for (char c = 0; c < 8; ++c)
        seeds.push_back(std::string({c, 9, static_cast<char>(c * 14), c, c}) + strSamples);
    return seeds;
}
