#include "support/ChildProcess.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace tntest {

namespace {

constexpr unsigned int kLongestRunSeconds = 120;
constexpr int kCannotStart = 127;

[[noreturn]] void BecomeProgram(const ChildProgram& program, int nOutput) {
    // An expected abort leaves no core file behind.
    const rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    alarm(kLongestRunSeconds);
    for (const auto& [name, value] : program.environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    if ((!program.directory.empty() && chdir(program.directory.c_str()) != 0) || dup2(nOutput, STDOUT_FILENO) < 0) {
        _exit(kCannotStart);
    }
    if (program.bWithErrors && dup2(nOutput, STDERR_FILENO) < 0) {
        _exit(kCannotStart);
    }
    std::vector<char*> arguments;
    arguments.push_back(const_cast<char*>(program.path.c_str()));
    for (const std::string& argument : program.arguments) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    execv(program.path.c_str(), arguments.data());
    _exit(kCannotStart);
}

std::string ReadToEnd(int nInput) {
    std::string text;
    char buffer[4096];
    for (ssize_t nRead = 0; (nRead = read(nInput, buffer, sizeof(buffer))) > 0;) {
        text.append(buffer, static_cast<std::size_t>(nRead));
    }
    return text;
}

}  // namespace

ChildResult RunChild(const ChildProgram& program) {
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("no child process");
    }
    if (child == 0) {
        close(ends[0]);
        BecomeProgram(program, ends[1]);
    }
    close(ends[1]);
    ChildResult result;
    result.output = ReadToEnd(ends[0]);
    close(ends[0]);
    int nStatus = 0;
    waitpid(child, &nStatus, 0);
    if (WIFEXITED(nStatus)) {
        result.nExitCode = WEXITSTATUS(nStatus);
    }
    if (WIFSIGNALED(nStatus)) {
        result.nSignal = WTERMSIG(nStatus);
    }
    return result;
}

}  // namespace tntest
