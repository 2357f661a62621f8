#include <algorithm>
#include <new>

#include "Commands.h"
#include "Report.h"
#include "Text.h"

namespace {

int VerifyOne(const std::string& strPath, const Common& common, const Style& style) {
    try {
        const Document document = ReadDocument(strPath, common.reading);
        Print(Printable(strPath) + ": " + Condition(document, style) + " (" + document.KindName() + ", " +
              std::to_string(document.bytes.size()) + " bytes)\n");
        PrintProblems(document, style);
        return document.IsDamaged() ? kDiffers : kGood;
    } catch (const UnreadableError& error) {
        Complain(error.what());
    } catch (const std::bad_alloc&) {
        Complain(strPath + ": not enough memory");
    }
    return kTrouble;
}

}  // namespace

// The worst result of all files counts.
int Verify(const std::vector<std::string>& paths, const Common& common) {
    constexpr std::size_t kManyFiles = 20;
    const Style style = common.Colours();
    Progress progress("verifying", paths.size(), kManyFiles);
    int nWorst = kGood;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        nWorst = std::max(nWorst, VerifyOne(paths[i], common, style));
        progress.Show(i + 1);
    }
    return nWorst;
}
