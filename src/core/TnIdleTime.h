// How long something has been idle, in the unit and precision in which idle times are compared.

#ifndef TNROBOTKERNEL_SRC_CORE_TNIDLETIME_H_
#define TNROBOTKERNEL_SRC_CORE_TNIDLETIME_H_

#include <chrono>

namespace tnrobot {

/// @return seconds between two readings of the wall clock: its ticks (nanoseconds) / 1e9.
inline double SecondsBetween(std::chrono::system_clock::time_point from, std::chrono::system_clock::time_point to) {
    return static_cast<double>((to - from).count()) / 1e9;
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNIDLETIME_H_
