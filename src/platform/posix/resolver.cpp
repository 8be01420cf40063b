// The system's name service can neither be hurried nor called off. Each question is therefore put by a thread of the
// C library, which runs none of our code: whoever asks may stop waiting, and the library may be unloaded, while it is
// at work. What nobody waits for any more is collected when the system has let go of it.
//
// NB: a thread of our own would have to hold a reference to the library meanwhile. Who takes one waits for the loader,
// and an unload holds that while it waits for the workers.
#include "platform/resolver.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <signal.h>

#include <cstdio>
#include <cstring>

#include "platform/clock.h"
#include "platform/mutex.h"

namespace platform {

namespace {

constexpr size_t kHostSize = 260;
constexpr uint32_t kPatience = 30000;
constexpr uint32_t kMemory = 60000;
constexpr timespec kLook = {0, 50'000'000};
constexpr int kAnswers = 64;
// Questions that nobody waits for any more, and those that somebody does. Behind this many, a name does not
// resolve. The system works on 20 at a time.
constexpr int kMaxQuestions = 16;

struct Answer {
    char szHost[kHostSize];
    uint32_t dwAddress;
    uint32_t dwTime;
    bool bUsed;
};

// The system reads and writes it until Collect finds that it no longer does.
struct Question {
    gaicb request = {};
    addrinfo hints = {};
    char szHost[kHostSize] = {};
    bool bLate = false;  // nobody has waited for the answer, which is still to be remembered
    Question *lpNext = nullptr;
};

Mutex g_mutex;
Answer g_aAnswers[kAnswers] GUARDED_BY(g_mutex) = {};
int g_nNextAnswer GUARDED_BY(g_mutex) = 0;
int g_nQuestions GUARDED_BY(g_mutex) = 0;
Question *g_lpLeft GUARDED_BY(g_mutex) = nullptr;  // those that nobody waits for

// What is remembered of a host, or null.
Answer *FindAnswer(const char *lpszHost) REQUIRES(g_mutex) {
    for (Answer &answer : g_aAnswers) {
        if (answer.bUsed && strcmp(answer.szHost, lpszHost) == 0)
            return &answer;
    }
    return nullptr;
}

void Remember(const char *lpszHost, uint32_t dwAddress) REQUIRES(g_mutex) {
    Answer *lpAnswer = FindAnswer(lpszHost);
    if (!lpAnswer) {
        lpAnswer = &g_aAnswers[g_nNextAnswer];
        g_nNextAnswer = (g_nNextAnswer + 1) % kAnswers;
    }
    snprintf(lpAnswer->szHost, sizeof lpAnswer->szHost, "%s", lpszHost);
    lpAnswer->dwAddress = dwAddress;
    lpAnswer->dwTime = Ticks();
    lpAnswer->bUsed = true;
}

uint32_t AddressIn(const gaicb &request) {
    if (!request.ar_result)
        return kNoAddress;
    sockaddr_in address;
    memcpy(&address, request.ar_result->ai_addr, sizeof address);
    return address.sin_addr.s_addr;
}

// Destroys the questions that the system has let go of. One that it has not begun with is called off; that is no
// answer.
void Collect() REQUIRES(g_mutex) {
    for (Question **lplp = &g_lpLeft; *lplp;) {
        Question *lpQuestion = *lplp;
        const int nState = gai_cancel(&lpQuestion->request);
        if (nState == EAI_NOTCANCELED) {
            lplp = &lpQuestion->lpNext;
            continue;
        }
        if (lpQuestion->bLate && nState == EAI_ALLDONE)
            Remember(lpQuestion->szHost, AddressIn(lpQuestion->request));
        *lplp = lpQuestion->lpNext;
        if (lpQuestion->request.ar_result)
            freeaddrinfo(lpQuestion->request.ar_result);
        delete lpQuestion;
        --g_nQuestions;
    }
}

void Leave(Question *lpQuestion) REQUIRES(g_mutex) {
    lpQuestion->lpNext = g_lpLeft;
    g_lpLeft = lpQuestion;
    Collect();
}

// Puts the question. The thread that the system may start for it inherits that no signal of the host comes to it.
bool Ask(Question *lpQuestion) {
    lpQuestion->hints.ai_family = AF_INET;
    lpQuestion->hints.ai_socktype = SOCK_STREAM;
    lpQuestion->request.ar_name = lpQuestion->szHost;
    lpQuestion->request.ar_request = &lpQuestion->hints;
    gaicb *alpRequests[] = {&lpQuestion->request};
    sigevent event = {};
    event.sigev_notify = SIGEV_NONE;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const bool bAsked = getaddrinfo_a(GAI_NOWAIT, alpRequests, 1, &event) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return bAsked;
}

// False if the answer is still to come when the caller gives up. What takes too long counts as unknown, so that nobody
// waits for it again.
bool Await(Question *lpQuestion, int (*lpfnGiveUp)(void *), void *lpContext) {
    const uint32_t dwStart = Ticks();
    const gaicb *const alpRequests[] = {&lpQuestion->request};
    while (gai_error(&lpQuestion->request) == EAI_INPROGRESS) {
        if (Ticks() - dwStart > kPatience) {
            const MutexLock lock(g_mutex);
            Remember(lpQuestion->szHost, kNoAddress);
            return false;
        }
        if (lpfnGiveUp && lpfnGiveUp(lpContext))
            return false;
        gai_suspend(alpRequests, 1, &kLook);
    }
    return true;
}

bool Recall(const char *lpszHost, uint32_t *lpdwAddress) {
    const MutexLock lock(g_mutex);
    Collect();
    const Answer *lpAnswer = FindAnswer(lpszHost);
    if (!lpAnswer || Ticks() - lpAnswer->dwTime >= kMemory)
        return false;
    *lpdwAddress = lpAnswer->dwAddress;
    return true;
}

// Null if there are too many.
Question *NewQuestion(const char *lpszHost) {
    const MutexLock lock(g_mutex);
    if (g_nQuestions >= kMaxQuestions)
        return nullptr;
    ++g_nQuestions;
    Question *lpQuestion = new Question;
    snprintf(lpQuestion->szHost, sizeof lpQuestion->szHost, "%s", lpszHost);
    return lpQuestion;
}

}  // namespace

uint32_t ResolveAddress(const char *lpszHost, int (*lpfnGiveUp)(void *lpContext), void *lpContext) {
    const size_t nLength = strlen(lpszHost);
    if (nLength == 0 || nLength >= kHostSize)
        return kNoAddress;
    uint32_t dwAddress = inet_addr(lpszHost);
    if (dwAddress != kNoAddress || Recall(lpszHost, &dwAddress))
        return dwAddress;
    if (lpfnGiveUp && lpfnGiveUp(lpContext))
        return kNoAddress;
    Question *lpQuestion = NewQuestion(lpszHost);
    if (!lpQuestion)
        return kNoAddress;
    const bool bAsked = Ask(lpQuestion);
    const bool bAnswered = bAsked && Await(lpQuestion, lpfnGiveUp, lpContext);
    const MutexLock lock(g_mutex);
    if (bAnswered) {
        dwAddress = AddressIn(lpQuestion->request);
        Remember(lpszHost, dwAddress);
    }
    lpQuestion->bLate = bAsked && !bAnswered;
    Leave(lpQuestion);
    return dwAddress;
}

void ReleaseResolver() {
    const MutexLock lock(g_mutex);
    Collect();
}

}  // namespace platform
