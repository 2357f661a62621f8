// strace counts each kind of call by itself, so a call is known by its name and its number there. A program
// that does the same work makes the same calls each time, but for a few.

#include "support/processes/SystemCalls.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <utility>

#include "support/processes/Sanitizers.h"
#include "support/processes/TempDirectory.h"

namespace tntest {

namespace {

constexpr const char* kStrace = "/usr/bin/strace";

bool IsOneOf(const std::string& strName, const std::vector<std::string>& names) {
    return std::find(names.begin(), names.end(), strName) != names.end();
}

std::vector<std::string> Injection(const SystemCall& call, const std::string& strWhat) {
    return {"-e", "trace=" + call.name, "-e",
            "inject=" + call.name + ":" + strWhat + ":when=" + std::to_string(call.nNumber)};
}

// How often random numbers are asked for, or a thread waits for another, differs from run to run.
bool IsByChance(const std::string& strName) {
    return IsOneOf(strName, {"getrandom", "futex"});
}

bool TriesEverything() {
    return std::getenv("TNROBOT_TEST_EVERY_CALL") != nullptr;
}

}  // namespace

std::string WhyNotTraced() {
    if (IsEmulated()) {
        return "the emulator's own system calls would be counted, refused and killed like the program's";
    }
    if (access(kStrace, X_OK) != 0) {
        return std::string(kStrace) + " is not installed";
    }
    ChildProgram program;
    program.path = "/bin/true";
    return RunTraced(program, {}).nExitCode == 0 ? "" : "processes may not be traced here";
}

ChildResult RunTraced(const ChildProgram& program, const std::vector<std::string>& options) {
    ChildProgram tracer = program;
    tracer.path = kStrace;
    tracer.bOfSystem = true;
    tracer.arguments = {"-qq", "-o", "/dev/null"};
    tracer.arguments.insert(tracer.arguments.end(), options.begin(), options.end());
    tracer.arguments.push_back(program.path);
    tracer.arguments.insert(tracer.arguments.end(), program.arguments.begin(), program.arguments.end());
    tracer.environment.emplace_back("ASAN_OPTIONS", "detect_leaks=0");
    return RunChild(tracer);
}

std::vector<SystemCall> CallsFrom(const ChildProgram& program, const std::string& strFirst) {
    const TempDirectory directory;
    RunTraced(program, {"-o", directory / "calls"});
    std::ifstream lines(directory / "calls");
    std::map<std::string, int> counts;
    std::vector<SystemCall> calls;
    bool bBegun = false;
    bool bPlaced = false;
    for (std::string strLine; std::getline(lines, strLine);) {
        const std::string strName = strLine.substr(0, strLine.find('('));
        if (strName.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") != std::string::npos) {
            continue;  // a signal, or the program's end
        }
        const int nNumber = ++counts[strName];
        bBegun = bBegun || (strName != "execve" && strLine.find(strFirst) != std::string::npos);
        if (bBegun && !IsByChance(strName)) {
            calls.push_back({strName, nNumber, bPlaced});
        }
        bPlaced = bPlaced || (bBegun && strName.rfind("rename", 0) == 0);
    }
    return calls;
}

// Under a sanitizer a program takes a hundred times as long to start.
std::vector<SystemCall> Sampled(const std::vector<SystemCall>& calls) {
    constexpr std::size_t kStep = kSanitizerOwnsMemory ? 7 : 1;
    std::vector<SystemCall> some;
    for (std::size_t n = 0; n < calls.size(); ++n) {
        // What asks for memory is many calls, and all alike.
        const bool bMemory = IsOneOf(calls[n].name, {"mmap", "munmap", "brk", "mprotect", "madvise"});
        const bool bLast = n + 1 == calls.size();
        if (TriesEverything() || bLast || (!bMemory && n % kStep == 0)) {
            some.push_back(calls[n]);
        }
    }
    return some;
}

std::size_t StepOf(std::size_t nBytes, std::size_t nTries) {
    constexpr std::size_t kMost = 2000;
    return std::max<std::size_t>(1, nBytes / (TriesEverything() ? kMost : nTries));
}

std::vector<std::string> ErrorsOf(const SystemCall& call) {
    // The sanitizer's own calls are the program's: whether memory can be read it asks by writing it to a pipe.
    if (kAddressSanitizer && call.name == "write") {
        return {};
    }
    // brk answers no errors, but where the memory ends.
    if (IsOneOf(call.name, {"mmap", "mremap"})) {
        return {"ENOMEM"};
    }
    if (IsOneOf(call.name, {"open", "openat", "write", "writev", "pwrite64", "rename", "renameat", "renameat2", "fsync",
                            "mkdir", "mkdirat", "setxattr", "fsetxattr"})) {
        return {"ENOSPC", "EIO"};
    }
    if (IsOneOf(
            call.name,
            {"read",       "pread64",      "readv",  "preadv",    "close",      "stat",     "fstat",      "lstat",
             "newfstatat", "statx",        "access", "faccessat", "faccessat2", "readlink", "readlinkat", "lseek",
             "chmod",      "fchmod",       "chown",  "fchown",    "ftruncate",  "unlink",   "unlinkat",   "getxattr",
             "fgetxattr",  "fremovexattr", "flock",  "fcntl",     "getdents64", "ioctl",    "getcwd"})) {
        return {"EIO"};
    }
    return {};
}

bool CanBeInterrupted(const SystemCall& call) {
    return IsOneOf(call.name, {"open", "openat", "read", "pread64", "readv", "preadv", "write", "writev", "pwrite64",
                               "fsync", "close", "ftruncate"});
}

ChildResult RunKilledAt(const ChildProgram& program, const SystemCall& call) {
    return RunTraced(program, Injection(call, "signal=KILL"));
}

ChildResult RunRefused(const ChildProgram& program, const SystemCall& call, const std::string& strError) {
    return RunTraced(program, Injection(call, "error=" + strError));
}

}  // namespace tntest
