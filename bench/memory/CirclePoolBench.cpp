// Blocks of the circular pool beside the allocator and beside the general pool.

#include <cstdlib>
#include <string>

#include "BenchSupport.h"

namespace {

struct NamedSize {
    const char* m_lpszName;
    unsigned int m_nBytes;
};

constexpr NamedSize kSizes[] = {{"4KiB", 4 << 10}, {"64KiB", 64 << 10}, {"1MiB", 1 << 20}};

// The parties: each takes some bytes and gives them back.

struct CirclePool {
    inline static const auto s_pool = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotCircleMemoryBlockPool);
};

struct GeneralPool {
    inline static const auto s_pool = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool);
};

template <typename Pool>
void TakeAndReleaseBlock(unsigned int nSize) {
    ITnRobotMemoryBlock* pBlock = nullptr;
    Pool::s_pool->QueryMemBuff(nSize, &pBlock);
    benchmark::DoNotOptimize(pBlock);
    if (pBlock != nullptr) {  // the circular pool may lose a race
        pBlock->Release();
    }
}

void MallocAndFree(unsigned int nSize) {
    void* pBytes = std::malloc(nSize);
    benchmark::DoNotOptimize(pBytes);
    std::free(pBytes);
}

void Register(const char* lpszParty, void (*takeAndGiveBack)(unsigned int)) {
    for (const int nThreads : {1, 2}) {
        for (const NamedSize& size : kSizes) {
            bench::Register(std::string("CircleBlock/") + lpszParty + "/" + size.m_lpszName, nThreads,
                            [nSize = size.m_nBytes, takeAndGiveBack](benchmark::State& state) {
                                for (auto _ : state) {
                                    takeAndGiveBack(nSize);
                                }
                            });
        }
    }
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    Register("ours", TakeAndReleaseBlock<CirclePool>);
    Register("general_pool", TakeAndReleaseBlock<GeneralPool>);
    Register("malloc", MallocAndFree);
    return bench::Run(nArguments, ppszArguments, "Circular block pool");
}
