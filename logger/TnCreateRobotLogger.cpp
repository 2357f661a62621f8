// The one function that the library exports.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "TnLogText.h"
#include "TnRobotLogger.h"

namespace {

int Create(ITnRobotLogger** ppLogger) {
    std::vector<std::string> complaints;
    auto logger = std::make_unique<tnrobotlog::CTnRobotLogger>(tnrobotlog::ReadEnvironment(complaints));
    for (const std::string& strComplaint : complaints) {
        logger->WriteLog(TN_LOG_WARNING, ("logger: " + strComplaint).c_str());
    }
    *ppLogger = logger.release();
    return 0;
}

// The text has a path in it, which may hold anything.
void Complain(const char* lpszText) {
    std::string strRoom;
    const std::string strLine(tnrobotlog::OneLine(lpszText, strRoom));
    std::fprintf(stderr, "libTnRobotLog: %s\n", strLine.c_str());
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
        Complain(error.what());
        return TN_LOG_RESULT_NO_FILE;
    } catch (...) {
        return TN_LOG_RESULT_NO_MEMORY;
    }
}
