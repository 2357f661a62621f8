// Opens the shared library at run time as a plug-in host would, uses it, closes it, and reports
// on the standard output what it met. It is not linked with the library.

#include <dirent.h>
#include <dlfcn.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "TnRobotKernel/values.h"

namespace {

using TnGetWorkDir = const char* (*)();
using TnCreateInt = int (*)(int, ITnRobotDataValue**);

bool IsMapped(const std::string& name) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(name) != std::string::npos) {
            return true;
        }
    }
    return false;
}

bool IsLoaded(const char* lpszName) {
    void* pHandle = dlopen(lpszName, RTLD_LAZY | RTLD_NOLOAD);
    if (pHandle != nullptr) {
        dlclose(pHandle);
    }
    return pHandle != nullptr;
}

int CountThreads() {
    int nEntries = 0;
    DIR* pTasks = opendir("/proc/self/task");
    while (readdir(pTasks) != nullptr) {
        ++nEntries;
    }
    closedir(pTasks);
    return nEntries;
}

template <typename Function>
Function Find(void* pLibrary, const char* lpszSymbol) {
    return reinterpret_cast<Function>(dlsym(pLibrary, lpszSymbol));
}

bool UseValue(void* pLibrary) {
    const auto create = Find<TnCreateInt>(pLibrary, "_Z20TnCreateRobotIntDataiPP17ITnRobotDataValue");
    ITnRobotDataValue* pValue = nullptr;
    if (create == nullptr || create(5, &pValue) != 0) {
        return false;
    }
    int nError = -1;
    const int nValue = pValue->IntData(&nError);
    std::printf("value %d error %d\n", nValue, nError);
    pValue->Release();
    return true;
}

bool RunOnce(const char* lpszLibrary) {
    const int nThreads = CountThreads();
    void* pLibrary = dlopen(lpszLibrary, RTLD_NOW | RTLD_LOCAL);
    if (pLibrary == nullptr) {
        std::printf("%s\n", dlerror());
        return false;
    }
    const auto getWorkDir = Find<TnGetWorkDir>(pLibrary, "_ZN12TnRobotUtils10GetWorkDirEv");
    if (getWorkDir == nullptr || !UseValue(pLibrary)) {
        return false;
    }
    std::printf("directory [%s]\n", getWorkDir());
    std::printf("threads %d logger %d\n", CountThreads() - nThreads, IsLoaded("libTnRobotLog.so") ? 1 : 0);
    dlclose(pLibrary);
    std::printf("loaded %d mapped %d\n", IsLoaded(lpszLibrary) ? 1 : 0, IsMapped("libTnRobotKernel") ? 1 : 0);
    return true;
}

}  // namespace

int main(int nArguments, char** arguments) {
    for (int n = 1; n < nArguments; ++n) {
        if (!RunOnce(arguments[n])) {
            return 1;
        }
    }
    return 0;
}
