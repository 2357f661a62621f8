#include "tools/ProgramUnderSignals.h"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace tntest {

namespace {

constexpr unsigned int kLongestRunSeconds = 120;
constexpr int kCannotStart = 127;

// The bit that tells a stop at a system call from one at a signal.
constexpr int kSystemCall = 0x80;

[[noreturn]] void BecomeProgram(const TracedProgram& program) {
    alarm(kLongestRunSeconds);
    // A leak check traces the program itself, which is not possible twice.
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    const int nNowhere = open("/dev/null", O_RDWR);
    std::vector<char*> words;
    for (const std::string& word : program.words) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    if (program.nIgnored != 0) {
        signal(program.nIgnored, SIG_IGN);
    }
    if (dup2(nNowhere, STDOUT_FILENO) < 0 || dup2(nNowhere, STDERR_FILENO) < 0 ||
        chdir(program.directory.c_str()) != 0 || ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(kCannotStart);
    }
    execv(words[0], words.data());
    _exit(kCannotStart);
}

int WaitFor(pid_t child) {
    int nStatus = 0;
    if (waitpid(child, &nStatus, 0) != child) {
        throw std::runtime_error("the traced program is gone");
    }
    return nStatus;
}

void GoOn(pid_t child, int nSignal) {
    ptrace(PTRACE_SYSCALL, child, nullptr, static_cast<long>(nSignal));
}

}  // namespace

ProgramEnd RunTraced(const TracedProgram& program, const std::function<int(int)>& atStop) {
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("no child process");
    }
    if (child == 0) {
        BecomeProgram(program);
    }
    ProgramEnd end;
    int nStatus = WaitFor(child);  // at the start of the program
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    GoOn(child, 0);
    for (nStatus = WaitFor(child); WIFSTOPPED(nStatus); nStatus = WaitFor(child)) {
        int nPassedOn = WSTOPSIG(nStatus);
        if (nPassedOn == (SIGTRAP | kSystemCall)) {
            const int nSignal = atStop(end.nStops++);
            if (nSignal != 0) {
                kill(child, nSignal);  // stops the program once more, which passes it on
            }
            nPassedOn = 0;
        }
        GoOn(child, nPassedOn);
    }
    end.nExitCode = WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    end.nSignal = WIFSIGNALED(nStatus) ? WTERMSIG(nStatus) : 0;
    return end;
}

}  // namespace tntest
