#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/values.h"
#include "support/Archives.h"
#include "support/Files.h"
#include "support/ForeignValue.h"
#include "support/Groups.h"
#include "support/ValuePool.h"
#include "support/Values.h"

using namespace tntest;

namespace {

using Names = std::vector<std::pair<std::string, ETnRobotDataValueType>>;

// All entries as the enumeration gives them, sorted.
std::map<std::string, ETnRobotDataValueType> EntriesOf(ITnRobotDataValueGroup& group) {
    Names names;
    const int nCount = group.GetAllDataName(names);
    EXPECT_EQ(nCount, static_cast<int>(names.size()));
    const std::map<std::string, ETnRobotDataValueType> entries(names.begin(), names.end());
    EXPECT_EQ(entries.size(), names.size()) << "names are unique";
    return entries;
}

Value ValueOf(ITnRobotDataValueGroup& group, const char* lpszName) {
    ITnRobotDataValue* pValue = nullptr;
    return tn::Adopt(group.GetValue(lpszName, &pValue) == 0 ? pValue : nullptr);
}

// The value under a name, which the group goes on holding.
ITnRobotDataValue* BorrowedFrom(ITnRobotDataValueGroup& group, const char* lpszName) {
    ITnRobotDataValue* pValue = nullptr;
    if (group.GetValue(lpszName, &pValue) == 0) {
        pValue->Release();
    }
    return pValue;
}

// A group with one entry of each type under the type's name, made with the typed setters.
Group GroupOfEverything() {
    Group group = NewGroup();
    EXPECT_EQ(group->SetValue("bool", true), 0);
    EXPECT_EQ(group->SetValue("short", short{-2}), 0);
    EXPECT_EQ(group->SetValue("ushort", static_cast<unsigned short>(65534)), 0);
    EXPECT_EQ(group->SetValue("int", -305419896), 0);
    EXPECT_EQ(group->SetValue("uint", 0xFEDCBA98U), 0);
    EXPECT_EQ(group->SetValue("float", -1.5F), 0);
    EXPECT_EQ(group->SetValue("double", 0.1), 0);
    EXPECT_EQ(group->SetValue("longlong", -2LL), 0);
    EXPECT_EQ(group->SetValue("ulonglong", 0x0102030405060708ULL), 0);
    EXPECT_EQ(group->SetValue("string", "ab"), 0);
    EXPECT_EQ(group->SetValue("block", static_cast<const void*>("\x0A\xFF"), 2U), 0);
    EXPECT_EQ(group->SetValue("char", 'x'), 0);
    EXPECT_EQ(group->SetValue("byte", static_cast<unsigned char>(200)), 0);
    return group;
}

// Calls every typed setter with a name of the caller's choosing.
std::vector<int> SetOneOfEach(ITnRobotDataValueGroup& group, const char* lpszName) {
    return {
        group.SetValue(lpszName, true),
        group.SetValue(lpszName, 'x'),
        group.SetValue(lpszName, static_cast<unsigned char>(1)),
        group.SetValue(lpszName, short{1}),
        group.SetValue(lpszName, static_cast<unsigned short>(1)),
        group.SetValue(lpszName, 1),
        group.SetValue(lpszName, 1U),
        group.SetValue(lpszName, 1.0F),
        group.SetValue(lpszName, 1.0),
        group.SetValue(lpszName, 1LL),
        group.SetValue(lpszName, 1ULL),
        group.SetValue(lpszName, "x"),
        group.SetValue(lpszName, static_cast<const void*>("x"), 1U),
    };
}

// The outcome of one of the group's typed getters.
struct Got {
    int nError;
    bool bZero;
};

std::vector<std::pair<ETnRobotDataValueType, Got>> GetAsEachType(ITnRobotDataValueGroup& group, const char* lpszName) {
    std::vector<std::pair<ETnRobotDataValueType, Got>> all;
    int nError = 77;
    const auto add = [&](ETnRobotDataValueType eType, bool bZero) {
        all.push_back({eType, {nError, bZero}});
        nError = 77;
    };
    bool bZero = !group.BoolData(lpszName, &nError);
    add(DATA_TYPE_BOOL, bZero);
    bZero = group.CharData(lpszName, &nError) == 0;
    add(DATA_TYPE_CHAR, bZero);
    bZero = group.ByteData(lpszName, &nError) == 0;
    add(DATA_TYPE_BYTE, bZero);
    bZero = group.ShortData(lpszName, &nError) == 0;
    add(DATA_TYPE_SHORT, bZero);
    bZero = group.UShortData(lpszName, &nError) == 0;
    add(DATA_TYPE_USHORT, bZero);
    bZero = group.IntData(lpszName, &nError) == 0;
    add(DATA_TYPE_INT, bZero);
    bZero = group.UintData(lpszName, &nError) == 0;
    add(DATA_TYPE_UINT, bZero);
    bZero = group.FloatData(lpszName, &nError) == 0;
    add(DATA_TYPE_FLOAT, bZero);
    bZero = group.DoubleData(lpszName, &nError) == 0;
    add(DATA_TYPE_DOUBLE, bZero);
    bZero = group.LonglongData(lpszName, &nError) == 0;
    add(DATA_TYPE_LONGLONG, bZero);
    bZero = group.ULonglongData(lpszName, &nError) == 0;
    add(DATA_TYPE_ULONGLONG, bZero);
    bZero = group.StringData(lpszName, &nError) == nullptr;
    add(DATA_TYPE_STRING, bZero);
    unsigned int nLength = 4711;
    bZero = group.BlockData(lpszName, nLength, &nError) == nullptr;
    EXPECT_EQ(nLength == 4711, bZero) << "the length is written with the bytes only";
    add(DATA_TYPE_BLOCK, bZero);
    return all;
}

}  // namespace

TEST(DataValueGroup, StartsEmptyWithOneReference) {
    Group group = NewGroup();
    EXPECT_TRUE(EntriesOf(*group).empty());
    EXPECT_EQ(group.detach()->Release(), 0);
}

TEST(DataValueGroup, IsNotCreatedWithoutAPool) {
    const NoValuePool noPool;
    ITnRobotDataValueGroup* const pUntouched = reinterpret_cast<ITnRobotDataValueGroup*>(&TnCreateRobotValueDataGroup);
    ITnRobotDataValueGroup* pGroup = pUntouched;
    EXPECT_EQ(TnCreateRobotValueDataGroup(&pGroup), 0);
    EXPECT_EQ(pGroup, pUntouched);
}

TEST(DataValueGroup, TypedSettersStoreTheirType) {
    Group group = GroupOfEverything();
    for (const ValueSample& sample : ValueSamples()) {
        EXPECT_TRUE(group->HasValue(sample.lpszName)) << sample.lpszName;
        EXPECT_EQ(group->GetDataValueType(sample.lpszName), sample.eType) << sample.lpszName;
        Value value = ValueOf(*group, sample.lpszName);
        ASSERT_NE(value, nullptr) << sample.lpszName;
        EXPECT_EQ(SavedFormOf(*value), SavedValue(sample.eType, sample.bytes)) << sample.lpszName;
    }
    EXPECT_EQ(EntriesOf(*group).size(), 13u);
}

TEST(DataValueGroup, TypedGettersReadTheirTypeOnly) {
    Group group = GroupOfEverything();
    for (const ValueSample& sample : ValueSamples()) {
        for (const auto& [eType, got] : GetAsEachType(*group, sample.lpszName)) {
            EXPECT_EQ(got.nError, eType == sample.eType ? 0 : -1) << sample.lpszName << " as " << eType;
            EXPECT_EQ(got.bZero, eType != sample.eType) << sample.lpszName << " as " << eType;
        }
    }
}

TEST(DataValueGroup, TypedGettersGiveTheStoredValue) {
    Group group = GroupOfEverything();
    EXPECT_EQ(group->BoolData("bool", nullptr), true);
    EXPECT_EQ(group->ShortData("short", nullptr), -2);
    EXPECT_EQ(group->UShortData("ushort", nullptr), 65534);
    EXPECT_EQ(group->IntData("int", nullptr), -305419896);
    EXPECT_EQ(group->UintData("uint", nullptr), 0xFEDCBA98U);
    EXPECT_EQ(group->FloatData("float", nullptr), -1.5F);
    EXPECT_EQ(group->DoubleData("double", nullptr), 0.1);
    EXPECT_EQ(group->LonglongData("longlong", nullptr), -2);
    EXPECT_EQ(group->ULonglongData("ulonglong", nullptr), 0x0102030405060708ULL);
    EXPECT_STREQ(group->StringData("string", nullptr), "ab");
    EXPECT_EQ(group->CharData("char", nullptr), 'x');
    EXPECT_EQ(group->ByteData("byte", nullptr), 200);
    unsigned int nLength = 0;
    const unsigned char* pBlock = static_cast<const unsigned char*>(group->BlockData("block", nLength, nullptr));
    ASSERT_EQ(nLength, 2u);
    EXPECT_EQ(Bytes(pBlock, pBlock + nLength), FromHex("0AFF"));
}

TEST(DataValueGroup, AMissingNameReadsAsAnError) {
    Group group = GroupOfEverything();
    for (const char* lpszName : {"missing", "", "Int", "int "}) {
        for (const auto& [eType, got] : GetAsEachType(*group, lpszName)) {
            EXPECT_EQ(got.nError, -1) << lpszName << " as " << eType;
            EXPECT_TRUE(got.bZero) << lpszName << " as " << eType;
        }
        EXPECT_EQ(group->GetDataValueType(lpszName), DATA_TYPE_NONE);
        EXPECT_FALSE(group->HasValue(lpszName));
        EXPECT_EQ(group->IntData(lpszName, nullptr), 0);
    }
}

TEST(DataValueGroup, NamesAreComparedByteForByte) {
    Group group = NewGroup();
    const char* const names[] = {"a", "A", "a ", "\xC3\xA4", "aa"};
    int nValue = 0;
    for (const char* lpszName : names) {
        EXPECT_EQ(group->SetValue(lpszName, ++nValue), 0);
    }
    nValue = 0;
    for (const char* lpszName : names) {
        EXPECT_EQ(group->IntData(lpszName, nullptr), ++nValue) << lpszName;
    }
    EXPECT_EQ(EntriesOf(*group).size(), std::size(names));
}

TEST(DataValueGroup, KeepsItsOwnCopyOfTheName) {
    Group group = NewGroup();
    std::string strName = "first";
    group->SetValue(strName.c_str(), 1);
    strName.assign("other");
    EXPECT_TRUE(group->HasValue("first"));
    EXPECT_FALSE(group->HasValue("other"));
}

TEST(DataValueGroup, TypedSettersAcceptTheEmptyName) {
    Group group = NewGroup();
    for (int nResult : SetOneOfEach(*group, "")) {
        EXPECT_EQ(nResult, 0);
    }
    EXPECT_EQ(EntriesOf(*group), (std::map<std::string, ETnRobotDataValueType>{{"", DATA_TYPE_BLOCK}}));
    EXPECT_EQ(group->GetDataValueType(""), DATA_TYPE_BLOCK);
    // The operations on value objects do not.
    ITnRobotDataValue* pValue = nullptr;
    EXPECT_EQ(group->GetValue("", &pValue), -1);
    EXPECT_FALSE(group->HasValue(""));
    EXPECT_EQ(group->RemoveValue(""), -1);
    EXPECT_EQ(group->SetValue("", IntValue(5).get()), -1);
    EXPECT_EQ(EntriesOf(*group).size(), 1u);
    EXPECT_EQ(group->ClearAllValues(), 0);
    EXPECT_TRUE(EntriesOf(*group).empty());
}

TEST(DataValueGroup, OperationsOnValueObjectsRefuseNull) {
    Group group = NewGroup();
    Value value = IntValue(5);
    EXPECT_EQ(group->SetValue(static_cast<const char*>(nullptr), value.get()), -1);
    EXPECT_EQ(group->SetValue("name", static_cast<ITnRobotDataValue*>(nullptr)), -1);
    ITnRobotDataValue* pOut = value.get();
    EXPECT_EQ(group->GetValue(nullptr, &pOut), -1);
    EXPECT_EQ(pOut, value.get());
    EXPECT_FALSE(group->HasValue(nullptr));
    EXPECT_EQ(group->RemoveValue(nullptr), -1);
    EXPECT_TRUE(EntriesOf(*group).empty());
    value->AddRef();
    EXPECT_EQ(value->Release(), 2) << "a refused value is not held: caller and pool";
}

TEST(DataValueGroup, TypedOperationsThrowForANullName) {
    Group group = GroupOfEverything();
    EXPECT_THROW(SetOneOfEach(*group, nullptr), std::logic_error);
    EXPECT_THROW(group->SetValue(static_cast<const char*>(nullptr), "text"), std::logic_error);
    EXPECT_THROW(group->SetValue(static_cast<const char*>(nullptr), static_cast<const void*>("x"), 1U),
                 std::logic_error);
    EXPECT_THROW(group->BoolData(nullptr, nullptr), std::logic_error);
    EXPECT_THROW(group->IntData(nullptr, nullptr), std::logic_error);
    EXPECT_THROW(group->StringData(nullptr, nullptr), std::logic_error);
    unsigned int nLength = 0;
    EXPECT_THROW(group->BlockData(nullptr, nLength, nullptr), std::logic_error);
    EXPECT_THROW(group->GetDataValueType(nullptr), std::logic_error);
    EXPECT_EQ(EntriesOf(*group).size(), 13u);
}

TEST(DataValueGroup, AValueWhoseNameThrowsIsGivenBack) {
    const FreshValuePool pool;
    Group group = NewGroup();
    Value value = IntValue(1);
    ITnRobotDataValue* const pOnly = value.get();
    value.reset();
    EXPECT_THROW(group->SetValue(static_cast<const char*>(nullptr), 5), std::logic_error);
    Value again = IntValue(2);
    EXPECT_EQ(again.get(), pOnly);
}

TEST(DataValueGroup, RefusesANullTextAndNullBytesWithACount) {
    Group group = NewGroup();
    group->SetValue("a", 5);
    EXPECT_EQ(group->SetValue("a", static_cast<const char*>(nullptr)), -1);
    EXPECT_EQ(group->SetValue("a", static_cast<const void*>(nullptr), 3U), -1);
    EXPECT_EQ(group->IntData("a", nullptr), 5) << "the entry is left as it was";
    EXPECT_EQ(group->SetValue("a", static_cast<const void*>(nullptr), 0U), 0);
    EXPECT_EQ(group->GetDataValueType("a"), DATA_TYPE_BLOCK);
}

TEST(DataValueGroup, SharesTheValueObjectsItIsGiven) {
    Group group = NewGroup();
    Value value = IntValue(5);
    EXPECT_EQ(group->SetValue("a", value.get()), 0);
    Value got = ValueOf(*group, "a");
    EXPECT_EQ(got.get(), value.get());
    // Pool, caller, group, and the one just got.
    EXPECT_EQ(got.detach()->Release(), 3);
    EXPECT_EQ(group->RemoveValue("a"), 0);
    value->AddRef();
    EXPECT_EQ(value->Release(), 2);
    EXPECT_EQ(value->IntData(nullptr), 5);
}

TEST(DataValueGroup, ATypedSetterHandsItsReferenceToTheGroup) {
    Group group = NewGroup();
    group->SetValue("a", 5);
    ITnRobotDataValue* pValue = ValueOf(*group, "a").detach();
    EXPECT_EQ(pValue->Release(), 2) << "pool and group";
}

TEST(DataValueGroup, GetValueLeavesTheOutPointerOnFailure) {
    Group group = NewGroup();
    Value value = IntValue(5);
    ITnRobotDataValue* pOut = value.get();
    EXPECT_EQ(group->GetValue("missing", &pOut), -1);
    EXPECT_EQ(pOut, value.get());
}

TEST(DataValueGroup, ReplacesAValueOfAnyTypeByOneOfAnyOther) {
    Group group = NewGroup();
    const std::vector<ValueSample> samples = ValueSamples();
    for (const ValueSample& first : samples) {
        for (const ValueSample& second : samples) {
            ASSERT_EQ(group->SetValue("name", first.create().get()), 0);
            ASSERT_EQ(group->SetValue("name", second.create().get()), 0);
            EXPECT_EQ(group->GetDataValueType("name"), second.eType);
            EXPECT_EQ(EntriesOf(*group).size(), 1u);
        }
    }
}

TEST(DataValueGroup, AReplacedValueGoesBackToThePool) {
    const FreshValuePool pool;
    Group group = NewGroup();
    group->SetValue("a", 5);
    ITnRobotDataValue* const pOld = BorrowedFrom(*group, "a");
    group->SetValue("a", "text");
    EXPECT_EQ(EntriesOf(*group), (std::map<std::string, ETnRobotDataValueType>{{"a", DATA_TYPE_STRING}}));
    Value next = BoolValue(true);
    EXPECT_EQ(next.get(), pOld);
}

TEST(DataValueGroup, StoringTheValueThatIsStoredAlreadyKeepsIt) {
    Group group = NewGroup();
    group->SetValue("a", 5);
    ITnRobotDataValue* const pBorrowed = BorrowedFrom(*group, "a");  // only the group and the pool hold it
    EXPECT_EQ(group->SetValue("a", pBorrowed), 0);
    EXPECT_EQ(group->IntData("a", nullptr), 5) << "it must not go through the pool on the way";
    pBorrowed->AddRef();
    EXPECT_EQ(pBorrowed->Release(), 2);
    // The same under a second name.
    EXPECT_EQ(group->SetValue("b", pBorrowed), 0);
    pBorrowed->AddRef();
    EXPECT_EQ(pBorrowed->Release(), 3);
}

TEST(DataValueGroup, RemovesEntries) {
    const FreshValuePool pool;
    Group group = NewGroup();
    group->SetValue("a", 1);
    group->SetValue("b", 2);
    ITnRobotDataValue* const pFirst = BorrowedFrom(*group, "a");
    EXPECT_EQ(group->RemoveValue("a"), 0);
    EXPECT_FALSE(group->HasValue("a"));
    EXPECT_TRUE(group->HasValue("b"));
    EXPECT_EQ(group->RemoveValue("a"), -1);
    EXPECT_EQ(group->RemoveValue("missing"), -1);
    EXPECT_EQ(IntValue(3).get(), pFirst) << "the value went back to the pool";
}

TEST(DataValueGroup, ClearsAllEntries) {
    const FreshValuePool pool;
    Group group = NewGroup();
    std::set<const ITnRobotDataValue*> values;
    for (const char* lpszName : {"a", "b", "c"}) {
        group->SetValue(lpszName, 1);
        values.insert(BorrowedFrom(*group, lpszName));
    }
    EXPECT_EQ(group->ClearAllValues(), 0);
    EXPECT_TRUE(EntriesOf(*group).empty());
    Value a = IntValue(1);
    Value b = IntValue(2);
    Value c = IntValue(3);
    EXPECT_EQ((std::set<const ITnRobotDataValue*>{a.get(), b.get(), c.get()}), values);
    EXPECT_EQ(group->ClearAllValues(), 0);
    group->SetValue("a", 2);
    EXPECT_EQ(group->IntData("a", nullptr), 2);
}

TEST(DataValueGroup, ReleasesItsValuesWhenItGoes) {
    const FreshValuePool pool;
    Group group = NewGroup();
    group->SetValue("a", 5);
    Value held = TextValue("held");
    group->SetValue("b", held.get());
    ITnRobotDataValue* const pFirst = BorrowedFrom(*group, "a");
    EXPECT_EQ(group.detach()->Release(), 0);
    EXPECT_STREQ(held->Convert2String(nullptr), "held");
    EXPECT_EQ(IntValue(6).get(), pFirst);
}

TEST(DataValueGroup, EnumerationAppendsToTheList) {
    Group group = NewGroup();
    group->SetValue("a", 1);
    group->SetValue("b", "text");
    group->SetValue("c", true);
    Names names = {{"x", DATA_TYPE_BLOCK}, {"y", DATA_TYPE_CHAR}};
    EXPECT_EQ(group->GetAllDataName(names), 5);
    ASSERT_EQ(names.size(), 5u);
    EXPECT_EQ(names[0], (Names::value_type{"x", DATA_TYPE_BLOCK}));
    EXPECT_EQ(names[1], (Names::value_type{"y", DATA_TYPE_CHAR}));
    Names added(names.begin() + 2, names.end());
    std::sort(added.begin(), added.end());
    EXPECT_EQ(added, (Names{{"a", DATA_TYPE_INT}, {"b", DATA_TYPE_STRING}, {"c", DATA_TYPE_BOOL}}));
    EXPECT_EQ(NewGroup()->GetAllDataName(names), 5);
}

namespace {

// A value that uses its group as it goes, as an application's own may.
class FarewellValue final : public ForeignValue {
public:
    explicit FarewellValue(ITnRobotDataValueGroup& group) : m_group(group) {}
    ~FarewellValue() override {
        for (int i = 0; i < 20; ++i) {
            m_group.SetValue(("farewell " + std::to_string(i)).c_str(), i);
        }
    }

private:
    ITnRobotDataValueGroup& m_group;
};

}  // namespace

TEST(DataValueGroup, AValueThatGoesMayUseTheGroup) {
    struct {
        const char* lpszWhat;
        void (*letGo)(ITnRobotDataValueGroup&);
        std::size_t nLeft;
    } const cases[] = {
        {"replaced", [](ITnRobotDataValueGroup& group) { group.SetValue("last", 1); }, 22},
        {"removed", [](ITnRobotDataValueGroup& group) { group.RemoveValue("last"); }, 21},
        {"cleared", [](ITnRobotDataValueGroup& group) { group.ClearAllValues(); }, 20},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.lpszWhat);
        Group group = NewGroup();
        group->SetValue("first", 1);
        group->SetValue("last", tn::Adopt<ITnRobotDataValue>(new FarewellValue(*group)).get());
        c.letGo(*group);
        EXPECT_EQ(EntriesOf(*group).size(), c.nLeft);
        EXPECT_EQ(group->IntData("farewell 19", nullptr), 19);
    }
}

namespace {

// An application's own value that saves itself as an INT one, and says something of its own about it.
class SavableValue final : public ForeignValue {
public:
    explicit SavableValue(int nAnswer) : m_nAnswer(nAnswer) {}

    int Serialize(ITnRobotArchive* pArchive) override {
        const Bytes saved = SavedValue(DATA_TYPE_INT, BytesOf(4711));
        pArchive->Write(saved.data(), static_cast<long long>(saved.size()));
        return m_nAnswer;
    }

private:
    const int m_nAnswer;
};

}  // namespace

TEST(DataValueGroupSaving, AnApplicationsOwnValueIsSavedInItsPlaceWhateverItAnswers) {
    for (int nAnswer : {0, 1}) {
        Group group = NewGroup();
        group->SetValue("own", tn::Adopt<ITnRobotDataValue>(new SavableValue(nAnswer)).get());
        EXPECT_EQ(SavedFormOf(*group), U8(1) + U32(1) + SavedString("own") + SavedValue(DATA_TYPE_INT, BytesOf(4711)));
    }
}

TEST(DataValueGroup, HoldsManyEntries) {
    Group group = NewGroup();
    constexpr int kEntries = 5000;
    for (int i = 0; i < kEntries; ++i) {
        ASSERT_EQ(group->SetValue(("name " + std::to_string(i)).c_str(), i), 0);
    }
    EXPECT_EQ(EntriesOf(*group).size(), static_cast<std::size_t>(kEntries));
    for (int i = 0; i < kEntries; ++i) {
        ASSERT_EQ(group->IntData(("name " + std::to_string(i)).c_str(), nullptr), i);
    }
}

TEST(DataValueGroupCopy, IsDeepAndReplacesEverything) {
    Group source = GroupOfEverything();
    Group copy = NewGroup();
    copy->SetValue("old", 1);
    copy->SetValue("int", "of another type");
    copy->Copy(source.get());
    EXPECT_EQ(EntriesOf(*copy), EntriesOf(*source));
    for (const ValueSample& sample : ValueSamples()) {
        Value original = ValueOf(*source, sample.lpszName);
        Value copied = ValueOf(*copy, sample.lpszName);
        ASSERT_NE(copied, nullptr) << sample.lpszName;
        EXPECT_NE(copied, original) << sample.lpszName;
        EXPECT_EQ(SavedFormOf(*copied), SavedValue(sample.eType, sample.bytes)) << sample.lpszName;
    }
    source->SetValue("int", 1);
    EXPECT_EQ(copy->IntData("int", nullptr), -305419896);
}

TEST(DataValueGroupCopy, OntoItselfEmptiesTheGroup) {
    const FreshValuePool pool;
    Group group = NewGroup();
    group->SetValue("a", 1);
    group->SetValue("b", 2);
    group->Copy(group.get());
    EXPECT_TRUE(EntriesOf(*group).empty());
    group->SetValue("a", 3);
    EXPECT_EQ(group->IntData("a", nullptr), 3);
}

TEST(DataValueGroupCopy, IgnoresNull) {
    Group group = NewGroup();
    group->SetValue("a", 1);
    group->Copy(nullptr);
    EXPECT_EQ(group->IntData("a", nullptr), 1);
}

TEST(DataValueGroupCopy, OfAnEmptyGroupEmptiesTheTarget) {
    Group group = NewGroup();
    group->SetValue("a", 1);
    group->Copy(NewGroup().get());
    EXPECT_TRUE(EntriesOf(*group).empty());
}

namespace {

// A group of somebody else's making.
class ForeignGroup final : public ITnRobotDataValueGroup {
public:
    int SetValue(const char*, ITnRobotDataValue*) override { return -1; }
    int GetValue(const char*, ITnRobotDataValue**) override { return -1; }
    bool HasValue(const char*) override { return true; }
    int RemoveValue(const char*) override { return -1; }
    int ClearAllValues() override { return 0; }
    int GetAllDataName(Names& names) override {
        names.emplace_back("foreign", DATA_TYPE_INT);
        return static_cast<int>(names.size());
    }
    ETnRobotDataValueType GetDataValueType(const char*) override { return DATA_TYPE_INT; }
    int SetValue(const char*, bool) override { return -1; }
    bool BoolData(const char*, int*) override { return false; }
    int SetValue(const char*, char) override { return -1; }
    char CharData(const char*, int*) override { return 0; }
    int SetValue(const char*, unsigned char) override { return -1; }
    unsigned char ByteData(const char*, int*) override { return 0; }
    int SetValue(const char*, short) override { return -1; }
    short ShortData(const char*, int*) override { return 0; }
    int SetValue(const char*, unsigned short) override { return -1; }
    unsigned short UShortData(const char*, int*) override { return 0; }
    int SetValue(const char*, int) override { return -1; }
    int IntData(const char*, int*) override { return 0; }
    int SetValue(const char*, unsigned int) override { return -1; }
    unsigned int UintData(const char*, int*) override { return 0; }
    int SetValue(const char*, float) override { return -1; }
    float FloatData(const char*, int*) override { return 0; }
    int SetValue(const char*, double) override { return -1; }
    double DoubleData(const char*, int*) override { return 0; }
    int SetValue(const char*, long long) override { return -1; }
    long long LonglongData(const char*, int*) override { return 0; }
    int SetValue(const char*, unsigned long long) override { return -1; }
    unsigned long long ULonglongData(const char*, int*) override { return 0; }
    int SetValue(const char*, const char*) override { return -1; }
    const char* StringData(const char*, int*) override { return nullptr; }
    int SetValue(const char*, const void*, unsigned int) override { return -1; }
    const void* BlockData(const char*, unsigned int&, int*) override { return nullptr; }
    void Copy(ITnRobotDataValueGroup*) override {}
    ITnRobotDataValueGroup* Clone() override { return nullptr; }
    int Serialize(ITnRobotArchive*) override { return 0; }
};

}  // namespace

TEST(DataValueGroupCopy, IgnoresForeignImplementations) {
    Group group = NewGroup();
    group->SetValue("a", 1);
    Group foreign = tn::Adopt<ITnRobotDataValueGroup>(new ForeignGroup);
    group->Copy(foreign.get());
    EXPECT_EQ(EntriesOf(*group), (std::map<std::string, ETnRobotDataValueType>{{"a", DATA_TYPE_INT}}));
}

TEST(DataValueGroupCopy, ACloneIsAGroupOfItsOwn) {
    Group source = GroupOfEverything();
    source->SetValue("", 5);
    Group clone(source->Clone(), tn::kAdopt);
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(EntriesOf(*clone), EntriesOf(*source));
    EXPECT_EQ(source.detach()->Release(), 0);
    EXPECT_STREQ(clone->StringData("string", nullptr), "ab");
    clone->SetValue("new", 1);
    EXPECT_EQ(clone.detach()->Release(), 0);
}

TEST(DataValueGroupWithoutPool, TypedSettersFailAndLeaveTheEntry) {
    const FreshValuePool pool;
    Group group = NewGroup();
    Value held = IntValue(5);
    group->SetValue("a", held.get());  // two holders, so it keeps its content
    TnRobotUtils::Destroy();
    for (int nResult : SetOneOfEach(*group, "a")) {
        EXPECT_EQ(nResult, -1);
    }
    for (int nResult : SetOneOfEach(*group, "new")) {
        EXPECT_EQ(nResult, -1);
    }
    EXPECT_FALSE(group->HasValue("new"));
    EXPECT_EQ(group->IntData("a", nullptr), 5);
    TnRobotUtils::Init();
    EXPECT_EQ(group->SetValue("new", 6), 0) << "the pool is asked for at each call";
    EXPECT_EQ(group->IntData("new", nullptr), 6);
}

TEST(DataValueGroupWithoutPool, ValuesItHoldsAloneAreCleared) {
    const FreshValuePool pool;
    Group group = NewGroup();
    group->SetValue("a", 5);
    TnRobotUtils::Destroy();
    EXPECT_TRUE(group->HasValue("a"));
    EXPECT_EQ(group->GetDataValueType("a"), DATA_TYPE_NONE);
    int nError = 77;
    EXPECT_EQ(group->IntData("a", &nError), 0);
    EXPECT_EQ(nError, -1);
    EXPECT_EQ(SavedFormOf(*group), U8(1) + U32(1) + SavedString("a") + SavedValue(0, {}));
}

TEST(DataValueGroupWithoutPool, CopiesHaveEntriesWithoutValues) {
    const FreshValuePool pool;
    Group source = NewGroup();
    source->SetValue("a", 5);
    Group copy = NewGroup();
    copy->SetValue("b", 6);
    TnRobotUtils::Destroy();
    Group clone(source->Clone(), tn::kAdopt);
    ASSERT_NE(clone, nullptr);
    copy->Copy(source.get());
    for (ITnRobotDataValueGroup* pGroup : {clone.get(), copy.get()}) {
        EXPECT_EQ(EntriesOf(*pGroup), (std::map<std::string, ETnRobotDataValueType>{{"a", DATA_TYPE_NONE}}));
        EXPECT_TRUE(pGroup->HasValue("a"));
        EXPECT_EQ(pGroup->GetDataValueType("a"), DATA_TYPE_NONE);
        for (const auto& [eType, got] : GetAsEachType(*pGroup, "a")) {
            EXPECT_EQ(got.nError, -1) << eType;
            EXPECT_TRUE(got.bZero) << eType;
        }
        ITnRobotDataValue* pValue = nullptr;
        pGroup->GetValue("a", &pValue);
        EXPECT_EQ(pValue, nullptr);
        // A copy of a copy, and the saved form, have the entry too.
        Group second(pGroup->Clone(), tn::kAdopt);
        EXPECT_EQ(EntriesOf(*second), EntriesOf(*pGroup));
        EXPECT_EQ(SavedFormOf(*pGroup), U8(1) + U32(1) + SavedString("a") + SavedValue(0, {}));
    }
    TnRobotUtils::Init();
    EXPECT_EQ(clone->SetValue("a", 7), 0);
    EXPECT_EQ(clone->IntData("a", nullptr), 7);
    EXPECT_EQ(copy->RemoveValue("a"), 0);
    EXPECT_TRUE(EntriesOf(*copy).empty());
}

namespace {

// The entries of a saved group by name, taken apart independently of the library.
std::map<std::string, Bytes> ParseSavedGroup(const Bytes& saved) {
    std::map<std::string, Bytes> entries;
    std::size_t nPosition = 0;
    const auto number = [&](auto value) {
        std::memcpy(&value, saved.data() + nPosition, sizeof(value));
        nPosition += sizeof(value);
        return value;
    };
    EXPECT_EQ(number(std::uint8_t{}), 1);
    const std::int32_t nEntries = number(std::int32_t{});
    for (std::int32_t i = 0; i < nEntries; ++i) {
        const std::uint32_t nName = number(std::uint32_t{});
        std::string strName(reinterpret_cast<const char*>(saved.data()) + nPosition, nName);
        nPosition += nName;
        if (nName != 0) {
            EXPECT_EQ(strName.back(), '\0');
            strName.pop_back();
        }
        const std::size_t nStart = nPosition;
        nPosition += 5;
        nPosition += number(std::uint32_t{});
        entries[strName] = Bytes(saved.begin() + static_cast<std::ptrdiff_t>(nStart),
                                 saved.begin() + static_cast<std::ptrdiff_t>(nPosition));
    }
    EXPECT_EQ(nPosition, saved.size()) << "nothing follows the last entry";
    return entries;
}

Bytes SavedGroup(const std::vector<std::pair<std::string, Bytes>>& entries) {
    Bytes bytes = U8(1) + U32(static_cast<std::uint32_t>(entries.size()));
    for (const auto& [strName, saved] : entries) {
        bytes = bytes + SavedString(strName) + saved;
    }
    return bytes;
}

}  // namespace

TEST(DataValueGroupSaving, AnEmptyGroupIsVersionAndCount) {
    EXPECT_EQ(SavedFormOf(*NewGroup()), FromHex("01 00000000"));
}

TEST(DataValueGroupSaving, AnEntryIsItsNameAndItsValue) {
    Group group = NewGroup();
    group->SetValue("ab", 5);
    EXPECT_EQ(SavedFormOf(*group), FromHex("01 01000000"
                                           "03000000 616200"
                                           "01 04000000 04000000 05000000"));
}

TEST(DataValueGroupSaving, TheEmptyNameIsACountOfZero) {
    Group group = NewGroup();
    group->SetValue("", true);
    EXPECT_EQ(SavedFormOf(*group), FromHex("01 01000000"
                                           "00000000"
                                           "01 01000000 01000000 01"));
}

TEST(DataValueGroupSaving, WritesEveryEntryOnce) {
    std::map<std::string, Bytes> expected;
    for (const ValueSample& sample : ValueSamples()) {
        expected[sample.lpszName] = SavedValue(sample.eType, sample.bytes);
    }
    EXPECT_EQ(ParseSavedGroup(SavedFormOf(*GroupOfEverything())), expected);
}

TEST(DataValueGroupSaving, FollowsTheOrderOfTheEnumeration) {
    Group group = GroupOfEverything();
    Names names;
    group->GetAllDataName(names);
    Bytes expected = U8(1) + U32(static_cast<std::uint32_t>(names.size()));
    for (const auto& [strName, eType] : names) {
        expected = expected + SavedString(strName) + SavedFormOf(*ValueOf(*group, strName.c_str()));
    }
    EXPECT_EQ(SavedFormOf(*group), expected);
}

TEST(DataValueGroupSaving, SucceedsWithoutAFileAndWhateverItsWritesAnswer) {
    Group group = NewGroup();
    group->SetValue("ab", 5);
    TnRobotPtr<ITnRobotArchive> detached = MakeArchive();
    EXPECT_EQ(group->Serialize(detached.get()), 1);
    for (int nCall = 1; nCall <= 8; ++nCall) {
        for (bool bFromThenOn : {false, true}) {
            Channel channel = Storing();
            channel.file->FailWrite(nCall, bFromThenOn);
            EXPECT_EQ(group->Serialize(channel.Get()), 1) << nCall;
        }
    }
}

TEST(DataValueGroupLoading, RestoresNamesTypesAndBytes) {
    const Bytes saved = SavedFormOf(*GroupOfEverything());
    Group group = NewGroup();
    Channel channel = Loading(saved);
    ASSERT_EQ(group->Serialize(channel.Get()), 1);
    EXPECT_EQ(channel.file->Position(), saved.size());
    EXPECT_EQ(EntriesOf(*group), EntriesOf(*GroupOfEverything()));
    EXPECT_EQ(ParseSavedGroup(SavedFormOf(*group)), ParseSavedGroup(saved));
    // Scalars and short texts read as before.
    for (const ValueSample& sample : ValueSamples()) {
        for (const auto& [eType, got] : GetAsEachType(*group, sample.lpszName)) {
            EXPECT_EQ(got.nError, eType == sample.eType ? 0 : -1) << sample.lpszName << " as " << eType;
        }
    }
    EXPECT_EQ(group->IntData("int", nullptr), -305419896);
    EXPECT_EQ(group->DoubleData("double", nullptr), 0.1);
    EXPECT_STREQ(group->StringData("string", nullptr), "ab");
}

TEST(DataValueGroupLoading, ALoadedValueKeepsTheLengthEight) {
    Group group = NewGroup();
    const std::string strLong = "a text of more than eight characters";
    ASSERT_EQ(LoadFrom(*group, SavedGroup({{"short", SavedValue(DATA_TYPE_BLOCK, FromHex("AABB"))},
                                           {"long", SavedValue(DATA_TYPE_STRING, FromText(strLong) + U8(0))}})),
              1);
    unsigned int nBlock = 0;
    int nError = 77;
    const unsigned char* pBlock = static_cast<const unsigned char*>(group->BlockData("short", nBlock, &nError));
    ASSERT_NE(pBlock, nullptr);
    EXPECT_EQ(nError, 0);
    ASSERT_EQ(nBlock, 8u);
    EXPECT_EQ(Bytes(pBlock, pBlock + 8), FromHex("AABB000000000000"));
    int nText = 0;
    EXPECT_EQ(ValueOf(*group, "long")->StringData(nText, nullptr), strLong);
    EXPECT_EQ(nText, 8);
    EXPECT_EQ(group->StringData("long", nullptr), strLong);
}

TEST(DataValueGroupLoading, ALoadedValueIsNotPooled) {
    const FreshValuePool pool;
    Group group = NewGroup();
    ASSERT_EQ(LoadFrom(*group, SavedGroup({{"a", SavedValue(DATA_TYPE_INT, BytesOf(5))}})), 1);
    Value value = ValueOf(*group, "a");
    EXPECT_EQ(group->RemoveValue("a"), 0);
    EXPECT_EQ(value->IntData(nullptr), 5) << "nothing clears it";
    EXPECT_EQ(value.detach()->Release(), 0) << "it is destroyed, not recycled";
}

TEST(DataValueGroupLoading, AddsToWhatIsThereAndKeepsExistingEntries) {
    const FreshValuePool pool;
    Group group = NewGroup();
    group->SetValue("a", 1);
    group->SetValue("b", 2);
    const Value existing = ValueOf(*group, "a");
    ASSERT_EQ(LoadFrom(*group, SavedGroup({{"a", SavedValue(DATA_TYPE_STRING, FromText("x") + U8(0))},
                                           {"c", SavedValue(DATA_TYPE_INT, BytesOf(3))}})),
              1);
    EXPECT_EQ(EntriesOf(*group), (std::map<std::string, ETnRobotDataValueType>{
                                     {"a", DATA_TYPE_INT}, {"b", DATA_TYPE_INT}, {"c", DATA_TYPE_INT}}));
    EXPECT_EQ(ValueOf(*group, "a").get(), existing.get());
    EXPECT_EQ(group->IntData("a", nullptr), 1);
    EXPECT_EQ(group->IntData("c", nullptr), 3);
}

TEST(DataValueGroupLoading, ASecondLoadOfTheSameFileChangesNothing) {
    Group source = NewGroup();
    source->SetValue("a", 1);
    source->SetValue("b", "text");
    source->SetValue("c", 2.5);
    const Bytes saved = SavedFormOf(*source);
    Group group = NewGroup();
    ASSERT_EQ(LoadFrom(*group, saved), 1);
    ASSERT_EQ(LoadFrom(*group, saved), 1);
    EXPECT_EQ(EntriesOf(*group), EntriesOf(*source));
}

TEST(DataValueGroupLoading, OfTwoEntriesWithOneNameTheFirstStays) {
    Group group = NewGroup();
    ASSERT_EQ(LoadFrom(*group, SavedGroup({{"a", SavedValue(DATA_TYPE_INT, BytesOf(1))},
                                           {"a", SavedValue(DATA_TYPE_INT, BytesOf(2))},
                                           {"b", SavedValue(DATA_TYPE_INT, BytesOf(3))}})),
              1);
    EXPECT_EQ(group->IntData("a", nullptr), 1);
    EXPECT_EQ(group->IntData("b", nullptr), 3);
    EXPECT_EQ(EntriesOf(*group).size(), 2u);
}

TEST(DataValueGroupLoading, RefusesVersionsItDoesNotKnow) {
    for (unsigned int nVersion : {0U, 2U, 200U, 255U}) {
        Group group = NewGroup();
        group->SetValue("a", 1);
        Channel channel = Loading(U8(nVersion) + U32(1) + SavedString("b") + SavedValue(DATA_TYPE_INT, BytesOf(5)));
        EXPECT_EQ(group->Serialize(channel.Get()), 0) << nVersion;
        EXPECT_EQ(channel.file->Position(), 1u) << nVersion;
        EXPECT_EQ(EntriesOf(*group).size(), 1u) << nVersion;
    }
}

TEST(DataValueGroupLoading, ACountOfZeroOrLessAddsNothing) {
    for (std::uint32_t nCount : {0U, 0xFFFFFFFFU, 0x80000000U}) {
        Group group = NewGroup();
        Channel channel = Loading(U8(1) + U32(nCount) + SavedString("b") + SavedValue(DATA_TYPE_INT, BytesOf(5)));
        EXPECT_EQ(group->Serialize(channel.Get()), 1) << nCount;
        EXPECT_EQ(channel.file->Position(), 5u) << nCount;
        EXPECT_TRUE(EntriesOf(*group).empty());
    }
}

TEST(DataValueGroupLoading, FailsWithoutACompleteCount) {
    for (std::size_t nBytes = 0; nBytes <= 4; ++nBytes) {
        Bytes bytes = FromHex("01 00000000");
        bytes.resize(nBytes);
        EXPECT_EQ(LoadFrom(*NewGroup(), bytes), 0) << nBytes;
    }
}

TEST(DataValueGroupLoading, KeepsTheEntriesBeforeANameThatCannotBeRead) {
    Group group = NewGroup();
    const Bytes two =
        SavedGroup({{"a", SavedValue(DATA_TYPE_INT, BytesOf(1))}, {"b", SavedValue(DATA_TYPE_INT, BytesOf(2))}});
    const Bytes promisesThree = U8(1) + U32(3) + Bytes(two.begin() + 5, two.end());
    EXPECT_EQ(LoadFrom(*group, promisesThree), 0);
    EXPECT_EQ(group->IntData("a", nullptr), 1);
    EXPECT_EQ(group->IntData("b", nullptr), 2);
    EXPECT_EQ(EntriesOf(*group).size(), 2u);
}

TEST(DataValueGroupLoading, AnEntryWhoseValueDoesNotLoadIsThereAllTheSame) {
    Group group = NewGroup();
    EXPECT_EQ(LoadFrom(*group, U8(1) + U32(1) + SavedString("a") + U8(2)), 1) << "the value's result is not checked";
    EXPECT_EQ(EntriesOf(*group), (std::map<std::string, ETnRobotDataValueType>{{"a", DATA_TYPE_NONE}}));
    EXPECT_EQ(SavedFormOf(*ValueOf(*group, "a")), SavedValue(DATA_TYPE_NONE, Bytes(8))) << "as constructed";
    // Its second entry starts where the refused value left off.
    Group second = NewGroup();
    EXPECT_EQ(LoadFrom(*second, U8(1) + U32(2) + SavedString("a") + U8(2) + SavedString("b") +
                                    SavedValue(DATA_TYPE_INT, BytesOf(5))),
              1);
    EXPECT_EQ(second->GetDataValueType("a"), DATA_TYPE_NONE);
    EXPECT_EQ(second->IntData("b", nullptr), 5);
}

TEST(DataValueGroupLoading, ANameEndsWithItsCountEvenWithoutAZero) {
    Group group = NewGroup();
    const Bytes value = SavedValue(DATA_TYPE_INT, BytesOf(5));
    ASSERT_EQ(LoadFrom(*group, U8(1) + U32(3) + U32(3) + FromText("abc") + value + U32(1) + FromText("z") + value +
                                   U32(5) + FromText("q") + U8(0) + FromText("rst") + value),
              1);
    EXPECT_EQ(EntriesOf(*group), (std::map<std::string, ETnRobotDataValueType>{
                                     {"abc", DATA_TYPE_INT}, {"z", DATA_TYPE_INT}, {"q", DATA_TYPE_INT}}));
}

TEST(DataValueGroupLoading, ANameThatIsOnlyAZeroIsTheEmptyName) {
    Group group = NewGroup();
    ASSERT_EQ(LoadFrom(*group, U8(1) + U32(1) + U32(1) + U8(0) + SavedValue(DATA_TYPE_INT, BytesOf(5))), 1);
    EXPECT_EQ(group->IntData("", nullptr), 5);
}

TEST(DataValueGroupLoading, ClonesOfLoadedGroupsReadTheSame) {
    Group group = NewGroup();
    ASSERT_EQ(LoadFrom(*group, SavedFormOf(*GroupOfEverything())), 1);
    Group clone(group->Clone(), tn::kAdopt);
    EXPECT_EQ(EntriesOf(*clone), EntriesOf(*group));
    EXPECT_EQ(ParseSavedGroup(SavedFormOf(*clone)), ParseSavedGroup(SavedFormOf(*group)));
    EXPECT_STREQ(clone->StringData("string", nullptr), "ab");
    EXPECT_EQ(clone->ULonglongData("ulonglong", nullptr), 0x0102030405060708ULL);
}

TEST(DataValueGroupLoading, WorksWithoutAPool) {
    const FreshValuePool pool;
    Group group = NewGroup();
    const Bytes saved = SavedGroup({{"a", SavedValue(DATA_TYPE_INT, BytesOf(5))}});
    TnRobotUtils::Destroy();
    ASSERT_EQ(LoadFrom(*group, saved), 1);
    EXPECT_EQ(group->IntData("a", nullptr), 5);
}

TEST(DataValueGroupLoading, GoesThroughADiskFile) {
    const std::string strPath = ::testing::TempDir() + "group" + std::to_string(getpid()) + ".bin";
    {
        TnRobotPtr<ITnRobotFile> file = MakeFile();
        ASSERT_TRUE(file->Open(strPath.c_str(), true));
        TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
        ASSERT_TRUE(archive->Attach(file.get(), true));
        EXPECT_EQ(GroupOfEverything()->Serialize(archive.get()), 1);
        archive->Flush();
        archive->Detach();
        EXPECT_TRUE(file->Close());
    }
    TnRobotPtr<ITnRobotFile> file = MakeFile();
    ASSERT_TRUE(file->Open(strPath.c_str(), false));
    TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    ASSERT_TRUE(archive->Attach(file.get(), false));
    Group group = NewGroup();
    EXPECT_EQ(group->Serialize(archive.get()), 1);
    EXPECT_EQ(EntriesOf(*group), EntriesOf(*GroupOfEverything()));
    EXPECT_EQ(ParseSavedGroup(SavedFormOf(*group)), ParseSavedGroup(SavedFormOf(*GroupOfEverything())));
    std::remove(strPath.c_str());
}
