// Has the program that it is linked into run under the schedule of the seed in TNROBOT_SCHEDULE_SEED, and say
// which it was when something fails.

#include <gtest/gtest.h>

#include <cstdio>

#include "support/threads/SeededScheduler.h"
#include "support/threads/Storm.h"

namespace {

class NameTheSeed final : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult& result) override {
        if (result.failed()) {
            std::fprintf(stderr, "TNROBOT_SCHEDULE_SEED=%u replays this schedule\n", tntest::ScheduleSeed());
        }
    }
};

// Stays to the end of the process: threads may pass points until then.
const bool g_bInstalled = [] {
    if (tntest::ScheduleSeed() == 0) {
        return false;
    }
    static tntest::SeededScheduler s_scheduler(tntest::ScheduleSeed());
    tnrobot::Scheduler::Install(&s_scheduler);
    testing::UnitTest::GetInstance()->listeners().Append(new NameTheSeed);
    return true;
}();

}  // namespace
