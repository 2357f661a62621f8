#include "TnLogSettings.h"

#include <spdlog/common.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tnrobotlog {

namespace {

constexpr int kMostKiB = 1024 * 1024;
constexpr int kMostOldFiles = 1000;

bool IsWithin(int nValue, int nLowest, int nHighest) {
    return nValue >= nLowest && nValue <= nHighest;
}

bool Store(int& nSetting, int nValue, int nLowest, int nHighest) {
    if (!IsWithin(nValue, nLowest, nHighest)) {
        return false;
    }
    nSetting = nValue;
    return true;
}

ESetResult Result(bool bStored, ESetResult eResult) {
    return bStored ? eResult : ESetResult::kRefused;
}

// Programs of one directory get files of their own.
std::string DefaultFile() {
    const std::string strProgram = program_invocation_short_name;
    return (strProgram.empty() ? "TnRobot" : strProgram) + ".log";
}

// The program may change its directory later; the log stays where it is.
std::string Absolute(const std::string& strFile) {
    if (strFile.empty()) {
        return strFile;
    }
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(strFile, error);
    if (error) {
        throw spdlog::spdlog_ex("Failed finding the directory of " + strFile, error.value());
    }
    return path.string();
}

void ReadLevel(const char* lpszVariable, int& nLevel, std::vector<std::string>& complaints) {
    const char* lpszValue = secure_getenv(lpszVariable);
    if (lpszValue == nullptr || *lpszValue == '\0') {
        return;
    }
    const bool bDigit = IsWithin(*lpszValue, '0' + TN_LOG_TRACE, '0' + TN_LOG_OFF) && lpszValue[1] == '\0';
    if (bDigit) {
        nLevel = *lpszValue - '0';
    } else {
        complaints.push_back(std::string(lpszVariable) + "=" + lpszValue + " is ignored: it is no level from 0 to 6");
    }
}

}  // namespace

int STnLogSettings::LowestLevel() const {
    return m_strFile.empty() ? m_nConsoleLevel : std::min(m_nFileLevel, m_nConsoleLevel);
}

ESetResult SetParam(STnLogSettings& settings, int nParam, int nValue) {
    switch (nParam) {
        case TN_LOG_PARAM_FILE_LEVEL:
            return Result(Store(settings.m_nFileLevel, nValue, TN_LOG_TRACE, TN_LOG_OFF), ESetResult::kLevels);
        case TN_LOG_PARAM_CONSOLE_LEVEL:
            return Result(Store(settings.m_nConsoleLevel, nValue, TN_LOG_TRACE, TN_LOG_OFF), ESetResult::kLevels);
        case TN_LOG_PARAM_FILE_SIZE:
            return Result(Store(settings.m_nFileKiB, nValue, 1, kMostKiB), ESetResult::kFileSize);
        case TN_LOG_PARAM_OLD_FILES:
            return Result(Store(settings.m_nOldFiles, nValue, 0, kMostOldFiles), ESetResult::kOldFiles);
        case TN_LOG_PARAM_FLUSH_LEVEL:
            return Result(Store(settings.m_nFlushLevel, nValue, TN_LOG_TRACE, TN_LOG_OFF), ESetResult::kLevels);
        case TN_LOG_PARAM_FLUSH:
            return Result(nValue == 0, ESetResult::kFlush);
        default:
            return ESetResult::kRefused;
    }
}

STnLogSettings ReadEnvironment(std::vector<std::string>& complaints) {
    STnLogSettings settings;
    const char* lpszFile = secure_getenv("TNROBOT_LOG_FILE");
    settings.m_strFile = Absolute(lpszFile != nullptr ? lpszFile : DefaultFile());
    ReadLevel("TNROBOT_LOG_LEVEL", settings.m_nFileLevel, complaints);
    ReadLevel("TNROBOT_LOG_CONSOLE_LEVEL", settings.m_nConsoleLevel, complaints);
    const char* lpszNoColour = secure_getenv("NO_COLOR");
    settings.m_bColours = lpszNoColour == nullptr || *lpszNoColour == '\0';
    return settings;
}

}  // namespace tnrobotlog
