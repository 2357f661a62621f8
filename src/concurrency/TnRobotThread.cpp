#include "concurrency/TnRobotThread.h"

#include <utility>

#include "concurrency/TnPolling.h"
#include "concurrency/TnRobotManualEvent.h"
#include "core/TnCreateInstance.h"

namespace {

constexpr unsigned int kPollMs = 1;

// The object whose worker the current thread is.
thread_local const CTnRobotThread* t_pWorkerOf = nullptr;

}  // namespace

ITnRobotThread::~ITnRobotThread() = default;

int CTnRobotThread::CreateInstance(ITnRobotThread** ppThread) {
    return tnrobot::FinishInstance(new CTnRobotThread, ppThread,
                                   [](CTnRobotThread& thread) { return thread._Init() != 0; });
}

CTnRobotThread::CTnRobotThread() : m_job(std::make_shared<const Job>()) {}

int CTnRobotThread::_Init() {
    CTnRobotManualEvent::CreateInstance(false, m_pStopEvent.Receive());
    CTnRobotManualEvent::CreateInstance(false, m_pExitEvent.Receive());
    return 1;
}

// The stop event is left as it is, which callers rely on: a job that waits for it ends only by a
// Stop that comes first.
CTnRobotThread::~CTnRobotThread() {
    if (m_pThread) {
        m_pExitEvent->SetEvent();
        _PollState(THREAD_EXITED);
        m_pThread->join();
    }
}

// The worker keeps the job that it is calling alive, so a job may be replaced while it runs, even
// by itself. The old job is destroyed outside the lock: it may hold anything.
bool CTnRobotThread::SetWorkJob(const std::function<void(ITnRobotEvent*)>& job) {
    auto newJob = std::make_shared<const Job>(job);
    std::lock_guard<std::mutex> lock(m_jobMutex);
    m_job.swap(newJob);
    return true;
}

std::shared_ptr<const CTnRobotThread::Job> CTnRobotThread::_Job() {
    std::lock_guard<std::mutex> lock(m_jobMutex);
    return m_job;
}

// Running already, with no pause under way, needs no answer from the worker. The job itself must
// not wait for one: it is running, and a pause that is pending stays so.
bool CTnRobotThread::Run() {
    if (!*_Job()) {
        return false;
    }
    if (_OnWorkerThread() || _IsRunning()) {
        return true;
    }
    std::unique_lock<std::mutex> lock(m_controlMutex);
    if (!m_pThread) {
        m_pThread = std::make_unique<std::thread>([this] { _OnThreadWorkLoop(); });
    }
    m_pStopEvent->ResetEvent();
    _AwaitAnswer(THREAD_RUNNING, std::move(lock));
    return true;
}

void CTnRobotThread::Stop() {
    if (_OnWorkerThread()) {
        m_pStopEvent->SetEvent();
        _PollState(THREAD_PAUSED);
        return;
    }
    std::unique_lock<std::mutex> lock(m_controlMutex);
    m_pStopEvent->SetEvent();
    _AwaitAnswer(THREAD_PAUSED, std::move(lock));
}

// Comes after a pause that is under way, whose answer an exit would swallow. The wait itself keeps
// nobody out: a job that waits for its event can still be released by a Stop. The exit code is
// ignored on purpose: nobody could ask for it.
void CTnRobotThread::Exit(unsigned int /*nExitCode*/) {
    {
        std::lock_guard<std::mutex> lock(m_controlMutex);
        m_pExitEvent->SetEvent();
    }
    _PollState(THREAD_EXITED);
}

bool CTnRobotThread::_OnWorkerThread() const {
    return t_pWorkerOf == this;
}

bool CTnRobotThread::_IsRunning() {
    return m_state.load() == THREAD_RUNNING && !m_pStopEvent->WaitEvent(0);
}

// Waits for the worker's answer with the lock held. Where no worker can give it, the wait goes on
// for ever, as callers know it, but keeps nobody else out.
void CTnRobotThread::_AwaitAnswer(ETnThreadState eState, std::unique_lock<std::mutex> lock) {
    int state = THREAD_CREATED;
    if (m_pThread) {
        tnrobot::PollUntil([&] {
            state = m_state.load();
            return state == eState || state == THREAD_EXITED;
        });
    }
    if (state == eState) {
        return;
    }
    lock.unlock();
    _PollState(eState);
}

void CTnRobotThread::_PollState(ETnThreadState eState) const {
    tnrobot::PollUntil([this, eState] { return m_state.load() == eState; });
}

// One turn per pass; the exit is looked for first and wins over a pause. The state says running
// before the first call of the job, which lets Run return while a long job goes on.
void CTnRobotThread::_OnThreadWorkLoop() {
    t_pWorkerOf = this;
    bool bRunning = false;
    while (!m_pExitEvent->WaitEvent(kPollMs)) {
        if (m_pStopEvent->WaitEvent(kPollMs)) {
            if (bRunning) {
                bRunning = false;
                m_state.store(THREAD_PAUSED);
            }
            continue;
        }
        if (!bRunning) {
            m_state.store(THREAD_RUNNING);
        }
        (*_Job())(m_pStopEvent.Get());
        bRunning = true;
    }
    m_state.store(THREAD_EXITED);
}

int TnCreateRobotThread(ITnRobotThread** ppThread) {
    return CTnRobotThread::CreateInstance(ppThread);
}
