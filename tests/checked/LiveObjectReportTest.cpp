// What a checked library says about objects that are left when it goes.

#include <gtest/gtest.h>

#include <string>

#include "checked/TnSanitizer.h"
#include "support/processes/ChildProcess.h"

using namespace tntest;

namespace {

ChildResult EndWith(const std::string& strCase) {
    return RunChild({TNROBOT_LEAK_PROBE, {strCase}, {}, {}, true});
}

}  // namespace

TEST(LiveObjectReport, IsSilentWhenEverythingIsReleased) {
    for (const char* lpszCase : {"nothing", "static", "outlived pools"}) {
        const ChildResult result = EndWith(lpszCase);
        EXPECT_EQ(result.output, "") << lpszCase;
        EXPECT_EQ(result.nExitCode, 0) << lpszCase;
    }
}

TEST(LiveObjectReport, NamesTheClassesOfWhatIsAliveAndChangesNothingElse) {
    const struct {
        const char* lpszCase;
        const char* lpszReport;
    } cases[] = {
        {"two files", "TnRobotKernel: 2 objects of CTnRobotMemFile still alive\n"},
        {"a value", "TnRobotKernel: 1 object of CTnRobotDataValue still alive\n"},
        // What lies free belongs to its pool and is not reported beside it.
        {"a pool",
         "TnRobotKernel: 1 object of CTnRobotFixedMemBlockPool still alive\n"
         "TnRobotKernel: 1 object of CTnRobotMemoryBlock still alive\n"
         "TnRobotKernel: 1 object of CTnRobotRandomMemBlockPool still alive\n"},
    };
    for (const auto& testCase : cases) {
        const ChildResult result = EndWith(testCase.lpszCase);
        EXPECT_EQ(result.output, testCase.lpszReport);
        EXPECT_EQ(result.nExitCode, 0) << testCase.lpszCase;
    }
}

// The list of live objects must not count as a reference to them.
TEST(LiveObjectReport, DoesNotHideALostObjectFromLeakSanitizer) {
    const ChildResult result = EndWith("a lost file");
    const auto contains = [&](const char* lpszText) { return result.output.find(lpszText) != std::string::npos; };
    const bool bReported = contains("LeakSanitizer");
    EXPECT_EQ(bReported, tnrobot::kHidesMemory) << result.output;
    // The sanitizer may look first, and ends the process then.
    EXPECT_TRUE(bReported || contains("TnRobotKernel: 1 object of CTnRobotMemFile still alive\n")) << result.output;
}
