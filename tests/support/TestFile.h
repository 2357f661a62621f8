// A file over a byte vector whose reads and writes can be made to fail at a chosen call.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_TESTFILE_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_TESTFILE_H_

#include <atomic>

#include "TnRobotKernel/memory.h"
#include "support/Bytes.h"
#include "support/Held.h"

namespace tntest {

/// Reads from the front, writes at the back. A read at the end answers 0.
class TestFile final : public ITnRobotFile {
public:
    static constexpr long long kShort = 1;  ///< as an answer of FailRead: deliver one byte only

    explicit TestFile(Bytes bytes = {});
    ~TestFile() override;

    static Held<TestFile> Create(Bytes bytes = {}) { return Hold(new TestFile(std::move(bytes))); }

    /// Files alive now.
    static int LiveCount() { return s_nLive.load(); }

    /// The nCall-th write (from 1) fails, and with bFromThenOn all later ones too.
    void FailWrite(int nCall, bool bFromThenOn = false);

    /// The nCall-th read (from 1) answers nAnswer: 0 or -1 without a byte, kShort with one.
    void FailRead(int nCall, long long nAnswer, bool bFromThenOn = false);

    /// Every read delivers at most this many bytes.
    void LimitReads(long long nMost) { m_nMostPerRead = nMost; }

    const Bytes& Content() const { return m_bytes; }
    /// Bytes written since the last call.
    Bytes TakeNew();
    std::size_t Position() const { return m_nPosition; }
    int References() const { return m_nRefCount.load(); }
    int ReadCalls() const { return m_nReads; }
    int WriteCalls() const { return m_nWrites; }
    int FlushCalls() const { return m_nFlushes; }
    long long LargestRead() const { return m_nLargestRead; }

    bool Open(const char* lpszName, bool bWrite) override;
    long long Read(void* pBuffer, long long nCount) override;
    long long Write(const void* pBuffer, long long nCount) override;
    long long Seek(long long nOffset, ETnSeekDirect eDirect) override;
    long long GetPos() override;
    void Flush() override;
    bool Close() override;
    long long GetTotleLen() override;

private:
    static std::atomic<int> s_nLive;

    Bytes m_bytes;
    std::size_t m_nPosition = 0;
    std::size_t m_nTaken = 0;
    int m_nReads = 0;
    int m_nWrites = 0;
    int m_nFlushes = 0;
    int m_nFailRead = 0;
    int m_nFailWrite = 0;
    bool m_bReadsStayFailed = false;
    bool m_bWritesStayFailed = false;
    long long m_nReadAnswer = 0;
    long long m_nMostPerRead = -1;
    long long m_nLargestRead = 0;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_TESTFILE_H_
