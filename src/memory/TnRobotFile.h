// A file on disk.

#ifndef TNROBOTKERNEL_SRC_MEMORY_TNROBOTFILE_H_
#define TNROBOTKERNEL_SRC_MEMORY_TNROBOTFILE_H_

#include <fstream>
#include <memory>

#include "TnRobotKernel/memory.h"

/// A disk file over a standard file stream; the stream's state bits are the file's error state.
///
/// Threads: externally synchronised.
class CTnRobotFile final : public ITnRobotFile {
public:
    bool Open(const char* lpszName, bool bWrite) override;
    long long Read(void* pBuffer, long long nCount) override;
    long long Write(const void* pBuffer, long long nCount) override;
    long long Seek(long long nOffset, ETnSeekDirect eDirect) override;
    long long GetPos() override;
    void Flush() override;
    bool Close() override;
    long long GetTotleLen() override;

private:
    bool _IsUsable() const { return m_stream.is_open() && m_stream.good(); }

    // The stream's own buffer would be 8 KiB: a system call for every one of them. Declared before
    // the stream, which writes its last bytes when it goes.
    std::unique_ptr<char[]> m_buffer;
    std::fstream m_stream;
};

#endif  // TNROBOTKERNEL_SRC_MEMORY_TNROBOTFILE_H_
