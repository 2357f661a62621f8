// Bytes are appended to the write block; a full one moves to the list, and a pass of reading walks the
// list and ends with the write block.

#include "memory/TnRobotMemDataStream.h"

#include <algorithm>
#include <cstring>

#include "checked/TnChecked.h"
#include "core/TnCreateInstance.h"
#include "memory/TnQueryBlock.h"

namespace {

constexpr unsigned int kBlockSize = 0x100000;

}  // namespace

ITnRobotMemDataStream::~ITnRobotMemDataStream() = default;

// In an order that callers see, because pools hand out first what came back last: the content, the
// piece that was read last, and then, as a member, the pool.
CTnRobotMemDataStream::~CTnRobotMemDataStream() {
    Clear();
    m_readBlock.reset();
}

int CTnRobotMemDataStream::CreateInstance(ITnRobotMemoryBlockPool* pPool, ITnRobotMemDataStream** ppStream) {
    return tnrobot::FinishInstance(new CTnRobotMemDataStream, ppStream, &CTnRobotMemDataStream::_Init, pPool);
}

bool CTnRobotMemDataStream::_Init(ITnRobotMemoryBlockPool* pPool) {
    m_pool = tn::Retain(pPool);
    return static_cast<bool>(m_pool);
}

int CTnRobotMemDataStream::WriteData(const unsigned char* pData, unsigned int nLength) {
    if (pData == nullptr && nLength != 0) {
        return -1;
    }
    while (nLength != 0) {
        if (!m_writeBlock && !_QueryWriteBlock()) {
            return -1;
        }
        const unsigned int nPiece = std::min(nLength, m_nWriteRoom);
        _Append(pData, nPiece);
        pData += nPiece;
        nLength -= nPiece;
        tnrobot::CheckInvariant(*this, !m_writeBlock || m_nWriteRoom != 0, "has a write block without room");
    }
    return 0;
}

// A pool may be the application's own: it is believed only as far as its answers fit together. A
// block of another size than asked is used as it is, an empty one is no block.
bool CTnRobotMemDataStream::_QueryWriteBlock() {
    // Room in the list comes first, so that a full block can always be moved there.
    if (m_fullBlocks.size() == m_fullBlocks.capacity()) {
        m_fullBlocks.reserve(2 * m_fullBlocks.size() + 8);
    }
    Block block = tnrobot::QueryBlock(*m_pool, kBlockSize);
    if (!block) {
        return false;
    }
    m_pWriteData = block->QueryMemory(m_nWriteRoom);
    m_nWriteOffset = 0;
    if (m_pWriteData == nullptr || m_nWriteRoom == 0) {
        m_pWriteData = nullptr;
        m_nWriteRoom = 0;
        return false;
    }
    m_writeBlock = std::move(block);
    return true;
}

void CTnRobotMemDataStream::_Append(const unsigned char* pData, unsigned int nLength) {
    std::memcpy(m_pWriteData + m_nWriteOffset, pData, nLength);
    m_nWriteOffset += nLength;
    m_nTotalLength += nLength;
    m_nWriteRoom -= nLength;
    if (m_nWriteRoom == 0) {
        m_fullBlocks.push_back(std::move(m_writeBlock));
    }
}

int CTnRobotMemDataStream::BeginReadData() {
    m_nReadPosition = 0;
    m_readBlock.reset();
    m_nReadRemaining = m_nTotalLength;
    return 0;
}

unsigned char* CTnRobotMemDataStream::ReadData(unsigned int& nSize) {
    nSize = 0;
    if (m_nReadRemaining == 0) {
        return nullptr;
    }
    if (m_nReadPosition < m_fullBlocks.size()) {
        m_readBlock = m_fullBlocks[m_nReadPosition++];
        unsigned char* pData = m_readBlock->QueryMemory(nSize);
        _Consume(nSize);
        return pData;
    }
    if (!m_writeBlock) {
        return nullptr;
    }
    m_readBlock = m_writeBlock;
    nSize = m_nWriteOffset;
    _Consume(nSize);
    return m_pWriteData;
}

// What was written during the pass makes pieces longer than what the pass still counts.
void CTnRobotMemDataStream::_Consume(unsigned int nSize) {
    m_nReadRemaining -= std::min(nSize, m_nReadRemaining);
}

void CTnRobotMemDataStream::EndReadData() {
    m_nReadPosition = m_fullBlocks.size();
    m_nReadRemaining = 0;
    m_readBlock.reset();
}

unsigned int CTnRobotMemDataStream::GetTotleLength() {
    return m_nTotalLength;
}

// The read block stays: the piece that ReadData returned last must not go under its reader.
void CTnRobotMemDataStream::Clear() {
    m_nTotalLength = 0;
    m_writeBlock.reset();
    m_fullBlocks.clear();
    m_nReadPosition = 0;
    m_pWriteData = nullptr;
    m_nWriteOffset = 0;
    m_nWriteRoom = 0;
}

int TnCreateRobotMemDataStream(ITnRobotMemoryBlockPool* pPool, ITnRobotMemDataStream** ppStream) {
    return CTnRobotMemDataStream::CreateInstance(pPool, ppStream);
}
