// The general pool: blocks of any size from one fixed-size pool per size class.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNROBOTRANDOMMEMBLOCKPOOL_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNROBOTRANDOMMEMBLOCKPOOL_H_

#include <chrono>
#include <mutex>
#include <vector>

#include "TnRobotKernel/detail/CacheLine.h"
#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"
#include "core/TnSchedule.h"
#include "memory/TnRobotFixedMemBlockPool.h"

/// Rounds every request up to whole units of 32 KiB and keeps a fixed-size pool per rounded size,
/// made on first demand and dropped by the sweep that finds it empty.
///
/// Invariant: a size class that the list has let go holds no block and no thread is asking it for
/// one, so a block's parent is always in the list of a living pool.
///
/// Lock order: m_mutex, then the lock of a fixed pool.
/// Threads:    thread-safe.
class CTnRobotRandomMemBlockPool final : public ITnRobotMemoryBlockPool {
public:
    /// @param[in]  dIdleSeconds  idle time of blocks, and the least time between two sweeps.
    /// @param[out] ppPool        +1, caller releases. @return 1, or 0 for a null ppPool.
    static int CreateInstance(double dIdleSeconds, ITnRobotMemoryBlockPool** ppPool);

    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) override;
    void FreeUnuseMemory() override;

    /// Does nothing: blocks return to the fixed-size pool that made them.
    void RecoveryMemBuff() {}

private:
    // Queries only read this, so that threads in different size classes share no more than m_mutex.
    struct SizeClass {
        unsigned int m_nRoundedSize = 0;
        TnRobotPtr<CTnRobotFixedMemBlockPool> m_pool;
    };

    explicit CTnRobotRandomMemBlockPool(double dIdleSeconds);
    bool _Init() { return true; }
    CTnRobotFixedMemBlockPool* _AskSizeClass(unsigned int nRoundedSize);
    bool _BeginSweep();

    tnrobot::Mutex m_mutex;
    std::vector<SizeClass> m_sizeClasses;  // guarded by m_mutex; in ascending order of size
    tnrobot::Atomic<std::chrono::system_clock::time_point> m_lastSweep;
    const double m_dIdleSeconds;
    tn::detail::CacheLineEnd m_end;
};

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNROBOTRANDOMMEMBLOCKPOOL_H_
