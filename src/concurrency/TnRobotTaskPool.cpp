// Tasks are made, lent and taken back under m_mutex; notices of finished runs travel from the workers to
// the pool's thread in a queue of their own, and that thread stops the tasks.

#include "concurrency/TnRobotTaskPool.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "checked/TnChecked.h"
#include "concurrency/TnPolling.h"
#include "concurrency/TnRobotTaskRunner.h"
#include "core/TnCreateInstance.h"
#include "core/TnExactCast.h"

ITnRobotTaskPool::~ITnRobotTaskPool() = default;

int CTnRobotTaskPool::CreateInstance(ITnRobotTaskPool** ppPool) {
    if (ppPool == nullptr) {
        return 0;
    }
    return tnrobot::FinishInstance(new CTnRobotTaskPool, ppPool, &CTnRobotTaskPool::_Init);
}

bool CTnRobotTaskPool::_Init() {
    if (TnCreateRobotManualEvent(false, m_pExitEvent.put()) == 0) {
        return false;
    }
    m_pThread = std::make_unique<tnrobot::Worker>([this] { _OnThreadPoolWork(); });
    return true;
}

CTnRobotTaskPool::~CTnRobotTaskPool() {
    if (m_pThread && m_pThread->IsHere()) {
        m_pExitEvent->SetEvent();
    }
    m_pThread.reset();
    _DropNotices();
    _LetGoOfTasks();
}

// No notice is taken any more, and those that wait give their references back: a task whose last
// holder has gone returns here, one without other references would otherwise never end.
void CTnRobotTaskPool::_DropNotices() {
    std::unique_ptr<NotifyQueue> queue;
    {
        std::lock_guard<tnrobot::Mutex> lock(m_notifyMutex);
        m_bNoticesClosed = true;
        queue.reset(m_pNotifyQueue.exchange(nullptr));
    }
}

// Held tasks stay with their holders. The others are idle or just being given back; none is
// destroyed before the last has come back, since that looks at the whole list of idle ones. No
// lock is held while tasks go: their runners go with them.
void CTnRobotTaskPool::_LetGoOfTasks() {
    tnrobot::PollUntil([this] {
        const auto itEnd =
            std::remove_if(m_allTasks.begin(), m_allTasks.end(), [](CTnRobotTask* pTask) { return pTask->Abandon(); });
        m_allTasks.erase(itEnd, m_allTasks.end());
        return _AreAllIdle();
    });
    for (CTnRobotTask* pTask : m_allTasks) {
        pTask->FreeParent();
        pTask->Release();  // the pool's reference, the last one
    }
}

// Who was giving an inherited task back may not be here: nobody waits for that.
bool CTnRobotTaskPool::_AreAllIdle() {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    return std::all_of(m_allTasks.begin(), m_allTasks.end(),
                       [](const CTnRobotTask* pTask) { return pTask->IsIdle() || pTask->IsInherited(); });
}

bool CTnRobotTaskPool::CreateTask(ITnRobotTaskRunner* pRunner, ITnRobotTask** ppTask) {
    if (ppTask == nullptr) {
        return false;
    }
    *ppTask = nullptr;
    CTnRobotTask* pTask = _TakeTask();
    if (pTask == nullptr) {
        return false;
    }
    pTask->BindRunner(pRunner);
    pTask->AddRef();  // the caller's
    *ppTask = pTask;
    return true;
}

// Callers rely on the job not being run here, and on the task being idle again with the job still
// bound: do not "fix".
bool CTnRobotTaskPool::CreateTask(const std::function<void(ITnRobotEvent*)>& job) {
    TnRobotPtr<ITnRobotTaskRunner> runner;
    if (CTnRobotTaskRunner::CreateInstance(job, runner.put()) == 0) {
        return false;
    }
    TnRobotPtr<ITnRobotTask> task;
    return CreateTask(runner.get(), task.put());
}

CTnRobotTask* CTnRobotTaskPool::_TakeTask() {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    if (m_idleTasks.Empty()) {
        return _MakeTask();
    }
    CTnRobotTask* pTask = m_idleTasks.Front();
    if (pTask->IsInherited()) {
        pTask->SettleHere();
    }
    m_idleTasks.PopFront();
    pTask->SetIdle(false);
    tnrobot::NoteTaken(pTask);
    _SetIdleCount();
    return pTask;
}

// Both lists have grown before the task is kept, so a failed growth leaks nothing.
CTnRobotTask* CTnRobotTaskPool::_MakeTask() {
    m_idleTasks.Reserve(m_allTasks.size() + 1);
    TnRobotPtr<CTnRobotTask> task;
    if (CTnRobotTask::CreateInstance(this, task.put()) == 0) {
        return nullptr;
    }
    m_allTasks.push_back(task.get());
    return task.detach();
}

unsigned int CTnRobotTaskPool::GetTaskCount() {
    return m_nIdleTasks.load();
}

// No reference is taken: the pool's own is left. A closing pool may be gone as soon as the lock
// is released. A job that calls this for its own task has it stopped; idle the task becomes when its
// holder releases it.
void CTnRobotTaskPool::RecoveryTask(ITnRobotTask* pTask) {
    auto* pPooled = tnrobot::ExactCast<CTnRobotTask>(pTask);
    if (pPooled == nullptr) {
        return;
    }
    pPooled->Stop();
    if (pPooled->IsInRunner() && !pPooled->IsInherited()) {
        return;
    }
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    if (pPooled->IsIdle()) {
        return;
    }
    m_idleTasks.Reserve(m_idleTasks.Size() + 1);  // only a stranger's task finds no room
    m_idleTasks.PushBack(pPooled);
    pPooled->SetIdle(true);
    tnrobot::NoteFreed(pPooled, this);
    _SetIdleCount();
}

void CTnRobotTaskPool::_SetIdleCount() {
    m_nIdleTasks.store(static_cast<unsigned int>(m_idleTasks.Size()));
    tnrobot::IfChecked([this] { _CheckInvariants(); });
}

// The notification queue while a notice is added to it. It goes back whatever happens, since the
// notices of others wait in it. The caller holds m_notifyMutex.
class CTnRobotTaskPool::QueueLoan {
public:
    explicit QueueLoan(CTnRobotTaskPool& pool) : m_pool(pool), m_queue(pool.m_pNotifyQueue.exchange(nullptr)) {
        if (!m_queue) {
            m_queue = std::make_unique<NotifyQueue>();
        }
    }
    QueueLoan(const QueueLoan&) = delete;
    QueueLoan& operator=(const QueueLoan&) = delete;
    ~QueueLoan() {
        m_pool.m_pNotifyQueue.store(m_queue.release());
        m_pool.m_bHasNotify.store(true);
    }
    NotifyQueue* operator->() const { return m_queue.get(); }

private:
    CTnRobotTaskPool& m_pool;
    std::unique_ptr<NotifyQueue> m_queue;
};

// A task that only the pool holds is being given back by its last holder, which stops it: that
// needs no notice, and a reference from here would have it given back twice. The notice has its
// place before it has its reference, because none can be given back from here: that might give the
// task back, and wait for the thread that this is.
void CTnRobotTaskPool::OnNotifyStop(ITnRobotTask* pTask) {
    if (pTask == nullptr) {
        return;
    }
    std::lock_guard<tnrobot::Mutex> lock(m_notifyMutex);
    if (m_bNoticesClosed) {
        return;
    }
    const QueueLoan queue(*this);
    StopNotice& notice = queue->emplace_back();
    auto* pPooled = tnrobot::ExactCast<CTnRobotTask>(pTask);
    if (pPooled == nullptr) {
        notice.m_task = tn::Retain(pTask);
    } else if (pPooled->AddRefWhileHeld()) {
        notice = {tn::Adopt(pPooled), pPooled->GetRunNumber()};
    } else {
        queue->pop_back();
    }
}

// The task-list mutex is only tried: while somebody works on the lists, the notices can wait for a
// turn.
std::unique_ptr<CTnRobotTaskPool::NotifyQueue> CTnRobotTaskPool::_TakeNotices() {
    if (!m_bHasNotify.load()) {
        return nullptr;
    }
    std::unique_lock<tnrobot::Mutex> lock(m_mutex, std::try_to_lock);
    if (!lock.owns_lock()) {
        return nullptr;
    }
    m_bHasNotify.store(false);
    return std::unique_ptr<NotifyQueue>(m_pNotifyQueue.exchange(nullptr));
}

// The run that a notice is about may be over long since, and its reference the last one to a task
// that runs again: then the worker gives the task back, because others wait to be stopped here.
void CTnRobotTaskPool::_Obey(StopNotice notice) {
    if (auto* pPooled = tnrobot::ExactCast<CTnRobotTask>(notice.m_task.get())) {
        pPooled->StopRun(notice.m_nRun);
        static_cast<void>(notice.m_task.detach());
        pPooled->ReleaseWithoutWaiting();
    } else if (notice.m_task->IsRunning()) {
        notice.m_task->Stop();
    }
}

void CTnRobotTaskPool::_OnThreadPoolWork() {
    std::unique_ptr<NotifyQueue> notices;
    while (!m_pExitEvent->WaitEvent(0)) {
        if (!notices || notices->empty()) {
            notices = _TakeNotices();
            tnrobot::PollSleep();
            continue;
        }
        StopNotice notice = std::move(notices->front());
        notices->pop_front();
        _Obey(std::move(notice));
    }
}

void CTnRobotTaskPool::_CheckInvariants() const {
    tnrobot::CheckInvariant(*this, m_nIdleTasks.load() == m_idleTasks.Size(), "counts its idle tasks wrongly");
    for (std::size_t i = 0; i < m_idleTasks.Size(); ++i) {
        tnrobot::CheckInvariant(*this, m_idleTasks.At(i)->IsIdle(), "has a task in use among the idle ones");
    }
}

int TnCreateRobotTaskPool(ITnRobotTaskPool** ppPool) {
    return CTnRobotTaskPool::CreateInstance(ppPool);
}
