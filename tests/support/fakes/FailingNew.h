// Counts the allocations of the program that it is linked into, and refuses chosen ones. It replaces
// the operators of the whole program, and malloc, calloc, realloc and free of everything that is
// linked statically into it, which is why such tests have a program of their own. Starting a thread
// takes memory of the system's own, so it takes its turn among the allocations.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_FAKES_FAILINGNEW_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_FAKES_FAILINGNEW_H_

#include <gtest/gtest.h>

#include <new>

namespace tntest {

/// @return allocations that have not been freed, of all threads.
long LiveAllocations();

/// What the calling thread has asked for since its start, freed or not.
struct Allocated {
    long long nCount = 0;
    long long nBytes = 0;
};
Allocated AllocatedSoFar();

/// Which threads' allocations are counted and refused.
enum class Threads { kCalling, kAll };

/// How many are refused: one, or that one and all that follow.
enum class Refuse { kOne, kAllFrom };

/// While it lives, chosen allocations are refused. There can be one at a time.
class RefusedAllocations {
public:
    /// @param[in] nFirst  the allocation that is refused first, counted from 1.
    RefusedAllocations(long nFirst, Refuse eRefuse, Threads eThreads);
    RefusedAllocations(const RefusedAllocations&) = delete;
    RefusedAllocations& operator=(const RefusedAllocations&) = delete;
    ~RefusedAllocations();

    /// @return what has been refused, threads included.
    static long Count();

    /// @return the threads among that.
    static long CountThreads();
};

/// While it lives, the calling thread has so many allocations left; all further ones fail.
class FailAllocationsAfter {
public:
    explicit FailAllocationsAfter(long nLeft) : m_refused(nLeft + 1, Refuse::kAllFrom, Threads::kCalling) {}

private:
    RefusedAllocations m_refused;
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

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_FAKES_FAILINGNEW_H_
