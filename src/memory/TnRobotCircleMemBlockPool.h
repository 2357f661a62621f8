// The circular pool: blocks of any size cut one after another out of large buffers.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNROBOTCIRCLEMEMBLOCKPOOL_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNROBOTCIRCLEMEMBLOCKPOOL_H_

#include <list>
#include <memory>
#include <mutex>

#include "core/TnSchedule.h"
#include "memory/TnRobotMemoryBlock.h"

/// Cuts blocks like a bump allocator and starts a buffer over when every block cut from it is
/// back. Buffers are made four at once, then one by one, and freed with the pool.
///
/// Invariants: a buffer lives as long as the pool, so a reference to it stays valid without a
/// lock. It is in exactly one list: in the spent list, and then not marked ready, from when it
/// was too full for a request until its last block comes back. The bytes behind its cursor
/// belong to no block, and it is only rewound, under its lock, while nothing of it is in use.
///
/// Lock order: m_mutex, then the lock of a buffer.
/// Threads:    thread-safe. Blocks may be released while the pool is being destroyed.
class CTnRobotCircleMemBlockPool final : public ITnRobotMemoryBlockPool, public ITnRobotMemoryBlockParent {
public:
    static constexpr unsigned int kBufferSize = 0x1800000;  ///< 24 MiB, also the largest block

    /// @param[out] ppPool  +1, caller releases. @return 1.
    static int CreateInstance(ITnRobotMemoryBlockPool** ppPool);

    ~CTnRobotCircleMemBlockPool() override;

    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) override;

    /// Does nothing: buffers are kept for the next blocks.
    void FreeUnuseMemory() override {}

    void RecoveryMemBuff(ITnRobotMemoryBlock* pBlock) override;

private:
    friend struct CircleMemBlockPoolPeer;  // tests take the two steps of a request apart

    class Buffer;
    using Buffers = std::list<std::unique_ptr<Buffer>>;

    CTnRobotCircleMemBlockPool();
    bool _Init();
    void _AddBuffer();
    Buffer& _ChooseBuffer(unsigned int nSize);
    int _CutBlock(Buffer& buffer, unsigned int nSize, ITnRobotMemoryBlock** ppBlock);
    void _ReturnLastBlock(Buffer& buffer, CTnRobotMemoryBlock* pBlock);

    tnrobot::Mutex m_mutex;
    Buffers m_readyBuffers;  // guarded by m_mutex: blocks are cut from the first
    Buffers m_spentBuffers;  // guarded by m_mutex: too full, waiting for their blocks
};

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNROBOTCIRCLEMEMBLOCKPOOL_H_
