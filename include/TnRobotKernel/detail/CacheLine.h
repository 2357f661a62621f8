// Keeps what different threads write at the same time out of each other's cache lines.

#ifndef TNROBOTKERNEL_DETAIL_CACHELINE_H_
#define TNROBOTKERNEL_DETAIL_CACHELINE_H_

#include <cstddef>

namespace tn::detail {

/// Bytes of a cache line. (The standard's own constant changes with the compiler's options.)
constexpr std::size_t kCacheLine = 64;

/// The last member of a class whose fields one thread writes while another writes those of the next
/// object in memory. The gap does what an alignment of the class would do, and the class still
/// comes from the plain operator new.
struct CacheLineEnd {
    unsigned char m_unused[kCacheLine] = {};
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_DETAIL_CACHELINE_H_
