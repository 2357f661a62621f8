// The runner that task pools make for a plain function: it counts as done once the function was called.

#include "concurrency/TnRobotTaskRunner.h"

#include "checked/TnChecked.h"
#include "core/TnCreateInstance.h"

ITnRobotTaskRunner::~ITnRobotTaskRunner() = default;

int CTnRobotTaskRunner::CreateInstance(const std::function<void(ITnRobotEvent*)>& job, ITnRobotTaskRunner** ppRunner) {
    return tnrobot::FinishInstance(new CTnRobotTaskRunner, ppRunner, &CTnRobotTaskRunner::_Init, job);
}

bool CTnRobotTaskRunner::_Init(const std::function<void(ITnRobotEvent*)>& job) {
    if (!job) {
        return false;
    }
    m_job = job;
    return true;
}

void CTnRobotTaskRunner::Init() {
    m_bExecuted.store(false);
}

// Executed comes first: the run is over after this call, whatever the job does.
void CTnRobotTaskRunner::Execute(ITnRobotEvent* pRunEvent) {
    m_bExecuted.store(true);
    m_job(pRunEvent);
}

void CTnRobotTaskRunner::ClearResource() {}

bool CTnRobotTaskRunner::IsStop() {
    return m_bExecuted.load();
}

void CTnRobotTaskRunner::Copy(ITnRobotTaskRunner* /*pRunner*/) {}

ITnRobotTaskRunner* CTnRobotTaskRunner::Clone() {
    return tnrobot::Watch(new CTnRobotTaskRunner);
}
