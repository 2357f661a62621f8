// A program that logs through the facade, whatever logger library the loader finds.

#include <TnRobotKernel/core.h>
#include <dlfcn.h>

#include <cstdio>

// [main]
int main() {
    TnRobotLogUtils::PrintLog(2, "before Init: goes nowhere");
    const int nResult = TnRobotLogUtils::Init();
    if (nResult != 0) {
        const char* lpszReason = nResult == -1 ? dlerror() : nullptr;  // what the loader said
        std::fprintf(stderr, "no logger (%d): %s\n", nResult, lpszReason != nullptr ? lpszReason : "it refused");
        return 1;
    }
    TnRobotLogUtils::PrintLog(1, "%d cameras found", 2);
    TnRobotLogUtils::SetLogParam(1, 2);
    TnRobotLogUtils::PrintLog(1, "below the lowest level: not even formatted");
    TnRobotLogUtils::PrintLog(3, "the gripper is %.1f degrees too warm", 2.5);
    TnRobotLogUtils::Destroy();
    TnRobotLogUtils::PrintLog(3, "after Destroy: goes nowhere");
    return 0;
}
// [/main]
