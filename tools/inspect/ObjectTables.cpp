#include "ObjectTables.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace {

bool IsReadable(std::string_view identifier) {
    return !identifier.empty() &&
           std::all_of(identifier.begin(), identifier.end(), [](char ch) { return ch > ' ' && ch < '\x7f'; });
}

// 8-4-4-4-12 hexadecimal digits. The library compares identifiers byte for byte, whatever they are, but
// no class has another form.
bool IsIdentifier(std::string_view text) {
    constexpr std::string_view kForm = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    const auto fits = [](char ch, char chForm) {
        return chForm == '-' ? ch == '-' : std::isxdigit(static_cast<unsigned char>(ch)) != 0;
    };
    return std::equal(text.begin(), text.end(), kForm.begin(), kForm.end(), fits);
}

class TableParser {
public:
    explicit TableParser(ByteRange file) : m_reader(file) {}

    ObjectTables Parse() {
        const bool bWhole = ParseClasses() && ParseObjects();
        m_tables.bLooksRight =
            !m_tables.classes.empty() && std::all_of(m_tables.classes.begin(), m_tables.classes.end(),
                                                     [](const ClassRow& row) { return IsReadable(row.identifier); });
        m_tables.nDataOffset = m_reader.Position();
        if (bWhole) {
            CheckIdentifiers();
            CheckClassIndexes();
            ParseData();
        }
        return std::move(m_tables);
    }

private:
    bool Fail(std::size_t nOffset, std::string strText) {
        m_tables.problems.Damage(nOffset, std::move(strText));
        return false;
    }

    bool ParseClasses() {
        std::uint16_t nCount = 0;
        if (!m_reader.Take(nCount)) {
            return Fail(0, "the file ends within the number of classes");
        }
        for (std::uint16_t i = 0; i < nCount; ++i) {
            const std::size_t nOffset = m_reader.Position();
            std::uint32_t nLength = 0;
            ByteRange characters;
            if (!m_reader.Take(nLength)) {
                return Fail(nOffset,
                            "the file ends after " + std::to_string(i) + " of " + std::to_string(nCount) + " classes");
            }
            if (!m_reader.Take(nLength, characters)) {
                return Fail(nOffset, "a class identifier of " + std::to_string(nLength) + " bytes, but only " +
                                         std::to_string(m_reader.Left()) + " are left");
            }
            m_tables.classes.push_back({nOffset, characters.View()});
        }
        return true;
    }

    bool ParseObjects() {
        const std::size_t nStart = m_reader.Position();
        std::uint16_t nCount = 0;
        if (!m_reader.Take(nCount)) {
            return Fail(nStart, "the file ends where the number of objects should be");
        }
        for (std::uint16_t i = 0; i < nCount; ++i) {
            ObjectRow row{m_reader.Position(), 0, 0};
            if (!m_reader.Take(row.nIdentity) || !m_reader.Take(row.nClass)) {
                return Fail(row.nOffset,
                            "the file ends after " + std::to_string(i) + " of " + std::to_string(nCount) + " objects");
            }
            m_tables.objects.push_back(row);
        }
        return true;
    }

    void CheckIdentifiers() {
        for (const ClassRow& row : m_tables.classes) {
            if (!IsIdentifier(row.identifier)) {
                m_tables.problems.Damage(row.nOffset, "no class identifier, which has 8-4-4-4-12 hexadecimal digits");
            }
        }
    }

    void CheckClassIndexes() {
        for (const ObjectRow& row : m_tables.objects) {
            if (row.nClass >= m_tables.classes.size()) {
                m_tables.problems.Damage(row.nOffset, "object of class " + std::to_string(row.nClass) +
                                                          ", but there are " + std::to_string(m_tables.classes.size()) +
                                                          " classes");
            }
        }
    }

    void ParseData() {
        m_reader.Take(m_reader.Left(), m_tables.data);
        if (m_tables.data.nSize != 0) {
            ParseFirstRecord();
        } else if (!m_tables.objects.empty()) {
            m_tables.problems.Damage(m_tables.nDataOffset,
                                     "no objects follow the tables: the file was cut, or they are kept elsewhere");
        }
        if (m_tables.firstRecord && !m_tables.problems.IsDamaged() && !m_tables.objects.empty()) {
            CheckRecords();
        }
    }

    // Only the first record's place is known: how long an object's own bytes are, its class knows.
    void ParseFirstRecord() {
        ByteReader reader(m_tables.data);
        unsigned char nPresent = 0;
        unsigned char nNew = 0;
        FirstRecord record{};
        reader.Take(nPresent);
        record.bPresent = nPresent != 0;
        if (record.bPresent && (!reader.Take(nNew) || !reader.Take(record.nIndex))) {
            m_tables.problems.Damage(m_tables.nDataOffset, "the file ends within the first object record");
            return;
        }
        record.bNew = nNew != 0;
        if (record.bPresent && record.nIndex >= m_tables.objects.size()) {
            m_tables.problems.Damage(m_tables.nDataOffset, "the first object record names object " +
                                                               std::to_string(record.nIndex) + ", but there are " +
                                                               std::to_string(m_tables.objects.size()) + " objects");
        }
        m_tables.firstRecord = record;
    }

    // Objects get their numbers as they are written in full, so the beginnings of their records follow
    // each other in this order, with anything in between. An archive that wrote another file before has
    // objects in its tables that lie there: what comes ahead of the first record is not looked for, and
    // where that record is no new object, only the last is.
    void CheckRecords() {
        const FirstRecord& first = *m_tables.firstRecord;
        const std::size_t nLast = m_tables.objects.size() - 1;
        const std::string_view data = m_tables.data.View();
        std::size_t nPosition = 0;
        for (std::size_t i = first.bPresent && first.bNew ? first.nIndex : nLast; i <= nLast; ++i) {
            const char beginning[] = {1, 1, static_cast<char>(i & 0xFFU), static_cast<char>(i >> 8U)};
            const std::size_t nFound = data.find(std::string_view(beginning, sizeof(beginning)), nPosition);
            if (nFound == std::string_view::npos) {
                m_tables.problems.Damage(m_tables.nDataOffset + data.size(),
                                         "object " + std::to_string(i) +
                                             " of the table is nowhere in the file: the file was cut or changed");
                return;
            }
            nPosition = nFound + sizeof(beginning);
        }
    }

    ByteReader m_reader;
    ObjectTables m_tables;
};

}  // namespace

ObjectTables ParseObjectTables(ByteRange file) {
    return TableParser(file).Parse();
}
