// A block pool whose memory starts with a pattern and that can be told to refuse.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTBLOCKS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTBLOCKS_H_

#include <atomic>
#include <memory>
#include <vector>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"

namespace tntest {

/// Exactly as many bytes as were asked for, so that a sanitizer sees the first byte beyond them.
class TestBlock final : public ITnRobotMemoryBlock {
public:
    TestBlock(unsigned int nSize, unsigned char byFill);
    ~TestBlock() override;

    unsigned char* QueryMemory(unsigned int& nSize) override;

    /// Has no memory any more, but still tells its size.
    void LoseMemory() { m_bytes.reset(); }

    int References() const { return m_nRefCount.load(); }

    /// Blocks alive now, of all pools.
    static int LiveCount() { return s_nLive.load(); }

private:
    static std::atomic<int> s_nLive;

    std::unique_ptr<unsigned char[]> m_bytes;
    unsigned int m_nSize;
};

class TestBlockPool final : public ITnRobotMemoryBlockPool {
public:
    static constexpr unsigned char kFill = 0xA5;  ///< what memory is full of that nobody has written

    ~TestBlockPool() override;

    static TnRobotPtr<TestBlockPool> Create() { return tn::Adopt(new TestBlockPool); }

    /// Requests fail from now on, or work again.
    void Refuse(bool bRefuse = true) { m_bRefuse = bRefuse; }

    /// Requests answer success, but give no block.
    void PretendOnly() { m_bPretend = true; }

    /// The next nRaces requests answer success, but give no block, as when other threads were faster.
    void LoseRaces(int nRaces) { m_nRaces = nRaces; }

    /// Larger requests fail.
    void LimitSize(unsigned int nLargest) { m_nLargest = nLargest; }

    /// What blocks are like that are given from now on: as they should be, a byte shorter than was asked for, or
    /// without memory.
    enum class Giving { kWhole, kShort, kWithoutMemory };
    void Give(Giving eGiving) { m_eGiving = eGiving; }

    /// Sizes asked for so far, refused ones included.
    const std::vector<unsigned int>& Requests() const { return m_requests; }

    int References() const { return m_nRefCount.load(); }

    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) override;
    void FreeUnuseMemory() override {}

private:
    std::vector<unsigned int> m_requests;
    unsigned int m_nLargest = 0xFFFFFFFFU;
    bool m_bRefuse = false;
    bool m_bPretend = false;
    Giving m_eGiving = Giving::kWhole;
    int m_nRaces = 0;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTBLOCKS_H_
