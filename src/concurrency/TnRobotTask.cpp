#include "concurrency/TnRobotTask.h"

#include <new>

#include "concurrency/TnPolling.h"
#include "concurrency/TnRobotManualEvent.h"
#include "core/TnChecked.h"
#include "core/TnCreateInstance.h"

namespace {

// The task whose worker the current thread is.
thread_local const CTnRobotTask* t_pWorkerOf = nullptr;

}  // namespace

ITnRobotTask::~ITnRobotTask() = default;
ITnRobotTaskParent::~ITnRobotTaskParent() = default;

int CTnRobotTask::CreateInstance(ITnRobotTaskParent* pParent, CTnRobotTask** ppTask) {
    return tnrobot::FinishInstance(new CTnRobotTask, ppTask,
                                   [pParent](CTnRobotTask& task) { return task._Init(pParent) != 0; });
}

int CTnRobotTask::_Init(ITnRobotTaskParent* pParent) {
    CTnRobotManualEvent::CreateInstance(false, m_pRunEvent.Receive());
    m_pParent.store(pParent);
    return m_pRunEvent && pParent != nullptr ? 1 : 0;
}

CTnRobotTask::~CTnRobotTask() {
    if (m_pThread) {
        Stop();
        m_bExit.store(1);
        m_pThread->join();
    }
}

// The pool may be destroyed while another thread releases its task, so neither the task nor the
// parent may be touched after the decrement, unless this release is the one that gives the task
// back: then the pool waits for it. The count is read before the parent: if the pool lets the task
// go in between, the count has changed, the exchange fails and both are read again. (It cannot
// have changed back: the pool takes no notices any more by then, and nobody else adds a reference
// to a task whose only holder is releasing it.)
int CTnRobotTask::Release() {
    int nBefore = m_nRefCount.load();
    ITnRobotTaskParent* pParent = nullptr;
    do {
        pParent = m_pParent.load();
    } while (!m_nRefCount.compare_exchange_weak(nBefore, nBefore - 1));
    if (nBefore == 2 && pParent != nullptr) {
        pParent->RecoveryTask(this);
    } else if (nBefore <= 1) {
        tnrobot::CheckRelease(this, nBefore);
        if (nBefore == 1) {
            tnrobot::Destroy(this);
        }
    }
    return nBefore - 1;
}

bool CTnRobotTask::AddRefWhileHeld() {
    int nBefore = m_nRefCount.load();
    while (nBefore > 1) {
        if (m_nRefCount.compare_exchange_weak(nBefore, nBefore + 1)) {
            return true;
        }
    }
    return false;
}

// The extra reference keeps every holder from taking the count from 2 to 1 while the parent is
// being forgotten; it goes together with the pool's, so that no count in between can be mistaken
// for the one before. A count of 1 at the start means that the task is idle or on its way back,
// with the parent still set.
bool CTnRobotTask::Abandon() {
    if (m_nRefCount.fetch_add(1) == 1) {
        m_nRefCount.fetch_sub(1);
        return false;
    }
    FreeParent();
    if (m_nRefCount.fetch_sub(2) == 2) {
        tnrobot::Destroy(this);
    }
    return true;
}

void CTnRobotTask::FreeParent() {
    std::lock_guard<std::mutex> lock(m_parentMutex);
    m_pParent.store(nullptr);
}

// The new reference comes first: it may be the runner that is bound already.
bool CTnRobotTask::BindRunner(ITnRobotTaskRunner* pRunner) {
    m_pRunner = tnrobot::Ref<ITnRobotTaskRunner>::Share(pRunner);
    return pRunner != nullptr;
}

// The job of a task that is being stopped cannot wait for the stop to be over, since the stop
// waits for the job: it is told that nothing was started.
bool CTnRobotTask::Start() {
    tnrobot::CheckInUse(this, m_nRefCount);
    if (IsRunning()) {
        return true;
    }
    if (!m_pRunner || _OnWorkerThread()) {
        return false;
    }
    std::lock_guard<std::mutex> lock(m_controlMutex);
    if (IsRunning()) {
        return true;
    }
    if (!m_pThread) {
        _StartWorker();
    }
    m_nRun.fetch_add(1);
    m_pRunEvent->SetEvent();
    tnrobot::PollUntil([this] { return m_state.load() == TASK_RUNNING; });
    return true;
}

void CTnRobotTask::_StartWorker() {
    m_state.store(TASK_STOPPED);
    try {
        m_pThread = std::make_unique<std::thread>([this] { _OnTaskWork(); });
    } catch (...) {
        m_state.store(TASK_NOT_STARTED);
        throw;
    }
}

// The job of a task that is being stopped has nothing left to ask for, and must not wait for the
// one that waits for it.
void CTnRobotTask::Stop() {
    if (_OnWorkerThread() && !IsRunning()) {
        return;
    }
    std::lock_guard<std::mutex> lock(m_controlMutex);
    _StopLocked();
}

void CTnRobotTask::StopRun(unsigned long long nRun) {
    std::lock_guard<std::mutex> lock(m_controlMutex);
    if (m_nRun.load() == nRun) {
        _StopLocked();
    }
}

void CTnRobotTask::_StopLocked() {
    if (IsRunning()) {
        m_pRunEvent->ResetEvent();
        tnrobot::PollUntil([this] { return m_state.load() == TASK_STOPPED; });
    }
}

bool CTnRobotTask::IsRunning() {
    return m_pRunEvent->WaitEvent(0);
}

bool CTnRobotTask::_OnWorkerThread() const {
    return t_pWorkerOf == this;
}

// Nothing may be thrown out of the worker. @return whether there is nothing left to tell; without
// memory for the notice there is.
bool CTnRobotTask::_NotifyParent() {
    std::lock_guard<std::mutex> lock(m_parentMutex);
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
    t_pWorkerOf = this;
    bool bInited = false;
    bool bExecuted = false;
    while (m_bExit.load() == 0) {
        if (!IsRunning()) {
            if (bInited) {
                bInited = false;
                m_pRunner->ClearResource();
                m_state.store(TASK_STOPPED);  // from here on the runner may be replaced
            }
        } else {
            if (!bInited) {
                bInited = true;
                m_pRunner->Init();
                m_state.store(TASK_RUNNING);
            }
            if (!m_pRunner->IsStop()) {
                bExecuted = true;
                m_pRunner->Execute(m_pRunEvent.Get());
            } else if (bExecuted) {
                bExecuted = !_NotifyParent();
            }
        }
        tnrobot::PollSleep();
    }
    m_state.store(TASK_NOT_STARTED);
}
