// The logger while the process forks, and when it ends.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "logger/RobotLog.h"
#include "support/processes/Sanitizers.h"

using namespace tntest;

namespace {

class LogProcess : public RobotLog {
protected:
    LogProcess() { m_probe = TNROBOT_LOG_FILE_PROBE; }
};

}  // namespace

TEST_F(LogProcess, ChildrenLogAndEndWhileThreadsOfTheParentLog) {
    const ChildResult result = Run({"init", "forks:200:1000000000", "destroy"}, {{"TNROBOT_LOG_FILE", "/dev/null"}});
    EXPECT_EQ(result.output, "Init 0\nforks that failed 0\n");
    EXPECT_EQ(result.nExitCode, 0);
}

TEST_F(LogProcess, EveryLineOfParentAndChildrenArrivesOnce) {
    Run({"init", "param:3:16", "param:4:1000", "forks:50:2000", "destroy", "logged"});
    Steps lines = LoggedInAll();
    for (const std::string& line : lines) {
        EXPECT_EQ(line[0], 'I') << line;
    }
    lines.erase(std::remove(lines.begin(), lines.end(), "I parent"), lines.end());
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(std::unique(lines.begin(), lines.end()), lines.end());
    EXPECT_EQ(lines.size(), 50U);
}

TEST_F(LogProcess, AChildThatEndsWritesNoLineOfItsParent) {
    const ChildResult result = Run({"init", "log:2:parent", "child:2:", "child:2:", "log:2:after", "destroy"});
    EXPECT_EQ(result.output, "Init 0\nchild ended 0\nchild ended 0\n");
    EXPECT_EQ(Logged(), (Steps{"I parent", "I after"}));
}

TEST_F(LogProcess, AChildTellsItsOwnNumberAndKeepsItsLines) {
    Run({"init", "log:2:parent", "child:2:child", "destroy"});
    const Steps lines = FileLines(File());
    ASSERT_EQ(lines.size(), 2U);
    const std::string number = lines[1].substr(lines[1].rfind(' ') + 1);
    EXPECT_NE(lines[1].find(" I " + number + " child " + number), std::string::npos) << lines[1];
}

TEST_F(LogProcess, AChildDoesNotTellOfTheLinesThatItsParentLost) {
    const ChildResult result = Run(
        {"init", "filesize:0", "log:3:lost", "child:2:", "filesize:-1", "child:2:", "untilsaid::" + File(), "destroy"});
    EXPECT_EQ(result.nExitCode, 0);
    const Steps lines = Logged();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const auto& line) { return line.find("lines lost") != std::string::npos; }),
              1);
}

// A failure that was not the file's leaves lines in the buffer, and the next look at the file is later.
TEST_F(LogProcess, AChildDoesNotWriteWhatWaitsAfterAFailure) {
    const ChildResult result = Run({"init", "log:2:waits", "nomemory", "child", "destroy"});
    EXPECT_EQ(result.output, "Init 0\nchild ended 0\n");
    EXPECT_EQ(Logged(), (Steps{"I waits", "W logger: lines lost: 1"}));
}

// Handlers that were there before the logger's run while it holds its lock.
TEST_F(LogProcess, HandlersOfForkMayLog) {
    const ChildResult result = Run({"handlers", "init", "log:2:waits", "child:2:", "destroy"});
    EXPECT_EQ(result.output, "Init 0\nchild ended 0\n");
    Steps lines = Logged();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Steps{"I child", "I parent", "I prepare", "I waits"}));
}

TEST_F(LogProcess, HandlersOfForkMayLogWhenTheyCameLater) {
    const ChildResult result = Run({"init", "handlers", "log:2:waits", "child:2:", "destroy"});
    EXPECT_EQ(result.output, "Init 0\nchild ended 0\n");
    Steps lines = Logged();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Steps{"I child", "I parent", "I prepare", "I waits"}));
}

TEST_F(LogProcess, ForksLikeAnyOtherAfterTheLoggerHasGone) {
    const ChildResult result = Run({"init", "log:2:a", "destroy", "child:2:", "init", "destroy", "child:2:"});
    EXPECT_EQ(result.output, "Init 0\nchild ended 0\nInit 0\nchild ended 0\n");
    EXPECT_EQ(result.nExitCode, 0);
}

TEST_F(LogProcess, LinesOfTheVeryLastMomentsAreKept) {
    EXPECT_EQ(Run({"atexit:2:last", "init", "log:2:first"}).nExitCode, 0);
    EXPECT_EQ(Logged(), (Steps{"I first", "I last"}));
}

TEST_F(LogProcess, ThreadsThatAreCancelledFinishTheirLine) {
    if (kAddressSanitizer) {
        GTEST_SKIP() << "AddressSanitizer does not follow a thread that is cancelled";
    }
    const ChildResult result = Run({"init", "param:2:6", "cancel:50", "destroy", "logged"});
    EXPECT_EQ(result.nExitCode, 0);
    const Steps lines = Logged();
    EXPECT_EQ("Init 0\nlogged " + std::to_string(lines.size()) + "\n", result.output);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "W other"), 50);
}

// The handler's exit finds the lock with the thread that it runs on.
TEST_F(LogProcess, EndsWhenASignalEndsItInsideTheLogger) {
    if (kThreadSanitizer) {
        GTEST_SKIP() << "ThreadSanitizer holds signals back";
    }
    const ChildResult result = Run({"init", "log:3:first", "interrupt"});
    EXPECT_EQ(result.output, "Init 0\n");
    EXPECT_EQ(result.nExitCode, 3);
    EXPECT_EQ(Logged(), Steps{"W first"});
}
