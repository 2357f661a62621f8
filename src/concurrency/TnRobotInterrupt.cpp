// A flag under a mutex: Interrupt sets it, one Wait takes it.

#include "concurrency/TnRobotInterrupt.h"

void CTnRobotInterrupt::Interrupt() {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    m_bInterrupted = true;
    m_changed.NotifyOne();
}

void CTnRobotInterrupt::Wait() {
    std::unique_lock<tnrobot::Mutex> lock(m_mutex);
    while (!m_bInterrupted) {
        m_changed.Wait(lock);
    }
    m_bInterrupted = false;
}
