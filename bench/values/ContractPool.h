// What a pooled value costs at the very least where pool, values and allocator know each other by their
// interfaces only, as callers rely on: they may pool what they like, and make it as they like.

#ifndef TNROBOTKERNEL_BENCH_VALUES_CONTRACTPOOL_H_
#define TNROBOTKERNEL_BENCH_VALUES_CONTRACTPOOL_H_

#include <cstddef>

namespace bench {

/// What a value is made from.
struct ContractParam {
    int m_nType;
    const void* m_pBytes;
    std::size_t m_nLength;
};

class ContractPool;

/// A counted value: its last holder's Release clears it and gives it back to its pool.
class ContractValue {
public:
    virtual ~ContractValue() = default;
    virtual void AddRef() = 0;
    virtual void Release() = 0;
    virtual void ClearResource() = 0;
    virtual void SetParent(ContractPool* pParent) = 0;
};

/// A pool of one lock, which hands out first what has been free longest.
///
/// One value holds exactly: the lock, under which the allocator sets the front of the free ones from the
/// parameter, and the value learns its pool and gets its reference; the lowering of the count; the
/// clearing of the value and of its pool; the lock again, under which it goes to the end. Each of these
/// but the lock is a call that nobody can inline.
class ContractPool {
public:
    virtual ~ContractPool() = default;
    virtual ContractValue* Query(const ContractParam& param) = 0;
    virtual void Recover(ContractValue* pValue) = 0;
};

/// @return a pool for the rest of the process.
ContractPool* MakeContractPool();

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_VALUES_CONTRACTPOOL_H_
