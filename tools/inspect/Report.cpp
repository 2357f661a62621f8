#include "Report.h"

#include <algorithm>

#include "Text.h"

const char kObjectsUnknown[] = "only the program that has the classes can read the objects' own bytes";

namespace {

std::string Size(std::int64_t nWidth, std::int64_t nHeight) {
    return std::to_string(nWidth) + " x " + std::to_string(nHeight) + " pixels";
}

Facts FactsOf(const GroupFile& file) {
    return {{"groups", std::to_string(file.nGroups)}, {"entries", std::to_string(file.nEntries)}};
}

Facts FactsOf(const ValueFile& file) {
    return {{"type", TypeName(file.value.nType)}, {"value bytes", std::to_string(file.value.bytes.nSize)}};
}

std::string RecordText(const FirstRecord& record) {
    if (!record.bPresent) {
        return "null";
    }
    return (record.bNew ? "object " : "reference to object ") + std::to_string(record.nIndex);
}

Facts FactsOf(const ObjectTables& tables) {
    Facts facts = {
        {"classes", std::to_string(tables.classes.size())},
        {"objects", std::to_string(tables.objects.size())},
        {"object data", std::to_string(tables.data.nSize) + " bytes at " + std::to_string(tables.nDataOffset)}};
    if (tables.firstRecord) {
        facts.emplace_back("begins with", RecordText(*tables.firstRecord));
        facts.emplace_back("not shown", kObjectsUnknown);
    }
    return facts;
}

Facts FactsOf(const BmpFile& bmp) {
    return {{"size", Size(bmp.nWidth, bmp.nHeight)},
            {"bits per pixel", std::to_string(bmp.nBitsPerPixel)},
            {"colour table", std::to_string(bmp.nColours) + " entries"},
            {"pixels at", std::to_string(bmp.nDataOffset)}};
}

Facts FactsOf(const JpegFile& jpeg) {
    const std::string strProcess = jpeg.nFrameMarker != 0 ? ProcessName(jpeg.nFrameMarker) : "unknown";
    return {{"size", Size(jpeg.nWidth, jpeg.nHeight)},
            {"components", std::to_string(jpeg.nComponents) + " of " + std::to_string(jpeg.nBitsPerSample) + " bits"},
            {"coding", strProcess},
            {"segments", std::to_string(jpeg.nSegments)}};
}

}  // namespace

Facts FactsOf(const Document& document) {
    return std::visit([](const auto& known) { return FactsOf(known); }, document.content);
}

std::string Condition(const Document& document, const Style& style) {
    if (document.IsDamaged()) {
        return style.Bad("damaged");
    }
    const auto* pTables = std::get_if<ObjectTables>(&document.content);
    const bool bObjects = pTables != nullptr && pTables->data.nSize != 0;
    return bObjects ? style.Good("tables good") + ", objects not checked" : style.Good("good");
}

void PrintProblems(const Document& document, const Style& style) {
    const Problems& problems = document.ProblemList();
    for (const Problem& problem : problems.All()) {
        const std::string strKind = problem.bDamage ? style.Bad("damage") : style.Weak("note");
        Print("  " + strKind + " at " + std::to_string(problem.nOffset) + ": " + Printable(problem.strText) + "\n");
    }
    if (problems.More() != 0) {
        Print("  and " + std::to_string(problems.More()) + " more\n");
    }
}

std::string Padded(const std::string& strText, std::size_t nWidth) {
    // Bytes within a UTF-8 character take no place of their own.
    const auto nCharacters = static_cast<std::size_t>(std::count_if(
        strText.begin(), strText.end(), [](char ch) { return (static_cast<unsigned char>(ch) & 0xC0U) != 0x80; }));
    return strText + std::string(nWidth > nCharacters ? nWidth - nCharacters : 0, ' ');
}
