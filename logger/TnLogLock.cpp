#include "TnLogLock.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <new>

namespace tnrobotlog {

namespace {

// All of these are used until the very end of the process, after static objects are gone: nothing
// here has a destructor.
pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
CTnProcessGuest* s_pFirstGuest = nullptr;  // guarded by s_mutex
bool s_bEnding = false;                    // guarded by s_mutex
bool s_bChild = false;                     // guarded by s_mutex
std::atomic<bool> s_bForking{false};       // changed under s_mutex
std::atomic<pthread_t> s_forkingThread{};  // changed under s_mutex; meaningless while nobody forks

// Acquire and release suffice: whoever sees that a thread forks sees that thread's number, or that of
// a later one. A thread sees its own only while it forks itself: it takes the word back before it gives
// the lock back.
bool IsForkingThread() {
    return s_bForking.load(std::memory_order_acquire) &&
           pthread_equal(s_forkingThread.load(std::memory_order_relaxed), pthread_self()) != 0;
}

}  // namespace

void TellGuests(void (CTnProcessGuest::*pfnTell)() noexcept) noexcept {
    for (CTnProcessGuest* pGuest = s_pFirstGuest; pGuest != nullptr; pGuest = pGuest->m_pNext) {
        (pGuest->*pfnTell)();
    }
}

namespace {

void PrepareFork() {
    const int nError = errno;
    pthread_mutex_lock(&s_mutex);
    TellGuests(&CTnProcessGuest::WriteWhatWaits);
    s_forkingThread.store(pthread_self(), std::memory_order_relaxed);
    s_bForking.store(true, std::memory_order_release);
    errno = nError;
}

void FinishFork() {
    s_bForking.store(false, std::memory_order_release);
    pthread_mutex_unlock(&s_mutex);
}

void FinishForkInChild() {
    s_bChild = true;
    TellGuests(&CTnProcessGuest::StartAsChild);
    FinishFork();
}

// The handlers go with the library when it is closed.
void WatchForks() {
    static const bool bWatched = [] {
        if (pthread_atfork(PrepareFork, FinishFork, FinishForkInChild) != 0) {
            throw std::bad_alloc();
        }
        return true;
    }();
    static_cast<void>(bWatched);
}

// The lock may be with a thread that writes to a console that nobody reads, or with this very one,
// when the handler of a signal ends the process: it is not waited for much longer than a disk takes.
bool LockAtEnd() {
    constexpr time_t kSeconds = 2;
    timespec until = {};
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += kSeconds;
    return pthread_mutex_timedlock(&s_mutex, &until) == 0;
}

// Runs after the program's own static objects are gone, which may have logged too.
__attribute__((destructor)) void FinishProcess() {
    if (LockAtEnd()) {
        s_bEnding = true;
        TellGuests(&CTnProcessGuest::WriteWhatWaits);
        pthread_mutex_unlock(&s_mutex);
    }
}

}  // namespace

CTnLogLock::CTnLogLock() : m_bTaken(!IsForkingThread()) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_nCancelState);
    if (m_bTaken) {
        pthread_mutex_lock(&s_mutex);
    }
}

CTnLogLock::~CTnLogLock() {
    if (m_bTaken) {
        pthread_mutex_unlock(&s_mutex);
    }
    pthread_setcancelstate(m_nCancelState, nullptr);
}

void CTnProcessGuest::_Enter() {
    WatchForks();
    const CTnLogLock lock;
    m_pNext = s_pFirstGuest;
    s_pFirstGuest = this;
}

void CTnProcessGuest::_Leave() {
    const CTnLogLock lock;
    CTnProcessGuest** ppGuest = &s_pFirstGuest;
    while (*ppGuest != this) {
        ppGuest = &(*ppGuest)->m_pNext;
    }
    *ppGuest = m_pNext;
}

// Relaxed suffices: the caller has the lock, or is the thread that forks and has written it itself.
bool MustWriteAtOnce() {
    return s_bEnding || s_bForking.load(std::memory_order_relaxed);
}

unsigned long ThreadNumber(unsigned long nCached) {
    return s_bChild ? static_cast<unsigned long>(syscall(SYS_gettid)) : nCached;
}

}  // namespace tnrobotlog
