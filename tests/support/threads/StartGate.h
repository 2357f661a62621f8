// Lets threads of a test begin together.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_THREADS_STARTGATE_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_THREADS_STARTGATE_H_

#include <condition_variable>
#include <mutex>

namespace tntest {

/// Every thread waits until as many as were announced have arrived.
class StartGate {
public:
    explicit StartGate(int nThreads) : m_nMissing(nThreads) {}

    void ArriveAndWait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (--m_nMissing == 0) {
            m_opened.notify_all();
        }
        m_opened.wait(lock, [this] { return m_nMissing <= 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_opened;
    int m_nMissing;  // guarded by m_mutex
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_THREADS_STARTGATE_H_
