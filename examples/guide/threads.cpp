// A worker thread with a job, an event to wait for, and an alarm clock.

#include <TnRobotKernel/make.h>

#include <atomic>
#include <cstdio>

namespace {

// [thread]
void ShowThread() {
    std::atomic<int> nPasses{0};
    const auto ready = tn::MakeManualEvent(false);
    const auto thread = tn::MakeThread();
    thread->SetWorkJob([&nPasses, &ready](ITnRobotEvent* pStop) {  // called over and over
        if (++nPasses == 3) {
            ready->SetEvent();
            while (!pStop->WaitEvent(1000)) {  // nothing left to do: wait for the Stop
            }
        }
    });
    thread->Run();
    while (!ready->WaitEvent(1000)) {  // a wait may end early, so it is repeated
    }
    thread->Stop();  // returns when the job has
    std::printf("passes of the thread: %d\n", nPasses.load());
}
// [/thread]

// [clock]
void ShowClock() {
    const auto clock = tn::MakeAlarmClock();
    clock->StartRecord(20);
    const bool bStoppedBefore = clock->Wait();  // nobody stops it: the limit passes
    clock->StartRecord(60000);
    clock->StopRecord();
    const bool bStopped = clock->Wait();  // stopped long before its limit
    std::printf("stopped before 20 ms: %s, before a minute: %s\n", bStoppedBefore ? "yes" : "no",
                bStopped ? "yes" : "no");
}
// [/clock]

}  // namespace

int main() {
    ShowThread();
    ShowClock();
}
