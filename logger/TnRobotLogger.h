// The logger that the library hands to the logging facade: a rotating file and the standard error
// output.

#ifndef TNROBOTLOG_TNROBOTLOGGER_H_
#define TNROBOTLOG_TNROBOTLOGGER_H_

#include <spdlog/sinks/stdout_color_sinks.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "TnLogFile.h"
#include "TnLogLock.h"
#include "TnLogSettings.h"
#include "TnRobotKernel/core.h"

namespace tnrobotlog {

/// Writes lines on the thread that logs them. There is no queue and no thread of its own, so
/// nothing is under way when the facade destroys the logger and closes its library, and the lines
/// before a crash are not lost in a queue.
///
/// Nothing is thrown out of the virtual operations, and errno stays as it was. A file that cannot be
/// written costs lines, not the program: the console says so once, the file is opened anew every
/// second, and the first line that gets through tells how many were lost.
///
/// Threads: thread-safe. The destructor waits for a call that holds the lock; that nobody starts
///          another one is the caller's part, as TnRobotLogUtils::Destroy says. fork waits for the
///          lock too; the child may log and end like any process.
class CTnRobotLogger final : public ITnRobotLogger, private CTnProcessGuest {
public:
    /// Opens the log file. Throws spdlog::spdlog_ex when that fails.
    explicit CTnRobotLogger(STnLogSettings settings);
    ~CTnRobotLogger() override;
    CTnRobotLogger(const CTnRobotLogger&) = delete;
    CTnRobotLogger& operator=(const CTnRobotLogger&) = delete;

    void SetLogParam(int nFirst, int nSecond) override;
    void WriteLog(int nLevel, const char* lpszText) override;
    bool IsLevelEnabled(int nLevel) override;

private:
    using Clock = std::chrono::steady_clock;

    void WriteWhatWaits() noexcept override;
    void StartAsChild() noexcept override;

    // All of these are called under the lock; those that are not noexcept may throw.
    static std::unique_ptr<CTnLogFile> _OpenFile(const STnLogSettings& settings);
    void _Apply(int nParam, int nValue);
    void _SetLimits();
    void _RemoveOldFiles(int nBefore);
    void _Flush() noexcept;
    void _Write(int nLevel, const char* lpszText);
    void _WriteToFile(const spdlog::details::log_msg& line);
    bool _IsFileInUse() noexcept;
    void _TryAgain();
    void _TellLostLines(CTnLogFile& file) const;
    void _WriteOwn(const std::string& strText);
    void _WriteOwnToConsole(const std::string& strText);
    void _FileFailed(const char* lpszReason) noexcept;
    void _LinesLost(const char* lpszReason) noexcept;

    // Guarded by the lock.
    STnLogSettings m_settings;
    std::unique_ptr<CTnLogFile> m_file;  // null for no file
    spdlog::sinks::stderr_color_sink_st m_console;
    std::string m_strRoom;  // for texts that must be changed
    unsigned long long m_nLostLines = 0;
    bool m_bFileFails = false;
    Clock::time_point m_retryTime;

    std::atomic<int> m_nLowestLevel;  // written under the lock, read by everybody
};

}  // namespace tnrobotlog

#endif  // TNROBOTLOG_TNROBOTLOGGER_H_
