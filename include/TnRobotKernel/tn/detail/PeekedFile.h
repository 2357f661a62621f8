/// @file
/// A file that can be asked whether it goes on. Used by tn/group_files.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_PEEKEDFILE_H_
#define TNROBOTKERNEL_TN_DETAIL_PEEKEDFILE_H_

#include <cerrno>
#include <system_error>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/tn/error.h"

namespace tn::detail {

// Stands in front of a file that is read, and holds the byte that a look at what comes next has taken: a
// file has no position any more once it was asked for more than it has, and going back costs it its
// buffer.
//
// Lifetime: holds a reference to the file behind it.
// Threads:  externally synchronised.
class PeekedFile final : public ITnRobotFile {
public:
    explicit PeekedFile(ITnRobotFile& file) : m_file(&file, kRetain) {}

    // Whether there is one more byte. After an answer of false the file has failed.
    bool GoesOn() {
        m_bPeeked = m_bPeeked || Ask(&m_byPeeked, 1) > 0;
        return m_bPeeked;
    }

    // What the system said when a read failed; no reason where the file was at its end, or has not failed.
    const std::error_code& ReadError() const { return m_readError; }

    bool Open(const char* /*lpszName*/, bool /*bWrite*/) override { return false; }

    long long Read(void* pBuffer, long long nCount) override {
        if (!m_bPeeked || pBuffer == nullptr || nCount <= 0) {
            return Ask(pBuffer, nCount);
        }
        auto* const pBytes = static_cast<unsigned char*>(pBuffer);
        *pBytes = m_byPeeked;
        m_bPeeked = false;
        const long long nMore = nCount > 1 ? Ask(pBytes + 1, nCount - 1) : 0;
        return nMore > 0 ? nMore + 1 : 1;
    }

    long long Write(const void* /*pBuffer*/, long long /*nCount*/) override { return 0; }

    long long Seek(long long nOffset, ETnSeekDirect eDirect) override {
        m_bPeeked = false;
        return m_file->Seek(nOffset, eDirect);
    }

    long long GetPos() override {
        const long long nPosition = m_file->GetPos();
        return m_bPeeked && nPosition > 0 ? nPosition - 1 : nPosition;
    }

    void Flush() override {}
    bool Close() override { return m_file->Close(); }
    long long GetTotleLen() override { return m_file->GetTotleLen(); }

private:
    // A file that ends leaves errno alone, and a file that has failed already is not asked for its reason.
    long long Ask(void* pBuffer, long long nCount) {
        errno = 0;
        const long long nRead = m_file->Read(pBuffer, nCount);
        if (nRead < nCount && errno != 0 && !m_readError) {
            m_readError = SystemError();
        }
        return nRead;
    }

    const TnRobotPtr<ITnRobotFile> m_file;
    bool m_bPeeked = false;  // m_byPeeked comes next
    unsigned char m_byPeeked = 0;
    std::error_code m_readError;
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_PEEKEDFILE_H_
