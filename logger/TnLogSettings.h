// What can be set of the logger, where it comes from, and which values are allowed.

#ifndef TNROBOTLOG_TNLOGSETTINGS_H_
#define TNROBOTLOG_TNLOGSETTINGS_H_

#include <string>
#include <vector>

#include "TnRobotLog/TnRobotLog.h"

namespace tnrobotlog {

/// The logger's settings; the defaults are those of the public header.
struct STnLogSettings {
    std::string m_strFile;  ///< absolute path; empty for no file
    int m_nFileLevel = TN_LOG_INFO;
    int m_nConsoleLevel = TN_LOG_WARNING;
    int m_nFileKiB = 10240;
    int m_nOldFiles = 5;
    int m_nFlushLevel = TN_LOG_WARNING;
    bool m_bColours = true;  ///< on a terminal

    /// @return the lowest level that anything wants.
    int LowestLevel() const;
};

/// The outcome of setting one parameter.
enum class ESetResult {
    kLevels,    ///< a level has changed
    kFileSize,  ///< the size of a file has changed
    kOldFiles,  ///< the number of old files has been set
    kFlush,     ///< nothing has changed: the file is to be flushed
    kRefused,   ///< no such parameter or value: nothing has changed
};

/// Sets one parameter by its number.
ESetResult SetParam(STnLogSettings& settings, int nParam, int nValue);

/// Reads the settings from the environment. A relative path is one in the directory that is
/// current now. Throws spdlog::spdlog_ex when that has no path.
/// @param[out] complaints  one text for each variable that has no meaning and was left out.
STnLogSettings ReadEnvironment(std::vector<std::string>& complaints);

}  // namespace tnrobotlog

#endif  // TNROBOTLOG_TNLOGSETTINGS_H_
