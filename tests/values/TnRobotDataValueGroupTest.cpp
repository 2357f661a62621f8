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
#include "support/fakes/ForeignValue.h"
#include "support/objects/Archives.h"
#include "support/objects/Files.h"
#include "support/objects/Groups.h"
#include "support/objects/ValuePool.h"
#include "support/objects/Values.h"
#include "values/GroupTest.h"

using namespace tntest;

namespace {

// The value under a name, which the group goes on holding.
ITnRobotDataValue* BorrowedFrom(ITnRobotDataValueGroup& group, const char* lpszName) {
    ITnRobotDataValue* pValue = nullptr;
    if (group.GetValue(lpszName, &pValue) == 0) {
        pValue->Release();
    }
    return pValue;
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
    EXPECT_EQ(EntriesOf(*group).size(), 13U);
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
    ASSERT_EQ(nLength, 2U);
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
    EXPECT_EQ(EntriesOf(*group).size(), 1U);
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
    EXPECT_EQ(EntriesOf(*group).size(), 13U);
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
            EXPECT_EQ(EntriesOf(*group).size(), 1U);
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
    ASSERT_EQ(names.size(), 5U);
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
    EXPECT_EQ(SavedFormOf(*group), U8(1) + U32(1) + SavedString("a") + SavedValue(DATA_TYPE_NONE, {}));
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
        EXPECT_EQ(SavedFormOf(*pGroup), U8(1) + U32(1) + SavedString("a") + SavedValue(DATA_TYPE_NONE, {}));
    }
    TnRobotUtils::Init();
    EXPECT_EQ(clone->SetValue("a", 7), 0);
    EXPECT_EQ(clone->IntData("a", nullptr), 7);
    EXPECT_EQ(copy->RemoveValue("a"), 0);
    EXPECT_TRUE(EntriesOf(*copy).empty());
}
