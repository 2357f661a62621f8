// What the dynamic loader's visit leaves behind: a program that is not linked with the library
// opens it, uses it and closes it again.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "support/processes/ChildProcess.h"
#include "support/processes/ResourceUse.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

// The logger library is in reach, so that opening it at load would show.
ChildResult LoadIn(const std::string& directory, int nTimes) {
    return RunChild({TNROBOT_LOAD_PROBE,
                     std::vector<std::string>(static_cast<std::size_t>(nTimes), TNROBOT_LIBRARY),
                     {{"LD_LIBRARY_PATH", std::string(TNROBOT_LOGGERS) + "/good"}},
                     directory});
}

std::string OneVisit(const std::string& workDirectory) {
    return "value 5 error 0\n"
           "directory [" +
           workDirectory +
           "]\n"
           "threads 0 logger 0\n"
           "fork 0, afterwards 0\n"
           "loaded 0 mapped 0\n";
}

}  // namespace

TEST(LibraryLoad, StartsInTheCurrentDirectoryAndLeavesNothingBehind) {
    const TempDirectory directory;
    const ChildResult result = LoadIn(directory.Path().string(), 1);
    EXPECT_EQ(result.output, OneVisit(directory.Path().string()));
    EXPECT_EQ(result.nExitCode, 0);
}

TEST(LibraryLoad, CanBeRepeated) {
    const TempDirectory directory;
    const ChildResult result = LoadIn(directory.Path().string(), 3);
    const std::string visit = OneVisit(directory.Path().string());
    EXPECT_EQ(result.output, visit + visit + visit);
    EXPECT_EQ(result.nExitCode, 0);
}

TEST(LibraryLoad, AThousandVisitsLeaveNothingBehind) {
    const ChildResult result = RunChild({TNROBOT_REOPEN_PROBE, {TNROBOT_LIBRARY, "1000"}, {}, {}});
    ASSERT_EQ(result.nExitCode, 0) << result.output;
    int nMappings = -1;
    int nDescriptors = -1;
    int nThreads = -1;
    long nKiB = -1;
    ASSERT_EQ(std::sscanf(result.output.c_str(), "mappings %d descriptors %d threads %d KiB %ld", &nMappings,
                          &nDescriptors, &nThreads, &nKiB),
              4)
        << result.output;
    EXPECT_EQ(nDescriptors, 0);
    EXPECT_EQ(nThreads, 0);
    if (!kSanitizerOwnsMemory) {
        EXPECT_EQ(nMappings, 0);
    }
    if (IsEmulated()) {
        GTEST_SKIP()
            << "what stays in memory is not asked: an emulator keeps its translation of each visit's code there";
    }
    if (!kSanitizerOwnsMemory) {
        EXPECT_LE(nKiB, 64) << "what the system maps of other libraries at once; 64 bytes for a visit";
    }
}

// The directory is read into 256 bytes, the terminating zero included.
TEST(LibraryLoad, ADirectoryTooLongForTheBufferIsEmpty) {
    const TempDirectory directory;
    const std::size_t nRoot = directory.Path().string().size();
    const struct {
        std::size_t nLength;
        bool bFits;
    } cases[] = {{254, true}, {255, true}, {256, false}, {400, false}};
    for (const auto& testCase : cases) {
        std::string path = directory / std::string(100, 'd');
        path += "/" + std::string(100 - nRoot, 'e') + "/";
        while (path.size() + 100 < testCase.nLength) {
            path += std::string(50, 'f') + "/";
        }
        path += std::string(testCase.nLength - path.size(), 'g');
        ASSERT_EQ(path.size(), testCase.nLength);
        std::filesystem::create_directories(path);
        const ChildResult result = LoadIn(path, 1);
        EXPECT_EQ(result.output, OneVisit(testCase.bFits ? path : "")) << testCase.nLength;
        EXPECT_EQ(result.nExitCode, 0) << testCase.nLength;
    }
}
