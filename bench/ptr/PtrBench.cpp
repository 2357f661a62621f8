// The counting pointer beside the raw calls that it stands for: creating, copying, moving and
// returning pooled objects must cost the same.

#include <utility>

#include "BenchSupport.h"
#include "TnRobotKernel/make.h"

namespace {

using Value = TnRobotPtr<ITnRobotDataValue>;

void CreateOurs(benchmark::State& state) {
    for (auto _ : state) {
        const Value value = tn::MakeIntData(42);
        benchmark::DoNotOptimize(value.get());
    }
}

void CreateRaw(benchmark::State& state) {
    for (auto _ : state) {
        ITnRobotDataValue* pValue = nullptr;
        if (TnCreateRobotIntData(42, &pValue) == 0) {
            benchmark::DoNotOptimize(pValue);
            pValue->Release();
        }
    }
}

void CopyOurs(benchmark::State& state) {
    const Value value = tn::MakeIntData(42);
    for (auto _ : state) {
        const Value copy = value;
        benchmark::DoNotOptimize(copy.get());
    }
}

void CopyRaw(benchmark::State& state) {
    const Value value = tn::MakeIntData(42);
    ITnRobotDataValue* pValue = value.get();
    for (auto _ : state) {
        pValue->AddRef();
        ITnRobotDataValue* pCopy = pValue;
        benchmark::DoNotOptimize(pCopy);
        pCopy->Release();
    }
}

// From one place to another and back; both places are read and written as if others knew them.
void MoveOurs(benchmark::State& state) {
    Value first = tn::MakeIntData(42);
    Value second;
    benchmark::DoNotOptimize(&first);
    benchmark::DoNotOptimize(&second);
    for (auto _ : state) {
        second = std::move(first);
        benchmark::ClobberMemory();
        first = std::move(second);
        benchmark::ClobberMemory();
    }
}

// What a careful raw assignment does: the old object is given back, if there is one.
void MoveRaw(benchmark::State& state) {
    ITnRobotDataValue* pFirst = tn::MakeIntData(42).detach();
    ITnRobotDataValue* pSecond = nullptr;
    const auto move = [](ITnRobotDataValue*& pTo, ITnRobotDataValue*& pFrom) {
        ITnRobotDataValue* pOld = std::exchange(pTo, std::exchange(pFrom, nullptr));
        if (pOld != nullptr) {
            pOld->Release();
        }
    };
    benchmark::DoNotOptimize(&pFirst);
    benchmark::DoNotOptimize(&pSecond);
    for (auto _ : state) {
        move(pSecond, pFirst);
        benchmark::ClobberMemory();
        move(pFirst, pSecond);
        benchmark::ClobberMemory();
    }
    pFirst->Release();
}

void CallOurs(benchmark::State& state) {
    const Value value = tn::MakeIntData(42);
    for (auto _ : state) {
        benchmark::DoNotOptimize(value->IntData(nullptr));
    }
}

void CallRaw(benchmark::State& state) {
    const Value value = tn::MakeIntData(42);
    ITnRobotDataValue* pValue = value.get();
    benchmark::DoNotOptimize(pValue);
    for (auto _ : state) {
        benchmark::DoNotOptimize(pValue->IntData(nullptr));
    }
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "ptr", "Counting pointer");
    bench::Register("PointerCreate/ours", 1, CreateOurs);
    bench::Register("PointerCreate/raw", 1, CreateRaw);
    bench::Register("PointerCopy/ours", 1, CopyOurs);
    bench::Register("PointerCopy/raw", 1, CopyRaw);
    bench::Register("PointerMove/ours", 1, MoveOurs);
    bench::Register("PointerMove/raw", 1, MoveRaw);
    bench::Register("PointerCall/ours", 1, CallOurs);
    bench::Register("PointerCall/raw", 1, CallRaw);
    return program.Run();
}
