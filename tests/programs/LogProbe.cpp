// Does to the logging facade what its arguments say and reports the results on the standard
// output, between the reports of the logger library that it finds.

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TnRobotKernel/core.h"
#include "programs/LogFromThreads.h"
#include "programs/Steps.h"

using namespace tntest;

namespace {

constexpr char kLoggerLibrary[] = "libTnRobotLog.so";
constexpr int kSilentLevel = -2;

// What the loader said last on this thread, up to the first name in it that the test chooses.
void PrintReason() {
    const char* lpszReason = dlerror();
    const std::string strReason = lpszReason != nullptr ? lpszReason : "";
    const char* lpszNamed = strReason.find("TnCreateRobotLogger") != std::string::npos ? "function"
                            : strReason.find(kLoggerLibrary) != std::string::npos      ? "library"
                                                                                       : "nothing";
    std::printf("missing: %s\n", lpszNamed);
}

void* OpenIfLoaded() {
    return dlopen(kLoggerLibrary, RTLD_LAZY | RTLD_NOLOAD);
}

bool IsLoaded() {
    void* pHandle = OpenIfLoaded();
    if (pHandle != nullptr) {
        dlclose(pHandle);
    }
    return pHandle != nullptr;
}

// Takes every handle of the facade's away; it is not used afterwards.
int CountHandles() {
    void* pHandle = OpenIfLoaded();
    if (pHandle == nullptr) {
        return 0;
    }
    dlclose(pHandle);
    int nHandles = 0;
    for (; IsLoaded(); ++nHandles) {
        dlclose(pHandle);
    }
    return nHandles;
}

void LogAtEveryLevel() {
    LogFromThreads(4, 100, [](int nThread, int nLine) {
        TnRobotLogUtils::PrintLog(nThread, "thread %d line %d", nThread, nLine);
    });
}

// Many lines of one level that every logger keeps.
constexpr int kFloodLevel = 2;

void Flood(int nThreads, int nLines) {
    LogFromThreads(nThreads, nLines, [](int nThread, int nLine) {
        TnRobotLogUtils::PrintLog(kFloodLevel, "thread %d line %d.", nThread, nLine);
    });
}

// Lets threads run one round at a time; between two rounds all of them stand still.
class Rounds {
public:
    explicit Rounds(int nThreads) : m_nThreads(nThreads) {}

    // Runs a round and returns when every thread has finished it.
    void Run() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_nRunning = m_nThreads;
        ++m_nRound;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_nRunning == 0; });
    }

    // Called by a thread after its part of round nRound - 1.
    void WaitFor(int nRound) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_nRound >= nRound; });
    }

    void Finish() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        --m_nRunning;
        m_changed.notify_all();
    }

private:
    const int m_nThreads;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_nRound = 0;
    int m_nRunning = 0;
};

// The threads outlive every logger they have logged to: the library comes and goes under them.
void ReloadUnderThreads(int nThreads, int nRounds) {
    Rounds rounds(nThreads);
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < nThreads; ++nThread) {
        threads.emplace_back([&rounds, nThread, nRounds] {
            for (int nRound = 1; nRound <= nRounds; ++nRound) {
                rounds.WaitFor(nRound);
                TnRobotLogUtils::PrintLog(kFloodLevel, "thread %d line %d.", nThread, nRound - 1);
                rounds.Finish();
            }
        });
    }
    int nLoaded = 0;
    for (int nRound = 1; nRound <= nRounds; ++nRound) {
        TnRobotLogUtils::Init();
        rounds.Run();
        TnRobotLogUtils::Destroy();
        nLoaded += IsLoaded() ? 1 : 0;
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::printf("reloaded %d still loaded %d\n", nRounds, nLoaded);
}

void WaitForMore(const std::atomic<long>& nTurns, long nMore) {
    for (const long nGoal = nTurns + nMore; nTurns < nGoal;) {
        std::this_thread::yield();
    }
}

void InitWhileLogging() {
    std::atomic<bool> bStop{false};
    std::atomic<long> nTurns{0};
    const auto log = [&] {
        for (; !bStop; ++nTurns) {
            TnRobotLogUtils::PrintLog(kSilentLevel, "%d", 1);
        }
    };
    std::thread first(log);
    std::thread second(log);
    WaitForMore(nTurns, 1000);
    std::printf("Init %d\n", TnRobotLogUtils::Init());
    WaitForMore(nTurns, 1000);
    bStop = true;
    first.join();
    second.join();
}

void PrintCounting(int nLevel) {
    int nCharacters = -1;
    TnRobotLogUtils::PrintLog(nLevel, "abc%n", &nCharacters);
    std::printf("formatted %d\n", nCharacters);
}

bool Relink(const std::string& target) {
    const std::string link = std::string(std::getenv("LD_LIBRARY_PATH")) + "/" + kLoggerLibrary;
    return unlink(link.c_str()) == 0 && symlink(target.c_str(), link.c_str()) == 0;
}

Verbs AllVerbs() {
    return {
        {"init", [](const Step&) { std::printf("Init %d\n", TnRobotLogUtils::Init()); }},
        {"reason", [](const Step&) { PrintReason(); }},
        {"destroy", [](const Step&) { TnRobotLogUtils::Destroy(); }},
        {"param", [](const Step& s) { TnRobotLogUtils::SetLogParam(s.number, std::atoi(s.text.c_str())); }},
        {"log", [](const Step& s) { TnRobotLogUtils::PrintLog(s.number, "%s", s.text.c_str()); }},
        {"format",
         [](const Step& s) { TnRobotLogUtils::PrintLog(s.number, "%d|%s|%.2f|%c|%%|%5lld", -1, "t", 1.5, 'x', 7LL); }},
        {"fill",
         [](const Step& s) {
             const std::string text(static_cast<std::size_t>(std::atoi(s.text.c_str())), 'x');
             TnRobotLogUtils::PrintLog(s.number, "%s", text.c_str());
         }},
        {"count", [](const Step& s) { PrintCounting(s.number); }},
        {"loaded", [](const Step&) { std::printf("loaded %d\n", IsLoaded() ? 1 : 0); }},
        {"handles", [](const Step&) { std::printf("handles %d\n", CountHandles()); }},
        {"works", [](const Step&) { setenv("LOGGER_WORKS", "1", 1); }},
        {"relink", [](const Step& s) { std::printf("relinked %d\n", Relink(s.text) ? 1 : 0); }},
        {"threads", [](const Step&) { LogAtEveryLevel(); }},
        {"race", [](const Step&) { InitWhileLogging(); }},
        {"flood", [](const Step& s) { Flood(s.number, std::atoi(s.text.c_str())); }},
        {"reload", [](const Step& s) { ReloadUnderThreads(s.number, std::atoi(s.text.c_str())); }},
    };
}

}  // namespace

int main(int nArguments, char** arguments) {
    return RunSteps(AllVerbs(), nArguments, arguments);
}
