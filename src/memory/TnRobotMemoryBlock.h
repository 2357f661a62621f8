// The block that pools hand out.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNROBOTMEMORYBLOCK_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNROBOTMEMORYBLOCK_H_

#include <chrono>

#include "TnRobotKernel/detail/CacheLine.h"
#include "TnRobotKernel/memory.h"
#include "checked/TnChecked.h"
#include "core/TnCounting.h"
#include "core/TnSchedule.h"

/// A pooled memory block.
///
/// In use it has the pool's reference and its holders'; free it has the pool's alone; orphaned
/// (its pool is gone) it has no parent and only its holders'. The fall of the count from 2 to 1,
/// not from 1 to 0, returns it to its parent.
///
/// Threads: AddRef, Release, Abandon and IsOf are thread-safe; what the pool remembers is guarded by
///          its lock; the rest belongs to the holder or, while the block is free, to the pool.
class CTnRobotMemoryBlock final : public ITnRobotMemoryBlock {
public:
    using TimePoint = std::chrono::system_clock::time_point;

    static constexpr unsigned int kOwnsMemory = 1;  ///< flag: data is freed with the block

    /// @param[in] pParent  borrowed; null for none.
    CTnRobotMemoryBlock(unsigned int nFlags, ITnRobotMemoryBlockParent* pParent);
    ~CTnRobotMemoryBlock() override;

    int Release() override;
    unsigned char* QueryMemory(unsigned int& nSize) override;

    /// Sets the memory; capacity and used size become nSize. The block frees pData (with array
    /// delete) when it owns its memory.
    void SetMemData(unsigned char* pData, unsigned int nSize);

    /// @return 1, or 0 for a size above the capacity, which changes nothing.
    int SetUsedSize(unsigned int nSize);

    /// Makes the whole capacity count as used.
    void ClearResource();

    void SetParent(ITnRobotMemoryBlockParent* pParent);
    void SetOwnerPtr(void* pOwner);
    void* GetOwnerPtr() const;
    void UpdateRecoveryTime();
    TimePoint GetRecoveryTime() const;

    /// Lets go of a block that is not free, for a pool that is being destroyed: clears the parent
    /// and gives the pool's reference back, which leaves the block to its holders.
    /// @return false, with nothing changed, when the last holder is just returning the block:
    ///         RecoveryMemBuff is being called then.
    bool Abandon();

    /// What Abandon does, and destroys the block when nobody holds it.
    /// @return false, with nothing changed, when the last holder is just returning the block.
    bool LetGo();

    // Relaxed suffices: the pool is not looked into. It has set itself as the parent before any of its
    // lists has the block, and clears it under its own lock; another pool's block never names this one.
    bool IsOf(const ITnRobotMemoryBlockParent* pParent) const {
        return m_pParent.load(std::memory_order_relaxed) == pParent;
    }

    // What the pool remembers of its block, under the pool's lock. RecoveryMemBuff is open to
    // everybody, so a block can come back while it is held, and lie on the free list more than once.

    /// Adds a reference for a new holder, whose last Release will return the block.
    /// @return false, with nothing changed, when an earlier last holder is just returning the block: two
    ///         such returns under way could not be told apart, and the pool would not wait for both.
    bool Lend() {
        if (tnrobot::RaiseCount(m_nRefCount) == 1 && m_bLent) {
            tnrobot::LowerCount(m_nRefCount);
            return false;
        }
        m_bLent = true;
        return true;
    }

    /// The block came back. Was it by another hand than its last holder's, that return is still to come.
    void NoteReturned() {
        if (tnrobot::ReadCount(m_nRefCount) == 1) {
            m_bLent = false;
        }
    }

    /// The block has got one more place on the free list.
    void NoteListed() { ++m_nListed; }

    /// The block has lost one. @return whether it was the last.
    bool NoteUnlisted() { return --m_nListed == 0; }

    unsigned int GetCapacity() const { return m_nCapacity; }

    /// Hides the memory of a block that its pool has just taken back, in checked builds. A block
    /// that somebody still holds, or that is no object of the library's, is left alone.
    /// @return the start of the memory that is hidden now, or null.
    const unsigned char* HideContent(const ITnUnknown* pPool) {
        return tnrobot::NoteFreed(this, m_nRefCount, pPool, m_pData, m_nCapacity) ? m_pData : nullptr;
    }

    /// Shows the memory of a block that leaves its pool's free list, if it was hidden.
    void ShowContent() const { tnrobot::NoteTaken(this, m_pData, m_nCapacity); }

private:
    unsigned char* m_pData = nullptr;
    unsigned int m_nCapacity = 0;
    unsigned int m_nUsedSize = 0;
    tnrobot::Atomic<ITnRobotMemoryBlockParent*> m_pParent;  // not counted
    void* m_pOwner = nullptr;                               // the pool's own bookkeeping
    unsigned int m_nFlags;
    unsigned int m_nListed = 0;  // guarded by the pool's lock: places on its free list
    TimePoint m_recoveryTime;
    bool m_bLent = false;  // guarded by the pool's lock: a last holder's Release is to come
    tn::detail::CacheLineEnd m_end;
};

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNROBOTMEMORYBLOCK_H_
