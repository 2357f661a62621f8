// A stranger's program that writes through the logger library.
#include <TnRobotKernel/TnRobotKernel.h>
#include <TnRobotLog/TnRobotLog.h>

int main() {
    const int nResult = TnRobotLogUtils::Init();
    TnRobotLogUtils::PrintLog(TN_LOG_WARNING, "the packaged logger writes");
    TnRobotLogUtils::Destroy();
    return nResult;
}
