// A producer that is faster than its consumers, in memory with a limit: it waits, or it drops frames.

#include <TnRobotKernel/tn/tn.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

using namespace std::chrono_literals;

namespace {

constexpr unsigned int kFrameBytes = 2U << 20U;

// [pool]
// Memory for 8 frames: 2 at work, 4 that wait, and 2 in the hands of the producer.
TnRobotPtr<tn::LimitedPool> MakeFramePool(std::chrono::milliseconds wait) {
    tn::LimitedPoolOptions options;
    options.nMostBytes = 8ULL * kFrameBytes;
    options.wait = wait;
    return tn::MakeLimitedPool(tn::MakeMemoryBlockPool(), options);
}
// [/pool]

using Frame = TnRobotPtr<ITnRobotMemoryBlock>;

// Stands for the camera.
void Fill(ITnRobotMemoryBlock& frame, int nValue) {
    unsigned int nSize = 0;
    unsigned char* pBytes = frame.QueryMemory(nSize);
    std::memset(pBytes, nValue, nSize);
}

int FirstByte(ITnRobotMemoryBlock& frame) {
    unsigned int nSize = 0;
    return frame.QueryMemory(nSize)[0];
}

// [producer]
// Nothing is lost: whoever is too fast waits, here for memory and in Push for room.
bool ProduceAll(ITnRobotTaskPool& tasks) {
    const auto pool = MakeFramePool(tn::kNoLimit);
    std::atomic<long long> nSum{0};
    const auto inspect = [&nSum](const Frame& frame) { nSum += FirstByte(*frame); };
    tn::WorkQueueOptions options;
    options.nThreads = 2;
    options.nCapacity = 4;
    tn::WorkQueue<Frame> queue(tasks, inspect, options);
    for (int n = 0; n < 100; ++n) {
        Frame frame = tn::QueryMemBuff(*pool, kFrameBytes);  // waits until a frame has come back
        if (!frame) {
            return false;
        }
        Fill(*frame, n);
        queue.Push(std::move(frame));  // waits until fewer than 4 wait; the queue has the frame now
    }
    queue.Finish();
    const tn::LimitedPoolCounters counters = pool->Counters();
    std::printf("waiting: sum %lld, within the limit: %s, left behind: %llu\n", nSum.load(),
                counters.nHighWater <= counters.nMostBytes ? "yes" : "no", counters.nLiveBlocks);
    return true;
}
// [/producer]

// [dropping]
// The newest frames are dropped while the consumers are behind.
void DropWhatIsTooMuch(ITnRobotTaskPool& tasks) {
    const auto pool = MakeFramePool(0ms);
    const auto lampIsOn = tn::MakeManualEvent(false);
    std::atomic<int> nInspected{0};
    const auto inspect = [&](const Frame& /*frame*/) {
        while (!lampIsOn->WaitEvent(1000)) {  // a wait may end early, so it is repeated
        }
        ++nInspected;
    };
    tn::WorkQueueOptions options;
    options.nThreads = 2;
    options.nCapacity = 100;  // more than there is memory for: the pool is the limit
    tn::WorkQueue<Frame> queue(tasks, inspect, options);
    int nDropped = 0;
    for (int n = 0; n < 20; ++n) {
        std::error_code ec;
        Frame frame = tn::QueryMemBuff(*pool, kFrameBytes, ec);
        if (!frame) {  // resource_unavailable_try_again: all memory is in frames that wait
            nDropped += ec == std::errc::resource_unavailable_try_again ? 1 : 0;
            continue;
        }
        Fill(*frame, n);
        queue.Push(std::move(frame));
    }
    lampIsOn->SetEvent();
    queue.Finish();
    std::printf("dropping: %d of 20 frames inspected, %d dropped\n", nInspected.load(), nDropped);
}
// [/dropping]

}  // namespace

int main() {
    try {
        const auto tasks = tn::MakeTaskPool();
        const bool bAll = ProduceAll(*tasks);
        DropWhatIsTooMuch(*tasks);
        std::error_code ec;
        const auto never = tn::QueryMemBuff(*MakeFramePool(tn::kNoLimit), 9 * kFrameBytes, ec);
        std::printf("nine frames in one block: %s\n", ec.message().c_str());
        return bAll && !never ? 0 : 1;
    } catch (const std::exception& error) {  // such as a system without threads
        std::printf("%s\n", error.what());
        return 1;
    }
}
