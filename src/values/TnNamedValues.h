// The entries of a value group.

#ifndef TNROBOTKERNEL_SRC_VALUES_TNNAMEDVALUES_H_
#define TNROBOTKERNEL_SRC_VALUES_TNNAMEDVALUES_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/values.h"

namespace tnrobot {

/// A dictionary from names to values, which may be null.
///
/// The standard one takes memory for every entry and a string for every look-up. This one keeps its
/// entries in a row and finds them through a hash table of their positions with open addressing:
/// names of up to 15 characters need no memory of their own, and walking is reading in a line.
///
/// Whoever chooses the names can choose such as the standard hash throws together. No walk over slots
/// is therefore longer than kMostSteps: what would make one rebuilds the table with a hash that is keyed
/// by a secret of the process. The order of the entries has nothing to do with either hash.
///
/// Invariants: the number of slots is a power of two, or 0 while nothing was ever stored; at most
/// half of the slots are in use, and the row has room for that many entries; every entry is found
/// from the slot that its hash names, going on to the next slot until an empty one ends the search, and
/// lies among the first m_nMostSteps of them.
///
/// A value is released only when the dictionary is whole again: the value may be an application's
/// own and use the group as it goes.
///
/// Threads: externally synchronised.
class NamedValues {
public:
    using Value = TnRobotPtr<ITnRobotDataValue>;

    struct Entry {
        Entry(std::string&& strName, Value&& value) noexcept
            : m_strName(std::move(strName)), m_value(std::move(value)) {}

        std::string m_strName;
        Value m_value;
    };

    /// @return the name's entry, null when it is not there; borrowed until the dictionary changes.
    const Entry* Find(std::string_view name) const;

    /// Stores a value under a name and releases the one that the name held before.
    void Set(std::string_view name, Value value);

    /// Stores a value under a new name; of a name that is there the old value stays.
    void Insert(std::string&& strName, Value&& value);

    /// Inserts what another dictionary holds, with each value replaced by what clone makes of it. Into an
    /// empty one the table goes as it is where it fits, and no name is looked up.
    template <typename Clone>
    void InsertClones(const NamedValues& source, Clone clone) {
        std::vector<Entry> entries;
        entries.reserve(_SlotsFor(source.m_entries.size()) / kSlotsPerEntry);
        for (const Entry& entry : source.m_entries) {
            entries.emplace_back(std::string(entry.m_strName), clone(entry.m_value));
        }
        _TakeOver(std::move(entries), source);
    }

    /// @return whether the name was there.
    bool Remove(std::string_view name);

    void Clear();

    /// Makes room for nCount entries altogether.
    void Reserve(std::size_t nCount) {
        if (m_slots.size() < nCount * kSlotsPerEntry) {
            _Grow(nCount);
        }
    }

    /// The entries, in no particular order: the last one takes the place of one that is removed.
    const std::vector<Entry>& Entries() const { return m_entries; }

private:
    // An empty slot has the position 0; the others count from 1. The hash saves looking at entries
    // with other names, and hashing again when the table grows.
    struct Slot {
        std::uint32_t m_nHash;
        std::uint32_t m_nPosition;
    };

    static constexpr std::size_t kFirstSlots = 16;
    static constexpr std::size_t kSlotsPerEntry = 2;

    // Names that nobody chose for it make walks of a few slots: half of the table is empty.
    static constexpr std::size_t kMostSteps = 128;
    static constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

    // Slots of a table that was made for nCount entries and has never had fewer or more room.
    static std::size_t _SlotsFor(std::size_t nCount) {
        std::size_t nSlots = kFirstSlots;
        while (nSlots < nCount * kSlotsPerEntry) {
            nSlots *= 2;
        }
        return nSlots;
    }

    bool _IsKeyed() const { return m_nMostSteps == kAnyNumber; }
    static std::uint64_t _KeyedHash(std::string_view name);
    std::uint32_t _Hash(std::string_view name) const;
    std::size_t _Next(std::size_t nSlot) const { return (nSlot + 1) & (m_slots.size() - 1); }
    std::size_t _FirstSlot(std::uint32_t nHash) const { return nHash & (m_slots.size() - 1); }
    const Slot* _FindSlot(std::string_view name, std::uint32_t nHash) const;
    void _Append(std::string&& strName, std::uint32_t nHash, Value&& value);
    void _Grow(std::size_t nCount);
    bool _Place(Slot slot);
    void _EmptySlot(std::size_t nSlot);
    void _UseKeyedHash();
    void _TakeOver(std::vector<Entry>&& entries, const NamedValues& source);

    std::vector<Entry> m_entries;
    std::vector<Slot> m_slots;
    std::size_t m_nMostSteps = kMostSteps;  // or kAnyNumber, with the keyed hash
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_VALUES_TNNAMEDVALUES_H_
