// A picture file for one of the raster decoders: FUZZ_DECODER, of the files that FUZZ_SEEDS makes.
#include <cstring>

#include "bytereader.h"
#include "harness.h"
#include "image.h"

namespace {

// Large pictures cost time, and are no different.
[[maybe_unused]] bool IsSmallBMP(const uint8_t *lp, size_t nSize) {
    const auto side = [](uint32_t dw) { return uint64_t{static_cast<int32_t>(dw) < 0 ? 0u - dw : dw}; };
    return nSize < 54 || side(ReadLong(lp + 18)) * side(ReadLong(lp + 22)) < 100000;
}

[[maybe_unused]] bool IsSmallPCX(const uint8_t *lp, size_t nSize) {
    const auto side = [](int nFrom, int nTo) { return int64_t{nTo - nFrom + 1}; };
    return nSize < 128 ||
           side(ReadWord(lp + 4), ReadWord(lp + 8)) * side(ReadWord(lp + 6), ReadWord(lp + 10)) < 100000;
}

[[maybe_unused]] bool IsSmallTGA(const uint8_t *lp, size_t nSize) {
    return nSize < 18 || ReadWord(lp + 12) * int64_t{ReadWord(lp + 14)} < 100000;
}

std::string Header(size_t nSize, std::initializer_list<std::pair<size_t, int>> bytes) {
    std::string strHeader(nSize, '\0');
    for (const auto &[nAt, nByte] : bytes)
        strHeader[nAt] = static_cast<char>(nByte);
    return strHeader;
}

std::string Bytes(std::initializer_list<int> bytes) {
    return std::string(bytes.begin(), bytes.end());
}

const std::string kPalette = Bytes({1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0});

// 5 columns, 3 rows; plain, turned over, and in runs, literal bytes and moves.
[[maybe_unused]] std::vector<std::string> SeedsBMP() {
    const std::string strPlain = Header(54, {{18, 5}, {22, 3}, {28, 8}, {46, 3}}) + kPalette;
    const std::string strRuns = Header(54, {{18, 5}, {22, 3}, {28, 8}, {30, 1}, {46, 3}}) + kPalette;
    const std::string strTop = Header(54, {{18, 5}, {22, -3}, {23, -1}, {24, -1}, {25, -1}, {28, 24}});
    return {MakeBitmap(5, 3), strPlain + std::string(24, '\1'), strTop + std::string(48, 'x'),
            strRuns + Bytes({5, 1, 0, 0, 0, 5, 0, 1, 2, 1, 0, 0, 0, 2, 1, 0, 4, 2, 0, 1}),
            strRuns + Bytes({0, 2, 2, 1, 3, 1, 0, 1})};
}

[[maybe_unused]] std::vector<std::string> SeedsPCX() {
    const std::string strHeader = Header(128, {{1, 5}, {3, 8}, {8, 4}, {10, 2}, {66, 6}});
    const std::string strRow = Bytes({0xC3, 7, 1, 0xC2, 9});
    std::string strPalette;
    for (int i = 0; i < 768; ++i)
        strPalette += static_cast<char>(i);
    return {strHeader + strRow + strRow + strRow + strPalette,
            strHeader + std::string(18, '\2') + strPalette};
}

[[maybe_unused]] std::vector<std::string> SeedsTGA() {
    const std::string strPackets =
        Bytes({0x84, 0xE0, 0x03, 0x04, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0x84, 0x1F, 0x7C});
    return {Header(18, {{2, 2}, {12, 5}, {14, 3}}) + std::string(30, 'x'),
            Header(18, {{2, 10}, {10, 1}, {12, 5}, {14, 3}}) + strPackets,
            Header(18, {{2, 10}, {12, 15}, {14, 1}}) + strPackets};
}

}  // namespace

// What comes out has a size that may be, and is the same each time.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *lpData, size_t nSize) {
    if (!FUZZ_IS_SMALL(lpData, nSize))
        return 0;
    Image image(nullptr, nullptr, 3, 4), again(nullptr, nullptr, 3, 4);
    const int nResult = FUZZ_DECODER(&image, lpData, static_cast<uint32_t>(nSize));
    REQUIRE(FUZZ_DECODER(&again, lpData, static_cast<uint32_t>(nSize)) == nResult);
    REQUIRE(image._rc == again._rc && (image._lpPixels != nullptr) == (nResult == 1));
    if (!nResult) {
        REQUIRE(image._rc == Rect(0, 0, 3, 4));
        return 0;
    }
    REQUIRE(IsPictureSize(image._rc.w, image._rc.h));
    const size_t nPixels = static_cast<size_t>(image._rc.w * image._rc.h);
    REQUIRE(memcmp(image._lpPixels, again._lpPixels, nPixels * 4) == 0);
    for (size_t i = 0; i < nPixels; ++i)
        REQUIRE(image._lpPixels[i] <= 0xFFFFFF);
    return 0;
}

std::vector<std::string> Seeds() {
    return FUZZ_SEEDS();
}
