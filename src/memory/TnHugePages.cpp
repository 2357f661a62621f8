// The advice covers the whole huge pages within the memory, of which there must be one at least.

#include "memory/TnHugePages.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdint>

namespace {

// From here on at least one whole huge page lies within the memory, wherever it starts. Smaller
// memory is left alone: it may well stay mostly unused.
constexpr std::size_t kLeastSize = 2 * tnrobot::kHugePage;

}  // namespace

void tnrobot::AskForHugePages(unsigned char* pMemory, std::size_t nSize) {
    if (nSize < kLeastSize) {
        return;
    }
    const auto nStart = reinterpret_cast<std::uintptr_t>(pMemory);
    const std::uintptr_t nFirst = (nStart + kHugePage - 1) / kHugePage * kHugePage;
    const std::uintptr_t nEnd = (nStart + nSize) / kHugePage * kHugePage;
    const int nErrorBefore = errno;
    madvise(pMemory + (nFirst - nStart), nEnd - nFirst, MADV_HUGEPAGE);
    errno = nErrorBefore;  // advice that is not followed is no error
}
