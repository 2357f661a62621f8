// The slow ways of the storage: growing, moving and testing for emptiness.

#include "values/TnByteStorage.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "memory/TnMappedMemory.h"

namespace tnrobot {

// Grows to exactly what is needed. Memory asked for at once is not touched here: the system gives
// large pieces as zeros, and they cost nothing until they are written to.
void ByteStorage::_Grow(std::size_t nCapacity) {
    unsigned char* pGrown = _Grown(nCapacity);
    if (pGrown == nullptr) {
        throw std::bad_alloc();
    }
    m_pBytes = pGrown;
    m_nCapacity = nCapacity;
}

// @return the memory with the content in it, which is all that the storage has then; null, with nothing
// changed, when there is no memory.
unsigned char* ByteStorage::_Grown(std::size_t nCapacity) {
    if (_IsMapped()) {
        return GrowMapped(m_pBytes, m_nCapacity, nCapacity);
    }
    return nCapacity >= kLeastMapped ? _Mapped(nCapacity) : _GrownOnHeap(nCapacity);
}

unsigned char* ByteStorage::_GrownOnHeap(std::size_t nCapacity) {
    auto* pGrown =
        static_cast<unsigned char*>(_IsInline() ? std::calloc(nCapacity, 1) : std::realloc(m_pBytes, nCapacity));
    if (pGrown != nullptr && _IsInline()) {
        std::memcpy(pGrown, m_inline, m_nSize);
    } else if (pGrown != nullptr) {
        std::memset(pGrown + m_nCapacity, 0, nCapacity - m_nCapacity);
    }
    return pGrown;
}

unsigned char* ByteStorage::_Mapped(std::size_t nCapacity) {
    unsigned char* pMapped = MapMemory(nCapacity);
    if (pMapped != nullptr) {
        std::memcpy(pMapped, m_pBytes, m_nSize);
        _FreeMemory();
    }
    return pMapped;
}

void ByteStorage::_Unmap() {
    UnmapMemory(m_pBytes, m_nCapacity);
}

void ByteStorage::TakeFrom(ByteStorage& other) {
    Clear();
    m_nSize = other.m_nSize;
    if (other._IsInline()) {
        std::memcpy(m_inline, other.m_inline, sizeof(m_inline));
    } else {
        m_pBytes = std::exchange(other.m_pBytes, other.m_inline);
        m_nCapacity = other.m_nCapacity;
    }
    other.Clear();
}

bool ByteStorage::IsCleared() const {
    return _IsInline() && m_nSize == 0 &&
           std::all_of(std::begin(m_inline), std::end(m_inline), [](unsigned char by) { return by == 0; });
}

}  // namespace tnrobot
