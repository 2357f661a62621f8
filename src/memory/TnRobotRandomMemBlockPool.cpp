// A request is rounded up and passed on to the fixed pool of that size; the sweep drops the fixed pools
// that are empty.

#include "memory/TnRobotRandomMemBlockPool.h"

#include <algorithm>

#include "core/TnCreateInstance.h"
#include "core/TnIdleTime.h"

namespace {

constexpr unsigned int kUnit = 32768;
constexpr unsigned int kNoLimit = 0xFFFFFFFFU;
constexpr double kDefaultIdleSeconds = 60.0;

// Wraps to 0 for sizes above 4294934528.
constexpr unsigned int RoundUp(unsigned int nSize) {
    return (nSize + (kUnit - 1)) & ~(kUnit - 1);
}

}  // namespace

CTnRobotRandomMemBlockPool::CTnRobotRandomMemBlockPool(double dIdleSeconds)
    : m_lastSweep(std::chrono::system_clock::now()), m_dIdleSeconds(dIdleSeconds) {}

int CTnRobotRandomMemBlockPool::CreateInstance(double dIdleSeconds, ITnRobotMemoryBlockPool** ppPool) {
    if (ppPool == nullptr) {
        return 0;
    }
    return tnrobot::FinishInstance(new CTnRobotRandomMemBlockPool(dIdleSeconds), ppPool,
                                   &CTnRobotRandomMemBlockPool::_Init);
}

int CTnRobotRandomMemBlockPool::QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
    const unsigned int nRoundedSize = RoundUp(nSize);
    if (ppBlock == nullptr || nSize == 0 || nRoundedSize == 0) {
        return 0;
    }
    ITnRobotMemoryBlock* pBlock = nullptr;
    if (_AskSizeClass(nRoundedSize)->QueryBlock(&pBlock) == 0) {
        return 0;
    }
    static_cast<CTnRobotMemoryBlock*>(pBlock)->SetUsedSize(nSize);
    *ppBlock = pBlock;
    return 1;
}

// The query that is announced here keeps the pool alive: the sweep leaves a size class alone until
// every query that was announced to it has been answered. (A reference would do the same at the
// price of two more atomic operations for each block.)
CTnRobotFixedMemBlockPool* CTnRobotRandomMemBlockPool::_AskSizeClass(unsigned int nRoundedSize) {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    auto it = std::lower_bound(
        m_sizeClasses.begin(), m_sizeClasses.end(), nRoundedSize,
        [](const SizeClass& sizeClass, unsigned int nSize) { return sizeClass.m_nRoundedSize < nSize; });
    if (it == m_sizeClasses.end() || it->m_nRoundedSize != nRoundedSize) {
        SizeClass made;
        made.m_nRoundedSize = nRoundedSize;
        CTnRobotFixedMemBlockPool::CreateInstance(nRoundedSize, kNoLimit, m_dIdleSeconds, made.m_pool.put());
        it = m_sizeClasses.insert(it, std::move(made));
    }
    it->m_pool->AnnounceQuery();
    return it->m_pool.get();
}

void CTnRobotRandomMemBlockPool::FreeUnuseMemory() {
    if (!_BeginSweep()) {
        return;
    }
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    for (auto it = m_sizeClasses.begin(); it != m_sizeClasses.end();) {
        it->m_pool->FreeUnuseMemory();
        it = it->m_pool->IsUnused() ? m_sizeClasses.erase(it) : std::next(it);
    }
    if (m_sizeClasses.empty()) {
        m_sizeClasses.shrink_to_fit();
    }
}

// Of several threads that call at the same time one sweeps.
bool CTnRobotRandomMemBlockPool::_BeginSweep() {
    const auto now = std::chrono::system_clock::now();
    auto lastSweep = m_lastSweep.load();
    return m_dIdleSeconds <= tnrobot::SecondsBetween(lastSweep, now) &&
           m_lastSweep.compare_exchange_strong(lastSweep, now);
}

int TnCreateRobotMemoryBlockPool(ITnRobotMemoryBlockPool** ppPool) {
    return CTnRobotRandomMemBlockPool::CreateInstance(kDefaultIdleSeconds, ppPool);
}
