// A block that views caller memory.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNROBOTPROTOCOLMEMBLOCK_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNROBOTPROTOCOLMEMBLOCK_H_

#include <chrono>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"

/// Views memory that belongs to the caller or to another block, which it keeps alive. It is
/// destroyed, not recycled, by its last Release.
class CTnRobotProtocolMemBlock final : public ITnRobotMemoryBlock {
public:
    /// Makes a block; see TnCreateRobotCustomMemBlock. @return always 1.
    static int CreateInstance(ITnRobotMemoryBlock* pParent, unsigned char* pData, unsigned int nSize,
                              ITnRobotMemoryBlock** ppBlock);

    unsigned char* QueryMemory(unsigned int& nSize) override;

    /// @return the current time: a view is never idle.
    std::chrono::system_clock::time_point GetRecoveryTime() const;

    /// Lets the parent block go.
    void ClearResource();

private:
    CTnRobotProtocolMemBlock() = default;
    bool _Init(ITnRobotMemoryBlock* pParent, unsigned char* pData, unsigned int nSize);

    TnRobotPtr<ITnRobotMemoryBlock> m_parentBlock;
    unsigned char* m_pData = nullptr;  // not owned
    unsigned int m_nSize = 0;
};

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNROBOTPROTOCOLMEMBLOCK_H_
