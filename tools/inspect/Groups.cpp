#include "Groups.h"

#include <algorithm>
#include <array>
#include <set>

namespace {

constexpr unsigned char kVersion = 1;
constexpr std::int32_t kString = 10;
constexpr std::int32_t kBlock = 11;

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

/// Takes one file apart; stops at the first damage that hides what follows.
class GroupParser {
public:
    explicit GroupParser(ByteRange file) : m_reader(file) {}

    GroupFile Parse() {
        do {
            if (!ParseGroup()) {
                break;
            }
        } while (m_reader.Left() != 0);
        return std::move(m_result);
    }

private:
    bool Fail(std::size_t nOffset, std::string strText) {
        m_result.problems.Damage(nOffset, std::move(strText));
        return false;
    }

    bool ParseGroup() {
        const std::size_t nOffset = m_reader.Position();
        unsigned char nVersion = 0;
        if (!m_reader.Take(nVersion)) {
            return Fail(nOffset, "the file ends where a group should begin");
        }
        if (nVersion != kVersion) {
            const std::string strVersion = std::to_string(nVersion);
            return Fail(nOffset, m_result.groups.empty() ? "group of version " + strVersion
                                                         : "bytes behind the last group that are no group");
        }
        m_result.bBegins = true;
        Group group;
        group.nOffset = nOffset;
        const bool bWhole = ParseEntries(group);
        group.nSize = m_reader.Position() - nOffset;
        m_result.groups.push_back(std::move(group));
        return bWhole;
    }

    bool ParseEntries(Group& group) {
        const std::size_t nOffset = m_reader.Position();
        if (!m_reader.Take(group.nDeclared)) {
            return Fail(nOffset, "the file ends within the entry count");
        }
        if (group.nDeclared < 0) {
            m_result.problems.Damage(nOffset, "negative entry count " + std::to_string(group.nDeclared));
        }
        std::set<std::string> names;
        for (std::int32_t i = 0; i < group.nDeclared; ++i) {
            Entry entry;
            entry.nOffset = m_reader.Position();
            if (m_reader.Left() == 0) {
                return Fail(entry.nOffset, "the file ends after " + std::to_string(i) + " of " +
                                               std::to_string(group.nDeclared) + " entries");
            }
            if (!ParseName(entry) || !ParseValue(entry)) {
                return false;
            }
            if (!names.insert(entry.strName).second) {
                m_result.problems.Damage(entry.nOffset, "the name is there already: the library keeps the first value");
            }
            group.entries.push_back(std::move(entry));
        }
        return true;
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
        const std::string strText = characters.Text();
        entry.strName = strText.substr(0, strText.find('\0'));
        if (nCount != 0 && entry.strName.size() + 1 != strText.size()) {
            m_result.problems.Damage(entry.nOffset, "the zero byte of a name is not its last one");
        }
        return true;
    }

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
            m_result.problems.Damage(entry.nValueOffset, "negative byte count " + std::to_string(nCount));
            nCount = 0;
        }
        if (!m_reader.Take(static_cast<std::size_t>(nCount), entry.bytes)) {
            return Fail(entry.nValueOffset, "a value of " + std::to_string(nCount) + " bytes, but only " +
                                                std::to_string(m_reader.Left()) + " are left");
        }
        CheckContent(entry);
        return true;
    }

    void CheckContent(Entry& entry) {
        if (!IsType(entry.nType)) {
            entry.bReadable = false;
            m_result.problems.Damage(entry.nValueOffset, "there is no type " + std::to_string(entry.nType));
            return;
        }
        const bool bFixed = entry.nType != 0 && entry.nType != kString && entry.nType != kBlock;
        const std::size_t nExpected = kTypes[static_cast<std::size_t>(entry.nType)].nSize;
        if (bFixed && entry.bytes.nSize != nExpected) {
            entry.bReadable = false;
            m_result.problems.Damage(entry.nValueOffset, std::to_string(entry.bytes.nSize) +
                                                             " bytes in a value of type " + TypeName(entry.nType) +
                                                             ", which has " + std::to_string(nExpected));
        }
        if (entry.nType == kString) {
            CheckText(entry);
        }
    }

    void CheckText(Entry& entry) {
        const std::string strText = entry.bytes.Text();
        const std::size_t nZero = strText.find('\0');
        if (nZero == std::string::npos) {
            entry.bReadable = false;
            m_result.problems.Damage(entry.nValueOffset, "a text without a zero byte at its end");
        } else if (nZero + 1 != strText.size()) {
            m_result.problems.Note(entry.nValueOffset, "a text with bytes behind its zero byte");
        }
    }

    ByteReader m_reader;
    GroupFile m_result;
};

}  // namespace

GroupFile ParseGroups(ByteRange file) {
    return GroupParser(file).Parse();
}

std::string TypeName(std::int32_t nType) {
    return IsType(nType) ? kTypes[static_cast<std::size_t>(nType)].lpszName : "type " + std::to_string(nType);
}
