// How often values and groups ask for heap memory, and how much a value takes. The times that this
// program prints mean nothing: what counts are the counters.

#include <malloc.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "HeapCalls.h"
#include "values/MixedGroup.h"

namespace {

/// Runs the operation in the benchmark's loop. @return heap calls of one operation, on average.
template <typename Operation>
double HeapCallsOf(benchmark::State& state, Operation operation) {
    operation();  // the first one may fill pools and buffers
    long long nCalls = 0;
    for (auto _ : state) {
        const long long nBefore = bench::HeapCalls();
        operation();
        nCalls += bench::HeapCalls() - nBefore;
    }
    return static_cast<double>(nCalls) / static_cast<double>(state.iterations());
}

// A counter that nobody increments would read 0 as well.
void TheCounterCounts(benchmark::State& state) {
    const double dCalls = HeapCallsOf(state, [] {
        auto pInt = std::make_unique<int>(42);
        benchmark::DoNotOptimize(pInt);
    });
    bench::Require(dCalls >= 1.0, "calls of the allocator are not seen");
    state.counters["heap_calls"] = dCalls;
}

void IntValue(benchmark::State& state) {
    state.counters["heap_calls"] = HeapCallsOf(state, [] {
        auto value = bench::Make<ITnRobotDataValue>(TnCreateRobotIntData, 42);
        benchmark::DoNotOptimize(value);
    });
}

void TextValue(benchmark::State& state) {
    state.counters["heap_calls"] = HeapCallsOf(state, [] {
        auto value = bench::Make<ITnRobotDataValue>(TnCreateRobotStringData, "sixteen letters!");
        benchmark::DoNotOptimize(value);
    });
}

void GroupGet(benchmark::State& state) {
    const auto group = bench::MixedGroup(100);
    const std::string strName = bench::Names(100)[5];
    state.counters["heap_calls"] = HeapCallsOf(state, [&] {
        int nError = 0;
        int nValue = group->IntData(strName.c_str(), &nError);
        benchmark::DoNotOptimize(nValue);
    });
}

// Saving may allocate for the whole group but not for each value, so ten times the values must not
// make it allocate more often.
void GroupSave(benchmark::State& state, int nValues) {
    const auto group = bench::MixedGroup(nValues);
    bench::ArchiveInMemory archive(1U << 20);
    const double dCalls = HeapCallsOf(state, [&] {
        long long nLength = archive.Save(*group);
        benchmark::DoNotOptimize(nLength);
    });
    state.counters["heap_calls"] = dCalls;
    state.counters["heap_calls_per_value"] = dCalls / nValues;
}

void GroupLoad(benchmark::State& state, int nValues) {
    bench::ArchiveInMemory archive(1U << 20);
    const long long nLength = archive.Save(*bench::MixedGroup(nValues));
    const double dCalls = HeapCallsOf(state, [&] {
        const auto group = bench::Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
        archive.Load(*group, nLength);
    });
    state.counters["heap_calls"] = dCalls;
    state.counters["heap_calls_per_value"] = dCalls / nValues;
}

// Includes the allocator's own bytes. The pool's lists are so large that they lie in mappings of
// their own, which uordblks does not count: what remains is the values.
void MemoryOfOneValue(benchmark::State& state) {
    constexpr int kValues = 1 << 18;
    double dBytes = 0;
    for (auto _ : state) {
        std::vector<TnRobotPtr<ITnRobotDataValue>> values;
        values.reserve(kValues);
        const std::size_t nBefore = mallinfo2().uordblks;
        for (int i = 0; i < kValues; ++i) {
            values.push_back(bench::Make<ITnRobotDataValue>(TnCreateRobotIntData, i));
        }
        dBytes = static_cast<double>(mallinfo2().uordblks - nBefore) / kValues;
    }
    state.counters["heap_bytes"] = dBytes;
}

void RegisterAll() {
    // Once: in a second repetition the values would come from the pool.
    bench::Register("ValueMemory/ours", 1, MemoryOfOneValue)->Iterations(1)->Repetitions(1);
    bench::Register("HeapCallsOfOneNew/check", 1, TheCounterCounts);
    bench::Register("IntValueHeap/ours", 1, IntValue);
    bench::Register("Text16ValueHeap/ours", 1, TextValue);
    bench::Register("GroupGetHeap/ours", 1, GroupGet);
    for (const int nValues : {100, 1000}) {
        const std::string strCount = std::to_string(nValues);
        bench::Register("GroupSaveHeap/ours/" + strCount, 1,
                        [nValues](benchmark::State& state) { GroupSave(state, nValues); });
        bench::Register("GroupLoadHeap/ours/" + strCount, 1,
                        [nValues](benchmark::State& state) { GroupLoad(state, nValues); });
    }
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "values", "Heap use of values");
    RegisterAll();
    return program.Run();
}
