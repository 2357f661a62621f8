#include "values/TnByteStorage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

namespace tnrobot {

ByteStorage::~ByteStorage() {
    std::free(m_pHeap);
}

void ByteStorage::Assign(const void* pBytes, std::size_t nCount) {
    Reserve(nCount);
    if (pBytes == nullptr) {
        std::memset(Data(), 0, nCount);
    } else {
        std::memmove(Data(), pBytes, nCount);
    }
    if (nCount < m_nSize) {
        std::memset(Data() + nCount, 0, m_nSize - nCount);
    }
    m_nSize = nCount;
}

void ByteStorage::Resize(std::size_t nCount) {
    Reserve(nCount);
    if (nCount < m_nSize) {
        std::memset(Data() + nCount, 0, m_nSize - nCount);
    }
    m_nSize = nCount;
}

// Grows to exactly what is needed: loading grows in large steps, which the allocator extends
// without copying.
void ByteStorage::Reserve(std::size_t nCount) {
    const std::size_t nNeeded = nCount + 1;
    if (nNeeded <= Capacity()) {
        return;
    }
    auto* pGrown = static_cast<unsigned char*>(std::realloc(m_pHeap, nNeeded));
    if (pGrown == nullptr) {
        throw std::bad_alloc();
    }
    if (m_pHeap == nullptr) {
        std::memcpy(pGrown, m_inline, m_nSize);
    }
    std::memset(pGrown + m_nSize, 0, nNeeded - m_nSize);
    m_pHeap = pGrown;
    m_nHeapCapacity = nNeeded;
}

void ByteStorage::Clear() {
    std::free(m_pHeap);
    m_pHeap = nullptr;
    m_nHeapCapacity = 0;
    m_nSize = 0;
    std::memset(m_inline, 0, sizeof(m_inline));
}

bool ByteStorage::IsCleared() const {
    return m_pHeap == nullptr && m_nSize == 0 &&
           std::all_of(std::begin(m_inline), std::end(m_inline), [](unsigned char by) { return by == 0; });
}

}  // namespace tnrobot
