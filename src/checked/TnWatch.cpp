// All watched objects are in a map by their address, divided into parts with a lock each, so that threads
// seldom meet here. An object that lies free names its pool; whether it really does is decided by asking
// for the pool.

#include "checked/TnWatch.h"

#include <cxxabi.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "checked/TnSanitizer.h"
#include "checked/TnStandIn.h"

namespace tnrobot::checked {

namespace {

// LeakSanitizer takes an object for lost when nothing refers to it, and a list of all objects
// would refer to each. It does not recognise an inverted address.
using Disguised = std::uintptr_t;

Disguised Disguise(const ITnUnknown* p) {
    return ~reinterpret_cast<std::uintptr_t>(p);
}

// Tests count allocations and let them fail: those of the checks themselves do not belong among
// them, and say so. Atomic, because compilers know that malloc itself does not read it.
thread_local std::atomic<bool> t_bOwnAllocation{false};

class OwnAllocation {
public:
    OwnAllocation() { t_bOwnAllocation = true; }
    OwnAllocation(const OwnAllocation&) = delete;
    OwnAllocation& operator=(const OwnAllocation&) = delete;
    ~OwnAllocation() { t_bOwnAllocation = false; }
};

template <typename T>
struct MallocAllocator {
    using value_type = T;
    MallocAllocator() = default;
    template <typename U>
    MallocAllocator(const MallocAllocator<U>& /*other*/) {}
    T* allocate(std::size_t nCount) {
        const OwnAllocation own;
        void* const p = std::malloc(nCount * sizeof(T));
        if (p == nullptr) {
            std::abort();
        }
        return static_cast<T*>(p);
    }
    void deallocate(T* p, std::size_t /*nCount*/) {
        const OwnAllocation own;
        std::free(p);
    }
    friend bool operator==(const MallocAllocator& /*a*/, const MallocAllocator& /*b*/) { return true; }
    friend bool operator!=(const MallocAllocator& /*a*/, const MallocAllocator& /*b*/) { return false; }
};

/// What is known of a watched object.
struct Entry {
    const std::type_info* m_pType = nullptr;
    std::size_t m_nSize = 0;
    Disguised m_freeIn = 0;     ///< the pool that it lies free in, 0 for none
    std::size_t m_nHidden = 0;  ///< bytes at its end that are hidden
    bool m_bDestroyed = false;  ///< its destructor runs
};

/// A part of the watched objects, with a lock of its own. It has no memory while it is empty, so a
/// library that is unloaded leaves none behind.
class Shard {
public:
    void Insert(const ITnUnknown* p, const Entry& entry) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entries[Disguise(p)] = entry;
    }

    void Erase(const ITnUnknown* p) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.erase(Disguise(p));
    }

    std::optional<Entry> Find(Disguised key) const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_entries.find(key);
        return it != m_entries.end() ? std::optional<Entry>(it->second) : std::nullopt;
    }

    /// Lets change alter the entry. @return the entry as it was before.
    template <typename Change>
    std::optional<Entry> Alter(const ITnUnknown* p, Change change) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_entries.find(Disguise(p));
        if (it == m_entries.end()) {
            return std::nullopt;
        }
        const Entry before = it->second;
        change(it->second);
        return before;
    }

    template <typename Visit>
    void ForEach(Visit visit) const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& [key, entry] : m_entries) {
            visit(entry);
        }
    }

    void Lock() { m_mutex.lock(); }
    void Unlock() { m_mutex.unlock(); }

private:
    using Entries = std::map<Disguised, Entry, std::less<>, MallocAllocator<std::pair<const Disguised, Entry>>>;

    mutable std::mutex m_mutex;
    Entries m_entries;  // guarded by m_mutex
};

constexpr std::size_t kShards = 16;

// Never destroyed: objects of the library may lie in statics that go after the library's own.
std::array<Shard, kShards>& Shards() {
    alignas(std::array<Shard, kShards>) static unsigned char memory[sizeof(std::array<Shard, kShards>)];
    static auto* const pShards = new (memory) std::array<Shard, kShards>;
    return *pShards;
}

Shard& ShardOf(Disguised key) {
    constexpr unsigned int kAlignmentBits = 6;
    return Shards()[(key >> kAlignmentBits) % kShards];
}

Shard& ShardOf(const ITnUnknown* p) {
    return ShardOf(Disguise(p));
}

std::string NameOf(const std::type_info& type) {
    int nStatus = 0;
    char* lpszName = abi::__cxa_demangle(type.name(), nullptr, nullptr, &nStatus);
    std::string strName = nStatus == 0 ? lpszName : type.name();
    std::free(lpszName);
    return strName;
}

// The standard streams may be gone already, or not be there yet.
void Write(const std::string& strLine) {
    std::size_t nDone = 0;
    while (nDone < strLine.size()) {
        const ssize_t nWritten = write(STDERR_FILENO, strLine.data() + nDone, strLine.size() - nDone);
        if (nWritten <= 0) {
            return;
        }
        nDone += static_cast<std::size_t>(nWritten);
    }
}

[[noreturn]] void StopNamed(const std::string& strName, const char* lpszWhat) {
    Write("TnRobotKernel: " + strName + ": " + lpszWhat + "\n");
    std::abort();
}

bool LiesFree(const Entry& entry) {
    if (entry.m_freeIn == 0) {
        return false;
    }
    const std::optional<Entry> pool = ShardOf(entry.m_freeIn).Find(entry.m_freeIn);
    return pool && !pool->m_bDestroyed;
}

}  // namespace

void Enter(const ITnUnknown* pObject, std::size_t nSize, const std::type_info& type) {
    Entry entry;
    entry.m_pType = &type;
    entry.m_nSize = nSize;
    ShardOf(pObject).Insert(pObject, entry);
}

void Leave(const ITnUnknown* pObject) {
    ShardOf(pObject).Erase(pObject);
}

// AddressSanitizer keeps freed memory itself, and knows who freed it.
void Destroy(ITnUnknown* pObject) {
    ShowBody(pObject);
    const std::optional<Entry> entry =
        ShardOf(pObject).Alter(pObject, [](Entry& changed) { changed.m_bDestroyed = true; });
    if (entry && entry->m_bDestroyed) {
        Stop(*entry->m_pType, "Release below zero, the object is being destroyed");
    }
    if (!entry || kHidesMemory) {
        delete pObject;
        return;
    }
    pObject->~ITnUnknown();
    StandIn::Replace(pObject, entry->m_nSize, *entry->m_pType);
}

bool SetFree(const ITnUnknown* pObject, const ITnUnknown* pPool) {
    const std::optional<Entry> pool = ShardOf(pPool).Find(Disguise(pPool));
    return pool && !pool->m_bDestroyed &&
           ShardOf(pObject).Alter(pObject, [&](Entry& entry) { entry.m_freeIn = Disguise(pPool); }).has_value();
}

bool ClearFree(const ITnUnknown* pObject) {
    const std::optional<Entry> before = ShardOf(pObject).Alter(pObject, [](Entry& entry) { entry.m_freeIn = 0; });
    return before && before->m_freeIn != 0;
}

void HideBody(const ITnUnknown* pObject, std::size_t nHeader) {
    if constexpr (kHidesMemory) {
        const std::optional<Entry> before = ShardOf(pObject).Alter(
            pObject, [nHeader](Entry& entry) { entry.m_nHidden = entry.m_freeIn != 0 ? entry.m_nSize - nHeader : 0; });
        if (before && before->m_freeIn != 0) {
            PoisonMemory(reinterpret_cast<const unsigned char*>(pObject) + nHeader, before->m_nSize - nHeader);
        }
    }
}

void ShowBody(const ITnUnknown* pObject) {
    if constexpr (kHidesMemory) {
        const std::optional<Entry> before = ShardOf(pObject).Alter(pObject, [](Entry& entry) { entry.m_nHidden = 0; });
        if (before && before->m_nHidden != 0) {
            const std::size_t nHeader = before->m_nSize - before->m_nHidden;
            UnpoisonMemory(reinterpret_cast<const unsigned char*>(pObject) + nHeader, before->m_nHidden);
        }
    }
}

void StopIfFree(const ITnUnknown* pObject, const char* lpszWhat) {
    const std::optional<Entry> entry = ShardOf(pObject).Find(Disguise(pObject));
    if (entry && LiesFree(*entry)) {
        Stop(*entry->m_pType, lpszWhat);
    }
}

void StopIfWatched(const ITnUnknown* pObject, const char* lpszWhat) {
    const std::optional<Entry> entry = ShardOf(pObject).Find(Disguise(pObject));
    if (entry) {
        Stop(*entry->m_pType, lpszWhat);
    }
}

void Stop(const std::type_info& type, const char* lpszWhat) {
    StopNamed(NameOf(type), lpszWhat);
}

void StopUnknown(const char* lpszWhat) {
    StopNamed("an object", lpszWhat);
}

namespace {

constexpr unsigned char kPattern = 0xDB;

}  // namespace

void HideMemory(unsigned char* pMemory, std::size_t nSize) {
    if constexpr (kHidesMemory) {
        PoisonMemory(pMemory, nSize);
    } else if (nSize != 0) {
        std::memset(pMemory, kPattern, std::min(nSize, kMostPattern));
    }
}

// The bytes are compared with themselves moved on by one: when the first is the pattern and each is equal
// to the one behind it, all of them are the pattern.
void ShowMemory(const unsigned char* pMemory, std::size_t nSize, const std::type_info& type) {
    if constexpr (kHidesMemory) {
        UnpoisonMemory(pMemory, nSize);
    } else if (nSize != 0 &&
               (pMemory[0] != kPattern || std::memcmp(pMemory, pMemory + 1, std::min(nSize, kMostPattern) - 1) != 0)) {
        Stop(type, "written to after its return to its pool");
    }
}

void ReportLiveObjects() {
    std::map<std::string, int> counts;
    for (const Shard& shard : Shards()) {
        // Whether a free object's pool still lives is not asked: the pool may be in this very part, whose lock
        // is held. A pool that goes has destroyed its free objects by then.
        std::map<const std::type_info*, int> used;
        shard.ForEach([&](const Entry& entry) { used[entry.m_pType] += entry.m_freeIn == 0 ? 1 : 0; });
        for (const auto& [pType, nCount] : used) {
            counts[NameOf(*pType)] += nCount;
        }
    }
    for (const auto& [strName, nCount] : counts) {
        if (nCount != 0) {
            Write("TnRobotKernel: " + std::to_string(nCount) + (nCount == 1 ? " object of " : " objects of ") +
                  strName + " still alive\n");
        }
    }
}

bool IsOwnAllocation() {
    return t_bOwnAllocation;
}

void FreeKept() {
    StandIn::FreeAll();
}

void LockForFork() {
    for (Shard& shard : Shards()) {
        shard.Lock();
    }
    StandIn::Lock();
}

void UnlockAfterFork() {
    StandIn::Unlock();
    for (Shard& shard : Shards()) {
        shard.Unlock();
    }
}

}  // namespace tnrobot::checked
