// Large memory from few, large pages, where the system has any to give.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNHUGEPAGES_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNHUGEPAGES_H_

#include <cstddef>

namespace tnrobot {

/// Bytes of a huge page, and where one may begin.
constexpr std::size_t kHugePage = std::size_t{2} << 20U;

/// Asks the system for huge pages in memory that has not been written to yet. The first use of a
/// large block is mostly the system's work of finding its pages: one of 2 MiB is found and cleared in
/// a fraction of the time of 512 of 4 KiB. It is advice: where the system cannot or may not follow,
/// the pages are ordinary ones. No memory beyond [pMemory, pMemory + nSize) is asked for.
/// Threads: thread-safe.
void AskForHugePages(unsigned char* pMemory, std::size_t nSize);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNHUGEPAGES_H_
