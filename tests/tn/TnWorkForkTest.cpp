// What the child of a fork does with the work that its parent has under way: it ends it, and waits for
// nobody.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

#include "TnRobotKernel/tn/for_each.h"
#include "TnRobotKernel/tn/run.h"
#include "TnRobotKernel/tn/work_queue.h"
#include "support/processes/Sanitizers.h"
#include "tn/WorkTest.h"

using namespace tntest;

namespace {

class WorkFork : public WorkTest {
protected:
    // @return the exit code of a child that does this; -1 when it hangs or crashes.
    template <typename Function>
    static int ChildThat(Function function) {
        constexpr unsigned int kPatience = 60;
        const pid_t nChild = fork();
        if (nChild == 0) {
            alarm(kPatience);
            function();
            _exit(0);
        }
        int nStatus = 0;
        return waitpid(nChild, &nStatus, 0) == nChild && WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    }
};

}  // namespace

TEST_F(WorkFork, TheChildMayDestroyAHandleOfARunningJob) {
    Gate gate;
    auto handle = std::make_unique<tn::JobHandle>(tn::Run(Pool(), [&gate] { gate.Pass(); }));
    const OpenAtEnd open(gate);
    gate.AwaitArrival();
    EXPECT_EQ(ChildThat([&handle] { handle.reset(); }), 0);
    gate.Open();
    EXPECT_TRUE(handle->Wait());
}

TEST_F(WorkFork, TheChildMayDestroyAQueueThatIsAtWork) {
    Gate gate;
    for (const tn::AtEnd eAtEnd : {tn::AtEnd::kDrain, tn::AtEnd::kCancel}) {
        auto queue = std::make_unique<tn::WorkQueue<int>>(
            Pool(), [&gate](int) { gate.Pass(); }, tn::WorkQueueOptions{2, 5, eAtEnd});
        const OpenAtEnd open(gate);
        EXPECT_TRUE(queue->Push(1));
        EXPECT_TRUE(queue->Push(2));
        gate.AwaitArrival(1);
        EXPECT_EQ(ChildThat([&queue] { queue.reset(); }), 0);
    }
}

TEST_F(WorkFork, TheChildHasTasksOfItsOwn) {
    if (kThreadSanitizer) {
        GTEST_SKIP() << "ThreadSanitizer does not know threads that a child starts";
    }
    Gate gate;
    const auto busy = tn::Run(Pool(), [&gate] { gate.Pass(); });
    const OpenAtEnd open(gate);
    gate.AwaitArrival();
    EXPECT_EQ(ChildThat([this] {
                  std::atomic<int> nCalls{0};
                  tn::ForEach(Pool(), 100, [&nCalls](std::size_t) { ++nCalls; });
                  auto handle = tn::Run(Pool(), [&nCalls] { ++nCalls; });
                  if (!handle.Wait() || nCalls != 101) {
                      _exit(3);
                  }
              }),
              0);
    gate.Open();
}
