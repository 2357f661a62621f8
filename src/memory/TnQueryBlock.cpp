// How the library asks block pools.

#include "memory/TnQueryBlock.h"

namespace {

// Every try is a race of its own, and each lost one has given a block to somebody else: so many in a
// row do not happen.
constexpr int kMostTries = 100;

}  // namespace

TnRobotPtr<ITnRobotMemoryBlock> tnrobot::QueryBlock(ITnRobotMemoryBlockPool& pool, unsigned int nSize) {
    for (int nTry = 0; nTry < kMostTries; ++nTry) {
        ITnRobotMemoryBlock* pBlock = nullptr;
        if (pool.QueryMemBuff(nSize, &pBlock) == 0) {
            return {};
        }
        if (pBlock != nullptr) {
            return tn::Adopt(pBlock);
        }
    }
    return {};
}
