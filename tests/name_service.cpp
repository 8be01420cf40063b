#include "name_service.h"

#include <netdb.h>

#include <chrono>
#include <cstring>
#include <thread>

std::atomic<int> g_nSlowNames{0};

extern "C" int getaddrinfo_a(int, gaicb *alpRequests[], int, sigevent *) {
    gaicb *lpRequest = alpRequests[0];
    const bool bSlow = strncmp(lpRequest->ar_name, "slow", 4) == 0;
    lpRequest->__return = bSlow ? EAI_INPROGRESS : EAI_NONAME;
    if (strcmp(lpRequest->ar_name, "localhost") == 0)
        lpRequest->__return = getaddrinfo("127.0.0.1", nullptr, lpRequest->ar_request, &lpRequest->ar_result);
    g_nSlowNames += bSlow;
    return 0;
}

extern "C" int gai_suspend(const gaicb *const[], int, const timespec *) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return EAI_AGAIN;
}
