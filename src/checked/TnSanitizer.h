// Hides pooled memory from AddressSanitizer's view while it lies on a free list, where a use
// after release would otherwise go unnoticed.

#ifndef TNROBOTKERNEL_SRC_CHECKED_TNSANITIZER_H_
#define TNROBOTKERNEL_SRC_CHECKED_TNSANITIZER_H_

#if defined(__SANITIZE_ADDRESS__)
#define TN_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TN_ADDRESS_SANITIZER 1
#endif
#endif

#ifdef TN_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

#include <cstddef>

namespace tnrobot {

#ifdef TN_ADDRESS_SANITIZER
constexpr bool kHidesMemory = true;  ///< whether the functions below do anything
inline void PoisonMemory(const void* p, std::size_t nSize) {
    ASAN_POISON_MEMORY_REGION(p, nSize);
}
inline void UnpoisonMemory(const void* p, std::size_t nSize) {
    ASAN_UNPOISON_MEMORY_REGION(p, nSize);
}
#else
constexpr bool kHidesMemory = false;
inline void PoisonMemory(const void* /*p*/, std::size_t /*nSize*/) {}
inline void UnpoisonMemory(const void* /*p*/, std::size_t /*nSize*/) {}
#endif

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CHECKED_TNSANITIZER_H_
