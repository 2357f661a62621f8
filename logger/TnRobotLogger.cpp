#include "TnRobotLogger.h"

#include <spdlog/details/log_msg.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <utility>

#include "TnLogText.h"
#include "TnOldFiles.h"

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
    spdlog::details::log_msg line(spdlog::string_view_t(), static_cast<spdlog::level::level_enum>(nLevel),
                                  spdlog::string_view_t(text.data(), text.size()));
    line.thread_id = ThreadNumber(line.thread_id);
    return line;
}

STnLogLimits Limits(const STnLogSettings& settings) {
    return {static_cast<std::size_t>(settings.m_nFileKiB) * kBytesPerKiB, settings.m_nOldFiles};
}

// Logging an error must not change what the program is about to look at.
class CTnKeepErrno {
public:
    CTnKeepErrno() = default;
    CTnKeepErrno(const CTnKeepErrno&) = delete;
    CTnKeepErrno& operator=(const CTnKeepErrno&) = delete;
    ~CTnKeepErrno() { errno = m_nError; }

private:
    const int m_nError = errno;
};

}  // namespace

CTnRobotLogger::CTnRobotLogger(STnLogSettings settings)
    : m_settings(std::move(settings)),
      m_file(_OpenFile(m_settings)),
      m_console(m_settings.m_bColours ? spdlog::color_mode::automatic : spdlog::color_mode::never),
      m_nLowestLevel(m_settings.LowestLevel()) {
    m_console.set_pattern(kPatternWithColours);
    if (m_file && m_file->IsShared()) {
        const CTnLogLock lock;
        _WriteOwn(m_settings.m_strFile + " is written by another process too");
    }
    _Enter();
}

CTnRobotLogger::~CTnRobotLogger() {
    const CTnKeepErrno keep;
    _Leave();
    const CTnLogLock lock;
    m_retryTime = {};
    _Flush();
    if (m_bFileFails) {
        std::fputs("libTnRobotLog: the last lines could not be written\n", stderr);
    }
}

// The last chance of a process that ends: what has failed is tried once more, however short ago.
void CTnRobotLogger::WriteWhatWaits() noexcept {
    if (MustWriteAtOnce()) {
        m_retryTime = {};
    }
    _Flush();
}

// The parent writes what still waits, after a failure that was not the file's, and tells of the lines
// that it has lost.
void CTnRobotLogger::StartAsChild() noexcept {
    if (m_file) {
        m_file->TakeLostLines();
    }
    m_nLostLines = 0;
}

std::unique_ptr<CTnLogFile> CTnRobotLogger::_OpenFile(const STnLogSettings& settings) {
    if (settings.m_strFile.empty()) {
        return nullptr;
    }
    auto file = std::make_unique<CTnLogFile>(settings.m_strFile, Limits(settings));
    file->set_pattern(kPattern);
    return file;
}

void CTnRobotLogger::SetLogParam(int nFirst, int nSecond) {
    const CTnKeepErrno keep;
    const CTnLogLock lock;
    try {
        _Apply(nFirst, nSecond);
    } catch (const std::exception& error) {
        _FileFailed(error.what());
    }
}

void CTnRobotLogger::_Apply(int nParam, int nValue) {
    const int nOldFilesBefore = m_settings.m_nOldFiles;
    switch (SetParam(m_settings, nParam, nValue)) {
        case ESetResult::kLevels:
            m_nLowestLevel = m_settings.LowestLevel();
            break;
        case ESetResult::kFileSize:
            _SetLimits();
            break;
        case ESetResult::kOldFiles:
            _SetLimits();
            _RemoveOldFiles(nOldFilesBefore);
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

// What waits was collected for the file as it was.
void CTnRobotLogger::_SetLimits() {
    if (m_file) {
        _Flush();
        m_file->SetLimits(Limits(m_settings));
    }
}

// Only when their number was asked for: until a program has said how many it wants, those of its
// last run must not go.
void CTnRobotLogger::_RemoveOldFiles(int nBefore) {
    if (!m_file) {
        return;
    }
    const int nError = RemoveOldFiles(m_settings.m_strFile, m_settings.m_nOldFiles + 1, nBefore);
    if (nError != 0) {
        _WriteOwn(spdlog::spdlog_ex("old files of " + m_settings.m_strFile + " cannot be removed", nError).what());
    }
}

void CTnRobotLogger::_Flush() noexcept {
    if (!m_file || !_IsFileInUse()) {
        return;
    }
    try {
        m_file->flush();
    } catch (const std::exception& error) {
        _LinesLost(error.what());
    }
}

bool CTnRobotLogger::IsLevelEnabled(int nLevel) {
    return nLevel >= TN_LOG_TRACE && Clamped(nLevel) >= m_nLowestLevel;
}

void CTnRobotLogger::WriteLog(int nLevel, const char* lpszText) {
    const CTnKeepErrno keep;
    const CTnLogLock lock;
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
    if (!_IsFileInUse()) {
        ++m_nLostLines;
        return;
    }
    try {
        m_file->log(line);
        if (line.level >= m_settings.m_nFlushLevel || MustWriteAtOnce()) {
            m_file->flush();
        }
    } catch (const std::exception& error) {
        _LinesLost(error.what());
    }
    const std::string strWarning = m_file->TakeWarning();
    if (!strWarning.empty()) {
        _WriteOwnToConsole(strWarning);
    }
}

// A file that has failed is tried again from time to time.
bool CTnRobotLogger::_IsFileInUse() noexcept {
    if (m_bFileFails && Clock::now() >= m_retryTime) {
        try {
            _TryAgain();
        } catch (const std::exception& error) {
            _FileFailed(error.what());
        }
    }
    return !m_bFileFails;
}

// Opens the file anew. Where that is refused, the one that is open may do again: the program may
// have had the permission only at its start.
void CTnRobotLogger::_TryAgain() {
    std::unique_ptr<CTnLogFile> anew;
    try {
        m_file->flush();  // lines still wait after a failure that was not the file's
    } catch (const spdlog::spdlog_ex&) {
        m_nLostLines += m_file->TakeLostLines();
    }
    try {
        anew = _OpenFile(m_settings);
    } catch (const spdlog::spdlog_ex&) {
        anew.reset();
    }
    _TellLostLines(anew ? *anew : *m_file);
    if (anew) {
        m_file = std::move(anew);
    }
    m_bFileFails = false;
    m_nLostLines = 0;
}

void CTnRobotLogger::_TellLostLines(CTnLogFile& file) const {
    if (m_nLostLines == 0) {
        return;
    }
    try {
        file.log(Line(TN_LOG_WARNING, "logger: lines lost: " + std::to_string(m_nLostLines)));
        file.flush();
    } catch (...) {
        file.TakeLostLines();  // this line is none of the program's
        throw;
    }
}

void CTnRobotLogger::_WriteOwn(const std::string& strText) {
    _Write(TN_LOG_WARNING, ("logger: " + strText).c_str());
}

// The text has a path in it, which may hold anything.
void CTnRobotLogger::_WriteOwnToConsole(const std::string& strText) {
    if (m_settings.m_nConsoleLevel <= TN_LOG_ERROR) {
        const std::string strLine = "logger: " + strText;
        std::string strRoom;
        m_console.log(Line(TN_LOG_ERROR, OneLine(strLine.c_str(), strRoom)));
    }
}

// Only the first failure is told, not one for every line.
void CTnRobotLogger::_FileFailed(const char* lpszReason) noexcept {
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

void CTnRobotLogger::_LinesLost(const char* lpszReason) noexcept {
    m_nLostLines += m_file->TakeLostLines();
    _FileFailed(lpszReason);
}

}  // namespace tnrobotlog
