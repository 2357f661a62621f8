// The program's own definitions of malloc and its kin stand before the C library's, for the libraries
// under test too: operator new ends here as well.

#include "HeapCalls.h"

#include <dlfcn.h>

#include <atomic>
#include <cstddef>

namespace {

std::atomic<long long> g_nCalls{0};  // relaxed: only the number counts

template <typename Function>
Function* NextDefinition(const char* lpszName) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, lpszName));
}

void CountOne() {
    g_nCalls.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

namespace bench {

long long HeapCalls() {
    return g_nCalls.load(std::memory_order_relaxed);
}

}  // namespace bench

extern "C" {

void* malloc(std::size_t nSize) {
    static auto* const s_pfnNext = NextDefinition<void*(std::size_t)>("malloc");
    CountOne();
    return s_pfnNext(nSize);
}

void* calloc(std::size_t nCount, std::size_t nSize) {
    static auto* const s_pfnNext = NextDefinition<void*(std::size_t, std::size_t)>("calloc");
    CountOne();
    return s_pfnNext(nCount, nSize);
}

void* realloc(void* pOld, std::size_t nSize) {
    static auto* const s_pfnNext = NextDefinition<void*(void*, std::size_t)>("realloc");
    CountOne();
    return s_pfnNext(pOld, nSize);
}

void* aligned_alloc(std::size_t nAlignment, std::size_t nSize) {
    static auto* const s_pfnNext = NextDefinition<void*(std::size_t, std::size_t)>("aligned_alloc");
    CountOne();
    return s_pfnNext(nAlignment, nSize);
}

int posix_memalign(void** ppMemory, std::size_t nAlignment, std::size_t nSize) {
    static auto* const s_pfnNext = NextDefinition<int(void**, std::size_t, std::size_t)>("posix_memalign");
    CountOne();
    return s_pfnNext(ppMemory, nAlignment, nSize);
}

}  // extern "C"
