// The one function that the library exports.

#include <cstdio>
#include <string>
#include <vector>

#include "TnRobotLogger.h"

namespace {

int Create(ITnRobotLogger** ppLogger) {
    std::vector<std::string> complaints;
    auto* pLogger = new tnrobotlog::CTnRobotLogger(tnrobotlog::ReadEnvironment(complaints));
    for (const std::string& strComplaint : complaints) {
        pLogger->WriteLog(TN_LOG_WARNING, ("logger: " + strComplaint).c_str());
    }
    *ppLogger = pLogger;
    return 0;
}

}  // namespace

/// Makes the logger; opened and called by TnRobotLogUtils::Init.
/// @param[out] ppLogger  the new logger; untouched on failure.
/// @return 0, or one of ETnRobotLogResult.
extern "C" TN_ROBOT_API int TnCreateRobotLogger(ITnRobotLogger** ppLogger) {
    if (ppLogger == nullptr) {
        return TN_LOG_RESULT_NO_POINTER;
    }
    try {
        return Create(ppLogger);
    } catch (const spdlog::spdlog_ex& error) {
        std::fprintf(stderr, "libTnRobotLog: %s\n", error.what());
        return TN_LOG_RESULT_NO_FILE;
    } catch (...) {
        return TN_LOG_RESULT_NO_MEMORY;
    }
}
