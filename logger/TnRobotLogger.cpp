#include "TnRobotLogger.h"

#include <spdlog/details/log_msg.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

#include "TnLogText.h"

namespace tnrobotlog {

namespace {

constexpr char kPattern[] = "%Y-%m-%d %H:%M:%S.%f %L %t %v";
constexpr char kPatternWithColours[] = "%Y-%m-%d %H:%M:%S.%f %^%L%$ %t %v";
constexpr std::size_t kBytesPerKiB = 1024;
constexpr std::chrono::seconds kRetryInterval(1);

int Clamped(int nLevel) {
    return std::min<int>(nLevel, TN_LOG_CRITICAL);
}

spdlog::details::log_msg Line(int nLevel, std::string_view text) {
    return {spdlog::string_view_t(), static_cast<spdlog::level::level_enum>(nLevel),
            spdlog::string_view_t(text.data(), text.size())};
}

}  // namespace

CTnRobotLogger::CTnRobotLogger(STnLogSettings settings)
    : m_settings(std::move(settings)),
      m_file(_OpenFile(m_settings)),
      m_console(m_settings.m_bColours ? spdlog::color_mode::automatic : spdlog::color_mode::never),
      m_nLowestLevel(m_settings.LowestLevel()) {
    m_console.set_pattern(kPatternWithColours);
}

CTnRobotLogger::~CTnRobotLogger() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    try {
        if (m_bFileFails && m_file) {
            _TellLostLines();
        }
        _Flush();
    } catch (...) {
        std::fputs("libTnRobotLog: the last lines could not be written\n", stderr);
    }
}

std::unique_ptr<CTnRobotLogger::FileSink> CTnRobotLogger::_OpenFile(const STnLogSettings& settings) const {
    if (settings.m_strFile.empty()) {
        return nullptr;
    }
    auto file =
        std::make_unique<FileSink>(settings.m_strFile, static_cast<std::size_t>(settings.m_nFileKiB) * kBytesPerKiB,
                                   static_cast<std::size_t>(settings.m_nOldFiles));
    file->set_pattern(kPattern);
    return file;
}

void CTnRobotLogger::SetLogParam(int nFirst, int nSecond) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    try {
        _Apply(nFirst, nSecond);
    } catch (const std::exception& error) {
        _FileFailed(error.what());
    }
}

void CTnRobotLogger::_Apply(int nParam, int nValue) {
    STnLogSettings settings = m_settings;
    switch (SetParam(settings, nParam, nValue)) {
        case ESetResult::kChanged:
            m_settings = std::move(settings);
            m_nLowestLevel = m_settings.LowestLevel();
            break;
        case ESetResult::kReopen:
            _Reopen(settings);
            break;
        case ESetResult::kFlush:
            _Flush();
            break;
        case ESetResult::kRefused:
            _WriteOwn("SetLogParam(" + std::to_string(nParam) + ", " + std::to_string(nValue) +
                      ") is ignored: there is no such parameter or value");
            break;
    }
}

// The old file stays in use when the new one cannot be opened.
void CTnRobotLogger::_Reopen(const STnLogSettings& settings) {
    _Flush();
    std::unique_ptr<FileSink> file = _OpenFile(settings);
    m_file = std::move(file);
    m_settings = settings;
}

void CTnRobotLogger::_Flush() {
    if (m_file) {
        m_file->flush();
    }
}

bool CTnRobotLogger::IsLevelEnabled(int nLevel) {
    return nLevel >= TN_LOG_TRACE && Clamped(nLevel) >= m_nLowestLevel;
}

void CTnRobotLogger::WriteLog(int nLevel, const char* lpszText) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    try {
        _Write(nLevel, lpszText);
    } catch (const std::exception& error) {
        ++m_nLostLines;
        _FileFailed(error.what());
    }
}

void CTnRobotLogger::_Write(int nLevel, const char* lpszText) {
    const int nKnownLevel = std::max<int>(Clamped(nLevel), TN_LOG_TRACE);
    const spdlog::details::log_msg line = Line(nKnownLevel, OneLine(lpszText, m_strRoom));
    if (nKnownLevel >= m_settings.m_nConsoleLevel) {
        m_console.log(line);
    }
    if (m_file && nKnownLevel >= m_settings.m_nFileLevel) {
        _WriteToFile(line);
    }
}

void CTnRobotLogger::_WriteToFile(const spdlog::details::log_msg& line) {
    if (m_bFileFails && Clock::now() < m_retryTime) {
        ++m_nLostLines;
        return;
    }
    _TellLostLines();
    m_file->log(line);
    if (line.level >= m_settings.m_nFlushLevel) {
        m_file->flush();
    }
}

void CTnRobotLogger::_TellLostLines() {
    if (m_nLostLines != 0) {
        m_file->log(Line(TN_LOG_WARNING, "logger: lines lost: " + std::to_string(m_nLostLines)));
        m_file->flush();
    }
    m_bFileFails = false;
    m_nLostLines = 0;
}

void CTnRobotLogger::_WriteOwn(const std::string& strText) {
    _Write(TN_LOG_WARNING, ("logger: " + strText).c_str());
}

void CTnRobotLogger::_WriteOwnToConsole(const std::string& strText) {
    if (m_settings.m_nConsoleLevel <= TN_LOG_ERROR) {
        m_console.log(Line(TN_LOG_ERROR, "logger: " + strText));
    }
}

// Only the first failure is told, not one for every line.
void CTnRobotLogger::_FileFailed(const char* lpszReason) {
    m_retryTime = Clock::now() + kRetryInterval;
    if (std::exchange(m_bFileFails, true)) {
        return;
    }
    try {
        _WriteOwnToConsole(lpszReason);
    } catch (...) {
        std::fputs("libTnRobotLog: the log cannot be written\n", stderr);
    }
}

}  // namespace tnrobotlog
