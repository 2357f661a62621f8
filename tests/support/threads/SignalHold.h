// Keeps a thread where it is, whatever it does just then.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_THREADS_SIGNALHOLD_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_THREADS_SIGNALHOLD_H_

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "support/threads/ThreadProbe.h"

namespace tntest {

/// Holds one thread within a signal until it is let go. There is one at a time.
class SignalHold {
public:
    SignalHold() {
        s_bHeld = false;
        EXPECT_EQ(pipe(s_nLetGo), 0);
        struct sigaction action = {};
        action.sa_handler = OnSignal;
        EXPECT_EQ(sigaction(SIGUSR1, &action, &m_before), 0);
    }
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;
    ~SignalHold() {
        sigaction(SIGUSR1, &m_before, nullptr);
        close(s_nLetGo[0]);
        close(s_nLetGo[1]);
    }

    /// Returns when the thread is held.
    void Hold(pthread_t thread) {
        EXPECT_EQ(pthread_kill(thread, SIGUSR1), 0);
        EXPECT_TRUE(Eventually([] { return s_bHeld.load(); }));
    }

    /// @return whether the thread is held, or was.
    static bool HasHeld() { return s_bHeld; }

    void LetGo() { EXPECT_EQ(write(s_nLetGo[1], "x", 1), 1); }

private:
    static void OnSignal(int /*nSignal*/) {
        const int nError = errno;
        s_bHeld = true;
        char c = 0;
        while (read(s_nLetGo[0], &c, 1) < 0) {
        }
        errno = nError;
    }

    inline static std::atomic<bool> s_bHeld{false};
    inline static int s_nLetGo[2] = {-1, -1};
    struct sigaction m_before = {};
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_THREADS_SIGNALHOLD_H_
