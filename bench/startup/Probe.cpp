// Loads a module and does the first things with it: probe MODULE JPEG [LIBRARY]. Prints, in one line, the microseconds
// from the load to the first value and to the first picture, the KiB by which the process has
// grown, the relocations of everything that came with the module, how many libraries that are, and the KiB
// of the file whose name begins as LIBRARY says.

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "startup/Probed.h"

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void Fail(const char* lpszWhat) {
    std::fprintf(stderr, "the probe fails: %s\n", lpszWhat);
    std::exit(1);
}

double Microseconds(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::micro>(to - from).count();
}

long ResidentKiB() {
    std::ifstream rollup("/proc/self/smaps_rollup");
    std::string strWord;
    long nKiB = 0;
    while (rollup >> strWord) {
        if (strWord == "Rss:") {
            rollup >> nKiB;
            return nKiB;
        }
    }
    Fail("the system does not say what is resident");
}

// Entries of all tables that the loader works off.
unsigned long Relocations(const link_map& library) {
    unsigned long nBytes = 0;
    unsigned long nEntry = sizeof(ElfW(Rela));
    for (const ElfW(Dyn)* pEntry = library.l_ld; pEntry->d_tag != DT_NULL; ++pEntry) {
        switch (pEntry->d_tag) {
            case DT_RELASZ:
            case DT_PLTRELSZ:
            case DT_RELSZ:
                nBytes += pEntry->d_un.d_val;
                break;
            case DT_RELENT:
                nEntry = pEntry->d_un.d_val;
                break;
            default:
                break;
        }
    }
    return nBytes / nEntry;
}

std::vector<const link_map*> Libraries() {
    const auto* pFirst = static_cast<const link_map*>(dlopen(nullptr, RTLD_NOW));
    std::vector<const link_map*> libraries;
    for (; pFirst != nullptr; pFirst = pFirst->l_next) {
        libraries.push_back(pFirst);
    }
    return libraries;
}

long FileKiB(const std::string& strPath) {
    struct stat status = {};
    constexpr long kKiB = 1024;
    return stat(strPath.c_str(), &status) == 0 ? (status.st_size + kKiB - 1) / kKiB : 0;
}

template <typename Function>
Function* Find(void* pModule, const char* lpszName) {
    void* pFound = dlsym(pModule, lpszName);
    if (pFound == nullptr) {
        Fail("the module is none");
    }
    return reinterpret_cast<Function*>(pFound);
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    if (nArguments < 3) {
        Fail("it wants a module and a JPEG");
    }
    std::ifstream file(ppszArguments[2], std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const auto* pJpeg = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::vector<const link_map*> before = Libraries();
    constexpr int kNumber = 42;
    ResidentKiB();  // what reading it takes is there now
    const long nBefore = ResidentKiB();

    const auto start = Clock::now();
    void* pModule = dlopen(ppszArguments[1], RTLD_NOW | RTLD_LOCAL);
    if (pModule == nullptr) {
        Fail(dlerror());
    }
    if (Find<decltype(FirstValue)>(pModule, "FirstValue")(kNumber) != kNumber) {
        Fail("a value is another one");
    }
    const auto value = Clock::now();
    const int nWidth =
        Find<decltype(FirstPicture)>(pModule, "FirstPicture")(pJpeg, static_cast<unsigned>(bytes.size()));
    const auto picture = Clock::now();

    const long nResident = ResidentKiB() - nBefore;
    unsigned long nRelocations = 0;
    long nFileKiB = 0;
    const std::set<const link_map*> known(before.begin(), before.end());
    std::size_t nLibraries = 0;
    for (const link_map* pLibrary : Libraries()) {
        if (known.count(pLibrary) == 0) {
            ++nLibraries;
            nRelocations += Relocations(*pLibrary);
            const char* lpszName = std::strrchr(pLibrary->l_name, '/');
            const std::string strName = lpszName != nullptr ? lpszName + 1 : pLibrary->l_name;
            if (nArguments > 3 && strName.rfind(ppszArguments[3], 0) == 0) {
                nFileKiB += FileKiB(pLibrary->l_name);
            }
        }
    }
    std::printf("%f %f %ld %lu %zu %ld %d\n", Microseconds(start, value), Microseconds(start, picture), nResident,
                nRelocations, nLibraries - 1, nFileKiB, nWidth);
    return 0;
}
