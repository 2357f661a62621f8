// Memory straight from the system, for what is large and grows.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNMAPPEDMEMORY_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNMAPPEDMEMORY_H_

#include <cstddef>

namespace tnrobot {

/// Memory whose bytes are zero until they are written to, and which grows without being copied: the
/// system moves its pages, not their bytes. It asks for huge pages; the system finds and clears a page at
/// its first use, as with any memory.
///
/// The allocator's own memory may do as well, but does not say whether it is zero, so that whoever needs
/// zeros has to write them over all of it first.
///
/// Lifetime: the caller gives it back by UnmapMemory, with the size that it has then.
/// Threads:  thread-safe; one piece is externally synchronised.
///
/// @param[in] nSize  bytes, at least 1; whole huge pages are mapped.
/// @return null when the system has no memory left.
unsigned char* MapMemory(std::size_t nSize);

/// Makes a piece larger; the new bytes are zero.
/// @param[in] nOldSize  the piece's size, as it was asked for; nNewSize  at least as many.
/// @return where the piece is now; null when the system has no memory left, and then nothing changes.
unsigned char* GrowMapped(unsigned char* pMemory, std::size_t nOldSize, std::size_t nNewSize);

/// Gives a piece back to the system. @param[in] nSize  its size, as it was asked for.
void UnmapMemory(unsigned char* pMemory, std::size_t nSize);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNMAPPEDMEMORY_H_
