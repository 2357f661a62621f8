// Counts the system calls of a program, kills it at one of them, or lets one of them fail.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_SYSTEMCALLS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_SYSTEMCALLS_H_

#include <string>
#include <vector>

#include "support/processes/ChildProcess.h"

namespace tntest {

/// A system call of a program.
struct SystemCall {
    std::string name;
    int nNumber = 0;       ///< among the program's calls of this name, from 1 on
    bool bPlaced = false;  ///< whether the program has renamed a file before
    std::string Text() const { return name + " " + std::to_string(nNumber); }
};

/// @return why programs of the tests cannot be traced; an empty text where they can.
std::string WhyNotTraced();

/// Runs a program under strace. Leaks are not looked for: that takes a tracer of its own.
/// @param[in] options  of strace, which writes nothing unless they say where to.
ChildResult RunTraced(const ChildProgram& program, const std::vector<std::string>& options);

/// @return the calls that a program makes, from the first one that names the text to its end.
std::vector<SystemCall> CallsFrom(const ChildProgram& program, const std::string& strFirst);

/// @return some of the calls, evenly spread: all with TNROBOT_TEST_EVERY_CALL in the environment.
std::vector<SystemCall> Sampled(const std::vector<SystemCall>& calls);

/// @return the distance between the bytes at which a disk is tried full, which takes so many tries; with
///         TNROBOT_TEST_EVERY_CALL it is 1 for all but a long file.
std::size_t StepOf(std::size_t nBytes, std::size_t nTries);

/// @return the errors that the system may answer to such a call, without EINTR; none for one that cannot fail,
///         or that a sanitizer makes too, which would end the program.
std::vector<std::string> ErrorsOf(const SystemCall& call);

/// @return whether a signal may interrupt such a call, which is no failure then.
bool CanBeInterrupted(const SystemCall& call);

/// Runs a program that is killed when it is about to make the call.
ChildResult RunKilledAt(const ChildProgram& program, const SystemCall& call);

/// Runs a program to which the system answers the call with an error.
ChildResult RunRefused(const ChildProgram& program, const SystemCall& call, const std::string& strError);

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_SYSTEMCALLS_H_
