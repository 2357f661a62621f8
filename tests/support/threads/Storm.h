// How long a storm is: a test in which threads do many times at once what is hard to order.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_THREADS_STORM_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_THREADS_STORM_H_

#include <algorithm>
#include <cstdlib>

namespace tntest {

/// @return the seed that the environment asks schedules to be tried with, TNROBOT_SCHEDULE_SEED; 0 for none.
inline unsigned int ScheduleSeed() {
    const char* lpszSeed = std::getenv("TNROBOT_SCHEDULE_SEED");
    return lpszSeed != nullptr ? static_cast<unsigned int>(std::strtoul(lpszSeed, nullptr, 10)) : 0;
}

/// @return how often a storm does what it does: nUsual times, and a twentieth of it under a seeded schedule, of
///         which many are tried.
constexpr int kShorter = 20;
inline int StormLength(int nUsual) {
    return ScheduleSeed() == 0 ? nUsual : std::max(1, nUsual / kShorter);
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_THREADS_STORM_H_
