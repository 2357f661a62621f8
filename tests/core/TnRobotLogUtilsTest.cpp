// The facade's state exists once per process, so every case runs in a child process: a probe
// performs the steps, the logger library reports what reaches it, and the transcript of both
// is compared whole.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/processes/ChildProcess.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

std::string LoggerDirectory(const std::string& variant) {
    return std::string(TNROBOT_LOGGERS) + "/" + variant;
}

ChildResult Probe(const std::string& directory, const std::vector<std::string>& steps) {
    return RunChild({TNROBOT_LOG_PROBE, steps, {{"LD_LIBRARY_PATH", directory}}, ""});
}

void ExpectTranscript(const std::string& variant, const std::vector<std::string>& steps,
                      const std::string& transcript) {
    const ChildResult result = Probe(LoggerDirectory(variant), steps);
    EXPECT_EQ(result.output, transcript);
    EXPECT_EQ(result.nExitCode, 0);
    EXPECT_EQ(result.nSignal, 0);
}

class LogUtilsSlotOrder : public ::testing::TestWithParam<std::string> {};

std::string VariantName(const ::testing::TestParamInfo<std::string>& variant) {
    return variant.param;
}

}  // namespace

// The logger library is built apart from this one: what they share is the order of the slots.
TEST_P(LogUtilsSlotOrder, ReachesTheLoggersOperations) {
    ExpectTranscript(GetParam(),
                     {"init", "param:11:-22", "log:3:a line", "log:-1:dropped", "format:0", "destroy", "loaded"},
                     "Init 0\n"
                     "SetLogParam 11 -22\n"
                     "IsLevelEnabled 3\n"
                     "WriteLog 3 [a line]\n"
                     "IsLevelEnabled -1\n"
                     "IsLevelEnabled 0\n"
                     "WriteLog 0 [-1|t|1.50|x|%|    7]\n"
                     "destroyed\n"
                     "loaded 0\n");
}

INSTANTIATE_TEST_SUITE_P(Loggers, LogUtilsSlotOrder, ::testing::Values<std::string>("good", "foreign"), VariantName);

TEST(LogUtils, LevelsAndParametersPassUntouched) {
    ExpectTranscript(
        "good", {"init", "param:-2147483648:2147483647", "log:2147483647:top", "log:-2147483648:bottom", "destroy"},
        "Init 0\n"
        "SetLogParam -2147483648 2147483647\n"
        "IsLevelEnabled 2147483647\n"
        "WriteLog 2147483647 [top]\n"
        "IsLevelEnabled -2147483648\n"
        "destroyed\n");
}

TEST(LogUtils, AnEmptyLineIsALine) {
    ExpectTranscript("good", {"init", "log:1:", "destroy"}, "Init 0\nIsLevelEnabled 1\nWriteLog 1 []\ndestroyed\n");
}

TEST(LogUtils, NothingOpensTheLoggerLibraryBeforeInit) {
    ExpectTranscript("good", {"log:1:early", "param:1:2", "destroy", "loaded"}, "loaded 0\n");
}

TEST(LogUtils, NothingIsLoggedAfterTheLastDestroy) {
    ExpectTranscript("good", {"init", "destroy", "log:1:late", "param:1:2", "destroy", "loaded"},
                     "Init 0\ndestroyed\nloaded 0\n");
}

TEST(LogUtils, EveryInitNeedsItsDestroy) {
    ExpectTranscript("good",
                     {"init", "init", "init", "destroy", "destroy", "loaded", "log:1:still here", "destroy", "loaded"},
                     "Init 0\nInit 0\nInit 0\n"
                     "loaded 1\n"
                     "IsLevelEnabled 1\nWriteLog 1 [still here]\n"
                     "destroyed\n"
                     "loaded 0\n");
}

TEST(LogUtils, RepeatedInitsOpenTheLibraryOnce) {
    ExpectTranscript("good", {"init", "init", "init", "handles"}, "Init 0\nInit 0\nInit 0\nhandles 1\n");
}

TEST(LogUtils, ADestroyTooManyLeavesTheCountAtZero) {
    ExpectTranscript("good", {"destroy", "destroy", "init", "log:1:a", "destroy", "destroy", "loaded"},
                     "Init 0\nIsLevelEnabled 1\nWriteLog 1 [a]\ndestroyed\nloaded 0\n");
}

TEST(LogUtils, TheLoggerCanBeLoadedAgainAfterItWasClosed) {
    ExpectTranscript("good", {"init", "destroy", "init", "log:1:second life", "destroy", "loaded"},
                     "Init 0\ndestroyed\n"
                     "Init 0\nIsLevelEnabled 1\nWriteLog 1 [second life]\ndestroyed\nloaded 0\n");
}

TEST(LogUtils, ADroppedLevelIsNotFormatted) {
    ExpectTranscript("good", {"init", "count:-1", "fill:-1:5000", "count:1", "destroy"},
                     "Init 0\n"
                     "IsLevelEnabled -1\nformatted -1\n"
                     "IsLevelEnabled -1\n"
                     "IsLevelEnabled 1\nWriteLog 1 [abc]\nformatted 3\n"
                     "destroyed\n");
}

TEST(LogUtils, WithoutALoggerNothingIsFormatted) {
    ExpectTranscript("good", {"count:1", "fill:1:5000"}, "formatted -1\n");
}

TEST(LogUtils, ALineOf1023CharactersIsDeliveredWhole) {
    const std::string line(1023, 'x');
    ExpectTranscript("good", {"init", "fill:1:1023", "destroy"},
                     "Init 0\nIsLevelEnabled 1\nWriteLog 1 [" + line + "]\ndestroyed\n");
}

// Fatal in every build: not cut off, not delivered, and nothing written behind the buffer.
TEST(LogUtils, ALongerLineAbortsTheProcess) {
    for (const char* lpszFill : {"fill:1:1024", "fill:1:1025", "fill:1:100000"}) {
        const ChildResult result = Probe(LoggerDirectory("good"), {"init", lpszFill, "destroy"});
        EXPECT_EQ(result.nSignal, SIGABRT) << lpszFill;
        EXPECT_EQ(result.output, "Init 0\nIsLevelEnabled 1\n") << lpszFill;
    }
}

TEST(LogUtils, AMissingLibraryAnswersMinusOne) {
    const TempDirectory empty;
    const ChildResult result =
        Probe(empty.Path().string(), {"init", "log:1:lost", "param:1:2", "destroy", "init", "loaded"});
    EXPECT_EQ(result.output, "Init -1\nInit -1\nloaded 0\n");
    EXPECT_EQ(result.nExitCode, 0);
}

// The guide tells programs to ask the loader why.
TEST(LogUtils, WhatTheLoaderSaidIsThereAfterAFailedInit) {
    const TempDirectory empty;
    EXPECT_EQ(Probe(empty.Path().string(), {"init", "reason"}).output, "Init -1\nmissing: library\n");
    ExpectTranscript("without_symbol", {"init", "reason"}, "Init -1\nmissing: function\n");
}

TEST(LogUtils, AMissingCreationFunctionAnswersMinusOneAndTheLibraryStaysOpen) {
    ExpectTranscript("without_symbol", {"init", "log:1:lost", "param:1:2", "count:1", "destroy", "loaded"},
                     "Init -1\nformatted -1\nloaded 1\n");
}

// The handle of a failed Init is kept, once, whatever happens afterwards.
TEST(LogUtils, FailedInitsKeepOneHandle) {
    ExpectTranscript("without_symbol", {"init", "init", "init", "handles"}, "Init -1\nInit -1\nInit -1\nhandles 1\n");
    ExpectTranscript("failing", {"init", "init", "init", "handles"}, "Init 7\nInit 7\nInit 7\nhandles 1\n");
}

// The broken library stays open to the end of the process, so the loader finds it again whatever
// lies on the path by then.
TEST(LogUtils, ABrokenLibraryIsMetAgainByALaterInit) {
    const TempDirectory directory;
    std::filesystem::create_symlink(LoggerDirectory("without_symbol") + "/libTnRobotLog.so",
                                    directory / "libTnRobotLog.so");
    const std::string good = LoggerDirectory("good") + "/libTnRobotLog.so";
    const ChildResult result =
        Probe(directory.Path().string(), {"init", "relink:0:" + good, "init", "log:1:a", "destroy", "loaded"});
    EXPECT_EQ(result.output,
              "Init -1\nrelinked 1\n"
              "Init -1\nloaded 1\n");
    EXPECT_EQ(result.nExitCode, 0);
}

// A program may export a function of that name, as one does that brings its own logger: the library's counts.
TEST(LogUtils, TheCreationFunctionIsTheLibrarysNotTheProgramsOwn) {
    const auto probe = [](const std::string& variant, const std::vector<std::string>& steps) {
        return RunChild({TNROBOT_OWN_LOG_PROBE, steps, {{"LD_LIBRARY_PATH", LoggerDirectory(variant)}}, ""}).output;
    };
    EXPECT_EQ(probe("good", {"init", "log:1:a", "destroy", "loaded", "init", "destroy"}),
              "Init 0\nIsLevelEnabled 1\nWriteLog 1 [a]\ndestroyed\nloaded 0\nInit 0\ndestroyed\n");
    EXPECT_EQ(probe("without_symbol", {"init", "log:1:lost", "init", "handles"}), "Init -1\nInit -1\nhandles 1\n");
    EXPECT_EQ(probe("failing", {"init", "works", "init", "destroy", "loaded"}),
              "Init 7\nInit 0\ndestroyed\nloaded 0\n");
    EXPECT_EQ(probe("no_such_directory", {"init", "destroy", "loaded"}), "Init -1\nloaded 0\n");
}

TEST(LogUtils, AFailingCreatorsResultIsHandedOn) {
    ExpectTranscript("failing", {"init", "log:1:lost", "param:1:2", "destroy", "loaded"}, "Init 7\nloaded 1\n");
}

TEST(LogUtils, InitWorksOnceTheCreatorWorksAndLosesNoHandle) {
    ExpectTranscript("failing", {"init", "init", "works", "init", "log:1:a", "destroy", "loaded"},
                     "Init 7\nInit 7\nInit 0\nIsLevelEnabled 1\nWriteLog 1 [a]\ndestroyed\nloaded 0\n");
}

// A creator may keep its logger in use although it reports a failure; the count stays at 0.
TEST(LogUtils, ALoggerStoredByAFailingCreatorStaysInUse) {
    ExpectTranscript("failing_stored", {"init", "param:1:2", "log:1:a", "destroy", "log:1:b", "loaded"},
                     "Init 7\nSetLogParam 1 2\n"
                     "IsLevelEnabled 1\nWriteLog 1 [a]\n"
                     "IsLevelEnabled 1\nWriteLog 1 [b]\n"
                     "loaded 1\n");
}

TEST(LogUtils, TheNextInitCountsALoggerStoredByAFailingCreator) {
    ExpectTranscript("failing_stored", {"init", "init", "log:1:a", "destroy", "log:1:b", "loaded"},
                     "Init 7\nInit 0\nIsLevelEnabled 1\nWriteLog 1 [a]\ndestroyed\nloaded 0\n");
}

TEST(LogUtils, ACreatorThatSucceedsWithoutALoggerIsCounted) {
    ExpectTranscript("empty", {"init", "log:1:lost", "param:1:2", "loaded", "destroy", "loaded"},
                     "Init 0\nloaded 1\nloaded 0\n");
}

// The creation function stores its logger where the library keeps it, so it counts from there on.
TEST(LogUtils, ACreatorMayLogOnceItsLoggerIsStored) {
    ExpectTranscript("logs_early", {"init", "log:1:a", "destroy", "loaded"},
                     "IsLevelEnabled 1\nWriteLog 1 [from the creation function]\n"
                     "Init 0\n"
                     "IsLevelEnabled 1\nWriteLog 1 [a]\n"
                     "destroyed\nloaded 0\n");
}

TEST(LogUtils, ACreatorMayCallInitAgain) {
    ExpectTranscript("inits_again", {"init", "destroy", "loaded", "log:1:a", "destroy", "loaded", "destroy"},
                     "IsLevelEnabled 1\nWriteLog 1 [from the creation function]\n"
                     "inner Init 0\n"
                     "Init 0\n"
                     "loaded 1\n"
                     "IsLevelEnabled 1\nWriteLog 1 [a]\n"
                     "destroyed\nloaded 0\n");
}

TEST(LogUtils, TheInitOfACreatorThatFailsCounts) {
    ExpectTranscript("inits_and_fails", {"init", "log:1:a", "destroy", "log:1:b", "loaded"},
                     "inner Init 0\n"
                     "Init 7\n"
                     "IsLevelEnabled 1\nWriteLog 1 [a]\n"
                     "destroyed\nloaded 0\n");
}

// The Init that has called the creation function does not count yet, but it is there.
TEST(LogUtils, ACreatorMayEndTheInitThatItHasBegun) {
    ExpectTranscript("inits_and_destroys", {"init", "log:1:a", "loaded", "destroy", "log:1:b", "loaded"},
                     "inner Init 0\n"
                     "IsLevelEnabled 1\nWriteLog 1 [still there]\n"
                     "Init 0\n"
                     "IsLevelEnabled 1\nWriteLog 1 [a]\n"
                     "loaded 1\n"
                     "destroyed\nloaded 0\n");
}

// Its code must stay while its destructor runs.
TEST(LogUtils, ALoggerMayCallDestroyInItsDestructor) {
    ExpectTranscript("destroys_at_end", {"init", "destroy", "loaded", "init", "log:1:a", "destroy", "loaded"},
                     "Init 0\ndestroyed\nand gone\nloaded 0\n"
                     "Init 0\nIsLevelEnabled 1\nWriteLog 1 [a]\ndestroyed\nand gone\nloaded 0\n");
}

TEST(LogUtils, ALoggerMayCallInitInItsDestructor) {
    ExpectTranscript("inits_at_end", {"init", "destroy", "loaded", "log:1:a"},
                     "Init 0\ndestroyed\nand gone\nloaded 1\nIsLevelEnabled 1\nWriteLog 1 [a]\n");
}

// Without a logger in place each Init asks the creation function anew, but not for ever.
TEST(LogUtils, ACreatorThatOnlyCallsInitComesToAnEnd) {
    const ChildResult result = Probe(LoggerDirectory("inits_first"), {"init", "log:1:a", "destroy", "loaded"});
    EXPECT_EQ(result.output, "Init 0\nIsLevelEnabled 1\nWriteLog 1 [a]\nloaded 1\n");
    EXPECT_EQ(result.nExitCode, 0);
    EXPECT_EQ(result.nSignal, 0);
}

TEST(LogUtils, EveryCreatorIsGivenTheSameAddress) {
    ExpectTranscript("late", {"init", "init", "works", "init", "log:1:a", "destroy", "loaded"},
                     "same address 1\nInit 7\n"
                     "same address 1\nInit 7\n"
                     "IsLevelEnabled 1\nWriteLog 1 [from the creation function]\n"
                     "same address 1\nInit 0\n"
                     "IsLevelEnabled 1\nWriteLog 1 [a]\n"
                     "destroyed\nloaded 0\n");
}

TEST(LogUtils, LinesOfManyThreadsArriveWhole) {
    const ChildResult result = Probe(LoggerDirectory("good"), {"init", "threads", "destroy"});
    EXPECT_EQ(result.nExitCode, 0);
    EXPECT_EQ(result.nSignal, 0);
    std::vector<std::string> expected;
    for (int nThread = 0; nThread < 4; ++nThread) {
        for (int nLine = 0; nLine < 100; ++nLine) {
            const std::string thread = std::to_string(nThread);
            expected.push_back("WriteLog " + thread + " [thread " + thread + " line " + std::to_string(nLine) + "]");
        }
    }
    std::vector<std::string> arrived;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("WriteLog", 0) == 0) {
            arrived.push_back(line);
        }
    }
    std::sort(expected.begin(), expected.end());
    std::sort(arrived.begin(), arrived.end());
    EXPECT_EQ(arrived, expected);
}

// Threads may log before the logger exists: they meet no logger or a finished one, whatever its
// creation function does in between.
TEST(LogUtils, InitMayRunWhileThreadsLog) {
    ExpectTranscript("good", {"race", "destroy", "loaded"}, "Init 0\ndestroyed\nloaded 0\n");
    ExpectTranscript("logs_early", {"race", "destroy", "loaded"},
                     "IsLevelEnabled 1\nWriteLog 1 [from the creation function]\n"
                     "Init 0\ndestroyed\nloaded 0\n");
}
