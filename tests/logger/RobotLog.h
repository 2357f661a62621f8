// What the tests of the logger library share: a directory for a log, a probe that logs there in a
// process of its own, and the lines that it leaves.

#ifndef TNROBOTKERNEL_TESTS_LOGGER_ROBOTLOG_H_
#define TNROBOTKERNEL_TESTS_LOGGER_ROBOTLOG_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/bytes/FileBytes.h"
#include "support/processes/ChildProcess.h"
#include "support/processes/TempDirectory.h"

namespace tntest {

using Environment = std::vector<std::pair<std::string, std::string>>;
using Steps = std::vector<std::string>;

inline std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

inline std::vector<std::string> FileLines(const std::string& path) {
    const Bytes bytes = ReadBytes(path);
    return LinesOf(std::string(bytes.begin(), bytes.end()));
}

inline bool IsDigit(char ch) {
    return ch >= '0' && ch <= '9';
}

// "2026-01-31 12:00:00.123456 W 4711 text" -> "W text"; anything else becomes a text that no
// expectation has.
inline std::string WithoutTime(const std::string& line) {
    const std::string form = "0000-00-00 00:00:00.000000 ";
    const auto fits = [](char chForm, char ch) { return chForm == '0' ? IsDigit(ch) : ch == chForm; };
    const std::size_t nThread = form.size() + 2;
    const std::size_t nText = line.find(' ', nThread);
    if (nText == std::string::npos || nText == nThread || !std::equal(form.begin(), form.end(), line.begin(), fits) ||
        !std::all_of(line.begin() + static_cast<std::ptrdiff_t>(nThread),
                     line.begin() + static_cast<std::ptrdiff_t>(nText), IsDigit) ||
        std::string("TDIWEC").find(line[form.size()]) == std::string::npos || line[form.size() + 1] != ' ') {
        return "malformed: " + line;
    }
    return line.substr(form.size(), 1) + line.substr(nText);
}

inline std::vector<std::string> WithoutTimes(const std::vector<std::string>& lines) {
    std::vector<std::string> result;
    for (const std::string& line : lines) {
        result.push_back(WithoutTime(line));
    }
    return result;
}

/// A directory for the logs of one test.
class RobotLog : public ::testing::Test {
protected:
    std::string File() const { return m_directory / "robot.log"; }
    std::string OldFile(int nNumber) const { return m_directory / ("robot." + std::to_string(nNumber) + ".log"); }
    std::vector<std::string> Logged() const { return WithoutTimes(FileLines(File())); }

    /// @param[in] bWithErrors  whether the error output counts too.
    ChildResult Run(const Steps& steps, Environment environment = {}, bool bWithErrors = false) const {
        environment.insert(environment.begin(), {{"LD_LIBRARY_PATH", TNROBOT_LOG_DIRECTORY},
                                                 {"TNROBOT_LOG_FILE", File()},
                                                 {"TNROBOT_LOG_LEVEL", ""},
                                                 {"TNROBOT_LOG_CONSOLE_LEVEL", ""}});
        return RunChild({m_probe, steps, environment, m_directory.Path().string(), bWithErrors});
    }

    /// @return the lines on the standard error output, without their times.
    std::vector<std::string> Console(const Steps& steps, Environment environment = {}) const {
        return WithoutTimes(LinesOf(Run(steps, std::move(environment), true).output));
    }

    /// @return the lines of all files, oldest first, without their times.
    Steps LoggedInAll() const {
        int nOldest = 0;
        while (std::filesystem::exists(OldFile(nOldest + 1))) {
            ++nOldest;
        }
        Steps lines;
        for (int nNumber = nOldest; nNumber >= 0; --nNumber) {
            const Steps more = WithoutTimes(FileLines(nNumber == 0 ? File() : OldFile(nNumber)));
            lines.insert(lines.end(), more.begin(), more.end());
        }
        return lines;
    }

    const TempDirectory m_directory;
    std::string m_probe = TNROBOT_LOG_PROBE;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_LOGGER_ROBOTLOG_H_
