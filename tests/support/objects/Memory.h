// Shorthands for the tests of memory blocks and what is built on them.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_MEMORY_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_MEMORY_H_

#include <utility>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"

namespace tntest {

using HeldBlock = TnRobotPtr<ITnRobotMemoryBlock>;
using HeldPool = TnRobotPtr<ITnRobotMemoryBlockPool>;

inline HeldPool MakePool() {
    ITnRobotMemoryBlockPool* pPool = nullptr;
    TnCreateRobotMemoryBlockPool(&pPool);
    return tn::Adopt(pPool);
}

inline HeldPool MakeCirclePool() {
    ITnRobotMemoryBlockPool* pPool = nullptr;
    TnCreateRobotCircleMemoryBlockPool(&pPool);
    return tn::Adopt(pPool);
}

/// @return null when the pool refuses.
inline HeldBlock Query(ITnRobotMemoryBlockPool& pool, unsigned int nSize) {
    ITnRobotMemoryBlock* pBlock = nullptr;
    return pool.QueryMemBuff(nSize, &pBlock) == 1 ? tn::Adopt(pBlock) : nullptr;
}

inline HeldBlock MakeView(ITnRobotMemoryBlock* pParent, unsigned char* pData, unsigned int nSize) {
    ITnRobotMemoryBlock* pBlock = nullptr;
    TnCreateRobotCustomMemBlock(pParent, pData, nSize, &pBlock);
    return tn::Adopt(pBlock);
}

inline unsigned char* DataOf(ITnRobotMemoryBlock& block) {
    unsigned int nSize = 0;
    return block.QueryMemory(nSize);
}

inline unsigned int SizeOf(ITnRobotMemoryBlock& block) {
    unsigned int nSize = 0;
    block.QueryMemory(nSize);
    return nSize;
}

/// Writes bytes into a block that depend on the seed and on the position.
inline void FillPattern(ITnRobotMemoryBlock& block, unsigned int nSeed) {
    unsigned int nSize = 0;
    unsigned char* pData = block.QueryMemory(nSize);
    for (unsigned int n = 0; n < nSize; ++n) {
        pData[n] = static_cast<unsigned char>(nSeed * 31 + n * 7 + (n >> 8));
    }
}

inline bool HasPattern(ITnRobotMemoryBlock& block, unsigned int nSeed) {
    unsigned int nSize = 0;
    const unsigned char* pData = block.QueryMemory(nSize);
    for (unsigned int n = 0; n < nSize; ++n) {
        if (pData[n] != static_cast<unsigned char>(nSeed * 31 + n * 7 + (n >> 8))) {
            return false;
        }
    }
    return true;
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_MEMORY_H_
