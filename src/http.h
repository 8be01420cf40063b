// The HTTP client: one HTTP/1.0 exchange on one connection, for the worker that has the turn to fetch.
//
// It sends one fixed request, reads the whole response into one buffer until the peer closes the connection,
// looks at the status code and the content type and at nothing else, and hands the body to the Resource and
// to the cache, or drops it. Every failure looks the same: the Resource is left without data.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/sockets.h"

class Resource;

inline constexpr uint16_t kHttpPort = 80;
// The most that is read of a response, head included. What is behind is cut off, which is no failure.
inline constexpr int kMaxResponse = 500000;
// A longer request line is not sent.
inline constexpr size_t kMaxRequestLine = 65536;
// The room for the value of a header, terminator included.
inline constexpr size_t kHeaderValueSize = 64;

// The one open connection, or kNoSocket. Only the holder of the turn to fetch touches it.
extern platform::SocketHandle g_hSocket;

// What is learned from the head of a response; all zero if there is none.
struct HttpInfo {
    uint32_t _dwBodyOffset = 0;
    int32_t _dwStatus = 0;
    uint16_t _wContentType = 0;  // the bits of Resource::_wAccept
};

// Fetches a Resource that has been started and has a host. lpszCachePath names the cache file of the
// response, as MakeCachePath has made it; null or empty means that nothing is stored. Returns soon after the
// Resource has been cancelled or its limit has passed. The caller has the turn to fetch.
void HttpFetch(Resource *lpResource, const char *lpszCachePath);

// The two halves of the exchange, on g_hSocket. 0 if they failed, or the Resource was cancelled or is too
// late.
int HttpSend(const Resource *lpResource, const char *lpszRequest);
// *lpnSize is the room in lpBuffer, then the number of bytes that came. A zero byte is put behind them, for
// which there is to be one byte more than the room.
int HttpReceive(const Resource *lpResource, char *lpBuffer, int *lpnSize);

// lpBuffer holds a zero-terminated response. A head is cut off from its body, as a string of its own, and put
// into lower case, in place. A head with a zero byte in it is no head.
void ParseResponse(char *lpBuffer, HttpInfo *lpInfo);

// These read a head in lower case.
void ParseStatusCode(const char *lpszHead, int32_t *lpnStatus);
void ParseContentType(const char *lpszHead, uint16_t *lpwType);
// The text from the second character behind lpszName to the next blank, CR or LF; empty if there is no such
// header. Returns 0, with an empty value, if it does not fit.
int GetHeaderValue(const char *lpszHead, const char *lpszName, char (&szValue)[kHeaderValueSize]);
