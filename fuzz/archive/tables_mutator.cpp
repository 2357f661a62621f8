// Changes entries of an archive's tables; their counts and lengths follow.

#include "FuzzMutator.h"
#include "archive/ArchiveTables.h"

using namespace tnfuzz;

namespace {

void MutateClass(std::vector<std::string>& classes, Choice& choice) {
    if (classes.empty() || choice.OneIn(4)) {
        classes.emplace_back(choice.Below(40), 'c');
        return;
    }
    std::string& strClass = classes[choice.Below(classes.size())];
    Bytes bytes(strClass.begin(), strClass.end());
    MutateBehind(bytes, 0, 8);
    strClass.assign(bytes.begin(), bytes.end());
}

// Mostly a class that there is, now and then one behind them or none.
void MutateObject(ArchiveTables& tables, Choice& choice) {
    if (tables.objects.empty() || choice.OneIn(4)) {
        tables.objects.push_back({choice.Number(), 0});
    }
    tntest::SavedObject& object = tables.objects[choice.Below(tables.objects.size())];
    object.nIdentity = choice.OneIn(2) ? choice.Number() : object.nIdentity;
    object.nClass =
        static_cast<std::uint16_t>(choice.OneIn(4) ? choice.Number() : choice.Below(tables.classes.size() + 1));
}

Bytes MutateTables(const Bytes& bytes, Choice& choice) {
    FuzzInput input(bytes.data(), bytes.size());
    ArchiveTables tables;
    if (!ReadTables(input, tables)) {
        return {};
    }
    switch (choice.Below(4)) {
        case 0:
            Rearrange(tables.classes, choice);
            break;
        case 1:
            MutateClass(tables.classes, choice);
            break;
        case 2:
            Rearrange(tables.objects, choice);
            break;
        default:
            MutateObject(tables, choice);
    }
    return tables.Saved() + input.Rest();
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* pData, std::size_t nSize, std::size_t nMaxSize,
                                               unsigned int nSeed) {
    return MutateByFormat(pData, nSize, nMaxSize, nSeed, MutateTables);
}
