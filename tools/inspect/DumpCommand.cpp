#include <algorithm>

#include "Commands.h"
#include "Json.h"
#include "Report.h"
#include "Values.h"

namespace {

constexpr std::size_t kLongestValue = 60;
constexpr std::size_t kNumberWidth = 10;
constexpr std::size_t kTypeWidth = 11;

std::string Number(std::size_t nNumber) {
    return Padded(std::to_string(nNumber), kNumberWidth);
}

// Texts are cut before they are escaped, so that an escape is never cut in two.
std::string Shown(const std::string& strText, bool bFull) {
    if (bFull || strText.size() <= kLongestValue) {
        return Printable(strText);
    }
    std::size_t nEnd = kLongestValue;
    while (nEnd > 0 && (static_cast<unsigned char>(strText[nEnd]) & 0xC0U) == 0x80) {
        --nEnd;
    }
    return Printable(strText.substr(0, nEnd)) + "...";
}

void PrintTable(const GroupFile& file, const DumpOptions& options, const Style& style) {
    for (std::size_t i = 0; i < file.groups.size(); ++i) {
        const Group& group = file.groups[i];
        std::size_t nNameWidth = 4;
        for (const Entry& entry : group.entries) {
            nNameWidth = std::max(nNameWidth, std::min(Printable(entry.strName).size(), kLongestValue));
        }
        Print("group " + std::to_string(i) + " at " + std::to_string(group.nOffset) + ": " +
              std::to_string(group.entries.size()) + " entries, " + std::to_string(group.nSize) + " bytes\n");
        Print(style.Weak("  " + Padded("offset", kNumberWidth) + Padded("type", kTypeWidth) +
                         Padded("bytes", kNumberWidth) + Padded("name", nNameWidth) + "  value") +
              "\n");
        for (const Entry& entry : group.entries) {
            Print("  " + Number(entry.nOffset) + Padded(TypeName(entry.nType), kTypeWidth) + Number(entry.bytes.nSize) +
                  Padded(Shown(entry.strName, options.bFull), nNameWidth) + "  " +
                  Shown(ValueText(entry), options.bFull) + "\n");
        }
    }
}

void PrintTable(const ObjectTables& tables, const DumpOptions& options, const Style& style) {
    Print("classes\n" +
          style.Weak("  " + Padded("offset", kNumberWidth) + Padded("class", kNumberWidth) + "identifier") + "\n");
    for (std::size_t i = 0; i < tables.classes.size(); ++i) {
        Print("  " + Number(tables.classes[i].nOffset) + Number(i) +
              Shown(tables.classes[i].strIdentifier, options.bFull) + "\n");
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
    for (const Segment& segment : jpeg.segments) {
        Print("  " + Number(segment.nOffset) + Number(segment.nSize) + MarkerName(segment.nMarker) + "\n");
    }
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
        Print(DocumentJson(document).dump(2) + "\n");
    } else {
        DumpTable(document, options, common.Colours());
    }
    return document.IsDamaged() ? kDiffers : kGood;
}
