#include "values/TnByteStorage.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace tnrobot {

// Grows to exactly what is needed: loading grows in large steps, which the allocator extends
// without copying.
void ByteStorage::Grow(std::size_t nCapacity) {
    auto* pGrown = static_cast<unsigned char*>(std::realloc(IsInline() ? nullptr : m_pBytes, nCapacity));
    if (pGrown == nullptr) {
        throw std::bad_alloc();
    }
    if (IsInline()) {
        std::memcpy(pGrown, m_inline, m_nSize);
    }
    std::memset(pGrown + m_nSize, 0, nCapacity - m_nSize);
    m_pBytes = pGrown;
    m_nCapacity = nCapacity;
}

bool ByteStorage::IsCleared() const {
    return IsInline() && m_nSize == 0 &&
           std::all_of(std::begin(m_inline), std::end(m_inline), [](unsigned char by) { return by == 0; });
}

}  // namespace tnrobot
