// Inspects pictures region by region, and saves what it cuts out of them:
//   inspection OUTPUT_DIRECTORY [PICTURE...]
// The pictures are .jpg or .bmp files; without any it draws its own. Ends with 0 when everything
// worked and everything that was saved reads back as it was.

#include <cstdio>
#include <string>

#include "Inspection.h"

namespace {

// The file's name without directory and extension. A bare name has no name part.
std::string Stem(const std::string& strPath) {
    char szName[TnRobotUtils::kPathSize];
    const bool bHasDirectory = TnRobotUtils::GetPureName(strPath.c_str(), szName) == 0;
    const std::string strName = bHasDirectory ? szName : strPath;
    return strName.substr(0, strName.rfind('.'));
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    if (nArguments < 2) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIRECTORY [PICTURE...]\n", ppszArguments[0]);
        return 2;
    }
    const Pools pools;
    OutputDirectory output(ppszArguments[1]);
    bool bOk = nArguments > 2 || InspectTestScene(pools, output);
    for (int i = 2; i < nArguments; ++i) {
        std::string strDarkest;
        bOk = InspectPicture(pools, output, ppszArguments[i], Stem(ppszArguments[i]), strDarkest) && bOk;
    }
    bOk = output.List() && bOk;
    if (!bOk) {
        std::fprintf(stderr, "something failed or differs from what was saved\n");
    }
    return bOk ? 0 : 1;
}
