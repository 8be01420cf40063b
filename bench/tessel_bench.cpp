// One page or picture at a time, measured the way that harnesses for other engines do, so that the figures can stand in
// columns side by side. A line is five fields with tabs between: table, subject, case, metric, value.
//
//     tessel_bench [--cold-images] PAGE     parse, layout, paint; decoded pictures are kept, or made anew each time
//     tessel_bench --ppm FILE PAGE          one page, painted once, as a whole process
//     tessel_bench --decode FILE...         pictures in memory to pixels
//     tessel_bench --pixel                  fills, copies, glyphs
//
// A value is the median of at least five runs. Pages are parsed from memory, 800x600, and painting begins by clearing
// all of it; the glyphs stay from run to run.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench.h"
#include "fontmanager.h"
#include "frame.h"
#include "gfx.h"
#include "image.h"
#include "imagedecoder.h"
#include "mainframe.h"
#include "platform/file.h"

namespace {

namespace fs = std::filesystem;

double Now() {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double Median(std::vector<double> values) {
    const size_t nMiddle = values.size() / 2;
    std::sort(values.begin(), values.end());
    return values.size() % 2 ? values[nMiddle] : (values[nMiddle - 1] + values[nMiddle]) / 2;
}

// The median time of something: a warm-up, then runs for 0.7 s, between 5 and 301 of them.
template <class Work>
double MedianTime(Work work) {
    std::vector<double> times;
    work();
    const double end = Now() + 700;
    while (times.size() < 301 && (times.size() < 5 || Now() < end)) {
        const double start = Now();
        work();
        times.push_back(Now() - start);
    }
    return Median(times);
}

void Print(const char *table, const char *subject, const std::string &name, const char *metric,
           double value) {
    printf("%s\t%s\t%s\t%s\t%.6g\n", table, subject, name.c_str(), metric, value);
}

// As the library does it.
void ReadFile(const char *name, uint8_t **lplpData, uint32_t *lpdwLength) {
    if (!platform::ReadWholeFile(name, lplpData, lpdwLength)) {
        fprintf(stderr, "tessel_bench: there is no %s\n", name);
        exit(1);
    }
}

std::string ReadText(const fs::path &path) {
    uint8_t *lpData;
    uint32_t dwLength;
    ReadFile(path.c_str(), &lpData, &dwLength);
    const std::unique_ptr<uint8_t[]> owner(lpData);
    return {lpData, lpData + dwLength};
}

// --- Pages

// The pictures of a page, decoded in place as the page's workers would do it. Kept ones are lent to each page anew.
class Pictures {
  public:
    explicit Pictures(bool bCold) : _bCold(bCold) {}

    void LendTo(Page *lpPage) {
        for (List<Resource> *lpNode = lpPage->_lpFetches; lpNode; lpNode = lpNode->lpNext)
            Lend(static_cast<Image *>(lpNode->lpData));
    }

    void TakeBack() {
        for (Image *lpImage : _lent)
            lpImage->_lpPixels = nullptr;
        _lent.clear();
        if (_bCold)
            _kept.clear();
    }

  private:
    struct Pixels {
        std::unique_ptr<uint32_t[]> lpPixels;
        int w, h;
    };

    void Lend(Image *lpImage) {
        const auto [it, bNew] = _kept.try_emplace(Key(*lpImage));
        Pixels &pixels = it->second;
        if (bNew) {
            ReadFile(lpImage->_lpszURL, &lpImage->_lpData, &lpImage->_dwLength);
            lpImage->OnData();
            pixels = {std::unique_ptr<uint32_t[]>(lpImage->_lpPixels), lpImage->_rc.w, lpImage->_rc.h};
        }
        lpImage->_lpPixels = pixels.lpPixels.get();
        lpImage->_rc.w = pixels.w;
        lpImage->_rc.h = pixels.h;
        lpImage->_bDone = 1;
        _lent.push_back(lpImage);
    }

    static std::string Key(const Image &image) {
        return std::string(image._lpszURL) + '/' + std::to_string(image._nWantWidth) + 'x' +
               std::to_string(image._nWantHeight);
    }

    bool _bCold;
    std::map<std::string, Pixels> _kept;
    std::vector<Image *> _lent;
};

struct PageTimes {
    std::vector<double> parse, layout, both, paint, total, free;
};

// One life of a page, from bytes to pixels and away.
void TimePage(const std::string &strHTML, BenchEngine *lpEngine, Pictures *lpPictures, PageTimes *lpTimes) {
    const double start = Now();
    std::unique_ptr<Page> lpPage = NewPage();
    lpPage->ParseHTML(strHTML.data(), static_cast<int>(strHTML.size()));
    lpPictures->LendTo(lpPage.get());
    const double parsed = Now();
    lpPage->Relayout();
    const double laidOut = Now();
    lpPage->Render(lpEngine->Buffer());
    const double painted = Now();
    lpPictures->TakeBack();
    lpPage.reset();
    lpTimes->parse.push_back(parsed - start);
    lpTimes->layout.push_back(laidOut - parsed);
    lpTimes->both.push_back(laidOut - start);
    lpTimes->paint.push_back(painted - laidOut);
    lpTimes->total.push_back(painted - start);
    lpTimes->free.push_back(Now() - painted);
}

void BenchPage(const fs::path &path, bool bCold) {
    const std::string strHTML = ReadText(path), strName = path.stem().string();
    const char *subject = bCold ? "tessel+imagedecode" : "tessel";
    if (path.has_parent_path())
        fs::current_path(path.parent_path());
    // The first page of a process pays for the fonts, with what the library's start takes.
    const double start = Now();
    BenchEngine engine;
    Pictures pictures(bCold);
    PageTimes first, times;
    TimePage(strHTML, &engine, &pictures, &first);
    const double firstEnd = Now() - first.free[0];
    while (times.total.size() < 3 || (times.total.size() < 200 && Now() - start < 2000))
        TimePage(strHTML, &engine, &pictures, &times);

    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    Print("page", subject, strName, "parse_ms", Median(times.parse));
    Print("page", subject, strName, "layout_ms", Median(times.layout));
    Print("page", subject, strName, "parse_layout_ms", Median(times.both));
    Print("page", subject, strName, "paint_ms", Median(times.paint));
    Print("page", subject, strName, "total_ms", Median(times.total));
    Print("page", subject, strName, "free_ms", Median(times.free));
    Print("page", subject, strName, "first_ms", firstEnd - start);
    Print("page", subject, strName, "rss_kb", static_cast<double>(usage.ru_maxrss));
}

void WritePicture(const char *name, const fs::path &path) {
    const std::string strHTML = ReadText(path);
    const std::unique_ptr<FILE, int (*)(FILE *)> lpFile(fopen(name, "wb"), fclose);
    if (!lpFile) {
        perror(name);
        exit(1);
    }
    if (path.has_parent_path())
        fs::current_path(path.parent_path());
    BenchEngine engine;
    Pictures pictures(false);
    PageTimes times;
    TimePage(strHTML, &engine, &pictures, &times);
    fputs("P6 800 600 255\n", lpFile.get());
    const uint32_t *lpPixel = engine.Buffer();
    for (int y = 0; y < 600; ++y) {
        uint8_t aRow[800 * 3];
        for (size_t i = 0; i < sizeof aRow; i += 3, ++lpPixel) {
            aRow[i] = static_cast<uint8_t>(*lpPixel >> 16);
            aRow[i + 1] = static_cast<uint8_t>(*lpPixel >> 8);
            aRow[i + 2] = static_cast<uint8_t>(*lpPixel);
        }
        fwrite(aRow, 1, sizeof aRow, lpFile.get());
    }
}

// --- Pictures

void BenchDecode(const fs::path &path) {
    std::string strData = ReadText(path), strURL = path.string();
    const ImageDecoder lpfnDecode = FindDecoder(strURL.data());
    const bool bJPEG = lpfnDecode == DecodeJPEG;
    const std::string strCase = bJPEG ? path.stem().string() : path.filename().string();
    Image image(nullptr, nullptr, 0, 0);
    const double ms = MedianTime([&] {
        image.SetPixels(nullptr, true);
        if (!lpfnDecode || !lpfnDecode(&image, reinterpret_cast<const uint8_t *>(strData.data()),
                                       static_cast<uint32_t>(strData.size())))
            image._rc.w = 0;
    });
    if (!image._rc.w)
        return;  // a form that is not read; the column stays empty
    const char *table = bJPEG ? "jpeg" : "raster";
    Print(table, "tessel", strCase, "ms", ms);
    Print(table, "tessel", strCase, "MBps", 4e-3 * image._rc.w * image._rc.h / ms);
}

// --- Pixels

constexpr int kWidth = 1920, kHeight = 1080;

// Calls work(x, y) for so many places of boxes all over the frame, the same for every engine.
template <class Work>
void ForEachBox(int nTimes, int w, int h, Work work) {
    uint32_t nSeed = 1;
    for (int i = 0; i < nTimes; ++i) {
        nSeed = nSeed * 1664525u + 1013904223u;
        work(static_cast<int>((nSeed >> 8) % static_cast<uint32_t>(kWidth - w)),
             static_cast<int>((nSeed >> 16) % static_cast<uint32_t>(kHeight - h)));
    }
}

void PrintFrame(const char *name, double ms, double bytes) {
    Print("pixel", "tessel", name, "GBps", bytes / ms / 1e6);
    Print("pixel", "tessel", name, "Mpxps", bytes / 4 / ms / 1e3);
}

void PrintBoxes(const char *name, double ms, int nTimes, int nPixels) {
    Print("pixel", "tessel", name, "Mops", nTimes / ms / 1e3);
    Print("pixel", "tessel", name, "Mpxps", static_cast<double>(nTimes) * nPixels / ms / 1e3);
}

void BenchFrames(uint32_t *lpTo, uint32_t *lpFrom) {
    constexpr double kBytes = 4.0 * kWidth * kHeight;
    PrintFrame("fill-frame", MedianTime([&] { gfx_FillRect(0x336699, 0, 0, kWidth, kHeight, lpTo); }),
               kBytes);
    PrintFrame("copy-frame", MedianTime([&] { gfx_Blit(lpFrom, 0, 0, kWidth, kHeight, kWidth, lpTo, 0); }),
               kBytes);
    PrintFrame("keyed-copy-frame",
               MedianTime([&] { gfx_Blit(lpFrom, 0, 0, kWidth, kHeight, kWidth, lpTo, 1); }), kBytes);
    // Beyond every cache: 256 MB in rows of the frame's width.
    constexpr int kRows = (256 << 20) / (4 * kWidth);
    std::vector<uint32_t> big(static_cast<size_t>(kRows) * kWidth), other(big.size(), 1);
    const double bytes = 4.0 * kRows * kWidth;
    PrintFrame("fill-256MB", MedianTime([&] { gfx_FillRect(0x555555, 0, 0, kWidth, kRows, big.data()); }),
               bytes);
    PrintFrame("copy-256MB",
               MedianTime([&] { gfx_Blit(other.data(), 0, 0, kWidth, kRows, kWidth, big.data(), 0); }),
               bytes);
}

void BenchBoxes(uint32_t *lpTo, uint32_t *lpFrom) {
    constexpr int kTimes = 20000;
    const auto time = [](int w, int h, auto work) {
        return MedianTime([&] { ForEachBox(kTimes, w, h, work); });
    };
    PrintBoxes("fill-100x20",
               time(100, 20, [&](int x, int y) { gfx_FillRect(0x336699, x, y, 100, 20, lpTo); }), kTimes,
               2000);
    PrintBoxes("copy-64x64", time(64, 64, [&](int x, int y) { gfx_Blit(lpFrom, x, y, 64, 64, 64, lpTo, 0); }),
               kTimes, 4096);
    PrintBoxes("keyed-copy-64x64",
               time(64, 64, [&](int x, int y) { gfx_Blit(lpFrom, x, y, 64, 64, 64, lpTo, 1); }), kTimes,
               4096);
}

// A made-up font of cells of 8x16 with three tenths of their bits set, the same for every engine.
struct BenchFont : CharInfo {
    BenchFont() : CharInfo(std::make_shared<GlyphCells>()) {}
    uint8_t _aBits[256][17 + kGlyphSlack] = {};
};

std::unique_ptr<BenchFont> MakeFont() {
    auto lpCharInfo = std::make_unique<BenchFont>();
    uint32_t nSeed = 7;
    for (int c = 32; c < 96; ++c) {
        CharGlyph &glyph = lpCharInfo->_lpCells->aGlyphs[c];
        glyph._bWidth = 8;
        glyph._bHeight = 16;
        glyph._lpBits = lpCharInfo->_aBits[c];
        for (int nBit = 0; nBit < 128; ++nBit) {
            nSeed = nSeed * 1664525u + 1013904223u;
            if ((nSeed >> 24) % 10 < 3)
                lpCharInfo->_aBits[c][nBit / 8] |= static_cast<uint8_t>(0x80 >> nBit % 8);
        }
    }
    return lpCharInfo;
}

// In lines, as a page has them.
void BenchGlyphs(uint32_t *lpTo) {
    constexpr int kGlyphs = 12000, kInLine = kWidth / 8, kLines = kHeight / 16 - 1;
    const std::unique_ptr<BenchFont> lpCharInfo = MakeFont();
    std::vector<std::string> lines(kLines);
    for (int i = 0; i < kGlyphs; ++i)
        lines[static_cast<size_t>(i / kInLine)] += static_cast<char>(32 + i * 7 % 64);
    const double ms = MedianTime([&] {
        int y = 0;
        for (const std::string &strLine : lines)
            gfx_TextOut(strLine.c_str(), lpCharInfo.get(), 0x336699, 0, 16 * y++, kWidth, 16, lpTo);
    });
    PrintBoxes("glyph-8x16", ms, kGlyphs, 128);
}

void BenchPixels() {
    BenchEngine engine(kWidth, kHeight);
    std::vector<uint32_t> from(static_cast<size_t>(kWidth) * kHeight);
    // Half of the pixels are keyed out, in runs of 16.
    for (size_t i = 0; i < from.size(); ++i)
        from[i] = i >> 4 & 1 ? 0 : static_cast<uint32_t>(i * 2654435761u) >> 8 | 1;
    BenchFrames(engine.Buffer(), from.data());
    BenchBoxes(engine.Buffer(), from.data());
    BenchGlyphs(engine.Buffer());
}

}  // namespace

int main(int argc, char **argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const std::string strFirst = words.empty() ? "" : words[0];
    if (strFirst == "--pixel") {
        BenchPixels();
    } else if (strFirst == "--decode") {
        BenchEngine engine;
        for (size_t i = 1; i < words.size(); ++i)
            BenchDecode(words[i]);
    } else if (strFirst == "--ppm" && words.size() == 3) {
        WritePicture(words[1].c_str(), words[2]);
    } else if (words.size() == 1 || (words.size() == 2 && strFirst == "--cold-images")) {
        BenchPage(words.back(), words.size() == 2);
    } else {
        fputs("usage: tessel_bench [--cold-images | --ppm FILE] PAGE | --decode FILE... | --pixel\n", stderr);
        return 1;
    }
}
