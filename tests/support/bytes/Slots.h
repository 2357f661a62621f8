// Which slot of its interface's table a virtual operation has, as the C++ ABI tells it.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_BYTES_SLOTS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_BYTES_SLOTS_H_

#include <cstddef>
#include <cstring>

namespace tntest {

struct SlotAddress {
    std::ptrdiff_t nSlot;        ///< -1 for what is not virtual
    std::ptrdiff_t nBaseOffset;  ///< offset in bytes of the base that the table belongs to
};

/// Takes a pointer to a member function apart. It is made of two words: the slot's offset in bytes,
/// and the base's. A bit says that the function is virtual. Elsewhere that is the lowest bit of the
/// first word, where it cannot be part of a function's address; on Arm processors it can, so there
/// it is the lowest bit of the second word, whose other bits are the offset.
template <typename Member>
SlotAddress SlotOf(Member pfn) {
    std::ptrdiff_t words[2] = {};
    static_assert(sizeof(pfn) == sizeof(words), "not the ABI that the numbers were taken from");
    std::memcpy(words, &pfn, sizeof(words));
#if defined(__aarch64__) || defined(__arm__)
    const bool bVirtual = (words[1] & 1) != 0;
    const std::ptrdiff_t nOffset = words[0];
    const std::ptrdiff_t nBaseOffset = words[1] / 2;
#else
    const bool bVirtual = (words[0] & 1) != 0;
    const std::ptrdiff_t nOffset = words[0] - 1;
    const std::ptrdiff_t nBaseOffset = words[1];
#endif
    constexpr auto nSlotBytes = static_cast<std::ptrdiff_t>(sizeof(void*));
    return {bVirtual && nOffset % nSlotBytes == 0 ? nOffset / nSlotBytes : -1, nBaseOffset};
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_BYTES_SLOTS_H_
