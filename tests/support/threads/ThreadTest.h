// The fixture of every test that has threads.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_THREADS_THREADTEST_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_THREADS_THREADTEST_H_

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <thread>

#include "support/threads/ThreadProbe.h"
#include "support/threads/Watchdog.h"

namespace tntest {

/// A test that must end in time and leave no thread behind.
class ThreadTest : public testing::Test {
protected:
    static constexpr unsigned int kSeconds = 120;

    void SetUp() override {
        StartRuntimeThreads();
        m_nThreadsBefore = CountThreads();
    }

    // A thread that has been joined leaves the system's list a moment later.
    void TearDown() override {
        EXPECT_TRUE(Eventually([this] { return NewThreads() <= 0; })) << NewThreads() << " threads are left behind";
    }

    /// @return threads that have come since the test began.
    int NewThreads() const { return static_cast<int>(CountThreads()) - static_cast<int>(m_nThreadsBefore); }

    /// Waits until exactly so many threads more than at the beginning exist.
    bool AwaitNewThreads(int nThreads) const {
        return Eventually([this, nThreads] { return NewThreads() == nThreads; });
    }

private:
    // A sanitizer may start threads of its own together with the first one of the program.
    static void StartRuntimeThreads() {
        static const bool s_bStarted = [] {
            std::atomic<int> nThread{0};
            std::thread([&nThread] { nThread = ThisThreadNumber(); }).join();
            return Eventually([&nThread] { return !ThreadExists(nThread); });
        }();
        ASSERT_TRUE(s_bStarted);
    }

    Watchdog m_watchdog{kSeconds};
    std::size_t m_nThreadsBefore = 0;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_THREADS_THREADTEST_H_
