// Bytes of a file, and a reader that never leaves them.

#ifndef TNROBOT_INSPECT_BYTES_H_
#define TNROBOT_INSPECT_BYTES_H_

#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

using Bytes = std::vector<unsigned char>;

/// Some bytes of a file, valid as long as the file's bytes are.
struct ByteRange {
    const unsigned char* pData = nullptr;
    std::size_t nSize = 0;

    bool operator==(const ByteRange& other) const {
        return nSize == other.nSize && (nSize == 0 || std::memcmp(pData, other.pData, nSize) == 0);
    }
    std::string_view View() const { return {reinterpret_cast<const char*>(pData), nSize}; }
};

inline ByteRange RangeOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

/// Takes numbers and runs of bytes from front to back. What is not there whole is not taken.
class ByteReader {
public:
    explicit ByteReader(ByteRange bytes, std::size_t nPosition = 0) : m_bytes(bytes), m_nPosition(nPosition) {}

    std::size_t Position() const { return m_nPosition; }
    std::size_t Left() const { return m_bytes.nSize - m_nPosition; }

    /// @return false, with nothing taken, when fewer than nSize bytes are left.
    bool Take(std::size_t nSize, ByteRange& taken) {
        if (nSize > Left()) {
            return false;
        }
        taken = {m_bytes.pData + m_nPosition, nSize};
        m_nPosition += nSize;
        return true;
    }

    /// Takes a number that was saved as its bytes in memory, little-endian.
    template <typename Number>
    bool Take(Number& number) {
        ByteRange taken;
        if (!Take(sizeof(Number), taken)) {
            return false;
        }
        std::memcpy(&number, taken.pData, sizeof(Number));
        return true;
    }

private:
    ByteRange m_bytes;
    std::size_t m_nPosition;
};

#endif  // TNROBOT_INSPECT_BYTES_H_
