// Fills a value group, saves it, loads it and saves it again.

#include <array>
#include <map>

#include "FuzzBudget.h"
#include "archive/FuzzArchive.h"
#include "support/objects/Groups.h"
#include "values/ValueReading.h"

using namespace tnfuzz;

namespace {

using tntest::Group;
using tntest::NewGroup;
using Entries = std::map<std::string, Bytes>;

template <typename T>
Bytes SetNumber(FuzzInput& input, ITnRobotDataValueGroup& group, const char* lpszName, int nType) {
    const auto value = input.Number<T>();
    Require(group.SetValue(lpszName, value) == 0, "a number can be stored");
    Bytes bytes = tntest::BytesOf(value);
    if (nType == DATA_TYPE_CHAR) {
        bytes.push_back(0);  // a character is saved as two bytes
    }
    return tntest::SavedValue(nType, bytes);
}

Bytes SetBool(FuzzInput& input, ITnRobotDataValueGroup& group, const char* lpszName, int nType) {
    const bool bValue = input.Below(2) == 1;
    Require(group.SetValue(lpszName, bValue) == 0, "a truth value can be stored");
    return tntest::SavedValue(nType, tntest::U8(bValue ? 1 : 0));
}

Bytes SetText(FuzzInput& input, ITnRobotDataValueGroup& group, const char* lpszName, int nType) {
    const std::string strText = input.Text(input.Below(64));
    Require(group.SetValue(lpszName, strText.c_str()) == 0, "a text can be stored");
    Bytes bytes = tntest::FromText(strText);
    bytes.push_back(0);
    return tntest::SavedValue(nType, bytes);
}

Bytes SetBlock(FuzzInput& input, ITnRobotDataValueGroup& group, const char* lpszName, int nType) {
    const Bytes bytes = input.Take(input.Below(200));
    Require(group.SetValue(lpszName, bytes.data(), static_cast<unsigned int>(bytes.size())) == 0,
            "bytes can be stored");
    return tntest::SavedValue(nType, bytes);
}

// Stores a value under a name. @return how it is saved.
using Setter = Bytes (*)(FuzzInput&, ITnRobotDataValueGroup&, const char*, int nType);

// In the order of the types' numbers, from 1.
constexpr std::array<Setter, 13> kSetters = {SetBool,
                                             SetNumber<short>,
                                             SetNumber<unsigned short>,
                                             SetNumber<int>,
                                             SetNumber<unsigned int>,
                                             SetNumber<float>,
                                             SetNumber<double>,
                                             SetNumber<long long>,
                                             SetNumber<unsigned long long>,
                                             SetText,
                                             SetBlock,
                                             SetNumber<char>,
                                             SetNumber<unsigned char>};

void Step(FuzzInput& input, ITnRobotDataValueGroup& group, Entries& entries) {
    constexpr unsigned int kLongestName = 12;
    const unsigned int nStep = input.Below(16);
    const std::string strName = input.Text(input.Below(kLongestName));
    if (nStep < kSetters.size()) {
        entries[strName] = kSetters[nStep](input, group, strName.c_str(), static_cast<int>(nStep) + 1);
    } else if (nStep == kSetters.size()) {
        const bool bThere = !strName.empty() && entries.erase(strName) != 0;
        Require(group.RemoveValue(strName.c_str()) == (bThere ? 0 : -1), "what is there can be removed");
    } else if (nStep == kSetters.size() + 1) {
        ITnRobotDataValue* pValue = nullptr;
        if (group.GetValue(strName.c_str(), &pValue) == 0) {
            const TnRobotPtr<ITnRobotDataValue> value(pValue, tn::kAdopt);
            const std::string strOther = strName + "'";
            Require(group.SetValue(strOther.c_str(), pValue) == 0, "a value can have two names");
            entries[strOther] = entries[strName];
        }
    }
}

// Takes a saved group apart. @return its entries, as far as it is well formed.
Entries Parse(const Bytes& saved) {
    FuzzInput input(saved.data(), saved.size());
    Require(input.Number<std::uint8_t>() == 1, "a group's version is 1");
    const auto nEntries = input.Number<std::int32_t>();
    Entries entries;
    for (std::int32_t i = 0; i < nEntries; ++i) {
        const auto nName = input.Number<std::uint32_t>();
        const std::string strName = input.Text(nName);
        constexpr std::size_t kValueHead = 5;
        Bytes value = input.Take(kValueHead);
        const auto nBytes = input.Number<std::uint32_t>();
        using tntest::operator+;
        using tntest::operator+=;
        value += tntest::U32(nBytes) + input.Take(nBytes);
        entries[strName] = value;
    }
    Require(input.Left() == 0 && entries.size() == static_cast<std::size_t>(nEntries), "nothing else is in the file");
    return entries;
}

void ReadAll(ITnRobotDataValueGroup& group, const Entries& entries) {
    for (const auto& [strName, bytes] : entries) {
        ITnRobotDataValue* pValue = nullptr;
        if (group.GetValue(strName.c_str(), &pValue) == 0) {
            const TnRobotPtr<ITnRobotDataValue> value(pValue, tn::kAdopt);
            Require(SavedForm(*pValue) == bytes, "each value is saved as it was stored");
            ReadEverything(*pValue);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    FuzzInput input(pData, nSize);
    const Group group = NewGroup();
    Require(group != nullptr, "a group can be made");
    Entries entries;
    while (input.Left() != 0) {
        Step(input, *group, entries);
    }
    ReadAll(*group, entries);
    const Bytes saved = SavedForm(*group);
    Require(Parse(saved) == entries, "a group is saved as it was filled");

    const Group loaded = NewGroup();
    const LoadingArchive archive(saved);
    Require(loaded->Serialize(archive.Get()) == 1, "what was saved loads");
    ReadAll(*loaded, entries);
    const Bytes again = SavedForm(*loaded);
    Require(Parse(again) == entries, "and is saved as the same entries");
    // The order is that of a hash map: it is the same where there is only one.
    Require(again.size() == saved.size() && (entries.size() > 1 || again == saved), "and as the same bytes");
    return 0;
}
