// A response of a server, in pieces of any size.
#include <cstring>

#include "harness.h"
#include "http.h"
#include "resource.h"

namespace {

class Fetched : public Resource {
  public:
    using Resource::Resource;
    void OnData() override {}
    void OnTimeout() override {}
    void OnCancelled() override {}
};

// What is taken of a response: its body if that is taken at all. A response without a head is a body.
std::string Fetch(const std::string &strResponse, uint16_t wAccept, size_t nPiece) {
    g_world = World();
    g_world.lpResponse = &strResponse;
    g_world.nPiece = nPiece;
    Fetched resource(nullptr, "http://a.b/c", wAccept, METHOD_GET);
    resource._lpszHost = StrDup("a.b");
    HttpFetch(&resource, nullptr);
    REQUIRE(g_hSocket == platform::kNoSocket);
    REQUIRE(resource._lpData || !resource._dwLength);
    return resource._lpData
               ? "+" + std::string(reinterpret_cast<char *>(resource._lpData), resource._dwLength)
               : "-";
}

// The same by other means. -1: there is no head.
int Status(const std::string &strResponse, size_t *lpnBody) {
    const size_t nEnd = strResponse.find("\r\n\r\n");
    *lpnBody = 0;
    if (strncasecmp(strResponse.c_str(), "HTTP/", 5) != 0 || nEnd == std::string::npos ||
        strResponse.find('\0') < nEnd)
        return -1;
    *lpnBody = nEnd + 4;
    const std::string strHead = strResponse.substr(0, nEnd);
    const size_t nBlank = strHead.find(' ');
    const bool bTwo = nBlank != std::string::npos && strHead.find(' ', nBlank + 1) != std::string::npos;
    return bTwo ? static_cast<int>(strtol(strHead.c_str() + nBlank, nullptr, 10)) : 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *lpData, size_t nSize) {
    Input input(lpData, nSize);
    const bool bPicture = input.Byte() & 1;
    const size_t nPiece = input.Byte() + size_t{1};
    const uint16_t wAccept = ACCEPT_TEXT | (bPicture ? ACCEPT_IMAGE : ACCEPT_HTML);
    const std::string strResponse = input.Rest();
    const std::string strTaken = Fetch(strResponse, wAccept, nPiece);
    REQUIRE(strTaken == Fetch(strResponse, wAccept, 1 << 20));
    size_t nBody;
    const int nStatus = Status(strResponse, &nBody);
    REQUIRE(strTaken == "-" || (!strResponse.empty() && strTaken == "+" + strResponse.substr(nBody)));
    REQUIRE(strTaken == "-" || !bPicture || nStatus == 200);
    char szValue[kHeaderValueSize];
    const std::string strName = strResponse.substr(0, strResponse.size() % 4);
    if (GetHeaderValue(strResponse.c_str(), strName.c_str(), szValue))
        REQUIRE(strstr(strResponse.c_str(), szValue) && strcspn(szValue, " \r\n") == strlen(szValue));
    else
        REQUIRE(!*szValue);
    return 0;
}

std::vector<std::string> Seeds() {
    std::vector<std::string> seeds;
    for (const std::string strHead :
         {"HTTP/1.0 200 OK\r\nContent-Type: image/bmp\r\n\r\n",
          "HTTP/1.1 404 No\r\nContent-type:text/html;x=y\r\n\r\n",
          "http/1.0 200 \r\ncontent-type:  text/plain\r\nContent-Length: 3\r\n\r\n", "HTTP/1.0 -1 \r\n\r\n",
          "HTTP/1.0 200 OK\r\nContent-Type: "
          "application/xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\r\n\r\n",
          "HTTP/1.0 200 OK\r\n\n", ""})
        for (const char c : {'\0', '\1'})
            seeds.push_back(std::string({c, '\2'}) + strHead + "body\r\n\r\nand more");
    return seeds;
}
