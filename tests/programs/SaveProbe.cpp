// save_probe PATH NUMBER [flushed|graph|flushed-graph]: replaces a file by a group that holds the number many
// times over, or by a graph of objects that holds nothing.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "TnRobotKernel/make.h"

namespace {

bool SaveGroup(const char* lpszPath, const char* lpszNumber, tn::Durability eDurability, std::error_code& ec) {
    const auto group = tn::MakeValueDataGroup();
    group->SetValue("number", std::atoi(lpszNumber));
    // More than the file's buffer takes, so that there are several writes.
    group->SetValue("text", std::string(200000, lpszNumber[0]).c_str());
    return tn::SaveTo(lpszPath, *group, eDurability, ec);
}

bool SaveNothing(const char* lpszPath, tn::Durability eDurability, std::error_code& ec) {
    tn::ObjectWriter writer;
    return writer.Write(nullptr, ec) && writer.Save(lpszPath, eDurability, ec);
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    if (nArguments != 3 && nArguments != 4) {
        std::fprintf(stderr, "usage: %s PATH NUMBER [flushed|graph|flushed-graph]\n", ppszArguments[0]);
        return 2;
    }
    const std::string_view how = nArguments == 4 ? ppszArguments[3] : "";
    const bool bFlushed = how.find("flushed") != std::string_view::npos;
    const tn::Durability eDurability = bFlushed ? tn::Durability::kFlushed : tn::Durability::kSynced;
    const bool bGraph = how.find("graph") != std::string_view::npos;
    std::error_code ec;
    const bool bSaved = bGraph ? SaveNothing(ppszArguments[1], eDurability, ec)
                               : SaveGroup(ppszArguments[1], ppszArguments[2], eDurability, ec);
    if (!bSaved) {
        std::fprintf(stderr, "%s\n", ec.message().c_str());
        return 1;
    }
    return 0;
}
