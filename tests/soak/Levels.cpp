#include "soak/Levels.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "support/processes/Descriptors.h"
#include "support/processes/ResourceUse.h"
#include "support/threads/ThreadProbe.h"

using namespace tntest;

namespace tnsoak {

namespace {

constexpr double kQuarter = 0.25;
constexpr long long kSlackKiB = 4 * 1024;
constexpr long long kSlackPercent = 5;

// The second number of the file: resident pages.
long long ResidentKiB() {
    std::ifstream file("/proc/self/statm");
    long long nPages = 0;
    long long nResident = 0;
    file >> nPages >> nResident;
    return nResident * (sysconf(_SC_PAGESIZE) / 1024);
}

long long HeapKiB() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<long long>((info.uordblks + info.hblkhd) / 1024);
}

long long Highest(const std::vector<Level>& levels, double dFrom, long long Level::*pValue) {
    long long nHighest = 0;
    for (const Level& level : levels) {
        if (level.dShare >= dFrom && level.dShare <= dFrom + kQuarter) {
            nHighest = std::max(nHighest, level.*pValue);
        }
    }
    return nHighest;
}

std::string GrowthOf(const std::vector<Level>& levels, const char* lpszName, long long Level::*pValue) {
    const long long nSecond = Highest(levels, kQuarter, pValue);
    const long long nLast = Highest(levels, 3 * kQuarter, pValue);
    const long long nMost = nSecond + nSecond * kSlackPercent / 100 + kSlackKiB;
    if (nLast <= nMost) {
        return {};
    }
    return std::string(lpszName) + " grew: at most " + std::to_string(nSecond) + " KiB in the second quarter, " +
           std::to_string(nLast) + " KiB in the last one\n";
}

}  // namespace

Level TakeLevel(double dShare) {
    return {dShare, ResidentKiB(), HeapKiB(), CountDescriptors(), CountThreads(), 0};
}

// A sanitizer keeps freed memory and books of its own: how much the process takes says nothing then.
std::string Growth(const std::vector<Level>& levels) {
    if (kSanitizerOwnsMemory) {
        return {};
    }
    return GrowthOf(levels, "resident memory", &Level::nResidentKiB) + GrowthOf(levels, "heap", &Level::nHeapKiB);
}

double PiecesOfQuarter(const std::vector<Level>& levels, int nQuarter) {
    const std::size_t nLevels = levels.size() / 4;
    const std::size_t nFirst = nLevels * static_cast<std::size_t>(nQuarter);
    const long long nBefore = nFirst == 0 ? 0 : levels[nFirst - 1].nPieces;
    return nLevels == 0 ? 0 : static_cast<double>(levels[nFirst + nLevels - 1].nPieces - nBefore);
}

}  // namespace tnsoak
