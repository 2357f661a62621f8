// Pool of memory blocks of one capacity.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNROBOTFIXEDMEMBLOCKPOOL_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNROBOTFIXEDMEMBLOCKPOOL_H_

#include <cstdint>
#include <mutex>
#include <set>

#include "TnRobotKernel/detail/CacheLine.h"
#include "TnRobotKernel/detail/RingQueue.h"
#include "core/TnSchedule.h"
#include "memory/TnRobotMemoryBlock.h"

/// Hands out blocks of one capacity, reuses the most recently returned one first, and frees those
/// that have lain unused for longer than the idle time.
///
/// Invariants (under m_mutex): every block that the pool made and still owns is in m_allBlocks,
/// with one reference of the pool's; m_freeBlocks holds those that came back, most recently returned
/// first, and has room for all of them, so that taking one back cannot fail. Nobody else refers to
/// those, unless a caller has called RecoveryMemBuff himself; a block that leaves m_allBlocks has no
/// place in m_freeBlocks left.
///
/// Lock order: the general pool's lock, then m_mutex; nothing is called out to under m_mutex.
/// Threads:    thread-safe. Blocks may be released while the pool is being destroyed.
class CTnRobotFixedMemBlockPool final : public ITnUnknown, public ITnRobotMemoryBlockParent {
public:
    /// @param[in]  nBlockSize    capacity of every block in bytes, at least 1.
    /// @param[in]  nMaxCount     most blocks the pool may own at once, at least 1.
    /// @param[in]  dIdleSeconds  how long a free block may lie unused.
    /// @param[out] ppPool        +1, caller releases; null on failure.
    /// @return 1, or 0 for a size or count of 0 and for a null ppPool.
    static int CreateInstance(unsigned int nBlockSize, unsigned int nMaxCount, double dIdleSeconds,
                              CTnRobotFixedMemBlockPool** ppPool);

    ~CTnRobotFixedMemBlockPool() override;

    /// Hands out a block whose used size is its capacity.
    /// @param[out] ppBlock  +1, caller releases; untouched on failure.
    /// @return 1, or 0 for a null ppBlock or when the maximum is in use.
    int QueryBlock(ITnRobotMemoryBlock** ppBlock);

    void RecoveryMemBuff(ITnRobotMemoryBlock* pBlock) override;

    /// Frees the blocks that have been idle, oldest first, up to the first that is still young.
    void FreeUnuseMemory();

    /// @return number of blocks, in use and free.
    unsigned int GetCount() const;

    /// @return bytes in all blocks, modulo 2 to the 32nd.
    unsigned int GetMemorySize() const;

    /// Says that a call of QueryBlock will follow. Under the owner's lock, as IsUnused is.
    void AnnounceQuery() { ++m_nAnnounced; }

    /// @return whether the pool holds no block, in use or free, and has dealt with all queries that
    ///         its owner has announced.
    bool IsUnused() const;

private:
    explicit CTnRobotFixedMemBlockPool(double dIdleSeconds) : m_dIdleSeconds(dIdleSeconds) {}
    bool _Initialize(unsigned int nBlockSize, unsigned int nMaxCount);
    bool _MakeBlock();
    bool _Lend(CTnRobotMemoryBlock* pBlock);
    void _FreeOldestBlock();
    void _LetGoOfAllBlocks();
    void _CheckInvariants() const;

    unsigned int m_nBlockSize = 0;
    unsigned int m_nMaxCount = 0;
    mutable tnrobot::Mutex m_mutex;
    tnrobot::ConditionVariable m_returned;                     // a block came back to a closing pool
    std::set<CTnRobotMemoryBlock*> m_allBlocks;                // guarded by m_mutex
    tn::detail::RingQueue<CTnRobotMemoryBlock*> m_freeBlocks;  // guarded by m_mutex
    std::uint64_t m_nAnnounced = 0;                            // guarded by the owner's lock
    std::uint64_t m_nAnswered = 0;                             // guarded by m_mutex; queries dealt with
    double m_dIdleSeconds;
    bool m_bClosing = false;  // guarded by m_mutex
    tn::detail::CacheLineEnd m_end;
};

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNROBOTFIXEDMEMBLOCKPOOL_H_
