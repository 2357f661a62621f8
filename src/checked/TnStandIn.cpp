// Stand-ins are made of one class with a table of kSlots operations, all of which stop the process; the
// memory of the last few hundred destroyed objects is kept in a ring.

#include "checked/TnStandIn.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <type_traits>

#include "checked/TnWatch.h"

namespace tnrobot::checked {

namespace {

using Word = std::uintptr_t;

// More operations than any interface of the library has.
constexpr int kSlots = 128;

// The slots that every counted interface begins with, after the two of its destructor.
constexpr int kAddRefSlot = 2;
constexpr int kReleaseSlot = 3;

[[noreturn]] void StopAt(const void* pStandIn, int nSlot);

/// The first nSlot + 1 slots of the table: one operation each, in order.
template <int nSlot>
class StandInSlots : public StandInSlots<nSlot - 1> {
public:
    using StandInSlots<nSlot - 1>::Called;
    virtual void Called(std::integral_constant<int, nSlot> /*slot*/) { StopAt(this, nSlot); }
};

template <>
class StandInSlots<0> {
public:
    virtual void Called(std::integral_constant<int, 0> /*slot*/) { StopAt(this, 0); }
};

using FullStandIn = StandInSlots<kSlots - 1>;
static_assert(sizeof(FullStandIn) == sizeof(Word), "a stand-in is its table pointer");

// A stand-in's table pointer.
Word MakeStandInWord() {
    const FullStandIn standIn;
    Word word = 0;
    std::memcpy(&word, static_cast<const void*>(&standIn), sizeof(word));
    return word;
}

Word StandInWord() {
    static const Word s_word = MakeStandInWord();
    return s_word;
}

/// The memory of a destroyed object.
struct Kept {
    unsigned char* m_pMemory = nullptr;  ///< owned; null for an empty place
    std::size_t m_nSize = 0;
    const std::type_info* m_pType = nullptr;
};

// No destructor: objects may be destroyed after it would have run.
std::mutex g_mutex;
std::array<Kept, 256> g_kept;  // guarded by g_mutex
std::size_t g_nNext = 0;       // guarded by g_mutex: kept longest, the next place to be used again

// An object's size is a multiple of its alignment, which is that of a table pointer: so its memory is a
// whole number of stand-ins.
void FreeMemory(Kept& kept) {
    const Word standIn = StandInWord();
    for (std::size_t n = 0; n + sizeof(Word) <= kept.m_nSize; n += sizeof(Word)) {
        if (std::memcmp(kept.m_pMemory + n, &standIn, sizeof(standIn)) != 0) {
            Stop(*kept.m_pType, "written to after it was destroyed");
        }
    }
    ::operator delete(kept.m_pMemory);
    kept = Kept{};
}

Kept FindKept(const void* pStandIn) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    const auto address = reinterpret_cast<Word>(pStandIn);
    for (const Kept& kept : g_kept) {
        const auto start = reinterpret_cast<Word>(kept.m_pMemory);
        if (kept.m_pMemory != nullptr && address >= start && address < start + kept.m_nSize) {
            return kept;
        }
    }
    return {};  // another thread has just freed it to keep a newer one
}

// The slots of AddRef and Release mean that only at the object's start, where its first base lies: that
// is the counted one. A stand-in further on takes the place of another base.
void StopAt(const void* pStandIn, int nSlot) {
    const Kept kept = FindKept(pStandIn);
    if (kept.m_pType == nullptr) {
        StopUnknown("called after it was destroyed");
    }
    const std::type_info& type = *kept.m_pType;
    const bool bCounted = kept.m_pMemory == pStandIn;
    if (bCounted && nSlot == kReleaseSlot) {
        Stop(type, "Release below zero, the object is destroyed already");
    }
    if (bCounted && nSlot == kAddRefSlot) {
        Stop(type, "AddRef after it was destroyed");
    }
    Stop(type, "called after it was destroyed");
}

}  // namespace

void StandIn::Replace(void* pMemory, std::size_t nSize, const std::type_info& type) {
    auto* pBytes = static_cast<unsigned char*>(pMemory);
    const Word standIn = StandInWord();
    for (std::size_t n = 0; n + sizeof(Word) <= nSize; n += sizeof(Word)) {
        std::memcpy(pBytes + n, &standIn, sizeof(standIn));
    }
    const std::lock_guard<std::mutex> lock(g_mutex);
    Kept& kept = g_kept[g_nNext];
    g_nNext = (g_nNext + 1) % g_kept.size();
    if (kept.m_pMemory != nullptr) {
        FreeMemory(kept);
    }
    kept = {pBytes, nSize, &type};
}

void StandIn::Lock() {
    g_mutex.lock();
}

void StandIn::Unlock() {
    g_mutex.unlock();
}

void StandIn::FreeAll() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    for (Kept& kept : g_kept) {
        if (kept.m_pMemory != nullptr) {
            FreeMemory(kept);
        }
    }
}

}  // namespace tnrobot::checked
