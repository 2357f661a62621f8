// A gate that threads of a test wait at.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_THREADS_GATE_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_THREADS_GATE_H_

#include <condition_variable>
#include <mutex>

namespace tntest {

/// Closed at first; once opened it stays open. Remembers how many have come to it.
class Gate {
public:
    /// Comes to the gate and waits until it is open.
    void Pass() {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_nArrived;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_bOpen; });
    }

    /// Waits until so many have come.
    void AwaitArrival(int nArrived = 1) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this, nArrived] { return m_nArrived >= nArrived; });
    }

    void Open() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bOpen = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bOpen = false;  // guarded by m_mutex
    int m_nArrived = 0;    // guarded by m_mutex
};

/// Opens a gate at the end of the scope, so that a test that fails half-way leaves nobody waiting.
class OpenAtEnd {
public:
    explicit OpenAtEnd(Gate& gate) : m_gate(gate) {}
    OpenAtEnd(const OpenAtEnd&) = delete;
    OpenAtEnd& operator=(const OpenAtEnd&) = delete;
    ~OpenAtEnd() { m_gate.Open(); }

private:
    Gate& m_gate;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_THREADS_GATE_H_
