// Allocators beside which memory blocks are measured, each a party: a handle, ways to get and to give
// back one, and the handle's bytes.

#ifndef TNROBOTKERNEL_BENCH_MEMORY_ALLOCATORS_H_
#define TNROBOTKERNEL_BENCH_MEMORY_ALLOCATORS_H_

#include <dlfcn.h>

#include <cstdlib>
#include <string>

#include "BenchSupport.h"

#ifdef TNROBOT_BENCH_TBB
#include <tbb/scalable_allocator.h>
#include <tbb/version.h>
#endif

namespace bench {

struct GeneralPool {
    static constexpr const char* kParty = "ours";
    using Handle = ITnRobotMemoryBlock*;

    // Not a local of a function, which would be checked for at each call.
    inline static const auto s_pool = Make<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool);

    static Handle Take(unsigned int nSize) {
        Handle pBlock = nullptr;
        s_pool->QueryMemBuff(nSize, &pBlock);
        return pBlock;
    }
    static void GiveBack(Handle pBlock) { pBlock->Release(); }
    static unsigned char* Bytes(Handle pBlock) {
        unsigned int nSize = 0;
        return pBlock->QueryMemory(nSize);
    }
};

/// What all plain allocators have in common: the handle is the memory.
struct PlainMemory {
    using Handle = unsigned char*;
    static unsigned char* Bytes(Handle pBytes) { return pBytes; }
};

struct Malloc : PlainMemory {
    static constexpr const char* kParty = "glibc";
    static Handle Take(unsigned int nSize) { return static_cast<Handle>(std::malloc(nSize)); }
    static void GiveBack(Handle pBytes) { std::free(pBytes); }
};

/// An allocator that would replace the whole program's when it were linked: Debian builds these
/// libraries with malloc itself among their names. Loaded privately it serves only its own calls.
template <typename Names>
struct LoadedAllocator : PlainMemory {
    static constexpr const char* kParty = Names::kParty;

    /// @return an empty text, or why the library cannot be used.
    static std::string Open() {
        void* pLibrary = dlopen(Names::kLibrary, RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
        if (pLibrary == nullptr) {
            return dlerror();
        }
        s_pfnTake = reinterpret_cast<void* (*)(std::size_t)>(dlsym(pLibrary, Names::kTake));
        s_pfnGiveBack = reinterpret_cast<void (*)(void*)>(dlsym(pLibrary, Names::kGiveBack));
        return s_pfnTake != nullptr && s_pfnGiveBack != nullptr ? "" : "its functions are missing";
    }
    static Handle Take(unsigned int nSize) { return static_cast<Handle>(s_pfnTake(nSize)); }
    static void GiveBack(Handle pBytes) { s_pfnGiveBack(pBytes); }

    static inline void* (*s_pfnTake)(std::size_t) = nullptr;
    static inline void (*s_pfnGiveBack)(void*) = nullptr;
};

struct MimallocNames {
    static constexpr const char* kParty = "mimalloc";
    static constexpr const char* kLibrary = "libmimalloc.so.2";
    static constexpr const char* kTake = "mi_malloc";
    static constexpr const char* kGiveBack = "mi_free";
};
using Mimalloc = LoadedAllocator<MimallocNames>;

// Its thread-local data must lie in the static block, of which a late library gets what the loader
// holds back: scripts/bench.sh asks the loader for enough (glibc.rtld.optional_static_tls).
struct JemallocNames {
    static constexpr const char* kParty = "jemalloc";
    static constexpr const char* kLibrary = "libjemalloc.so.2";
    static constexpr const char* kTake = "malloc";
    static constexpr const char* kGiveBack = "free";
};
using Jemalloc = LoadedAllocator<JemallocNames>;

#ifdef TNROBOT_BENCH_TBB
struct Tbb : PlainMemory {
    static constexpr const char* kParty = "tbb";
    static Handle Take(unsigned int nSize) { return static_cast<Handle>(scalable_malloc(nSize)); }
    static void GiveBack(Handle pBytes) { scalable_free(pBytes); }
};
#endif

/// Which of the loaded allocators this machine has.
struct FoundAllocators {
    explicit FoundAllocators(Program& program)
        : m_bMimalloc(Find<Mimalloc>(program)), m_bJemalloc(Find<Jemalloc>(program)) {
#ifdef TNROBOT_BENCH_TBB
        program.AddPeer("TBB " TBB_VERSION_STRING);
#else
        program.AddAbsentPeer("TBB");
#endif
    }

    bool m_bMimalloc;
    bool m_bJemalloc;

private:
    template <typename Allocator>
    static bool Find(Program& program) {
        const std::string strProblem = Allocator::Open();
        if (strProblem.empty()) {
            program.AddPeer(Allocator::kParty);
        } else {
            program.AddAbsentPeer(std::string(Allocator::kParty) + " (" + strProblem + ")");
        }
        return strProblem.empty();
    }
};

/// Calls function(party) with an object of each allocator's type.
template <typename Function>
void ForEachAllocator(const FoundAllocators& found, Function function) {
    function(Malloc());
    if (found.m_bMimalloc) {
        function(Mimalloc());
    }
    if (found.m_bJemalloc) {
        function(Jemalloc());
    }
#ifdef TNROBOT_BENCH_TBB
    function(Tbb());
#endif
}

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_MEMORY_ALLOCATORS_H_
