// The system's name service can neither be hurried nor called off, so that each question is put by a thread
// of its own, which whoever asks may leave behind. Such a thread must not run in code that has been unloaded:
// it holds a reference to the library, and lets go of it through the destructor of a thread-specific value,
// from inside the C library, when no code of ours is left on its stack.
#include "platform/resolver.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netdb.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

#include "platform/clock.h"

namespace platform {

namespace {

constexpr size_t kHostSize = 260;
constexpr uint32_t kPatience = 30000;
constexpr uint32_t kMemory = 60000;
constexpr std::chrono::milliseconds kLook(50);
constexpr int kAnswers = 64;
// Questions that nobody waits for any more, and those that somebody does. Behind this many, a name does not
// resolve.
constexpr int kMaxQuestions = 16;

struct Answer {
    char szHost[kHostSize];
    uint32_t dwAddress;
    uint32_t dwTime;
    bool bUsed;
};

// What the thread that asks and the thread that waits share; the last of the two deletes it.
struct Question {
    std::mutex mutex;
    std::condition_variable answered;
    bool bDone = false;
    uint32_t dwAddress = kNoAddress;
    std::atomic<int> nHolders{2};
    void *hLibrary = nullptr;
    char szHost[kHostSize];
};

// Guards what follows.
std::mutex g_mutex;
Answer g_aAnswers[kAnswers] = {};
int g_nNextAnswer = 0;
bool g_bKeyMade = false;
pthread_key_t g_keyLibrary;

std::atomic<int> g_nQuestions{0};

bool Recall(const char *lpszHost, uint32_t *lpdwAddress) {
    std::lock_guard lock(g_mutex);
    for (const Answer &answer : g_aAnswers) {
        if (answer.bUsed && strcmp(answer.szHost, lpszHost) == 0 && Ticks() - answer.dwTime < kMemory) {
            *lpdwAddress = answer.dwAddress;
            return true;
        }
    }
    return false;
}

void Remember(const char *lpszHost, uint32_t dwAddress) {
    std::lock_guard lock(g_mutex);
    Answer &answer = g_aAnswers[g_nNextAnswer];
    g_nNextAnswer = (g_nNextAnswer + 1) % kAnswers;
    snprintf(answer.szHost, sizeof answer.szHost, "%s", lpszHost);
    answer.dwAddress = dwAddress;
    answer.dwTime = Ticks();
    answer.bUsed = true;
}

uint32_t AskSystem(const char *lpszHost) {
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *lpResult = nullptr;
    if (getaddrinfo(lpszHost, nullptr, &hints, &lpResult) != 0 || !lpResult)
        return kNoAddress;
    sockaddr_in address;
    memcpy(&address, lpResult->ai_addr, sizeof address);
    freeaddrinfo(lpResult);
    return address.sin_addr.s_addr;
}

// A reference to this library, or null where there is none to be had, as in a program that has it built in.
void *HoldLibrary() {
    Dl_info info;
    if (!dladdr(reinterpret_cast<void *>(&HoldLibrary), &info) || !info.dli_fname)
        return nullptr;
    return dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
}

bool MakeKey() {
    std::lock_guard lock(g_mutex);
    if (!g_bKeyMade) {
        // dlclose itself is the destructor; what it returns is nobody's business.
        void *lpfnClose = reinterpret_cast<void *>(&dlclose);
        g_bKeyMade = pthread_key_create(&g_keyLibrary, reinterpret_cast<void (*)(void *)>(lpfnClose)) == 0;
    }
    return g_bKeyMade;
}

void LetGo(Question *lpQuestion) {
    if (--lpQuestion->nHolders == 0)
        delete lpQuestion;
}

void *Ask(void *lpArgument) {
    Question *lpQuestion = static_cast<Question *>(lpArgument);
    if (lpQuestion->hLibrary)
        pthread_setspecific(g_keyLibrary, lpQuestion->hLibrary);
    const uint32_t dwAddress = AskSystem(lpQuestion->szHost);
    Remember(lpQuestion->szHost, dwAddress);
    {
        std::lock_guard lock(lpQuestion->mutex);
        lpQuestion->dwAddress = dwAddress;
        lpQuestion->bDone = true;
        lpQuestion->answered.notify_all();
    }
    LetGo(lpQuestion);
    --g_nQuestions;
    return nullptr;
}

// Starts the thread, with the host's signals kept away from it.
bool StartAsking(Question *lpQuestion) {
    pthread_attr_t attributes;
    if (!MakeKey() || pthread_attr_init(&attributes) != 0)
        return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    lpQuestion->hLibrary = HoldLibrary();
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    const bool bStarted = pthread_create(&thread, &attributes, Ask, lpQuestion) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    if (!bStarted && lpQuestion->hLibrary)
        dlclose(lpQuestion->hLibrary);
    return bStarted;
}

// What takes too long counts as unknown, so that nobody waits for it again.
uint32_t AwaitAnswer(Question *lpQuestion, int (*lpfnGiveUp)(void *), void *lpContext) {
    const uint32_t dwStart = Ticks();
    std::unique_lock lock(lpQuestion->mutex);
    while (!lpQuestion->answered.wait_for(lock, kLook, [=] { return lpQuestion->bDone; })) {
        lock.unlock();
        const bool bLate = Ticks() - dwStart > kPatience;
        if (bLate)
            Remember(lpQuestion->szHost, kNoAddress);
        const bool bGiveUp = bLate || (lpfnGiveUp && lpfnGiveUp(lpContext));
        lock.lock();
        if (bGiveUp)
            break;
    }
    return lpQuestion->dwAddress;
}

}  // namespace

uint32_t ResolveAddress(const char *lpszHost, int (*lpfnGiveUp)(void *lpContext), void *lpContext) {
    const size_t nLength = strlen(lpszHost);
    if (nLength == 0 || nLength >= kHostSize)
        return kNoAddress;
    uint32_t dwAddress = inet_addr(lpszHost);
    if (dwAddress != kNoAddress || Recall(lpszHost, &dwAddress))
        return dwAddress;
    // Before the loader is asked for a reference: an unload that has begun would not let go of its lock.
    if (lpfnGiveUp && lpfnGiveUp(lpContext))
        return kNoAddress;
    if (++g_nQuestions > kMaxQuestions) {
        --g_nQuestions;
        return kNoAddress;
    }
    Question *lpQuestion = new Question;
    memcpy(lpQuestion->szHost, lpszHost, nLength + 1);
    if (!StartAsking(lpQuestion)) {
        --g_nQuestions;
        delete lpQuestion;
        return kNoAddress;
    }
    dwAddress = AwaitAnswer(lpQuestion, lpfnGiveUp, lpContext);
    LetGo(lpQuestion);
    return dwAddress;
}

void ReleaseResolver() {
    std::lock_guard lock(g_mutex);
    if (g_bKeyMade)
        pthread_key_delete(g_keyLibrary);
    g_bKeyMade = false;
}

}  // namespace platform
