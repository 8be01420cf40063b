#include "resource.h"

#include "platform/clock.h"
#include "types.h"

Resource::Resource(Frame *lpFrame, const char *lpszURL, uint16_t wAccept, uint16_t wMethod)
    : _wAccept(wAccept), _wMethod(wMethod), _lpszURL(StrTryDup(lpszURL)), _lpFrame(lpFrame) {}

Resource::~Resource() {
    delete[] _lpData;
    delete[] _lpszURL;
    delete[] _lpszHost;
    delete[] _lpszPath;
    delete[] _lpszQuery;
}

// Under the registry's lock, since a Page whose worker has seen the bit may be destroyed as soon as the lock
// is free.
void Resource::Cancel() {
    const WorkerRegistry::Lock lock(WorkerRegistry::_mutex);
    _wState |= RS_CANCELLED;
    Workers().Wake(this);
}

void Resource::Start() {
    _dwStart = platform::Ticks();
    Workers().Start(this);
}
