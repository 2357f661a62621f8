// Which sanitizers the tests are built with, for the few that must know: each has a limit of its own.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_SANITIZERS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_SANITIZERS_H_

#if defined(__has_feature)
#define TNTEST_HAS_FEATURE(name) __has_feature(name)
#else
#define TNTEST_HAS_FEATURE(name) 0
#endif

namespace tntest {

#if defined(__SANITIZE_ADDRESS__) || TNTEST_HAS_FEATURE(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

#if defined(__SANITIZE_THREAD__) || TNTEST_HAS_FEATURE(thread_sanitizer)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif

/// Whether what a program has allocated cannot be told from the size of its process.
constexpr bool kSanitizerOwnsMemory = kAddressSanitizer || kThreadSanitizer;

/// Why a test of one thread that calls itself thousands of times deep is left out under
/// ThreadSanitizer.
constexpr const char* kKeepsEveryStack =
    "ThreadSanitizer keeps the stack of each allocation and lock: gigabytes when calls nest deeply";

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_SANITIZERS_H_
