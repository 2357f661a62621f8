// A literal model of the memory file: chunks in a list instead of clever arithmetic, and the chunk
// index that a seek past the length leaves behind. A position below the start transfers nothing.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_BYTES_MEMFILEMODELS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_BYTES_MEMFILEMODELS_H_

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "support/bytes/Bytes.h"

namespace tntest {

/// A file that grows in chunks.
class ChunkModel {
public:
    explicit ChunkModel(long long nChunkSize) : m_nChunkSize(nChunkSize), m_current(NewChunk()), m_nRoom(nChunkSize) {}

    long long Length() const { return m_nLength; }
    long long Position() const { return m_nIndex * m_nChunkSize + (m_nChunkSize - m_nRoom); }

    long long Write(const Bytes& bytes) {
        if (!bytes.empty() && m_nRoom > m_nChunkSize) {
            return 0;  // below the start
        }
        std::size_t nDone = 0;
        while (nDone < bytes.size()) {
            const auto nStep = std::min<long long>(static_cast<long long>(bytes.size() - nDone), m_nRoom);
            std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(nDone), nStep,
                        m_pCursorChunk->begin() + (m_nChunkSize - m_nRoom));
            nDone += static_cast<std::size_t>(nStep);
            m_nRoom -= nStep;
            m_nLength = std::max(m_nLength, Position());
            if (m_nRoom == 0) {
                ++m_nIndex;
                if (m_nIndex > Listed()) {
                    AppendCurrent();
                }
                Place(m_nIndex < Listed() ? *m_list[static_cast<std::size_t>(m_nIndex)] : *m_current, 0);
            }
        }
        return 1;
    }

    long long Seek(long long nTarget) {
        const long long nChunk = nTarget / m_nChunkSize;
        const long long nRest = nTarget % m_nChunkSize;
        if (nTarget >= m_nLength) {
            if (nChunk > std::numeric_limits<int>::max()) {
                return -2;
            }
            while (Listed() < nChunk) {
                AppendCurrent();
            }
            Place(*m_current, nRest);  // and the index stays as it was
        } else if (nChunk != m_nIndex) {
            if (nChunk >= 0 && nChunk < Listed()) {
                m_nIndex = nChunk;
                Place(*m_list[static_cast<std::size_t>(nChunk)], nRest);
            }
        } else {
            Place(*m_pCursorChunk, nRest);
        }
        return 0;
    }

    Bytes MemData(std::size_t nRoom) const {
        Bytes all;
        for (const auto& pChunk : m_list) {
            all.insert(all.end(), pChunk->begin(), pChunk->end());
        }
        all.insert(all.end(), m_current->begin(), m_current->end());
        all.resize(std::min(nRoom, static_cast<std::size_t>(m_nLength)));
        return all;
    }

private:
    using Chunk = std::shared_ptr<Bytes>;

    Chunk NewChunk() const { return std::make_shared<Bytes>(static_cast<std::size_t>(m_nChunkSize), '\0'); }
    long long Listed() const { return static_cast<long long>(m_list.size()); }

    void AppendCurrent() {
        m_list.push_back(m_current);
        m_current = NewChunk();
    }

    void Place(Bytes& chunk, long long nOffset) {
        m_pCursorChunk = &chunk;
        m_nRoom = m_nChunkSize - nOffset;
    }

    long long m_nChunkSize;
    std::vector<Chunk> m_list;
    Chunk m_current;
    long long m_nIndex = 0;
    Bytes* m_pCursorChunk = m_current.get();
    long long m_nRoom;
    long long m_nLength = 0;
};

/// Caller memory, whose positions are where they are.
class FlatModel {
public:
    FlatModel(Bytes memory, bool bWrite) : m_memory(std::move(memory)), m_bWrite(bWrite) {}

    long long Size() const { return static_cast<long long>(m_memory.size()); }
    long long Length() const { return m_nLength; }
    long long Position() const { return m_nPosition; }
    long long ReportedPosition() const { return m_bWrite ? m_nLength : m_nPosition; }
    const Bytes& Memory() const { return m_memory; }

    Bytes Read(long long nCount) {
        if (m_bWrite) {
            return {};
        }
        const long long nStep = m_nPosition < 0 ? 0 : std::max(std::min(nCount, Size() - m_nPosition), 0LL);
        const long long nFrom = std::max(m_nPosition, 0LL);
        Bytes bytes(m_memory.begin() + nFrom, m_memory.begin() + nFrom + nStep);
        Advance(nStep);
        return bytes;
    }

    long long Write(const Bytes& bytes) {
        const auto nCount = static_cast<long long>(bytes.size());
        if (!m_bWrite || m_nPosition < 0 || Size() - m_nPosition < nCount) {
            return 0;
        }
        std::copy(bytes.begin(), bytes.end(), m_memory.begin() + m_nPosition);
        Advance(nCount);
        return 1;
    }

    long long Seek(long long nTarget) {
        if (nTarget > Size()) {
            return -2;
        }
        m_nPosition = nTarget;
        return 0;
    }

private:
    void Advance(long long nStep) {
        m_nPosition += nStep;
        // Also a read of no bytes reaches the position that it is at.
        m_nLength = std::max(m_nLength, m_nPosition);
    }

    Bytes m_memory;
    bool m_bWrite;
    long long m_nPosition = 0;
    long long m_nLength = 0;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_BYTES_MEMFILEMODELS_H_
