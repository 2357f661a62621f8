// A thread pool as one writes it in half an hour: a mutex, a condition variable, a queue of functions.

#ifndef TNROBOTKERNEL_BENCH_WORK_PLAINPOOL_H_
#define TNROBOTKERNEL_BENCH_WORK_PLAINPOOL_H_

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace bench {

class PlainPool {
public:
    explicit PlainPool(unsigned int nThreads) {
        for (unsigned int n = 0; n < nThreads; ++n) {
            m_threads.emplace_back([this] { Work(); });
        }
    }
    PlainPool(const PlainPool&) = delete;
    PlainPool& operator=(const PlainPool&) = delete;
    ~PlainPool() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_bEnd = true;
        }
        m_posted.notify_all();
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

    void Post(std::function<void()> job) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_jobs.push_back(std::move(job));
            ++m_nOpen;
        }
        m_posted.notify_one();
    }

    void Wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_done.wait(lock, [this] { return m_nOpen == 0; });
    }

private:
    void Work() {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (true) {
            m_posted.wait(lock, [this] { return m_bEnd || !m_jobs.empty(); });
            if (m_jobs.empty()) {
                return;
            }
            const std::function<void()> job = std::move(m_jobs.front());
            m_jobs.pop_front();
            lock.unlock();
            job();
            lock.lock();
            if (--m_nOpen == 0) {
                m_done.notify_all();
            }
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_posted;
    std::condition_variable m_done;
    std::deque<std::function<void()>> m_jobs;  // guarded by m_mutex
    std::size_t m_nOpen = 0;                   // guarded by m_mutex
    bool m_bEnd = false;                       // guarded by m_mutex
    std::vector<std::thread> m_threads;
};

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_WORK_PLAINPOOL_H_
