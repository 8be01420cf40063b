// The library before an ordinary server, which keeps connections open and sends in chunks whenever it is let.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "engine_fixture.h"
#include "loopback_server.h"
#include "tessel.h"
#include "tessel_host.h"

namespace fs = std::filesystem;

class NginxTest : public EngineTest {
  protected:
    void SetUp() override {
        const int hHeld = ListenOnLoopback(&_strAddress);
        StartEngine(kWidth, kHeight);
        fs::copy(TESSEL_SOURCE_DIR "/examples/pages", "site");
        if (!fs::exists(TESSEL_NGINX))
            GTEST_SKIP() << "there is no nginx: apt-get install nginx-light";
        const std::string strHead = R"(
            daemon off; master_process off; error_log stderr crit; pid nginx.pid; events {}
            http { access_log off; root site; types { text/html html; image/jpeg jpg; image/bmp bmp; }
                   client_body_temp_path t; proxy_temp_path t; fastcgi_temp_path t; uwsgi_temp_path t; scgi_temp_path t;
                   server { location /pieces/ { alias site/; ssi on; }
                            location /moved { return 302 /index.html; }
                            location /unknown/ { alias site/; types {} default_type application/octet-stream; }
                            listen )";
        WriteFile("nginx.conf", strHead + _strAddress + ":80; } }");
        const std::string strFolder = fs::current_path().string() + "/";
        std::string aArguments[] = {"nginx", "-p", strFolder, "-c", "nginx.conf", "-e", "stderr"};
        std::vector<char *> arguments;
        for (std::string &strArgument : aArguments)
            arguments.push_back(strArgument.data());
        arguments.push_back(nullptr);
        close(hHeld);
        ASSERT_EQ(posix_spawn(&_child, TESSEL_NGINX, nullptr, nullptr, arguments.data(), environ), 0);
        ASSERT_TRUE(WaitUntil([this] { return Title("") != ""; })) << "nginx does not start";
        fs::remove_all("cache");
    }
    void TearDown() override {
        if (_child > 0) {
            kill(_child, SIGTERM);
            waitpid(_child, nullptr, 0);
        }
        EngineTest::TearDown();
    }
    std::vector<uint32_t> Show(const std::string &strURL) {
        Load(strURL);
        tessel_Render(Buffer());
        return {Buffer(), Buffer() + kWidth * kHeight};
    }
    std::string Url(const std::string &strPath) { return "http://" + _strAddress + "/" + strPath; }
    std::string Title(const std::string &strPath) {
        char szTitle[TESSEL_TITLE_SIZE] = "";
        Load(Url(strPath));
        tessel_GetTitle(szTitle);
        return szTitle;
    }
    static constexpr int kWidth = 800, kHeight = 900;
    std::string _strAddress;
    pid_t _child = 0;
};

TEST_F(NginxTest, PagesAndPicturesComeAsTheyDoFromFiles) {
    fs::current_path("site");
    const auto local = Show("pictures.html");
    fs::current_path("..");
    platform_FetchCounts before, counts;
    platform_GetFetchCounts(&before);
    for (const char *lpszPath : {"pictures.html", "pieces/pictures.html"}) {
        EXPECT_TRUE(Show(Url(lpszPath)) == local) << lpszPath;
        platform_GetFetchCounts(&counts);
    }
    EXPECT_EQ(counts.images_loaded - before.images_loaded, 2u * 6);
    EXPECT_EQ(counts.images_failed - before.images_failed, 2u) << "one picture is missing on purpose";
    EXPECT_EQ(Contents("cache/MORNING.JPG").erase(0, 388), Contents("site/morning.jpg"));
    EXPECT_FALSE(fs::exists("cache/GONE.PCX"));
    // Whatever comes for a page is the page.
    EXPECT_EQ(Title("missing.html") + Title("moved"), "404 Not Found302 Found");
    EXPECT_EQ(Title("unknown/pictures.html"), "") << "octets are no page";
}
