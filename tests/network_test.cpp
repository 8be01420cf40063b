// Pages and pictures over the network: the whole library with a server before it.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "cases.h"
#include "engine_fixture.h"
#include "image.h"
#include "loopback_server.h"
#include "tessel.h"
#include "tessel_host.h"
#include "workers.h"

namespace {

namespace fs = std::filesystem;

const std::string kOk = "HTTP/1.0 200 OK\r\n\r\n";

class NetworkTest : public EngineTest {
  protected:
    std::string Url(const std::string &strPath) { return "http://" + server.strAddress + "/" + strPath; }
    // What the library makes of the URL of a picture.
    std::string GetPicture(const std::string &strURL) {
        ParsedPage page("", 10);
        KeptResource picture(g_lpMainFrame, strURL.c_str(), ACCEPT_TEXT | ACCEPT_IMAGE, METHOD_GET);
        picture._lpHolder = page.Get();
        g_lpMainFrame->Fetch(&picture);
        EXPECT_TRUE(WaitForWorkers());
        return picture.Data();
    }
    using EngineTest::Title;
    static std::string Title(const std::string &strURL) { return Load(strURL), Title(); }
    LoopbackServer server;
};

}  // namespace

TEST_F(NetworkTest, PageComesFromItsHostAndSoDoItsRelativeLinks) {
    const std::string aPages[][3] = {
        {Url("dir/a.htm?q=1"), "/dir/a.htm?q=1", "HTTP/1.0 404 Not Found\r\nContent-Type: text/html\r\n\r\n"},
        {"b.htm", "/b.htm", ""},
        {server.strAddress + "/c.htm", "/c.htm", kOk}};
    for (const auto &[strURL, strPath, strHead] : aPages) {
        server.Prescribe({strHead + "<TITLE>" + strPath + "</TITLE>"});
        EXPECT_EQ(Title(strURL), strPath);
        EXPECT_EQ(server.TakeRequest(),
                  "GET " + strPath + " HTTP/1.0\r\nHost: " + server.strAddress + "\r\n\r\n");
        EXPECT_EQ(g_lpMainFrame->_szBaseHost, server.strAddress);
    }
    g_lpMainFrame->OpenURL(Url("form?a=1&b=2").c_str(), 1, METHOD_POST);
    EXPECT_EQ(server.TakeRequest(), "POST /form HTTP/1.0\r\n\r\na=1&b=2");
    ASSERT_TRUE(WaitForWorkers());
    // Behind a local file there is no host to resolve against.
    EXPECT_EQ(Title(WriteFile("local.htm", "<TITLE>local</TITLE>")), "local");
    EXPECT_EQ(Title("b.htm"), "-") << "an empty page replaces the one on show";
    EXPECT_EQ(server.nAccepted, 4);
}

TEST_F(NetworkTest, FormsSendTheirBytesAsTheyAre) {
    server.Prescribe({"<TITLE>answer</TITLE>"});
    // Every byte that a value can hold, and more controls than a line of a request has room for.
    std::string strBytes, strMany, strPairs;
    for (int c = 255; c > 0; --c)
        strBytes += strchr("\">;", c) ? '-' : static_cast<char>(c);
    std::string strNoBreaks = strBytes;
    for (char &c : strNoBreaks)
        c = strchr("\r\n", c) ? '-' : c;
    for (int i = 20000; i > 0; --i) {
        strMany += "<INPUT TYPE=HIDDEN VALUE=v NAME=" + std::to_string(20001 - i) + ">";
        strPairs += (strPairs.empty() ? "" : "&") + std::to_string(i) + "=v";
    }
    const std::string aCases[][3] = {
        {"GET", "<INPUT NAME=n VALUE=\"" + strNoBreaks + "\">",
         "GET /f?n=" + strNoBreaks + " HTTP/1.0\r\nHost: " + server.strAddress + "\r\n\r\n"},
        {"POST", "<INPUT NAME=n VALUE=\"" + strBytes + "\">", "POST /f HTTP/1.0\r\n\r\nn=" + strBytes},
        {"POST", "<INPUT TYPE=HIDDEN>", "POST /f HTTP/1.0\r\n\r\n"},
        {"POST", strMany, "POST /f HTTP/1.0\r\n\r\n" + strPairs}};
    for (const auto &[strMethod, strControls, strRequest] : aCases) {
        Load(WriteFile("form.html", "<FORM ACTION=\"" + Url("f") + "\" METHOD=" + strMethod +
                                        "><INPUT TYPE=SUBMIT>" + strControls));
        for (auto *lpfnSend : {tessel_OnMouseMove, tessel_OnLMouseDown, tessel_OnLMouseUp})
            lpfnSend(1, 1);
        ASSERT_TRUE(WaitForWorkers());
        EXPECT_EQ(server.TakeRequest(), strRequest);
    }
}

TEST_F(NetworkTest, PicturesAreKeptInTheCache) {
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(100);
    Cases cases("http.txt");
    int nAsked = 0;
    for (const auto &row : cases.Under("picture")) {
        SCOPED_TRACE(row[1]);
        server.Prescribe({cases.Bytes(row[2])});
        if (row[2].empty())
            fs::last_write_time("cache/A.BMP", old);
        EXPECT_TRUE(GetPicture(Url(row[1])) == cases.Bytes(row[3]));
        EXPECT_EQ(server.nAccepted, nAsked += !row[2].empty());
        EXPECT_GT(fs::last_write_time("cache/A.BMP"), old + std::chrono::hours(99)) << "a hit makes it young";
    }
    EXPECT_EQ(fs::file_size("cache/A.BMP"), 388 + 500000 - kOk.size()) << "cut off and kept like any other";
    server.Prescribe({kOk + "<TITLE>page</TITLE>"});
    EXPECT_EQ(Title(Url("x/a.bmp")), "page") << "a page never comes from the cache";
    EXPECT_EQ(std::distance(fs::directory_iterator("cache"), fs::directory_iterator()), 1);
}

TEST_F(NetworkTest, SilentServerHoldsNobodyUp) {
    server.Prescribe({kOk + "<TITLE>page</TITLE>"});
    Load(Url("a.htm"));
    server.Prescribe({"", kHold});
    for (int nAccepted = 2; nAccepted <= 3; ++nAccepted) {
        tessel_OpenURL(Url("b.htm").c_str());
        EXPECT_TRUE(WaitUntil([&] { return server.nAccepted == nAccepted; }));
        EXPECT_EQ(Workers().CountWorkers(), 1);
        EXPECT_TRUE(IsSwift([&] {
            nAccepted == 2 ? tessel_OnCancel() : tessel_ShutDown();
            EXPECT_TRUE(WaitForWorkers());
        }));
        EXPECT_TRUE(nAccepted == 3 || Title() == "page") << "the old page stays";
    }
}

TEST_F(NetworkTest, PicturesOfASlowServerTakeFewThreads) {
    server.Prescribe({"", kHold});
    std::string strHTML;
    for (int i = 0; i < 30; ++i)
        strHTML += "<IMG SRC=" + Url(std::to_string(i) + ".bmp") + ">";
    tessel_OpenURL(WriteFile("page.htm", strHTML).c_str());
    EXPECT_TRUE(
        WaitUntil([&] { return server.nAccepted == 1 && g_lpMainFrame->_hFetchMutex.CountWaiting() > 0; }));
    EXPECT_LT(Workers().CountWorkers(), 8);
}

// Whoever is about to wait for a server has the next one take its place: during an export the timer cannot do it.
TEST_F(NetworkTest, NextPictureStandsReadyBehindASlowServer) {
    Load(WriteFile("link.htm", "<A HREF=x>link</A>"));
    server.Prescribe({"", kHold});
    static const auto IsNextReady = [] { return g_lpMainFrame->_hFetchMutex.CountWaiting() == 1; };
    FetchTurn::Waiter waiter;
    ASSERT_TRUE(g_lpMainFrame->_hFetchMutex.WaitFor(&waiter, 20000));
    ParsedPage page("", 10);
    Image slow(page.Get(), Url("a.bmp").c_str(), 1, 1), next(page.Get(), "file://link.htm", 1, 1);
    g_lpMainFrame->Fetch(&slow);
    EXPECT_TRUE(WaitUntil(IsNextReady));
    g_lpMainFrame->Fetch(&next);
    tessel_SetCallback(4, [](int) {
        g_lpMainFrame->_hFetchMutex.Release();
        EXPECT_TRUE(WaitUntil(IsNextReady));
    });
    tessel_OnKeyDown(9);
    tessel_SetCallback(4, nullptr);
    StopEngine();
}

// The library before an ordinary server, which keeps connections open and sends in chunks whenever it is let.
TEST_F(NetworkTest, PagesAndPicturesOfNginxComeAsTheyDoFromFiles) {
    if (!fs::exists(TESSEL_NGINX))
        GTEST_SKIP() << "there is no nginx: apt-get install nginx-light";
    std::string strAddress;
    const int hHeld = ListenOnLoopback(&strAddress);
    fs::copy(TESSEL_SOURCE_DIR "/examples/pages", "site");
    WriteFile("nginx.conf", Contents(TESSEL_CASES "/nginx.conf") + strAddress + ":80; } }");
    close(hHeld);
    const std::string strFolder = fs::current_path().string() + "/";
    const char *aArguments[] = {"nginx",      "-p", strFolder.c_str(), "-c",
                                "nginx.conf", "-e", "stderr",          nullptr};
    pid_t child;
    ASSERT_EQ(posix_spawn(&child, TESSEL_NGINX, nullptr, nullptr, const_cast<char **>(aArguments), environ),
              0);
    const std::string strSite = "http://" + strAddress + "/";
    EXPECT_TRUE(WaitUntil([&] { return Title(strSite) != "-"; })) << "nginx does not start";
    fs::remove_all("cache");
    const auto Show = [this](const std::string &strURL) {
        Load(strURL);
        tessel_Render(Buffer());
        return std::vector<uint32_t>(Buffer(), Buffer() + 400 * 300);
    };
    fs::current_path("site");
    const auto local = Show("pictures.html");
    fs::current_path("..");
    platform_FetchCounts before, counts;
    platform_GetFetchCounts(&before);
    for (const char *lpszPath : {"pictures.html", "pieces/pictures.html"})
        EXPECT_TRUE(Show(strSite + lpszPath) == local) << lpszPath;
    platform_GetFetchCounts(&counts);
    EXPECT_EQ(counts.images_loaded - before.images_loaded, 2u * 6);
    EXPECT_EQ(counts.images_failed - before.images_failed, 2u) << "one picture is missing on purpose";
    EXPECT_EQ(Contents("cache/MORNING.JPG").erase(0, 388), Contents("site/morning.jpg"));
    EXPECT_FALSE(fs::exists("cache/GONE.PCX"));
    // Whatever comes for a page is the page; octets are none.
    EXPECT_EQ(Title(strSite + "missing.html") + Title(strSite + "moved"), "404 Not Found302 Found");
    EXPECT_EQ(Title(strSite + "unknown/pictures.html"), "-");
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
}
