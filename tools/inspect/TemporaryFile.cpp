#include "TemporaryFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace {

/// What a signal removes; null when there is nothing.
std::atomic<const char*> g_lpszTemporary = nullptr;
static_assert(std::atomic<const char*>::is_always_lock_free, "a signal handler reads it");

}  // namespace

// The signal's own action is back already and follows as soon as the handler returns, so that the
// program ends as if there had been no handler.
extern "C" {
static void RemoveTemporaryFile(int nSignal) {
    const char* lpszTemporary = g_lpszTemporary.load();
    if (lpszTemporary != nullptr) {
        unlink(lpszTemporary);
    }
    raise(nSignal);
}
}

BlockedSignals::BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_before);
}

BlockedSignals::~BlockedSignals() {
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

TemporaryFile::TemporaryFile(const std::string& strTemplate, const std::string& strEnding) {
    Create(strTemplate, strEnding);
}

// A signal that interrupts it, as on a file system of another machine, is no failure.
void TemporaryFile::Create(const std::string& strTemplate, const std::string& strEnding) {
    const BlockedSignals blocked;
    do {
        m_strPath = strTemplate + strEnding;
        m_nFile = mkostemps(m_strPath.data(), static_cast<int>(strEnding.size()), O_CLOEXEC);
    } while (m_nFile < 0 && errno == EINTR);
    if (m_nFile < 0) {
        m_nError = errno;
    } else {
        g_lpszTemporary = m_strPath.c_str();
        HandleSignals();
    }
}

TemporaryFile::~TemporaryFile() {
    if (m_nFile < 0) {
        return;
    }
    const BlockedSignals blocked;
    close(m_nFile);
    if (g_lpszTemporary.exchange(nullptr) != nullptr) {
        unlink(m_strPath.c_str());
    }
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], &m_before[i], nullptr);
    }
}

void TemporaryFile::Keep() {
    g_lpszTemporary = nullptr;
}

void TemporaryFile::HandleSignals() {
    struct sigaction remove = {};
    remove.sa_handler = RemoveTemporaryFile;
    remove.sa_flags = static_cast<int>(SA_RESETHAND);
    sigfillset(&remove.sa_mask);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], nullptr, &m_before[i]);
        if (m_before[i].sa_handler != SIG_IGN) {
            sigaction(kSignals[i], &remove, nullptr);
        }
    }
}
