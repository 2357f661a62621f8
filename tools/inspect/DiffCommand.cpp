#include <algorithm>
#include <cstdlib>
#include <map>

#include "Commands.h"
#include "Report.h"
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

private:
    void Line(const std::string& strText) {
        Print(strText + "\n");
        m_bAny = true;
    }

    const Style& m_style;
    bool m_bAny = false;
};

std::string Described(const Entry& entry) {
    return TypeName(entry.nType) + " " + Printable(ValueText(entry));
}

bool SameValue(const Entry& a, const Entry& b) {
    return a.nType == b.nType && a.bytes == b.bytes;
}

// Numbers may differ where their text form ends: then the bytes say it.
std::string Change(const Entry& a, const Entry& b) {
    std::string strFirst = Described(a);
    std::string strSecond = Described(b);
    if (strFirst == strSecond) {
        strFirst += " (" + Hex(a.bytes) + ")";
        strSecond += " (" + Hex(b.bytes) + ")";
    }
    return strFirst + " -> " + strSecond;
}

// The order of a group's entries has no meaning.
std::map<std::string, const Entry*> ByName(const Group& group) {
    std::map<std::string, const Entry*> entries;
    for (const Entry& entry : group.entries) {
        entries.emplace(entry.strName, &entry);
    }
    return entries;
}

void Compare(const Group& a, const Group& b, const std::string& strPlace, Differences& differences) {
    const auto first = ByName(a);
    const auto second = ByName(b);
    for (const auto& [strName, pEntry] : first) {
        const auto it = second.find(strName);
        const std::string strLabel = strPlace + Printable(strName) + ": ";
        if (it == second.end()) {
            differences.OnlyFirst(strLabel + Described(*pEntry));
        } else if (!SameValue(*pEntry, *it->second)) {
            differences.Changed(strLabel + Change(*pEntry, *it->second));
        }
    }
    for (const auto& [strName, pEntry] : second) {
        if (first.find(strName) == first.end()) {
            differences.OnlySecond(strPlace + Printable(strName) + ": " + Described(*pEntry));
        }
    }
}

std::string GroupText(const GroupFile& file, std::size_t i) {
    return "group " + std::to_string(i) + " of " + std::to_string(file.groups[i].entries.size()) + " entries";
}

void Compare(const GroupFile& a, const GroupFile& b, Differences& differences) {
    const bool bSeveral = std::max(a.groups.size(), b.groups.size()) > 1;
    for (std::size_t i = 0; i < std::max(a.groups.size(), b.groups.size()); ++i) {
        if (i >= b.groups.size()) {
            differences.OnlyFirst(GroupText(a, i));
        } else if (i >= a.groups.size()) {
            differences.OnlySecond(GroupText(b, i));
        } else {
            Compare(a.groups[i], b.groups[i], bSeveral ? "group " + std::to_string(i) + ", " : "", differences);
        }
    }
}

std::string ClassOf(const ObjectTables& tables, const ObjectRow& row) {
    return row.nClass < tables.classes.size() ? Printable(tables.classes[row.nClass].strIdentifier)
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
        return first.strIdentifier == second.strIdentifier;
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

void Compare(const Picture& a, const Picture& b, Differences& differences) {
    if (a.nWidth != b.nWidth || a.nHeight != b.nHeight) {
        differences.Changed("size: " + SizeText(a) + " -> " + SizeText(b));
        return;
    }
    constexpr std::size_t kBytesPerPixel = 3;
    std::size_t nPixels = 0;
    int nLargest = 0;
    for (std::size_t i = 0; i < a.pixels.size(); i += kBytesPerPixel) {
        int nPixel = 0;
        for (std::size_t j = i; j < i + kBytesPerPixel; ++j) {
            nPixel = std::max(nPixel, std::abs(a.pixels[j] - b.pixels[j]));
        }
        nPixels += nPixel != 0 ? 1 : 0;
        nLargest = std::max(nLargest, nPixel);
    }
    if (nPixels != 0) {
        differences.Changed(std::to_string(nPixels) + " of " + std::to_string(a.pixels.size() / kBytesPerPixel) +
                            " pixels differ, by at most " + std::to_string(nLargest) + " of 255");
    }
}

void Compare(const Document& a, const Document& b, Differences& differences) {
    if (a.picture && b.picture) {
        Compare(*a.picture, *b.picture, differences);
    } else if (a.content.index() != b.content.index()) {
        differences.Changed("kind: " + a.KindName() + " -> " + b.KindName());
    } else if (const auto* pGroups = std::get_if<GroupFile>(&a.content)) {
        Compare(*pGroups, std::get<GroupFile>(b.content), differences);
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
