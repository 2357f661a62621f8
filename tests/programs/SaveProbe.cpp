// save_probe PATH NUMBER: replaces a file by a group that holds the number many times over.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "TnRobotKernel/make.h"

int main(int nArguments, char** ppszArguments) {
    if (nArguments != 3) {
        std::fprintf(stderr, "usage: %s PATH NUMBER\n", ppszArguments[0]);
        return 2;
    }
    const auto group = tn::MakeValueDataGroup();
    group->SetValue("number", std::atoi(ppszArguments[2]));
    // More than the file's buffer takes, so that there are several writes.
    group->SetValue("text", std::string(200000, ppszArguments[2][0]).c_str());
    std::error_code ec;
    if (!tn::SaveTo(ppszArguments[1], *group, ec)) {
        std::fprintf(stderr, "%s\n", ec.message().c_str());
        return 1;
    }
    return 0;
}
