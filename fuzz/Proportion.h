// What a fuzz target may cost: memory and time in proportion to its input.

#ifndef TNROBOTKERNEL_FUZZ_PROPORTION_H_
#define TNROBOTKERNEL_FUZZ_PROPORTION_H_

#include <atomic>
#include <cstddef>
#include <ctime>

#include "FuzzInput.h"

// Of the sanitizers, which own the allocator; null in builds without them.
extern "C" __attribute__((weak)) int __sanitizer_install_malloc_and_free_hooks(
    void (*pfnAllocated)(const volatile void*, std::size_t), void (*pfnFreed)(const volatile void*));

namespace tnfuzz {

/// Fails the input whose work, from the object's start to its end, takes too much.
///
/// All memory that is allocated counts, libjpeg's too, whether or not it is freed again. It is counted
/// where a sanitizer tells of it, which the fuzzers' builds do.
class Proportion {
public:
    /// @param[in] nModest   bytes that any input may cost.
    /// @param[in] nPerByte  bytes that each byte of input may cost beside.
    Proportion(std::size_t nInput, std::size_t nModest, std::size_t nPerByte)
        : m_nMost(nModest + nInput * nPerByte), m_dStart(Seconds()) {
        static const bool s_bCounting = StartCounting();
        static_cast<void>(s_bCounting);
        Allocated() = 0;
    }
    Proportion(const Proportion&) = delete;
    Proportion& operator=(const Proportion&) = delete;

    ~Proportion() {
        // Far more than anything takes here, also on a busy machine: only processor time counts.
        constexpr double kMostSeconds = 10;
        Require(Allocated() <= m_nMost, "memory is in proportion to the input");
        Require(Seconds() - m_dStart <= kMostSeconds, "time is in proportion to the input");
    }

private:
    static std::atomic<std::size_t>& Allocated() {
        static std::atomic<std::size_t> s_nAllocated{0};
        return s_nAllocated;
    }

    static bool StartCounting() {
        return __sanitizer_install_malloc_and_free_hooks != nullptr &&
               __sanitizer_install_malloc_and_free_hooks(
                   [](const volatile void* /*p*/, std::size_t nSize) { Allocated() += nSize; },
                   [](const volatile void* /*p*/) {}) != 0;
    }

    static double Seconds() {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    }

    std::size_t m_nMost;
    double m_dStart;
};

constexpr std::size_t kMiB = std::size_t{1} << 20;

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_PROPORTION_H_
