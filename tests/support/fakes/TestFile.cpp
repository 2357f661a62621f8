#include "support/fakes/TestFile.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tntest {

std::atomic<int> TestFile::s_nLive{0};

TestFile::TestFile(Bytes bytes) : m_bytes(std::move(bytes)), m_nTaken(m_bytes.size()) {
    ++s_nLive;
}

TestFile::~TestFile() {
    --s_nLive;
}

bool TestFile::Calls::Next() {
    ++nCalls;
    const bool bFails = fault.nCall != 0 && (nCalls == fault.nCall || (fault.bFromThenOn && nCalls > fault.nCall));
    nFailed += bFails ? 1 : 0;
    return bFails;
}

TestFile::Calls& TestFile::CallsOf(FileCall eCall) {
    switch (eCall) {
        case FileCall::kRead:
            return m_reads;
        case FileCall::kWrite:
            return m_writes;
        case FileCall::kSeek:
            break;
    }
    return m_seeks;
}

void TestFile::Fail(const FileFault& fault) {
    CallsOf(fault.eCall).fault = fault;
}

Bytes TestFile::TakeNew() {
    Bytes fresh(m_bytes.begin() + static_cast<std::ptrdiff_t>(m_nTaken), m_bytes.end());
    m_nTaken = m_bytes.size();
    return fresh;
}

bool TestFile::Open(const char* /*lpszName*/, bool /*bWrite*/) {
    return false;
}

long long TestFile::Read(void* pBuffer, long long nCount) {
    m_nLargestRead = std::max(m_nLargestRead, nCount);
    long long nMost = nCount;
    if (m_reads.Next()) {
        if (m_reads.fault.nAnswer < kShort) {
            return m_reads.fault.nAnswer;
        }
        nMost = std::min(nMost, kShort);
    }
    if (m_nMostPerRead >= 0) {
        nMost = std::min(nMost, m_nMostPerRead);
    }
    nMost = std::min(nMost, static_cast<long long>(m_bytes.size() - m_nPosition));
    if (nMost <= 0) {
        return 0;
    }
    std::memcpy(pBuffer, m_bytes.data() + m_nPosition, static_cast<std::size_t>(nMost));
    m_nPosition += static_cast<std::size_t>(nMost);
    return nMost;
}

long long TestFile::Write(const void* pBuffer, long long nCount) {
    const unsigned char* pFirst = static_cast<const unsigned char*>(pBuffer);
    if (m_writes.Next()) {
        if (m_writes.fault.nAnswer < kShort) {
            return m_writes.fault.nAnswer;
        }
        m_bytes.insert(m_bytes.end(), pFirst, pFirst + std::min(nCount, kShort));
        return 0;
    }
    m_bytes.insert(m_bytes.end(), pFirst, pFirst + nCount);
    return 1;
}

long long TestFile::Seek(long long nOffset, ETnSeekDirect /*eDirect*/) {
    if (m_seeks.Next()) {
        return -1;
    }
    m_nPosition = std::min(static_cast<std::size_t>(nOffset), m_bytes.size());
    return 0;
}

long long TestFile::GetPos() {
    return static_cast<long long>(m_nPosition);
}

void TestFile::Flush() {
    ++m_nFlushes;
}

bool TestFile::Close() {
    return true;
}

long long TestFile::GetTotleLen() {
    return static_cast<long long>(m_bytes.size());
}

}  // namespace tntest
