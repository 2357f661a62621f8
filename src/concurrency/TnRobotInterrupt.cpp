#include "concurrency/TnRobotInterrupt.h"

void CTnRobotInterrupt::Interrupt() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bInterrupted = true;
    m_changed.notify_one();
}

void CTnRobotInterrupt::Wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_bInterrupted; });
    m_bInterrupted = false;
}
