#include "Groups.h"

#include <algorithm>
#include <array>

namespace {

constexpr unsigned char kVersion = 1;

struct Type {
    const char* lpszName;
    std::size_t nSize;  // of its bytes; not looked at for NONE, STRING and BLOCK
};

// In the order of the types' numbers.
constexpr std::array<Type, 14> kTypes = {{{"NONE", 0},
                                          {"BOOL", 1},
                                          {"SHORT", 2},
                                          {"USHORT", 2},
                                          {"INT", 4},
                                          {"UINT", 4},
                                          {"FLOAT", 4},
                                          {"DOUBLE", 8},
                                          {"LONGLONG", 8},
                                          {"ULONGLONG", 8},
                                          {"STRING", 0},
                                          {"BLOCK", 0},
                                          {"CHAR", 2},
                                          {"BYTE", 1}}};

bool IsType(std::int32_t nType) {
    return nType >= 0 && nType < static_cast<std::int32_t>(kTypes.size());
}

bool HasFixedSize(std::int32_t nType) {
    return nType != 0 && nType != kStringType && nType != kBlockType;
}

std::size_t FixedSize(std::int32_t nType) {
    return kTypes[static_cast<std::size_t>(nType)].nSize;
}

/// Takes entries apart, and says what is wrong with them.
class EntryParser {
public:
    EntryParser(ByteReader& reader, Problems& problems) : m_reader(reader), m_problems(problems) {}

    /// @return false when the entry is damaged so that nobody knows where the next one begins.
    bool Parse(Entry& entry) {
        entry.nOffset = m_reader.Position();
        const bool bWhole = ParseName(entry) && ParseValue(entry);
        entry.nEnd = m_reader.Position();
        return bWhole;
    }

    /// Takes a value without a name.
    bool ParseValue(Entry& entry) {
        entry.nValueOffset = m_reader.Position();
        unsigned char nVersion = 0;
        std::int32_t nCount = 0;
        if (!m_reader.Take(nVersion) || !m_reader.Take(entry.nType) || !m_reader.Take(nCount)) {
            return Fail(entry.nValueOffset, "the file ends within the header of a value");
        }
        if (nVersion != kVersion) {
            return Fail(entry.nValueOffset, "value of version " + std::to_string(nVersion));
        }
        if (nCount < 0) {
            m_problems.Damage(entry.nValueOffset, "negative byte count " + std::to_string(nCount));
            nCount = 0;
        }
        if (!m_reader.Take(static_cast<std::size_t>(nCount), entry.bytes)) {
            return Fail(entry.nValueOffset, "a value of " + std::to_string(nCount) + " bytes, but only " +
                                                std::to_string(m_reader.Left()) + " are left");
        }
        CheckContent(entry);
        return true;
    }

private:
    bool Fail(std::size_t nOffset, std::string strText) {
        m_problems.Damage(nOffset, std::move(strText));
        return false;
    }

    bool ParseName(Entry& entry) {
        std::int32_t nCount = 0;
        ByteRange characters;
        if (!m_reader.Take(nCount)) {
            return Fail(entry.nOffset, "the file ends within the length of a name");
        }
        if (nCount < 0) {
            return Fail(entry.nOffset, "negative length " + std::to_string(nCount) + " of a name");
        }
        if (!m_reader.Take(static_cast<std::size_t>(nCount), characters)) {
            return Fail(entry.nOffset, "a name of " + std::to_string(nCount) + " bytes, but only " +
                                           std::to_string(m_reader.Left()) + " are left");
        }
        entry.name = characters.View().substr(0, characters.View().find('\0'));
        if (nCount != 0 && entry.name.size() + 1 != characters.nSize) {
            m_problems.Damage(entry.nOffset, "the zero byte of a name is not its last one");
        }
        return true;
    }

    void CheckContent(Entry& entry) {
        if (!IsType(entry.nType)) {
            entry.bReadable = false;
            m_problems.Damage(entry.nValueOffset, "there is no type " + std::to_string(entry.nType));
            return;
        }
        if (HasFixedSize(entry.nType) && entry.bytes.nSize != FixedSize(entry.nType)) {
            entry.bReadable = false;
            m_problems.Damage(entry.nValueOffset, std::to_string(entry.bytes.nSize) + " bytes in a value of type " +
                                                      TypeName(entry.nType) + ", which has " +
                                                      std::to_string(FixedSize(entry.nType)));
        }
        if (entry.nType == kStringType) {
            CheckText(entry);
        }
    }

    void CheckText(Entry& entry) {
        const std::size_t nZero = entry.bytes.View().find('\0');
        if (nZero == std::string_view::npos) {
            entry.bReadable = false;
            m_problems.Damage(entry.nValueOffset, "a text without a zero byte at its end");
        } else if (nZero + 1 != entry.bytes.nSize) {
            m_problems.Note(entry.nValueOffset, "a text with bytes behind its zero byte");
        }
    }

    ByteReader& m_reader;
    Problems& m_problems;
};

// Goes through a group's entries up to the first that cannot be read.
template <typename Function>
void ParseEntries(ByteReader& reader, Group& group, Problems& problems, Function function) {
    const std::size_t nCountOffset = reader.Position();
    group.nEntries = 0;
    group.bWhole = false;
    if (!reader.Take(group.nDeclared)) {
        problems.Damage(nCountOffset, "the file ends within the entry count");
        return;
    }
    if (group.nDeclared < 0) {
        problems.Damage(nCountOffset, "negative entry count " + std::to_string(group.nDeclared));
    }
    for (std::int32_t i = 0; i < group.nDeclared; ++i) {
        if (reader.Left() == 0) {
            problems.Damage(reader.Position(), "the file ends after " + std::to_string(i) + " of " +
                                                   std::to_string(group.nDeclared) + " entries");
            return;
        }
        Entry entry;
        if (!EntryParser(reader, problems).Parse(entry)) {
            return;
        }
        ++group.nEntries;
        function(entry);
    }
    group.bWhole = true;
}

// Goes through the group at an offset, if one begins there.
template <typename Function>
std::optional<Group> ParseGroup(ByteRange file, std::size_t nOffset, Problems& problems, Function function) {
    ByteReader reader(file, nOffset);
    unsigned char nVersion = 0;
    if (!reader.Take(nVersion)) {
        problems.Damage(nOffset, "the file ends where a group should begin");
        return std::nullopt;
    }
    if (nVersion != kVersion) {
        problems.Damage(nOffset, nOffset == 0 ? "group of version " + std::to_string(nVersion)
                                              : "bytes behind the last group that are no group");
        return std::nullopt;
    }
    Group group;
    group.nOffset = nOffset;
    ParseEntries(reader, group, problems, function);
    group.nSize = reader.Position() - nOffset;
    return group;
}

// The name of the entry at an offset, without a look at its value: sorting asks for it often.
std::string_view NameAt(ByteRange file, std::size_t nOffset) {
    ByteReader reader(file, nOffset);
    std::int32_t nCount = 0;
    ByteRange characters;
    reader.Take(nCount);
    reader.Take(static_cast<std::size_t>(nCount), characters);
    return characters.View().substr(0, characters.View().find('\0'));
}

// The offsets of entries whose name an entry before them has, in the order of the file.
std::vector<std::size_t> Repeated(ByteRange file, const Group& group) {
    const std::vector<std::size_t> sorted = EntriesByName(file, group);
    std::vector<std::size_t> repeated;
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        if (NameAt(file, sorted[i]) == NameAt(file, sorted[i - 1])) {
            repeated.push_back(sorted[i]);
        }
    }
    std::sort(repeated.begin(), repeated.end());
    return repeated;
}

// Texts and characters always could: only of numbers it is worth saying.
bool IsNumberThatCouldBeName(const Entry& value) {
    const std::string_view bytes = value.bytes.View();
    return value.bReadable && HasFixedSize(value.nType) && value.nType != kCharType && bytes.size() > 1 &&
           bytes.back() == '\0' &&
           std::all_of(bytes.begin(), bytes.end() - 1, [](char ch) { return ch > ' ' && ch < '\x7f'; });
}

// Says what is wrong with a group, in the order of the file. @return the group, if one begins there.
std::optional<Group> CheckGroup(ByteRange file, std::size_t nOffset, Problems& problems) {
    const std::optional<Group> group = GroupAt(file, nOffset);
    const bool bSeveral = group && group->nEntries > 1;
    const std::vector<std::size_t> repeated = bSeveral ? Repeated(file, *group) : std::vector<std::size_t>();
    std::size_t nNext = 0;
    return ParseGroup(file, nOffset, problems, [&](const Entry& entry) {
        if (nNext < repeated.size() && repeated[nNext] == entry.nOffset) {
            problems.Damage(entry.nOffset, "the name is there already: the library keeps the first value");
            ++nNext;
        }
    });
}

}  // namespace

bool LooksLikeValue(ByteRange file) {
    ByteReader reader(file);
    unsigned char nVersion = 0;
    std::int32_t nType = 0;
    std::int32_t nCount = 0;
    if (!reader.Take(nVersion) || !reader.Take(nType) || !reader.Take(nCount)) {
        return false;
    }
    if (nVersion != kVersion || !IsType(nType) || nCount < 0) {
        return false;
    }
    const auto nSize = static_cast<std::size_t>(nCount);
    const bool bFits = !HasFixedSize(nType) || nSize == FixedSize(nType);
    // Of type NONE a cut one would be every empty group with something behind it.
    const bool bCut = nSize > reader.Left() && nType != 0;
    return bFits && (bCut || nSize == reader.Left());
}

ValueFile ParseValue(ByteRange file) {
    ValueFile result;
    ByteReader reader(file);
    const bool bWhole = EntryParser(reader, result.problems).ParseValue(result.value);
    result.value.nEnd = reader.Position();
    if (bWhole && reader.Left() != 0) {
        result.problems.Damage(reader.Position(), "bytes behind the value");
    }
    if (bWhole && IsNumberThatCouldBeName(result.value)) {
        result.problems.Note(0, "a group of " + std::to_string(result.value.nType) +
                                    " entries that was cut behind its first name would have the same bytes");
    }
    return result;
}

GroupFile ParseGroups(ByteRange file) {
    GroupFile result;
    result.file = file;
    std::size_t nOffset = 0;
    bool bGoesOn = true;
    while (bGoesOn) {
        const std::optional<Group> group = CheckGroup(file, nOffset, result.problems);
        if (group) {
            result.bBegins = true;
            ++result.nGroups;
            result.nEntries += group->nEntries;
            nOffset += group->nSize;
        }
        bGoesOn = group && group->bWhole && nOffset < file.nSize;
    }
    return result;
}

std::optional<Group> GroupAt(ByteRange file, std::size_t nOffset) {
    Problems ignored;
    return ParseGroup(file, nOffset, ignored, [](const Entry&) {});
}

std::optional<Group> GroupBehind(ByteRange file, const Group& group) {
    return group.bWhole ? GroupAt(file, group.nOffset + group.nSize) : std::nullopt;
}

void ForEachGroup(ByteRange file, const std::function<void(const Group&)>& function) {
    for (std::optional<Group> group = GroupAt(file, 0); group; group = GroupBehind(file, *group)) {
        function(*group);
    }
}

void ForEachEntry(ByteRange file, const Group& group, const std::function<void(const Entry&)>& function) {
    Problems ignored;
    ParseGroup(file, group.nOffset, ignored, function);
}

Entry EntryAt(ByteRange file, std::size_t nOffset) {
    Problems ignored;
    ByteReader reader(file, nOffset);
    Entry entry;
    EntryParser(reader, ignored).Parse(entry);
    return entry;
}

std::vector<std::size_t> EntriesByName(ByteRange file, const Group& group) {
    std::vector<std::size_t> offsets;
    offsets.reserve(group.nEntries);
    ForEachEntry(file, group, [&offsets](const Entry& entry) { offsets.push_back(entry.nOffset); });
    std::sort(offsets.begin(), offsets.end(), [file](std::size_t nFirst, std::size_t nSecond) {
        const int nOrder = NameAt(file, nFirst).compare(NameAt(file, nSecond));
        return nOrder != 0 ? nOrder < 0 : nFirst < nSecond;
    });
    return offsets;
}

std::string TypeName(std::int32_t nType) {
    return IsType(nType) ? kTypes[static_cast<std::size_t>(nType)].lpszName : "type " + std::to_string(nType);
}
