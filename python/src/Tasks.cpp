// Python functions on the tasks of a pool. What a job's caller sees of it, its result and its exception, is in the
// package's Python code; here it is only called.

#include "Tasks.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "Errors.h"
#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/run.h"

namespace tnrobot::python {

namespace {

// Whether this thread is in a job: there the end of a pool would wait for itself.
thread_local bool t_bInJob = false;

// A pool and the jobs that it was given. The end of a job's handle waits for the job, so handles of jobs that are
// not over are never let go of.
//
// Threads: used with the interpreter's lock only, which a fork by Python holds too.
class Pool final {
public:
    Pool() : m_pool(tn::MakeTaskPool()) {}
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() = default;

    ITnRobotTaskPool& Tasks() const { return *m_pool; }

    void Keep(tn::JobHandle handle) { m_jobs.push_back(std::move(handle)); }

    // Jobs begin in their order, so those that are over are mostly in front. One that goes on must not keep all that
    // came later: when there are twice as many as were left the last time, all are looked at.
    void DropOver() {
        DropInherited();
        while (!m_jobs.empty() && m_jobs.front().IsOver()) {
            m_jobs.pop_front();
        }
        if (m_jobs.size() >= m_nManyJobs) {
            const auto isOver = [](const tn::JobHandle& job) { return job.IsOver(); };
            m_jobs.erase(std::remove_if(m_jobs.begin(), m_jobs.end(), isOver), m_jobs.end());
            m_nManyJobs = std::max(kManyJobs, 2 * m_jobs.size());
        }
    }

    bool IsOver() {
        DropInherited();
        return std::all_of(m_jobs.begin(), m_jobs.end(), [](const tn::JobHandle& job) { return job.IsOver(); });
    }

private:
    static constexpr std::size_t kManyJobs = 64;

    // The parent's jobs are not in the child of a fork, and their locks may be lost: nobody asks them anything.
    void DropInherited() {
        if (!m_home.IsHere()) {
            m_jobs.clear();
            m_home = tn::detail::Home();
        }
    }

    TnRobotPtr<ITnRobotTaskPool> m_pool;
    std::deque<tn::JobHandle> m_jobs;
    std::size_t m_nManyJobs = kManyJobs;
    tn::detail::Home m_home;
};

// Pools whose Python object is gone while jobs are at work. Never destroyed: at the end of the process such jobs
// may still be.
std::vector<std::unique_ptr<Pool>>& LeftPools() {
    static auto* const s_pPools = new std::vector<std::unique_ptr<Pool>>;
    return *s_pPools;
}

// The end of a pool waits for its thread.
void End(std::unique_ptr<Pool> pool) {
    const WithoutGil others;
    pool.reset();
}

void EndLeftPools() {
    std::vector<std::unique_ptr<Pool>> left = std::exchange(LeftPools(), {});
    for (std::unique_ptr<Pool>& pool : left) {
        if (t_bInJob || !pool->IsOver()) {
            LeftPools().push_back(std::move(pool));
        } else {
            End(std::move(pool));
        }
    }
}

class TaskPool final : public Bound {
public:
    TaskPool() {
        EndLeftPools();
        const WithoutGil others;
        m_pool = std::make_unique<Pool>();
    }
    TaskPool(const TaskPool&) = delete;
    TaskPool& operator=(const TaskPool&) = delete;
    ~TaskPool() {
        if (m_pool) {
            LeftPools().push_back(std::move(m_pool));
            EndLeftPools();
        }
    }

    // ValueError for an object whose __init__ was never called.
    Pool& Get() const {
        if (!m_pool) {
            throw py::value_error("this pool has no tasks: its __init__ was never called");
        }
        return *m_pool;
    }

private:
    std::unique_ptr<Pool> m_pool;
};

// Calls a function that handles its own exceptions, and gives it back while it still has the lock.
void CallFunction(void* pHeld) {
    SharedObject function = std::move(*static_cast<SharedObject*>(pHeld));
    PyObject* pResult = PyObject_CallNoArgs(function.Get());
    if (pResult == nullptr) {
        PyErr_WriteUnraisable(function.Get());
    }
    Py_XDECREF(pResult);
}

void Post(const TaskPool& self, const py::object& function) {
    Pool& pool = self.Get();
    pool.DropOver();
    auto held = std::make_shared<SharedObject>(function);
    tn::JobHandle handle;
    {
        const WithoutGil others;
        handle = tn::Run(pool.Tasks(), [held = std::move(held)] {
            const bool bBefore = std::exchange(t_bInJob, true);
            CallWithGil(&CallFunction, held.get());
            t_bInJob = bBefore;
        });
    }
    pool.Keep(std::move(handle));
}

}  // namespace

void BindTasks(py::module_& module) {
    py::class_<TaskPool>(module, "TaskPool", "What is below tnrobotkernel.TaskPool.")
        .def(py::init<>())
        .def("_post", &Post, py::arg("function"))
        .def_property_readonly(
            "idle_tasks", [](const TaskPool& self) { return self.Get().Tasks().GetTaskCount(); },
            "How many tasks, each with a thread, wait for work in the library's pool.");
}

}  // namespace tnrobot::python
