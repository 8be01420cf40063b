// Resource, the base of everything that is fetched: a document (Page) or a picture (Image).
//
// A Resource is started once. A worker thread (fetch.h) then fills in its data and ends it in one of three
// ways: OnData when the fetch has ended, with or without data; OnTimeout when its turn did not come in time;
// OnCancelled when it was cancelled before its turn came.
#pragma once

#include <atomic>
#include <cstdint>

#include "workers.h"

// What _wAccept asks for: classes in the high byte, subtypes in the low byte; zero in a byte means no test of
// it.
enum : uint16_t {
    ACCEPT_HTML = 0x0001,  // also marks a document
    ACCEPT_PLAIN = 0x0002,
    ACCEPT_TEXT = 0x0100,
    ACCEPT_IMAGE = 0x0200,
    ACCEPT_AUDIO = 0x0400,
    ACCEPT_VIDEO = 0x0800,
    ACCEPT_APPLICATION = 0x1000,
};

enum : uint16_t { METHOD_POST = 1, METHOD_GET = 2 };

// The one bit of _wState.
enum : uint16_t { RS_CANCELLED = 4 };

class Resource {
  public:
    // The bytes that were fetched: null and 0 until they have come. Written by the worker, then read on its
    // thread.
    uint32_t _dwLength = 0;
    uint16_t _wAccept;
    // Atomic: set on any thread, seen by the worker when it next looks. It only ever gains a bit.
    std::atomic<uint16_t> _wState{0};
    uint16_t _wMethod;
    // The tick of Start; the time limit counts from here.
    uint32_t _dwStart = 0;
    uint8_t *_lpData = nullptr;
    // Null if there was no memory for it; such a fetch fails.
    char *_lpszURL;
    // What Frame::Fetch makes of the URL. No host: a local file, named by the path.
    char *_lpszHost = nullptr;
    char *_lpszPath = nullptr;
    char *_lpszQuery = nullptr;
    // Whose Fetch and OnResourceDone serve this Resource. Not owned; null for an icon.
    Frame *_lpFrame;

    Resource(Frame *lpFrame, const char *lpszURL, uint16_t wAccept, uint16_t wMethod);
    Resource(const Resource &) = delete;
    Resource &operator=(const Resource &) = delete;

    virtual ~Resource();
    // On any thread.
    virtual void Cancel();
    // On the worker's thread, with the Frame's paint and page mutexes held.
    virtual void OnData() = 0;
    // On the worker's thread, with nothing held.
    virtual void OnTimeout() = 0;
    virtual void OnCancelled() = 0;

    // Stamps the start and has a worker begin.
    void Start();

    bool IsCancelled() const { return (_wState & RS_CANCELLED) != 0; }
    bool IsDocument() const { return (_wAccept & ACCEPT_HTML) != 0; }

    // The Page that this Resource lives and dies with: itself, or the one that shows it. Set once, by the
    // constructors of the derived classes.
    Page *_lpHolder = nullptr;
    // The worker that serves this Resource, or null.
    Worker *_lpWorker GUARDED_BY(WorkerRegistry::_mutex) = nullptr;
};
