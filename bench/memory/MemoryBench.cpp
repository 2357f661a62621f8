// Memory blocks beside the allocators, the data stream beside a vector and a plain copy.

#include <dlfcn.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <vector>

#include "BenchSupport.h"

namespace {

constexpr unsigned int kKiB = 1024;
constexpr unsigned int kMiB = 1024 * kKiB;
constexpr unsigned int kPage = 4096;

struct NamedSize {
    const char* m_lpszName;
    unsigned int m_nBytes;
};

constexpr NamedSize kSizes[] = {{"32KiB", 32 * kKiB}, {"1MiB", kMiB}, {"8MiB", 8 * kMiB}, {"24MiB", 24 * kMiB}};

// The parties: each has a handle, ways to get and to give back one, and the handle's bytes.

struct Ours {
    using Handle = ITnRobotMemoryBlock*;

    // Not a local of a function, which would be checked for at each call.
    inline static const auto s_pool = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool);
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

struct Malloc {
    using Handle = unsigned char*;
    static Handle Take(unsigned int nSize) { return static_cast<Handle>(std::malloc(nSize)); }
    static void GiveBack(Handle pBytes) { std::free(pBytes); }
    static unsigned char* Bytes(Handle pBytes) { return pBytes; }
};

// A general allocator made for speed, where the machine has it.
struct Mimalloc {
    using Handle = unsigned char*;
    static constexpr const char* kLibrary = "libmimalloc.so.2";

    static bool Open() {
        void* pLibrary = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
        if (pLibrary == nullptr) {
            return false;
        }
        s_pfnTake = reinterpret_cast<void* (*)(std::size_t)>(dlsym(pLibrary, "mi_malloc"));
        s_pfnGiveBack = reinterpret_cast<void (*)(void*)>(dlsym(pLibrary, "mi_free"));
        return s_pfnTake != nullptr && s_pfnGiveBack != nullptr;
    }
    static Handle Take(unsigned int nSize) { return static_cast<Handle>(s_pfnTake(nSize)); }
    static void GiveBack(Handle pBytes) { s_pfnGiveBack(pBytes); }
    static unsigned char* Bytes(Handle pBytes) { return pBytes; }

    static inline void* (*s_pfnTake)(std::size_t) = nullptr;
    static inline void (*s_pfnGiveBack)(void*) = nullptr;
};

void WriteEveryPage(unsigned char* pBytes, unsigned int nSize) {
    for (unsigned int nOffset = 0; nOffset < nSize; nOffset += kPage) {
        pBytes[nOffset] = static_cast<unsigned char>(nOffset / kPage);
    }
    benchmark::ClobberMemory();
}

template <typename Party>
void TakeAndGiveBack(benchmark::State& state, unsigned int nSize, bool bWrite) {
    const auto once = [&] {
        benchmark::DoNotOptimize(nSize);
        auto handle = Party::Take(nSize);
        benchmark::DoNotOptimize(handle);
        if (bWrite) {
            WriteEveryPage(Party::Bytes(handle), nSize);
        }
        Party::GiveBack(handle);
    };
    once();  // the first time the system has to find the memory
    for (auto _ : state) {
        once();
    }
}

// What a recycled block costs at the very least: the locks of the size classes, of the query and of
// the return, and the time of the return.
void ThreeLocksAndClock(benchmark::State& state) {
    std::mutex locks[3];
    for (auto _ : state) {
        for (std::mutex& mutex : locks) {
            std::lock_guard<std::mutex> lock(mutex);
            benchmark::ClobberMemory();
        }
        auto now = std::chrono::system_clock::now();
        benchmark::DoNotOptimize(now);
    }
}

/// Eight buffers of mixed sizes, as an application holds them; each step replaces the oldest.
template <typename Party>
class MixedBuffers {
public:
    static constexpr int kSteps = 64;

    MixedBuffers() {
        constexpr unsigned int kChoice[] = {32 * kKiB, 64 * kKiB, 128 * kKiB, 256 * kKiB, 512 * kKiB, kMiB,
                                            2 * kMiB,  4 * kMiB,  8 * kMiB,   16 * kMiB,  24 * kMiB};
        std::minstd_rand random(1);
        for (unsigned int& nSize : m_sizes) {
            nSize = kChoice[random() % std::size(kChoice)];
        }
        for (auto& handle : m_alive) {
            handle = Party::Take(kPage);
        }
    }
    MixedBuffers(const MixedBuffers&) = delete;
    MixedBuffers& operator=(const MixedBuffers&) = delete;
    ~MixedBuffers() {
        for (auto handle : m_alive) {
            Party::GiveBack(handle);
        }
    }

    /// The same kSteps replacements at each call, so that every party does the same work.
    void ReplaceAll() {
        for (std::size_t i = 0; i < m_sizes.size(); ++i) {
            auto& oldest = m_alive[i % m_alive.size()];
            Party::GiveBack(oldest);
            oldest = Party::Take(m_sizes[i]);
            benchmark::DoNotOptimize(oldest);
            WriteEveryPage(Party::Bytes(oldest), m_sizes[i]);
        }
    }

private:
    std::array<unsigned int, kSteps> m_sizes{};
    std::array<typename Party::Handle, 8> m_alive{};
};

template <typename Party>
void ReplaceMixed(benchmark::State& state) {
    MixedBuffers<Party> buffers;
    buffers.ReplaceAll();
    for (auto _ : state) {
        buffers.ReplaceAll();
    }
}

constexpr unsigned int kStreamBytes = 64 * kMiB;
constexpr unsigned int kPieceBytes = 4 * kKiB;

// Sixteen bytes past a cache line, as allocators place large blocks: where source and target differ
// in their place within a line, the processor copies at half the speed, and the cases would compare
// places instead of code.
const unsigned char* Piece() {
    constexpr std::size_t kLargeBlockOffset = 16;
    alignas(kPage) static const std::array<unsigned char, 2 * kPage> s_bytes{};
    return s_bytes.data() + kPage / 2 + kLargeBlockOffset;
}

void AppendToStream(benchmark::State& state) {
    const auto stream = bench::Make<ITnRobotMemDataStream>(TnCreateRobotMemDataStream, Ours::s_pool.get());
    const auto append = [&] {
        for (unsigned int nDone = 0; nDone < kStreamBytes; nDone += kPieceBytes) {
            const unsigned char* pPiece = Piece();
            benchmark::DoNotOptimize(pPiece);
            stream->WriteData(pPiece, kPieceBytes);
        }
        benchmark::ClobberMemory();
        bench::Require(stream->GetTotleLength() == kStreamBytes, "the stream refused data");
        stream->Clear();
    };
    append();  // from here on every block is a recycled one
    for (auto _ : state) {
        append();
    }
}

void AppendToFreshVector(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<char> bytes;
        for (unsigned int nDone = 0; nDone < kStreamBytes; nDone += kPieceBytes) {
            const unsigned char* pPiece = Piece();
            benchmark::DoNotOptimize(pPiece);
            bytes.insert(bytes.end(), pPiece, pPiece + kPieceBytes);
        }
        benchmark::DoNotOptimize(bytes.data());
        benchmark::ClobberMemory();
    }
}

void CopyPieces(unsigned char* pTarget, unsigned int nBytes) {
    for (unsigned int nDone = 0; nDone < nBytes; nDone += kPieceBytes) {
        const unsigned char* pPiece = Piece();
        benchmark::DoNotOptimize(pPiece);
        std::memcpy(pTarget + nDone, pPiece, kPieceBytes);
    }
    benchmark::ClobberMemory();
}

void CopyToFlatMemory(benchmark::State& state) {
    std::vector<unsigned char> bytes(kStreamBytes, 1);
    for (auto _ : state) {
        CopyPieces(bytes.data(), kStreamBytes);
    }
}

// The copy that the stream cannot beat: to the very blocks that it has recycled, in the same order.
void CopyToRecycledBlocks(benchmark::State& state) {
    std::vector<Ours::Handle> blocks(kStreamBytes / kMiB);
    const auto copy = [&] {
        for (Ours::Handle& pBlock : blocks) {
            pBlock = Ours::Take(kMiB);
            CopyPieces(Ours::Bytes(pBlock), kMiB);
        }
        for (Ours::Handle pBlock : blocks) {
            Ours::GiveBack(pBlock);
        }
    };
    copy();
    for (auto _ : state) {
        copy();
    }
}

template <typename Party>
void RegisterBlock(const char* lpszParty, int nThreads, const NamedSize& size, bool bWrite) {
    const std::string strCase = bWrite ? "BlockWritten/" : "BlockUntouched/";
    bench::Register(
        strCase + lpszParty + "/" + size.m_lpszName, nThreads,
        [nSize = size.m_nBytes, bWrite](benchmark::State& state) { TakeAndGiveBack<Party>(state, nSize, bWrite); });
}

void RegisterBlocks(int nThreads, bool bMimalloc) {
    for (const bool bWrite : {false, true}) {
        for (const NamedSize& size : kSizes) {
            RegisterBlock<Ours>("ours", nThreads, size, bWrite);
            RegisterBlock<Malloc>("malloc", nThreads, size, bWrite);
            if (bMimalloc) {
                RegisterBlock<Mimalloc>("mimalloc", nThreads, size, bWrite);
            }
        }
    }
}

// The stream comes first, while the C library still gives each of its blocks a mapping of its own and
// with it the same place within a cache line.
void RegisterAll(bool bMimalloc) {
    bench::Register("StreamAppend64MiB/ours", 1, AppendToStream);
    bench::Register("StreamAppend64MiB/memcpy_recycled", 1, CopyToRecycledBlocks);
    bench::Register("StreamAppend64MiB/memcpy_flat", 1, CopyToFlatMemory);
    bench::Register("StreamAppend64MiB/vector_fresh", 1, AppendToFreshVector);

    RegisterBlocks(1, bMimalloc);
    bench::Register("BlockUntouched/three_locks_and_clock/32KiB", 1, ThreeLocksAndClock);
    RegisterBlocks(2, bMimalloc);

    bench::Register("BlockMixed/ours", 1, ReplaceMixed<Ours>);
    bench::Register("BlockMixed/malloc", 1, ReplaceMixed<Malloc>);
    if (bMimalloc) {
        bench::Register("BlockMixed/mimalloc", 1, ReplaceMixed<Mimalloc>);
    }
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    const bool bMimalloc = Mimalloc::Open();
    if (!bMimalloc) {
        benchmark::AddCustomContext("peers_not_installed", Mimalloc::kLibrary);
    }
    RegisterAll(bMimalloc);
    return bench::Run(nArguments, ppszArguments, "Memory");
}
