// The JPEG reader: pictures that cjpeg has made against djpeg, which knows them independently, and small
// files made here by hand, good ones and bad ones.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "jpeglib/jpeglib.h"

namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<uint8_t>;
using Messages = std::vector<std::string>;

thread_local Messages g_messages;

// The box may still be that of another test.
void CollectMessages() {
    g_messages.clear();
    jpg_SetMessageBox([](const char *lpszText) { g_messages.push_back(lpszText); });
}

Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

struct Picture {
    int nResult = 0;
    uint32_t dwWidth = 0, dwHeight = 0;
    std::vector<uint32_t> pixels;
    Messages messages;
};

Picture Decode(const Bytes &file) {
    CollectMessages();
    Picture picture;
    uint32_t *lpPixels = nullptr;
    const Bytes exact(file);  // so that the sanitizer sees a byte too many
    const int nLength = static_cast<int>(exact.size());
    picture.nResult = jpg_JPGToRGB(exact.data(), nLength, &picture.dwWidth, &picture.dwHeight, &lpPixels, 1);
    if (picture.nResult && lpPixels) {
        picture.pixels.assign(lpPixels, lpPixels + size_t{picture.dwWidth} * picture.dwHeight);
        delete[] lpPixels;
    }
    picture.messages = g_messages;
    return picture;
}

// --- Files made by hand ---

Bytes Word(size_t n) {
    return {static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)};
}

Bytes Segment(uint8_t bMarker, const Bytes &content) {
    return Bytes{0xFF, bMarker} + Word(content.size() + 2) + content;
}

const Bytes kSOI = {0xFF, 0xD8}, kEOI = {0xFF, 0xD9};
const Bytes kAPP0 = Segment(0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
const Bytes kDQT = Segment(0xDB, Bytes{0} + Bytes(64, 8));
// Differences of s bits have the code of s ones and a zero. Coefficients: a single one 0, end of block 10,
// sixteen zeros 110, one behind fifteen zeros 1110, and one of five bits 11110.
const Bytes kDC = {0x00, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  0, 0,
                   0,    0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
const Bytes kAC = {0x10, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0x00, 0xF0, 0xF1, 0x05};
const Bytes kDHT = Segment(0xC4, kDC + kAC);

// A frame header: for each component its factors, as 0x11.
Bytes SOF(size_t nWidth, size_t nHeight, const Bytes &factors = {0x11}) {
    Bytes content = Bytes{8} + Word(nHeight) + Word(nWidth) + Bytes{static_cast<uint8_t>(factors.size())};
    for (size_t i = 0; i < factors.size(); ++i)
        content = content + Bytes{static_cast<uint8_t>(i + 1), factors[i], 0};
    return Segment(0xC0, content);
}

Bytes SOS(size_t nComponents = 1) {
    Bytes content = {static_cast<uint8_t>(nComponents)};
    for (size_t i = 0; i < nComponents; ++i)
        content = content + Bytes{static_cast<uint8_t>(i + 1), 0x00};
    return Segment(0xDA, content + Bytes{0, 63, 0});
}

const Bytes kFront = kSOI + kAPP0 + kDQT + kDHT;

// A block without other coefficients than the first, which makes its samples that much lighter than those of
// the block before.
std::string Block(int nLighter) {
    int nBits = 0;
    while (std::abs(nLighter) >> nBits)
        ++nBits;
    std::string bits = std::string(static_cast<size_t>(nBits), '1') + '0';
    const int nValue = nLighter < 0 ? nLighter + (1 << nBits) - 1 : nLighter;
    for (int i = nBits - 1; i >= 0; --i)
        bits += nValue >> i & 1 ? '1' : '0';
    return bits + "10";
}

// Bits as bytes of a scan: filled up with ones, zeros stuffed.
Bytes Data(std::string bits) {
    Bytes bytes;
    bits.append((8 - bits.size() % 8) % 8, '1');
    for (size_t i = 0; i < bits.size(); i += 8) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(bits.substr(i, 8), nullptr, 2)));
        if (bytes.back() == 0xFF)
            bytes.push_back(0);
    }
    return bytes;
}

// --- Files that cjpeg makes ---

Bytes ReadFile(const fs::path &name) {
    std::ifstream file(name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

class JpegToolTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(system("command -v cjpeg djpeg >/dev/null"), 0)
            << "cjpeg and djpeg are missing: install libjpeg-turbo-progs";
        std::string pattern = (fs::temp_directory_path() / "jpeg_test_XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        _folder = pattern;
    }

    void TearDown() override { fs::remove_all(_folder); }

    // 0: slopes and edges with some grain, 1: noise, 2: nothing but the extremes.
    void WriteInput(int nWidth, int nHeight, int nKind) const {
        std::mt19937 random(static_cast<unsigned>(nWidth * nHeight));
        std::ofstream file(_folder / "in.ppm", std::ios::binary);
        file << "P6\n" << nWidth << " " << nHeight << "\n255\n";
        for (int i = 0; i < nWidth * nHeight * 3; ++i) {
            const int x = i / 3 % nWidth, y = i / 3 / nWidth;
            const unsigned nNoise = static_cast<unsigned>(random()) >> 8;
            const int nSlope = (x * (i % 3 + 1) + y * 2) % 200 + (x / 9 + y / 7) % 3 * 16;
            const unsigned aKinds[] = {static_cast<unsigned>(nSlope) + nNoise % 16, nNoise, nNoise % 2 * 255};
            file.put(static_cast<char>(aKinds[nKind]));
        }
    }

    Bytes Compress(const std::string &options) const {
        const std::string command = "cd " + _folder.string() + " && exec 2>errors && cjpeg " + options +
                                    " in.ppm >a.jpg && djpeg -dct int -nosmooth -pnm a.jpg >out.pnm";
        EXPECT_EQ(system(command.c_str()), 0) << std::ifstream(_folder / "errors").rdbuf();
        return ReadFile(_folder / "a.jpg");
    }

    // What djpeg made of the file that was compressed last.
    Picture Expected() const {
        std::ifstream file(_folder / "out.pnm", std::ios::binary);
        std::string kind;
        Picture picture;
        int nMax = 0;
        file >> kind >> picture.dwWidth >> picture.dwHeight >> nMax;
        file.get();
        const Bytes samples(std::istreambuf_iterator<char>(file), {});
        const size_t nStep = kind == "P6" ? 3 : 1;
        for (size_t i = 0; i + nStep <= samples.size(); i += nStep)
            picture.pixels.push_back(uint32_t{samples[i]} << 16 | uint32_t{samples[i + nStep / 2]} << 8 |
                                     samples[i + nStep - 1]);
        return picture;
    }

    // The tables of the lowest qualities have 16 bits, which cjpeg takes for more than baseline; there is no
    // other difference.
    static Bytes AsBaseline(Bytes file) {
        const uint8_t abExtended[] = {0xFF, 0xC1, 0x00};
        const auto it = std::search(file.begin(), file.end(), std::begin(abExtended), std::end(abExtended));
        if (it != file.end()) {
            EXPECT_EQ(Decode(file).nResult, 0);
            it[1] = 0xC0;
        }
        return file;
    }

    void ExpectSame(const std::string &options) const {
        SCOPED_TRACE(options);
        const Bytes file = AsBaseline(Compress(options));
        const Picture picture = Decode(file), expected = Expected();
        ASSERT_EQ(picture.nResult, 1);
        ASSERT_EQ(picture.messages, Messages());
        ASSERT_EQ(picture.dwWidth, expected.dwWidth);
        ASSERT_EQ(picture.dwHeight, expected.dwHeight);
        const auto difference = std::mismatch(picture.pixels.begin(), picture.pixels.end(),
                                              expected.pixels.begin(), expected.pixels.end());
        ASSERT_TRUE(picture.pixels == expected.pixels)
            << "pixel " << difference.first - picture.pixels.begin() << " of a row of " << picture.dwWidth;
    }

    fs::path _folder;
};

const char *const kSamplings[] = {"1x1", "2x1",         "1x2",        "2x2",           "4x1",
                                  "1x4", "4x2",         "3x1",        "2x2,2x1,1x2",   "1x1,2x2,1x1",
                                  "1x3", "4x1,2x1,1x1", "-grayscale", "2x2 -grayscale"};

std::string Sampling(const std::string &name) {
    return name[0] == '-' ? name : "-sample " + name;
}

TEST_F(JpegToolTest, EverySizeIsAsDjpegHasIt) {
    const int aSizes[][2] = {{1, 1},   {2, 3},    {7, 5},   {8, 8},    {9, 16},   {17, 33},  {31, 1},
                             {33, 65}, {250, 18}, {257, 9}, {519, 40}, {2000, 3}, {3, 2000}, {512, 16}};
    const char *const aOptions[] = {"-quality 30", "-quality 75 -optimize", "-quality 90 -restart 1",
                                    "-quality 95 -restart 3B", "-quality 5"};
    size_t nTurn = 0;
    for (const auto &[nWidth, nHeight] : aSizes) {
        SCOPED_TRACE(std::to_string(nWidth) + " x " + std::to_string(nHeight));
        WriteInput(nWidth, nHeight, static_cast<int>(nTurn % 3));
        for (const char *lpszSampling : kSamplings)
            ExpectSame(Sampling(lpszSampling) + " " + aOptions[nTurn++ % std::size(aOptions)]);
    }
}

TEST_F(JpegToolTest, EveryQualityIsAsDjpegHasIt) {
    for (const int nKind : {0, 1, 2}) {
        WriteInput(67, 41, nKind);
        for (const int nQuality :
             {1, 2, 3, 5, 8, 13, 20, 24, 25, 35, 50, 65, 75, 80, 85, 90, 93, 96, 98, 99, 100}) {
            ExpectSame("-sample 1x1 -quality " + std::to_string(nQuality));
            ExpectSame("-sample 2x2 -optimize -restart 2B -quality " + std::to_string(nQuality));
        }
    }
}

TEST_F(JpegToolTest, NoPartOfAFileIsAFile) {
    WriteInput(20, 17, 0);
    const Bytes file = Compress("-sample 2x2 -restart 1B -quality 60");
    ASSERT_EQ(Decode(file).nResult, 1);
    for (size_t nLength = 1; nLength < file.size(); ++nLength) {
        const Bytes part(file.begin(), file.begin() + static_cast<ptrdiff_t>(nLength));
        const Picture picture = Decode(part);
        ASSERT_EQ(picture.nResult, 0) << nLength;
        ASSERT_EQ(picture.messages, Messages()) << nLength;
        uint32_t dwWidth = 1, dwHeight = 1;
        const int nKnown = jpg_GetDimensions(part.data(), static_cast<int>(nLength), &dwWidth, &dwHeight);
        ASSERT_EQ(dwWidth, nKnown ? 20u : 0u) << nLength;
        ASSERT_EQ(dwHeight, nKnown ? 17u : 0u) << nLength;
    }
}

// What comes out is anybody's guess, but it ends, stays within the array, and says the truth about the size.
TEST_F(JpegToolTest, DamagedFilesDoNoHarm) {
    std::mt19937 random(1);
    for (const char *lpszOptions : {"-sample 2x2 -optimize", "-sample 4x1 -restart 2B", "-grayscale"}) {
        WriteInput(50, 35, 0);
        const Bytes good = Compress(lpszOptions);
        int nRefused = 0;
        for (int i = 0; i < 3000; ++i) {
            Bytes file = good;
            for (unsigned nFlips = 1 + random() % 4; nFlips > 0; --nFlips)
                file[random() % file.size()] ^= static_cast<uint8_t>(1u << random() % 8);
            std::vector<uint32_t> pixels(50 * 35 + 1, 0xFEDCBA98);
            uint32_t dwWidth = 50, dwHeight = 35, *lpPixels = pixels.data();
            const int nLength = static_cast<int>(file.size());
            nRefused += !jpg_JPGToRGB(file.data(), nLength, &dwWidth, &dwHeight, &lpPixels, 0);
            // Nothing, where the damage has made an end of image before the frame.
            ASSERT_TRUE((dwWidth == 50 && dwHeight == 35) || (dwWidth == 0 && dwHeight == 0));
            ASSERT_EQ(pixels.back(), 0xFEDCBA98);
            Decode(file);
        }
        EXPECT_GT(nRefused, 0);
        EXPECT_LT(nRefused, 3000);
    }
}

TEST_F(JpegToolTest, ThreadsDoNotDisturbEachOther) {
    WriteInput(200, 150, 0);
    const Bytes file = Compress("-sample 2x1");
    const Picture expected = Expected();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int j = 0; j < 5; ++j)
                EXPECT_TRUE(Decode(file).pixels == expected.pixels);
        });
    for (std::thread &thread : threads)
        thread.join();
}

// --- The scan ---

TEST(JpegTest, TheScanMayEndWithAnyBit) {
    for (size_t nBlocks = 1; nBlocks <= 48; ++nBlocks) {
        SCOPED_TRACE(nBlocks);  // of 3 bits each, but for the first
        std::string bits = Block(-100);
        for (size_t i = 1; i < nBlocks; ++i)
            bits += Block(0);
        const Bytes file = kFront + SOF(8 * nBlocks, 8) + SOS() + Data(bits);
        for (const Bytes &end :
             {kEOI, Bytes{0xFF, 0xFF, 0xD9}, Bytes{0xFF, 0xD9, 0xFF, 0xD9, 1, 2, 3}, Bytes{0, 1} + kEOI}) {
            const Picture picture = Decode(file + end);
            ASSERT_EQ(picture.nResult, 1);
            ASSERT_EQ(picture.pixels, std::vector<uint32_t>(64 * nBlocks, 0x1C1C1C));
        }
        for (const Bytes &end : {Bytes(), Bytes{0xFF}, Bytes{0xFF, 0xFF}, Bytes(20, 0)})
            ASSERT_EQ(Decode(file + end).nResult, 0);
    }
}

TEST(JpegTest, FlatBlocksHaveTheLevelThatTheySay) {
    // Levels are clamped, but those that no encoder writes wrap around by 1024 before.
    const struct {
        int nLevel;
        uint32_t dwGrey;
    } aLevels[] = {{0, 128},   {1, 129},  {-1, 127},  {127, 255}, {128, 255},  {-128, 0},   {-129, 0},
                   {300, 255}, {-300, 0}, {511, 255}, {600, 0},   {-600, 255}, {1000, 104}, {-1000, 152}};
    for (const auto &[nLevel, dwGrey] : aLevels) {
        const Picture picture = Decode(kFront + SOF(8, 8) + SOS() + Data(Block(nLevel)) + kEOI);
        ASSERT_EQ(picture.nResult, 1) << nLevel;
        EXPECT_EQ(picture.pixels, std::vector<uint32_t>(64, dwGrey * 0x010101)) << nLevel;
    }
}

TEST(JpegTest, FillBytesInTheDataAreDropped) {
    ASSERT_EQ(Data(Block(255)), Bytes({0xFF, 0x00, 0x7F, 0xDF}));
    const Bytes data = {0xFF, 0xFF, 0xFF, 0x00, 0x7F, 0xDF};
    const Picture picture = Decode(kFront + SOF(8, 8) + SOS() + data + kEOI);
    EXPECT_EQ(picture.pixels, std::vector<uint32_t>(64, 0xFFFFFF));
}

// Numbers that do not fit into 16 bits go another way, which has to give the same. By the rule of the 10
// bits, a block that is lighter by 1024 is the same block.
TEST(JpegTest, LargeNumbersAreTransformedAsSmallOnes) {
    std::mt19937 random(1);
    for (const int nLevel : {-120, -60, 0, 60, 120}) {
        std::string coefficients;
        for (int i = 1; i < 64; ++i)
            coefficients += random() % 2 ? "00" : "01";
        const auto decode = [&](int nLighter) {
            const std::string first = Block(nLighter);
            const std::string bits = first.substr(0, first.size() - 2) + coefficients;
            return Decode(kFront + SOF(8, 8) + SOS() + Data(bits) + kEOI).pixels;
        };
        const std::vector<uint32_t> pixels = decode(nLevel);
        EXPECT_EQ(pixels, decode(nLevel + 1024));
        EXPECT_GT(std::set<uint32_t>(pixels.begin(), pixels.end()).size(), 8u);
    }
}

// Sums by hand. The first row of samples is made of one number, which is four times the second coefficient,
// or 4 x 8000 + 2 x 11363 in the last case; that times 11363, 9633, 6437 and 2260, and the same below zero,
// in 2^18ths, of which 10 bits count.
TEST(JpegTest, TheLargestNumbersWrapAround) {
    const std::string sixteen = "1111010000", one = "01";
    const struct {
        std::string coefficients;
        std::vector<size_t> quants;
        std::vector<uint32_t> row;
    } aCases[] = {
        {one, {65535}, {227, 255, 255, 255, 0, 0, 0, 29}},
        {sixteen, {32768}, {0, 255, 255, 0, 255, 0, 0, 255}},
        {sixteen, {4096}, {227, 255, 255, 255, 0, 0, 0, 29}},
        {sixteen + one + one + sixteen, {500, 0, 0, 256}, {255, 91, 255, 255, 0, 0, 165, 0}},
    };
    for (const auto &[coefficients, quants, row] : aCases) {
        SCOPED_TRACE(quants[0]);
        Bytes table = {0x10, 0, 8};
        for (size_t i = 0; i < 63; ++i)
            table = table + Word(i < quants.size() ? quants[i] : 0);
        const Bytes data = Data("0" + coefficients + "10");
        const Bytes file = kSOI + Segment(0xDB, table) + kDHT + SOF(8, 8) + SOS() + data + kEOI;
        const Picture picture = Decode(file);
        ASSERT_EQ(picture.nResult, 1);
        for (size_t x = 0; x < 8; ++x)
            EXPECT_EQ(picture.pixels[x], row[x] * 0x010101) << x;
    }
}

TEST(JpegTest, PicturesMayBeWiderThan255MCUs) {
    std::string bits;
    for (int i = 0; i < 2048; ++i)
        bits += Block(i == 2047 ? 7 : 0);
    const Picture picture = Decode(kFront + SOF(16384, 8) + SOS() + Data(bits) + kEOI);
    ASSERT_EQ(picture.nResult, 1);
    EXPECT_EQ(std::count(picture.pixels.begin(), picture.pixels.end(), 0x808080u), 2047 * 64);
    EXPECT_EQ(std::count(picture.pixels.begin(), picture.pixels.end(), 0x878787u), 64);
}

TEST(JpegTest, SamplesOfUnevenFactorsAreTakenByScaledCoordinates) {
    // Three blocks of Y, two of Cb and one of Cr side by side; the second of Cb is bluer.
    const std::string bits = Block(0) + Block(0) + Block(0) + Block(0) + Block(100) + Block(0);
    const Picture picture = Decode(kFront + SOF(24, 8, {0x31, 0x21, 0x11}) + SOS(3) + Data(bits) + kEOI);
    ASSERT_EQ(picture.nResult, 1);
    for (size_t x = 0; x < 24; ++x)
        EXPECT_EQ(picture.pixels[x], x < 12 ? 0x808080u : 0x805EFFu) << x;
}

struct Case {
    const char *lpszName;
    Bytes file;
    Messages messages = {};
};

void Check(const std::vector<Case> &cases, int nResult) {
    for (const Case &test : cases) {
        SCOPED_TRACE(test.lpszName);
        const Picture picture = Decode(test.file);
        EXPECT_EQ(picture.nResult, nResult);
        EXPECT_EQ(picture.messages, test.messages);
    }
}

void ExpectPassed(const std::vector<Case> &cases) {
    Check(cases, 1);
}

void ExpectRefused(const std::vector<Case> &cases) {
    Check(cases, 0);
}

TEST(JpegTest, RestartsAndOtherMarkersInTheScan) {
    const Bytes one = Data(Block(1)), two = Data(Block(1) + Block(0)), four = two + two, cut = Data("0");
    const Bytes rst = {0xFF, 0xD0}, rst5 = {0xFF, 0xD5}, note = Segment(0xFE, {});
    const Bytes plain = kFront + SOF(32, 8) + SOS();
    const auto every = [](uint8_t n) { return kFront + Segment(0xDD, {0, n}) + SOF(32, 8) + SOS(); };
    const Messages early = {"Got M_RST with MCUs left"}, none = {"Got M_RST in non-DRI image?"};
    const Messages other = {"Unhandled marker in JPG data stream"};
    ExpectPassed({
        {"as they should be", every(2) + two + rst + two + kEOI},
        {"after each MCU", every(1) + one + rst + one + rst + one + rst + one + kEOI},
        {"another number", every(2) + two + rst5 + two + kEOI},
        {"fill bytes", every(2) + two + Bytes{0xFF, 0xFF} + rst + two + kEOI},
        {"bytes too many", every(2) + two + Bytes{1, 0xFF, 0, 2} + rst + two + kEOI},
        {"one behind the last MCU", every(2) + two + rst + two + rst + kEOI},
        {"missing, with EOI instead", every(2) + two + kEOI},
        {"EOI between MCUs", plain + two + kEOI},
    });
    ExpectRefused({
        {"two behind the last MCU", every(2) + two + rst + two + rst + rst + kEOI, early},
        {"too early", every(3) + two + rst + two + kEOI, early},
        {"too early, within an MCU", every(2) + cut + rst + two + kEOI, early},
        {"missing, with the end instead", every(2) + four},
        {"in a file without", plain + two + rst + two + kEOI, {none[0], early[0]}},
        {"in a file without, first of all", plain + rst + four + kEOI, none},
        {"EOI within an MCU", plain + two + cut + kEOI},
        {"a comment", plain + two + note + two + kEOI, other},
        {"a comment where a restart is due", every(2) + two + note + two + kEOI, other},
        {"a comment behind the last MCU", every(4) + four + note + kEOI, other},
    });
    const Picture picture = Decode(every(2) + two + rst + two + kEOI);
    EXPECT_EQ(picture.pixels, std::vector<uint32_t>(32 * 8, 0x818181)) << "prediction begins anew";
}

// A flat grey picture of 8 x 8, with something more or something else in it.
const Bytes kSOF = SOF(8, 8), kScan = Data(Block(0)) + kEOI;

Bytes With(const Bytes &segment) {
    return kFront + segment + kSOF + SOS() + kScan;
}

Bytes Framed(const Bytes &sof, size_t nComponents = 1) {
    return kFront + sof + SOS(nComponents) + kScan;
}

Bytes Scanned(const Bytes &sos) {
    return kFront + kSOF + Segment(0xDA, sos + Bytes{0, 63, 0}) + kScan;
}

Bytes Coded(const std::string &bits) {
    return kFront + kSOF + SOS() + Data(bits) + kEOI;
}

// A table whose symbols are all 17.
Bytes DHT(uint8_t bIndex, Bytes counts, size_t nSymbols) {
    counts.resize(16);
    return Segment(0xC4, Bytes{bIndex} + counts + Bytes(nSymbols, 17));
}

TEST(JpegTest, SegmentsThatAreLetPass) {
    const std::string bad(17, '1'), zeros = "110";
    const Messages code = {"Got bad Huffman code in HuffDecode"},
                   dri = {"Got bad M_DRI length in JFIF header"};
    ExpectPassed({
        {"nothing unusual", With({})},
        {"bytes before the first marker", Bytes{1, 2, 3} + With({})},
        {"no SOI and no APP0", kDQT + kDHT + kSOF + SOS() + kScan},
        {"no scan", kFront + kSOF + kEOI},
        {"APP1", With(Segment(0xE1, {0xFF, 0xD9}))},
        {"arithmetic conditions", With(Segment(0xCC, {1}))},
        {"a segment of length 0", With({0xFF, 0xE1, 0, 0})},
        {"no end of block", Coded("0" + zeros + zeros + zeros + zeros)},
        {"DRI of another length", With(Segment(0xDD, {0, 1, 0})), dri},
        {"bits that are no code", Coded(bad + "10"), code},
        {"bits that are no code, twice", Coded(bad + bad), {code[0], code[0]}},
    });
}

TEST(JpegTest, SegmentsThatAreRefused) {
    const std::string last = "11101";  // behind fifteen zeros
    const Bytes other = Segment(0xE0, {'J', 'F', 'X', 'X', 0}),
                second = Segment(0xE0, {'J', 'F', 'I', 'F', 0, 2});
    const Messages jfif = {"Could not find \"JFIF\" marker in JFIF M_APP0"};
    const Messages version = {"Got invalid version number in JFIF M_APP0"};
    const Messages quant = {"Got invalid Quantization Table count in JFIF M_DQT"};
    const Messages codes = {"Got invalid Huffman Table bit count in JFIF M_DHT"};
    const Messages index = {"Got bad Huffman Table index in JFIF DHT segment"};
    const Messages size = {"Invalid or insufficient information in JFIF M_SOF0"};
    const Messages factor = {"Got invalid H/V Sample Factor in JFIF M_SOF0"};
    const Messages count = {"Got invalid scan component count in JFIF M_SOS"};
    const Messages order = {"Got out-of-order AC/DC Table Number in JFIF SOS"};
    ExpectRefused({
        {"a segment longer than the file", With({0xFF, 0xE1, 0xFF, 0xFF})},
        {"APP0 of another kind", With(other), jfif},
        {"APP0 of another kind behind the frame", kFront + kSOF + other + SOS() + kScan, jfif},
        {"APP0 of version 2", With(second), version},
        {"quantisation table 4", With(Segment(0xDB, Bytes{4} + Bytes(64, 1))), quant},
        {"257 codes", With(DHT(0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 255}, 257)), codes},
        {"three codes of one bit", With(DHT(0, {3}, 3))},
        {"Huffman table 4", With(DHT(0x04, {}, 0)), index},
        {"Huffman table 0x20", With(DHT(0x30, {}, 0)), index},
        {"width 0", Framed(SOF(0, 8)), size},
        {"height 0", Framed(SOF(8, 0)), size},
        {"no components", Framed(SOF(8, 8, {})), size},
        {"two components", Framed(SOF(8, 8, {0x11, 0x11}), 2)},
        {"four components", Framed(SOF(8, 8, {0x11, 0x11, 0x11, 0x11}), 4)},
        {"255 components", Framed(SOF(8, 8, Bytes(255, 0x11)))},
        {"factor 0", Framed(SOF(8, 8, {0x11, 0x10, 0x11}), 3), factor},
        {"factor 5", Framed(SOF(8, 8, {0x51, 0x11, 0x11}), 3), factor},
        {"a component's table 4", Framed(Segment(0xC0, {8, 0, 8, 0, 8, 1, 1, 0x11, 4}))},
        {"a scan without a frame", kFront + Segment(0xDA, {1, 0, 0, 0, 63, 0}) + kScan},
        {"a scan of nothing", Scanned({0}), count},
        {"a scan of five", Scanned({5, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}), count},
        {"a scan of another component", Scanned({1, 7, 0}), order},
        {"DC table 4", Scanned({1, 1, 0x40})},
        {"AC table 4", Scanned({1, 1, 0x04})},
        {"a table that is not defined", Scanned({1, 1, 0x10})},
        {"a difference of 17 bits", With(DHT(0, {1}, 1))},
        {"65 coefficients", Coded("0" + last + last + last + last + "10")},
    });
    for (const int nMarker : {0xC1, 0xC2, 0xC3, 0xC5, 0xC6, 0xC7, 0xC9, 0xCA, 0xCB, 0xCD, 0xCE})
        ExpectRefused({{"another frame", With(Segment(static_cast<uint8_t>(nMarker), {}))}});
}

// --- Sizes ---

Picture Dimensions(const Bytes &file) {
    Picture picture;
    picture.dwWidth = picture.dwHeight = 99;
    picture.nResult =
        jpg_GetDimensions(file.data(), static_cast<int>(file.size()), &picture.dwWidth, &picture.dwHeight);
    return picture;
}

TEST(JpegTest, DimensionsAreThoseOfTheFirstFrameBehindJFIF) {
    const Bytes sof = SOF(300, 7), jfxx = Segment(0xE0, {'J', 'F', 'X', 'X', 0});
    const auto upTo = [](Bytes bytes, size_t n) {
        return Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(n));
    };
    const struct {
        const char *lpszName;
        Bytes file;
        bool bKnown;
    } aCases[] = {
        {"plain", kSOI + kAPP0 + sof, true},
        {"no SOI, other segments", kAPP0 + kDQT + Segment(0xE1, {0xFF, 0xC0}) + sof, true},
        {"as far as the width", kSOI + kAPP0 + upTo(sof, 9), true},
        {"not as far", kSOI + kAPP0 + upTo(sof, 8), false},
        {"no JFIF", kSOI + Segment(0xE1, {'E', 'x', 'i', 'f'}) + sof, false},
        {"JFIF behind the frame", kSOI + sof + kAPP0, false},
        {"JFIF between two frames", kSOI + SOF(1, 1) + kAPP0 + sof, true},
        {"another APP0", kSOI + jfxx + sof, false},
        {"another APP0 behind JFIF", kSOI + kAPP0 + jfxx + sof, false},
        {"another APP0 behind the frame", kSOI + kAPP0 + sof + jfxx, true},
        {"progressive", kSOI + kAPP0 + Segment(0xC2, Bytes(15, 8)) + kEOI, false},
        {"a frame within APP0", kSOI + Segment(0xE0, Bytes{'J', 'F', 'I', 'F'} + sof), true},
        {"a segment longer than the file", kSOI + kAPP0 + Bytes{0xFF, 0xE1, 0xFF, 0xFF} + sof, false},
    };
    for (const auto &[lpszName, file, bKnown] : aCases) {
        SCOPED_TRACE(lpszName);
        const Picture picture = Dimensions(file);
        EXPECT_EQ(picture.nResult, bKnown);
        EXPECT_EQ(picture.dwWidth, bKnown ? 300u : 0u);
        EXPECT_EQ(picture.dwHeight, bKnown ? 7u : 0u);
    }
}

TEST(JpegTest, PicturesThatAreTooLargeAreRefused) {
    const size_t aSizes[][3] = {{16384, 1, 1},   {16385, 1, 0},   {1, 16384, 1},    {1, 16385, 0},
                                {8000, 8000, 1}, {8001, 8000, 0}, {65535, 65535, 0}};
    for (const auto &[nWidth, nHeight, nGood] : aSizes) {
        SCOPED_TRACE(std::to_string(nWidth) + " x " + std::to_string(nHeight));
        const Bytes file = kFront + SOF(nWidth, nHeight) + kEOI;
        EXPECT_EQ(Dimensions(file).nResult, static_cast<int>(nGood));
        EXPECT_EQ(Decode(file).nResult, static_cast<int>(nGood));
    }
}

// --- The call ---

TEST(JpegTest, AGivenArrayHasToFit) {
    const Bytes file = kFront + SOF(8, 8) + SOS() + Data(Block(5)) + kEOI;
    for (const uint32_t dwWidth : {7u, 8u, 9u}) {
        std::vector<uint32_t> pixels(128, 1);
        uint32_t dwGiven = dwWidth, dwHeight = 8, *lpPixels = pixels.data();
        CollectMessages();
        const int nResult =
            jpg_JPGToRGB(file.data(), static_cast<int>(file.size()), &dwGiven, &dwHeight, &lpPixels, 0);
        EXPECT_EQ(nResult, dwWidth == 8);
        EXPECT_EQ(g_messages,
                  dwWidth == 8 ? Messages() : Messages{"Invalid or insufficient information in JFIF M_SOF0"});
        EXPECT_EQ(pixels[63], dwWidth == 8 ? 0x858585u : 1u);
        EXPECT_EQ(pixels[64], 1u);
    }
}

TEST(JpegTest, MissingArgumentsAreNamed) {
    const uint8_t b = 0;
    uint32_t n = 0, *lp = &n;
    CollectMessages();
    EXPECT_EQ(jpg_GetDimensions(nullptr, 1, &n, &n), 0);
    EXPECT_EQ(jpg_GetDimensions(&b, 0, &n, &n), 0);
    EXPECT_EQ(jpg_GetDimensions(&b, 1, nullptr, &n), 0);
    EXPECT_EQ(jpg_GetDimensions(&b, 1, &n, nullptr), 0);
    EXPECT_EQ(jpg_JPGToRGB(nullptr, 1, &n, &n, &lp, 0), 0);
    EXPECT_EQ(jpg_JPGToRGB(&b, -1, &n, &n, &lp, 0), 0);
    EXPECT_EQ(jpg_JPGToRGB(&b, 1, nullptr, &n, &lp, 0), 0);
    EXPECT_EQ(jpg_JPGToRGB(&b, 1, &n, nullptr, &lp, 0), 0);
    EXPECT_EQ(jpg_JPGToRGB(&b, 1, &n, &n, nullptr, 0), 0);
    EXPECT_EQ(g_messages, Messages({"Cannot pass NULL source buffer to jpg_GetDimensions",
                                    "Cannot pass <= 0 source buflen to jpg_GetDimensions",
                                    "Cannot pass NULL source width  to jpg_GetDimensions",
                                    "Cannot pass NULL source height to jpg_GetDimensions",
                                    "Cannot pass NULL source buffer to jpg_JPGToRGB",
                                    "Cannot pass <= 0 source buflen to jpg_JPGToRGB",
                                    "Cannot pass NULL source width  to jpg_JPGToRGB",
                                    "Cannot pass NULL source height to jpg_JPGToRGB",
                                    "Cannot pass NULL dest   buffer to jpg_JPGToRGB"}));
}

}  // namespace
