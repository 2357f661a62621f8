/// @file
/// Memory that can be bounded and watched: LimitedPool, and QueryMemBuff with a reason.

#ifndef TNROBOTKERNEL_TN_LIMITED_POOL_H_
#define TNROBOTKERNEL_TN_LIMITED_POOL_H_

#include <list>
#include <memory>
#include <system_error>
#include <utility>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/tn/cancel.h"
#include "TnRobotKernel/tn/error.h"
#include "TnRobotKernel/values.h"

namespace tn {

/// @addtogroup work
/// @{

/// What a LimitedPool keeps to.
struct LimitedPoolOptions {
    unsigned long long nMostBytes = 0;  ///< bytes of all blocks in use together
    /// Longest wait of a request that finds no room: 0 refuses at once, kNoLimit waits as long as it takes.
    std::chrono::milliseconds wait{0};
    /// A block counts as a whole number of these bytes, and at least as one of them: 32768 over a general
    /// block pool, whose blocks are that large, makes the limit one of real memory. 0 is 1.
    unsigned int nUnit = 1;
};

/// What a LimitedPool has counted, all at one moment.
struct LimitedPoolCounters {
    unsigned long long nLiveBlocks = 0;  ///< blocks in use
    unsigned long long nLiveBytes = 0;   ///< and their bytes, as they count for the limit
    unsigned long long nHighWater = 0;   ///< the most bytes that were in use together
    unsigned long long nRequests = 0;    ///< all requests
    unsigned long long nRefusals = 0;    ///< those that got no block, for whatever reason
    unsigned long long nWaitingNow = 0;  ///< requests that wait for room at this moment
    unsigned long long nMostBytes = 0;   ///< the limit
};

/// @}

namespace detail {

// The bytes of a LimitedPool. The blocks hold it too, so that they may come back after the pool has gone.
//
// Room is given in the order of asking: a large request is not overtaken for ever by small ones.
//
// Lock order: m_mutex is innermost; no pool and no block is called with it.
class ByteBudget {
public:
    ByteBudget(unsigned long long nMost, std::chrono::milliseconds wait) : m_wait(wait) {
        m_counters.nMostBytes = nMost;
    }
    ByteBudget(const ByteBudget&) = delete;
    ByteBudget& operator=(const ByteBudget&) = delete;

    // Counts a request, and promises its bytes when there is room or some comes in time.
    bool Promise(unsigned long long nBytes) {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_counters.nRequests;
        if (nBytes > m_counters.nMostBytes || !AwaitRoom(lock, nBytes)) {
            ++m_counters.nRefusals;
            return false;
        }
        m_nPromised += nBytes;
        return true;
    }

    // There is a block that uses what was promised.
    void Take(unsigned long long nBytes) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_nPromised -= nBytes;
        ++m_counters.nLiveBlocks;
        m_counters.nLiveBytes += nBytes;
        if (m_counters.nLiveBytes > m_counters.nHighWater) {
            m_counters.nHighWater = m_counters.nLiveBytes;
        }
    }

    void GiveBack(unsigned long long nBytes) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        --m_counters.nLiveBlocks;
        m_counters.nLiveBytes -= nBytes;
        WakeFirst();
    }

    // For promised bytes that no block was got for: they were never in use.
    void TakeBack(unsigned long long nBytes) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_nPromised -= nBytes;
        ++m_counters.nRefusals;
        WakeFirst();
    }

    LimitedPoolCounters Counters() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        LimitedPoolCounters counters = m_counters;
        counters.nWaitingNow = m_waiting.size();
        return counters;
    }

private:
    using Queue = std::list<std::condition_variable>;

    bool AwaitRoom(std::unique_lock<std::mutex>& lock, unsigned long long nBytes) {
        if (m_waiting.empty() && Fits(nBytes)) {
            return true;
        }
        if (m_wait <= std::chrono::milliseconds::zero()) {
            return false;
        }
        const auto me = m_waiting.emplace(m_waiting.end());
        const bool bRoom =
            WaitUntil(*me, lock, After(m_wait), [this, me, nBytes] { return me == m_waiting.begin() && Fits(nBytes); });
        m_waiting.erase(me);
        WakeFirst();  // there may be room for the next one too
        return bRoom;
    }

    bool Fits(unsigned long long nBytes) const {
        return nBytes <= m_counters.nMostBytes - m_counters.nLiveBytes - m_nPromised;
    }

    void WakeFirst() {
        if (!m_waiting.empty()) {
            m_waiting.front().notify_one();
        }
    }

    const std::chrono::milliseconds m_wait;
    mutable std::mutex m_mutex;
    Queue m_waiting;                     // guarded by m_mutex; the first asked first
    unsigned long long m_nPromised = 0;  // guarded by m_mutex; for those who ask the other pool at this moment
    LimitedPoolCounters m_counters;      // guarded by m_mutex
};

// Asks a pool, and tells the reason of a refusal. @return the pool's answer.
int AskPool(ITnRobotMemoryBlockPool& pool, unsigned int nSize, ITnRobotMemoryBlock** ppBlock, std::error_code& ec);

// A block of another pool that counts for the limit as long as it lives.
class LimitedBlock final : public ITnRobotMemoryBlock {
public:
    LimitedBlock(TnRobotPtr<ITnRobotMemoryBlockPool> source, std::shared_ptr<ByteBudget> budget,
                 unsigned long long nBytes)
        : m_source(std::move(source)), m_budget(std::move(budget)), m_nBytes(nBytes) {}
    // The memory is back in its pool before its bytes can be had again.
    ~LimitedBlock() override {
        m_block.reset();
        if (m_bTaken) {
            m_budget->GiveBack(m_nBytes);
        } else {
            m_budget->TakeBack(m_nBytes);
        }
    }

    unsigned char* QueryMemory(unsigned int& nSize) override { return m_block->QueryMemory(nSize); }

    // Asks the source for the memory. @return its answer.
    int Fill(unsigned int nSize, std::error_code& ec) {
        const int nResult = AskPool(*m_source, nSize, m_block.put(), ec);
        if (nResult != 1) {
            m_block.reset();
        }
        if (m_block) {
            m_budget->Take(m_nBytes);
            m_bTaken = true;
        }
        return nResult;
    }

    bool IsFilled() const { return m_bTaken; }

private:
    TnRobotPtr<ITnRobotMemoryBlockPool> m_source;  // goes last: some pools take their blocks' memory along
    std::shared_ptr<ByteBudget> m_budget;
    TnRobotPtr<ITnRobotMemoryBlock> m_block;
    const unsigned long long m_nBytes;
    bool m_bTaken = false;  // there was a block
};

}  // namespace detail

/// @addtogroup work
/// @{

/// A block pool in front of another one that never has more bytes in use than it may, and that counts.
///
/// Lifetime: holds a reference to the other pool, and so does each of its blocks: blocks outlive both, also
///           over a circular block pool.
/// Threads:  thread-safe.
class LimitedPool final : public ITnRobotMemoryBlockPool {
public:
    /// Use MakeLimitedPool.
    /// @param[in] source   where the memory comes from; not empty.
    /// @param[in] options  limit, wait and unit.
    LimitedPool(TnRobotPtr<ITnRobotMemoryBlockPool> source, const LimitedPoolOptions& options)
        : m_source(std::move(source)),
          m_budget(std::make_shared<detail::ByteBudget>(options.nMostBytes, options.wait)),
          m_nUnit(options.nUnit != 0 ? options.nUnit : 1) {}

    /// Hands out a block of the other pool's, if there is room for it.
    /// @param[in]  nSize    bytes wanted; what sizes there are is up to the other pool.
    /// @param[out] ppBlock  +1, caller releases; untouched on failure.
    /// @return the other pool's answer; 0 for a null ppBlock, when the request alone is above the limit, and
    ///         when there was no room and none came in time.
    /// Throws std::bad_alloc.
    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) override {
        std::error_code ignored;
        return QueryMemBuff(nSize, ppBlock, ignored);
    }

    /// As above, with the reason; tn::QueryMemBuff is more comfortable.
    /// @param[in]  nSize    bytes wanted.
    /// @param[out] ppBlock  +1, caller releases; untouched on failure.
    /// @param[out] ec       as that of tn::QueryMemBuff, which see.
    /// @return as above.
    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock, std::error_code& ec) {
        const unsigned long long nBytes = Counted(nSize);
        if (ppBlock == nullptr) {
            ec = std::make_error_code(std::errc::invalid_argument);
            return 0;
        }
        if (!m_budget->Promise(nBytes)) {
            ec = nBytes > m_budget->Counters().nMostBytes
                     ? make_error_code(errc::block_too_large)
                     : std::make_error_code(std::errc::resource_unavailable_try_again);
            return 0;
        }
        const TnRobotPtr<detail::LimitedBlock> block = Wrap(nBytes);
        const int nResult = block->Fill(nSize, ec);
        if (block->IsFilled()) {
            block.copy_to(ppBlock);
        }
        return nResult;
    }

    /// Has the other pool give back what lies unused.
    void FreeUnuseMemory() override { m_source->FreeUnuseMemory(); }

    /// @return what was counted so far.
    [[nodiscard]] LimitedPoolCounters Counters() const { return m_budget->Counters(); }

    /// Where the memory comes from.
    /// @return the other pool, borrowed.
    [[nodiscard]] ITnRobotMemoryBlockPool& Source() const { return *m_source; }

private:
    unsigned long long Counted(unsigned int nSize) const {
        const unsigned long long nUnits = nSize == 0 ? 1 : (nSize - 1) / m_nUnit + 1;
        return nUnits * m_nUnit;
    }

    // From here on the promised bytes are the block's.
    TnRobotPtr<detail::LimitedBlock> Wrap(unsigned long long nBytes) {
        try {
            return MakeObject<detail::LimitedBlock>(m_source, m_budget, nBytes);
        } catch (...) {
            m_budget->TakeBack(nBytes);
            throw;
        }
    }

    const TnRobotPtr<ITnRobotMemoryBlockPool> m_source;
    const std::shared_ptr<detail::ByteBudget> m_budget;
    const unsigned int m_nUnit;
};

/// Puts a limit in front of a block pool.
/// @param[in] source   where the memory comes from; a reference is taken.
/// @param[in] options  limit, wait and unit.
/// @return the pool; empty for an empty source.
[[nodiscard]] inline TnRobotPtr<LimitedPool> MakeLimitedPool(TnRobotPtr<ITnRobotMemoryBlockPool> source,
                                                             const LimitedPoolOptions& options) {
    if (!source) {
        return nullptr;
    }
    return MakeObject<LimitedPool>(std::move(source), options);
}

/// Writes counters into a value group, as ulonglong values under the names "live blocks", "live bytes", "high
/// water", "requests", "refusals", "waiting now" and "most bytes".
/// @param[in] counters  what LimitedPool::Counters has given.
/// @param[in] group     borrowed for the call; what it holds under these names is replaced.
/// @return whether all were stored; false without the process-wide value pool.
inline bool WriteCounters(const LimitedPoolCounters& counters, ITnRobotDataValueGroup& group) {
    const struct {
        const char* lpszName;
        unsigned long long nValue;
    } kEntries[] = {
        {"live blocks", counters.nLiveBlocks}, {"live bytes", counters.nLiveBytes},
        {"high water", counters.nHighWater},   {"requests", counters.nRequests},
        {"refusals", counters.nRefusals},      {"waiting now", counters.nWaitingNow},
        {"most bytes", counters.nMostBytes},
    };
    bool bStored = true;
    for (const auto& entry : kEntries) {
        bStored = group.SetValue(entry.lpszName, entry.nValue) == 0 && bStored;
    }
    return bStored;
}

namespace detail {

inline int AskPool(ITnRobotMemoryBlockPool& pool, unsigned int nSize, ITnRobotMemoryBlock** ppBlock,
                   std::error_code& ec) {
    if (auto* pLimited = dynamic_cast<LimitedPool*>(&pool)) {
        return pLimited->QueryMemBuff(nSize, ppBlock, ec);
    }
    const int nResult = pool.QueryMemBuff(nSize, ppBlock);
    if (nResult == 1 && *ppBlock != nullptr) {
        ec.clear();
    } else if (nResult == 1) {
        ec = std::make_error_code(std::errc::resource_unavailable_try_again);
    } else {
        ec = nSize == 0 ? std::make_error_code(std::errc::invalid_argument) : make_error_code(errc::block_too_large);
    }
    return nResult;
}

}  // namespace detail

/// Asks a pool for a block, and says when there is none whether it helps to ask again. A race for a
/// circular pool's buffer that is lost is run again at once, as streams do.
/// @param[in] pool   borrowed for the call.
/// @param[in] nSize  bytes wanted.
/// @param[out] ec    cleared when there is a block. std::errc::resource_unavailable_try_again: others have
///                   what is there, so ask again when something may have come back; invalid_argument: the
///                   pool has no blocks of 0 bytes; errc::block_too_large, which is std::errc::value_too_large
///                   too: it never has one of this size.
/// @return the block, not initialised; empty on failure.
/// Throws std::bad_alloc when the system has no memory left.
[[nodiscard]] inline TnRobotPtr<ITnRobotMemoryBlock> QueryMemBuff(ITnRobotMemoryBlockPool& pool, unsigned int nSize,
                                                                  std::error_code& ec) {
    constexpr int kAttempts = 100;
    TnRobotPtr<ITnRobotMemoryBlock> block;
    int nResult = 1;
    for (int n = 0; n < kAttempts && nResult == 1 && !block; ++n) {
        nResult = detail::AskPool(pool, nSize, block.put(), ec);
    }
    if (nResult != 1) {
        block.reset();
    }
    return block;
}

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_LIMITED_POOL_H_
