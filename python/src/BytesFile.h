/// @file
/// A file over bytes in memory that fails where it ends, as a disk file does: BytesReader and BytesWriter.

#ifndef PYTHON_BYTESFILE_H_
#define PYTHON_BYTESFILE_H_

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

#include "TnRobotKernel/memory.h"

namespace tnrobot::python {

/// What both have in common: nothing but a position can be had.
class BytesFile : public ITnRobotFile {
public:
    bool Open(const char* /*lpszName*/, bool /*bWrite*/) override { return false; }
    long long Read(void* /*pBuffer*/, long long /*nCount*/) override { return -1; }
    long long Write(const void* /*pBuffer*/, long long /*nCount*/) override { return 0; }
    long long Seek(long long /*nOffset*/, ETnSeekDirect /*eDirect*/) override { return -1; }
    void Flush() override {}
    bool Close() override { return true; }
    long long GetTotleLen() override { return 0; }
};

/// Reads bytes of somebody else's. A memory file would take a short read for a success.
class BytesReader final : public BytesFile {
public:
    /// @param[in] pBytes  nBytes bytes, borrowed for its life.
    BytesReader(const char* pBytes, std::size_t nBytes) : m_pBytes(pBytes), m_nBytes(nBytes) {}

    long long Read(void* pBuffer, long long nCount) override {
        if (m_bFailed || pBuffer == nullptr || nCount < 0) {
            return m_bFailed ? -1 : 0;
        }
        const std::size_t nTaken = std::min(static_cast<std::size_t>(nCount), m_nBytes - m_nPosition);
        if (nTaken != 0) {
            std::memcpy(pBuffer, m_pBytes + m_nPosition, nTaken);
        }
        m_nPosition += nTaken;
        m_bFailed = nTaken < static_cast<std::size_t>(nCount);
        return static_cast<long long>(nTaken);
    }
    long long GetPos() override { return m_bFailed ? -1 : static_cast<long long>(m_nPosition); }

    /// @return how many bytes were read.
    std::size_t Position() const { return m_nPosition; }

private:
    const char* m_pBytes;
    std::size_t m_nBytes;
    std::size_t m_nPosition = 0;
    bool m_bFailed = false;
};

/// Collects what is written.
class BytesWriter final : public BytesFile {
public:
    long long Write(const void* pBuffer, long long nCount) override {
        if (nCount < 0 || (pBuffer == nullptr && nCount != 0)) {
            return 0;
        }
        m_strBytes.append(static_cast<const char*>(pBuffer), static_cast<std::size_t>(nCount));
        return 1;
    }
    long long GetPos() override { return static_cast<long long>(m_strBytes.size()); }

    const std::string& Bytes() const { return m_strBytes; }

private:
    std::string m_strBytes;
};

}  // namespace tnrobot::python

#endif  // PYTHON_BYTESFILE_H_
