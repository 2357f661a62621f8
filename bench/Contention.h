// How much several threads that have nothing in common do together, while each works on things of its own.

#ifndef TNROBOTKERNEL_BENCH_CONTENTION_H_
#define TNROBOTKERNEL_BENCH_CONTENTION_H_

#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"

namespace bench {

/// Registers ScalingThreads<case>/party/threads for 1, 2, 4 and 8 threads, whatever the machine has. One
/// element is one operation of any thread, so that with n cores and nothing in each other's way it takes
/// an n-th of a single thread's time.
/// @param[in] makeWork  called in each thread; gives a function that does one operation.
template <typename MakeWork>
void RegisterThreads(const Program& program, const std::string& strCase, const std::string& strParty,
                     MakeWork makeWork) {
    constexpr int kOperations = 50000;  // beside which the start of a thread is little
    for (const long long nThreads : Sizes(program, 1, 8, 2)) {
        RegisterScaling("Threads" + strCase, strParty, nThreads, nThreads * kOperations,
                        [nThreads, makeWork](benchmark::State& state) {
                            for (auto _ : state) {
                                std::vector<std::thread> threads;
                                for (long long i = 0; i < nThreads; ++i) {
                                    threads.emplace_back([&makeWork] {
                                        auto work = makeWork();
                                        for (int n = 0; n < kOperations; ++n) {
                                            work();
                                        }
                                    });
                                }
                                for (std::thread& thread : threads) {
                                    thread.join();
                                }
                            }
                        });
    }
}

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_CONTENTION_H_
