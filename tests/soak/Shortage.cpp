#include "soak/Shortage.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

namespace {

using tnsoak::Shortage;

std::atomic<Shortage> g_eShortage{Shortage::kNone};
std::atomic<unsigned int> g_nChanges{0};  // odd while there is a shortage
std::atomic<long long> g_nRefused{0};
thread_local int t_nSpared = 0;

bool Refuse(bool bRefused) {
    if (bRefused) {
        g_nRefused.fetch_add(1, std::memory_order_relaxed);
    }
    return bRefused;
}

bool IsThreadRefused() {
    return Refuse(g_eShortage.load(std::memory_order_relaxed) == Shortage::kThreads && t_nSpared == 0);
}

}  // namespace

// The program's own definition comes before the C library's, also for the C++ library.
extern "C" int pthread_create(pthread_t* pThread, const pthread_attr_t* pAttributes, void* (*pfnStart)(void*),
                              void* pArgument) noexcept {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto s_pfnCreate = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return IsThreadRefused() ? EAGAIN : s_pfnCreate(pThread, pAttributes, pfnStart, pArgument);
}

#ifdef TNROBOT_SOAK_REFUSES_MEMORY
namespace {

thread_local unsigned int t_nAsked = 0;

bool IsMemoryRefused() {
    constexpr unsigned int kOneOf = 61;  // shares no factor with how often a piece of work allocates
    const Shortage eShortage = g_eShortage.load(std::memory_order_relaxed);
    if (eShortage == Shortage::kNone || eShortage == Shortage::kThreads || t_nSpared != 0) {
        return false;
    }
    return Refuse(eShortage == Shortage::kMemory || ++t_nAsked % kOneOf == 0);
}

void* Allocate(std::size_t nSize) {
    return IsMemoryRefused() ? nullptr : std::malloc(nSize == 0 ? 1 : nSize);
}

void* AllocateOrThrow(std::size_t nSize) {
    void* const p = Allocate(nSize);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
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
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
#endif

namespace tnsoak {

bool CanRefuseMemory() {
#ifdef TNROBOT_SOAK_REFUSES_MEMORY
    return true;
#else
    return false;
#endif
}

// What a piece of work meets between the two stores counts as a shortage on either side.
void SetShortage(Shortage eShortage) {
    const bool bBegins = eShortage != Shortage::kNone;
    const bool bWas = g_nChanges % 2 == 1;
    if (bBegins && !bWas) {
        ++g_nChanges;
    }
    g_eShortage = eShortage;
    if (!bBegins && bWas) {
        ++g_nChanges;
    }
}

long long Refused() {
    return g_nRefused;
}

Spared::Spared() {
    ++t_nSpared;
}

Spared::~Spared() {
    --t_nSpared;
}

Weather::Weather() : m_nAtBegin(g_nChanges) {}

bool Weather::WasShort() const {
    return m_nAtBegin % 2 == 1 || g_nChanges != m_nAtBegin;
}

}  // namespace tnsoak
