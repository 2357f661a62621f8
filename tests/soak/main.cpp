// Uses the whole library from several threads for a while and watches what the process takes:
//   tnrobot_soak [--rough] [MINUTES]     1 by default; fractions will do
// It prints a table as it goes and fails when a content is wrong, when memory, descriptors or
// threads do not stay level, or when something is not given back in the end. A rough run also forks, opens and
// closes a plug-in, and has too little memory or no threads for seconds at a time, after which all must go on.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <mutex>
#include <numeric>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "soak/Levels.h"
#include "soak/Shortage.h"
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
    long long Total() const { return std::accumulate(m_counts.begin(), m_counts.end(), 0LL); }

    /// A piece that a shortage has ended.
    void CountGivenUp() { ++m_nGivenUp; }
    long long GivenUp() const { return m_nGivenUp; }

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
    std::atomic<long long> m_nGivenUp{0};
    std::atomic<bool> m_bStop{false};
    mutable std::mutex m_mutex;
    std::string m_strFailure;  // guarded by m_mutex
};

bool IsIn(const Kind& kind, bool bRough) {
    return bRough || !kind.bRough;
}

std::discrete_distribution<std::size_t> KindsByWeight(bool bRough) {
    std::vector<double> weights;
    for (const Kind& kind : kKinds) {
        weights.push_back(IsIn(kind, bRough) ? kind.nWeight : 0);
    }
    return {weights.begin(), weights.end()};
}

// One thread's part: which work it does, and with what, follows from its seed alone; in a rough run also from
// what it is refused.
void Work(Workshop& shop, Tally& tally, int nNumber, bool bRough) {
    Worker worker{shop, nNumber, std::mt19937(kFirstSeed + static_cast<unsigned int>(nNumber))};
    std::discrete_distribution<std::size_t> kinds = KindsByWeight(bRough);
    for (long long nDone = 0; !tally.IsStopped(); ++nDone) {
        const std::size_t nKind = kinds(worker.random);
        const auto fail = [&tally, nNumber, nDone, nKind](const std::exception& failure) {
            const Spared spared;
            tally.Fail("worker " + std::to_string(nNumber) + ", piece " + std::to_string(nDone) + " (" +
                       kKinds[nKind].lpszName + "): " + failure.what());
        };
        const Weather weather;
        try {
            kKinds[nKind].pfnWork(worker);
            tally.Count(nKind);
        } catch (const GraveFailure& failure) {
            fail(failure);
        } catch (const std::exception& failure) {
            if (weather.WasShort()) {
                tally.CountGivenUp();
            } else {
                fail(failure);
            }
        }
    }
}

void PrintHead(bool bRough) {
    std::printf("%8s", "seconds");
    for (const Kind& kind : kKinds) {
        if (IsIn(kind, bRough)) {
            std::printf(" %9s", kind.lpszName);
        }
    }
    if (bRough) {
        std::printf(" %9s %9s", "refused", "given up");
    }
    std::printf(" %12s %9s %6s %8s\n", "resident KiB", "heap KiB", "files", "threads");
}

void PrintRow(double dSeconds, const Tally& tally, const Level& level, bool bRough) {
    std::printf("%8.1f", dSeconds);
    for (std::size_t n = 0; n < kKinds.size(); ++n) {
        if (IsIn(kKinds[n], bRough)) {
            std::printf(" %9lld", tally.Of(n));
        }
    }
    if (bRough) {
        std::printf(" %9lld %9lld", Refused(), tally.GivenUp());
    }
    std::printf(" %12lld %9lld %6zu %8zu\n", level.nResidentKiB, level.nHeapKiB, level.nDescriptors, level.nThreads);
    std::fflush(stdout);
}

using Counts = std::array<long long, kKinds.size()>;

Counts CountsOf(const Tally& tally) {
    Counts counts{};
    for (std::size_t n = 0; n < counts.size(); ++n) {
        counts[n] = tally.Of(n);
    }
    return counts;
}

// Shortages between calm times, of which the run ends with one. What does not go on in a calm time that is long
// enough for it has not recovered.
void BringShortages(Tally& tally, Seconds length) {
    const std::vector<Shortage> kinds = CanRefuseMemory()
                                            ? std::vector{Shortage::kSomeMemory, Shortage::kMemory, Shortage::kThreads}
                                            : std::vector{Shortage::kThreads};
    constexpr Seconds kCalm{8};
    constexpr Seconds kShort{3};
    constexpr Seconds kEnoughForAll{5};
    const double dScale = std::min(1.0, length / (4.0 * (kCalm + kShort)));
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(length);
    const auto sleep = [&tally](Seconds span) {
        const Clock::time_point until = Clock::now() + std::chrono::duration_cast<Clock::duration>(span);
        while (!tally.IsStopped() && Clock::now() < until) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    };
    sleep(kCalm * dScale);
    for (std::size_t n = 0; Clock::now() + kCalm * dScale < end && !tally.IsStopped(); ++n) {
        const Shortage eShortage = kinds[n % kinds.size()];
        SetShortage(eShortage);
        sleep(kShort * dScale);
        SetShortage(Shortage::kNone);
        const Counts before = CountsOf(tally);
        sleep(kCalm * dScale);
        for (std::size_t nKind = 0; nKind < before.size(); ++nKind) {
            if (kCalm * dScale >= kEnoughForAll && tally.Of(nKind) == before[nKind] && !tally.IsStopped()) {
                tally.Fail(std::string(kKinds[nKind].lpszName) + " did not go on after a time of " + NameOf(eShortage));
            }
        }
    }
}

// Takes the process's level at even distances until the time is over or a worker fails.
std::vector<Level> Watch(const Tally& tally, Seconds length, bool bRough) {
    std::vector<Level> levels;
    const Clock::time_point start = Clock::now();
    constexpr int kLevels = kRows * kLevelsPerRow;
    for (int n = 1; n <= kLevels && !tally.IsStopped(); ++n) {
        const double dShare = static_cast<double>(n) / kLevels;
        std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(length * dShare));
        levels.push_back(TakeLevel(dShare));
        levels.back().nPieces = tally.Total();
        if (n % kLevelsPerRow == 0) {
            PrintRow(Seconds(Clock::now() - start).count(), tally, levels.back(), bRough);
        }
    }
    return levels;
}

std::string NothingDone(const Tally& tally, bool bRough) {
    std::string strIdle;
    for (std::size_t n = 0; n < kKinds.size(); ++n) {
        if (IsIn(kKinds[n], bRough) && tally.Of(n) == 0) {
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

// How much was done, which is told and never a failure: a machine has other work too.
void PrintPace(const std::vector<Level>& levels, Seconds length) {
    const double dSecond = PiecesOfQuarter(levels, 1);
    const double dLast = PiecesOfQuarter(levels, 3);
    const double dQuarter = length.count() / 4;
    std::printf("pieces a second: %.0f in the second quarter, %.0f in the last one, which is %.2f of it\n",
                dSecond / dQuarter, dLast / dQuarter, dLast / dSecond);
}

std::string Run(Seconds length, bool bRough) {
    const Spared spared;
    const TempDirectory directory;
    std::thread([] {}).join();  // a sanitizer starts threads of its own together with the first one
    const Level before = TakeLevel(0);
    Workshop shop(directory.Path());
    Tally tally;
    PrintHead(bRough);
    PrintRow(0, tally, TakeLevel(0), bRough);
    std::vector<std::thread> threads;
    for (int n = 0; n < kWorkers; ++n) {
        threads.emplace_back(Work, std::ref(shop), std::ref(tally), n, bRough);
    }
    if (bRough) {
        threads.emplace_back([&tally, length] {
            const Spared sparedToo;
            BringShortages(tally, length);
        });
    }
    const std::vector<Level> levels = Watch(tally, length, bRough);
    tally.Stop();
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::string strFailures = tally.Failure();
    if (!strFailures.empty()) {
        return strFailures + "\n";
    }
    PrintPace(levels, length);
    strFailures = Growth(levels) + NothingDone(tally, bRough);
    if (!shop.Close()) {
        strFailures += "a pool is still held by something\n";
    }
    return strFailures + LeftBehind(before);
}

}  // namespace

int main(int nArguments, char** ppArguments) {
    const bool bRough = nArguments > 1 && std::string_view(ppArguments[1]) == "--rough";
    const int nMinutes = bRough ? 2 : 1;
    char* pEnd = nullptr;
    const double dMinutes = nArguments > nMinutes ? std::strtod(ppArguments[nMinutes], &pEnd) : 1.0;
    if (nArguments > nMinutes + 1 || !(dMinutes > 0) || (pEnd != nullptr && *pEnd != '\0')) {
        std::fprintf(stderr, "usage: %s [--rough] [MINUTES]\n", ppArguments[0]);
        return 2;
    }
    std::string strFailures;
    try {
        strFailures = Run(Seconds(dMinutes * 60), bRough);
    } catch (const std::exception& failure) {
        strFailures = std::string(failure.what()) + "\n";
    }
    if (!strFailures.empty()) {
        std::fprintf(stderr, "%s", strFailures.c_str());
        return 1;
    }
    if (bRough && !CanRefuseMemory()) {
        std::printf("only threads were refused: this build does not let memory be\n");
    }
    const char* lpszLevel = kSanitizerOwnsMemory ? "files and threads" : "memory, files and threads";
    std::printf("every content was right; %s stayed level\n", lpszLevel);
    return 0;
}
