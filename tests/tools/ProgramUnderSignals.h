// Runs a program one system call at a time, and sends it a signal at a chosen one.

#ifndef TNROBOTKERNEL_TESTS_TOOLS_PROGRAMUNDERSIGNALS_H_
#define TNROBOTKERNEL_TESTS_TOOLS_PROGRAMUNDERSIGNALS_H_

#include <functional>
#include <string>
#include <vector>

namespace tntest {

/// How a program ended.
struct ProgramEnd {
    int nExitCode = -1;  ///< -1 when a signal ended it
    int nSignal = 0;
    int nStops = 0;  ///< times that it stopped: each of its system calls stops it twice
};

struct TracedProgram {
    std::vector<std::string> words;  ///< path and arguments
    std::string directory;           ///< current directory
    int nIgnored = 0;                ///< a signal that the program is started with as ignored
};

/// Runs a program with its output dropped.
/// @param[in] atStop  called at each stop with its number. @return the signal that the program gets
///                    there, 0 for none.
ProgramEnd RunTraced(const TracedProgram& program, const std::function<int(int)>& atStop);

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_TOOLS_PROGRAMUNDERSIGNALS_H_
