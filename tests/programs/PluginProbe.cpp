// A host that knows nothing of the library: opens a plug-in that brings it, has the plug-in work
// and closes it again, as often as it is told, and reports on the standard output what is left.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "abi/plugin/Plugin.h"
#include "programs/OpenedLibrary.h"

using namespace tntest;

namespace {

bool Visit(const char* lpszPlugin) {
    void* pPlugin = dlopen(lpszPlugin, RTLD_NOW | RTLD_LOCAL);
    if (pPlugin == nullptr) {
        std::printf("%s\n", dlerror());
        return false;
    }
    const auto getPlugin = Find<GetPluginFunction>(pPlugin, kGetPlugin);
    if (getPlugin == nullptr) {
        return false;
    }
    const PluginTable* pTable = getPlugin();
    const bool bWorked = pTable->pfnRunAlone();
    const int nAlive = pTable->pfnLiveObjects();
    dlclose(pPlugin);
    std::printf("worked %d alive %d plugin %d library %d\n", bWorked ? 1 : 0, nAlive, IsMapped(lpszPlugin) ? 1 : 0,
                IsMapped("libTnRobotKernel") ? 1 : 0);
    return true;
}

}  // namespace

int main(int nArguments, char** arguments) {
    if (nArguments != 3) {
        return 2;
    }
    for (int n = std::atoi(arguments[2]); n > 0; --n) {
        if (!Visit(arguments[1])) {
            return 1;
        }
    }
    return 0;
}
