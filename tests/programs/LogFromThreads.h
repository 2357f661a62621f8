// Logs from several threads at once, for the programs that are logged with.

#ifndef TNROBOTKERNEL_TESTS_PROGRAMS_LOGFROMTHREADS_H_
#define TNROBOTKERNEL_TESTS_PROGRAMS_LOGFROMTHREADS_H_

#include <thread>
#include <vector>

namespace tntest {

/// Calls log(nThread, nLine) for each line of each thread, and returns when all have been logged.
template <typename Log>
void LogFromThreads(int nThreads, int nLines, const Log& log) {
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < nThreads; ++nThread) {
        threads.emplace_back([&log, nThread, nLines] {
            for (int nLine = 0; nLine < nLines; ++nLine) {
                log(nThread, nLine);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_PROGRAMS_LOGFROMTHREADS_H_
