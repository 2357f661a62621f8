// Named groups of values beside other maps: setting, reading, filling and copying.

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "BenchSupport.h"
#include "Contention.h"
#include "values/MixedGroup.h"
#include "values/Variant.h"

#ifdef TNROBOT_BENCH_JSON
#include <nlohmann/json.hpp>
#endif

namespace {

constexpr int kNames = 100;

// The parties: each is a container of named numbers.

class OurGroup {
public:
    static constexpr const char* kParty = "ours";
    void Set(const char* lpszName, int nValue) { m_group->SetValue(lpszName, nValue); }
    int Get(const char* lpszName) const {
        int nError = 0;
        const int nValue = m_group->IntData(lpszName, &nError);
        return nError == 0 ? nValue : -1;
    }
    void CopyFrom(const OurGroup& other) { m_group->Copy(other.m_group.get()); }

private:
    TnRobotPtr<ITnRobotDataValueGroup> m_group = bench::Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
};

// What a group promises and no more: a value that somebody still holds outlives its replacement, and
// a copy has values of its own.
class SharedVariants {
public:
    static constexpr const char* kParty = "unordered_map";
    void Set(const char* lpszName, int nValue) { m_map[lpszName] = std::make_shared<bench::Variant>(nValue); }
    int Get(const char* lpszName) const {
        const auto it = m_map.find(lpszName);
        const int* pValue = it != m_map.end() ? std::get_if<int>(it->second.get()) : nullptr;
        return pValue != nullptr ? *pValue : -1;
    }
    void CopyFrom(const SharedVariants& other) {
        m_map.clear();
        for (const auto& [strName, value] : other.m_map) {
            m_map.emplace(strName, std::make_shared<bench::Variant>(*value));
        }
    }

private:
    std::unordered_map<std::string, std::shared_ptr<bench::Variant>> m_map;
};

#ifdef TNROBOT_BENCH_JSON
class JsonObject {
public:
    static constexpr const char* kParty = "json";
    void Set(const char* lpszName, int nValue) { m_object[lpszName] = nValue; }
    int Get(const char* lpszName) const {
        const auto it = m_object.find(lpszName);
        return it != m_object.end() && it->is_number_integer() ? it->get<int>() : -1;
    }
    void CopyFrom(const JsonObject& other) { m_object = other.m_object; }

private:
    nlohmann::json m_object = nlohmann::json::object();
};
#endif

using Names = std::vector<std::string>;

template <typename Container>
void FillWith(Container& container, const Names& names, int nFirst) {
    for (const std::string& strName : names) {
        benchmark::DoNotOptimize(nFirst);
        container.Set(strName.c_str(), nFirst++);
    }
}

template <typename Container>
void Check(const Container& container, const Names& names, int nFirst) {
    for (const std::string& strName : names) {
        bench::Require(container.Get(strName.c_str()) == nFirst++, "a number is not what it should be");
    }
}

template <typename Container>
void SetExisting(benchmark::State& state, const Names& names) {
    Container container;
    FillWith(container, names, 1);
    for (auto _ : state) {
        FillWith(container, names, 2);
        benchmark::ClobberMemory();
    }
    Check(container, names, 2);
}

template <typename Container>
void Get(benchmark::State& state, const Names& names) {
    Container container;
    FillWith(container, names, 1);
    Check(container, names, 1);
    for (auto _ : state) {
        for (const std::string& strName : names) {
            int nValue = container.Get(strName.c_str());
            benchmark::DoNotOptimize(nValue);
        }
    }
}

// Into a new one, which then goes.
template <typename Container>
void Fill(benchmark::State& state, const Names& names) {
    for (auto _ : state) {
        Container container;
        FillWith(container, names, 1);
        benchmark::ClobberMemory();
    }
}

// Over the copy made before.
template <typename Container>
void Copy(benchmark::State& state, const Names& names) {
    Container source;
    FillWith(source, names, 1);
    Container target;
    target.CopyFrom(source);
    Check(target, names, 1);
    for (auto _ : state) {
        target.CopyFrom(source);
        benchmark::ClobberMemory();
    }
}

// A group for each thread, whose values all come from the process's one pool: one is replaced and read.
template <typename Container>
void RegisterOwnGroups(const bench::Program& program) {
    bench::RegisterThreads(program, "OwnGroups", Container::kParty, [] {
        auto container = std::make_shared<Container>();
        auto names = std::make_shared<Names>(bench::Names(10));
        FillWith(*container, *names, 1);
        return [container, names, n = std::size_t{0}]() mutable {
            n = (n + 1) % names->size();
            container->Set((*names)[n].c_str(), static_cast<int>(n));
            int nValue = container->Get((*names)[n].c_str());
            benchmark::DoNotOptimize(nValue);
        };
    });
}

using Case = void (*)(benchmark::State&, const Names&);

void RegisterCase(const bench::Program& program, const std::string& strCase, const std::string& strParty, Case run) {
    bench::Register(strCase + std::to_string(kNames) + "/" + strParty, 1,
                    [run](benchmark::State& state) { run(state, bench::Names(kNames)); });
    for (const long long nNames : bench::Sizes(program, 10, 100000, 10)) {
        bench::RegisterScaling(strCase, strParty, nNames, nNames, [run, nNames](benchmark::State& state) {
            run(state, bench::Names(static_cast<int>(nNames)));
        });
    }
}

template <typename Container>
void RegisterParty(const bench::Program& program) {
    RegisterCase(program, "GroupSet", Container::kParty, SetExisting<Container>);
    RegisterCase(program, "GroupGet", Container::kParty, Get<Container>);
    RegisterCase(program, "GroupFill", Container::kParty, Fill<Container>);
    RegisterCase(program, "GroupCopy", Container::kParty, Copy<Container>);
    RegisterOwnGroups<Container>(program);
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "values", "Groups");
    RegisterParty<OurGroup>(program);
    RegisterParty<SharedVariants>(program);
#ifdef TNROBOT_BENCH_JSON
    program.AddPeer("nlohmann::json " + std::to_string(NLOHMANN_JSON_VERSION_MAJOR) + "." +
                    std::to_string(NLOHMANN_JSON_VERSION_MINOR) + "." + std::to_string(NLOHMANN_JSON_VERSION_PATCH));
    RegisterParty<JsonObject>(program);
#else
    program.AddAbsentPeer("nlohmann::json");
#endif
    return program.Run();
}
