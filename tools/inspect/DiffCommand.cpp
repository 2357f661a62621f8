#include <algorithm>
#include <cstdlib>
#include <optional>
#include <vector>

#include "Commands.h"
#include "Report.h"
#include "Text.h"
#include "Values.h"

namespace {

/// Prints differences and remembers that there were some.
class Differences {
public:
    explicit Differences(const Style& style) : m_style(style) {}

    bool Any() const { return m_bAny; }
    void OnlyFirst(const std::string& strText) { Line(m_style.Bad("- " + strText)); }
    void OnlySecond(const std::string& strText) { Line(m_style.Good("+ " + strText)); }
    void Changed(const std::string& strText) { Line("~ " + strText); }

    /// An entry of one of the groups only.
    void OnlyFirst(const std::string& strLabel, const Entry& entry) {
        OneSided(m_style.BeginBad() + "- " + strLabel, entry);
    }
    void OnlySecond(const std::string& strLabel, const Entry& entry) {
        OneSided(m_style.BeginGood() + "+ " + strLabel, entry);
    }

    /// Numbers may differ where their text form ends: then the bytes say it.
    void Changed(const std::string& strLabel, const Entry& a, const Entry& b) {
        const bool bBytes = a.nType == b.nType && SameText(ValueText(a), ValueText(b));
        Print("~ " + strLabel);
        PrintEntry(a, bBytes);
        Print(" -> ");
        PrintEntry(b, bBytes);
        Line("");
    }

private:
    static bool SameText(const ValueText& a, const ValueText& b) {
        return a.IsHex() == b.IsHex() && a.Source() == b.Source();
    }

    // Values can be large: none is put together in memory.
    static void PrintEntry(const Entry& entry, bool bBytes) {
        const ValueText text(entry);
        Print(TypeName(entry.nType) + " ");
        ForEachPiece(text.Source(), [&text](std::string_view piece) { Print(Printable(text.Shown(piece))); });
        if (bBytes) {
            Print(" (");
            ForEachPiece(entry.bytes.View(), [](std::string_view piece) { Print(HexDigits(piece)); });
            Print(")");
        }
    }

    void OneSided(const std::string& strBeginning, const Entry& entry) {
        Print(strBeginning);
        PrintEntry(entry, false);
        Line(m_style.End());
    }

    void Line(const std::string& strText) {
        Print(strText + "\n");
        m_bAny = true;
    }

    const Style& m_style;
    bool m_bAny = false;
};

bool SameValue(const Entry& a, const Entry& b) {
    return a.nType == b.nType && a.bytes == b.bytes;
}

/// A group's entries by name; their order in the file has no meaning. Of entries with one name the
/// first counts, as for the library.
class SortedEntries {
public:
    SortedEntries(ByteRange file, const Group& group) : m_file(file), m_offsets(EntriesByName(file, group)) {}

    void Rewind() {
        m_nNext = 0;
        Read();
    }

    bool AtEnd() const { return m_nNext == m_offsets.size(); }
    const Entry& Current() const { return m_entry; }
    void Next() {
        const std::string_view name = m_entry.name;
        do {
            ++m_nNext;
            Read();
        } while (!AtEnd() && m_entry.name == name);
    }

private:
    void Read() {
        if (!AtEnd()) {
            m_entry = EntryAt(m_file, m_offsets[m_nNext]);
        }
    }

    ByteRange m_file;
    std::vector<std::size_t> m_offsets;
    std::size_t m_nNext = 0;
    Entry m_entry;
};

// Hands over each entry of one group together with that of the other group which has its name, null
// where none has.
template <typename Function>
void ForEachPair(SortedEntries& entries, SortedEntries& others, Function function) {
    for (entries.Rewind(), others.Rewind(); !entries.AtEnd(); entries.Next()) {
        const Entry& entry = entries.Current();
        while (!others.AtEnd() && others.Current().name < entry.name) {
            others.Next();
        }
        const bool bBoth = !others.AtEnd() && others.Current().name == entry.name;
        function(entry, bBoth ? &others.Current() : nullptr);
    }
}

void Compare(SortedEntries a, SortedEntries b, const std::string& strPlace, Differences& differences) {
    const auto label = [&strPlace](const Entry& entry) { return strPlace + Printable(entry.name) + ": "; };
    ForEachPair(a, b, [&](const Entry& entry, const Entry* pOther) {
        if (pOther == nullptr) {
            differences.OnlyFirst(label(entry), entry);
        } else if (!SameValue(entry, *pOther)) {
            differences.Changed(label(entry), entry, *pOther);
        }
    });
    ForEachPair(b, a, [&](const Entry& entry, const Entry* pOther) {
        if (pOther == nullptr) {
            differences.OnlySecond(label(entry), entry);
        }
    });
}

std::string GroupText(std::size_t i, const Group& group) {
    return "group " + std::to_string(i) + " of " + std::to_string(group.nEntries) + " entries";
}

void Compare(const GroupFile& a, const GroupFile& b, Differences& differences) {
    const bool bSeveral = std::max(a.nGroups, b.nGroups) > 1;
    std::optional<Group> first = GroupAt(a.file, 0);
    std::optional<Group> second = GroupAt(b.file, 0);
    for (std::size_t i = 0; first || second; ++i) {
        if (!second) {
            differences.OnlyFirst(GroupText(i, *first));
        } else if (!first) {
            differences.OnlySecond(GroupText(i, *second));
        } else {
            Compare(SortedEntries(a.file, *first), SortedEntries(b.file, *second),
                    bSeveral ? "group " + std::to_string(i) + ", " : "", differences);
        }
        first = first ? GroupBehind(a.file, *first) : std::nullopt;
        second = second ? GroupBehind(b.file, *second) : std::nullopt;
    }
}

std::string ClassOf(const ObjectTables& tables, const ObjectRow& row) {
    return row.nClass < tables.classes.size() ? Printable(tables.classes[row.nClass].identifier)
                                              : "class " + std::to_string(row.nClass);
}

void CompareBytes(const std::string& strWhat, ByteRange a, ByteRange b, Differences& differences) {
    const std::size_t nCommon = std::min(a.nSize, b.nSize);
    std::size_t nSame = 0;
    while (nSame < nCommon && a.pData[nSame] == b.pData[nSame]) {
        ++nSame;
    }
    if (nSame != nCommon || a.nSize != b.nSize) {
        differences.Changed(strWhat + ": " + std::to_string(a.nSize) + " -> " + std::to_string(b.nSize) +
                            " bytes, equal up to byte " + std::to_string(nSame));
    }
}

// An object's identity is an address of the program that wrote it: it differs in every run.
void Compare(const ObjectTables& a, const ObjectTables& b, Differences& differences) {
    for (std::size_t i = 0; i < std::max(a.objects.size(), b.objects.size()); ++i) {
        const std::string strLabel = "object " + std::to_string(i) + ": ";
        if (i >= b.objects.size()) {
            differences.OnlyFirst(strLabel + ClassOf(a, a.objects[i]));
        } else if (i >= a.objects.size()) {
            differences.OnlySecond(strLabel + ClassOf(b, b.objects[i]));
        } else if (ClassOf(a, a.objects[i]) != ClassOf(b, b.objects[i])) {
            differences.Changed(strLabel + ClassOf(a, a.objects[i]) + " -> " + ClassOf(b, b.objects[i]));
        }
    }
    const auto sameName = [](const ClassRow& first, const ClassRow& second) {
        return first.identifier == second.identifier;
    };
    if (!std::equal(a.classes.begin(), a.classes.end(), b.classes.begin(), b.classes.end(), sameName)) {
        differences.Changed("class table: " + std::to_string(a.classes.size()) + " -> " +
                            std::to_string(b.classes.size()) + " classes");
    }
    CompareBytes("object data", a.data, b.data, differences);
}

std::string SizeText(const Picture& picture) {
    return std::to_string(picture.nWidth) + " x " + std::to_string(picture.nHeight) + " pixels";
}

// Counts the pixels that differ, and keeps the largest difference.
void CompareRows(ByteRange a, ByteRange b, std::size_t& nPixels, int& nLargest) {
    for (std::size_t i = 0; i < a.nSize; i += kBytesPerPixel) {
        int nPixel = 0;
        for (std::size_t j = i; j < i + kBytesPerPixel; ++j) {
            nPixel = std::max(nPixel, std::abs(a.pData[j] - b.pData[j]));
        }
        nPixels += nPixel != 0 ? 1 : 0;
        nLargest = std::max(nLargest, nPixel);
    }
}

void Compare(const Picture& a, const Picture& b, Differences& differences) {
    if (a.nWidth != b.nWidth || a.nHeight != b.nHeight) {
        differences.Changed("size: " + SizeText(a) + " -> " + SizeText(b));
        return;
    }
    std::size_t nPixels = 0;
    int nLargest = 0;
    for (int i = 0; i < a.nHeight; ++i) {
        CompareRows(a.Row(i), b.Row(i), nPixels, nLargest);
    }
    if (nPixels != 0) {
        const std::size_t nAll = static_cast<std::size_t>(a.nWidth) * static_cast<std::size_t>(a.nHeight);
        differences.Changed(std::to_string(nPixels) + " of " + std::to_string(nAll) + " pixels differ, by at most " +
                            std::to_string(nLargest) + " of 255");
    }
}

void Compare(const Document& a, const Document& b, Differences& differences) {
    if (a.picture && b.picture) {
        Compare(*a.picture, *b.picture, differences);
    } else if (a.content.index() != b.content.index()) {
        differences.Changed("kind: " + a.KindName() + " -> " + b.KindName());
    } else if (const auto* pGroups = std::get_if<GroupFile>(&a.content)) {
        Compare(*pGroups, std::get<GroupFile>(b.content), differences);
    } else if (const auto* pValue = std::get_if<ValueFile>(&a.content)) {
        const Entry& other = std::get<ValueFile>(b.content).value;
        if (!SameValue(pValue->value, other)) {
            differences.Changed("value: ", pValue->value, other);
        }
    } else if (const auto* pTables = std::get_if<ObjectTables>(&a.content)) {
        Compare(*pTables, std::get<ObjectTables>(b.content), differences);
    } else {
        CompareBytes("file", RangeOf(a.bytes), RangeOf(b.bytes), differences);
    }
}

}  // namespace

// Of damaged files that is compared which could be read, and the result is never "equal".
int Diff(const std::string& strFirst, const std::string& strSecond, const Common& common) {
    const Style style = common.Colours();
    const Document first = ReadDocument(strFirst, common.reading);
    const Document second = ReadDocument(strSecond, common.reading);
    Differences differences(style);
    Compare(first, second, differences);
    for (const Document* pDocument : {&first, &second}) {
        if (pDocument->IsDamaged()) {
            Print(Printable(pDocument->strPath) + ": " + Condition(*pDocument, style) + "\n");
            PrintProblems(*pDocument, style);
        }
    }
    const bool bEqual = !differences.Any() && !first.IsDamaged() && !second.IsDamaged();
    if (bEqual) {
        Print("equal\n");
    }
    return bEqual ? kGood : kDiffers;
}
