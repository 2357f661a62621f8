// save_probe PATH NUMBER [WORDS]: replaces a file by a group that holds the number many times over, or by a graph
// of objects (word: graph) or a file of groups (word: groups) that hold nothing; the word flushed does not wait
// for the disk.

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

bool SaveNoGroups(const char* lpszPath, tn::Durability eDurability, std::error_code& ec) {
    return tn::GroupFileWriter(lpszPath).Save(eDurability, ec);
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    if (nArguments != 3 && nArguments != 4) {
        std::fprintf(stderr, "usage: %s PATH NUMBER [WORDS]\n", ppszArguments[0]);
        return 2;
    }
    const std::string_view words = nArguments == 4 ? ppszArguments[3] : "";
    const auto says = [words](std::string_view word) { return words.find(word) != std::string_view::npos; };
    const tn::Durability eDurability = says("flushed") ? tn::Durability::kFlushed : tn::Durability::kSynced;
    std::error_code ec;
    bool bSaved = false;
    if (says("graph")) {
        bSaved = SaveNothing(ppszArguments[1], eDurability, ec);
    } else if (says("groups")) {
        bSaved = SaveNoGroups(ppszArguments[1], eDurability, ec);
    } else {
        bSaved = SaveGroup(ppszArguments[1], ppszArguments[2], eDurability, ec);
    }
    if (!bSaved) {
        std::fprintf(stderr, "%s\n", ec.message().c_str());
        return 1;
    }
    return 0;
}
