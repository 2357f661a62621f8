// The log file: lines are collected, written whole, and spread over files of a limited size.

#ifndef TNROBOTLOG_TNLOGFILE_H_
#define TNROBOTLOG_TNLOGFILE_H_

#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>
#include <sys/stat.h>

#include <chrono>
#include <cstddef>
#include <string>

#include "TnDescriptor.h"

namespace tnrobotlog {

/// Where a log goes, and how much of it is kept.
struct STnLogLimits {
    std::size_t m_nBytes = 0;  ///< of one file, old or not
    int m_nOldFiles = 0;
};

/// A sink with a buffer of its own. It knows of each line whether it has reached the file, never
/// leaves half a line there if it can help it, and lets several processes write to one file: each
/// write appends whole lines, and before the file is renamed, whoever is about to looks whether
/// another process has done so already.
///
/// What cannot be rotated is not lost: the file grows beyond its limit, and rotation is tried again
/// every second. Only a write that fails throws (spdlog::spdlog_ex), or one to a file that somebody
/// has removed and that cannot be made again; all lines that were waiting are lost then.
///
/// Threads: externally synchronised.
class CTnLogFile final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
public:
    /// Opens the file and makes missing directories. Throws spdlog::spdlog_ex when that fails, and
    /// for what is neither a regular file nor a character device; a FIFO is not waited for.
    /// @param[in] strFile  absolute path.
    CTnLogFile(std::string strFile, STnLogLimits limits);

    /// New limits, from the next line on.
    void SetLimits(STnLogLimits limits) { m_limits = limits; }

    /// @return whether another process had the file open when it was opened here.
    bool IsShared() const { return m_bShared; }

    /// @return the lines that were given to log and have not reached the file because of a failure;
    ///         each is told once.
    unsigned long long TakeLostLines();

    /// @return what the user should know of the last lines, empty for nothing; each is told once.
    std::string TakeWarning();

private:
    using Clock = std::chrono::steady_clock;

    void sink_it_(const spdlog::details::log_msg& msg) override;
    void flush_() override;

    CTnDescriptor _Open() const;
    void _Use(CTnDescriptor descriptor);
    bool _HasRoomFor(std::size_t nBytes) const;
    struct stat _LookAgain();
    bool _IsAtItsPath() const;
    void _MakeRoom(std::size_t nBytes);
    bool _HasWaitedLong();
    void _CannotRotate(int nError);
    int _Rotate(std::size_t nBytes);
    int _StartAnew();
    int _OpenAnother();
    void _WriteBuffer();
    std::size_t _Write(const char* pData, std::size_t nBytes);
    bool _Truncate(std::size_t nBytes);
    void _CutTornLine(std::size_t nWritten);

    const std::string m_strFile;
    STnLogLimits m_limits;
    CTnDescriptor m_descriptor;
    bool m_bRegular = false;  // a device is not rotated
    bool m_bShared = false;
    bool m_bInsideLine = false;  // the file ends without a line end
    bool m_bGone = false;        // the file has no name any more
    std::size_t m_nSize = 0;     // of the file, when it was last looked at, and what was written since
    std::string m_strBuffer;
    unsigned long long m_nWaiting = 0;  // lines that have not reached the file
    bool m_bCannotRotate = false;
    Clock::time_point m_rotationTime;  // not before
    bool m_bWaits = false;             // while somebody else has the directory's lock
    Clock::time_point m_waitingTime;   // since when
    std::string m_strWarning;
};

}  // namespace tnrobotlog

#endif  // TNROBOTLOG_TNLOGFILE_H_
