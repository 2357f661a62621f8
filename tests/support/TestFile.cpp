#include "support/TestFile.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tntest {

namespace {

bool Fails(int nCall, int nFailing, bool bFromThenOn) {
    return nFailing != 0 && (nCall == nFailing || (bFromThenOn && nCall > nFailing));
}

}  // namespace

std::atomic<int> TestFile::s_nLive{0};

TestFile::TestFile(Bytes bytes) : m_bytes(std::move(bytes)), m_nTaken(m_bytes.size()) {
    ++s_nLive;
}

TestFile::~TestFile() {
    --s_nLive;
}

void TestFile::FailWrite(int nCall, bool bFromThenOn) {
    m_nFailWrite = nCall;
    m_bWritesStayFailed = bFromThenOn;
}

void TestFile::FailRead(int nCall, long long nAnswer, bool bFromThenOn) {
    m_nFailRead = nCall;
    m_nReadAnswer = nAnswer;
    m_bReadsStayFailed = bFromThenOn;
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
    ++m_nReads;
    m_nLargestRead = std::max(m_nLargestRead, nCount);
    long long nMost = nCount;
    if (Fails(m_nReads, m_nFailRead, m_bReadsStayFailed)) {
        if (m_nReadAnswer < kShort) {
            return m_nReadAnswer;
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
    ++m_nWrites;
    if (Fails(m_nWrites, m_nFailWrite, m_bWritesStayFailed)) {
        return 0;
    }
    const unsigned char* pFirst = static_cast<const unsigned char*>(pBuffer);
    m_bytes.insert(m_bytes.end(), pFirst, pFirst + nCount);
    return 1;
}

long long TestFile::Seek(long long nOffset, ETnSeekDirect /*eDirect*/) {
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
