// What the child of a fork may do with the library while the parent's threads are somewhere in it. A
// fork happens in a process of its own, which a probe program is.

#include <gtest/gtest.h>

#include <string>

#include "support/processes/ChildProcess.h"
#include "support/processes/Sanitizers.h"

using namespace tntest;

namespace {

// To the sanitizers, what stays behind with the parent's threads is lost.
std::string ChildOf(const std::string& scenario) {
    const ChildResult result =
        RunChild({TNROBOT_FORK_PROBE,
                  {scenario},
                  {{"ASAN_OPTIONS", "detect_leaks=0"}, {"TSAN_OPTIONS", "report_thread_leaks=0:atexit_sleep_ms=0"}},
                  ""});
    EXPECT_EQ(result.nExitCode, 0) << result.output;
    return result.output;
}

// @return an empty text where the child of several threads may start one.
std::string WhyNoThreadsOfAChild() {
    if (kThreadSanitizer) {
        return "ThreadSanitizer does not know threads that a child starts";
    }
    return IsEmulated() ? "an emulator ends a child of several threads that starts one" : "";
}

constexpr char kEndsWell[] = "exit 0\n";

}  // namespace

// Its static objects go, the value pool among them, which takes back what somebody still holds.
TEST(Fork, TheChildMayExitWhileAThreadOfTheParentHasTheValuePoolsLock) {
    EXPECT_EQ(ChildOf("values-exit"), kEndsWell);
}

TEST(Fork, TheChildMayUseValuesWhileAThreadOfTheParentHasTheValuePoolsLock) {
    EXPECT_EQ(ChildOf("values-use"), kEndsWell);
}

TEST(Fork, ChildrenMayUseValuesAndExitWhateverTheParentsThreadsDoWithValues) {
    EXPECT_EQ(ChildOf("values-often"), "100 of 100\n");
}

TEST(Fork, TheChildMayReleaseAThreadObject) {
    EXPECT_EQ(ChildOf("thread-release"), kEndsWell);
}

TEST(Fork, TheChildMayExitWithAThreadObjectInAStatic) {
    EXPECT_EQ(ChildOf("thread-exit"), kEndsWell);
}

TEST(Fork, TheChildMayReleaseWhatThreadsOfTheParentWaitFor) {
    EXPECT_EQ(ChildOf("event-release"), kEndsWell);
    EXPECT_EQ(ChildOf("signal-release"), kEndsWell);
}

TEST(Fork, TheChildMayUseAnEventThatThreadsOfTheParentWaitFor) {
    if (const std::string reason = WhyNoThreadsOfAChild(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    EXPECT_EQ(ChildOf("event-use"), kEndsWell);
}

TEST(Fork, TheChildMayReleaseTasksAndTheirPoolInAnyOrder) {
    EXPECT_EQ(ChildOf("tasks-release"), kEndsWell);
    EXPECT_EQ(ChildOf("pool-release"), kEndsWell);
}

TEST(Fork, TheChildMayRunTasksOfThePool) {
    if (const std::string reason = WhyNoThreadsOfAChild(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    EXPECT_EQ(ChildOf("pool-use"), kEndsWell);
}

// The child's only thread is what was the worker of the task that it gives back.
TEST(Fork, TheChildOfAJobMayRunTasksOfThePool) {
    if (const std::string reason = WhyNoThreadsOfAChild(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    EXPECT_EQ(ChildOf("job-use"), kEndsWell);
}

TEST(Fork, ChildrenMayLookUpClassesWhateverTheParentsThreadsLookUp) {
    EXPECT_EQ(ChildOf("classes-often"), "100 of 100\n");
}

TEST(Fork, ChildrenMayUseArchivesWhateverObjectsTheParentsThreadsDrop) {
    if (kAddressSanitizer) {
        GTEST_SKIP() << "AddressSanitizer's allocator is left locked in a child when threads allocate during the fork";
    }
    EXPECT_EQ(ChildOf("archives-often"), "100 of 100\n");
}
