// A standard file stream, with the short way of FileBuffer for small pieces; the stream's state is what
// callers see as the file's.

#include "memory/TnRobotFile.h"

#include "checked/TnChecked.h"
#include "core/TnOpenFile.h"

namespace {

constexpr std::streamsize kBufferSize = std::streamsize{64} * 1024;

}  // namespace

ITnRobotFile::~ITnRobotFile() = default;

CTnRobotFile::~CTnRobotFile() {
    CTnRobotFile::Close();
}

bool CTnRobotFile::Open(const char* lpszName, bool bWrite) {
    if (m_buffer.is_open() || lpszName == nullptr) {
        return false;
    }
    // Without memory for its buffer the file must not be open already.
    if (m_memory == nullptr) {
        m_memory.reset(new char[kBufferSize]);
        m_buffer.pubsetbuf(m_memory.get(), kBufferSize);
    }
    const bool bOpened = tnrobot::OpenFile(m_buffer, lpszName, bWrite ? std::ios::out : std::ios::in);
    m_stream.clear(bOpened ? std::ios::goodbit : std::ios::failbit);
    return bOpened;
}

// A read that meets the end sets the stream's state, so every further one answers -1 until the
// file is opened again: callers rely on it.
long long CTnRobotFile::Read(void* pBuffer, long long nCount) {
    if (pBuffer != nullptr && m_stream.good() && m_buffer.Read(pBuffer, nCount)) {
        return nCount;
    }
    if (!_IsUsable() || (pBuffer == nullptr && nCount > 0)) {
        return -1;
    }
    if (nCount <= 0) {
        return 0;
    }
    m_stream.read(static_cast<char*>(pBuffer), nCount);
    return m_stream.gcount();
}

long long CTnRobotFile::Write(const void* pBuffer, long long nCount) {
    if (pBuffer != nullptr && m_stream.good() && m_buffer.Write(pBuffer, nCount)) {
        return 1;
    }
    if (!_IsUsable() || nCount < 0 || (pBuffer == nullptr && nCount > 0)) {
        return 0;
    }
    m_stream.write(static_cast<const char*>(pBuffer), nCount);
    return m_stream.good() ? 1 : 0;
}

// The offset always counts from the beginning, and the position is always that of the output
// side: applications pass any direction. Do not "fix". What waits to be written is written first,
// so that a failure of it is known as one.
long long CTnRobotFile::Seek(long long nOffset, ETnSeekDirect /*eDirect*/) {
    if (!_IsUsable() || nOffset < 0) {
        return -1;
    }
    m_stream.flush();
    m_stream.seekp(nOffset, std::ios::beg);
    return m_stream.good() ? 0 : -1;
}

long long CTnRobotFile::GetPos() {
    return _IsUsable() ? static_cast<long long>(m_stream.tellp()) : -1;
}

void CTnRobotFile::Flush() {
    if (_IsUsable()) {
        m_stream.flush();
    }
}

bool CTnRobotFile::Close() {
    if (!m_buffer.is_open()) {
        return false;
    }
    if (m_stream.bad()) {
        m_buffer.Drop();
    }
    if (m_buffer.close() == nullptr) {
        m_stream.setstate(std::ios::failbit);
    }
    return true;
}

// A disk file does not report its length: callers take 0 for "unknown".
long long CTnRobotFile::GetTotleLen() {
    return 0;
}

int TnCreateRobotFile(ITnRobotFile** ppFile) {
    *ppFile = tnrobot::Watch(new CTnRobotFile);
    return 1;
}
