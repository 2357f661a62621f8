#include "TnRobotKernel/utilities.h"

#include <unistd.h>

#include "core/TnRobotDirectories.h"
#include "core/TnRobotKernelInnerUtils.h"

void TnRobotUtils::Init() {
    char szDirectory[256] = {};
    g_strWorkDir = getcwd(szDirectory, sizeof(szDirectory)) != nullptr ? szDirectory : "";
    TnRobotKernelInnerUtils::Init();
}

void TnRobotUtils::Destroy() {
    TnRobotKernelInnerUtils::Destroy();
}

const char* TnRobotUtils::GetWorkDir() {
    return g_strWorkDir.c_str();
}
