// Pages and pictures over the network: the whole library with a server before
// it.
#include <chrono>
#include <filesystem>

#include "engine_fixture.h"
#include "loopback_server.h"
#include "tessel.h"
#include "workers.h"

namespace {

namespace fs = std::filesystem;

const std::string kNone = "(nothing)";
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
    std::string Title() {
        char szTitle[TESSEL_TITLE_SIZE] = "(no title)";
        tessel_GetTitle(szTitle);
        return szTitle;
    }
    // The method and the path of the next request.
    std::string TakePath() {
        const std::string strRequest = server.TakeRequest();
        return strRequest.substr(0, strRequest.find(" HTTP/1.0\r\n"));
    }
    LoopbackServer server;
};

}  // namespace

TEST_F(NetworkTest, PageComesFromItsHostAndSoDoItsRelativeLinks) {
    server.Prescribe(
        {"HTTP/1.0 404 Not Found\r\nContent-Type: "
         "text/html\r\n\r\n<TITLE>first</TITLE>"});
    Load(Url("dir/a.htm?q=1"));
    EXPECT_EQ(TakePath(), "GET /dir/a.htm?q=1");
    EXPECT_EQ(Title(), "first");
    EXPECT_EQ(g_lpMainFrame->_szBaseHost, server.strAddress);
    server.Prescribe({"<TITLE>second</TITLE>"});
    Load("b.htm");
    EXPECT_EQ(TakePath(), "GET /b.htm");
    EXPECT_EQ(Title(), "second");
    Load(server.strAddress + "/c.htm");
    EXPECT_EQ(TakePath(), "GET /c.htm");
    g_lpMainFrame->OpenURL(Url("form?a=1&b=2").c_str(), 1, METHOD_POST);
    EXPECT_EQ(server.TakeRequest(), "POST /form HTTP/1.0\r\n\r\na=1&b=2");
    ASSERT_TRUE(WaitForWorkers());
    // Behind a local file there is no host to resolve against.
    Load(WriteFile("local.htm", "<TITLE>local</TITLE>"));
    EXPECT_EQ(Title(), "local");
    Load("b.htm");
    EXPECT_EQ(server.nAccepted, 4);
    EXPECT_EQ(Title(), "(no title)") << "an empty page replaces the one on show";
}

TEST_F(NetworkTest, PicturesAreKeptInTheCache) {
    server.Prescribe({kOk + "served"});
    EXPECT_EQ(GetPicture(Url("img/a.bmp")), "served");
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(100);
    fs::last_write_time("cache/A.BMP", old);
    server.Prescribe({kOk + "new"});
    EXPECT_EQ(GetPicture(Url("img/a.bmp")), "served");
    EXPECT_EQ(server.nAccepted, 1) << "without asking the server";
    EXPECT_GT(fs::last_write_time("cache/A.BMP"), old + std::chrono::hours(99))
        << "a hit makes the file young";
    EXPECT_EQ(GetPicture(Url("img/a.bmp?q")), "new") << "a query passes the cache by";
    EXPECT_EQ(GetPicture(Url("b.bmp?q")), "new");
    EXPECT_EQ(GetPicture(Url("img/a.bmp")), "served");
    EXPECT_EQ(GetPicture(Url("x/a.bmp")), "new") << "the same name under another URL";
    EXPECT_EQ(GetPicture(Url("img/a.bmp")), "new");
    EXPECT_EQ(GetPicture(Url("img/")), "new") << "a name that is none";
    server.Prescribe({"HTTP/1.0 404 Not Found\r\n\r\nb"});
    EXPECT_EQ(GetPicture(Url("c.bmp")), kNone);
    server.Prescribe({kOk + std::string(600000, 'x')});
    EXPECT_EQ(GetPicture(Url("x/a.bmp")) + GetPicture(Url("x/a.bmp")),
              std::string(2 * (500000 - kOk.size()), 'x'));
    EXPECT_EQ(fs::file_size("cache/A.BMP"), 388 + 500000 - kOk.size()) << "cut off and kept like any other";
    server.Prescribe({kOk + "<TITLE>page</TITLE>"});
    Load(Url("img/a.bmp"));
    EXPECT_EQ(Title(), "page") << "a page never comes from the cache";
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
