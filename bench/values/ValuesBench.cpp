// Data values beside a shared variant, groups beside a map of variants, saving and loading beside
// a copy of the same bytes.

#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "BenchSupport.h"
#include "values/MixedGroup.h"

namespace {

using Variant = std::variant<std::monostate, bool, char, unsigned char, short, unsigned short, int, unsigned int, float,
                             double, long long, unsigned long long, std::string, std::vector<unsigned char>>;

constexpr const char* kText = "sixteen letters!";
constexpr int kNames = 100;
constexpr std::size_t kArchiveRoom = 1U << 20;

void IntValue(benchmark::State& state) {
    int nInput = 42;
    for (auto _ : state) {
        benchmark::DoNotOptimize(nInput);
        ITnRobotDataValue* pValue = nullptr;
        TnCreateRobotIntData(nInput, &pValue);
        benchmark::DoNotOptimize(pValue);
        pValue->Release();
    }
}

void SharedInt(benchmark::State& state) {
    int nInput = 42;
    for (auto _ : state) {
        benchmark::DoNotOptimize(nInput);
        auto value = std::make_shared<Variant>(nInput);
        benchmark::DoNotOptimize(value);
    }
}

void TextValue(benchmark::State& state) {
    const char* lpszInput = kText;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lpszInput);
        ITnRobotDataValue* pValue = nullptr;
        TnCreateRobotStringData(lpszInput, &pValue);
        benchmark::DoNotOptimize(pValue);
        pValue->Release();
    }
}

void SharedText(benchmark::State& state) {
    const char* lpszInput = kText;
    for (auto _ : state) {
        benchmark::DoNotOptimize(lpszInput);
        auto value = std::make_shared<Variant>(std::in_place_type<std::string>, lpszInput);
        benchmark::DoNotOptimize(value);
    }
}

// The pool keeps what a peak of use has left, and hands out what has been free longest.
void IntValueAfterPeak(benchmark::State& state) {
    constexpr int kPeak = 100000;
    {
        std::vector<bench::Counted<ITnRobotDataValue>> values;
        values.reserve(kPeak);
        for (int i = 0; i < kPeak; ++i) {
            values.push_back(bench::Make<ITnRobotDataValue>(TnCreateRobotIntData, i));
        }
    }
    IntValue(state);
}

void GroupSet(benchmark::State& state) {
    const auto names = bench::Names(kNames);
    const auto group = bench::Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
    int nInput = 42;
    for (auto _ : state) {
        for (const std::string& strName : names) {
            benchmark::DoNotOptimize(nInput);
            group->SetValue(strName.c_str(), nInput);
        }
        benchmark::ClobberMemory();
    }
}

void MapSet(benchmark::State& state) {
    const auto names = bench::Names(kNames);
    std::unordered_map<std::string, Variant> map;
    int nInput = 42;
    for (auto _ : state) {
        for (const std::string& strName : names) {
            benchmark::DoNotOptimize(nInput);
            map[strName.c_str()] = nInput;
        }
        benchmark::DoNotOptimize(map);
        benchmark::ClobberMemory();
    }
}

void GroupGet(benchmark::State& state) {
    const auto names = bench::Names(kNames);
    const auto group = bench::Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
    for (const std::string& strName : names) {
        group->SetValue(strName.c_str(), 42);
    }
    for (auto _ : state) {
        for (const std::string& strName : names) {
            int nError = 0;
            int nValue = group->IntData(strName.c_str(), &nError);
            benchmark::DoNotOptimize(nValue);
            benchmark::DoNotOptimize(nError);
        }
    }
}

void MapGet(benchmark::State& state) {
    const auto names = bench::Names(kNames);
    std::unordered_map<std::string, Variant> map;
    for (const std::string& strName : names) {
        map[strName] = 42;
    }
    for (auto _ : state) {
        for (const std::string& strName : names) {
            const auto it = map.find(strName.c_str());
            const int* pValue = it != map.end() ? std::get_if<int>(&it->second) : nullptr;
            int nValue = pValue != nullptr ? *pValue : 0;
            benchmark::DoNotOptimize(nValue);
        }
    }
}

void GroupSave(benchmark::State& state) {
    const auto group = bench::MixedGroup(kNames);
    bench::ArchiveInMemory archive(kArchiveRoom);
    for (auto _ : state) {
        long long nLength = archive.Save(*group);
        benchmark::DoNotOptimize(nLength);
        benchmark::ClobberMemory();
    }
    state.counters["bytes"] = static_cast<double>(archive.Save(*group));
}

void GroupLoad(benchmark::State& state) {
    bench::ArchiveInMemory archive(kArchiveRoom);
    const long long nLength = archive.Save(*bench::MixedGroup(kNames));
    for (auto _ : state) {
        const auto group = bench::Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
        int nResult = archive.Load(*group, nLength);
        benchmark::DoNotOptimize(nResult);
    }
    const auto loaded = bench::Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
    const bool bOk = archive.Load(*loaded, nLength) == 1 && loaded->HasValue(bench::Names(kNames).back().c_str());
    bench::Require(bOk, "the group cannot be loaded");
}

void CopyOfSameBytes(benchmark::State& state) {
    bench::ArchiveInMemory archive(kArchiveRoom);
    auto nLength = static_cast<std::size_t>(archive.Save(*bench::MixedGroup(kNames)));
    std::vector<unsigned char> copy(nLength);
    for (auto _ : state) {
        benchmark::DoNotOptimize(nLength);
        std::memcpy(copy.data(), archive.Bytes(), nLength);
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
}

void RegisterValues(int nThreads) {
    bench::Register("IntValue/ours", nThreads, IntValue);
    bench::Register("IntValue/make_shared_variant", nThreads, SharedInt);
    bench::Register("Text16Value/ours", nThreads, TextValue);
    bench::Register("Text16Value/make_shared_variant", nThreads, SharedText);
}

// The cases of single values come before those that leave many free values in the pool.
void RegisterAll() {
    RegisterValues(1);
    RegisterValues(2);

    bench::Register("GroupSet100/ours", 1, GroupSet);
    bench::Register("GroupSet100/unordered_map", 1, MapSet);
    bench::Register("GroupGet100/ours", 1, GroupGet);
    bench::Register("GroupGet100/unordered_map", 1, MapGet);
    bench::Register("GroupSave100/ours", 1, GroupSave);
    bench::Register("GroupSave100/memcpy", 1, CopyOfSameBytes);
    bench::Register("GroupLoad100/ours", 1, GroupLoad);
    bench::Register("GroupLoad100/memcpy", 1, CopyOfSameBytes);

    bench::Register("IntValueAfterPeak/ours", 1, IntValueAfterPeak);
    bench::Register("IntValueAfterPeak/make_shared_variant", 1, SharedInt);
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    RegisterAll();
    return bench::Run(nArguments, ppszArguments, "Values and archive");
}
