// Lets all threads of a test start together.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_STARTLINE_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_STARTLINE_H_

#include <condition_variable>
#include <mutex>

namespace tntest {

/// Every thread calls Arrive, which returns once all of them have.
class StartLine {
public:
    explicit StartLine(int nThreads) : m_nMissing(nThreads) {}

    void Arrive() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (--m_nMissing == 0) {
            m_allHere.notify_all();
        }
        m_allHere.wait(lock, [this] { return m_nMissing == 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_allHere;
    int m_nMissing;  // guarded by m_mutex
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_STARTLINE_H_
