// The process's open descriptors, seen from outside.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_DESCRIPTORS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_DESCRIPTORS_H_

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace tntest {

/// @return how many descriptors the process has open; the count takes one of its own, always.
inline std::size_t CountDescriptors() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator()));
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_DESCRIPTORS_H_
