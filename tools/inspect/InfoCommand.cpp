#include "Commands.h"
#include "Report.h"
#include "Text.h"

int Info(const std::string& strPath, const Common& common) {
    constexpr std::size_t kNameWidth = 16;
    const Style style = common.Colours();
    const Document document = ReadDocument(strPath, common.reading);
    Print(style.Strong(Printable(strPath)) + ": " + document.KindName() + ", " + std::to_string(document.bytes.size()) +
          " bytes\n");
    for (const auto& [strName, strValue] : FactsOf(document)) {
        Print("  " + Padded(strName, kNameWidth) + strValue + "\n");
    }
    Print("  " + Padded("condition", kNameWidth) + Condition(document, style) + "\n");
    PrintProblems(document, style);
    return document.IsDamaged() ? kDiffers : kGood;
}
