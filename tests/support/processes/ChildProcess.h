// Runs a program of the tests in a process of its own, for state that a process has only once.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_CHILDPROCESS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_CHILDPROCESS_H_

#include <string>
#include <utility>
#include <vector>

namespace tntest {

struct ChildResult {
    int nExitCode = -1;  ///< -1 when the program was ended by a signal
    int nSignal = 0;
    std::string output;  ///< what it wrote to its standard output, and to its error output if asked for
};

struct ChildProgram {
    std::string path;
    std::vector<std::string> arguments;
    std::vector<std::pair<std::string, std::string>> environment;  ///< set in addition to ours
    std::string directory;                                         ///< current directory; ours when empty
    bool bWithErrors = false;                                      ///< whether the error output counts
    bool bOfSystem = false;  ///< the system's, not the tests' own: never in an emulator
};

/// A shell script in which "$@" is the program of the tests with its arguments.
ChildProgram InShell(const std::string& script, const std::string& path, const std::vector<std::string>& arguments);

/// @return whether the programs of the tests, this one too, run in an emulator.
bool IsEmulated();

/// @return how many of so many random tries a test makes: in an emulator a tenth, since each takes ten
///         times as long there. What they look for hardly depends on the processor.
int RandomTries(int nTries);

/// @return the limit of processor time for work that is to end soon: ten times as many seconds in an emulator.
double SecondsAllowed(double dSeconds);

/// Becomes a program of the tests, in a process of its own; where the tests run in an emulator, in
/// one more of it. A program that cannot be started ends the process with exit code 127.
[[noreturn]] void BecomeProgram(const std::string& path, const std::vector<std::string>& arguments);

/// Runs the program to its end. A program that hangs is ended by SIGALRM.
ChildResult RunChild(const ChildProgram& program);

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_CHILDPROCESS_H_
