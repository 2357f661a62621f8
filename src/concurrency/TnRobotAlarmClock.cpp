// The clock is a start time, a limit and an event that is set while it stands; a wait asks both once a
// millisecond.

#include "concurrency/TnRobotAlarmClock.h"

#include <chrono>

#include "concurrency/TnRobotManualEvent.h"
#include "core/TnCreateInstance.h"

namespace {

constexpr unsigned int kPollMs = 1;
constexpr double kNanosecondsPerMs = 1000000.0;

long long WallClockNow() {
    using std::chrono::system_clock;
    return std::chrono::duration_cast<std::chrono::nanoseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

ITnRobotAlarmClock::~ITnRobotAlarmClock() = default;

int CTnRobotAlarmClock::CreateInstance(ITnRobotAlarmClock** ppClock) {
    return tnrobot::FinishInstance(new CTnRobotAlarmClock, ppClock, &CTnRobotAlarmClock::_Init);
}

bool CTnRobotAlarmClock::_Init() {
    return CTnRobotManualEvent::CreateInstance(true, m_pStopEvent.put()) != 0;
}

// The event comes last: a thread that sees the clock running finds the times of this start.
void CTnRobotAlarmClock::StartRecord(unsigned int nMs) {
    {
        std::lock_guard<tnrobot::Mutex> lock(m_mutex);
        m_timeOutMs = nMs;
        m_startTime = WallClockNow();
    }
    m_pStopEvent->ResetEvent();
}

void CTnRobotAlarmClock::ReStartRecord() {
    if (m_pStopEvent->WaitEvent(0)) {
        return;
    }
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    m_startTime = WallClockNow();
}

void CTnRobotAlarmClock::StopRecord() {
    if (!m_pStopEvent->WaitEvent(0)) {
        m_pStopEvent->SetEvent();
    }
}

bool CTnRobotAlarmClock::IsTimeOut(bool& bStopped) {
    bStopped = m_pStopEvent->WaitEvent(0);
    return !bStopped && _IsTimeOut();
}

// The stop comes first in every turn, so that a clock which is stopped just as its limit passes
// counts as stopped.
bool CTnRobotAlarmClock::Wait() {
    while (!m_pStopEvent->WaitEvent(kPollMs)) {
        if (_IsTimeOut()) {
            return false;
        }
    }
    return true;
}

// Fractions of a millisecond count and the comparison is strict: with a limit of 0 any time at
// all is too much.
bool CTnRobotAlarmClock::_IsTimeOut() {
    const long long nNow = WallClockNow();
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    const double dElapsedMs = static_cast<double>(nNow - m_startTime) / kNanosecondsPerMs;
    return dElapsedMs > static_cast<double>(m_timeOutMs);
}

int TnCreateRobotAlarmClock(ITnRobotAlarmClock** ppClock) {
    return CTnRobotAlarmClock::CreateInstance(ppClock);
}
