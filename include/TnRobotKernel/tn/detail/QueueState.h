/// @file
/// What the tasks of a WorkQueue and its user share. Used by tn/work_queue.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_QUEUESTATE_H_
#define TNROBOTKERNEL_TN_DETAIL_QUEUESTATE_H_

#include <algorithm>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "TnRobotKernel/tn/cancel.h"

namespace tn::detail {

// Items between those who push them and the workers.
//
// Invariants (under m_mutex): m_items never has more than m_nCapacity; m_nAtWork items have been taken and
// are not done; once m_bClosed nothing comes in any more; m_nPushing threads are blocked in Push, and
// m_nWaiting in Wait.
//
// Lock order: m_mutex is innermost; no job is called and no item or exception destroyed with it, but for
//             items that are moved from.
template <typename Item>
class QueueState : public std::enable_shared_from_this<QueueState<Item>> {
    static_assert(std::is_nothrow_move_constructible_v<Item>, "Items of a WorkQueue must move without throwing");

public:
    using Job = std::function<void(Item&&, const CancelToken&)>;

    QueueState(Job job, std::size_t nCapacity) : m_job(std::move(job)), m_nCapacity(nCapacity) {}
    QueueState(const QueueState&) = delete;
    QueueState& operator=(const QueueState&) = delete;

    // The item is only taken when there is no reason.
    template <typename Source>
    std::error_code Push(Source&& item, Clock::time_point end) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_items.size() >= m_nCapacity && !m_bClosed) {
            const std::error_code reason = AwaitRoom(lock, end);
            if (reason) {
                return reason;
            }
        }
        if (m_bClosed) {
            return std::make_error_code(std::errc::operation_canceled);
        }
        try {
            m_items.emplace_back(std::forward<Source>(item));
        } catch (...) {
            m_room.notify_one();  // the room is another one's now, who was perhaps not woken for it
            throw;
        }
        if (m_nToWake > 0) {
            --m_nToWake;
            // Who is woken with the lock held would only wait for it. Without it this may be the last to go.
            const auto keep = this->shared_from_this();
            lock.unlock();
            m_filled.notify_one();
        }
        return {};
    }

    // Until every item is done. Delivers the first failure since the last delivery.
    std::error_code Wait(Clock::time_point end) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (IsWorker()) {
            return std::make_error_code(std::errc::resource_deadlock_would_occur);
        }
        ++m_nWaiting;
        const bool bDone = WaitUntil(m_done, lock, end, [this] { return m_items.empty() && m_nAtWork == 0; });
        --m_nWaiting;
        NotifyLast();
        if (!bDone) {
            return std::make_error_code(std::errc::timed_out);
        }
        if (const std::exception_ptr failure = std::exchange(m_failure, nullptr)) {
            lock.unlock();
            std::rethrow_exception(failure);
        }
        return m_bDropped ? std::make_error_code(std::errc::operation_canceled) : std::error_code();
    }

    // Nothing comes in any more; what waits is still done.
    void Close() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        CloseLocked();
    }

    // Nothing comes in any more, and what waits is dropped.
    void Cancel() {
        std::deque<Item> dropped;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            dropped.swap(m_items);
            m_bDropped = m_bDropped || !dropped.empty();
            CloseLocked();
            if (m_nAtWork == 0) {
                m_done.notify_all();
            }
        }
        // A job that hears of it and returns must not find another item.
        m_cancel->Cancel();
    }

    // Once closed: until those who were blocked in Push and Wait have left.
    void AwaitVisitors() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_done.wait(lock, [this] { return m_nPushing == 0 && m_nWaiting == 0; });
    }

    std::size_t Waiting() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_items.size();
    }

    unsigned long long Failures() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_nFailures;
    }

    // What each worker does, until the queue is closed and empty.
    void Work() noexcept {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_workers.push_back(std::this_thread::get_id());
        while (AwaitItem(lock)) {
            ++m_nAtWork;
            DoFirst(lock);
            --m_nAtWork;
            if (m_items.empty() && m_nAtWork == 0) {
                m_done.notify_all();
            }
        }
    }

    // Before the workers begin, so that counting them cannot fail.
    void ReserveWorkers(unsigned int nWorkers) { m_workers.reserve(nWorkers); }

    // For the child of a fork: locks may be lost, and the end of a condition variable waits for waiters that
    // are not here.
    void KeepItself(std::shared_ptr<QueueState> self) noexcept { m_self = std::move(self); }

private:
    bool IsWorker() const {
        return std::find(m_workers.begin(), m_workers.end(), std::this_thread::get_id()) != m_workers.end();
    }

    // A worker that waited for room could wait for itself.
    std::error_code AwaitRoom(std::unique_lock<std::mutex>& lock, Clock::time_point end) {
        if (IsWorker()) {
            return std::make_error_code(std::errc::resource_deadlock_would_occur);
        }
        ++m_nPushing;
        const bool bRoom = WaitUntil(m_room, lock, end, [this] { return m_items.size() < m_nCapacity || m_bClosed; });
        --m_nPushing;
        NotifyLast();
        return bRoom ? std::error_code() : std::make_error_code(std::errc::timed_out);
    }

    // For who waits until a closed queue has no visitors.
    void NotifyLast() {
        if (m_bClosed && m_nPushing == 0 && m_nWaiting == 0) {
            m_done.notify_all();
        }
    }

    bool AwaitItem(std::unique_lock<std::mutex>& lock) {
        while (m_items.empty() && !m_bClosed) {
            ++m_nSleeping;
            ++m_nToWake;
            m_filled.wait(lock);
            --m_nSleeping;
            m_nToWake = std::min(m_nToWake, m_nSleeping);  // one that woke for no reason was not woken
        }
        return !m_items.empty();
    }

    // The item, and what the job has thrown, is gone or stored when the item counts as done.
    void DoFirst(std::unique_lock<std::mutex>& lock) {
        std::exception_ptr failure;
        {
            Item item(std::move(m_items.front()));
            m_items.pop_front();
            const bool bAwaited = m_nPushing > 0;
            lock.unlock();
            if (bAwaited) {
                m_room.notify_one();
            }
            try {
                m_job(std::move(item), m_token);
            } catch (...) {
                failure = std::current_exception();
            }
        }
        lock.lock();
        if (failure) {
            Note(std::move(failure), lock);
        }
    }

    // An exception that nobody will see is destroyed without the lock: it may hold what asks the queue.
    void Note(std::exception_ptr failure, std::unique_lock<std::mutex>& lock) {
        ++m_nFailures;
        if (!m_failure) {
            m_failure = std::move(failure);
            return;
        }
        lock.unlock();
        failure = nullptr;
        lock.lock();
    }

    void CloseLocked() {
        m_bClosed = true;
        m_filled.notify_all();
        m_room.notify_all();
    }

    const Job m_job;
    const std::size_t m_nCapacity;
    const std::shared_ptr<CancelState> m_cancel = std::make_shared<CancelState>();
    const CancelToken m_token{m_cancel};
    mutable std::mutex m_mutex;
    std::condition_variable m_filled;        // there is an item, or the queue is closed
    std::condition_variable m_room;          // there is room, or the queue is closed
    std::condition_variable m_done;          // nothing waits nor is at work, or nobody visits any more
    std::deque<Item> m_items;                // guarded by m_mutex, as all below
    std::vector<std::thread::id> m_workers;  // those that have begun
    std::size_t m_nAtWork = 0;
    unsigned int m_nSleeping = 0;  // workers that wait for an item
    unsigned int m_nToWake = 0;    // those of them that nobody has woken yet
    unsigned int m_nPushing = 0;
    unsigned int m_nWaiting = 0;
    bool m_bClosed = false;
    bool m_bDropped = false;
    unsigned long long m_nFailures = 0;
    std::exception_ptr m_failure;        // not delivered yet
    std::shared_ptr<QueueState> m_self;  // of one that is never destroyed
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_QUEUESTATE_H_
