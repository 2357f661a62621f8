// Uses the whole library from several threads for a while and watches what the process takes:
//   tnrobot_soak [MINUTES]     1 by default; fractions will do
// It prints a table as it goes and fails when a content is wrong, when memory, descriptors or
// threads do not stay level, or when something is not given back in the end.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "soak/Levels.h"
#include "soak/Workshop.h"
#include "support/processes/ResourceUse.h"
#include "support/processes/TempDirectory.h"
#include "support/threads/ThreadProbe.h"

using namespace tntest;

namespace {

using namespace tnsoak;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int kWorkers = 4;
constexpr int kRows = 20;
constexpr int kLevelsPerRow = 10;
constexpr unsigned int kFirstSeed = 20250101;

// What the workers have done so far.
class Tally {
public:
    void Count(std::size_t nKind) { ++m_counts[nKind]; }
    long long Of(std::size_t nKind) const { return m_counts[nKind]; }

    /// Keeps the first failure and ends the run.
    void Fail(const std::string& strFailure) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_strFailure.empty()) {
            m_strFailure = strFailure;
        }
        m_bStop = true;
    }
    void Stop() { m_bStop = true; }
    bool IsStopped() const { return m_bStop; }
    std::string Failure() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_strFailure;
    }

private:
    std::array<std::atomic<long long>, kKinds.size()> m_counts{};
    std::atomic<bool> m_bStop{false};
    mutable std::mutex m_mutex;
    std::string m_strFailure;  // guarded by m_mutex
};

std::discrete_distribution<std::size_t> KindsByWeight() {
    std::vector<double> weights;
    for (const Kind& kind : kKinds) {
        weights.push_back(kind.nWeight);
    }
    return {weights.begin(), weights.end()};
}

// One thread's part: which work it does, and with what, follows from its seed alone.
void Work(Workshop& shop, Tally& tally, int nNumber) {
    Worker worker{shop, nNumber, std::mt19937(kFirstSeed + static_cast<unsigned int>(nNumber))};
    std::discrete_distribution<std::size_t> kinds = KindsByWeight();
    for (long long nDone = 0; !tally.IsStopped(); ++nDone) {
        const std::size_t nKind = kinds(worker.random);
        try {
            kKinds[nKind].pfnWork(worker);
            tally.Count(nKind);
        } catch (const std::exception& failure) {
            tally.Fail("worker " + std::to_string(nNumber) + ", piece " + std::to_string(nDone) + " (" +
                       kKinds[nKind].lpszName + "): " + failure.what());
        }
    }
}

void PrintHead() {
    std::printf("%8s", "seconds");
    for (const Kind& kind : kKinds) {
        std::printf(" %9s", kind.lpszName);
    }
    std::printf(" %12s %9s %6s %8s\n", "resident KiB", "heap KiB", "files", "threads");
}

void PrintRow(double dSeconds, const Tally& tally, const Level& level) {
    std::printf("%8.1f", dSeconds);
    for (std::size_t n = 0; n < kKinds.size(); ++n) {
        std::printf(" %9lld", tally.Of(n));
    }
    std::printf(" %12lld %9lld %6zu %8zu\n", level.nResidentKiB, level.nHeapKiB, level.nDescriptors, level.nThreads);
    std::fflush(stdout);
}

// Takes the process's level at even distances until the time is over or a worker fails.
std::vector<Level> Watch(const Tally& tally, Seconds length) {
    std::vector<Level> levels;
    const Clock::time_point start = Clock::now();
    constexpr int kLevels = kRows * kLevelsPerRow;
    for (int n = 1; n <= kLevels && !tally.IsStopped(); ++n) {
        const double dShare = static_cast<double>(n) / kLevels;
        std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(length * dShare));
        levels.push_back(TakeLevel(dShare));
        if (n % kLevelsPerRow == 0) {
            PrintRow(Seconds(Clock::now() - start).count(), tally, levels.back());
        }
    }
    return levels;
}

std::string NothingDone(const Tally& tally) {
    std::string strIdle;
    for (std::size_t n = 0; n < kKinds.size(); ++n) {
        if (tally.Of(n) == 0) {
            strIdle += std::string(kKinds[n].lpszName) + " was never used\n";
        }
    }
    return strIdle;
}

// Whether everything is as it was before the workshop was opened.
std::string LeftBehind(const Level& before) {
    const auto isBack = [&before] {
        const Level now = TakeLevel(1);
        return now.nDescriptors == before.nDescriptors && now.nThreads == before.nThreads;
    };
    // A thread that has been joined leaves the system's list a moment later.
    if (Eventually(isBack, Milliseconds(10000)) && LiveObjects() == 0) {
        return {};
    }
    const Level now = TakeLevel(1);
    return "left behind: " + std::to_string(now.nDescriptors) + " files instead of " +
           std::to_string(before.nDescriptors) + ", " + std::to_string(now.nThreads) + " threads instead of " +
           std::to_string(before.nThreads) + ", " + std::to_string(LiveObjects()) + " objects\n";
}

std::string Run(Seconds length) {
    const TempDirectory directory;
    std::thread([] {}).join();  // a sanitizer starts threads of its own together with the first one
    const Level before = TakeLevel(0);
    Workshop shop(directory.Path());
    Tally tally;
    PrintHead();
    PrintRow(0, tally, TakeLevel(0));
    std::vector<std::thread> threads;
    for (int n = 0; n < kWorkers; ++n) {
        threads.emplace_back(Work, std::ref(shop), std::ref(tally), n);
    }
    const std::vector<Level> levels = Watch(tally, length);
    tally.Stop();
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::string strFailures = tally.Failure();
    if (!strFailures.empty()) {
        return strFailures + "\n";
    }
    strFailures = Growth(levels) + NothingDone(tally);
    if (!shop.Close()) {
        strFailures += "a pool is still held by something\n";
    }
    return strFailures + LeftBehind(before);
}

}  // namespace

int main(int nArguments, char** ppArguments) {
    char* pEnd = nullptr;
    const double dMinutes = nArguments > 1 ? std::strtod(ppArguments[1], &pEnd) : 1.0;
    if (nArguments > 2 || !(dMinutes > 0) || (pEnd != nullptr && *pEnd != '\0')) {
        std::fprintf(stderr, "usage: %s [MINUTES]\n", ppArguments[0]);
        return 2;
    }
    std::string strFailures;
    try {
        strFailures = Run(Seconds(dMinutes * 60));
    } catch (const std::exception& failure) {
        strFailures = std::string(failure.what()) + "\n";
    }
    if (!strFailures.empty()) {
        std::fprintf(stderr, "%s", strFailures.c_str());
        return 1;
    }
    const char* lpszLevel = kSanitizerOwnsMemory ? "files and threads" : "memory, files and threads";
    std::printf("every content was right; %s stayed level\n", lpszLevel);
    return 0;
}
