/// @file
/// Memory for Python: block pools with and without a limit, and their blocks as buffers.

#ifndef PYTHON_POOLS_H_
#define PYTHON_POOLS_H_

#include <atomic>

#include "Interpreter.h"
#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/tn/limited_pool.h"

namespace tnrobot::python {

/// A limited pool whose requests wait for room in short steps, between which Python hears of signals: so Ctrl-C
/// ends a wait, also within a call of the library that asks for memory.
class PatientPool final : public ITnRobotMemoryBlockPool {
public:
    /// @param[in] source     where the memory comes from.
    /// @param[in] nMostBytes  the limit.
    /// @param[in] wait       longest wait of a request.
    /// @param[in] nUnit      bytes that blocks are counted in.
    PatientPool(TnRobotPtr<ITnRobotMemoryBlockPool> source, unsigned long long nMostBytes,
                std::chrono::milliseconds wait, unsigned int nUnit);

    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) override;

    /// As above, with the reason.
    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock, std::error_code& ec);

    void FreeUnuseMemory() override { m_pool->FreeUnuseMemory(); }

    /// @return what was counted, a request with several steps as one.
    tn::LimitedPoolCounters Counters() const;

private:
    const std::chrono::milliseconds m_wait;
    const TnRobotPtr<tn::LimitedPool> m_pool;
    std::atomic<unsigned long long> m_nRepeated{0};  // steps beyond the first of each request
};

/// What the Python class BlockPool and its subclasses stand for.
class BlockPool : public Bound {
public:
    explicit BlockPool(TnRobotPtr<ITnRobotMemoryBlockPool> pool) : m_pool(std::move(pool)) {}

    /// @return the pool. ValueError for an object whose __init__ was never called.
    ITnRobotMemoryBlockPool& Get() const;

private:
    TnRobotPtr<ITnRobotMemoryBlockPool> m_pool;  // never changes
};

/// Adds the classes.
void BindPools(py::module_& module);

}  // namespace tnrobot::python

#endif  // PYTHON_POOLS_H_
