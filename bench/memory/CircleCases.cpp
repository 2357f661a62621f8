// Blocks of the circular pool beside the allocators and beside the general pool.

#include <string>

#include "memory/MemoryCases.h"

namespace {

struct NamedSize {
    const char* m_lpszName;
    unsigned int m_nBytes;
};

constexpr NamedSize kSizes[] = {{"4KiB", 4 << 10}, {"64KiB", 64 << 10}, {"1MiB", 1 << 20}};

struct CirclePool {
    static constexpr const char* kParty = "ours";
    using Handle = ITnRobotMemoryBlock*;

    inline static const auto s_pool = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotCircleMemoryBlockPool);
    static Handle Take(unsigned int nSize) {
        Handle pBlock = nullptr;
        s_pool->QueryMemBuff(nSize, &pBlock);
        return pBlock;
    }
    static void GiveBack(Handle pBlock) {
        if (pBlock != nullptr) {  // the circular pool may lose a race
            pBlock->Release();
        }
    }
};

template <typename Party>
void TakeAndGiveBack(benchmark::State& state, unsigned int nSize) {
    for (auto _ : state) {
        auto handle = Party::Take(nSize);
        benchmark::DoNotOptimize(handle);
        Party::GiveBack(handle);
    }
}

template <typename Party>
void RegisterParty(const char* lpszParty) {
    for (const int nThreads : {1, 2}) {
        for (const NamedSize& size : kSizes) {
            bench::Register(std::string("CircleBlock/") + lpszParty + "/" + size.m_lpszName, nThreads,
                            [nSize = size.m_nBytes](benchmark::State& state) { TakeAndGiveBack<Party>(state, nSize); });
        }
    }
}

}  // namespace

void bench::RegisterCircleCases(const FoundAllocators& found) {
    RegisterParty<CirclePool>(CirclePool::kParty);
    RegisterParty<GeneralPool>("general_pool");
    ForEachAllocator(found, [](auto party) { RegisterParty<decltype(party)>(party.kParty); });
}
