// A flag under a mutex, and a condition variable that tells of its setting.

#include "concurrency/TnRobotManualEvent.h"

#include "core/TnCreateInstance.h"

ITnRobotEvent::~ITnRobotEvent() = default;

int CTnRobotManualEvent::CreateInstance(bool bSignalled, ITnRobotEvent** ppEvent) {
    return tnrobot::FinishInstance(new CTnRobotManualEvent, ppEvent, &CTnRobotManualEvent::_Init, bSignalled);
}

bool CTnRobotManualEvent::_Init(bool bSignalled) {
    m_bSignalled = bSignalled;
    return true;
}

void CTnRobotManualEvent::SetEvent() {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    m_bSignalled = true;
    m_changed.NotifyAll();
}

void CTnRobotManualEvent::ResetEvent() {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    m_bSignalled = false;
}

// A time-out of 0 has passed already, so the wait is left out: polls are what workers do most.
bool CTnRobotManualEvent::WaitEvent(unsigned int nMs) {
    std::unique_lock<tnrobot::Mutex> lock(m_mutex);
    if (!m_bSignalled && nMs != 0) {
        m_changed.WaitOnce(lock, nMs);
    }
    return m_bSignalled;
}

int TnCreateRobotManualEvent(bool bSignalled, ITnRobotEvent** ppEvent) {
    return CTnRobotManualEvent::CreateInstance(bSignalled, ppEvent);
}
