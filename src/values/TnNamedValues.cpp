// A hash table of positions in a row of entries: a search starts at the slot that the hash names and goes
// on from slot to slot until it meets the name or an empty slot. Removing therefore closes the gap.

#include "values/TnNamedValues.h"

#include <algorithm>
#include <functional>

#include "values/TnKeyedHash.h"

namespace tnrobot {

// Apart, so that the usual hash stays short enough to stand wherever a name is looked up.
[[gnu::cold]] std::uint64_t NamedValues::_KeyedHash(std::string_view name) {
    return KeyedHash(ProcessHashKey(), name);
}

std::uint32_t NamedValues::_Hash(std::string_view name) const {
    return static_cast<std::uint32_t>(_IsKeyed() ? _KeyedHash(name) : std::hash<std::string_view>()(name));
}

// Into its callers: looking a name up is what groups do most, and a call of its own is a tenth of it.
[[gnu::always_inline]] inline const NamedValues::Slot* NamedValues::_FindSlot(std::string_view name,
                                                                              std::uint32_t nHash) const {
    if (m_slots.empty()) {
        return nullptr;
    }
    std::size_t nLeft = m_nMostSteps;
    for (std::size_t n = _FirstSlot(nHash); m_slots[n].m_nPosition != 0 && nLeft != 0; n = _Next(n), --nLeft) {
        if (m_slots[n].m_nHash == nHash && m_entries[m_slots[n].m_nPosition - 1].m_strName == name) {
            return &m_slots[n];
        }
    }
    return nullptr;
}

const NamedValues::Entry* NamedValues::Find(std::string_view name) const {
    const Slot* pSlot = _FindSlot(name, _Hash(name));
    return pSlot != nullptr ? &m_entries[pSlot->m_nPosition - 1] : nullptr;
}

void NamedValues::Set(std::string_view name, Value value) {
    const std::uint32_t nHash = _Hash(name);
    if (const Slot* pSlot = _FindSlot(name, nHash)) {
        std::swap(m_entries[pSlot->m_nPosition - 1].m_value, value);
    } else {
        _Append(std::string(name), nHash, std::move(value));
    }
}

void NamedValues::Insert(std::string&& strName, Value&& value) {
    const std::uint32_t nHash = _Hash(strName);
    if (_FindSlot(strName, nHash) == nullptr) {
        _Append(std::move(strName), nHash, std::move(value));
    }
}

// All memory is there before anything changes.
void NamedValues::_Append(std::string&& strName, std::uint32_t nHash, Value&& value) {
    Reserve(m_entries.size() + 1);
    if (_IsKeyed()) {
        nHash = _Hash(strName);  // making room may have changed how names are hashed
    }
    m_entries.emplace_back(std::move(strName), std::move(value));
    if (!_Place({nHash, static_cast<std::uint32_t>(m_entries.size())})) {
        _UseKeyedHash();
    }
}

// @return whether there is a free slot as near to the first one as a search goes.
bool NamedValues::_Place(Slot slot) {
    std::size_t nLeft = m_nMostSteps;
    std::size_t n = _FirstSlot(slot.m_nHash);
    while (m_slots[n].m_nPosition != 0) {
        if (--nLeft == 0) {
            return false;
        }
        n = _Next(n);
    }
    m_slots[n] = slot;
    return true;
}

void NamedValues::_Grow(std::size_t nCount) {
    const std::size_t nSlots = std::max(m_slots.size(), _SlotsFor(nCount));
    std::vector<Slot> slots(nSlots);
    m_entries.reserve(nSlots / kSlotsPerEntry);
    m_slots.swap(slots);
    for (const Slot& slot : slots) {
        if (slot.m_nPosition != 0 && !_Place(slot)) {
            _UseKeyedHash();
            return;
        }
    }
}

// Needs no memory, so that it cannot fail halfway.
void NamedValues::_UseKeyedHash() {
    m_nMostSteps = kAnyNumber;
    std::fill(m_slots.begin(), m_slots.end(), Slot{});
    std::uint32_t nPosition = 0;
    for (const Entry& entry : m_entries) {
        _Place({_Hash(entry.m_strName), ++nPosition});
    }
}

// The values may be an application's own, and may have used either dictionary while they were cloned. A
// table that once had more entries has too many slots to be copied for those that are left.
void NamedValues::_TakeOver(std::vector<Entry>&& entries, const NamedValues& source) {
    const bool bFits = source.m_slots.size() == _SlotsFor(entries.size());
    if (m_entries.empty() && bFits && source.m_entries.size() == entries.size()) {
        m_slots = source.m_slots;
        m_nMostSteps = source.m_nMostSteps;
        m_entries = std::move(entries);
        return;
    }
    Reserve(m_entries.size() + entries.size());
    for (Entry& entry : entries) {
        Insert(std::move(entry.m_strName), std::move(entry.m_value));
    }
}

bool NamedValues::Remove(std::string_view name) {
    const Slot* pSlot = _FindSlot(name, _Hash(name));
    if (pSlot == nullptr) {
        return false;
    }
    const auto nSlot = static_cast<std::size_t>(pSlot - m_slots.data());
    const std::uint32_t nPosition = pSlot->m_nPosition;
    const Value removed = std::move(m_entries[nPosition - 1].m_value);
    if (nPosition != m_entries.size()) {
        Entry& last = m_entries.back();
        const Slot* pLast = _FindSlot(last.m_strName, _Hash(last.m_strName));
        m_slots[static_cast<std::size_t>(pLast - m_slots.data())].m_nPosition = nPosition;
        m_entries[nPosition - 1] = std::move(last);
    }
    m_entries.pop_back();
    _EmptySlot(nSlot);
    return true;
}

// Empties a slot. Searches end at an empty slot, so the entries behind it up to the next empty one could not
// be found any more if they had gone past this slot on the way to theirs. Each of them is therefore taken
// out and placed anew: it stays, or moves up towards the slot that its hash names.
void NamedValues::_EmptySlot(std::size_t nSlot) {
    m_slots[nSlot].m_nPosition = 0;
    std::size_t nLeft = m_nMostSteps;
    for (std::size_t n = _Next(nSlot); m_slots[n].m_nPosition != 0; n = _Next(n)) {
        const Slot slot = m_slots[n];
        m_slots[n].m_nPosition = 0;
        if (--nLeft == 0 || !_Place(slot)) {
            _UseKeyedHash();
            return;
        }
    }
}

void NamedValues::Clear() {
    std::vector<Entry> entries;
    m_entries.swap(entries);
    std::vector<Slot>().swap(m_slots);
    m_nMostSteps = kMostSteps;
}

}  // namespace tnrobot
