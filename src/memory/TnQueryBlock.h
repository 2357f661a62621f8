// The one way in which the library itself asks a block pool for memory.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNQUERYBLOCK_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNQUERYBLOCK_H_

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"

namespace tnrobot {

/// Asks for a block, and again while the pool answers success without one: the circular pool does
/// when other threads were faster. A pool of the application's own may do so for ever, so there is
/// an end to it. A block that comes with a refusal is not ours and is left alone.
/// @return the block, of whatever size the pool gave it; null when the pool refuses or gives none.
/// Threads: as the pool.
TnRobotPtr<ITnRobotMemoryBlock> QueryBlock(ITnRobotMemoryBlockPool& pool, unsigned int nSize);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNQUERYBLOCK_H_
