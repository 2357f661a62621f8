// The logger library through the real facade: a probe performs the steps in a process of its own,
// and what then stands in the files and on the console is looked at.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/ChildProcess.h"
#include "support/FileBytes.h"
#include "support/TempDirectory.h"

using tntest::ChildProgram;
using tntest::ChildResult;
using tntest::InShell;
using tntest::RunChild;
using tntest::TempDirectory;

namespace {

using Environment = std::vector<std::pair<std::string, std::string>>;
using Steps = std::vector<std::string>;

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> FileLines(const std::string& path) {
    const tntest::Bytes bytes = tntest::ReadBytes(path);
    return LinesOf(std::string(bytes.begin(), bytes.end()));
}

bool IsDigit(char ch) {
    return ch >= '0' && ch <= '9';
}

// "2026-01-31 12:00:00.123456 W 4711 text" -> "W text"; anything else becomes a text that no
// expectation has.
std::string WithoutTime(const std::string& line) {
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

std::vector<std::string> WithoutTimes(const std::vector<std::string>& lines) {
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

    /// @param[in] program  run instead of the probe itself; the probe is its first argument.
    ChildResult Run(const Steps& steps, Environment environment = {}, bool bWithErrors = false) const {
        environment.insert(environment.begin(), {{"LD_LIBRARY_PATH", TNROBOT_LOG_DIRECTORY},
                                                 {"TNROBOT_LOG_FILE", File()},
                                                 {"TNROBOT_LOG_LEVEL", ""},
                                                 {"TNROBOT_LOG_CONSOLE_LEVEL", ""}});
        if (!bWithErrors) {
            return RunChild({TNROBOT_LOG_PROBE, steps, environment, m_directory.Path().string()});
        }
        ChildProgram program = InShell(R"(exec "$@" 2>&1)", TNROBOT_LOG_PROBE, steps);
        program.environment = environment;
        program.directory = m_directory.Path().string();
        return RunChild(program);
    }

    /// @return the lines on the standard error output, without their times.
    std::vector<std::string> Console(const Steps& steps, Environment environment = {}) const {
        return WithoutTimes(LinesOf(Run(steps, std::move(environment), true).output));
    }

    const TempDirectory m_directory;
};

// The lines that the probe's flood writes, in each thread's own order.
void ExpectFlood(const std::vector<std::string>& lines, int nThreads, int nLines) {
    std::map<int, int> next;
    for (const std::string& line : lines) {
        int nThread = -1;
        int nLine = -1;
        char chEnd = '\0';
        ASSERT_EQ(std::sscanf(line.c_str(), "I thread %d line %d%c", &nThread, &nLine, &chEnd), 3) << line;
        ASSERT_EQ(line, "I thread " + std::to_string(nThread) + " line " + std::to_string(nLine) + ".");
        ASSERT_EQ(next[nThread]++, nLine) << line;
    }
    ASSERT_EQ(next.size(), static_cast<std::size_t>(nThreads));
    for (const auto& [nThread, nCount] : next) {
        EXPECT_EQ(nCount, nLines) << nThread;
    }
}

std::vector<std::string> AllLevels() {
    Steps steps = {"init"};
    for (const char* lpszLevel : {"-1", "0", "1", "2", "3", "4", "5", "6", "77"}) {
        steps.push_back(std::string("log:") + lpszLevel + ":" + lpszLevel);
    }
    return steps;
}

}  // namespace

TEST_F(RobotLog, EveryLineOfEightThreadsArrivesOnceAndWhole) {
    const ChildResult result = Run({"init", "flood:8:2000", "destroy", "loaded"});
    EXPECT_EQ(result.output, "Init 0\nloaded 0\n");
    EXPECT_EQ(result.nExitCode, 0);
    ExpectFlood(Logged(), 8, 2000);
}

TEST_F(RobotLog, LinesAreSpreadOverFilesOfTheWantedSize) {
    const ChildResult result = Run({"init", "param:3:1", "param:4:1000", "flood:8:100", "destroy"});
    EXPECT_EQ(result.nExitCode, 0);
    int nOldest = 0;
    while (std::filesystem::exists(OldFile(nOldest + 1))) {
        ++nOldest;
    }
    EXPECT_GT(nOldest, 8 * 100 * 40 / 1024) << "a line has more than 40 bytes";
    std::vector<std::string> lines;
    for (int nNumber = nOldest; nNumber >= 0; --nNumber) {
        const std::string path = nNumber == 0 ? File() : OldFile(nNumber);
        EXPECT_LE(std::filesystem::file_size(path), 1024U);
        for (const std::string& line : FileLines(path)) {
            lines.push_back(WithoutTime(line));
        }
    }
    ExpectFlood(lines, 8, 100);
}

TEST_F(RobotLog, OnlyTheWantedNumberOfOldFilesIsKept) {
    Run({"init", "param:3:1", "param:4:2", "flood:1:200", "destroy"});
    EXPECT_TRUE(std::filesystem::exists(OldFile(1)));
    EXPECT_TRUE(std::filesystem::exists(OldFile(2)));
    EXPECT_FALSE(std::filesystem::exists(OldFile(3)));
    ASSERT_FALSE(Logged().empty());
    EXPECT_EQ(Logged().back(), "I thread 0 line 199.");
}

TEST_F(RobotLog, WithoutOldFilesTheFileStartsAnew) {
    Run({"init", "param:4:0", "param:3:1", "flood:1:200", "destroy"});
    EXPECT_FALSE(std::filesystem::exists(OldFile(1)));
    EXPECT_LE(std::filesystem::file_size(File()), 1024U);
    ASSERT_FALSE(Logged().empty());
    EXPECT_EQ(Logged().back(), "I thread 0 line 199.");
}

TEST_F(RobotLog, AFileThatIsThereIsContinued) {
    Run({"init", "log:2:first", "destroy", "init", "log:2:second", "destroy"});
    Run({"init", "log:2:third", "destroy"});
    EXPECT_EQ(Logged(), (Steps{"I first", "I second", "I third"}));
}

TEST_F(RobotLog, FileTakesInformationAndAboveAtFirst) {
    Run(AllLevels());
    EXPECT_EQ(Logged(), (Steps{"I 2", "W 3", "E 4", "C 5", "C 6", "C 77"}));
}

TEST_F(RobotLog, ConsoleTakesWarningsAndAboveAtFirst) {
    EXPECT_EQ(Console(AllLevels()), (Steps{"malformed: Init 0", "W 3", "E 4", "C 5", "C 6", "C 77"}));
}

TEST_F(RobotLog, LevelsAreSetAtAnyTime) {
    const auto console =
        Console({"init", "param:1:0", "param:2:5", "log:0:a", "log:4:b", "log:5:c", "param:1:6", "param:2:0", "log:0:d",
                 "log:5:e", "param:2:6", "log:5:f", "param:1:4", "log:3:g", "log:4:h", "destroy"});
    EXPECT_EQ(Logged(), (Steps{"T a", "E b", "C c", "E h"}));
    EXPECT_EQ(console, (Steps{"malformed: Init 0", "C c", "T d", "C e"}));
}

TEST_F(RobotLog, ALevelThatNobodyWantsIsNotFormatted) {
    const ChildResult result =
        Run({"init", "count:1", "fill:1:5000", "count:2", "param:1:6", "param:2:6", "count:5", "destroy"});
    EXPECT_EQ(result.output, "Init 0\nformatted -1\nformatted 3\nformatted -1\n");
    EXPECT_EQ(result.nExitCode, 0);
}

TEST_F(RobotLog, LevelsComeFromTheEnvironment) {
    const auto console = Console({"init", "log:0:a", "log:1:b", "log:5:c"},
                                 {{"TNROBOT_LOG_LEVEL", "1"}, {"TNROBOT_LOG_CONSOLE_LEVEL", "0"}});
    EXPECT_EQ(Logged(), (Steps{"D b", "C c"}));
    EXPECT_EQ(console, (Steps{"malformed: Init 0", "T a", "D b", "C c"}));
}

TEST_F(RobotLog, AMeaninglessVariableIsIgnoredAndSaidSo) {
    Run({"init", "log:2:a", "destroy"}, {{"TNROBOT_LOG_LEVEL", "loud"}, {"TNROBOT_LOG_CONSOLE_LEVEL", "7"}});
    EXPECT_EQ(Logged(), (Steps{"W logger: TNROBOT_LOG_LEVEL=loud is ignored: it is no level from 0 to 6",
                               "W logger: TNROBOT_LOG_CONSOLE_LEVEL=7 is ignored: it is no level from 0 to 6", "I a"}));
}

TEST_F(RobotLog, AMeaninglessParameterChangesNothingAndIsSaid) {
    const std::vector<std::pair<int, int>> refused = {{0, 0},    {7, 0},  {-1, 1}, {2147483647, 1}, {1, -1}, {1, 7},
                                                      {2, -1},   {2, 7},  {3, 0},  {3, 1048577},    {3, -5}, {4, -1},
                                                      {4, 1001}, {5, -1}, {5, 7},  {6, 1}};
    Steps steps = {"init"};
    Steps expected;
    for (const auto& [nParam, nValue] : refused) {
        const std::string param = std::to_string(nParam);
        const std::string value = std::to_string(nValue);
        steps.push_back("param:" + param + ":" + value);
        expected.push_back("W logger: SetLogParam(" + param + ", " + value +
                           ") is ignored: there is no such parameter or value");
    }
    steps.insert(steps.end(), {"log:1:debug", "log:2:information", "destroy"});
    expected.emplace_back("I information");
    Run(steps);
    EXPECT_EQ(Logged(), expected);
    EXPECT_FALSE(std::filesystem::exists(OldFile(1)));
}

TEST_F(RobotLog, OneCallIsOneLine) {
    Run({"init", "log:2:two\nlines\n", "log:2:a tab\tstays", "log:2:\x1b[31mred\r\x7f",
         "log:2:", "log:2:gr\xc3\xbc\xc3\x9f", "destroy"});
    EXPECT_EQ(Logged(),
              (Steps{R"(I two\nlines)", "I a tab\tstays", R"(I \x1b[31mred\r\x7f)", "I ", "I gr\xc3\xbc\xc3\x9f"}));
}

TEST_F(RobotLog, TheLongestLineArrivesWhole) {
    Run({"init", "fill:2:1023", "destroy"});
    EXPECT_EQ(Logged(), Steps{"I " + std::string(1023, 'x')});
}

// A line that is too long ends the process, which shows what had reached the file before.
TEST_F(RobotLog, WarningsReachTheFileAtOnce) {
    const ChildResult result = Run({"init", "log:2:a", "log:3:b", "log:2:c", "fill:5:2000"});
    EXPECT_EQ(result.nSignal, SIGABRT);
    EXPECT_EQ(Logged(), (Steps{"I a", "W b"}));
}

TEST_F(RobotLog, FlushingIsSetAndAskedFor) {
    EXPECT_EQ(Run({"init", "param:5:5", "log:4:a", "fill:5:2000"}).nSignal, SIGABRT);
    EXPECT_EQ(Logged(), Steps{});
    EXPECT_EQ(Run({"init", "param:5:6", "log:4:a", "param:6:0", "log:4:b", "fill:5:2000"}).nSignal, SIGABRT);
    EXPECT_EQ(Logged(), Steps{"E a"});
}

TEST_F(RobotLog, ComesAndGoesUnderLivingThreads) {
    const ChildResult result = Run({"reload:8:50"});
    EXPECT_EQ(result.output, "reloaded 50 still loaded 0\n");
    EXPECT_EQ(result.nExitCode, 0);
    ExpectFlood(Logged(), 8, 50);
}

TEST_F(RobotLog, MayComeWhileThreadsLog) {
    const ChildResult result = Run({"race", "destroy", "loaded"});
    EXPECT_EQ(result.output, "Init 0\nloaded 0\n");
    EXPECT_EQ(result.nExitCode, 0);
}

TEST_F(RobotLog, LinesAreKeptWhenTheProgramEndsWithoutDestroy) {
    EXPECT_EQ(Run({"init", "log:2:last words"}).nExitCode, 0);
    EXPECT_EQ(Logged(), Steps{"I last words"});
}

TEST_F(RobotLog, MissingDirectoriesAreMade) {
    const std::string path = m_directory / "a/b/c.log";
    EXPECT_EQ(Run({"init", "log:2:deep", "destroy"}, {{"TNROBOT_LOG_FILE", path}}).output, "Init 0\n");
    EXPECT_EQ(WithoutTimes(FileLines(path)), Steps{"I deep"});
}

TEST_F(RobotLog, FileIsNamedAfterTheProgramWhenNothingElseIsSaid) {
    ChildProgram program = InShell(R"(unset TNROBOT_LOG_FILE; exec "$@")", TNROBOT_LOG_PROBE, {"init", "log:2:here"});
    program.environment = {{"LD_LIBRARY_PATH", TNROBOT_LOG_DIRECTORY}};
    program.directory = m_directory.Path().string();
    EXPECT_EQ(RunChild(program).output, "Init 0\n");
    EXPECT_EQ(WithoutTimes(FileLines(m_directory / "tnrobot_log_probe.log")), Steps{"I here"});
}

TEST_F(RobotLog, AnEmptyFileNameMeansConsoleOnly) {
    EXPECT_EQ(Console({"init", "log:2:a", "log:3:b", "param:3:1", "destroy"}, {{"TNROBOT_LOG_FILE", ""}}),
              (Steps{"malformed: Init 0", "W b"}));
    EXPECT_TRUE(std::filesystem::is_empty(m_directory.Path()));
}

TEST_F(RobotLog, AFileThatCannotBeOpenedIsADocumentedFailure) {
    tntest::WriteBytes(File(), {});
    const std::string path = File() + "/below_a_file.log";
    const ChildResult result =
        Run({"init", "log:5:lost", "param:1:0", "destroy", "loaded"}, {{"TNROBOT_LOG_FILE", path}});
    EXPECT_EQ(result.output, "Init 2\nloaded 1\n");
    EXPECT_EQ(result.nExitCode, 0);
}

TEST_F(RobotLog, AFullDiskCostsLinesButNotTheProgram) {
    const auto console = Console({"init", "param:1:0", "log:3:a", "log:3:b", "flood:8:1000", "log:3:c", "destroy"},
                                 {{"TNROBOT_LOG_FILE", "/dev/full"}});
    ASSERT_EQ(console.size(), 6U);
    EXPECT_EQ(console[1], "W a");
    EXPECT_EQ(console[2].rfind("E logger: Failed flush to file /dev/full", 0), 0U) << console[2];
    EXPECT_EQ(console[3], "W b");
    EXPECT_EQ(console[4], "W c");
    EXPECT_EQ(console[5], "malformed: libTnRobotLog: the last lines could not be written");
}
