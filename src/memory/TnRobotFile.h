// A file on disk.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNROBOTFILE_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNROBOTFILE_H_

#include <cstddef>
#include <cstring>
#include <fstream>
#include <istream>
#include <memory>

#include "TnRobotKernel/memory.h"

/// A disk file over a standard file stream; the stream's state bits are the file's error state.
///
/// A file that could not be written ends where the failure was: what still waits to be written is
/// dropped when the file is closed. The stream's buffer does not know how much of it has reached
/// the disk and would write all of it once more, behind what is there, if there is room again.
///
/// Threads: externally synchronised.
class CTnRobotFile final : public ITnRobotFile {
public:
    CTnRobotFile() = default;
    ~CTnRobotFile() override;

    bool Open(const char* lpszName, bool bWrite) override;
    long long Read(void* pBuffer, long long nCount) override;
    long long Write(const void* pBuffer, long long nCount) override;
    long long Seek(long long nOffset, ETnSeekDirect eDirect) override;
    long long GetPos() override;
    void Flush() override;
    bool Close() override;
    long long GetTotleLen() override;

private:
    // A file buffer whose waiting bytes can be dropped, and which copies small pieces itself: where
    // its memory has them or takes them, no state can change that the stream would have to look at.
    // It answers false, with nothing done, where it is the stream's turn.
    class FileBuffer final : public std::filebuf {
    public:
        void Drop() { setp(pbase(), epptr()); }

        bool Read(void* pBytes, long long nCount) {
            if (nCount <= 0 || nCount > kSmall || nCount > egptr() - gptr()) {
                return false;
            }
            std::memcpy(pBytes, gptr(), static_cast<std::size_t>(nCount));
            gbump(static_cast<int>(nCount));
            return true;
        }

        bool Write(const void* pBytes, long long nCount) {
            if (nCount <= 0 || nCount > kSmall || nCount >= epptr() - pptr()) {
                return false;
            }
            std::memcpy(pptr(), pBytes, static_cast<std::size_t>(nCount));
            pbump(static_cast<int>(nCount));
            return true;
        }

    private:
        static constexpr long long kSmall = 512;
    };

    bool _IsUsable() const { return m_buffer.is_open() && m_stream.good(); }

    // The buffer's own would have 8 KiB: a system call for every one of them. It is declared first,
    // because the last bytes are written from it when the file goes.
    std::unique_ptr<char[]> m_memory;
    FileBuffer m_buffer;
    std::iostream m_stream{&m_buffer};
};

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNROBOTFILE_H_
