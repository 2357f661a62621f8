// The slot numbers of events, signals, clocks, threads, tasks and their pool. Programs compiled
// against the headers call by slot, so a failure here means that programs built earlier break:
// move the operation back.

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <vector>

#include "TnRobotKernel/concurrency.h"
#include "support/bytes/Slots.h"

using namespace tntest;

namespace {

// Every operation here belongs to the first table of its interface.
template <typename Interface, typename Result, typename... Args>
std::ptrdiff_t SlotInFirstTable(Result (Interface::*pfn)(Args...)) {
    const SlotAddress address = SlotOf(pfn);
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
        {"AddRef", SlotInFirstTable<Interface>(static_cast<void (Interface::*)()>(&Interface::AddRef)), 2},
        {"Release", SlotInFirstTable<Interface>(static_cast<int (Interface::*)()>(&Interface::Release)), 3},
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
        {"SetEvent", SlotInFirstTable<ITnRobotEvent, void>(&ITnRobotEvent::SetEvent), 4},
        {"ResetEvent", SlotInFirstTable<ITnRobotEvent, void>(&ITnRobotEvent::ResetEvent), 5},
        {"WaitEvent", SlotInFirstTable<ITnRobotEvent, bool, unsigned int>(&ITnRobotEvent::WaitEvent), 6},
        {"Signal", SlotInFirstTable<ITnRobotSignal, void>(&ITnRobotSignal::Signal), 4},
        {"CanCel", SlotInFirstTable<ITnRobotSignal, void>(&ITnRobotSignal::CanCel), 5},
        {"Reset", SlotInFirstTable<ITnRobotSignal, void>(&ITnRobotSignal::Reset), 6},
        {"Wait", SlotInFirstTable<ITnRobotSignal, unsigned int, unsigned int>(&ITnRobotSignal::Wait), 7},
        {"ClearResource", SlotInFirstTable<ITnRobotSignal, void>(&ITnRobotSignal::ClearResource), 8},
        {"ReStartRecord", SlotInFirstTable<ITnRobotAlarmClock, void>(&ITnRobotAlarmClock::ReStartRecord), 4},
        {"StartRecord", SlotInFirstTable<ITnRobotAlarmClock, void, unsigned int>(&ITnRobotAlarmClock::StartRecord), 5},
        {"StopRecord", SlotInFirstTable<ITnRobotAlarmClock, void>(&ITnRobotAlarmClock::StopRecord), 6},
        {"Wait", SlotInFirstTable<ITnRobotAlarmClock, bool>(&ITnRobotAlarmClock::Wait), 7},
        {"IsTimeOut", SlotInFirstTable<ITnRobotAlarmClock, bool, bool&>(&ITnRobotAlarmClock::IsTimeOut), 8},
    });
}

TEST(ConcurrencySlotNumber, ThreadsAndTasks) {
    using Runner = ITnRobotTaskRunner;
    using CreateWithRunner = bool (ITnRobotTaskPool::*)(Runner*, ITnRobotTask**);
    using CreateWithJob = bool (ITnRobotTaskPool::*)(const Job&);
    Check({
        {"SetWorkJob", SlotInFirstTable<ITnRobotThread, bool, const Job&>(&ITnRobotThread::SetWorkJob), 4},
        {"Run", SlotInFirstTable<ITnRobotThread, bool>(&ITnRobotThread::Run), 5},
        {"Stop", SlotInFirstTable<ITnRobotThread, void>(&ITnRobotThread::Stop), 6},
        {"Exit", SlotInFirstTable<ITnRobotThread, void, unsigned int>(&ITnRobotThread::Exit), 7},
        {"Start", SlotInFirstTable<ITnRobotTask, bool>(&ITnRobotTask::Start), 4},
        {"Stop", SlotInFirstTable<ITnRobotTask, void>(&ITnRobotTask::Stop), 5},
        {"IsRunning", SlotInFirstTable<ITnRobotTask, bool>(&ITnRobotTask::IsRunning), 6},
        {"Init", SlotInFirstTable<Runner, void>(&Runner::Init), 4},
        {"Execute", SlotInFirstTable<Runner, void, ITnRobotEvent*>(&Runner::Execute), 5},
        {"ClearResource", SlotInFirstTable<Runner, void>(&Runner::ClearResource), 6},
        {"IsStop", SlotInFirstTable<Runner, bool>(&Runner::IsStop), 7},
        {"Copy", SlotInFirstTable<Runner, void, Runner*>(&Runner::Copy), 8},
        {"Clone", SlotInFirstTable<Runner, Runner*>(&Runner::Clone), 9},
        {"CreateTask(runner)", SlotInFirstTable(static_cast<CreateWithRunner>(&ITnRobotTaskPool::CreateTask)), 4},
        {"CreateTask(job)", SlotInFirstTable(static_cast<CreateWithJob>(&ITnRobotTaskPool::CreateTask)), 5},
        {"GetTaskCount", SlotInFirstTable<ITnRobotTaskPool, unsigned int>(&ITnRobotTaskPool::GetTaskCount), 6},
    });
}

// Not counted: its own operations follow the destructor.
TEST(ConcurrencySlotNumber, TaskParent) {
    using Parent = ITnRobotTaskParent;
    EXPECT_EQ(sizeof(Parent), sizeof(void*));
    Check({
        {"RecoveryTask", SlotInFirstTable<Parent, void, ITnRobotTask*>(&Parent::RecoveryTask), 2},
        {"OnNotifyStop", SlotInFirstTable<Parent, void, ITnRobotTask*>(&Parent::OnNotifyStop), 3},
    });
}
