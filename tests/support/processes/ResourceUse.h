// How much time and memory a piece of work takes.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_RESOURCEUSE_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_RESOURCEUSE_H_

#include <chrono>
#include <functional>

#include "support/processes/Sanitizers.h"

namespace tntest {

constexpr long long kMiB = 1024 * 1024;

/// Runs the work in a child process.
/// @return by how many bytes the child's address space grew at its peak, touched or not; -1 when
///         the child did not end well or a test's expectation failed in it. 0 under a sanitizer whose own memory would
///         drown the answer.
long long PeakGrowth(const std::function<void()>& work);

/// @return seconds of processor time that the work took in this thread: other work on the machine
///         does not count.
double SecondsFor(const std::function<void()>& work);

/// @return how often this thread has given its processor away to wait for something during the work: being
///         stopped, however long, does not count.
long WaitsDuring(const std::function<void()>& work);

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_RESOURCEUSE_H_
