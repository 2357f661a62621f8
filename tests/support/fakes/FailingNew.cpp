#include "support/fakes/FailingNew.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "checked/TnChecked.h"

// The linker sends every call of malloc to __wrap_malloc, and this file's calls of __real_malloc to
// the C library, or to the sanitizer that stands in its place.
extern "C" {
void* __real_malloc(std::size_t nSize);
void* __real_calloc(std::size_t nCount, std::size_t nSize);
void* __real_realloc(void* p, std::size_t nSize);
void __real_free(void* p);

void* __wrap_malloc(std::size_t nSize);
void* __wrap_calloc(std::size_t nCount, std::size_t nSize);
void* __wrap_realloc(void* p, std::size_t nSize);
void __wrap_free(void* p);
}

namespace {

std::atomic<long> g_nLive{0};

// The plan changes only while no allocation of the threads it is for can happen.
std::atomic<bool> g_bAllThreads{false};
thread_local bool t_bThisThread = false;
std::atomic<long> g_nFirst{0};
std::atomic<bool> g_bOnlyOne{false};
std::atomic<long> g_nAsked{0};
std::atomic<long> g_nRefused{0};
std::atomic<long> g_nRefusedThreads{0};

// Memory of a checked build's own is neither refused nor counted.
bool IsOfTheChecks() noexcept {
    if constexpr (tnrobot::kChecked) {
        return tnrobot::checked::IsOwnAllocation();
    } else {
        return false;
    }
}

bool IsRefused() noexcept {
    if (IsOfTheChecks()) {
        return false;
    }
    if (!t_bThisThread && !g_bAllThreads) {
        return false;
    }
    const long nThis = ++g_nAsked;
    const bool bRefused = g_bOnlyOne ? nThis == g_nFirst : nThis >= g_nFirst;
    if (bRefused) {
        ++g_nRefused;
    }
    return bRefused;
}

void* Counted(void* p) noexcept {
    if (p != nullptr && !IsOfTheChecks()) {
        ++g_nLive;
    }
    return p;
}

thread_local tntest::Allocated t_allocated;

void Note(std::size_t nSize) noexcept {
    ++t_allocated.nCount;
    t_allocated.nBytes += static_cast<long long>(nSize);
}

void* Allocate(std::size_t nSize) noexcept {
    Note(nSize);
    return IsRefused() ? nullptr : Counted(__real_malloc(nSize == 0 ? 1 : nSize));
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
        g_nLive -= IsOfTheChecks() ? 0 : 1;
        __real_free(p);
    }
}

}  // namespace

void* __wrap_malloc(std::size_t nSize) {
    Note(nSize);
    return IsRefused() ? nullptr : Counted(__real_malloc(nSize));
}
void* __wrap_calloc(std::size_t nCount, std::size_t nSize) {
    Note(nCount * nSize);
    return IsRefused() ? nullptr : Counted(__real_calloc(nCount, nSize));
}
void* __wrap_realloc(void* p, std::size_t nSize) {
    Note(nSize);
    if (IsRefused()) {
        return nullptr;
    }
    void* const pNew = __real_realloc(p, nSize);
    return p == nullptr ? Counted(pNew) : pNew;
}
void __wrap_free(void* p) {
    Free(p);
}

// The program's own definition comes before the C library's, also for the C++ library.
extern "C" int pthread_create(pthread_t* pThread, const pthread_attr_t* pAttributes, void* (*pfnStart)(void*),
                              void* pArgument) noexcept {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto s_pfnCreate = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (IsRefused()) {
        ++g_nRefusedThreads;
        return EAGAIN;
    }
    return s_pfnCreate(pThread, pAttributes, pfnStart, pArgument);
}

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
        tnrobot::checked::FreeKept();
    }
    return g_nLive;
}

Allocated AllocatedSoFar() {
    return t_allocated;
}

RefusedAllocations::RefusedAllocations(long nFirst, Refuse eRefuse, Threads eThreads) {
    g_nFirst = nFirst;
    g_bOnlyOne = eRefuse == Refuse::kOne;
    g_nAsked = 0;
    g_nRefused = 0;
    g_nRefusedThreads = 0;
    t_bThisThread = eThreads == Threads::kCalling;
    g_bAllThreads = eThreads == Threads::kAll;
}

RefusedAllocations::~RefusedAllocations() {
    t_bThisThread = false;
    g_bAllThreads = false;
}

long RefusedAllocations::Count() {
    return g_nRefused;
}

long RefusedAllocations::CountThreads() {
    return g_nRefusedThreads;
}

}  // namespace tntest
