// The logger that the library hands to the logging facade: a rotating file and the standard error
// output.

#ifndef TNROBOTLOG_TNROBOTLOGGER_H_
#define TNROBOTLOG_TNROBOTLOGGER_H_

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "TnLogSettings.h"
#include "TnRobotKernel/core.h"

namespace tnrobotlog {

/// Writes lines on the thread that logs them. There is no queue and no thread of its own, so
/// nothing is under way when the facade destroys the logger and closes its library, and the lines
/// before a crash are not lost in a queue.
///
/// Nothing is thrown out of the virtual operations. A file that cannot be written costs lines, not
/// the program: the console says so once, the file is tried again every second, and the first line
/// that gets through tells how many were lost.
///
/// Threads: thread-safe. The destructor waits for a call that holds the lock; that nobody starts
///          another one is the caller's part, as TnRobotLogUtils::Destroy says.
class CTnRobotLogger final : public ITnRobotLogger {
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
    using FileSink = spdlog::sinks::rotating_file_sink_st;
    using Clock = std::chrono::steady_clock;

    // All of these are called under m_mutex and may throw.
    std::unique_ptr<FileSink> _OpenFile(const STnLogSettings& settings) const;
    void _Apply(int nParam, int nValue);
    void _Reopen(const STnLogSettings& settings);
    void _Flush();
    void _Write(int nLevel, const char* lpszText);
    void _WriteToFile(const spdlog::details::log_msg& line);
    void _WriteOwn(const std::string& strText);
    void _WriteOwnToConsole(const std::string& strText);
    void _TellLostLines();
    void _FileFailed(const char* lpszReason);

    std::mutex m_mutex;
    STnLogSettings m_settings;                      // guarded by m_mutex
    std::unique_ptr<FileSink> m_file;               // guarded by m_mutex; null for no file
    spdlog::sinks::stderr_color_sink_st m_console;  // guarded by m_mutex
    std::string m_strRoom;                          // guarded by m_mutex; for texts that must be changed
    unsigned long long m_nLostLines = 0;            // guarded by m_mutex
    bool m_bFileFails = false;                      // guarded by m_mutex
    Clock::time_point m_retryTime;                  // guarded by m_mutex
    std::atomic<int> m_nLowestLevel;                // written under m_mutex, read by everybody
};

}  // namespace tnrobotlog

#endif  // TNROBOTLOG_TNROBOTLOGGER_H_
