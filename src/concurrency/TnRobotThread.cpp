// Callers set an event and wait until the worker has answered through m_state; the worker's loop is at
// the end of the file. What is special everywhere is the job that calls its own thread object.

#include "concurrency/TnRobotThread.h"

#include <utility>

#include "checked/TnChecked.h"
#include "concurrency/TnPolling.h"
#include "concurrency/TnRobotManualEvent.h"
#include "core/TnCounting.h"
#include "core/TnCreateInstance.h"

namespace {

constexpr unsigned int kPollMs = 1;

// The object whose worker the current thread is.
thread_local const CTnRobotThread* t_pWorkerOf = nullptr;

}  // namespace

ITnRobotThread::~ITnRobotThread() = default;

int CTnRobotThread::CreateInstance(ITnRobotThread** ppThread) {
    return tnrobot::FinishInstance(new CTnRobotThread, ppThread, &CTnRobotThread::_Init);
}

CTnRobotThread::CTnRobotThread() : m_job(std::make_shared<const Job>()) {}

bool CTnRobotThread::_Init() {
    CTnRobotManualEvent::CreateInstance(false, m_pStopEvent.put());
    CTnRobotManualEvent::CreateInstance(false, m_pExitEvent.put());
    return true;
}

// A worker that destroys its own object cannot join itself: others do, and know of it before the job goes. Another
// object may come to lie where this one lay while the worker ends.
CTnRobotThread::~CTnRobotThread() {
    if (_OnWorkerThread()) {
        tnrobot::Worker::Leave(std::move(m_pWorker), [this] { m_job.reset(); });
        t_pWorkerOf = nullptr;
    }
}

// The last reference counts until the worker has ended, so that a job may add and release references
// to its own object meanwhile. The worker, which cannot wait for itself, destroys the object when the
// job has returned. The stop event is left as it is, which callers rely on: a job that waits for it
// ends only by a Stop that comes first.
int CTnRobotThread::Release() {
    int nBefore = 0;
    if (tnrobot::ChangeCountIf(m_nRefCount, -1, nBefore, [](int nCount) { return nCount != 1; })) {
        return tnrobot::FollowFall(this, nBefore);
    }
    if (_OnWorkerThread()) {
        m_bDestroy = true;
        m_pExitEvent->SetEvent();
        return 0;
    }
    if (m_pWorker && m_pWorker->IsHere()) {
        m_pExitEvent->SetEvent();
        _PollState(THREAD_EXITED);
    }
    return _Drop();
}

int CTnRobotThread::_Drop() {
    return tnrobot::FollowFall(this, tnrobot::LowerCount(m_nRefCount));
}

// The worker keeps the job that it is calling alive, so a job may be replaced while it runs, even
// by itself. The old job is destroyed outside the lock: it may hold anything.
bool CTnRobotThread::SetWorkJob(const std::function<void(ITnRobotEvent*)>& job) {
    auto newJob = std::make_shared<const Job>(job);
    std::lock_guard<tnrobot::Mutex> lock(m_jobMutex);
    m_job.swap(newJob);
    return true;
}

std::shared_ptr<const CTnRobotThread::Job> CTnRobotThread::_Job() {
    std::lock_guard<tnrobot::Mutex> lock(m_jobMutex);
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
    std::unique_lock<tnrobot::Mutex> lock(m_controlMutex);
    if (!m_pWorker) {
        m_pWorker = std::make_unique<tnrobot::Worker>([this] { _OnThreadWorkLoop(); });
    }
    // A job that pauses itself may be paused again before this thread looks: a pass counts that began since, and
    // one that went on just before the event is reset.
    const unsigned long long nBegins = m_nBegins.load();
    const bool bRunning = m_state.load() == THREAD_RUNNING;
    m_pStopEvent->ResetEvent();
    if (!_AwaitAnswer([&] { return bRunning || m_state.load() == THREAD_RUNNING || m_nBegins.load() != nBegins; })) {
        lock.unlock();
        _PollState(THREAD_RUNNING);
    }
    return true;
}

void CTnRobotThread::Stop() {
    if (_OnWorkerThread()) {
        m_pStopEvent->SetEvent();
        _PollState(THREAD_PAUSED);
        return;
    }
    std::unique_lock<tnrobot::Mutex> lock(m_controlMutex);
    m_pStopEvent->SetEvent();
    // In every step: a job might reset its event.
    const bool bAnswered = _AwaitAnswer([this] {
        m_pStopEvent->SetEvent();
        return m_state.load() == THREAD_PAUSED;
    });
    if (!bAnswered) {
        lock.unlock();
        _PollState(THREAD_PAUSED);
    }
}

// Comes after a pause that is under way, whose answer an exit would swallow. The wait itself keeps
// nobody out: a job that waits for its event can still be released by a Stop. The exit code is
// ignored on purpose: nobody could ask for it.
void CTnRobotThread::Exit(unsigned int /*nExitCode*/) {
    {
        std::lock_guard<tnrobot::Mutex> lock(m_controlMutex);
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

// Waits for the worker's answer; the caller holds the lock. @return false where no worker can give it:
// the wait then goes on for ever, as callers know it, but without the lock, so it keeps nobody out.
template <typename Answer>
bool CTnRobotThread::_AwaitAnswer(Answer answer) const {
    bool bAnswered = false;
    if (m_pWorker) {
        tnrobot::PollUntil([&] {
            const bool bExited = m_state.load() == THREAD_EXITED;
            bAnswered = answer();
            return bAnswered || bExited;
        });
    }
    return bAnswered;
}

void CTnRobotThread::_PollState(ThreadState eState) const {
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
            m_nBegins.fetch_add(1);
        }
        (*_Job())(m_pStopEvent.get());
        bRunning = true;
    }
    const bool bDestroy = m_bDestroy;
    m_state.store(THREAD_EXITED);
    if (bDestroy) {
        _Drop();
    }
}

int TnCreateRobotThread(ITnRobotThread** ppThread) {
    return CTnRobotThread::CreateInstance(ppThread);
}
