// Work in parallel on the tasks of a pool: a loop, single jobs, and a queue.

#include <TnRobotKernel/make.h>
#include <TnRobotKernel/tn/for_each.h>
#include <TnRobotKernel/tn/run.h>
#include <TnRobotKernel/tn/work_queue.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <vector>

using namespace std::chrono_literals;

namespace {

// Stands for work that takes a while.
long long Measure(std::size_t nRegion) {
    long long nSum = 0;
    for (long long n = 0; n < 100000; ++n) {
        nSum += n % (static_cast<long long>(nRegion) + 1);
    }
    return nSum;
}

void ShowLoop(ITnRobotTaskPool& pool) {
    // [loop]
    std::vector<long long> sums(12);
    tn::ForEach(pool, sums.size(), [&sums](std::size_t n) { sums[n] = Measure(n); });
    // [/loop]
    std::printf("regions measured: %zu, the last one: %lld\n", sums.size(), sums.back());
}

void ShowLimit(ITnRobotTaskPool& pool) {
    // [limit]
    std::atomic<int> nDone{0};
    const auto lookForParts = [&nDone](std::size_t /*nRegion*/, const tn::CancelToken& token) {
        while (!token.IsCancelled()) {  // never finds one
        }
        ++nDone;
    };
    std::error_code ec;
    if (!tn::ForEach(pool, 1000, lookForParts, {2, 20ms}, ec)) {
        std::printf("out of time: %s, and nothing goes on: %s\n", ec == std::errc::timed_out ? "yes" : "no",
                    nDone >= 1 && nDone <= 2 ? "yes" : "no");
    }
    // [/limit]
}

void ShowRun(ITnRobotTaskPool& pool) {
    // [run]
    long long nSum = 0;
    auto measuring = tn::Run(pool, [&nSum] { nSum = Measure(7); });
    auto failing = tn::Run(pool, [] { throw std::runtime_error("the lamp is off"); });
    auto watching = tn::Run(pool, [](const tn::CancelToken& token) {
        while (!token.WaitFor(10ms)) {  // looks at something a hundred times a second
        }
    });

    if (!measuring.Wait(10000ms)) {
        std::printf("it takes too long\n");  // and goes on, until its handle goes
    }
    try {
        failing.Wait();
    } catch (const std::runtime_error& error) {
        std::printf("a job failed: %s\n", error.what());
    }
    watching.Cancel();
    watching.Wait();  // false if it was cancelled before it began
    std::printf("measured: %lld\n", nSum);
    // [/run]
}

void ShowQueue(ITnRobotTaskPool& pool) {
    // [queue]
    std::atomic<long long> nTotal{0};
    const auto inspect = [&nTotal](std::size_t nRegion) {
        if (nRegion == 13) {
            throw std::runtime_error("region 13 has no pixels");
        }
        nTotal += Measure(nRegion);
    };
    tn::WorkQueue<std::size_t> queue(pool, inspect, {4, 8});  // 4 tasks, 8 regions may wait

    for (std::size_t n = 0; n < 100; ++n) {
        queue.Push(n);  // waits while 8 wait
    }
    try {
        queue.Finish();  // until all are done
    } catch (const std::runtime_error& error) {
        std::printf("%s; the other 99 are done: %lld\n", error.what(), nTotal.load());
    }
    // [/queue]
}

}  // namespace

int main() {
    try {
        const auto pool = tn::MakeTaskPool();
        ShowLoop(*pool);
        ShowLimit(*pool);
        ShowRun(*pool);
        ShowQueue(*pool);
        return 0;
    } catch (const std::exception& error) {  // such as a system without threads
        std::printf("%s\n", error.what());
        return 1;
    }
}
