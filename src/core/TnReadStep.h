// How much a loading pass asks of a file at once.

#ifndef TNROBOTKERNEL_SRC_CORE_TNREADSTEP_H_
#define TNROBOTKERNEL_SRC_CORE_TNREADSTEP_H_

#include <cstddef>

namespace tnrobot {

/// Counts in a file are hostile: memory grows only as bytes really arrive, by no more than this
/// many bytes at a time. Fuzzing builds take small steps, so that a few hundred bytes of input
/// reach what happens between two of them, and a wrong count costs little.
#ifdef TNROBOT_SMALL_READ_STEPS
constexpr std::size_t kReadStep = 64;
#else
constexpr std::size_t kReadStep = std::size_t{1} << 20U;
#endif

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNREADSTEP_H_
