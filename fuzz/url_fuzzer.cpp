// A URL, how it is taken apart, and the request that is made of it.
#include <cstring>

#include "harness.h"
#include "mainframe.h"
#include "page.h"

static std::string Join(const Page *lpPage) {
    std::string str = lpPage->_lpszHost ? lpPage->_lpszHost : "";
    if (lpPage->_lpszPath)
        str += (lpPage->_lpszHost ? "/" : "") + std::string(lpPage->_lpszPath);
    return lpPage->_lpszQuery ? str + "?" + lpPage->_lpszQuery : str;
}

// One line, for GET with a Host line behind it, and the body of a POST. No byte of a URL makes another line.
static void CheckRequest(const Page *lpPage, const std::string &strSent) {
    const bool bGet = lpPage->_wMethod == METHOD_GET;
    const std::string strPath = lpPage->_lpszPath ? lpPage->_lpszPath : "";
    const std::string strQuery = lpPage->_lpszQuery ? lpPage->_lpszQuery : "";
    const std::string strURL = strPath + (bGet && lpPage->_lpszQuery ? "?" + strQuery : "");
    const std::string strHost = "Host: " + std::string(lpPage->_lpszHost) + "\r\n";
    REQUIRE(strSent == (bGet ? "GET /" : "POST /") + strURL + " HTTP/1.0\r\n" + (bGet ? strHost : "") +
                           "\r\n" + (bGet ? "" : strQuery));
    REQUIRE((strURL + lpPage->_lpszHost).find_first_of("\r\n") == std::string::npos);
    REQUIRE(strURL.size() <= 65536);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *lpData, size_t nSize) {
    Input input(lpData, nSize);
    const int nFlags = input.Byte();
    const std::string strURL = input.Rest().c_str(), strBase = nFlags & 2 ? "base.host" : "";
    const std::string strResponse = "HTTP/1.0 200 OK\r\n\r\n<A HREF=x>";
    Engine engine(1, 1);
    g_world.files["a file"] = g_world.files["dir/file?"] = "text";
    g_world.lpResponse = &strResponse;
    g_world.nPiece = 7;
    g_lpMainFrame->SetBaseHost(strBase.c_str());
    g_lpMainFrame->OpenURL(strURL.c_str(), 1, nFlags & 1 ? METHOD_POST : METHOD_GET);
    RunThreads();
    const Page *lpPage = g_lpMainFrame->_lpPage;
    REQUIRE(lpPage && lpPage == g_lpMainFrame->_lpNextPage && lpPage->_lpszURL == strURL);
    const std::string strJoined = Join(lpPage);
    if (!lpPage->_lpszHost) {
        REQUIRE(!lpPage->_lpszQuery && g_world.strSent.empty());
        REQUIRE(!lpPage->_lpszPath || strURL == strJoined || strURL.substr(7) == strJoined);
        REQUIRE(!lpPage->_lpData == (g_world.files.count(strJoined) == 0));
        return 0;
    }
    REQUIRE(strlen(lpPage->_lpszHost) < 260 && !strchr(lpPage->_lpszHost, '/'));
    REQUIRE(strURL == strJoined || strBase + "/" + strURL == strJoined ||
            (strncasecmp(strURL.c_str(), "http://", 7) == 0 && strURL.substr(7) == strJoined));
    if (!g_world.strSent.empty())
        CheckRequest(lpPage, g_world.strSent);
    REQUIRE(g_lpMainFrame->_szBaseHost == std::string(lpPage->_lpszHost));
    return 0;
}

std::vector<std::string> Seeds() {
    std::vector<std::string> seeds;
    for (const std::string strURL :
         {"http://a.b/c/d?e=f&g", "HTTP://a.b", "file://a file", "FILE://dir/file?", "a file", "dir/file?",
          "a.b/c?d", "a/b", "page.htm?x", "http://a.b/?", "http:///", "http://a.b/c d?\r\nX: y", "", "?", "/",
          "http://nodot/x"})
        for (const char c : {'\0', '\1', '\2', '\3'})
            seeds.push_back(c + strURL);
    seeds.push_back("\1http://" + std::string(300, 'h') + ".b/");
    seeds.push_back("\2" + std::string(70000, 'p'));
    return seeds;
}
