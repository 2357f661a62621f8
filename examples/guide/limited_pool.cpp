// Memory that cannot grow without bound, and that says how it is used.

#include <TnRobotKernel/make.h>
#include <TnRobotKernel/tn/limited_pool.h>

#include <chrono>
#include <cstdio>

using namespace std::chrono_literals;

namespace {

constexpr unsigned int kMiB = 1024 * 1024;

// [ask]
void Ask(ITnRobotMemoryBlockPool& pool, unsigned int nSize) {
    std::error_code ec;
    const auto block = tn::QueryMemBuff(pool, nSize, ec);
    if (block) {
        std::printf("%u MiB: a block\n", nSize / kMiB);
    } else if (ec == std::errc::resource_unavailable_try_again) {
        std::printf("%u MiB: not now\n", nSize / kMiB);
    } else {
        std::printf("%u MiB: never\n", nSize / kMiB);
    }
}
// [/ask]

}  // namespace

int main() {
    // [limited]
    tn::LimitedPoolOptions options;
    options.nMostBytes = 64ULL * kMiB;
    options.wait = 5ms;     // a request without room waits so long for a block to come back
    options.nUnit = 32768;  // what a block of the general pool takes at least
    const auto pool = tn::MakeLimitedPool(tn::MakeMemoryBlockPool(), options);
    if (!pool) {
        return 1;
    }

    const auto frame = tn::QueryMemBuff(*pool, 40 * kMiB);
    Ask(*pool, 24 * kMiB);
    Ask(*pool, 25 * kMiB);
    Ask(*pool, 65 * kMiB);
    // [/limited]
    // [counters]
    const tn::LimitedPoolCounters counters = pool->Counters();
    std::printf("in use: %llu blocks, %llu MiB; at most so far: %llu MiB; %llu of %llu requests refused\n",
                counters.nLiveBlocks, counters.nLiveBytes / kMiB, counters.nHighWater / kMiB, counters.nRefusals,
                counters.nRequests);
    const auto status = tn::MakeValueDataGroup();
    tn::WriteCounters(counters, *status);  // to be saved, or shown by tnrobot-inspect
    // [/counters]
    std::printf("refusals in the group: %llu\n", status->ULonglongData("refusals", nullptr));

    std::printf("the circular pool, more than 24 MiB: ");
    Ask(*tn::MakeCircleMemoryBlockPool(), 25 * kMiB);
    return frame ? 0 : 1;
}
