// The bytes of one data value.

#ifndef TNROBOTKERNEL_SRC_VALUES_TNBYTESTORAGE_H_
#define TNROBOTKERNEL_SRC_VALUES_TNBYTESTORAGE_H_

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace tnrobot {

/// A byte array whose size and whose readable memory differ: all bytes from the size up to the
/// capacity are zero, there is always at least one of them, and shrinking keeps the capacity.
/// Small contents (every scalar and short texts) need no heap memory; large ones have memory of the
/// system's own, which grows without being copied and is found in large pages.
///
/// Threads: externally synchronised.
class ByteStorage {
public:
    ByteStorage() = default;
    ByteStorage(const ByteStorage&) = delete;
    ByteStorage& operator=(const ByteStorage&) = delete;
    ~ByteStorage() { _FreeMemory(); }

    unsigned char* Data() { return m_pBytes; }
    const unsigned char* Data() const { return m_pBytes; }
    std::size_t Size() const { return m_nSize; }

    /// Replaces the content by nCount bytes, zeros where pBytes is null.
    void Assign(const void* pBytes, std::size_t nCount) {
        Reserve(nCount);
        if (pBytes == nullptr) {
            std::memset(m_pBytes, 0, nCount < m_nSize ? nCount : m_nSize);
        } else {
            std::memmove(m_pBytes, pBytes, nCount);
        }
        _SetSize(nCount);
    }

    /// @return whether nCount bytes and one more are readable, whatever the size.
    bool Reaches(std::size_t nCount) const { return nCount < m_nCapacity; }

    /// Changes the size; new bytes are zero.
    void Resize(std::size_t nCount) {
        Reserve(nCount);
        _SetSize(nCount);
    }

    /// Makes at least nCount bytes and one more readable, whatever the size.
    void Reserve(std::size_t nCount) {
        if (!Reaches(nCount)) {
            _Grow(nCount + 1);
        }
    }

    /// Takes the content and the memory of another, which ends empty.
    void TakeFrom(ByteStorage& other);

    /// @return whether there is no content, no memory, and no byte that is not zero.
    bool IsCleared() const;

    /// Empties the content and frees its memory.
    void Clear() {
        _FreeMemory();
        m_pBytes = m_inline;
        m_nCapacity = kInlineCapacity;
        m_nSize = 0;
        std::memset(m_inline, 0, sizeof(m_inline));
    }

private:
    static constexpr std::size_t kInlineCapacity = 24;

    // From here on the memory is mapped. The C library's allocator maps each piece of this size too; what
    // is smaller it may have at hand, touched already, which is sooner there than any fresh memory.
    static constexpr std::size_t kLeastMapped = std::size_t{32} << 20U;

    bool _IsInline() const { return m_pBytes == m_inline; }
    bool _IsMapped() const { return m_nCapacity >= kLeastMapped; }
    void _Grow(std::size_t nCapacity);
    unsigned char* _Grown(std::size_t nCapacity);
    unsigned char* _GrownOnHeap(std::size_t nCapacity);
    unsigned char* _Mapped(std::size_t nCapacity);
    void _Unmap();
    void _FreeMemory() {
        if (_IsInline()) {
            return;
        }
        if (_IsMapped()) {
            _Unmap();
        } else {
            std::free(m_pBytes);
        }
    }
    void _SetSize(std::size_t nCount) {
        if (nCount < m_nSize) {
            std::memset(m_pBytes + nCount, 0, m_nSize - nCount);
        }
        m_nSize = nCount;
    }

    unsigned char* m_pBytes = m_inline;  // or from the heap, or mapped
    std::size_t m_nCapacity = kInlineCapacity;
    std::size_t m_nSize = 0;
    unsigned char m_inline[kInlineCapacity] = {};
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_VALUES_TNBYTESTORAGE_H_
