#include "support/FailingNew.h"

#include <atomic>
#include <cstdlib>

#include "core/TnChecked.h"

namespace {

constexpr long kNoLimit = -1;

std::atomic<long> g_nLive{0};
thread_local long t_nLeft = kNoLimit;

void* Allocate(std::size_t nSize) noexcept {
    if (t_nLeft == 0) {
        return nullptr;
    }
    void* const p = std::malloc(nSize == 0 ? 1 : nSize);
    if (p != nullptr) {
        ++g_nLive;
        if (t_nLeft > 0) {
            --t_nLeft;
        }
    }
    return p;
}

void* AllocateOrThrow(std::size_t nSize) {
    void* const p = Allocate(nSize);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}

void Free(void* p) noexcept {
    if (p != nullptr) {
        --g_nLive;
        std::free(p);
    }
}

}  // namespace

void* operator new(std::size_t nSize) {
    return AllocateOrThrow(nSize);
}
void* operator new[](std::size_t nSize) {
    return AllocateOrThrow(nSize);
}
void* operator new(std::size_t nSize, const std::nothrow_t&) noexcept {
    return Allocate(nSize);
}
void* operator new[](std::size_t nSize, const std::nothrow_t&) noexcept {
    return Allocate(nSize);
}
void operator delete(void* p) noexcept {
    Free(p);
}
void operator delete[](void* p) noexcept {
    Free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    Free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    Free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    Free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    Free(p);
}

namespace tntest {

// Checked builds keep the memory of destroyed objects for a while; it is not in use.
long LiveAllocations() {
    if constexpr (tnrobot::kChecked) {
        tnrobot::checked::EmptyQuarantine();
    }
    return g_nLive;
}

FailAllocationsAfter::FailAllocationsAfter(long nLeft) {
    t_nLeft = nLeft;
}

FailAllocationsAfter::~FailAllocationsAfter() {
    t_nLeft = kNoLimit;
}

}  // namespace tntest
