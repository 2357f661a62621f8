// A log that is rotated while the process is killed, a system call fails, or the disk is full: at every system
// call and byte. No line is torn, doubled or out of order, none that was there goes, and whoever loses one says so.

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "logger/RobotLog.h"
#include "support/processes/Limits.h"
#include "support/processes/SystemCalls.h"

using namespace tntest;

namespace {

// Two lines fill a file, so each start has old files to rename.
constexpr int kLines = 5;
constexpr std::size_t kLength = 400;

class LogCrash : public RobotLog {
protected:
    void SetUp() override {
        m_probe = TNROBOT_LOG_FILE_PROBE;
        ASSERT_EQ(RunChild(Program("old")).output, "Init 0\n");
        for (const std::string& strName : m_directory.Names()) {
            m_old.emplace_back(strName, ReadBytes(m_directory / strName));
        }
        ASSERT_EQ(m_old.size(), 3U);
        ASSERT_EQ(Left(), Expected("old"));
    }

    // Logs some lines, each of which is written at once.
    ChildProgram Program(const std::string& strText) const {
        ChildProgram program;
        program.path = m_probe;
        program.arguments = {"init", "param:3:1", "param:5:0"};
        for (const std::string& strLine : Expected(strText)) {
            program.arguments.push_back("log:2:" + strLine.substr(2));
        }
        program.arguments.emplace_back("destroy");
        program.environment = {{"LD_LIBRARY_PATH", TNROBOT_LOG_DIRECTORY},
                               {"TNROBOT_LOG_FILE", File()},
                               {"TNROBOT_LOG_LEVEL", ""},
                               {"TNROBOT_LOG_CONSOLE_LEVEL", ""}};
        program.bWithErrors = true;
        return program;
    }

    static Steps Expected(const std::string& strText) {
        Steps lines;
        for (int nLine = 0; nLine < kLines; ++nLine) {
            lines.push_back("I " + strText + " " + std::to_string(nLine) + " " + std::string(kLength, '.'));
        }
        return lines;
    }

    void Restore() const {
        for (const std::string& strName : m_directory.Names()) {
            std::filesystem::remove(m_directory / strName);
        }
        for (const auto& [strName, bytes] : m_old) {
            WriteBytes(m_directory / strName, bytes);
        }
    }

    // The lines of all files, oldest first; a process that is killed while it renames leaves a gap.
    Steps Left() const {
        Steps lines;
        for (int nNumber = 9; nNumber >= 0; --nNumber) {
            const Steps more = WithoutTimes(FileLines(nNumber == 0 ? File() : OldFile(nNumber)));
            lines.insert(lines.end(), more.begin(), more.end());
        }
        return lines;
    }

    // @return how many of the new lines are there: behind all old ones, whole, once and in their order.
    int ExpectNoneWrong() const {
        Steps left = Left();
        const auto isOwn = [](const std::string& strLine) { return strLine.rfind("W logger: ", 0) == 0; };
        left.erase(std::remove_if(left.begin(), left.end(), isOwn), left.end());
        const Steps old = Expected("old");
        if (left.size() < old.size() || !std::equal(old.begin(), old.end(), left.begin())) {
            ADD_FAILURE() << "an old line is missing";
            return -1;
        }
        int nFound = 0;
        auto line = left.begin() + static_cast<std::ptrdiff_t>(old.size());
        for (const std::string& strExpected : Expected("new")) {
            if (line != left.end() && *line == strExpected) {
                ++line;
                ++nFound;
            }
        }
        EXPECT_EQ(line, left.end()) << "unexpected: " << *line;
        return nFound;
    }

    // One that has ended by itself has written all lines, or tells of it.
    void ExpectTold(const ChildResult& result) const {
        EXPECT_EQ(result.nExitCode, 0) << result.nSignal;
        const int nFound = ExpectNoneWrong();
        EXPECT_TRUE(nFound == kLines || result.output != "Init 0\n") << nFound;
    }

    std::vector<std::pair<std::string, Bytes>> m_old;
};

class TracedLogCrash : public LogCrash {
protected:
    void SetUp() override {
        if (const std::string strReason = WhyNotTraced(); !strReason.empty()) {
            GTEST_SKIP() << strReason;
        }
        LogCrash::SetUp();
        m_calls = Sampled(CallsFrom(Program("new"), File()));
        ASSERT_GT(m_calls.size(), 3U);
        ASSERT_EQ(ExpectNoneWrong(), kLines);
    }

    std::vector<SystemCall> m_calls;
};

}  // namespace

TEST_F(TracedLogCrash, AKilledProcessLeavesWholeLines) {
    int nLast = 0;
    for (const SystemCall& call : m_calls) {
        SCOPED_TRACE("killed at " + call.Text());
        Restore();
        EXPECT_EQ(RunKilledAt(Program("new"), call).nSignal, SIGKILL);
        const int nFound = ExpectNoneWrong();
        EXPECT_GE(nFound, nLast) << "what was written stays";
        nLast = std::max(nLast, nFound);
    }
    EXPECT_EQ(nLast, kLines);
}

TEST_F(TracedLogCrash, ARefusedCallLosesNothingSilently) {
    for (const SystemCall& call : m_calls) {
        for (const std::string& strError : ErrorsOf(call)) {
            SCOPED_TRACE(strError + " at " + call.Text());
            Restore();
            ExpectTold(RunRefused(Program("new"), call, strError));
        }
    }
}

TEST_F(TracedLogCrash, AnInterruptedCallIsNoFailure) {
    for (const SystemCall& call : m_calls) {
        if (CanBeInterrupted(call)) {
            SCOPED_TRACE(call.Text());
            Restore();
            // The program's own output may be interrupted, too.
            const std::string strOutput = RunRefused(Program("new"), call, "EINTR").output;
            EXPECT_EQ(strOutput.find("Interrupted"), std::string::npos) << strOutput;
            EXPECT_EQ(ExpectNoneWrong(), kLines);
        }
    }
}

TEST_F(LogCrash, ADiskThatIsFullAtAnyByteLosesNothingSilently) {
    constexpr std::size_t kFile = 1024;
    const std::size_t nStep = StepOf(kFile, 40);
    for (std::size_t nRoom = 0; nRoom <= kFile; nRoom += nStep) {
        SCOPED_TRACE(nRoom);
        Restore();
        ChildResult result;
        {
            const FileSizeLimit limit(nRoom);
            result = RunChild(Program("new"));
        }
        ExpectTold(result);
    }
}
