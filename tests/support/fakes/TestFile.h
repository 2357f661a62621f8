// A file over a byte vector whose reads, writes and seeks can be made to fail at a chosen call.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTFILE_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTFILE_H_

#include <atomic>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"
#include "support/bytes/Bytes.h"

namespace tntest {

enum class FileCall { kRead, kWrite, kSeek };

/// Which call of a file fails, and how.
struct FileFault {
    FileCall eCall;
    int nCall;          ///< from 1
    long long nAnswer;  ///< 0 or -1 without a byte, TestFile::kShort with one
    bool bFromThenOn;   ///< and all later calls of the kind too
};

/// Reads from the front, writes at the back. A read at the end answers 0.
class TestFile final : public ITnRobotFile {
public:
    /// As an answer of a failing call: one byte only. A read delivers it and answers 1; a write
    /// takes it and answers 0, as its answer is a success flag.
    static constexpr long long kShort = 1;

    explicit TestFile(Bytes bytes = {});
    ~TestFile() override;

    static TnRobotPtr<TestFile> Create(Bytes bytes = {}) { return tn::Adopt(new TestFile(std::move(bytes))); }

    /// Files alive now.
    static int LiveCount() { return s_nLive.load(); }

    void Fail(const FileFault& fault);

    /// The nCall-th write (from 1) answers 0, and with bFromThenOn all later ones too.
    void FailWrite(int nCall, bool bFromThenOn = false) { Fail({FileCall::kWrite, nCall, 0, bFromThenOn}); }

    /// The nCall-th read (from 1) answers nAnswer: 0 or -1 without a byte, kShort with one.
    void FailRead(int nCall, long long nAnswer, bool bFromThenOn = false) {
        Fail({FileCall::kRead, nCall, nAnswer, bFromThenOn});
    }

    /// Every read delivers at most this many bytes.
    void LimitReads(long long nMost) { m_nMostPerRead = nMost; }

    const Bytes& Content() const { return m_bytes; }
    /// Bytes written since the last call.
    Bytes TakeNew();
    std::size_t Position() const { return m_nPosition; }
    int References() const { return m_nRefCount.load(); }
    int ReadCalls() const { return m_reads.nCalls; }
    int WriteCalls() const { return m_writes.nCalls; }
    int SeekCalls() const { return m_seeks.nCalls; }
    /// Calls that have failed as they were told to.
    int FailedCalls() const { return m_reads.nFailed + m_writes.nFailed + m_seeks.nFailed; }
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
    // The calls of one kind.
    struct Calls {
        FileFault fault{FileCall::kRead, 0, 0, false};
        int nCalls = 0;
        int nFailed = 0;

        /// Counts a call. @return whether it fails.
        bool Next();
    };

    static std::atomic<int> s_nLive;

    Calls& CallsOf(FileCall eCall);

    Bytes m_bytes;
    std::size_t m_nPosition = 0;
    std::size_t m_nTaken = 0;
    Calls m_reads;
    Calls m_writes;
    Calls m_seeks;
    int m_nFlushes = 0;
    long long m_nMostPerRead = -1;
    long long m_nLargestRead = 0;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTFILE_H_
