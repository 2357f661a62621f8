// What the benchmark programs share.
//
// Names follow one pattern, by which scripts/lib/bench_report.py pairs them:
//   Case/party[/parameter...]
// The party "ours" is compared with every other party of the same case and parameters. Parties whose
// names begin with "floor" or "limit" are no products but what cannot be undercut: a hand-written
// program of the same locks and counts, a copy of the same bytes. Cases that begin with "Scaling"
// repeat one operation at growing sizes. Ratios and counters to reach stand in bench/targets.json.

#ifndef TNROBOTKERNEL_BENCH_BENCHSUPPORT_H_
#define TNROBOTKERNEL_BENCH_BENCHSUPPORT_H_

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sched.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"

namespace bench {

/// Ends the program where a benchmark could only measure nonsense.
inline void Require(bool bOk, const char* lpszWhat) {
    if (!bOk) {
        std::fprintf(stderr, "benchmark cannot run: %s\n", lpszWhat);
        std::abort();
    }
}

/// Calls a creation function with its arguments and an out-pointer; takes the reference it gives.
template <typename T, typename Function, typename... Args>
TnRobotPtr<T> Make(Function create, Args... args) {
    T* pObject = nullptr;
    create(args..., &pObject);
    Require(pObject != nullptr, "an object cannot be created");
    return tn::Adopt(pObject);
}

/// @return the size, which the compiler is not to know: where it does, it may copy by other means than
///         the C library's, which is what a peer would call.
inline std::size_t Unknown(std::size_t nSize) {
    benchmark::DoNotOptimize(nSize);
    return nSize;
}

/// Registers a function as one benchmark, timed by the clock on the wall.
template <typename Function>
benchmark::internal::Benchmark* Register(const std::string& strName, int nThreads, Function function) {
    auto* pBenchmark = benchmark::RegisterBenchmark(strName.c_str(), function)->UseRealTime();
    return nThreads > 1 ? pBenchmark->Threads(nThreads) : pBenchmark;
}

/// Registers a function that tells the framework the times itself.
template <typename Function>
benchmark::internal::Benchmark* RegisterManual(const std::string& strName, Function function) {
    return benchmark::RegisterBenchmark(strName.c_str(), function)->UseManualTime();
}

/// A thread that waits until it is destroyed.
///
/// The C library and the C++ runtime leave out locks and atomic operations in a process of one
/// thread, in the peers as in malloc, which no application with threads would see.
class ParkedThread {
public:
    ParkedThread() = default;
    ParkedThread(const ParkedThread&) = delete;
    ParkedThread& operator=(const ParkedThread&) = delete;
    ~ParkedThread() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_bEnd = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }

private:
    void Wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_bEnd; });
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bEnd = false;  // guarded by m_mutex
    std::thread m_thread{[this] { Wait(); }};
};

/// Peak of resident memory since its creation, beyond what was there before the case began.
class PeakMemory {
public:
    /// @param[in,out] nBefore  the case's own; negative when it runs for the first time. The framework
    ///                         runs a case several times, and pools keep what the first one took.
    explicit PeakMemory(long& nBefore) {
        malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << "5";  // the peak counts from here
        if (nBefore < 0) {
            nBefore = StatusKiB("VmRSS:");
        }
        m_nBefore = nBefore;
    }

    double MiB() const { return static_cast<double>(std::max(0L, StatusKiB("VmHWM:") - m_nBefore)) / 1024.0; }

private:
    static long StatusKiB(const std::string& strField) {
        std::ifstream status("/proc/self/status");
        std::string strWord;
        long nKiB = 0;
        while (status >> strWord) {
            if (strWord == strField) {
                status >> nKiB;
                break;
            }
        }
        return nKiB;
    }

    long m_nBefore = 0;
};

/// Registers a function as a scaling case: Scaling<case>/party/size.
/// @param[in] nElements  what one iteration works on.
template <typename Function>
void RegisterScaling(const std::string& strCase, const std::string& strParty, long long nSize, long long nElements,
                     Function function) {
    const auto pBefore = std::make_shared<long>(-1);
    Register("Scaling" + strCase + "/" + strParty + "/" + std::to_string(nSize), 1,
             [nElements, function, pBefore](benchmark::State& state) {
                 const PeakMemory memory(*pBefore);
                 function(state);
                 state.counters["elements"] = static_cast<double>(nElements);
                 state.counters["peak_MiB"] = memory.MiB();
             });
}

/// @return processors that this process may use, which can be fewer than there are.
inline int Cores() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    Require(sched_getaffinity(0, sizeof(cores), &cores) == 0, "the processors are not known");
    return CPU_COUNT(&cores);
}

/// A benchmark program from its arguments to its results.
class Program {
public:
    /// @param[in] lpszArea  what scripts/bench.sh calls the program; lpszTitle heads its tables.
    Program(int nArguments, char** ppszArguments, const char* lpszArea, const char* lpszTitle)
        : m_arguments(ppszArguments, ppszArguments + nArguments) {
        const auto isQuick = [](const char* lpszArgument) { return std::string(lpszArgument) == "--quick"; };
        const auto end = std::remove_if(m_arguments.begin(), m_arguments.end(), isQuick);
        m_bQuick = end != m_arguments.end();
        m_arguments.erase(end, m_arguments.end());
        benchmark::AddCustomContext("area", lpszArea);
        benchmark::AddCustomContext("title", lpszTitle);
        benchmark::AddCustomContext("cores", std::to_string(Cores()));
    }

    /// @return whether every case is only to be shown to work: large ones are left out.
    bool IsQuick() const { return m_bQuick; }

    void AddPeer(const std::string& strNameAndVersion) { Append(m_strPeers, strNameAndVersion); }
    void AddAbsentPeer(const std::string& strNameAndReason) { Append(m_strAbsent, strNameAndReason); }

    /// @return the program's exit code.
    int Run() {
        if (!m_strPeers.empty()) {
            benchmark::AddCustomContext("peers", m_strPeers);
        }
        if (!m_strAbsent.empty()) {
            benchmark::AddCustomContext("absent_peers", m_strAbsent);
        }
#ifdef __clang__
        benchmark::AddCustomContext("compiler", __VERSION__);
#else
        benchmark::AddCustomContext("compiler", "GCC " __VERSION__);
#endif
        int nArguments = static_cast<int>(m_arguments.size());
        benchmark::Initialize(&nArguments, m_arguments.data());
        if (benchmark::ReportUnrecognizedArguments(nArguments, m_arguments.data())) {
            return 2;
        }
        const ParkedThread parked;
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
        return 0;
    }

private:
    static void Append(std::string& strList, const std::string& strItem) {
        strList += (strList.empty() ? "" : "; ") + strItem;
    }

    std::vector<char*> m_arguments;
    bool m_bQuick = false;
    std::string m_strPeers;
    std::string m_strAbsent;
};

/// @return the sizes from nFirst to nLast in steps of nFactor; for a quick run only the first two.
inline std::vector<long long> Sizes(const Program& program, long long nFirst, long long nLast, long long nFactor) {
    std::vector<long long> sizes;
    for (long long nSize = nFirst; nSize <= nLast; nSize *= nFactor) {
        sizes.push_back(nSize);
    }
    if (program.IsQuick()) {
        sizes.resize(2);
    }
    return sizes;
}

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_BENCHSUPPORT_H_
