// A double-ended queue whose room is reserved ahead, so that pushing never allocates: pools take
// elements back on paths that must not fail.

#ifndef TNROBOTKERNEL_DETAIL_RINGQUEUE_H_
#define TNROBOTKERNEL_DETAIL_RINGQUEUE_H_

#include <cstddef>
#include <utility>
#include <vector>

#include "TnRobotKernel/detail/CacheLine.h"

namespace tn::detail {

/// Queue of pointers or other plain values in a ring. Externally synchronised.
template <typename T>
class RingQueue {
public:
    bool Empty() const { return m_nCount == 0; }
    std::size_t Size() const { return m_nCount; }
    T& Front() { return m_slots[m_nHead]; }
    T& Back() { return At(m_nCount - 1); }
    T& At(std::size_t nIndex) { return m_slots[(m_nHead + nIndex) & (m_slots.size() - 1)]; }
    const T& At(std::size_t nIndex) const { return m_slots[(m_nHead + nIndex) & (m_slots.size() - 1)]; }

    /// Makes room for nCount elements; throws std::bad_alloc and then changes nothing.
    void Reserve(std::size_t nCount) {
        if (nCount > m_slots.size()) {
            Grow(nCount);
        }
    }

    /// The caller has reserved the room.
    void PushBack(T value) {
        ++m_nCount;
        Back() = value;
    }

    /// The caller has reserved the room.
    void PushFront(T value) {
        m_nHead = (m_nHead + m_slots.size() - 1) & (m_slots.size() - 1);
        ++m_nCount;
        Front() = value;
    }

    void PopFront() {
        m_nHead = (m_nHead + 1) & (m_slots.size() - 1);
        --m_nCount;
    }

    void PopBack() { --m_nCount; }

private:
    // The number of slots is a power of two, so that wrapping is a mask. A cache line of room stays
    // unused behind them: the ring of another pool may lie there, and another thread write to it.
    // Out of line, so that the test for room, which comes with every element taken back, is all that
    // callers carry.
    [[gnu::noinline, gnu::cold]] void Grow(std::size_t nCount) {
        std::size_t nSlots = m_slots.empty() ? 8 : m_slots.size();
        while (nSlots < nCount) {
            nSlots *= 2;
        }
        std::vector<T> slots;
        slots.reserve(nSlots + kCacheLine / alignof(T));
        slots.resize(nSlots);
        for (std::size_t i = 0; i < m_nCount; ++i) {
            slots[i] = At(i);
        }
        m_slots = std::move(slots);
        m_nHead = 0;
    }

    std::vector<T> m_slots;
    std::size_t m_nHead = 0;
    std::size_t m_nCount = 0;
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_DETAIL_RINGQUEUE_H_
