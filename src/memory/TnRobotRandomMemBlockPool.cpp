#include "memory/TnRobotRandomMemBlockPool.h"

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
                                   [](CTnRobotRandomMemBlockPool& pool) { return pool._Init(); });
}

int CTnRobotRandomMemBlockPool::QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
    const unsigned int nRoundedSize = RoundUp(nSize);
    if (ppBlock == nullptr || nSize == 0 || nRoundedSize == 0) {
        return 0;
    }
    // The reference keeps the class in the map (see FreeUnuseMemory) until it has the block.
    const FixedPool pool = _SizeClass(nRoundedSize);
    ITnRobotMemoryBlock* pBlock = nullptr;
    if (pool->QueryBlock(&pBlock) == 0) {
        return 0;
    }
    static_cast<CTnRobotMemoryBlock*>(pBlock)->SetUsedSize(nSize);
    *ppBlock = pBlock;
    return 1;
}

CTnRobotRandomMemBlockPool::FixedPool CTnRobotRandomMemBlockPool::_SizeClass(unsigned int nRoundedSize) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_sizeClasses.find(nRoundedSize);
    if (it != m_sizeClasses.end()) {
        return it->second;
    }
    FixedPool pool;
    CTnRobotFixedMemBlockPool::CreateInstance(nRoundedSize, kNoLimit, m_dIdleSeconds, pool.Receive());
    m_sizeClasses.emplace(nRoundedSize, pool);
    return pool;
}

void CTnRobotRandomMemBlockPool::FreeUnuseMemory() {
    if (!_BeginSweep()) {
        return;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_sizeClasses.begin(); it != m_sizeClasses.end();) {
        CTnRobotFixedMemBlockPool& pool = *it->second.Get();
        pool.FreeUnuseMemory();
        // A class that another thread is asking for a block right now counts as in use. The
        // reference is looked at first: a thread that still has one is seen, and one that has
        // given it back has its block counted.
        const bool bDrop = pool.HasOneReference() && pool.GetCount() == 0;
        it = bDrop ? m_sizeClasses.erase(it) : std::next(it);
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
