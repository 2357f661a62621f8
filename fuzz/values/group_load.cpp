// Loads a value group from untrusted bytes and reads everything that it then holds.

#include <map>
#include <utility>
#include <vector>

#include "FuzzBudget.h"
#include "archive/FuzzArchive.h"
#include "support/objects/Groups.h"
#include "values/ValueReading.h"

using namespace tnfuzz;

namespace {

using tntest::Group;
using tntest::NewGroup;

// Each entry as it is saved. The order of entries is not specified, so whole files are not compared.
std::map<std::string, Bytes> ReadEntries(ITnRobotDataValueGroup& group) {
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    Require(group.GetAllDataName(names) == static_cast<int>(names.size()), "all names are counted");
    std::map<std::string, Bytes> entries;
    for (const auto& [strName, eType] : names) {
        Require(group.GetDataValueType(strName.c_str()) == eType, "a name leads to its value");
        ITnRobotDataValue* pValue = nullptr;
        if (group.GetValue(strName.c_str(), &pValue) == 0) {
            const TnRobotPtr<ITnRobotDataValue> value(pValue, tn::kAdopt);
            ReadEverything(*pValue);
            entries[strName] = SavedForm(*pValue);
        } else {
            Require(strName.empty(), "only the empty name is out of reach");
        }
    }
    return entries;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    const Group group = NewGroup();
    const LoadingArchive archive(Bytes(pData, pData + nSize));
    group->Serialize(archive.Get());
    const auto entries = ReadEntries(*group);
    const Group clone(group->Clone(), tn::kAdopt);
    Require(ReadEntries(*clone) == entries, "a clone holds the same");

    const Bytes saved = SavedForm(*group);
    const Group copy = NewGroup();
    const LoadingArchive again(saved);
    Require(copy->Serialize(again.Get()) == 1, "what was saved loads");
    Require(again.Position() == saved.size(), "to its last byte");
    Require(ReadEntries(*copy) == entries, "and holds the same");
    Require(SavedForm(*copy).size() == saved.size(), "and is saved at the same length");

    // A file that goes on after the group: loading merges, and what is there wins.
    group->Serialize(archive.Get());
    for (const auto& [strName, bytes] : entries) {
        ITnRobotDataValue* pValue = nullptr;
        Require(group->GetValue(strName.c_str(), &pValue) == 0, "an entry stays");
        const TnRobotPtr<ITnRobotDataValue> value(pValue, tn::kAdopt);
        Require(SavedForm(*pValue) == bytes, "with its value");
    }
    return 0;
}
