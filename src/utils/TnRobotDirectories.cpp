// The remembered directories. Their priority has them made first in the whole library, whatever file
// the linker begins with, so that its start can fill them in and its end still read them.

#include "utils/TnRobotDirectories.h"

#include <unistd.h>

#include "TnRobotKernel/utilities.h"

[[gnu::init_priority(101)]] std::string g_strWorkDir;
[[gnu::init_priority(101)]] std::string g_strDebugDir;
[[gnu::init_priority(101)]] std::string g_strProfileDir;

std::string tnrobot::CurrentDirectory() {
    char szDirectory[TnRobotUtils::kPathSize] = {};
    return getcwd(szDirectory, sizeof(szDirectory)) != nullptr ? szDirectory : "";
}
