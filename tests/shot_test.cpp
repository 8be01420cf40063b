// Runs tessel-shot as a user would: a command line goes in; an exit code, words and a PNG come out.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path &name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool Contains(const std::string &text, const char *part) {
    return text.find(part) != std::string::npos;
}

struct Result {
    int code;
    std::string out, err;
};

// What a PNG shows, as 0x00RRGGBB; empty if it cannot be read.
struct Picture {
    uint32_t width = 0, height = 0;
    std::vector<uint32_t> pixels;

    auto Count(uint32_t colour) const { return std::count(pixels.begin(), pixels.end(), colour); }
};

Picture Decode(const std::string &bytes) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()))
        return {};
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> packed(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, packed.data(), 0, nullptr))
        return {};
    Picture picture{image.width, image.height, {}};
    for (size_t i = 0; i < packed.size(); i += 3)
        picture.pixels.push_back(uint32_t{packed[i]} << 16 | uint32_t{packed[i + 1]} << 8 | packed[i + 2]);
    return picture;
}

// Each test has a folder of its own, with pages in it and a folder "out" that is empty; commands run in
// there.
class ShotTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "shot_test_XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        _folder = pattern;
        fs::create_directory(_folder / "out");
        Write("blue.html", "<BODY BGCOLOR=#336699></BODY>");
        ASSERT_EQ(mkfifo((_folder / "fifo").c_str(), 0600), 0);
    }

    void TearDown() override { fs::remove_all(_folder); }

    void Write(const char *name, const std::string &content) const {
        std::ofstream(_folder / name, std::ios::binary) << content;
    }

    // Runs a line of the shell in which shot is the program.
    Result Run(const std::string &line) const {
        const std::string command = "cd '" + _folder.string() +
                                    "' && shot() { '" TESSEL_SHOT_PATH "' \"$@\"; } && { " + line +
                                    "; } >stdout 2>stderr";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(_folder / "stdout"),
                ReadFile(_folder / "stderr")};
    }

    // A page that takes the library far longer than it takes the program to look whether it is there.
    void WriteLongPage() const {
        Write("long.html", "<BODY BGCOLOR=#336699><!" + std::string(32 << 20, 'x') + "></BODY>");
    }

    bool LeftNothing() const { return fs::is_empty(_folder / "out"); }

    fs::path _folder;
};

TEST_F(ShotTest, WrongCommandLinesAreRefusedWithALineAboutWhatIsWrong) {
    const struct {
        const char *arguments, *says;
    } kCases[] = {
        {"", "no URL"},
        {"''", "no URL"},
        {"blue.html red.html", "more than one URL"},
        {"--colour blue.html", "unknown option --colour"},
        {"-q blue.html", "unknown option -q"},
        {"blue.html --size", "--size needs a value"},
        {"--out --quiet blue.html", "--out needs a value"},
        {"--out '' blue.html", "--out needs a value"},
        {"--size 0x10 blue.html", "not 0x10"},
        {"--size 10x16385 blue.html", "not 10x16385"},
        {"--size 99999999999x1 blue.html", "not 99999999999x1"},
        {"--size 10 blue.html", "not 10;"},
        {"--size 10x10x blue.html", "not 10x10x"},
        {"--size +10x10 blue.html", "not +10x10"},
        {"--wait -1 blue.html", "not -1"},
        {"--wait 1.2.3 blue.html", "not 1.2.3"},
        {"--wait 1e3 blue.html", "not 1e3"},
        {"--wait . blue.html", "not .;"},
    };
    for (const auto &test : kCases) {
        SCOPED_TRACE(test.arguments);
        const Result result = Run(std::string("shot ") + test.arguments);
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(Contains(result.err, test.says)) << result.err;
        EXPECT_TRUE(Contains(result.err, "try --help")) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_FALSE(fs::exists(_folder / "page.png"));
    }
}

TEST_F(ShotTest, HelpFitsAScreenAndNamesEveryOptionAndExitCode) {
    const Result result = Run("shot --help");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_LE(std::count(result.out.begin(), result.out.end(), '\n'), 24);
    for (const char *part : {"--size", "--wait", "--out", "--quiet", "--help", "--version", "\n  0  ",
                             "\n  1  ", "\n  2  ", "\n  4  ", "\n  5  "})
        EXPECT_TRUE(Contains(result.out, part)) << part;
    EXPECT_EQ(Run("shot --version").out, "tessel-shot 1.0.0\n");
}

TEST_F(ShotTest, WhatHappenedShowsInTheExitCodeAndTheMessages) {
    WriteLongPage();
    Write("pictures.html", "<IMG SRC=dot.tga><IMG SRC=none.tga>");
    Write("dot.tga", {"\0\0\2\0\0\0\0\0\0\0\0\0\1\0\1\0\20\0\xFF\x7F", 20});
    const struct {
        const char *line;
        int code;
        const char *says;
    } kCases[] = {
        {"shot blue.html", 0, "wrote to page.png"},
        {"shot file://blue.html", 0, "pages 1 of 1"},
        {"shot pictures.html", 0, "pictures 1 of 2"},
        {"shot none.html", 2, "did not come: none.html"},
        {"shot fifo", 2, "did not come: fifo"},
        {"shot out", 2, "did not come: out"},
        {"shot --quiet none.html", 2, "did not come: none.html"},
        {"shot --wait 0 long.html", 4, "still to come: pages 1"},
        {"shot --out none/page.png blue.html", 5, "cannot write to none/page.png: No such file"},
        {"shot --out out blue.html", 5, "cannot write to out: Is a directory"},
        {"shot --out - blue.html >/dev/full", 5, "No space left"},
        {"shot --out - blue.html >&-", 5, "cannot write to standard output"},
    };
    for (const auto &test : kCases) {
        SCOPED_TRACE(test.line);
        const auto start = std::chrono::steady_clock::now();
        const Result result = Run(test.line);
        EXPECT_EQ(result.code, test.code) << result.err;
        EXPECT_TRUE(Contains(result.err, test.says)) << result.err;
        EXPECT_TRUE(LeftNothing());
        // None of this may be found out by waiting until the time is up.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    }
}

TEST_F(ShotTest, ThePngShowsThePageInItsSize) {
    WriteLongPage();
    for (const char *line : {"shot --quiet --size 123x45 --out - blue.html",
                             "shot --quiet --size 123x45 --out out/b.png blue.html && cat out/b.png"}) {
        SCOPED_TRACE(line);
        const Result result = Run(line);
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.err, "");
        ASSERT_GT(result.out.size(), 26u);
        EXPECT_EQ(result.out[24], 8) << "bits for each part of a pixel";
        EXPECT_EQ(result.out[25], 2) << "red, green and blue";
        const Picture picture = Decode(result.out);
        EXPECT_EQ(picture.width, 123u);
        EXPECT_EQ(picture.height, 45u);
        EXPECT_EQ(picture.Count(0x336699), 123 * 45);
    }
    EXPECT_EQ(Decode(Run("shot --out - blue.html").out).pixels.size(), 800u * 600u);
    // The page may be there before the picture is made, or not: then it is empty.
    const Picture early = Decode(Run("shot --wait 0 --size 7x9 --out - long.html").out);
    EXPECT_EQ(early.Count(0x336699) + early.Count(0xFFFFFF), 7 * 9);
}

TEST_F(ShotTest, AFileIsReplacedAsAWholeOrLeftAlone) {
    Write("old.png", "old");
    fs::create_symlink("old.png", _folder / "link.png");
    chmod((_folder / "old.png").c_str(), 0640);

    // One block of 512 bytes is less than the picture takes.
    EXPECT_EQ(Run("(ulimit -f 1; shot --quiet --out old.png blue.html)").code, 5);
    EXPECT_EQ(ReadFile(_folder / "old.png"), "old");
    EXPECT_EQ(Run("(ulimit -f 1; shot --quiet --out out/new.png blue.html)").code, 5);
    EXPECT_TRUE(LeftNothing());

    EXPECT_EQ(Run("shot --out link.png blue.html").code, 0);
    EXPECT_TRUE(fs::is_symlink(_folder / "link.png"));
    EXPECT_EQ(Decode(ReadFile(_folder / "old.png")).Count(0x336699), 800 * 600);
    EXPECT_EQ(fs::status(_folder / "old.png").permissions(), fs::perms{0640});

    // What is no file is written to where it is.
    EXPECT_EQ(Run("timeout 20 cat fifo >piped & shot --out fifo blue.html; code=$?; wait; exit $code").code,
              0);
    EXPECT_TRUE(fs::is_fifo(_folder / "fifo"));
    EXPECT_EQ(Decode(ReadFile(_folder / "piped")).Count(0x336699), 800 * 600);

    EXPECT_EQ(Run("umask 027; shot --out out/new.png blue.html").code, 0);
    EXPECT_EQ(fs::status(_folder / "out/new.png").permissions(), fs::perms{0640});
}

TEST_F(ShotTest, AReaderThatHasGoneIsAFailedWrite) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    ASSERT_EQ(dup2(ends[1], 9), 9);  // a number that the shell can name
    EXPECT_EQ(Run("shot --quiet --out - blue.html >&9").code, 5);
    close(9);
    close(ends[1]);
}

}  // namespace
