#include "http.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "bytereader.h"
#include "cache.h"
#include "fetch.h"
#include "htmlparser.h"
#include "platform/clock.h"
#include "platform/resolver.h"
#include "resource.h"
#include "textbuilder.h"

platform::SocketHandle g_hSocket = platform::kNoSocket;

namespace {

// A body that fits the buffer fits the cache.
static_assert(kMaxResponse <= kMaxCachedBody);

struct TypeWord {
    const char *lpszWord;
    uint16_t wBit;
};

constexpr TypeWord kClasses[] = {{"text", ACCEPT_TEXT},
                                 {"image", ACCEPT_IMAGE},
                                 {"audio", ACCEPT_AUDIO},
                                 {"video", ACCEPT_VIDEO},
                                 {"application", ACCEPT_APPLICATION}};
constexpr TypeWord kSubtypes[] = {{"html", ACCEPT_HTML}, {"plain", ACCEPT_PLAIN}};

template <size_t nCount>
uint16_t FindType(const TypeWord (&aWords)[nCount], std::string_view word) {
    for (const TypeWord &row : aWords) {
        if (word == row.lpszWord)
            return row.wBit;
    }
    return 0;
}

// What every wait of an exchange asks.
int IsOver(void *lpContext) {
    const Resource *lpResource = static_cast<const Resource *>(lpContext);
    return lpResource->IsCancelled() || platform::Ticks() - lpResource->_dwStart > kFetchLimit;
}

void *Context(const Resource *lpResource) {
    return const_cast<Resource *>(lpResource);
}

// One line break in what a page has written, and it could write headers of its own.
bool HasLineBreak(const char *lpsz) {
    return strpbrk(lpsz, "\r\n") != nullptr;
}

// The bytes to send. False if they would be no request, or too long a one, or there is no memory for them. The text of a
// POST is its body and may be anything.
bool BuildRequest(const Resource *lpResource, TextBuilder *lpRequest) {
    const bool bGet = lpResource->_wMethod == METHOD_GET;
    const char *lpszQuery = lpResource->_lpszQuery;
    lpRequest->Append(bGet ? "GET /" : "POST /");
    if (lpResource->_lpszPath)
        lpRequest->Append(lpResource->_lpszPath);
    if (bGet && lpszQuery)
        lpRequest->Append("?").Append(lpszQuery);
    lpRequest->Append(" HTTP/1.0");
    if (!lpRequest->Text() || lpRequest->Length() > kMaxRequestLine || HasLineBreak(lpRequest->Text()) ||
        HasLineBreak(lpResource->_lpszHost))
        return false;
    lpRequest->Append("\r\n");
    if (bGet)
        lpRequest->Append("Host: ").Append(lpResource->_lpszHost).Append("\r\n");
    lpRequest->Append("\r\n");
    if (!bGet && lpszQuery)
        lpRequest->Append(lpszQuery);
    return lpRequest->Text() != nullptr;
}

// One byte of the type mask against one of the type; zero on either side asks for nothing.
bool Matches(int nAccepted, int nType) {
    return !nAccepted || !nType || (nAccepted & nType);
}

bool IsAccepted(const Resource *lpResource, const HttpInfo &info) {
    const int nAccept = lpResource->_wAccept;
    return (info._dwStatus == 200 || lpResource->IsDocument()) &&
           Matches(nAccept & 0xFF00, info._wContentType & 0xFF00) &&
           Matches(nAccept & 0x00FF, info._wContentType & 0x00FF);
}

// Reads the response, and gives the Resource its body if that is what it asked for.
void TakeResponse(Resource *lpResource, const char *lpszCachePath) {
    const std::unique_ptr<char[]> lpBuffer(new (std::nothrow) char[kMaxResponse + 1]);
    int nSize = kMaxResponse;
    if (!lpBuffer || !HttpReceive(lpResource, lpBuffer.get(), &nSize) || nSize == 0)
        return;
    HttpInfo info;
    ParseResponse(lpBuffer.get(), &info);
    if (!IsAccepted(lpResource, info))
        return;
    ByteReader reader(reinterpret_cast<const uint8_t *>(lpBuffer.get()), static_cast<size_t>(nSize));
    reader.Take(info._dwBodyOffset);
    const uint32_t dwLength = static_cast<uint32_t>(reader.Left());
    lpResource->_lpData = new (std::nothrow) uint8_t[dwLength];
    if (!lpResource->_lpData)
        return;
    lpResource->_dwLength = dwLength;
    reader.Copy(lpResource->_lpData, dwLength);
    if (lpszCachePath && *lpszCachePath)
        CacheWrite(lpszCachePath, lpResource->_lpData, dwLength, nullptr, lpResource->_lpszURL);
}

}  // namespace

void HttpFetch(Resource *lpResource, const char *lpszCachePath) {
    TextBuilder request;
    if (!BuildRequest(lpResource, &request))
        return;
    const uint32_t dwAddress = ResolveHost(lpResource->_lpszHost, lpResource);
    if (dwAddress == platform::kNoAddress)
        return;
    g_hSocket = platform::OpenSocket();
    if (platform::ConnectSocket(g_hSocket, dwAddress, kHttpPort, IsOver, lpResource) &&
        HttpSend(lpResource, request.Text()))
        TakeResponse(lpResource, lpszCachePath);
    platform::CloseSocket(g_hSocket);
    g_hSocket = platform::kNoSocket;
}

int HttpSend(const Resource *lpResource, const char *lpszRequest) {
    size_t nLeft = strlen(lpszRequest);
    while (nLeft > 0) {
        const int nPart = static_cast<int>(std::min<size_t>(nLeft, INT_MAX));
        const int nSent = platform::SendSocket(g_hSocket, lpszRequest, nPart, IsOver, Context(lpResource));
        if (nSent < 0)
            return 0;
        lpszRequest += nSent;
        nLeft -= static_cast<size_t>(nSent);
    }
    return 1;
}

// What arrives too late, or for a Resource that nobody wants any more, is not taken, even if it is the last
// piece.
int HttpReceive(const Resource *lpResource, char *lpBuffer, int *lpnSize) {
    int nLeft = *lpnSize;
    int nGot;
    do {
        nGot = platform::ReceiveSocket(g_hSocket, lpBuffer, nLeft, IsOver, Context(lpResource));
        if (nGot < 0 || IsOver(Context(lpResource)))
            return 0;
        lpBuffer += nGot;
        nLeft -= nGot;
    } while (nGot > 0 && nLeft > 0);
    *lpBuffer = '\0';
    *lpnSize -= nLeft;
    return 1;
}

void ParseResponse(char *lpBuffer, HttpInfo *lpInfo) {
    if (!StartsWith(lpBuffer, "HTTP/"))
        return;
    char *lpEnd = strstr(lpBuffer, "\r\n\r\n");
    if (!lpEnd)
        return;
    lpInfo->_dwBodyOffset = static_cast<uint32_t>(lpEnd - lpBuffer) + 4;
    *lpEnd = '\0';
    for (char *lpc = lpBuffer; *lpc; ++lpc) {
        if (*lpc >= 'A' && *lpc <= 'Z')
            *lpc = static_cast<char>(*lpc + ('a' - 'A'));
    }
    ParseStatusCode(lpBuffer, &lpInfo->_dwStatus);
    ParseContentType(lpBuffer, &lpInfo->_wContentType);
}

// The two blanks may be anywhere in the head. Behind a number ParseInt stops, but it passes over white space in front.
void ParseStatusCode(const char *lpszHead, int32_t *lpnStatus) {
    const char *lpFirst = strchr(lpszHead, ' ');
    const char *lpSecond = lpFirst ? strchr(lpFirst + 1, ' ') : nullptr;
    const char *lpCode = lpSecond ? lpFirst + 1 + strspn(lpFirst + 1, "\t\n\v\f\r") : nullptr;
    *lpnStatus = lpCode != lpSecond ? ParseInt(lpCode) : 0;
}

int GetHeaderValue(const char *lpszHead, const char *lpszName, char (&szValue)[kHeaderValueSize]) {
    szValue[0] = '\0';
    const char *lpFound = strstr(lpszHead, lpszName);
    if (!lpFound)
        return 1;
    const char *lpValue = lpFound + strlen(lpszName);
    // Whatever stands behind the name is passed over, but for the end of the head.
    if (*lpValue)
        ++lpValue;
    const size_t nLength = strcspn(lpValue, " \r\n");
    if (nLength >= sizeof szValue)
        return 0;
    snprintf(szValue, sizeof szValue, "%.*s", static_cast<int>(nLength), lpValue);
    return 1;
}

// A value that is too long is an unknown type. So is one with parameters, as far as its subtype goes, since
// the semicolon stays.
void ParseContentType(const char *lpszHead, uint16_t *lpwType) {
    char szValue[kHeaderValueSize];
    const int bFits = GetHeaderValue(lpszHead, "content-type:", szValue);
    if (bFits && !*szValue)
        return;
    const std::string_view value(szValue);
    const size_t nSlash = value.find('/');
    *lpwType = FindType(kClasses, value.substr(0, nSlash));
    if (nSlash != std::string_view::npos)
        *lpwType = static_cast<uint16_t>(*lpwType | FindType(kSubtypes, value.substr(nSlash + 1)));
}
