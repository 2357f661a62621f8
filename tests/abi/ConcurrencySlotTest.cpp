// The slot numbers of events, signals, clocks, threads, tasks and their pool. Programs compiled
// against the headers call by slot, so a failure here means that programs built earlier break:
// move the operation back.

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <vector>

#include "TnRobotKernel/concurrency.h"
#include "support/bytes/Slots.h"

namespace {

// Every operation here belongs to the first table of its interface.
template <typename Interface, typename Result, typename... Args>
std::ptrdiff_t SlotOf(Result (Interface::*pfn)(Args...)) {
    const tntest::SlotAddress address = tntest::SlotOf(pfn);
    EXPECT_EQ(address.nBaseOffset, 0);
    return address.nSlot;
}

struct Row {
    const char* lpszOperation;
    std::ptrdiff_t nFound;
    std::ptrdiff_t nSlot;
};

void Check(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        EXPECT_EQ(row.nFound, row.nSlot) << row.lpszOperation;
    }
}

// The destructor's two slots come first.
template <typename Interface>
void CheckCounted() {
    Check({
        {"AddRef", SlotOf<Interface>(static_cast<void (Interface::*)()>(&Interface::AddRef)), 2},
        {"Release", SlotOf<Interface>(static_cast<int (Interface::*)()>(&Interface::Release)), 3},
    });
    // The root has nothing but its table and its count, and nobody adds a base in front of it.
    EXPECT_EQ(sizeof(Interface), sizeof(ITnUnknown));
}

using Job = std::function<void(ITnRobotEvent*)>;

}  // namespace

TEST(ConcurrencySlotNumber, CountedInterfacesStartWithTheRoot) {
    CheckCounted<ITnRobotEvent>();
    CheckCounted<ITnRobotSignal>();
    CheckCounted<ITnRobotAlarmClock>();
    CheckCounted<ITnRobotThread>();
    CheckCounted<ITnRobotTaskRunner>();
    CheckCounted<ITnRobotTask>();
    CheckCounted<ITnRobotTaskPool>();
}

TEST(ConcurrencySlotNumber, EventsSignalsAndClocks) {
    Check({
        {"SetEvent", SlotOf<ITnRobotEvent, void>(&ITnRobotEvent::SetEvent), 4},
        {"ResetEvent", SlotOf<ITnRobotEvent, void>(&ITnRobotEvent::ResetEvent), 5},
        {"WaitEvent", SlotOf<ITnRobotEvent, bool, unsigned int>(&ITnRobotEvent::WaitEvent), 6},
        {"Signal", SlotOf<ITnRobotSignal, void>(&ITnRobotSignal::Signal), 4},
        {"CanCel", SlotOf<ITnRobotSignal, void>(&ITnRobotSignal::CanCel), 5},
        {"Reset", SlotOf<ITnRobotSignal, void>(&ITnRobotSignal::Reset), 6},
        {"Wait", SlotOf<ITnRobotSignal, unsigned int, unsigned int>(&ITnRobotSignal::Wait), 7},
        {"ClearResource", SlotOf<ITnRobotSignal, void>(&ITnRobotSignal::ClearResource), 8},
        {"ReStartRecord", SlotOf<ITnRobotAlarmClock, void>(&ITnRobotAlarmClock::ReStartRecord), 4},
        {"StartRecord", SlotOf<ITnRobotAlarmClock, void, unsigned int>(&ITnRobotAlarmClock::StartRecord), 5},
        {"StopRecord", SlotOf<ITnRobotAlarmClock, void>(&ITnRobotAlarmClock::StopRecord), 6},
        {"Wait", SlotOf<ITnRobotAlarmClock, bool>(&ITnRobotAlarmClock::Wait), 7},
        {"IsTimeOut", SlotOf<ITnRobotAlarmClock, bool, bool&>(&ITnRobotAlarmClock::IsTimeOut), 8},
    });
}

TEST(ConcurrencySlotNumber, ThreadsAndTasks) {
    using Runner = ITnRobotTaskRunner;
    using CreateWithRunner = bool (ITnRobotTaskPool::*)(Runner*, ITnRobotTask**);
    using CreateWithJob = bool (ITnRobotTaskPool::*)(const Job&);
    Check({
        {"SetWorkJob", SlotOf<ITnRobotThread, bool, const Job&>(&ITnRobotThread::SetWorkJob), 4},
        {"Run", SlotOf<ITnRobotThread, bool>(&ITnRobotThread::Run), 5},
        {"Stop", SlotOf<ITnRobotThread, void>(&ITnRobotThread::Stop), 6},
        {"Exit", SlotOf<ITnRobotThread, void, unsigned int>(&ITnRobotThread::Exit), 7},
        {"Start", SlotOf<ITnRobotTask, bool>(&ITnRobotTask::Start), 4},
        {"Stop", SlotOf<ITnRobotTask, void>(&ITnRobotTask::Stop), 5},
        {"IsRunning", SlotOf<ITnRobotTask, bool>(&ITnRobotTask::IsRunning), 6},
        {"Init", SlotOf<Runner, void>(&Runner::Init), 4},
        {"Execute", SlotOf<Runner, void, ITnRobotEvent*>(&Runner::Execute), 5},
        {"ClearResource", SlotOf<Runner, void>(&Runner::ClearResource), 6},
        {"IsStop", SlotOf<Runner, bool>(&Runner::IsStop), 7},
        {"Copy", SlotOf<Runner, void, Runner*>(&Runner::Copy), 8},
        {"Clone", SlotOf<Runner, Runner*>(&Runner::Clone), 9},
        {"CreateTask(runner)", SlotOf(static_cast<CreateWithRunner>(&ITnRobotTaskPool::CreateTask)), 4},
        {"CreateTask(job)", SlotOf(static_cast<CreateWithJob>(&ITnRobotTaskPool::CreateTask)), 5},
        {"GetTaskCount", SlotOf<ITnRobotTaskPool, unsigned int>(&ITnRobotTaskPool::GetTaskCount), 6},
    });
}

// Not counted: its own operations follow the destructor.
TEST(ConcurrencySlotNumber, TaskParent) {
    using Parent = ITnRobotTaskParent;
    EXPECT_EQ(sizeof(Parent), sizeof(void*));
    Check({
        {"RecoveryTask", SlotOf<Parent, void, ITnRobotTask*>(&Parent::RecoveryTask), 2},
        {"OnNotifyStop", SlotOf<Parent, void, ITnRobotTask*>(&Parent::OnNotifyStop), 3},
    });
}
