// General block pools that take memory back when a test wants them to.

#ifndef TNROBOTKERNEL_TESTS_MEMORY_IDLEPOOLS_H_
#define TNROBOTKERNEL_TESTS_MEMORY_IDLEPOOLS_H_

#include <gtest/gtest.h>

#include "memory/TnRobotRandomMemBlockPool.h"
#include "support/objects/Memory.h"

namespace tntest {

/// A general pool that counts a size as idle after so many seconds.
inline HeldPool MakePoolIdleAfter(double dSeconds) {
    ITnRobotMemoryBlockPool* pPool = nullptr;
    EXPECT_EQ(CTnRobotRandomMemBlockPool::CreateInstance(dSeconds, &pPool), 1);
    return tn::Adopt(pPool);
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_MEMORY_IDLEPOOLS_H_
