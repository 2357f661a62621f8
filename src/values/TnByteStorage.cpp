// The slow ways of the storage: growing, moving and testing for emptiness.

#include "values/TnByteStorage.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace tnrobot {

// Grows to exactly what is needed. Memory asked for at once is not touched here: the system gives
// large pieces as zeros, and they cost nothing until they are written to.
void ByteStorage::_Grow(std::size_t nCapacity) {
    auto* pGrown =
        static_cast<unsigned char*>(_IsInline() ? std::calloc(nCapacity, 1) : std::realloc(m_pBytes, nCapacity));
    if (pGrown == nullptr) {
        throw std::bad_alloc();
    }
    if (_IsInline()) {
        std::memcpy(pGrown, m_inline, m_nSize);
    } else {
        std::memset(pGrown + m_nCapacity, 0, nCapacity - m_nCapacity);
    }
    m_pBytes = pGrown;
    m_nCapacity = nCapacity;
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
