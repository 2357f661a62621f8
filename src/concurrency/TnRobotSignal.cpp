// A latch: whoever comes first, Signal or CanCel, decides its state until it is armed again.

#include "concurrency/TnRobotSignal.h"

#include "core/TnCreateInstance.h"

ITnRobotSignal::~ITnRobotSignal() = default;

int CTnRobotSignal::CreateInstance(ITnRobotSignal** ppSignal) {
    return tnrobot::FinishInstance(new CTnRobotSignal, ppSignal, &CTnRobotSignal::_Init);
}

bool CTnRobotSignal::_Init() {
    return true;
}

void CTnRobotSignal::Signal() {
    _Leave(kSignalled);
}

void CTnRobotSignal::CanCel() {
    _Leave(kCancelled);
}

// Leaves the armed state, unless somebody was first.
void CTnRobotSignal::_Leave(unsigned int nState) {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    if (m_nState == kArmed) {
        m_nState = nState;
        m_changed.NotifyAll();
    }
}

// Callers rely on a signalled signal staying so after Reset: do not "fix".
void CTnRobotSignal::Reset() {}

unsigned int CTnRobotSignal::Wait(unsigned int nMs) {
    std::unique_lock<tnrobot::Mutex> lock(m_mutex);
    if (m_nState == kArmed && nMs != 0) {
        m_changed.WaitOnce(lock, nMs);
    }
    return m_nState;
}

void CTnRobotSignal::ClearResource() {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    m_nState = kArmed;
}

int TnCreateRobotSignal(ITnRobotSignal** ppSignal) {
    return CTnRobotSignal::CreateInstance(ppSignal);
}
