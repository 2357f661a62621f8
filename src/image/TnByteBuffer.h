// A byte array whose content is not initialised: images are megabytes that are overwritten at once.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNBYTEBUFFER_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNBYTEBUFFER_H_

#include <cstddef>
#include <memory>

namespace tnrobot {

/// Threads: externally synchronised.
class ByteBuffer {
public:
    /// Replaces the content by nSize bytes of any value. The old content is freed first.
    void Allocate(std::size_t nSize) {
        Clear();
        m_bytes.reset(new unsigned char[nSize]);
        m_nSize = nSize;
    }

    void Clear() {
        m_bytes.reset();
        m_nSize = 0;
    }

    unsigned char* Data() { return m_bytes.get(); }
    const unsigned char* Data() const { return m_bytes.get(); }
    std::size_t Size() const { return m_nSize; }
    bool Empty() const { return m_nSize == 0; }

private:
    std::unique_ptr<unsigned char[]> m_bytes;
    std::size_t m_nSize = 0;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNBYTEBUFFER_H_
