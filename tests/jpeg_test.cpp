// The JPEG reader: pictures that cjpeg has made against djpeg, which knows them independently, and small
// files made here by hand, good ones and bad ones.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cases.h"
#include "jpeglib/jpeglib.h"
#include "jpeglib/kernels.h"
#include "jpeglib/state.h"
#include "jpeglib/tables.h"

namespace {

using Pixels = std::vector<uint32_t>;

thread_local std::string
    g_strOutcome;  // of the last call: its result, a blank and the messages, each with a ';'

Pixels Decode(const std::string &file) {
    g_strOutcome.clear();
    jpg_SetMessageBox([](const char *lpszText) { g_strOutcome += lpszText + std::string(";"); });
    const std::vector<uint8_t> exact(file.begin(), file.end());  // so that the sanitizer sees a byte too many
    const int nLength = static_cast<int>(exact.size());
    uint32_t dwWidth = 0, dwHeight = 0, *lpPixels = nullptr;
    const int nResult = jpg_JPGToRGB(exact.data(), nLength, &dwWidth, &dwHeight, &lpPixels, 1);
    g_strOutcome = std::to_string(nResult) + (g_strOutcome.empty() ? "" : " ") + g_strOutcome;
    if (!nResult || !lpPixels)
        return {};
    const Pixels pixels(lpPixels, lpPixels + size_t{dwWidth} * dwHeight);
    delete[] lpPixels;
    return pixels;
}

std::string ReadFile(const std::string &name) {
    return (std::ostringstream() << std::ifstream(name, std::ios::binary).rdbuf()).str();
}

// A file, and what djpeg makes of it. Kinds: slopes and edges with some grain, noise, nothing but extremes.
std::string Compress(int nWidth, int nHeight, size_t nKind, const std::string &options, Pixels *lpExpected) {
    std::string folder = testing::TempDir() + "jpeg_test_XXXXXX";
    EXPECT_NE(mkdtemp(folder.data()), nullptr);
    std::ofstream input(folder + "/in", std::ios::binary);
    input << "P6 " << nWidth << " " << nHeight << " 255\n";
    std::mt19937 random(1);
    for (int i = 0; i < nWidth * nHeight * 3; ++i) {
        const int x = i / 3 % nWidth, y = i / 3 / nWidth, nNoise = static_cast<int>(random() >> 24);
        const int nSlope = (x * (i % 3 + 1) + y * 2) % 200 + (x / 9 + y / 7) % 3 * 16 + nNoise % 16;
        const int aKinds[] = {nSlope, nNoise, nNoise % 2 * 255};
        input.put(static_cast<char>(aKinds[nKind]));
    }
    input.close();
    const std::string command = "cd " + folder + " && exec 2>errors && cjpeg " + options +
                                " in >file && djpeg -dct int -nosmooth -rgb -pnm file >out";
    EXPECT_EQ(system(command.c_str()), 0) << ReadFile(folder + "/errors");
    std::string file = ReadFile(folder + "/file"), out = ReadFile(folder + "/out");
    std::filesystem::remove_all(folder);
    const auto sample = [&](size_t i) { return uint32_t{static_cast<uint8_t>(out.at(i))}; };
    for (size_t i = out.find("255\n") + 4; i < out.size(); i += 3)
        lpExpected->push_back(sample(i) << 16 | sample(i + 1) << 8 | sample(i + 2));
    // cjpeg marks files with 16-bit tables as more than baseline; but for the mark there is no difference.
    const size_t nFrame = file.find(std::string("\xFF\xC1\x00", 3));
    return nFrame == file.npos ? file : file.replace(nFrame, 2, "\xFF\xC0");
}

TEST(JpegTest, PicturesAreAsDjpegHasThem) {
    // In 4:4:4 the widest has more than 255 MCUs.
    const int aSizes[][2] = {{1, 1}, {7, 5}, {16, 16}, {17, 33}, {31, 1}, {250, 18}, {2080, 3}, {3, 2000}};
    const char *const aSamplings[] = {"1x1", "2x1", "1x2 -grayscale", "1x2", "2x2,2x1,1x2",   "2x2",
                                      "4x1", "3x1", "1x1,2x2,1x1",    "1x4", "1x1 -grayscale"};
    const char *const aOptions[] = {"", " -restart 1B", " -optimize", " -restart 3B -optimize"};
    const char *const aQualities[] = {"1", "5", "24", "50", "75", "95", "100"};
    // Any two values of different rows of these meet in some file. Two threads, as two Frames have them.
    for (size_t n = 0; n < std::size(aSizes) * std::size(aSamplings); ++n) {
        const size_t s = n % std::size(aSizes), p = n / std::size(aSizes);
        const auto &[nWidth, nHeight] = aSizes[s];
        const std::string options = std::string("-quality ") + aQualities[(s + p) % 7] + " -sample " +
                                    aSamplings[p] + aOptions[(s + 3 * p) % 4];
        SCOPED_TRACE(std::to_string(nWidth) + " pixels wide: " + options);
        Pixels expected;
        const std::string file = Compress(nWidth, nHeight, n % 3, options, &expected);
        std::thread other([&] { EXPECT_TRUE(Decode(file) == expected); });
        EXPECT_TRUE(Decode(file) == expected);
        EXPECT_EQ(g_strOutcome, "1");
        other.join();
        jpg::ReplaceKernels(&jpg::g_portableKernels);
        EXPECT_TRUE(Decode(file) == expected);
        jpg::ReplaceKernels(nullptr);
    }
}

// Coefficients around the limits of each form and far beyond, which files may hold.
TEST(JpegTest, FormsOfTheTransformAgreeForAnyBlock) {
    const jpg::Kernels *const alpForms[] = {&jpg::g_portableKernels, jpg::FindAVX2Kernels()};
    if (!alpForms[1])
        GTEST_SKIP() << "this processor has the portable form alone";
    jpg::PrepareTables();
    const int aFactors[] = {0, 1, 2, 3, 16, 255, 2047, 2048, 32767, 32768, 65535};
    const int aProducts[] = {1, 30, 300, 1022, 1023, 1024, 1025, 2047, 8191, 32768, 1 << 17, 1 << 30};
    std::mt19937 random(1);
    const auto below = [&](size_t n) { return static_cast<int>(random() % n); };
    for (int n = 0; n < 100000; ++n) {
        const int nLast = below(64), nTable = below(12), nMost = aProducts[below(12)];
        uint16_t awQuant[64];
        int16_t anCoef[64] = {};
        for (int i = 0; i < 64; ++i) {
            const int nFactor = aFactors[nTable < 11 ? nTable : below(11)];
            const int nSize = std::min((nMost >> below(3)) / std::max(nFactor, 1), 32767);
            awQuant[jpg::g_anNatural[i]] = static_cast<uint16_t>(nFactor);
            if (i <= nLast)
                anCoef[i] = static_cast<int16_t>((below(2) < n % 2 ? -nSize : nSize) - below(1000) / 999);
        }
        uint8_t aabSamples[2][8][24] = {};  // a block, and room beside it
        for (int f = 0; f < 2; ++f) {
            alignas(32) int16_t anPlaced[64], anZero[64] = {};
            for (int i = 0; i < 64; ++i)
                anPlaced[alpForms[f]->lpOrder[i]] = anCoef[i];
            const auto quant = jpg::MakeBlockQuant(awQuant, alpForms[f]->lpOrder);
            alpForms[f]->lpfnTransform(quant, nLast, anPlaced, &aabSamples[f][0][8], 24);
            EXPECT_EQ(memcmp(anPlaced, anZero, sizeof anZero), 0) << n;
        }
        ASSERT_EQ(memcmp(aabSamples[0], aabSamples[1], sizeof aabSamples[0]), 0) << n;
    }
}

TEST(JpegTest, FormsOfTheColorsAgreeForAllSamples) {
    const jpg::Kernels *const alpForms[] = {&jpg::g_portableKernels, jpg::FindAVX2Kernels()};
    for (int n = 0; n < 3 * 256;
         ++n) {  // alone, each Cb meets each Cr; then each stands for two, then for four
        const int nRepeat = 1 << n / 256, nWidth = nRepeat == 1 ? 256 : 1 + n % 256;
        uint8_t abY[256], abCb[256], abCr[256];
        for (int x = 0; x < 256; ++x) {
            abY[x] = static_cast<uint8_t>(x * n);
            abCb[x] = static_cast<uint8_t>(x * nRepeat);
            abCr[x] = static_cast<uint8_t>(n + x);
        }
        Pixels aPixels[2] = {Pixels(300, 5), Pixels(300, 5)};  // behind the last nothing is written
        for (int f = 0; f < 2 && alpForms[f]; ++f) {
            jpg::ColorRow colors;
            alpForms[f]->lpfnMakeColors(abCb, abCr, 256 / nRepeat, nRepeat, &colors);
            alpForms[f]->lpfnMakePixels(abY, colors, nWidth, aPixels[f].data());
        }
        ASSERT_TRUE(!alpForms[1] || aPixels[0] == aPixels[1]) << n;
    }
}

// Each byte is once the first that is missing, which makes a file of no use, and once changed. What comes of
// a change is anybody's guess, but it ends and stays within its arrays.
TEST(JpegTest, DamageDoesNoHarm) {
    for (const char *lpszOptions : {"-sample 2x2 -optimize", "-sample 3x1 -restart 2B", "-grayscale"}) {
        Pixels expected;
        const std::string good = Compress(34, 20, 0, lpszOptions, &expected);
        size_t nRefused = 0;
        for (size_t i = 1; i < good.size(); ++i) {
            Decode(good.substr(0, i));
            EXPECT_EQ(g_strOutcome, "0") << i;
            std::string file = good;
            file[i] = static_cast<char>(file[i] ^ (1 + i * 77 % 255));
            Decode(file);
            nRefused += g_strOutcome[0] == '0';
        }
        EXPECT_GT(nRefused, 20u);
        EXPECT_LT(nRefused, good.size() - 20);
    }
}

std::string File(const std::string &words) {
    static const Cases cases("jpeg.txt");
    return cases.Bytes(words);
}

// The marker may be anywhere in the buffer of the reader.
TEST(JpegTest, TheScanMayEndWithAnyBit) {
    std::string bits = ":11111110001101110";  // darker by 100; blocks of 3 bits follow
    for (unsigned nBlocks = 1; nBlocks <= 24; ++nBlocks, bits += "010") {
        const auto decode = [&](unsigned nWidth, const std::string &end) {
            char szFrame[40];
            snprintf(szFrame, sizeof szFrame, "FFC0000B080008%04X01011100", 8 * nWidth);
            return Decode(File("FRONT " + (szFrame + (" SOS " + bits)) + end));
        };
        for (const char *lpszEnd : {" FFD9", " FFFFD9", " FFD9010203", " 0001FFD9"})
            EXPECT_EQ(decode(nBlocks, lpszEnd), Pixels(64 * nBlocks, 0x1C1C1C)) << lpszEnd;
        for (const char *lpszEnd : {"", " FF", " FFFF", " 00*20"})
            EXPECT_EQ(decode(nBlocks, lpszEnd).size(), 0u) << lpszEnd;
        // With a block missing, in order only if that has not begun, whatever fills up the last byte.
        EXPECT_NE(decode(nBlocks + 1, std::string((25 - bits.size() % 8) % 8, '0') + " FFD9").size(), 0u);
        EXPECT_EQ(decode(nBlocks + 1, "1111111110 FFD9").size(), 0u);
    }
}

// As Decode, for jpg_GetDimensions: the outcome is the size.
Pixels Measure(const std::string &file) {
    uint32_t dwWidth = 99, dwHeight = 99;
    const auto *lpFile = reinterpret_cast<const uint8_t *>(file.data());
    const int nResult = jpg_GetDimensions(lpFile, static_cast<int>(file.size()), &dwWidth, &dwHeight);
    g_strOutcome =
        (nResult ? "size " : "no size ") + std::to_string(dwWidth) + "x" + std::to_string(dwHeight);
    return {};
}

TEST(JpegTest, WhatIsRefusedWhatIsSaidAndWhatIsSeen) {
    for (const auto &row : Cases("jpeg.txt").Under()) {
        const std::string file = File(row[1]), start = File(row[2]);
        Pixels pixels = row[0].find("size ") != std::string::npos ? Measure(file) : Decode(file);
        EXPECT_EQ(g_strOutcome, row[0]) << row[1];
        pixels.resize(start.size());
        EXPECT_EQ(std::string(pixels.begin(), pixels.end()), start) << row[1];
    }
}

TEST(JpegTest, ArgumentsHaveToBeGivenAndToFit) {
    const std::string file = File("FRONT SOF SCAN");
    const auto *p = reinterpret_cast<const uint8_t *>(file.data());
    const int nLength = static_cast<int>(file.size());
    Pixels pixels(65, 1);
    uint32_t n = 8, m = 8, nine = 9, *lp = pixels.data();
    Decode("?");  // hears the messages
    EXPECT_EQ(jpg_JPGToRGB(nullptr, 1, &n, &m, &lp, 0) + jpg_JPGToRGB(p, -1, &n, &m, &lp, 0) +
                  jpg_JPGToRGB(p, 1, nullptr, &m, &lp, 0) + jpg_JPGToRGB(p, 1, &n, nullptr, &lp, 0) +
                  jpg_GetDimensions(nullptr, 1, &n, &m) + jpg_GetDimensions(p, 0, &n, &m) +
                  jpg_GetDimensions(p, 1, nullptr, &m) + jpg_GetDimensions(p, 1, &n, nullptr) +
                  jpg_JPGToRGB(p, 1, &n, &m, nullptr, 0) + jpg_JPGToRGB(p, nLength, &n, &nine, &lp, 0),
              0);
    EXPECT_EQ(pixels, Pixels(65, 1));
    EXPECT_EQ(
        g_strOutcome,
        "0Cannot pass NULL source buffer to jpg_JPGToRGB;Cannot pass <= 0 source buflen to jpg_JPGToRGB;"
        "Cannot pass NULL source width  to jpg_JPGToRGB;Cannot pass NULL source height to jpg_JPGToRGB;"
        "Cannot pass NULL source buffer to jpg_GetDimensions;Cannot pass <= 0 source buflen to "
        "jpg_GetDimensions;Cannot pass NULL source width  to jpg_GetDimensions;Cannot pass NULL source "
        "height to jpg_GetDimensions;Cannot pass NULL dest   buffer to jpg_JPGToRGB;Invalid or "
        "insufficient information in JFIF M_SOF0;");
    EXPECT_EQ(jpg_JPGToRGB(p, nLength, &n, &m, &lp, 0), 1);
    EXPECT_EQ(pixels[63] + pixels[64], 0x808081u);
}

}  // namespace
