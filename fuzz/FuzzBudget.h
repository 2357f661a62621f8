// Ends the process when an input takes time or memory out of proportion to its length.

#ifndef TNROBOTKERNEL_FUZZ_FUZZBUDGET_H_
#define TNROBOTKERNEL_FUZZ_FUZZBUDGET_H_

#include <atomic>
#include <cstddef>
#include <ctime>

#include "FuzzInput.h"

#if defined(__SANITIZE_ADDRESS__)
#define TNFUZZ_COUNTS_MEMORY
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TNFUZZ_COUNTS_MEMORY
#endif
#endif

#ifdef TNFUZZ_COUNTS_MEMORY
// Of the sanitizer's run-time library; not every compiler brings the header.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*pfnAllocate)(const volatile void*, std::size_t),
                                              void (*pfnFree)(const volatile void*));
std::size_t __sanitizer_get_allocated_size(const volatile void* p);
}
#endif

namespace tnfuzz {

#ifdef TNFUZZ_COUNTS_MEMORY
/// Bytes of all that is allocated now, as far as AddressSanitizer tells of each piece, and the most there
/// were since the last Restart. Memory that was allocated before the first one does not count.
class MemoryCount {
public:
    /// @return the count now.
    static long long Restart() {
        static const int s_nInstalled = __sanitizer_install_malloc_and_free_hooks(OnAllocate, OnFree);
        Require(s_nInstalled != 0, "allocations can be counted");
        s_nMost = s_nNow.load();
        return s_nMost;
    }
    /// @return by how much the count has been above what it is told was there at first.
    static long long Most(long long nBefore) { return s_nMost - nBefore; }

private:
    static void OnAllocate(const volatile void* /*p*/, std::size_t nBytes) {
        const long long nNow = s_nNow += static_cast<long long>(nBytes);
        if (nNow > s_nMost) {
            s_nMost = nNow;
        }
    }
    static void OnFree(const volatile void* p) {
        if (p != nullptr) {
            s_nNow -= static_cast<long long>(__sanitizer_get_allocated_size(p));
        }
    }

    static inline std::atomic<long long> s_nNow{0};
    static inline std::atomic<long long> s_nMost{0};
};
#else
/// Other builds do not count memory.
class MemoryCount {
public:
    static long long Restart() { return 0; }
    static long long Most(long long /*nBefore*/) { return 0; }
};
#endif

/// What one input may cost.
struct FuzzLimits {
    long long m_nBytes = 1 << 20;      ///< of memory, whatever the input
    long long m_nBytesPerByte = 1024;  ///< of memory beside, for each byte of input
    double m_dSeconds = 1;             ///< of the processor's time
    double m_dSecondsPerByte = 5e-5;
};

/// Pictures may take the time and memory of some that are large and compress well.
constexpr FuzzLimits PictureLimits(long long nMiB, long long nBytesPerByte) {
    return {nMiB << 20, nBytesPerByte, 10, 0};
}

/// Fails an input that costs more. A target makes one before it does anything else; its end is the check.
///
/// The bounds leave room for sanitizers, for models and for several passes over the same input. What they
/// stand against takes many times as much: a count that is believed, a search that meets all others.
class FuzzBudget {
public:
    explicit FuzzBudget(std::size_t nInput, const FuzzLimits& limits = {})
        : m_nInput(nInput), m_limits(limits), m_nBefore(MemoryCount::Restart()), m_dStart(ThreadSeconds()) {}
    FuzzBudget(const FuzzBudget&) = delete;
    FuzzBudget& operator=(const FuzzBudget&) = delete;
    ~FuzzBudget() {
        const double dSeconds = ThreadSeconds() - m_dStart;
        Require(dSeconds <= m_limits.m_dSeconds + m_limits.m_dSecondsPerByte * static_cast<double>(m_nInput),
                "time is in proportion to the input");
        Require(MemoryCount::Most(m_nBefore) <=
                    m_limits.m_nBytes + m_limits.m_nBytesPerByte * static_cast<long long>(m_nInput),
                "memory is in proportion to the input");
    }

private:
    // The processor's time: other work on the machine does not count.
    static double ThreadSeconds() {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    }

    const std::size_t m_nInput;
    const FuzzLimits m_limits;
    const long long m_nBefore;
    const double m_dStart;
};

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_FUZZBUDGET_H_
