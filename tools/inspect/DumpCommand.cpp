#include <algorithm>

#include "Commands.h"
#include "Json.h"
#include "Report.h"
#include "Text.h"
#include "Values.h"

namespace {

constexpr std::size_t kLongestValue = 60;
constexpr std::size_t kNumberWidth = 10;
constexpr std::size_t kTypeWidth = 11;

std::string Number(std::size_t nNumber) {
    return Padded(std::to_string(nNumber), kNumberWidth);
}

// Texts are cut before they are escaped, so that an escape is never cut in two.
std::string Shown(std::string_view text) {
    if (text.size() <= kLongestValue) {
        return Printable(text);
    }
    return Printable(text.substr(0, WholeCharacters(text, kLongestValue))) + "...";
}

// A text at a column's width at least.
void PrintText(std::string_view text, std::size_t nWidth, bool bFull) {
    if (!bFull || text.size() <= kLongestValue) {
        Print(Padded(Shown(text), nWidth));
        return;
    }
    ForEachPiece(text, [](std::string_view piece) { Print(Printable(piece)); });
}

void PrintValue(const ValueText& text, bool bFull) {
    if (bFull) {
        ForEachPiece(text.Source(), [&text](std::string_view piece) { Print(Printable(text.Shown(piece))); });
    } else {
        // Enough to tell that there is more than is shown.
        Print(Shown(text.Shown(text.Source().substr(0, 2 * kLongestValue))));
    }
    Print("\n");
}

std::size_t NameWidth(std::string_view name) {
    return name.size() > kLongestValue ? kLongestValue : std::min(Printable(name).size(), kLongestValue);
}

void PrintTable(const GroupFile& file, const Group& group, const DumpOptions& options, const Style& style) {
    std::size_t nNameWidth = 4;
    ForEachEntry(file.file, group,
                 [&nNameWidth](const Entry& entry) { nNameWidth = std::max(nNameWidth, NameWidth(entry.name)); });
    Print(style.Weak("  " + Padded("offset", kNumberWidth) + Padded("type", kTypeWidth) +
                     Padded("bytes", kNumberWidth) + Padded("name", nNameWidth) + "  value") +
          "\n");
    ForEachEntry(file.file, group, [&](const Entry& entry) {
        Print("  " + Number(entry.nOffset) + Padded(TypeName(entry.nType), kTypeWidth) + Number(entry.bytes.nSize));
        PrintText(entry.name, nNameWidth, options.bFull);
        Print("  ");
        PrintValue(ValueText(entry), options.bFull);
    });
}

void PrintTable(const GroupFile& file, const DumpOptions& options, const Style& style) {
    std::size_t i = 0;
    ForEachGroup(file.file, [&](const Group& group) {
        Print("group " + std::to_string(i++) + " at " + std::to_string(group.nOffset) + ": " +
              std::to_string(group.nEntries) + " entries, " + std::to_string(group.nSize) + " bytes\n");
        PrintTable(file, group, options, style);
    });
}

void PrintTable(const ValueFile& file, const DumpOptions& options, const Style& style) {
    const Entry& value = file.value;
    Print(style.Weak("  " + Padded("offset", kNumberWidth) + Padded("type", kTypeWidth) +
                     Padded("bytes", kNumberWidth) + "value") +
          "\n  " + Number(value.nOffset) + Padded(TypeName(value.nType), kTypeWidth) + Number(value.bytes.nSize));
    PrintValue(ValueText(value), options.bFull);
}

void PrintTable(const ObjectTables& tables, const DumpOptions& options, const Style& style) {
    Print("classes\n" +
          style.Weak("  " + Padded("offset", kNumberWidth) + Padded("class", kNumberWidth) + "identifier") + "\n");
    for (std::size_t i = 0; i < tables.classes.size(); ++i) {
        Print("  " + Number(tables.classes[i].nOffset) + Number(i));
        PrintText(tables.classes[i].identifier, 0, options.bFull);
        Print("\n");
    }
    Print("objects\n" +
          style.Weak("  " + Padded("offset", kNumberWidth) + Padded("object", kNumberWidth) +
                     Padded("class", kNumberWidth) + "identity") +
          "\n");
    for (std::size_t i = 0; i < tables.objects.size(); ++i) {
        const ObjectRow& row = tables.objects[i];
        Print("  " + Number(row.nOffset) + Number(i) + Number(row.nClass) + IdentityText(row) + "\n");
    }
    Print("object data: " + std::to_string(tables.data.nSize) + " bytes at " + std::to_string(tables.nDataOffset) +
          "\n");
    if (tables.data.nSize != 0) {
        Print("  not shown: " + std::string(kObjectsUnknown) + "\n");
    }
}

void PrintTable(const BmpFile& bmp, const DumpOptions&, const Style&) {
    const std::pair<const char*, long long> fields[] = {
        {"file size", bmp.nFileSize},   {"data offset", bmp.nDataOffset},      {"width", bmp.nWidth},
        {"height", bmp.nHeight},        {"bits per pixel", bmp.nBitsPerPixel}, {"compression", bmp.nCompression},
        {"image size", bmp.nImageSize}, {"colours used", bmp.nColours},
    };
    constexpr std::size_t kNameWidth = 16;
    for (const auto& [lpszName, nValue] : fields) {
        Print("  " + Padded(lpszName, kNameWidth) + std::to_string(nValue) + "\n");
    }
}

void PrintTable(const JpegFile& jpeg, const DumpOptions&, const Style& style) {
    Print(style.Weak("  " + Padded("offset", kNumberWidth) + Padded("bytes", kNumberWidth) + "segment") + "\n");
    ForEachSegment(jpeg.file, [](const Segment& segment) {
        Print("  " + Number(segment.nOffset) + Number(segment.nSize) + MarkerName(segment.nMarker) + "\n");
    });
}

void DumpTable(const Document& document, const DumpOptions& options, const Style& style) {
    Print(style.Strong(Printable(document.strPath)) + ": " + document.KindName() + ", " +
          std::to_string(document.bytes.size()) + " bytes, " + Condition(document, style) + "\n");
    std::visit([&](const auto& known) { PrintTable(known, options, style); }, document.content);
    PrintProblems(document, style);
}

}  // namespace

int Dump(const std::string& strPath, const DumpOptions& options, const Common& common) {
    const Document document = ReadDocument(strPath, common.reading);
    if (options.bJson) {
        PrintJson(document);
    } else {
        DumpTable(document, options, common.Colours());
    }
    return document.IsDamaged() ? kDiffers : kGood;
}
