// A file in memory: over caller memory, or over chunks that grow.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNROBOTMEMFILE_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNROBOTMEMFILE_H_

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "TnRobotKernel/memory.h"

/// A memory file.
///
/// Flat mode (chunk size 0) views caller memory; the cursor is an offset into it. Chunk mode owns
/// equal chunks: the full ones in m_fullChunks, then the current one, which is being filled; the
/// cursor is an offset into m_pCursorMemory. Offsets may lie outside the memory after a Seek below
/// its start; nothing is transferred there.
///
/// In chunk mode m_nChunkIndex says which chunk the cursor counts as being in. A Seek at or past
/// the length moves the cursor into the current chunk without updating it: existing files were
/// written that way, so the two may disagree and positions follow the index.
///
/// Threads: externally synchronised.
class CTnRobotMemFile final : public ITnRobotMemFile {
public:
    bool Open(const char* lpszName, bool bWrite) override;
    long long Read(void* pBuffer, long long nCount) override;
    long long Write(const void* pBuffer, long long nCount) override;
    long long Seek(long long nOffset, ETnSeekDirect eDirect) override;
    long long GetPos() override;
    void Flush() override;
    bool Close() override;
    long long GetTotleLen() override;

    bool OpenMemFile(unsigned char* pData, long long nLength, bool bWrite) override;
    bool OpenWriteFile(long long nChunkSize) override;
    bool GetMemData(char* pBuffer, long long& nLength) override;

private:
    struct FreeMemory {
        void operator()(unsigned char* p) const { std::free(p); }
    };
    using Chunk = std::unique_ptr<unsigned char[], FreeMemory>;

    bool _IsFlat() const { return m_nChunkSize == 0; }
    /// @return whether a piece lies within the cursor's memory without reaching its end, as almost
    ///         all do: there is nothing else to look at then.
    bool _EndsBeforeMemory(long long nCount) const {
        return nCount > 0 && m_nCursor >= 0 && nCount < m_nCursorEnd - m_nCursor;
    }
    /// Moves the cursor on. @return where it was.
    unsigned char* _Advance(long long nCount) {
        unsigned char* pFrom = m_pCursorMemory + m_nCursor;
        m_nCursor += nCount;
        m_nLength = std::max(m_nLength, _ChunkPosition());
        return pFrom;
    }
    // Kept out of their only callers: what they need on the stack would cost the short way a third.
    [[gnu::noinline]] long long _ReadToEnd(void* pBuffer, long long nCount);
    [[gnu::noinline]] long long _WriteToEnd(const void* pBuffer, long long nCount);
    long long _FlatRoom() const;
    long long _ChunkPosition() const { return m_nChunkIndex * m_nChunkSize + m_nCursor; }
    long long _SeekBase(ETnSeekDirect eDirect) const;

    long long _WriteFlat(const unsigned char* pBuffer, long long nCount);
    long long _WriteChunks(const unsigned char* pBuffer, long long nCount);
    void _NextChunk();
    void _AppendCurrentChunk();
    void _PlaceCursor(unsigned char* pChunk, long long nOffset);

    long long _SeekFlat(long long nTarget);
    long long _SeekChunks(long long nTarget);
    long long _SeekPastLength(long long nChunk, long long nOffset);

    void _CopyChunks(char* pBuffer, long long nCount) const;
    void _CheckInvariants() const;
    static Chunk _MakeChunk(long long nSize);

    bool m_bOpen = false;
    unsigned char* m_pData = nullptr;  // caller memory, flat mode
    long long m_nDataLength = 0;
    bool m_bWrite = true;
    long long m_nChunkSize = 0;
    long long m_nLength = 0;  // highest position reached
    std::vector<Chunk> m_fullChunks;
    Chunk m_currentChunk;
    int m_nChunkIndex = 0;
    unsigned char* m_pCursorMemory = nullptr;  // that the cursor is in: a chunk, or all in flat mode
    long long m_nCursorEnd = 0;                // where that memory ends; 0 while the file is closed
    long long m_nCursor = 0;
};

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNROBOTMEMFILE_H_
