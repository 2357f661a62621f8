// A thread object that several callers control, each call where it can return.

#ifndef TNROBOTKERNEL_FUZZ_CONCURRENCY_ACTINGTHREAD_H_
#define TNROBOTKERNEL_FUZZ_CONCURRENCY_ACTINGTHREAD_H_

#include <TnRobotKernel/TnRobotKernel.h>

#include <atomic>
#include <memory>
#include <shared_mutex>
#include <thread>

#include "TnRobotKernel/make.h"
#include "concurrency/ActingRunner.h"

namespace tnfuzz {

/// Keeps the rules that make a call end: no Stop and no Exit before a Run has returned, nothing but a Release
/// beside or after an Exit. Everything else may meet.
///
/// Threads: thread-safe. The lock orders an Exit after the calls before it and nothing among those.
class ActingThread {
public:
    ActingThread() : m_thread(tn::MakeThread()) {}

    void SetJob(unsigned int nPlan, Surroundings& around) {
        const std::shared_lock<std::shared_mutex> lock(m_use);
        if (!m_bExited) {
            Bind(*m_thread, nPlan, around, 2);
            m_bHasJob = true;
        }
    }
    void Run() {
        const std::shared_lock<std::shared_mutex> lock(m_use);
        if (!m_bExited) {
            const bool bHadJob = m_bHasJob;
            const bool bRuns = m_thread->Run();
            Require(bRuns || !bHadJob, "a thread with a job runs");
            m_bHasRun.store(m_bHasRun || bRuns);
        }
    }
    void Stop() {
        const std::shared_lock<std::shared_mutex> lock(m_use);
        if (m_bHasRun && !m_bExited) {
            m_thread->Stop();
        }
    }
    void Exit() {
        const std::unique_lock<std::shared_mutex> lock(m_use);
        if (m_bHasRun && !m_bExited) {
            m_thread->Exit(0);
            m_bExited = true;
        }
    }

private:
    // Counts the copies of a job that are there.
    class Mark {
    public:
        explicit Mark(Surroundings& around) : m_around(around) { ++m_around.nAlive; }
        Mark(const Mark&) = delete;
        Mark& operator=(const Mark&) = delete;
        ~Mark() { --m_around.nAlive; }

    private:
        Surroundings& m_around;
    };

    // A job that may bind others after it, so many in a row.
    static void Bind(ITnRobotThread& thread, unsigned int nPlan, Surroundings& around, int nMore) {
        const auto mark = std::make_shared<const Mark>(around);
        thread.SetWorkJob([&thread, &around, nPlan, nMore, mark](ITnRobotEvent* pStopEvent) {
            Act(thread, nPlan, around, nMore, *pStopEvent);
        });
    }

    static void Act(ITnRobotThread& thread, unsigned int nPlan, Surroundings& around, int nMore,
                    ITnRobotEvent& stopEvent) {
        switch (nPlan % 8) {
            case 1:
                stopEvent.SetEvent();
                break;
            case 2:
                stopEvent.ResetEvent();
                break;
            case 3:
                Require(thread.Run(), "a job may say that it runs");
                break;
            case 4:
                stopEvent.WaitEvent(1);
                break;
            case 5:
                if (nMore > 0) {
                    Bind(thread, nPlan / 8, around, nMore - 1);
                }
                break;
            case 6:
                around.event->SetEvent();
                break;
            default:
                std::this_thread::yield();
        }
        // Whoever else holds the object may let go meanwhile: this is the last Release then.
        if (nPlan / 8 % 2 == 1) {
            const TnRobotPtr<ITnRobotThread> again = tn::Retain(&thread);
            std::this_thread::yield();
        }
    }

    const TnRobotPtr<ITnRobotThread> m_thread;
    std::shared_mutex m_use;
    bool m_bExited = false;  // guarded by m_use
    std::atomic<bool> m_bHasJob{false};
    std::atomic<bool> m_bHasRun{false};
};

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_CONCURRENCY_ACTINGTHREAD_H_
