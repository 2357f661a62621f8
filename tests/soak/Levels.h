// What the process takes of the machine, over time, and whether that stays level.

#ifndef TNROBOTKERNEL_TESTS_SOAK_LEVELS_H_
#define TNROBOTKERNEL_TESTS_SOAK_LEVELS_H_

#include <cstddef>
#include <string>
#include <vector>

namespace tnsoak {

struct Level {
    double dShare = 0;  ///< of the run, 0 to 1
    long long nResidentKiB = 0;
    long long nHeapKiB = 0;  ///< in use
    std::size_t nDescriptors = 0;
    std::size_t nThreads = 0;
    long long nPieces = 0;  ///< of work, done so far
};

/// @return what the process takes now.
Level TakeLevel(double dShare);

/// Compares the run's last quarter with its second one; the first one is for warming up.
/// @return what has grown, one line each; empty when nothing has.
std::string Growth(const std::vector<Level>& levels);

/// @return the pieces of work that were done in one quarter of the run, 0 to 3.
double PiecesOfQuarter(const std::vector<Level>& levels, int nQuarter);

}  // namespace tnsoak

#endif  // TNROBOTKERNEL_TESTS_SOAK_LEVELS_H_
