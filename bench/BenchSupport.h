// What the benchmark programs share.
//
// Names follow one pattern, by which scripts/bench_report.py pairs them:
//   Case/party[/parameter...]
// The party "ours" is compared with every other party of the same case and parameters. Ratios and
// counters that must be reached stand in bench/targets.json.

#ifndef TNROBOTKERNEL_BENCH_BENCHSUPPORT_H_
#define TNROBOTKERNEL_BENCH_BENCHSUPPORT_H_

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "TnRobotKernel/TnRobotKernel.h"

namespace bench {

struct Releaser {
    void operator()(ITnUnknown* pObject) const { pObject->Release(); }
};

/// One reference to a counted object.
template <typename T>
using Counted = std::unique_ptr<T, Releaser>;

/// Ends the program where a benchmark could only measure nonsense.
inline void Require(bool bOk, const char* lpszWhat) {
    if (!bOk) {
        std::fprintf(stderr, "benchmark cannot run: %s\n", lpszWhat);
        std::abort();
    }
}

/// Calls a creation function with its arguments and an out-pointer; takes the reference it gives.
template <typename T, typename Function, typename... Args>
Counted<T> Make(Function create, Args... args) {
    T* pObject = nullptr;
    create(args..., &pObject);
    Require(pObject != nullptr, "an object cannot be created");
    return Counted<T>(pObject);
}

/// Registers a function as one benchmark.
///
/// The process has had a second thread by the time it runs, whatever the order: until then the
/// runtime leaves out locks and atomic operations in the peers, which no application with threads
/// would see.
template <typename Function>
benchmark::internal::Benchmark* Register(const std::string& strName, int nThreads, Function function) {
    return benchmark::RegisterBenchmark(strName.c_str(), function)
        ->Threads(nThreads)
        ->UseRealTime()
        ->Setup([](const benchmark::State&) { std::thread([] {}).join(); });
}

/// Runs what is registered; strTitle heads the program's table in the report.
inline int Run(int nArguments, char** ppszArguments, const std::string& strTitle) {
    benchmark::AddCustomContext("title", strTitle);
#ifdef __clang__
    benchmark::AddCustomContext("compiler", __VERSION__);
#else
    benchmark::AddCustomContext("compiler", "GCC " __VERSION__);
#endif
    benchmark::Initialize(&nArguments, ppszArguments);
    if (benchmark::ReportUnrecognizedArguments(nArguments, ppszArguments)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_BENCHSUPPORT_H_
