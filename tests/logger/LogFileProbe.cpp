// Logs while files, limits and the process itself change under the logger. Does what its arguments
// say, one after the other; each is "verb", "verb:number" or "verb:number:text".

#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "TnRobotKernel/core.h"
#include "programs/LogFromThreads.h"
#include "programs/Steps.h"
#include "support/processes/ChildProcess.h"

using namespace tntest;

namespace {

constexpr int kLevel = 2;  // reaches the file, through its buffer
constexpr unsigned int kLongestSeconds = 20;

std::atomic<long> s_nLogged{0};
std::atomic<bool> s_bNoMemory{false};

void Log(int nLevel, const std::string& text) {
    ++s_nLogged;
    TnRobotLogUtils::PrintLog(nLevel, "%s", text.c_str());
}

// A text that cannot be logged as it is needs memory of its own.
void LogWithoutMemory() {
    const std::string controls(500, '\x01');
    s_bNoMemory = true;
    Log(kLevel, controls);
    s_bNoMemory = false;
}

void Flood(int nThreads, int nLines) {
    LogFromThreads(nThreads, nLines, [](int nThread, int nLine) {
        Log(kLevel, "thread " + std::to_string(nThread) + " line " + std::to_string(nLine) + ".");
    });
}

bool Contains(const std::string& path, const std::string& text) {
    std::ifstream file(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    return content.find(text) != std::string::npos;
}

bool Exists(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

// A failure is tried again after a time, and at a line only.
template <typename Condition>
void LogUntil(Condition bReached) {
    while (!bReached()) {
        Log(kLevel, "again");
        TnRobotLogUtils::SetLogParam(6, 0);
        std::this_thread::yield();
    }
}

void Limit(int nResource, int nValue) {
    rlimit limit = {};
    getrlimit(static_cast<__rlimit_resource>(nResource), &limit);
    limit.rlim_cur = nValue < 0 ? limit.rlim_max : static_cast<rlim_t>(nValue);
    setrlimit(static_cast<__rlimit_resource>(nResource), &limit);
}

int ExitCodeOf(pid_t child) {
    int nStatus = 0;
    waitpid(child, &nStatus, 0);
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -WTERMSIG(nStatus);
}

// The child starts with everything that the parent had in memory.
template <typename Body>
pid_t Fork(Body body) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        alarm(kLongestSeconds);
        body();
    }
    return child;
}

// @param[in] nLines  how many lines each thread logs at most.
void ForkWhileThreadsLog(int nForks, long nLines) {
    std::atomic<bool> bStop{false};
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < 4; ++nThread) {
        threads.emplace_back([&bStop, nLines] {
            for (long nLine = 0; !bStop; ++nLine) {
                if (nLine < nLines) {
                    Log(kLevel, "parent");
                } else {
                    std::this_thread::yield();
                }
            }
        });
    }
    int nFailed = 0;
    for (int nFork = 0; nFork < nForks; ++nFork) {
        const pid_t child = Fork([nFork] {
            Log(kLevel, "child " + std::to_string(nFork));
            TnRobotLogUtils::Destroy();
            _exit(0);
        });
        nFailed += ExitCodeOf(child) == 0 ? 0 : 1;
    }
    bStop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::printf("forks that failed %d\n", nFailed);
}

// Threads that are cancelled while they log.
void CancelThreads(int nThreads) {
    for (int n = 0; n < nThreads; ++n) {
        std::atomic<long> nLines{0};
        pthread_t thread{};
        const auto log = [](void* pLines) -> void* {
            for (;; ++*static_cast<std::atomic<long>*>(pLines)) {
                Log(3, "line");
                pthread_testcancel();
            }
        };
        pthread_create(&thread, nullptr, log, &nLines);
        while (nLines < 10) {
            std::this_thread::yield();
        }
        pthread_cancel(thread);
        Log(3, "other");
        pthread_join(thread, nullptr);
    }
}

pid_t StartAnother(const std::string& steps) {
    return Fork([&steps] {
        std::vector<std::string> arguments;
        std::istringstream stream(steps);
        for (std::string step; std::getline(stream, step, ',');) {
            arguments.push_back(step);
        }
        BecomeProgram(std::filesystem::read_symlink("/proc/self/exe"), arguments);
    });
}

std::string StateOf(pid_t nThread) {
    std::ifstream file("/proc/self/task/" + std::to_string(nThread) + "/stat");
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    return content.substr(std::min(content.size(), content.rfind(')') + 2), 1);
}

// Makes the error output a pipe that is full and that nobody reads.
void BlockErrorOutput() {
    int ends[2];
    if (pipe(ends) != 0 || fcntl(ends[1], F_SETFL, O_NONBLOCK) != 0) {
        std::abort();
    }
    const std::string page(4096, 'x');
    while (write(ends[1], page.data(), page.size()) > 0) {
    }
    while (write(ends[1], "x", 1) > 0) {
    }
    fcntl(ends[1], F_SETFL, 0);
    dup2(ends[1], STDERR_FILENO);
}

// Ends the process by a signal while this thread is stuck in the logger.
void ExitInsideTheLogger() {
    std::signal(SIGUSR1, [](int) { std::exit(3); });
    BlockErrorOutput();
    std::atomic<bool> bLogging{false};
    std::thread([&bLogging, nThread = gettid(), thread = pthread_self()] {
        while (!bLogging || StateOf(nThread) != "S") {
            std::this_thread::yield();
        }
        pthread_kill(thread, SIGUSR1);
    }).detach();
    bLogging = true;
    Log(5, "blocked");
}

// A process that changes its user is not shown to others any more, among them what looks for leaks.
void BecomeNobody() {
    constexpr uid_t kNobody = 65534;
    std::printf("setuid %d\n", geteuid() == 0 ? setuid(kNobody) : 0);
    prctl(PR_SET_DUMPABLE, 1);
}

std::string s_textAtExit;

void PrintErrno(const Step& step) {
    errno = 77;
    Log(step.number, step.text);
    std::printf("errno %d\n", errno);
}

std::vector<pid_t> s_others;

Verbs AllVerbs() {
    return {
        {"init", [](const Step&) { std::printf("Init %d\n", TnRobotLogUtils::Init()); }},
        {"destroy", [](const Step&) { TnRobotLogUtils::Destroy(); }},
        {"param", [](const Step& s) { TnRobotLogUtils::SetLogParam(s.number, std::atoi(s.text.c_str())); }},
        {"log", [](const Step& s) { Log(s.number, s.text); }},
        {"flood", [](const Step& s) { Flood(s.number, std::atoi(s.text.c_str())); }},
        {"logged", [](const Step&) { std::printf("logged %ld\n", s_nLogged.load()); }},
        {"until", [](const Step& s) { LogUntil([&] { return Exists(s.text); }); }},
        {"untiltold", [](const Step& s) { LogUntil([&] { return Contains(s.text, "lines lost"); }); }},
        {"untilstuck", [](const Step& s) { LogUntil([&] { return Contains(s.text, "cannot be rotated"); }); }},
        {"untilsaid", [](const Step& s) { LogUntil([&] { return Contains(s.text, "again"); }); }},
        {"errors",
         [](const Step& s) {
             std::printf("errors %d\n", std::freopen(s.text.c_str(), "w", stderr) == nullptr ? 1 : 0);
         }},
        {"cancel", [](const Step& s) { CancelThreads(s.number); }},
        {"nomemory", [](const Step&) { LogWithoutMemory(); }},
        {"errno", PrintErrno},
        {"chdir", [](const Step& s) { std::printf("chdir %d\n", chdir(s.text.c_str())); }},
        {"chmod",
         [](const Step& s) { std::printf("chmod %d\n", chmod(s.text.c_str(), static_cast<mode_t>(s.number))); }},
        {"remove", [](const Step& s) { std::printf("remove %d\n", std::remove(s.text.c_str())); }},
        {"nobody", [](const Step&) { BecomeNobody(); }},
        {"descriptors", [](const Step& s) { Limit(RLIMIT_NOFILE, s.number); }},
        {"filesize", [](const Step& s) { Limit(RLIMIT_FSIZE, s.number); }},
        {"forks", [](const Step& s) { ForkWhileThreadsLog(s.number, std::atol(s.text.c_str())); }},
        {"child",
         [](const Step& s) {
             const pid_t child = Fork([&s] {
                 if (!s.text.empty()) {
                     Log(s.number, s.text + " " + std::to_string(getpid()));
                 }
                 std::exit(0);
             });
             std::printf("child ended %d\n", ExitCodeOf(child));
         }},
        {"handlers",
         [](const Step&) {
             pthread_atfork([] { Log(kLevel, "prepare"); }, [] { Log(kLevel, "parent"); },
                            [] { Log(kLevel, "child"); });
         }},
        {"atexit",
         [](const Step& s) {
             s_textAtExit = s.text;
             std::atexit([] { Log(kLevel, s_textAtExit); });
         }},
        {"start", [](const Step& s) { s_others.push_back(StartAnother(s.text)); }},
        {"wait",
         [](const Step&) {
             for (const pid_t other : s_others) {
                 std::printf("other ended %d\n", ExitCodeOf(other));
             }
             s_others.clear();
         }},
        {"interrupt", [](const Step&) { ExitInsideTheLogger(); }},
    };
}

}  // namespace

// The logger library takes its memory from here, too.
void* operator new(std::size_t nSize) {
    void* const pMemory = s_bNoMemory ? nullptr : std::malloc(nSize);
    if (pMemory == nullptr) {
        throw std::bad_alloc();
    }
    return pMemory;
}

void operator delete(void* pMemory) noexcept {
    std::free(pMemory);
}

void operator delete(void* pMemory, std::size_t) noexcept {
    std::free(pMemory);
}

int main(int nArguments, char** arguments) {
    std::signal(SIGXFSZ, SIG_IGN);
    return RunSteps(AllVerbs(), nArguments, arguments);
}
