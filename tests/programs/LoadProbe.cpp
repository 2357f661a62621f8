// Opens the shared library at run time as a plug-in host would, uses it, closes it, and reports
// on the standard output what it met. It is not linked with the library.

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "TnRobotKernel/values.h"
#include "programs/OpenedLibrary.h"

using namespace tntest;

namespace {

using TnGetWorkDir = const char* (*)();

bool IsLoaded(const char* lpszName) {
    void* pHandle = dlopen(lpszName, RTLD_LAZY | RTLD_NOLOAD);
    if (pHandle != nullptr) {
        dlclose(pHandle);
    }
    return pHandle != nullptr;
}

bool UseValue(void* pLibrary) {
    ITnRobotDataValue* pValue = CreateInt(pLibrary, 5);
    if (pValue == nullptr) {
        return false;
    }
    int nError = -1;
    const int nValue = pValue->IntData(&nError);
    std::printf("value %d error %d\n", nValue, nError);
    pValue->Release();
    return true;
}

// What the library does around a fork must be gone with it. @return the status of the child.
int ForkOnce() {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    int nStatus = -1;
    waitpid(child, &nStatus, 0);
    return nStatus;
}

bool RunOnce(const char* lpszLibrary) {
    const int nThreads = CountEntries("/proc/self/task");
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
    std::printf("threads %d logger %d\n", CountEntries("/proc/self/task") - nThreads,
                IsLoaded("libTnRobotLog.so") ? 1 : 0);
    const int nForkOpen = ForkOnce();
    dlclose(pLibrary);
    std::printf("fork %d, afterwards %d\n", nForkOpen, ForkOnce());
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
