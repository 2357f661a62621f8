// A task from its first Start to its return. In this order: giving references up, what the worker does
// about references that were left to it, the pool's side, starting and stopping, and the worker's own
// loop. Read the class comment first: who waits for whom is decided there.

#include "concurrency/TnRobotTask.h"

#include <new>
#include <utility>

#include "checked/TnChecked.h"
#include "concurrency/TnPolling.h"
#include "concurrency/TnRobotManualEvent.h"
#include "core/TnCounting.h"
#include "core/TnCreateInstance.h"

ITnRobotTask::~ITnRobotTask() = default;
ITnRobotTaskParent::~ITnRobotTaskParent() = default;

int CTnRobotTask::CreateInstance(ITnRobotTaskParent* pParent, CTnRobotTask** ppTask) {
    return tnrobot::FinishInstance(new CTnRobotTask, ppTask, &CTnRobotTask::_Init, pParent);
}

bool CTnRobotTask::_Init(ITnRobotTaskParent* pParent) {
    CTnRobotManualEvent::CreateInstance(false, m_pRunEvent.put());
    m_pParent.store(pParent);
    return m_pRunEvent && pParent != nullptr;
}

// The worker destroys a task whose last reference was left to it. It cannot join itself: others do, and know
// of it before the runner goes.
CTnRobotTask::~CTnRobotTask() {
    if (!m_pWorker || !m_pWorker->IsHere()) {
        return;
    }
    Stop();
    m_bExit.store(1);
    if (_OnWorkerThread()) {
        tnrobot::Worker::Leave(std::move(m_pWorker), [this] { m_pRunner.reset(); });
    }
    m_pWorker.reset();
}

// Every reference but the last holder's goes by an exchange, after which nothing of the task is
// touched: somebody else may destroy it.
int CTnRobotTask::Release() {
    if (IsInherited()) {
        return _ReleaseInherited();
    }
    int nReferences = 0;
    const bool bDropped = _DropUnlessLast(nReferences);
    tnrobot::CheckRelease(this, nReferences);
    if (bDropped) {
        return nReferences - 1;
    }
    if (!_OnWorkerThread()) {
        return _StopAndGiveBack();
    }
    return _LeaveToWorker() ? nReferences - 1 : Release();
}

// The count first: a pool that goes forgets the task before it gives its own reference back, so a
// count of 2 that was read before means the same or more afterwards. @param[out] nReferences  the
// count before the drop, or the last holder's.
bool CTnRobotTask::_DropUnlessLast(int& nReferences) {
    return tnrobot::ChangeCountIf(m_nRefCount, -1, nReferences, [this](int nCount) { return !_IsLastHolder(nCount); });
}

bool CTnRobotTask::_IsLastHolder(int nReferences) const {
    return nReferences == 1 || (nReferences == 2 && m_pParent.load() != nullptr);
}

// The reference counts until the worker has left the runner, and no run begins before it is gone.
int CTnRobotTask::_StopAndGiveBack() {
    m_bGoing.store(true);
    std::unique_lock<tnrobot::Mutex> control(m_controlMutex);
    _StopLocked();
    return _GiveUp(std::move(control), 0);
}

// The caller is the worker, inside the runner, or holds m_controlMutex. @return false, with nothing
// changed, when somebody else has come to hold the task.
bool CTnRobotTask::_LeaveToWorker() {
    {
        std::lock_guard<tnrobot::Mutex> lock(m_parentMutex);
        if (!_IsLastHolder(tnrobot::ReadCount(m_nRefCount))) {
            return false;
        }
        m_nLeft.fetch_add(1);
    }
    m_pRunEvent->ResetEvent();
    return true;
}

// Who has come to hold the task since ends its runs from then on, so what was left must not count: it
// would hide that he is the last. With nobody there the run is asked to end in every turn: its job might
// set the event again.
void CTnRobotTask::_MindLeft() {
    if (!_DropLeftIfHeld()) {
        m_pRunEvent->ResetEvent();
    }
}

// @return false, with nothing changed, when nobody holds the task.
bool CTnRobotTask::_DropLeftIfHeld() {
    std::lock_guard<tnrobot::Mutex> lock(m_parentMutex);
    const int nLeft = m_nLeft.load();
    const int nUnheld = nLeft + (m_pParent.load() != nullptr ? 1 : 0);
    int nReferences = 0;
    const bool bHeld =
        tnrobot::ChangeCountIf(m_nRefCount, -nLeft, nReferences, [nUnheld](int nCount) { return nCount > nUnheld; });
    if (bHeld) {
        m_nLeft.store(0);
    }
    return bHeld;
}

// For the worker outside of a run. A lock that is taken is asked for again in the next turn: whoever
// has it may wait for the worker. @return whether the task is destroyed.
bool CTnRobotTask::_TakeBackLeft() {
    std::unique_lock<tnrobot::Mutex> control(m_controlMutex, std::try_to_lock);
    return control.owns_lock() && _GiveUp(std::move(control), 1) == 0;
}

// Gives up one reference to a stopped task, which m_controlMutex keeps stopped. A pool that goes
// meanwhile has either forgotten the task before, or waits for it to come back.
// @param[in] nLeft  1 when the reference is one that was left to the worker, otherwise 0.
// @return references left; with 0 the task is destroyed.
int CTnRobotTask::_GiveUp(std::unique_lock<tnrobot::Mutex> control, int nLeft) {
    ITnRobotTaskParent* pParent = nullptr;
    int nBefore = 0;
    {
        std::lock_guard<tnrobot::Mutex> lock(m_parentMutex);
        m_bGoing.store(false);
        m_nLeft.fetch_sub(nLeft);
        nBefore = tnrobot::LowerCount(m_nRefCount);
        pParent = m_pParent.load();
    }
    control.unlock();
    return _FollowFall(nBefore, pParent);
}

int CTnRobotTask::_FollowFall(int nBefore, ITnRobotTaskParent* pParent) {
    return tnrobot::FollowFall(this, nBefore, pParent,
                               [this](ITnRobotTaskParent& parent) { parent.RecoveryTask(this); });
}

void CTnRobotTask::ReleaseWithoutWaiting() {
    int nReferences = 0;
    while (!_DropUnlessLast(nReferences)) {
        std::unique_lock<tnrobot::Mutex> control(m_controlMutex, std::try_to_lock);
        if (!control.owns_lock()) {
            tnrobot::PollSleep();
        } else if (!IsInRunner()) {
            _GiveUp(std::move(control), 0);
            return;
        } else if (_LeaveToWorker()) {
            return;
        }
    }
}

bool CTnRobotTask::IsInherited() const {
    return !m_home.IsHere();
}

// There is nobody to stop, and a lock may have been lost with the thread that held it.
int CTnRobotTask::_ReleaseInherited() {
    ITnRobotTaskParent* pParent = m_pParent.load();
    return _FollowFall(tnrobot::LowerCount(m_nRefCount), pParent);
}

void CTnRobotTask::SettleHere() {
    TnRobotPtr<ITnRobotEvent> event;
    CTnRobotManualEvent::CreateInstance(false, event.put());
    m_pRunEvent = std::move(event);
    tnrobot::Forget(m_controlMutex);
    tnrobot::Forget(m_parentMutex);
    m_pWorker.reset();
    m_workerThread.store({});
    m_state.store(TASK_NOT_STARTED);
    m_nLeft.store(0);
    m_bGoing.store(false);
    m_home.Settle();
}

bool CTnRobotTask::AddRefWhileHeld() {
    int nBefore = 0;
    return tnrobot::ChangeCountIf(m_nRefCount, 1, nBefore,
                                  [this](int nCount) { return nCount > 1 && !m_bGoing.load(); });
}

// A last holder that waits for the job to return, and references that were left to the worker, hold
// nothing: their task comes back by itself.
bool CTnRobotTask::Abandon() {
    {
        const std::unique_lock<tnrobot::Mutex> lock = _LockParent();
        if (m_bGoing.load() || tnrobot::ReadCount(m_nRefCount) - 1 == m_nLeft.load()) {
            return false;
        }
        m_pParent.store(nullptr);
    }
    Release();
    return true;
}

void CTnRobotTask::FreeParent() {
    const std::unique_lock<tnrobot::Mutex> lock = _LockParent();
    m_pParent.store(nullptr);
}

// In a child the lock may be lost; the threads that it keeps apart are not there either.
std::unique_lock<tnrobot::Mutex> CTnRobotTask::_LockParent() {
    return IsInherited() ? std::unique_lock<tnrobot::Mutex>() : std::unique_lock<tnrobot::Mutex>(m_parentMutex);
}

// The new reference comes first: it may be the runner that is bound already.
bool CTnRobotTask::BindRunner(ITnRobotTaskRunner* pRunner) {
    m_pRunner = tn::Retain(pRunner);
    return pRunner != nullptr;
}

// The job of a task that is being stopped cannot wait for the stop to be over, since the stop
// waits for the job: it is told that nothing was started. So is who has inherited a task: its worker
// is not here. Everybody else lets a run whose event is reset come to its end first, whoever reset it.
bool CTnRobotTask::Start() {
    tnrobot::CheckUsed(this, m_nRefCount);
    if (IsInherited() && m_pWorker) {
        return false;
    }
    if (IsRunning()) {
        return true;
    }
    if (!m_pRunner || _OnWorkerThread()) {
        return false;
    }
    std::lock_guard<tnrobot::Mutex> lock(m_controlMutex);
    // One look at the event decides: its job may reset it before a second one, and the run that began then
    // would be taken for the one that the worker is in.
    bool bRuns = false;
    tnrobot::PollUntil([this, &bRuns] {
        bRuns = IsRunning();
        return bRuns || !IsInRunner();
    });
    if (!bRuns) {
        if (!m_pWorker) {
            _StartWorker();
        }
        _BeginRun();
    }
    return true;
}

// The task may be inherited. The worker must find it settled from the beginning.
void CTnRobotTask::_StartWorker() {
    m_home.Settle();
    m_state.store(TASK_STOPPED);
    try {
        m_pWorker = std::make_unique<tnrobot::Worker>([this] { _OnTaskWork(); });
    } catch (...) {
        m_state.store(TASK_NOT_STARTED);
        throw;
    }
}

// The number is waited for, not the state: a run that its own job ends may be over before this
// thread looks again.
void CTnRobotTask::_BeginRun() {
    const unsigned long long nRun = m_nRun.fetch_add(1) + 1;
    m_pRunEvent->SetEvent();
    tnrobot::PollUntil([this, nRun] { return m_nBegun.load() == nRun; });
}

// The job must not wait for itself: it asks, and its run ends when it has returned.
void CTnRobotTask::Stop() {
    if (IsInherited()) {
        return;
    }
    if (_OnWorkerThread()) {
        m_pRunEvent->ResetEvent();
        return;
    }
    std::lock_guard<tnrobot::Mutex> lock(m_controlMutex);
    _StopLocked();
}

// The number and the event are looked at before the lock is asked for: whoever has that and waits
// with it is ending this very run, has ended it, or begins a later one. It may be taken for moments
// while the run goes on, by a Start that finds it running.
void CTnRobotTask::StopRun(unsigned long long nRun) {
    while (m_nRun.load() == nRun && IsRunning()) {
        std::unique_lock<tnrobot::Mutex> lock(m_controlMutex, std::try_to_lock);
        if (!lock.owns_lock()) {
            tnrobot::PollSleep();
        } else if (m_nRun.load() == nRun && IsRunning()) {
            _StopLocked();
        }
    }
}

// The event is looked at in every step: a job might set it again. Without a worker nothing runs; a task
// that could not be made whole has no event either.
void CTnRobotTask::_StopLocked() {
    if (!m_pWorker) {
        return;
    }
    tnrobot::PollUntil([this] {
        if (IsRunning()) {
            m_pRunEvent->ResetEvent();
        }
        return !IsInRunner();
    });
}

bool CTnRobotTask::IsRunning() {
    return m_pRunEvent->WaitEvent(0);
}

bool CTnRobotTask::_OnWorkerThread() const {
    return m_workerThread.load() == std::this_thread::get_id();
}

// Nothing may be thrown out of the worker. @return whether there is nothing left to tell; without
// memory for the notice there is.
bool CTnRobotTask::_NotifyParent() {
    std::lock_guard<tnrobot::Mutex> lock(m_parentMutex);
    try {
        if (ITnRobotTaskParent* pParent = m_pParent.load()) {
            pParent->OnNotifyStop(this);
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

// One turn per millisecond. A run is begun and ended by the run event alone: a runner that is done
// is asked again in every turn, and may go on, until the event is reset. The parent is told once
// for each series of executions, in a later turn when it has no memory now. Between the begin of a
// run and the first question to its runner the event is not looked at, so that every Start which
// has returned true executes.
void CTnRobotTask::_OnTaskWork() {
    m_workerThread.store(std::this_thread::get_id());
    bool bInited = false;
    bool bExecuted = false;
    while (m_bExit.load() == 0) {
        if (m_nLeft.load() != 0) {
            _MindLeft();
        }
        if (!IsRunning()) {
            if (bInited) {
                bInited = false;
                m_pRunner->ClearResource();
                m_state.store(TASK_STOPPED);  // from here on the runner may be replaced
            }
            if (m_nLeft.load() != 0 && _TakeBackLeft()) {
                return;
            }
        } else {
            if (!bInited) {
                bInited = true;
                m_state.store(TASK_RUNNING);
                m_pRunner->Init();
                m_nBegun.store(m_nRun.load());
            }
            if (!m_pRunner->IsStop()) {
                bExecuted = true;
                m_pRunner->Execute(m_pRunEvent.get());
            } else if (bExecuted) {
                bExecuted = !_NotifyParent();
            }
        }
        tnrobot::PollSleep();
    }
    m_state.store(TASK_NOT_STARTED);
}
