#include "support/fakes/TestBlocks.h"

#include <cstring>

namespace tntest {

std::atomic<int> TestBlock::s_nLive{0};

TestBlock::TestBlock(unsigned int nSize, unsigned char byFill) : m_bytes(new unsigned char[nSize]), m_nSize(nSize) {
    std::memset(m_bytes.get(), byFill, nSize);
    ++s_nLive;
}

TestBlock::~TestBlock() {
    --s_nLive;
}

unsigned char* TestBlock::QueryMemory(unsigned int& nSize) {
    nSize = m_nSize;
    return m_bytes.get();
}

TestBlockPool::~TestBlockPool() = default;

int TestBlockPool::QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
    m_requests.push_back(nSize);
    if (m_bPretend || m_nRaces > 0) {
        m_nRaces -= m_bPretend ? 0 : 1;
        return 1;
    }
    if (m_bRefuse || nSize == 0 || nSize > m_nLargest || ppBlock == nullptr) {
        return 0;
    }
    auto* const pBlock = new TestBlock(m_eGiving == Giving::kShort ? nSize - 1 : nSize, kFill);
    if (m_eGiving == Giving::kWithoutMemory) {
        pBlock->LoseMemory();
    }
    *ppBlock = pBlock;
    return 1;
}

}  // namespace tntest
