// Counts the allocations of the program that it is linked into, and lets them fail on demand. It
// replaces the operators of the whole program, which is why such tests have one of their own.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_FAILINGNEW_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_FAILINGNEW_H_

#include <gtest/gtest.h>

#include <new>

namespace tntest {

/// @return allocations that have not been freed, of all threads.
long LiveAllocations();

/// While it lives, the calling thread has so many allocations left; all further ones fail.
class FailAllocationsAfter {
public:
    explicit FailAllocationsAfter(long nLeft);
    FailAllocationsAfter(const FailAllocationsAfter&) = delete;
    FailAllocationsAfter& operator=(const FailAllocationsAfter&) = delete;
    ~FailAllocationsAfter();
};

/// Runs the work with no allocation to spare, then with one, two ... until it gets through. After
/// every failure nothing may be left allocated.
/// @param[in] work  cleans up behind itself, also when an allocation throws.
template <typename Work>
void FailEveryAllocation(Work work) {
    constexpr long kMost = 10000;
    for (long nLeft = 0; nLeft < kMost; ++nLeft) {
        const long nBefore = LiveAllocations();
        try {
            const FailAllocationsAfter failing(nLeft);
            work();
            return;
        } catch (const std::bad_alloc&) {
        }
        EXPECT_EQ(LiveAllocations(), nBefore) << "with " << nLeft << " allocations";
    }
    ADD_FAILURE() << "never gets through";
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_FAILINGNEW_H_
