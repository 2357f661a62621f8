// The logger library through the real facade: a probe performs the steps in a process of its own,
// and what then stands in the files and on the console is looked at.

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "logger/RobotLog.h"
#include "support/bytes/FileBytes.h"
#include "support/processes/ChildProcess.h"

using namespace tntest;

namespace {

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

// A terminal takes those from 128 to 159 for the beginning of a command, as single bytes or in UTF-8.
TEST_F(RobotLog, NoControlCharacterOfAnyFormArrives) {
    const struct {
        const char* lpszText;
        const char* lpszExpected;
    } cases[] = {
        {"\x9b"
         "31m",
         R"(\x9b31m)"},
        {"\xc2\x9b"
         "31m",
         R"(\xc2\x9b31m)"},
        {"a\xc2\x80\xc2\x9fz", R"(a\xc2\x80\xc2\x9fz)"},
        {"\xc2\xa0\xc3\x9b\xe2\x82\xac\xf0\x9f\x98\x80", "\xc2\xa0\xc3\x9b\xe2\x82\xac\xf0\x9f\x98\x80"},
        {"\xc1\x9b\xe0\x82\x9b", "\xc1\\x9b\xe0\\x82\\x9b"},  // longer forms than needed
        {"\xed\xa0\x9b", "\xed\xa0\\x9b"},                    // no character
        {"\xf7\x9b\xa0\xa0", "\xf7\\x9b\xa0\xa0"},
        {"cut \xe2\x82", "cut \xe2\\x82"},
        {"cut \xc3", "cut \xc3"},
        {"gr\xfc\xdf", "gr\xfc\xdf"},  // another character set
        {"a\xe2\x80\xa8z", R"(a\xe2\x80\xa8z)"},
        {"a\xe2\x80\xaez", R"(a\xe2\x80\xaez)"},
        {"a\xe2\x81\xa6z", R"(a\xe2\x81\xa6z)"},
        {"a\xe2\x80\x8e\xe2\x80\x8f\xd8\x9cz", R"(a\xe2\x80\x8e\xe2\x80\x8f\xd8\x9cz)"},
    };
    Steps steps = {"init"};
    Steps expected;
    for (const auto& test : cases) {
        steps.push_back(std::string("log:3:") + test.lpszText);
        expected.push_back(std::string("W ") + test.lpszExpected);
    }
    steps.emplace_back("destroy");
    std::vector<std::string> console = Console(steps);
    EXPECT_EQ(Logged(), expected);
    ASSERT_FALSE(console.empty());
    console.erase(console.begin());  // what Init answered
    EXPECT_EQ(console, expected);
}

TEST_F(RobotLog, NoPathBringsAControlCharacterToTheConsole) {
    WriteBytes(File(), {});
    const auto console = Console({"init"}, {{"TNROBOT_LOG_FILE", File() + "/\x1b[31m\xc2\x9b"}});
    ASSERT_EQ(console.size(), 2U);
    EXPECT_NE(console[0].find(R"(\x1b[31m\xc2\x9b)"), std::string::npos) << console[0];
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
    WriteBytes(File(), {});
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
