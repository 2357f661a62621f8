// How much a loading pass asks of a file at once.

#ifndef TNROBOTKERNEL_SRC_CORE_TNREADSTEP_H_
#define TNROBOTKERNEL_SRC_CORE_TNREADSTEP_H_

#include <algorithm>
#include <cstddef>

namespace tnrobot {

/// What a loading pass asks for at first, whatever the file says it holds. Fuzzing builds take small
/// steps, so that a few hundred bytes of input reach what happens between two of them, and a wrong
/// count costs little.
#ifdef TNROBOT_SMALL_READ_STEPS
constexpr std::size_t kReadStep = 64;
#else
constexpr std::size_t kReadStep = std::size_t{1} << 20U;
#endif

/// Counts in a file are hostile: memory grows only as bytes really arrive. Each step asks for as many
/// as have arrived before, so that memory stays below twice what there is and one first step, and
/// what is there is moved a few times only where the allocator cannot extend it in place.
/// @param[in] nCount    bytes that the file promises.
/// @param[in] nArrived  those of them that are there.
/// @return bytes to ask for next; 0 when all are there.
constexpr std::size_t NextReadStep(std::size_t nCount, std::size_t nArrived) {
    return std::min(nCount - nArrived, std::max(nArrived, kReadStep));
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNREADSTEP_H_
