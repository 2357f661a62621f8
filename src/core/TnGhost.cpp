#include "core/TnGhost.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <type_traits>

#include "core/TnChecked.h"

namespace tnrobot::checked {

namespace {

using Word = std::uintptr_t;

// More than any interface of the library has operations.
constexpr int kSlots = 128;

// The slots that every counted interface begins with, after the two of its destructor.
constexpr int kAddRefSlot = 2;
constexpr int kReleaseSlot = 3;

[[noreturn]] void StopAt(const void* pGhost, int nSlot);

/// The first nSlot + 1 slots of the table: one operation each, in order.
template <int nSlot>
class GhostSlots : public GhostSlots<nSlot - 1> {
public:
    using GhostSlots<nSlot - 1>::Called;
    virtual void Called(std::integral_constant<int, nSlot> /*slot*/) { StopAt(this, nSlot); }
};

template <>
class GhostSlots<0> {
public:
    virtual void Called(std::integral_constant<int, 0> /*slot*/) { StopAt(this, 0); }
};

using FullGhost = GhostSlots<kSlots - 1>;
static_assert(sizeof(FullGhost) == sizeof(Word), "a ghost is its table pointer");

// A ghost's table pointer.
Word MakeGhostWord() {
    const FullGhost ghost;
    Word word = 0;
    std::memcpy(&word, static_cast<const void*>(&ghost), sizeof(word));
    return word;
}

Word GhostWord() {
    static const Word s_word = MakeGhostWord();
    return s_word;
}

struct Grave {
    unsigned char* m_pMemory = nullptr;  ///< owned; null for an empty grave
    std::size_t m_nSize = 0;
    const std::type_info* m_pType = nullptr;
};

// No destructor: graves may be dug after it would have run.
std::mutex g_mutex;
std::array<Grave, 256> g_graves;  // guarded by g_mutex
std::size_t g_nNext = 0;          // guarded by g_mutex: the oldest grave, next to be used again

// Whole words only; an object's size is a multiple of its alignment, which its table pointer sets.
void FreeGrave(Grave& grave) {
    const Word ghost = GhostWord();
    for (std::size_t n = 0; n + sizeof(Word) <= grave.m_nSize; n += sizeof(Word)) {
        if (std::memcmp(grave.m_pMemory + n, &ghost, sizeof(ghost)) != 0) {
            Stop(*grave.m_pType, "written to after it was destroyed");
        }
    }
    ::operator delete(grave.m_pMemory);
    grave = Grave{};
}

Grave FindGrave(const void* pGhost) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    const auto address = reinterpret_cast<Word>(pGhost);
    for (const Grave& grave : g_graves) {
        const auto start = reinterpret_cast<Word>(grave.m_pMemory);
        if (grave.m_pMemory != nullptr && address >= start && address < start + grave.m_nSize) {
            return grave;
        }
    }
    return {};  // it has been freed in this moment
}

// Only the first base of an object is a counted interface.
void StopAt(const void* pGhost, int nSlot) {
    const Grave grave = FindGrave(pGhost);
    const std::type_info& type = grave.m_pType != nullptr ? *grave.m_pType : typeid(ITnUnknown);
    const bool bCounted = grave.m_pMemory == pGhost;
    if (bCounted && nSlot == kReleaseSlot) {
        Stop(type, "Release below zero, the object is destroyed already");
    }
    if (bCounted && nSlot == kAddRefSlot) {
        Stop(type, "AddRef after it was destroyed");
    }
    Stop(type, "called after it was destroyed");
}

}  // namespace

void Ghost::Bury(void* pMemory, std::size_t nSize, const std::type_info& type) {
    auto* pBytes = static_cast<unsigned char*>(pMemory);
    const Word ghost = GhostWord();
    for (std::size_t n = 0; n + sizeof(Word) <= nSize; n += sizeof(Word)) {
        std::memcpy(pBytes + n, &ghost, sizeof(ghost));
    }
    const std::lock_guard<std::mutex> lock(g_mutex);
    Grave& grave = g_graves[g_nNext];
    g_nNext = (g_nNext + 1) % g_graves.size();
    if (grave.m_pMemory != nullptr) {
        FreeGrave(grave);
    }
    grave = {pBytes, nSize, &type};
}

void Ghost::Lock() {
    g_mutex.lock();
}

void Ghost::Unlock() {
    g_mutex.unlock();
}

void Ghost::FreeAll() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    for (Grave& grave : g_graves) {
        if (grave.m_pMemory != nullptr) {
            FreeGrave(grave);
        }
    }
}

}  // namespace tnrobot::checked
