// Single data values beside a shared variant, a pool of Boost's and two hand-written pools: one of the same
// locks and counts, and one that knows its values by an interface only, as the contract has it.

#include <atomic>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "Contention.h"
#include "TnRobotKernel/detail/RingQueue.h"
#include "memory/Allocators.h"
#include "values/ContractPool.h"
#include "values/Variant.h"

#ifdef TNROBOT_BENCH_BOOST
#include <boost/pool/singleton_pool.hpp>
#include <boost/version.hpp>
#endif

namespace {

constexpr const char* kText = "sixteen letters!";

// The parties: each takes a value that holds something, and gives it back.

struct Ours {
    using Handle = ITnRobotDataValue*;
    static Handle Take(int nValue) {
        Handle pValue = nullptr;
        TnCreateRobotIntData(nValue, &pValue);
        return pValue;
    }
    static Handle Take(const char* lpszText) {
        Handle pValue = nullptr;
        TnCreateRobotStringData(lpszText, &pValue);
        return pValue;
    }
    static void GiveBack(Handle& pValue) { pValue->Release(); }
};

struct SharedVariant {
    using Handle = std::shared_ptr<bench::Variant>;
    static Handle Take(int nValue) { return std::make_shared<bench::Variant>(nValue); }
    static Handle Take(const char* lpszText) {
        return std::make_shared<bench::Variant>(std::in_place_type<std::string>, lpszText);
    }
    static void GiveBack(Handle& handle) { handle.reset(); }
};

/// The floor of a pool with one mutex that reuses first what has been free longest.
///
/// One value holds exactly: the lock, under which the front of the ring of free values is taken, its
/// type, length and bytes are set and its count is raised; the lowering of the count; the clearing of
/// type, length and bytes; the lock again, under which the value goes to the end of the ring.
class MutexPool {
public:
    struct Value {
        std::atomic<int> m_nCount{1};
        int m_nType = 0;
        unsigned int m_nLength = 0;
        unsigned char m_bytes[24] = {};
    };
    using Handle = Value*;

    static Handle Take(int nValue) { return s_pool.TakeBytes(DATA_TYPE_INT, &nValue, sizeof(nValue)); }
    static Handle Take(const char* lpszText) {
        return s_pool.TakeBytes(DATA_TYPE_STRING, lpszText, std::strlen(lpszText) + 1);
    }
    static void GiveBack(Handle pValue) {
        if (pValue->m_nCount.fetch_sub(1) == 2) {
            s_pool.Recover(pValue);
        }
    }

private:
    Value* TakeBytes(int nType, const void* pBytes, std::size_t nLength) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_free.Empty()) {
            m_all.emplace_back();
            m_free.Reserve(m_all.size());
            m_free.PushBack(&m_all.back());
        }
        Value* pValue = m_free.Front();
        m_free.PopFront();
        pValue->m_nType = nType;
        pValue->m_nLength = static_cast<unsigned int>(nLength);
        std::memcpy(pValue->m_bytes, pBytes, nLength);
        pValue->m_nCount.fetch_add(1);
        return pValue;
    }

    void Recover(Value* pValue) {
        pValue->m_nType = 0;
        pValue->m_nLength = 0;
        std::memset(pValue->m_bytes, 0, sizeof(pValue->m_bytes));
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_free.PushBack(pValue);
    }

    static MutexPool s_pool;
    std::mutex m_mutex;
    std::deque<Value> m_all;
    tn::detail::RingQueue<Value*> m_free;
};

MutexPool MutexPool::s_pool;

/// The floor of the contract.
struct ContractPool {
    using Handle = bench::ContractValue*;
    static Handle Take(int nValue) { return Pool().Query({DATA_TYPE_INT, &nValue, sizeof(nValue)}); }
    static Handle Take(const char* lpszText) {
        return Pool().Query({DATA_TYPE_STRING, lpszText, std::strlen(lpszText) + 1});
    }
    static void GiveBack(Handle pValue) { pValue->Release(); }

private:
    static bench::ContractPool& Pool() {
        static bench::ContractPool* const s_pPool = bench::MakeContractPool();
        return *s_pPool;
    }
};

#ifdef TNROBOT_BENCH_BOOST
struct BoostPool {
    struct Tag {};
    using Pool = boost::singleton_pool<Tag, sizeof(bench::Variant)>;
    using Handle = bench::Variant*;
    static Handle Take(int nValue) { return new (Pool::malloc()) bench::Variant(nValue); }
    static Handle Take(const char* lpszText) {
        return new (Pool::malloc()) bench::Variant(std::in_place_type<std::string>, lpszText);
    }
    static void GiveBack(Handle pValue) {
        pValue->~variant();
        Pool::free(pValue);
    }
};
#endif

template <typename Party, typename Input>
void CreateAndRelease(benchmark::State& state, Input input) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(input);
        auto handle = Party::Take(input);
        benchmark::DoNotOptimize(handle);
        Party::GiveBack(handle);
    }
}

// All taken, then all given back. Each value is another element's of the pool, which hands out what
// has been free longest.
template <typename Party>
void LiveValues(benchmark::State& state, std::size_t nValues) {
    std::vector<typename Party::Handle> alive(nValues);
    const auto once = [&alive] {
        int nValue = 0;
        for (auto& handle : alive) {
            handle = Party::Take(++nValue);
        }
        benchmark::ClobberMemory();
        for (auto& handle : alive) {
            Party::GiveBack(handle);
        }
    };
    once();
    for (auto _ : state) {
        once();
    }
}

template <typename Party>
void RegisterParty(const bench::Program& program, const std::string& strParty) {
    for (const int nThreads : {1, 2}) {
        bench::Register("IntValue/" + strParty, nThreads,
                        [](benchmark::State& state) { CreateAndRelease<Party>(state, 42); });
        bench::Register("Text16Value/" + strParty, nThreads,
                        [](benchmark::State& state) { CreateAndRelease<Party>(state, kText); });
    }
    for (const long long nValues : bench::Sizes(program, 1, 100000, 10)) {
        bench::RegisterScaling("LiveValues", strParty, nValues, nValues, [nValues](benchmark::State& state) {
            LiveValues<Party>(state, static_cast<std::size_t>(nValues));
        });
    }
}

// ---- values of each thread's own, which all come from the process's one pool and its one lock

template <typename Party>
void RegisterOwnValues(const bench::Program& program, const std::string& strParty) {
    bench::RegisterThreads(program, "OwnValues", strParty, [] {
        return [nValue = 0]() mutable {
            auto handle = Party::Take(++nValue);
            benchmark::DoNotOptimize(handle);
            Party::GiveBack(handle);
        };
    });
}

// Memory for a variant, without the variant.
void RegisterOwnMemory(const bench::Program& program, const bench::FoundAllocators& found) {
    bench::ForEachAllocator(found, [&program](auto party) {
        using Allocator = decltype(party);
        bench::RegisterThreads(program, "OwnValues", Allocator::kParty, [] {
            return [] {
                auto handle = Allocator::Take(sizeof(bench::Variant));
                benchmark::DoNotOptimize(handle);
                Allocator::GiveBack(handle);
            };
        });
    });
}

void CheckValues() {
    const auto number = tn::Adopt(Ours::Take(42));
    int nError = -1;
    bench::Require(number->IntData(&nError) == 42 && nError == 0, "a value is not what it should be");
    const auto text = tn::Adopt(Ours::Take(kText));
    int nLength = 0;
    bench::Require(std::strcmp(text->StringData(nLength, &nError), kText) == 0, "a text is not what it should be");
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "values", "Values");
    CheckValues();
    RegisterParty<Ours>(program, "ours");
    RegisterParty<MutexPool>(program, "floor_mutex_pool");
    RegisterParty<ContractPool>(program, "floor_contract_pool");
    RegisterParty<SharedVariant>(program, "make_shared_variant");
#ifdef TNROBOT_BENCH_BOOST
    program.AddPeer("Boost.Pool " BOOST_LIB_VERSION);
    RegisterParty<BoostPool>(program, "boost_singleton_pool");
#else
    program.AddAbsentPeer("Boost.Pool");
#endif
    const bench::FoundAllocators found(program);
    RegisterOwnValues<Ours>(program, "ours");
    RegisterOwnValues<MutexPool>(program, "floor_mutex_pool");
    RegisterOwnValues<SharedVariant>(program, "make_shared_variant");
    RegisterOwnMemory(program, found);
    return program.Run();
}
