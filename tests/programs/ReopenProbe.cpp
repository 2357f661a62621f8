// Opens, uses and closes the shared library as often as it is told, and reports on the standard
// output by how much the process has grown. It is not linked with the library.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "programs/OpenedLibrary.h"

using namespace tntest;

namespace {

// After these the loader and the allocator have the size that they keep.
constexpr int kFirstVisits = 50;

struct Holdings {
    int nMappings;
    int nDescriptors;
    int nThreads;
    long nResidentKiB;
};

// Counted page by page: the cheaper figures of the system are sums that lag behind.
long ResidentKiB() {
    std::ifstream sums("/proc/self/smaps_rollup");
    std::string word;
    while (sums >> word && word != "Rss:") {
    }
    long nKiB = -1;
    sums >> nKiB;
    return nKiB;
}

Holdings Now() {
    return {CountMappings(""), CountEntries("/proc/self/fd"), CountEntries("/proc/self/task"), ResidentKiB()};
}

bool Visit(const char* lpszLibrary) {
    void* pLibrary = dlopen(lpszLibrary, RTLD_NOW | RTLD_LOCAL);
    if (pLibrary == nullptr) {
        std::printf("%s\n", dlerror());
        return false;
    }
    ITnRobotDataValue* pValue = CreateInt(pLibrary, 5);
    if (pValue == nullptr) {
        return false;
    }
    pValue->Release();
    return dlclose(pLibrary) == 0 && !IsMapped("libTnRobotKernel");
}

bool VisitOften(const char* lpszLibrary, int nTimes) {
    for (int n = 0; n < nTimes; ++n) {
        if (!Visit(lpszLibrary)) {
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int nArguments, char** arguments) {
    const int nTimes = nArguments == 3 ? std::atoi(arguments[2]) : 0;
    // Looking at the holdings brings code into memory too, so that is done once beforehand.
    if (nTimes < 1 || Now().nResidentKiB < 0 || !VisitOften(arguments[1], kFirstVisits)) {
        return 1;
    }
    const Holdings before = Now();
    if (!VisitOften(arguments[1], nTimes)) {
        return 1;
    }
    const Holdings after = Now();
    std::printf("mappings %d descriptors %d threads %d KiB %ld\n", after.nMappings - before.nMappings,
                after.nDescriptors - before.nDescriptors, after.nThreads - before.nThreads,
                after.nResidentKiB - before.nResidentKiB);
    return 0;
}
