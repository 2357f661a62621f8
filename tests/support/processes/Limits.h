// Limits of the process that make the system refuse, for as long as they live.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_LIMITS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_LIMITS_H_

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <vector>

namespace tntest {

/// Ignores a signal that would end the process.
class IgnoreSignal {
public:
    explicit IgnoreSignal(int nSignal) : m_nSignal(nSignal) {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        sigaction(nSignal, &ignore, &m_before);
    }
    IgnoreSignal(const IgnoreSignal&) = delete;
    IgnoreSignal& operator=(const IgnoreSignal&) = delete;
    ~IgnoreSignal() { sigaction(m_nSignal, &m_before, nullptr); }

private:
    int m_nSignal;
    struct sigaction m_before = {};
};

/// No file may grow beyond so many bytes: the write that tries is cut there, and the next one
/// fails, as on a full file system. It also holds for the test's own files and its output, so it
/// must not live longer than the calls that it is for.
class FileSizeLimit {
public:
    explicit FileSizeLimit(std::size_t nBytes) {
        rlimit limit = {};
        if (getrlimit(RLIMIT_FSIZE, &m_before) == 0) {
            limit = m_before;
            limit.rlim_cur = nBytes;
        }
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
            throw std::runtime_error("file sizes cannot be limited");
        }
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }

private:
    IgnoreSignal m_ignore{SIGXFSZ};
    rlimit m_before = {};
};

/// The process has no more than nLeft descriptors left.
class DescriptorLimit {
public:
    explicit DescriptorLimit(std::size_t nLeft) {
        for (int n = Take(); n >= 0; n = Take()) {
            m_taken.push_back(n);
            if (m_taken.size() == 1) {
                Lower(n);
            }
        }
        for (; nLeft > 0 && !m_taken.empty(); --nLeft) {
            Close();
        }
    }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;
    ~DescriptorLimit() {
        while (!m_taken.empty()) {
            Close();
        }
        setrlimit(RLIMIT_NOFILE, &m_before);
    }

private:
    static int Take() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

    // So that there are few to take.
    void Lower(int nFirst) {
        constexpr rlim_t kMore = 16;
        if (getrlimit(RLIMIT_NOFILE, &m_before) != 0) {
            throw std::runtime_error("descriptors cannot be limited");
        }
        rlimit limit = m_before;
        limit.rlim_cur = static_cast<rlim_t>(nFirst) + kMore;
        setrlimit(RLIMIT_NOFILE, &limit);
    }

    void Close() {
        close(m_taken.back());
        m_taken.pop_back();
    }

    std::vector<int> m_taken;
    rlimit m_before = {};
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_LIMITS_H_
