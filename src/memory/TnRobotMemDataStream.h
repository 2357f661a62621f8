// Growable byte stream over pooled blocks.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNROBOTMEMDATASTREAM_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNROBOTMEMDATASTREAM_H_

#include <cstddef>
#include <vector>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"

/// Appends into 1 MiB blocks of a pool and reads them back without copying.
///
/// Invariant: the write block, if there is one, has room left; a block that is full has moved to
/// m_fullBlocks.
///
/// Threads: externally synchronised.
class CTnRobotMemDataStream final : public ITnRobotMemDataStream {
public:
    /// @return 1, or 0 (and a null *ppStream) for a null pool.
    static int CreateInstance(ITnRobotMemoryBlockPool* pPool, ITnRobotMemDataStream** ppStream);

    ~CTnRobotMemDataStream() override;

    int WriteData(const unsigned char* pData, unsigned int nLength) override;
    int BeginReadData() override;
    unsigned char* ReadData(unsigned int& nSize) override;
    void EndReadData() override;
    unsigned int GetTotleLength() override;
    void Clear() override;

private:
    using Block = TnRobotPtr<ITnRobotMemoryBlock>;

    CTnRobotMemDataStream() = default;
    bool _Init(ITnRobotMemoryBlockPool* pPool);
    bool _QueryWriteBlock();
    void _Append(const unsigned char* pData, unsigned int nLength);
    void _Consume(unsigned int nSize);

    TnRobotPtr<ITnRobotMemoryBlockPool> m_pool;
    std::vector<Block> m_fullBlocks;  // in write order
    unsigned int m_nTotalLength = 0;
    Block m_writeBlock;
    unsigned char* m_pWriteData = nullptr;
    unsigned int m_nWriteOffset = 0;
    unsigned int m_nWriteRoom = 0;
    std::size_t m_nReadPosition = 0;  // index of the next full block to read
    Block m_readBlock;                // keeps the piece that ReadData returned last
    unsigned int m_nReadRemaining = 0;
};

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNROBOTMEMDATASTREAM_H_
