// What the benchmarks share: an engine without a host, and pages made of words.
//
// Build optimised, without sanitizers, and run on a machine that has nothing else to do. Where its clock wanders all the
// same, what is to be compared is best measured in turns:
//
//     cmake --preset release -DTESSEL_BENCH=ON && cmake --build --preset release --target tessel_benchmarks
//     build/release/bench/tessel_benchmarks --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true
//
// The number behind a name is the size of the input. Bytes per second that stay as they are from size to size mean time
// that grows with the input and no faster. Some loss is to be expected where a page outgrows the processor's caches: it
// takes six to seven times the size of its document.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "page.h"

// The library as a host has it after tessel_Init, with the fonts of the system and a buffer of that size.
// There is one at a time, and the rasteriser starts cold with each.
class BenchEngine {
  public:
    explicit BenchEngine(int nWidth = 800, int nHeight = 600);
    ~BenchEngine();
    BenchEngine(const BenchEngine &) = delete;
    BenchEngine &operator=(const BenchEngine &) = delete;

    uint32_t *Buffer() { return _buffer.data(); }

  private:
    std::vector<uint32_t> _buffer;
};

// A Page as big as the picture that no Frame shows: an empty one, or one that has read a document and is laid
// out.
std::unique_ptr<Page> NewPage();
std::unique_ptr<Page> NewPage(const std::string &strHTML);

// Words of one to ten letters, each with a space behind it, and a document of paragraphs, headings, line
// breaks, links and changes of font. Both have exactly nBytes bytes, the same in every run.
std::string MakeWords(size_t nBytes);
std::string MakeProse(size_t nBytes);
