// Whole huge pages are asked for: of such sizes newer systems choose the place so that they fit, when a
// piece is made and when it is moved. Where they do not, its two ends are of ordinary pages.

#include "memory/TnMappedMemory.h"

#include <sys/mman.h>

#include <cerrno>

#include "memory/TnHugePages.h"

namespace tnrobot {

namespace {

std::size_t WholePages(std::size_t nSize) {
    return (nSize + kHugePage - 1) / kHugePage * kHugePage;
}

// For all of it, whatever the place: a piece of two kinds could not be moved at once.
void AdviseHugePages(void* pMemory, std::size_t nBytes) {
    const int nErrorBefore = errno;
    madvise(pMemory, nBytes, MADV_HUGEPAGE);
    errno = nErrorBefore;  // advice that is not followed is no error
}

unsigned char* OrNull(void* pMapping) {
    return pMapping != MAP_FAILED ? static_cast<unsigned char*>(pMapping) : nullptr;
}

}  // namespace

unsigned char* MapMemory(std::size_t nSize) {
    const std::size_t nBytes = WholePages(nSize);
    unsigned char* pMemory = OrNull(mmap(nullptr, nBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (pMemory != nullptr) {
        AdviseHugePages(pMemory, nBytes);
    }
    return pMemory;
}

// What was asked for the piece holds for the larger one too.
unsigned char* GrowMapped(unsigned char* pMemory, std::size_t nOldSize, std::size_t nNewSize) {
    return OrNull(mremap(pMemory, WholePages(nOldSize), WholePages(nNewSize), MREMAP_MAYMOVE));
}

void UnmapMemory(unsigned char* pMemory, std::size_t nSize) {
    munmap(pMemory, WholePages(nSize));
}

}  // namespace tnrobot
