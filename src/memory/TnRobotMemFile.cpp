// Each operation has a flat form, over the caller's memory, and a chunked one, over memory that grows;
// pieces that end before the cursor's memory does take a short way through both.

#include "memory/TnRobotMemFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

#include "checked/TnChecked.h"

namespace {

constexpr long long kPastEnd = -2;

// A position that overflows is as far outside the memory as one can be.
long long AddSaturated(long long a, long long b) {
    long long nSum = 0;
    if (__builtin_add_overflow(a, b, &nSum)) {
        return a < 0 ? std::numeric_limits<long long>::min() : std::numeric_limits<long long>::max();
    }
    return nSum;
}

// The C library copies what is larger than the caches past them, and takes up to three times as long for it
// where the target lies a little behind the source within their pages: what is read next then seems to
// wait for what was just written. Smaller pieces go through the caches, wherever they lie.
constexpr long long kLargePiece = 8LL << 20U;

[[gnu::cold]] void CopyLargePiece(void* pTo, const void* pFrom, long long nCount) {
    constexpr std::size_t kStep = std::size_t{1} << 20U;
    constexpr std::uintptr_t kPage = 4096;
    constexpr std::uintptr_t kLittle = 512;
    auto* pTarget = static_cast<unsigned char*>(pTo);
    const auto* pSource = static_cast<const unsigned char*>(pFrom);
    auto nLeft = static_cast<std::size_t>(nCount);
    const std::uintptr_t nBehind =
        (reinterpret_cast<std::uintptr_t>(pTarget) - reinterpret_cast<std::uintptr_t>(pSource)) % kPage;
    if (nBehind != 0 && nBehind < kLittle) {
        for (; nLeft > kStep; nLeft -= kStep, pTarget += kStep, pSource += kStep) {
            std::memcpy(pTarget, pSource, kStep);
        }
    }
    std::memcpy(pTarget, pSource, nLeft);
}

// Of the pieces that pass through a file most are numbers, which are copied sooner than a function
// is called.
inline void CopyPiece(void* pTo, const void* pFrom, long long nCount) {
    constexpr long long kNumber = 4;
    if (nCount == kNumber) {
        std::memcpy(pTo, pFrom, kNumber);
    } else if (nCount == 1) {
        std::memcpy(pTo, pFrom, 1);
    } else if (nCount < kLargePiece) {
        std::memcpy(pTo, pFrom, static_cast<std::size_t>(nCount));
    } else {
        CopyLargePiece(pTo, pFrom, nCount);
    }
}

}  // namespace

ITnRobotMemFile::~ITnRobotMemFile() = default;

bool CTnRobotMemFile::Open(const char* /*lpszName*/, bool /*bWrite*/) {
    return false;  // a memory file has no name
}

bool CTnRobotMemFile::OpenMemFile(unsigned char* pData, long long nLength, bool bWrite) {
    if (m_bOpen || pData == nullptr || nLength <= 0) {
        return false;
    }
    m_pData = pData;
    m_nDataLength = nLength;
    m_bWrite = bWrite;
    m_nChunkSize = 0;
    m_nLength = 0;
    m_nChunkIndex = 0;
    m_nCursorEnd = nLength;
    _PlaceCursor(m_pData, 0);
    m_bOpen = true;
    return true;
}

bool CTnRobotMemFile::OpenWriteFile(long long nChunkSize) {
    if (m_bOpen || nChunkSize <= 0) {
        return false;
    }
    m_currentChunk = _MakeChunk(nChunkSize);
    m_bWrite = true;
    m_nChunkSize = nChunkSize;
    m_nLength = 0;
    m_nChunkIndex = 0;
    m_nCursorEnd = nChunkSize;
    _PlaceCursor(m_currentChunk.get(), 0);
    m_bOpen = true;
    return true;
}

// Zeroed by the system where it can, so that a large chunk costs nothing until it is written.
CTnRobotMemFile::Chunk CTnRobotMemFile::_MakeChunk(long long nSize) {
    Chunk chunk(static_cast<unsigned char*>(std::calloc(static_cast<std::size_t>(nSize), 1)));
    if (!chunk) {
        throw std::bad_alloc();
    }
    return chunk;
}

long long CTnRobotMemFile::_FlatRoom() const {
    return m_nCursor < 0 ? 0 : m_nDataLength - m_nCursor;
}

long long CTnRobotMemFile::Read(void* pBuffer, long long nCount) {
    if (!m_bWrite && pBuffer != nullptr && _EndsBeforeMemory(nCount)) {
        CopyPiece(pBuffer, _Advance(nCount), nCount);
        return nCount;
    }
    return _ReadToEnd(pBuffer, nCount);
}

long long CTnRobotMemFile::_ReadToEnd(void* pBuffer, long long nCount) {
    if (!m_bOpen || m_bWrite || pBuffer == nullptr) {
        return 0;
    }
    const long long nCopied = std::max(std::min(_FlatRoom(), nCount), 0LL);
    if (nCopied > 0) {
        std::memcpy(pBuffer, m_pData + m_nCursor, static_cast<std::size_t>(nCopied));
    }
    m_nCursor += nCopied;
    m_nLength = std::max(m_nLength, m_nCursor);
    return nCopied;
}

long long CTnRobotMemFile::Write(const void* pBuffer, long long nCount) {
    if (m_bWrite && pBuffer != nullptr && _EndsBeforeMemory(nCount)) {
        CopyPiece(_Advance(nCount), pBuffer, nCount);
        _CheckInvariants();
        return 1;
    }
    return _WriteToEnd(pBuffer, nCount);
}

long long CTnRobotMemFile::_WriteToEnd(const void* pBuffer, long long nCount) {
    if (!m_bOpen || !m_bWrite || (pBuffer == nullptr && nCount > 0)) {
        return 0;
    }
    const auto* pBytes = static_cast<const unsigned char*>(pBuffer);
    const long long nResult = _IsFlat() ? _WriteFlat(pBytes, nCount) : _WriteChunks(pBytes, nCount);
    _CheckInvariants();
    return nResult;
}

long long CTnRobotMemFile::_WriteFlat(const unsigned char* pBuffer, long long nCount) {
    if (nCount < 0 || m_nCursor < 0 || _FlatRoom() < nCount) {
        return 0;
    }
    if (nCount > 0) {
        std::memcpy(m_pData + m_nCursor, pBuffer, static_cast<std::size_t>(nCount));
    }
    m_nCursor += nCount;
    m_nLength = std::max(m_nLength, m_nCursor);
    return 1;
}

long long CTnRobotMemFile::_WriteChunks(const unsigned char* pBuffer, long long nCount) {
    if (nCount < 1) {
        return 1;
    }
    if (m_nCursor < 0) {
        return 0;
    }
    while (nCount > 0) {
        const long long nPiece = std::min(nCount, m_nChunkSize - m_nCursor);
        std::memcpy(m_pCursorMemory + m_nCursor, pBuffer, static_cast<std::size_t>(nPiece));
        m_nCursor += nPiece;
        pBuffer += nPiece;
        nCount -= nPiece;
        m_nLength = std::max(m_nLength, _ChunkPosition());
        if (m_nCursor == m_nChunkSize) {
            _NextChunk();
        }
    }
    return 1;
}

void CTnRobotMemFile::_NextChunk() {
    const auto nNext = static_cast<std::size_t>(m_nChunkIndex) + 1;
    if (nNext > m_fullChunks.size()) {
        _AppendCurrentChunk();
    }
    ++m_nChunkIndex;
    _PlaceCursor(nNext < m_fullChunks.size() ? m_fullChunks[nNext].get() : m_currentChunk.get(), 0);
}

// The new chunk exists and the list has room before anything moves.
void CTnRobotMemFile::_AppendCurrentChunk() {
    Chunk chunk = _MakeChunk(m_nChunkSize);
    m_fullChunks.emplace_back();
    m_fullChunks.back() = std::move(m_currentChunk);
    m_currentChunk = std::move(chunk);
}

void CTnRobotMemFile::_PlaceCursor(unsigned char* pChunk, long long nOffset) {
    m_pCursorMemory = pChunk;
    m_nCursor = nOffset;
}

long long CTnRobotMemFile::_SeekBase(ETnSeekDirect eDirect) const {
    switch (eDirect) {
        case SEEK_DIRECT_CURRENT:
            return _IsFlat() ? m_nCursor : _ChunkPosition();
        case SEEK_DIRECT_END:
            return m_nLength;
        default:
            return 0;
    }
}

long long CTnRobotMemFile::Seek(long long nOffset, ETnSeekDirect eDirect) {
    if (!m_bOpen) {
        return -1;
    }
    const long long nTarget = AddSaturated(nOffset, _SeekBase(eDirect));
    const long long nResult = _IsFlat() ? _SeekFlat(nTarget) : _SeekChunks(nTarget);
    _CheckInvariants();
    return nResult;
}

// A position below the start is accepted; nothing is read or written there.
long long CTnRobotMemFile::_SeekFlat(long long nTarget) {
    if (nTarget > m_nDataLength) {
        return kPastEnd;
    }
    m_nCursor = nTarget;
    return 0;
}

long long CTnRobotMemFile::_SeekChunks(long long nTarget) {
    const long long nChunk = nTarget / m_nChunkSize;
    const long long nOffset = nTarget % m_nChunkSize;
    if (nTarget >= m_nLength) {
        return _SeekPastLength(nChunk, nOffset);
    }
    if (nChunk == m_nChunkIndex) {
        m_nCursor = nOffset;  // in the chunk that the cursor is in
        return 0;
    }
    // Only the full chunks are walked: a target in the current chunk moves nothing, and still
    // counts as a success.
    if (nChunk >= 0 && nChunk < static_cast<long long>(m_fullChunks.size())) {
        m_nChunkIndex = static_cast<int>(nChunk);
        _PlaceCursor(m_fullChunks[static_cast<std::size_t>(nChunk)].get(), nOffset);
    }
    return 0;
}

// The chunk index deliberately stays as it was: see the class comment.
long long CTnRobotMemFile::_SeekPastLength(long long nChunk, long long nOffset) {
    if (nChunk > std::numeric_limits<int>::max()) {
        return kPastEnd;
    }
    while (static_cast<long long>(m_fullChunks.size()) < nChunk) {
        _AppendCurrentChunk();
    }
    _PlaceCursor(m_currentChunk.get(), nOffset);
    return 0;
}

long long CTnRobotMemFile::GetPos() {
    if (!m_bOpen) {
        return -1;
    }
    return m_bWrite ? m_nLength : m_nCursor;
}

void CTnRobotMemFile::Flush() {}

bool CTnRobotMemFile::Close() {
    if (m_bOpen) {
        m_fullChunks.clear();
        m_currentChunk.reset();
        m_nCursorEnd = 0;
        _PlaceCursor(nullptr, 0);
        m_pData = nullptr;
        m_bOpen = false;
    }
    return true;
}

long long CTnRobotMemFile::GetTotleLen() {
    return m_nLength;
}

bool CTnRobotMemFile::GetMemData(char* pBuffer, long long& nLength) {
    const long long nCopied = std::min(nLength, m_nLength);
    nLength = m_nLength;
    if (pBuffer == nullptr || !m_bOpen || nCopied < 1) {
        return true;
    }
    if (_IsFlat()) {
        std::memcpy(pBuffer, m_pData, static_cast<std::size_t>(nCopied));
    } else {
        _CopyChunks(pBuffer, nCopied);
    }
    return true;
}

void CTnRobotMemFile::_CopyChunks(char* pBuffer, long long nCount) const {
    for (const Chunk& chunk : m_fullChunks) {
        const long long nPiece = std::min(nCount, m_nChunkSize);
        std::memcpy(pBuffer, chunk.get(), static_cast<std::size_t>(nPiece));
        pBuffer += nPiece;
        nCount -= nPiece;
        if (nCount == 0) {
            return;
        }
    }
    std::memcpy(pBuffer, m_currentChunk.get(), static_cast<std::size_t>(nCount));
}

// What an open file's writing and reading rely on; only checked builds look.
void CTnRobotMemFile::_CheckInvariants() const {
    const long long nEnd = _IsFlat() ? m_nDataLength : m_nChunkSize - 1;
    tnrobot::CheckInvariant(*this, m_nCursor <= nEnd, "has its cursor behind its memory");
    tnrobot::CheckInvariant(*this, !_IsFlat() || m_nLength <= m_nDataLength, "is longer than its memory");
    tnrobot::CheckInvariant(*this, _IsFlat() || (m_currentChunk && m_pCursorMemory != nullptr), "has no chunk");
    const bool bIndexed = m_nChunkIndex >= 0 && static_cast<std::size_t>(m_nChunkIndex) <= m_fullChunks.size();
    tnrobot::CheckInvariant(*this, _IsFlat() || bIndexed, "counts its cursor in a chunk that is not there");
}

int TnCreateRobotMemFile(ITnRobotMemFile** ppFile) {
    *ppFile = tnrobot::Watch(new CTnRobotMemFile);
    return 1;
}
