#include "Progress.h"

#include <chrono>

Progress::Progress(std::size_t nJobs, unsigned int nLimitMs) : m_nLeft(nJobs) {
    m_clock->StartRecord(nLimitMs);
}

bool Progress::IsWithinLimit() {
    bool bStopped = false;
    return !m_clock->IsTimeOut(bStopped) && !bStopped;
}

void Progress::FinishOne() {
    if (m_nLeft.fetch_sub(1) == 1) {
        m_allDone->SetEvent();
    }
}

// A wait may answer false before its time is up, so it is repeated with the time that is left.
bool Progress::Wait(unsigned int nTimeOutMs) {
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + milliseconds(nTimeOutMs);
    auto left = milliseconds(nTimeOutMs);
    while (!m_allDone->WaitEvent(static_cast<unsigned int>(left.count()))) {
        left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
    }
    m_clock->StopRecord();
    return true;
}
