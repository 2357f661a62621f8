#include "support/processes/ChildProcess.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace tntest {

namespace {

constexpr unsigned int kLongestRunSeconds = 120;
constexpr int kCannotStart = 127;
constexpr int kEmulatorSlowness = 10;

#ifdef TNROBOT_TEST_EMULATOR
const std::vector<std::string> kEmulator = {TNROBOT_TEST_EMULATOR};
#else
const std::vector<std::string> kEmulator;
#endif

// A program of the tests and its arguments, the emulator's words before them if they need one.
std::vector<std::string> WordsFor(const std::string& path, const std::vector<std::string>& arguments) {
    std::vector<std::string> words = kEmulator;
    words.push_back(path);
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

[[noreturn]] void Execute(std::string program, std::vector<std::string> arguments) {
    std::vector<char*> words = {program.data()};
    for (std::string& argument : arguments) {
        words.push_back(argument.data());
    }
    words.push_back(nullptr);
    execvp(program.c_str(), words.data());
    _exit(kCannotStart);
}

[[noreturn]] void Become(const ChildProgram& program, int nOutput) {
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
    if (program.bOfSystem) {
        Execute(program.path, program.arguments);
    }
    BecomeProgram(program.path, program.arguments);
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

bool IsEmulated() {
    return !kEmulator.empty();
}

int RandomTries(int nTries) {
    return IsEmulated() ? nTries / kEmulatorSlowness : nTries;
}

double SecondsAllowed(double dSeconds) {
    return IsEmulated() ? dSeconds * kEmulatorSlowness : dSeconds;
}

void BecomeProgram(const std::string& path, const std::vector<std::string>& arguments) {
    std::vector<std::string> words = WordsFor(path, arguments);
    const std::string first = words.front();
    words.erase(words.begin());
    Execute(first, words);
}

ChildProgram InShell(const std::string& script, const std::string& path, const std::vector<std::string>& arguments) {
    ChildProgram shell;
    shell.path = "/bin/sh";
    shell.arguments = {"-c", script, "sh"};
    for (std::string& word : WordsFor(path, arguments)) {
        shell.arguments.push_back(std::move(word));
    }
    shell.bOfSystem = true;
    return shell;
}

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
        Become(program, ends[1]);
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

#ifdef TNROBOT_TEST_EMULATOR

// GoogleTest starts the program itself anew for some tests that end a process; the linker leads its
// call here.
extern "C" int __wrap_execv(const char* lpszPath, char* const ppszWords[]);  // NOLINT(bugprone-reserved-identifier)

int __wrap_execv(const char* lpszPath, char* const ppszWords[]) {  // NOLINT(bugprone-reserved-identifier)
    std::vector<std::string> arguments;
    for (char* const* ppszWord = ppszWords + 1; *ppszWord != nullptr; ++ppszWord) {
        arguments.emplace_back(*ppszWord);
    }
    tntest::BecomeProgram(lpszPath, arguments);
}

#endif
