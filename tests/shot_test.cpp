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
#include <tuple>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path &name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Result {
    int code;
    std::string out, err;

    bool Says(const char *part) const { return (out + err).find(part) != std::string::npos; }
};

// What a PNG shows, as 0x00RRGGBB; empty if it cannot be read.
struct Picture {
    explicit Picture(const std::string &bytes) {
        image.version = PNG_IMAGE_VERSION;
        png_image_begin_read_from_memory(&image, bytes.data(), bytes.size());
        image.format = PNG_FORMAT_RGB;
        std::vector<uint8_t> packed(PNG_IMAGE_SIZE(image));
        if (!png_image_finish_read(&image, nullptr, packed.data(), 0, nullptr))
            return;
        for (size_t i = 0; i < packed.size(); i += 3)
            pixels.push_back(uint32_t{packed[i]} << 16 | uint32_t{packed[i + 1]} << 8 | packed[i + 2]);
    }
    auto Count(uint32_t colour) const { return std::count(pixels.begin(), pixels.end(), colour); }

    png_image image = {};
    std::vector<uint32_t> pixels;
};

// Each test has a folder of its own, where commands run, with pages in it and an empty folder "out".
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
    const auto expectRefused = [&](const std::string &arguments, const std::string &says) {
        const Result result = Run("shot " + arguments);
        EXPECT_TRUE(result.code == 1 && result.out.empty()) << arguments << result.code << result.out;
        EXPECT_TRUE(result.Says(says.c_str()) && result.Says("try --help")) << arguments << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_FALSE(fs::exists(_folder / "page.png"));
    };
    expectRefused("", "no URL");
    expectRefused("''", "no URL");
    expectRefused("--out - blue.html red.html", "more than one picture");
    expectRefused("--every 5 --out - blue.html", "more than one picture");
    expectRefused("--every 0 blue.html", "not 0;");
    expectRefused("--cache nowhere blue.html", "no folder nowhere");
    for (const std::string click : {"5", "5,", "-1,5", "5,65536", "5,5,5"})
        expectRefused("--click " + click + " blue.html", "not " + click + ";");
    for (const std::string key : {"Tabb", "Shift+", "Meta+A", "!"})
        expectRefused("--key '" + key + "' blue.html", "not " + key + ";");
    expectRefused("--colour blue.html", "unknown option --colour");
    expectRefused("-q blue.html", "unknown option -q");
    expectRefused("blue.html --size", "--size needs a value");
    expectRefused("--out --quiet blue.html", "--out needs a value");
    expectRefused("--out '' blue.html", "--out needs a value");
    for (const std::string size : {"0x10", "10x16385", "99999999999x1", "10", "10x10x", "+10x10"})
        expectRefused("--size " + size + " blue.html", "not " + size + ";");
    for (const std::string wait : {"-1", "1.2.3", "1e3", "."})
        expectRefused("--wait " + wait + " blue.html", "not " + wait + ";");
}

TEST_F(ShotTest, HelpFitsAScreenAndNamesEveryOptionAndExitCode) {
    const Result result = Run("shot --help");
    EXPECT_TRUE(result.code == 0 && result.err.empty());
    EXPECT_LE(std::count(result.out.begin(), result.out.end(), '\n'), 24);
    for (const char *part :
         {"--size", "--wait", "--out", "--every", "--click", "--type", "--key", "--cache", "--quiet",
          "--help", "--version", "\n  0  ", "\n  1  ", "\n  2  ", "\n  3  ", "\n  4  ", "\n  5  "})
        EXPECT_TRUE(result.Says(part)) << part;
    EXPECT_EQ(Run("shot --version").out, "tessel-shot 1.0.0\n");
}

TEST_F(ShotTest, WhatHappenedShowsInTheExitCodeAndTheMessages) {
    WriteLongPage();
    Write("pictures.html", "<IMG SRC=dot.tga><IMG SRC=none.tga>");
    Write("dot.tga", {"\0\0\2\0\0\0\0\0\0\0\0\0\1\0\1\0\20\0\xFF\x7F", 20});
    int ends[2];  // of a pipe whose reader has gone, under a number that the shell can name
    ASSERT_TRUE(pipe2(ends, O_CLOEXEC) == 0 && close(ends[0]) == 0 && dup2(ends[1], 9) == 9);
    const std::tuple<const char *, int, const char *> kCases[] = {
        {"shot blue.html", 0, "wrote to page.png"},
        {"shot file://blue.html", 0, "pages 1 of 1"},
        {"shot pictures.html", 3, "pictures 1 of 2"},
        {"shot none.html pictures.html blue.html", 2, "pictures 1 of 2"},
        {"shot none.html", 2, "did not come: none.html"},
        {"shot fifo", 2, "did not come: fifo"},
        {"shot out", 2, "did not come: out"},
        {"shot --quiet none.html", 2, "did not come: none.html"},
        {"shot --wait 0 long.html", 4, "still to come: pages 1"},
        {"shot --out none/page.png blue.html", 5, "cannot write to none/page.png: No such file"},
        {"shot --out out blue.html", 5, "cannot write to out: Is a directory"},
        {"shot --out - blue.html >/dev/full", 5, "No space left"},
        {"shot --out - blue.html >&9", 5, "cannot write to standard output"},
        {"shot --out - blue.html >&-", 5, "cannot write to standard output"},
    };
    for (const auto &[line, code, says] : kCases) {
        SCOPED_TRACE(line);
        const auto start = std::chrono::steady_clock::now();
        const Result result = Run(line);
        EXPECT_TRUE(result.code == code && result.Says(says)) << result.code << result.err;
        EXPECT_TRUE(LeftNothing());
        // None of this may be found out by waiting until the time is up.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    }
    close(9);
    close(ends[1]);
}

TEST_F(ShotTest, ThePngShowsThePageInItsSize) {
    WriteLongPage();
    for (const char *line : {"shot --quiet --size 123x45 --out - blue.html",
                             "shot --quiet --size 123x45 --out out/b.png blue.html && cat out/b.png"}) {
        SCOPED_TRACE(line);
        const Result result = Run(line);
        EXPECT_TRUE(result.code == 0 && result.err.empty()) << result.err;
        ASSERT_GT(result.out.size(), 26u);
        EXPECT_EQ(result.out.substr(24, 2), "\10\2") << "bits for each of red, green and blue";
        const Picture picture(result.out);
        EXPECT_TRUE(picture.image.width == 123 && picture.image.height == 45);
        EXPECT_EQ(picture.Count(0x336699), 123 * 45);
    }
    EXPECT_EQ(Picture(Run("shot --out - blue.html").out).pixels.size(), 800u * 600u);
    // The page may be there before the picture is made, or not: then it is empty.
    const Picture early(Run("shot --wait 0 --size 7x9 --out - long.html").out);
    EXPECT_EQ(early.Count(0x336699) + early.Count(0xFFFFFF), 7 * 9);
}

// What is done to a page shows in its picture; each page, and each moment of a series, has a picture of its own.
TEST_F(ShotTest, PagesAreActedOnAndNumbered) {
    Write("link.html", "<A HREF=blue.html>" + std::string(60, 'x') + "</A>");
    for (const char *actions :
         {"--click 5,5", "--key Tab --key enter", "--key Tab --key Shift+Tab --key Tab --key Enter",
          "--click 5,5 --key Alt+Left --key Alt+Right"}) {
        const Picture picture(Run(std::string("shot --quiet --out - ") + actions + " link.html").out);
        EXPECT_EQ(picture.Count(0x336699), 800 * 600) << actions;
    }
    EXPECT_EQ(Picture(Run("shot --quiet --out - --click 700,500 link.html").out).Count(0x336699), 0);

    fs::create_directory(_folder / "deep");
    EXPECT_EQ(Run("shot --quiet --cache deep --out out/x.png ../blue.html ../link.html").code, 0);
    EXPECT_EQ(Picture(ReadFile(_folder / "out/x.png")).Count(0x336699), 800 * 600);
    EXPECT_GT(Picture(ReadFile(_folder / "out/x-2.png")).Count(0xFFFFFF), 700 * 500);
    WriteLongPage();
    EXPECT_EQ(Run("shot --quiet --every 1 --out out/y long.html").code, 0);
    EXPECT_EQ(Picture(ReadFile(_folder / "out/y-001")).pixels.size(), 800u * 600u);
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
    EXPECT_EQ(Picture(ReadFile(_folder / "old.png")).Count(0x336699), 800 * 600);
    EXPECT_EQ(fs::status(_folder / "old.png").permissions(), fs::perms{0640});

    // What is no file is written to where it is.
    EXPECT_EQ(Run("timeout 20 cat fifo >piped & shot --out fifo blue.html; c=$?; wait; exit $c").code, 0);
    EXPECT_TRUE(fs::is_fifo(_folder / "fifo"));
    EXPECT_EQ(Picture(ReadFile(_folder / "piped")).Count(0x336699), 800 * 600);

    EXPECT_EQ(Run("umask 027; shot --out out/new.png blue.html").code, 0);
    EXPECT_EQ(fs::status(_folder / "out/new.png").permissions(), fs::perms{0640});
}

}  // namespace
