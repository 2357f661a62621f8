// Where callers leave references for each other.

#ifndef TNROBOTKERNEL_FUZZ_CONCURRENCY_EXCHANGE_H_
#define TNROBOTKERNEL_FUZZ_CONCURRENCY_EXCHANGE_H_

#include <mutex>
#include <utility>

namespace tnfuzz {

/// Holds one T or an empty one. A T owns references, and is copied under the lock but destroyed outside:
/// the reference that goes may be the last.
///
/// Threads: thread-safe.
template <typename T>
class Exchange {
public:
    /// @return whatever was there.
    T Swap(T held) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::swap(m_held, held);
        return held;
    }

    /// Keeps it where nothing is kept so far, for those who must not release what they find. @return false,
    /// with nothing kept, otherwise.
    bool Offer(const T& held) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_bClosed || m_held) {
            return false;
        }
        m_held = held;
        return true;
    }

    T Copy() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_held;
    }

    /// Takes no more offers, and gives what is there away.
    T Close() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bClosed = true;
        return std::exchange(m_held, T());
    }

private:
    std::mutex m_mutex;
    T m_held;                // guarded by m_mutex
    bool m_bClosed = false;  // guarded by m_mutex
};

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_CONCURRENCY_EXCHANGE_H_
