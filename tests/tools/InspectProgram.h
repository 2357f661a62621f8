// Runs tnrobot-inspect in a directory of a test's own.

#ifndef TNROBOTKERNEL_TESTS_TOOLS_INSPECTPROGRAM_H_
#define TNROBOTKERNEL_TESTS_TOOLS_INSPECTPROGRAM_H_

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/values.h"
#include "support/bytes/Bytes.h"
#include "support/bytes/FileBytes.h"
#include "support/processes/ChildProcess.h"
#include "support/processes/TempDirectory.h"

namespace tntest {

class InspectProgram : public ::testing::Test {
protected:
    void Write(const std::string& name, const Bytes& bytes) const { WriteBytes(m_directory / name, bytes); }

    /// Runs the program; its standard error output is kept apart and dropped.
    ChildResult Run(const std::vector<std::string>& arguments) const {
        return RunInShell(R"(exec "$@" 2>/dev/null)", arguments);
    }

    /// Runs the program. @return what it wrote to its standard error output, and its exit code.
    ChildResult RunForErrors(const std::vector<std::string>& arguments) const {
        return RunInShell(R"(exec "$@" 2>&1 >/dev/null)", arguments);
    }

    void ExpectOutput(const std::vector<std::string>& arguments, int nExitCode, const std::string& output) const {
        const ChildResult result = Run(arguments);
        EXPECT_EQ(result.output, output);
        EXPECT_EQ(result.nExitCode, nExitCode);
    }

    /// Runs the program by a shell script in which "$@" is the program with its arguments.
    ChildResult RunInShell(const std::string& script, const std::vector<std::string>& arguments) const {
        ChildProgram program = InShell(script, TNROBOT_INSPECT, arguments);
        program.directory = m_directory.Path().string();
        return RunChild(program);
    }

    const TempDirectory m_directory;
};

/// A group as it is saved. @param[in] entries  names and saved values.
inline Bytes SavedGroup(const std::vector<std::pair<std::string, Bytes>>& entries) {
    Bytes bytes = U8(1) + U32(static_cast<std::uint32_t>(entries.size()));
    for (const auto& [name, value] : entries) {
        bytes += SavedString(name) + value;
    }
    return bytes;
}

inline Bytes SavedInt(int nValue) {
    return SavedValue(DATA_TYPE_INT, BytesOf(nValue));
}

inline Bytes SavedText(const std::string& text) {
    return SavedValue(DATA_TYPE_STRING, FromText(text) + U8(0));
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_TOOLS_INSPECTPROGRAM_H_
