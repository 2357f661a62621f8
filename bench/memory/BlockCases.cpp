// Memory blocks beside the allocators and the floor of their own contract.

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "Contention.h"
#include "memory/FloorPool.h"
#include "memory/MemoryCases.h"

#ifdef TNROBOT_BENCH_BOOST
#include <boost/pool/singleton_pool.hpp>
#endif

namespace {

constexpr unsigned int kKiB = 1024;
constexpr unsigned int kMiB = 1024 * kKiB;
constexpr unsigned int kPage = 4096;

struct NamedSize {
    const char* m_lpszName;
    unsigned int m_nBytes;
};

constexpr NamedSize kSizes[] = {{"32KiB", 32 * kKiB}, {"1MiB", kMiB}, {"8MiB", 8 * kMiB}, {"24MiB", 24 * kMiB}};

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

// The bare minimum of a query and return: three locks, two counts, a clock reading, and no memory.
template <typename Clock>
void BareFloor(benchmark::State& state) {
    struct alignas(64) Lock {
        std::mutex m_mutex;
    };
    Lock general;
    Lock sizeClass;
    std::atomic<int> nCount{1};
    const auto lockOnce = [](std::mutex& mutex) {
        const std::lock_guard<std::mutex> lock(mutex);
        benchmark::ClobberMemory();
    };
    for (auto _ : state) {
        lockOnce(general.m_mutex);
        lockOnce(sizeClass.m_mutex);
        nCount.fetch_add(1);
        nCount.fetch_sub(1);
        const std::lock_guard<std::mutex> lock(sizeClass.m_mutex);
        auto now = Clock::now();
        benchmark::DoNotOptimize(now);
    }
}

#ifdef TNROBOT_BENCH_BOOST
// One size, one mutex, no idle time: what compares is the smallest size alone, because it grows by
// whole multiples of what it has.
struct BoostPool : bench::PlainMemory {
    struct Tag {};
    using Pool = boost::singleton_pool<Tag, 32 * kKiB>;
    static Handle Take(unsigned int) { return static_cast<Handle>(Pool::malloc()); }
    static void GiveBack(Handle pBytes) { Pool::free(pBytes); }
};
#endif

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

// Two threads, each in a size class of its own: they meet at the general lock, and nowhere else
// unless two classes share a cache line.
template <typename Party>
void TakeFromNeighbours(benchmark::State& state) {
    TakeAndGiveBack<Party>(state, state.thread_index() == 0 ? 32 * kKiB : 64 * kKiB, false);
}

// ---- the first use of a large block: until each of its pages has been written

constexpr unsigned int kFirstUse = 24 * kMiB;

/// @param[in] take  gives memory that the process has not used before; giveBack lets the system have
///                  it again, outside the timer.
template <typename Take, typename GiveBack>
void FirstUse(benchmark::State& state, Take take, GiveBack giveBack) {
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        WriteEveryPage(take(), kFirstUse);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        giveBack();
        malloc_trim(0);
    }
}

void FirstUseOurs(benchmark::State& state) {
    TnRobotPtr<ITnRobotMemoryBlockPool> pool;
    TnRobotPtr<ITnRobotMemoryBlock> block;
    const auto newPool = [&pool] { pool = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool); };
    newPool();
    FirstUse(
        state,
        [&] {
            ITnRobotMemoryBlock* pBlock = nullptr;
            pool->QueryMemBuff(kFirstUse, &pBlock);
            block.attach(pBlock);
            return bench::GeneralPool::Bytes(pBlock);
        },
        [&] {
            block.reset();
            newPool();
        });
}

void FirstUseMalloc(benchmark::State& state) {
    unsigned char* pBytes = nullptr;
    FirstUse(
        state, [&] { return pBytes = static_cast<unsigned char*>(std::malloc(kFirstUse)); },
        [&] { std::free(pBytes); });
}

// What the system itself needs, with ordinary pages or with huge ones where it has any to give.
void FirstUseMapping(benchmark::State& state, bool bHuge) {
    constexpr std::size_t kHugePage = 2U << 20;
    void* pMapping = nullptr;
    FirstUse(
        state,
        [&] {
            pMapping = mmap(nullptr, kFirstUse + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            bench::Require(pMapping != MAP_FAILED, "there is no memory");
            auto* pBytes = static_cast<unsigned char*>(pMapping);
            pBytes += (kHugePage - reinterpret_cast<std::uintptr_t>(pBytes) % kHugePage) % kHugePage;
            if (bHuge) {
                madvise(pBytes, kFirstUse, MADV_HUGEPAGE);
            }
            return pBytes;
        },
        [&] { munmap(pMapping, kFirstUse + kHugePage); });
}

void RegisterFirstUse() {
    constexpr int kUses = 10;
    bench::RegisterManual("BlockFirstUse24MiB/ours", FirstUseOurs)->Iterations(kUses);
    bench::RegisterManual("BlockFirstUse24MiB/glibc", FirstUseMalloc)->Iterations(kUses);
    bench::RegisterManual("BlockFirstUse24MiB/limit_mapping", [](benchmark::State& state) {
        FirstUseMapping(state, false);
    })->Iterations(kUses);
    bench::RegisterManual("BlockFirstUse24MiB/limit_huge_pages", [](benchmark::State& state) {
        FirstUseMapping(state, true);
    })->Iterations(kUses);
}

// ---- many blocks alive

// All taken, then all given back; one element is one block.
template <typename Party>
void LiveBlocks(benchmark::State& state, std::size_t nBlocks) {
    std::vector<typename Party::Handle> alive(nBlocks);
    const auto once = [&alive] {
        for (auto& handle : alive) {
            handle = Party::Take(32 * kKiB);
        }
        benchmark::ClobberMemory();
        for (auto handle : alive) {
            Party::GiveBack(handle);
        }
    };
    once();
    for (auto _ : state) {
        once();
    }
}

// ---- a pool for each thread

constexpr unsigned int kOwnBlock = 64 * kKiB;

void RegisterOwnPools(const bench::Program& program, const bench::FoundAllocators& found) {
    bench::RegisterThreads(program, "OwnPools", "ours", [] {
        return [pool = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool)] {
            ITnRobotMemoryBlock* pBlock = nullptr;
            pool->QueryMemBuff(kOwnBlock, &pBlock);
            benchmark::DoNotOptimize(pBlock);
            pBlock->Release();
        };
    });
    bench::RegisterThreads(program, "OwnPools", "floor_pool", [] {
        return [pool = std::make_shared<bench::FloorPool<std::chrono::system_clock>>()] {
            auto* pBlock = pool->Take(kOwnBlock);
            benchmark::DoNotOptimize(pBlock);
            pBlock->Release();
        };
    });
    bench::ForEachAllocator(found, [&program](auto party) {
        using Party = decltype(party);
        bench::RegisterThreads(program, "OwnPools", Party::kParty, [] {
            return [] {
                auto handle = Party::Take(kOwnBlock);
                benchmark::DoNotOptimize(handle);
                Party::GiveBack(handle);
            };
        });
    });
}

template <typename Party>
void RegisterParty(const bench::Program& program) {
    const std::string strParty = std::string("/") + Party::kParty;
    for (const int nThreads : {1, 2}) {
        for (const NamedSize& size : kSizes) {
            const auto run = [nSize = size.m_nBytes](bool bWrite) {
                return [nSize, bWrite](benchmark::State& state) { TakeAndGiveBack<Party>(state, nSize, bWrite); };
            };
            bench::Register("BlockUntouched" + strParty + "/" + size.m_lpszName, nThreads, run(false));
            if (nThreads == 1) {
                bench::Register("BlockWritten" + strParty + "/" + size.m_lpszName, nThreads, run(true));
            }
        }
    }
    bench::Register("BlockMixed" + strParty, 1, ReplaceMixed<Party>);
    bench::Register("BlockNeighbours" + strParty, 2, TakeFromNeighbours<Party>);
    for (const long long nBlocks : bench::Sizes(program, 1, 10000, 10)) {
        bench::RegisterScaling("LiveBlocks", Party::kParty, nBlocks, nBlocks, [nBlocks](benchmark::State& state) {
            LiveBlocks<Party>(state, static_cast<std::size_t>(nBlocks));
        });
    }
}

}  // namespace

void bench::RegisterBlockCases(Program& program, const FoundAllocators& found) {
    RegisterParty<GeneralPool>(program);
    RegisterParty<Floor>(program);
    RegisterParty<CoarseFloor>(program);
    ForEachAllocator(found, [&program](auto party) { RegisterParty<decltype(party)>(program); });
    RegisterOwnPools(program, found);
    for (const NamedSize& size : kSizes) {
        Register(std::string("BlockUntouched/floor/") + size.m_lpszName, 1, BareFloor<std::chrono::system_clock>);
        Register(std::string("BlockUntouched/floor_coarse_clock/") + size.m_lpszName, 1, BareFloor<CoarseClock>);
    }
#ifdef TNROBOT_BENCH_BOOST
    Register("BlockUntouched/boost_singleton_pool/32KiB", 1,
             [](benchmark::State& state) { TakeAndGiveBack<BoostPool>(state, 32 * kKiB, false); });
#else
    program.AddAbsentPeer("Boost.Pool");
#endif
    if (!program.IsQuick()) {
        RegisterFirstUse();
    }
}
