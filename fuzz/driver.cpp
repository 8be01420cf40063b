// What runs a target: under libFuzzer only the option --seeds DIR; without it a program of its own, which runs the seeds,
// some damaged copies of each, and the files of the folders that it is given.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "harness.h"

void Fail(const char *lpszPromise, const char *lpszFile, int nLine) {
    fprintf(stderr, "%s:%d: broken: %s\n", lpszFile, nLine, lpszPromise);
    abort();
}

static int WriteSeeds(const std::filesystem::path &folder) {
    std::filesystem::create_directories(folder);
    int n = 0;
    for (const std::string &strSeed : Seeds())
        std::ofstream(folder / ("seed" + std::to_string(n++)), std::ios::binary) << strSeed;
    return n ? 0 : 1;
}

#ifdef TESSEL_FUZZ

extern "C" int LLVMFuzzerInitialize(int *lpnArguments, char ***lplplpszArguments) {
    if (*lpnArguments == 3 && strcmp((*lplplpszArguments)[1], "--seeds") == 0)
        exit(WriteSeeds((*lplplpszArguments)[2]));
    return 0;
}

#else

constexpr uint32_t kCopies = 5;

static void Run(const std::string &strName, const std::string &strInput) {
    printf("%s\n", strName.c_str());
    fflush(stdout);
    // A copy of exactly that length, so that the address sanitizer sees a read behind it.
    const std::vector<uint8_t> exact(strInput.begin(), strInput.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

// A few bytes changed, and sometimes the end gone.
static std::string Damage(std::string strInput, uint32_t nSeed) {
    std::mt19937 random(nSeed);
    if (random() % 4 == 0)
        strInput.resize(random() % (strInput.size() + 1));
    for (uint32_t nChanges = random() % 4; !strInput.empty() && nChanges > 0; --nChanges)
        strInput[random() % strInput.size()] = static_cast<char>(random());
    return strInput;
}

int main(int nArguments, char **lplpszArguments) {
    if (nArguments == 3 && strcmp(lplpszArguments[1], "--seeds") == 0)
        return WriteSeeds(lplpszArguments[2]);
    int nInputs = 0;
    for (const std::string &strSeed : Seeds()) {
        const std::string strName = "seed " + std::to_string(nInputs++);
        Run(strName, strSeed);
        for (uint32_t i = 1; i <= kCopies; ++i)
            Run(strName + ", copy " + std::to_string(i), Damage(strSeed, i));
    }
    for (int i = 1; i < nArguments; ++i) {
        if (!std::filesystem::is_directory(lplpszArguments[i]))
            continue;
        for (const auto &entry : std::filesystem::directory_iterator(lplpszArguments[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            Run(entry.path(), std::string(std::istreambuf_iterator<char>(file), {}));
            ++nInputs;
        }
    }
    return nInputs ? 0 : 1;
}

#endif
