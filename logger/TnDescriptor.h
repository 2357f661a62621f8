// A descriptor of the system's that is closed when its holder goes.

#ifndef TNROBOTLOG_TNDESCRIPTOR_H_
#define TNROBOTLOG_TNDESCRIPTOR_H_

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tnrobotlog {

/// Holds a descriptor, or none.
///
/// Threads: externally synchronised.
class CTnDescriptor {
public:
    CTnDescriptor() = default;
    /// @param[in] nNumber  what open answered; below 0 for none.
    explicit CTnDescriptor(int nNumber) : m_nNumber(nNumber) {}
    CTnDescriptor(CTnDescriptor&& other) noexcept : m_nNumber(std::exchange(other.m_nNumber, kNone)) {}
    CTnDescriptor& operator=(CTnDescriptor&& other) noexcept {
        std::swap(m_nNumber, other.m_nNumber);
        return *this;
    }
    CTnDescriptor(const CTnDescriptor&) = delete;
    CTnDescriptor& operator=(const CTnDescriptor&) = delete;
    ~CTnDescriptor() {
        if (IsOpen()) {
            close(m_nNumber);
        }
    }

    bool IsOpen() const { return m_nNumber >= 0; }
    int Get() const { return m_nNumber; }

private:
    static constexpr int kNone = -1;
    int m_nNumber = kNone;
};

/// Repeats a call of the system that a signal has interrupted, which is no failure.
template <typename Call>
auto Uninterrupted(const Call& call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// @return the opened file, or none: errno says why.
inline CTnDescriptor OpenFile(const char* lpszPath, int nFlags, mode_t nMode = 0) {
    return CTnDescriptor(Uninterrupted([=] { return open(lpszPath, nFlags | O_CLOEXEC, nMode); }));
}

}  // namespace tnrobotlog

#endif  // TNROBOTLOG_TNDESCRIPTOR_H_
