// The bytes of one data value.

#ifndef TNROBOTKERNEL_SRC_VALUES_TNBYTESTORAGE_H_
#define TNROBOTKERNEL_SRC_VALUES_TNBYTESTORAGE_H_

#include <cstddef>

namespace tnrobot {

/// A byte array whose size and whose readable memory differ: all bytes from the size up to the
/// capacity are zero, there is always at least one of them, and shrinking keeps the capacity.
/// Small contents (every scalar and short texts) need no heap memory.
///
/// Threads: externally synchronised.
class ByteStorage {
public:
    ByteStorage() = default;
    ByteStorage(const ByteStorage&) = delete;
    ByteStorage& operator=(const ByteStorage&) = delete;
    ~ByteStorage();

    unsigned char* Data() { return m_pHeap != nullptr ? m_pHeap : m_inline; }
    const unsigned char* Data() const { return m_pHeap != nullptr ? m_pHeap : m_inline; }
    std::size_t Size() const { return m_nSize; }

    /// Replaces the content by nCount bytes, zeros where pBytes is null.
    void Assign(const void* pBytes, std::size_t nCount);

    /// @return whether nCount bytes and one more are readable, whatever the size.
    bool Reaches(std::size_t nCount) const { return nCount < Capacity(); }

    /// Changes the size; new bytes are zero.
    void Resize(std::size_t nCount);

    /// Makes at least nCount bytes and one more readable, whatever the size.
    void Reserve(std::size_t nCount);

    /// @return whether there is no content, no memory, and no byte that is not zero.
    bool IsCleared() const;

    /// Empties the content and frees its memory.
    void Clear();

private:
    static constexpr std::size_t kInlineCapacity = 24;

    std::size_t Capacity() const { return m_pHeap != nullptr ? m_nHeapCapacity : kInlineCapacity; }

    unsigned char* m_pHeap = nullptr;
    std::size_t m_nHeapCapacity = 0;
    std::size_t m_nSize = 0;
    unsigned char m_inline[kInlineCapacity] = {};
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_VALUES_TNBYTESTORAGE_H_
