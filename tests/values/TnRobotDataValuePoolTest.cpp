// The hidden side of values: the constructed value, its initialisers, the allocator and the pool.

#include "values/TnRobotDataValuePool.h"

#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <string>

#include "support/objects/Archives.h"
#include "support/objects/Groups.h"
#include "support/objects/Memory.h"
#include "support/objects/ValuePool.h"
#include "support/objects/Values.h"
#include "support/processes/Sanitizers.h"
#include "values/TnRobotDataValue.h"

using namespace tntest;

namespace {

TnRobotPtr<CTnRobotDataValue> ConstructedValue() {
    return tn::Adopt(new CTnRobotDataValue);
}

// Reads through the block reader whatever is there.
Bytes BlockOf(ITnRobotDataValue& value) {
    return ReadAs(value, DATA_TYPE_BLOCK).bytes;
}

TnRobotPtr<CTnRobotDataValuePool> NewPool() {
    return tn::Adopt(new CTnRobotDataValuePool);
}

}  // namespace

TEST(DataValueObject, IsConstructedWithEightZeroBytes) {
    TnRobotPtr<CTnRobotDataValue> value = ConstructedValue();
    EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_NONE);
    unsigned int nLength = 99;
    EXPECT_STREQ(value->Convert2String(&nLength), "");
    EXPECT_EQ(nLength, 1U) << "it has a view, so the empty text counts its terminating zero";
    EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_NONE, Bytes(8)));
    EXPECT_EQ(value.detach()->Release(), 0) << "one reference, no pool";
}

TEST(DataValueObject, FormatVersionIsOne) {
    EXPECT_EQ(CTnRobotDataValue::m_byVersion, 1);
}

TEST(DataValueObject, ALoadedConstructedValueKeepsTheLengthEight) {
    const struct {
        ETnRobotDataValueType eType;
        Bytes stored;
        Bytes expected;
    } rows[] = {
        {DATA_TYPE_BLOCK, FromHex("AABB"), FromHex("AABB000000000000")},
        {DATA_TYPE_BLOCK, FromHex("0102030405060708"), FromHex("0102030405060708")},
        {DATA_TYPE_BLOCK, FromHex("01020304050607080900"), FromHex("0102030405060708")},
        {DATA_TYPE_BLOCK, {}, FromHex("0000000000000000")},
        {DATA_TYPE_STRING, FromText("ab") + U8(0), FromHex("6162000000000000")},
        {DATA_TYPE_STRING, FromText("abcdefghijkl") + U8(0), FromText("abcdefgh")},
    };
    for (const auto& row : rows) {
        TnRobotPtr<CTnRobotDataValue> value = ConstructedValue();
        ASSERT_EQ(LoadFrom(*value, SavedValue(row.eType, row.stored)), 1);
        EXPECT_EQ(ReadAs(*value, row.eType).nError, 0);
        EXPECT_EQ(ReadAs(*value, row.eType).bytes, row.expected);
        EXPECT_EQ(SavedFormOf(*value), SavedValue(row.eType, row.stored));
        Value clone(value->Clone(), tn::kAdopt);
        EXPECT_EQ(ReadAs(*clone, row.eType).bytes, row.expected) << "a copy takes the recorded length along";
        EXPECT_EQ(SavedFormOf(*clone), SavedValue(row.eType, row.stored));
    }
}

TEST(DataValueObject, ResetFromBytesReplacesEverything) {
    TnRobotPtr<CTnRobotDataValue> value = ConstructedValue();
    const int nFive = 5;
    value->ResetData(DATA_TYPE_INT, &nFive, 4);
    EXPECT_EQ(value->IntData(nullptr), 5);
    EXPECT_STREQ(value->Convert2String(nullptr), "5");
    value->ResetData(DATA_TYPE_BLOCK, "\x01\x02\x03", 3);
    EXPECT_EQ(BlockOf(*value), FromHex("010203"));
    EXPECT_STREQ(value->Convert2String(nullptr), "010203") << "the cached text is emptied";
    value->ResetData(DATA_TYPE_BLOCK, nullptr, 0);
    unsigned int nLength = 99;
    EXPECT_EQ(value->BlockData(nLength, nullptr), nullptr);
    EXPECT_EQ(nLength, 0U);
    EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_BLOCK, {}));
}

TEST(DataValueObject, ResetFromANullStreamChangesNothing) {
    TnRobotPtr<CTnRobotDataValue> value = ConstructedValue();
    const int nFive = 5;
    value->ResetData(DATA_TYPE_INT, &nFive, 4);
    value->ResetData(DATA_TYPE_BLOCK, static_cast<ITnRobotMemDataStream*>(nullptr));
    EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_INT);
    EXPECT_EQ(value->IntData(nullptr), 5);
}

TEST(DataValueObject, ResetFromAStreamTakesItsBytes) {
    const HeldPool blocks = MakePool();
    ITnRobotMemDataStream* pStream = nullptr;
    ASSERT_EQ(TnCreateRobotMemDataStream(blocks.get(), &pStream), 1);
    TnRobotPtr<ITnRobotMemDataStream> stream(pStream, tn::kAdopt);
    const Bytes bytes = FromHex("0102030405");
    stream->WriteData(bytes.data(), 5);

    TnRobotPtr<CTnRobotDataValue> value = ConstructedValue();
    const int nFive = 5;
    value->ResetData(DATA_TYPE_INT, &nFive, 4);
    value->Convert2String(nullptr);
    value->ResetData(DATA_TYPE_BLOCK, stream.get());
    EXPECT_EQ(BlockOf(*value), bytes);
    EXPECT_STREQ(value->Convert2String(nullptr), "0102030405");

    stream->Clear();
    value->ResetData(DATA_TYPE_BLOCK, stream.get());
    unsigned int nLength = 99;
    EXPECT_EQ(value->BlockData(nLength, nullptr), nullptr);
    EXPECT_EQ(nLength, 0U);
}

TEST(DataValueObject, OutsideAnyPoolIsDestroyedByItsLastReference) {
    CTnRobotDataValue* pValue = new CTnRobotDataValue;
    pValue->AddRef();
    EXPECT_EQ(pValue->Release(), 1);
    EXPECT_EQ(SavedFormOf(*pValue), SavedValue(DATA_TYPE_NONE, Bytes(8))) << "not cleared";
    EXPECT_EQ(pValue->Release(), 0);
}

namespace {

// Zeros that nobody has touched cost address space only. @return null when there is none, and under
// ThreadSanitizer, which writes to all of them.
TnRobotPtr<CTnRobotDataValue> ValueOfZeros(unsigned int nSize) {
    if (kThreadSanitizer && nSize >= 0x7FFFFFFFU) {
        return nullptr;
    }
    TnRobotPtr<CTnRobotDataValue> value = ConstructedValue();
    try {
        value->ResetData(DATA_TYPE_BLOCK, nullptr, nSize);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    return value;
}

constexpr unsigned int kTwoGibibytes = 0x80000000U;

}  // namespace

TEST(DataValueObject, AValueOfTwoGibibytesCannotBeStored) {
    TnRobotPtr<CTnRobotDataValue> value = ValueOfZeros(kTwoGibibytes);
    if (value == nullptr) {
        GTEST_SKIP() << "no address space for the value";
    }
    Channel channel = Storing();
    EXPECT_EQ(value->Serialize(channel.Get()), 0);
    EXPECT_EQ(channel.file->WriteCalls(), 0);
    EXPECT_FALSE(value->CanBeStored());
    EXPECT_TRUE(ValueOfZeros(100)->CanBeStored());
}

TEST(DataValueObject, AValueOfOneByteLessThanTwoGibibytesIsStored) {
    TnRobotPtr<CTnRobotDataValue> value = ValueOfZeros(kTwoGibibytes - 1);
    if (value == nullptr) {
        GTEST_SKIP() << "no address space for the value";
    }
    EXPECT_TRUE(value->CanBeStored());
    EXPECT_EQ(value->Serialize(MakeArchive().get()), 1) << "to no file, as nobody need see all these zeros";
}

TEST(DataValueObject, AGroupWithAValueOfTwoGibibytesIsNotBegun) {
    TnRobotPtr<CTnRobotDataValue> value = ValueOfZeros(kTwoGibibytes);
    if (value == nullptr) {
        GTEST_SKIP() << "no address space for the value";
    }
    Group group = NewGroup();
    group->SetValue("before", 1);
    group->SetValue("too long", value.get());
    group->SetValue("behind", 2);
    Channel channel = Storing();
    EXPECT_EQ(group->Serialize(channel.Get()), 0);
    EXPECT_EQ(channel.file->WriteCalls(), 0);
    group->RemoveValue("too long");
    EXPECT_EQ(group->Serialize(channel.Get()), 1);
}

TEST(DataValueAllocator, MakesAndReinitialisesValues) {
    TnRobotPtr<CTnRobotDataValueEleAlloc> alloc = tn::Adopt(new CTnRobotDataValueEleAlloc);
    const int nFive = 5;
    STnDataValueParam param = {&nFive, 4, nullptr, DATA_TYPE_INT};
    ITnPoolElement* pElement = nullptr;
    ASSERT_TRUE(alloc->AllocElement(&param, &pElement));
    TnRobotPtr<CTnRobotDataValue> value = tn::Adopt(dynamic_cast<CTnRobotDataValue*>(pElement));
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->IntData(nullptr), 5);

    alloc->SetElementParam(value.get(), nullptr);
    EXPECT_EQ(value->IntData(nullptr), 5) << "no parameter, no change";
    param = {"ab", 3, nullptr, DATA_TYPE_STRING};
    alloc->SetElementParam(value.get(), &param);
    EXPECT_STREQ(value->Convert2String(nullptr), "ab");
}

TEST(DataValueAllocator, WithoutParameterKeepsTheConstructedState) {
    TnRobotPtr<CTnRobotDataValueEleAlloc> alloc = tn::Adopt(new CTnRobotDataValueEleAlloc);
    ITnPoolElement* pElement = nullptr;
    ASSERT_TRUE(alloc->AllocElement(nullptr, &pElement));
    TnRobotPtr<CTnRobotDataValue> value = tn::Adopt(dynamic_cast<CTnRobotDataValue*>(pElement));
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_NONE, Bytes(8)));
    EXPECT_EQ(value.detach()->Release(), 0);
}

TEST(DataValuePool, GivesAnEmptyValueOnRequest) {
    TnRobotPtr<CTnRobotDataValuePool> pool = NewPool();
    for (int nRound = 0; nRound < 2; ++nRound) {
        ITnRobotDataValue* pValue = nullptr;
        ASSERT_EQ(pool->QueryData(&pValue), 0);
        Value value(pValue, tn::kAdopt);
        EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_NONE);
        unsigned int nLength = 99;
        EXPECT_STREQ(value->Convert2String(&nLength), "");
        EXPECT_EQ(nLength, 0U);
        EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_NONE, {}));
    }
}

TEST(DataValuePool, RecordsTheBytesOfEachType) {
    TnRobotPtr<CTnRobotDataValuePool> pool = NewPool();
    ITnRobotDataValue* p = nullptr;
    const struct {
        int nResult;
        ITnRobotDataValue* pValue;
        int nType;
        Bytes bytes;
    } rows[] = {
        {pool->QueryBoolData(true, &p), p, 1, FromHex("01")},
        {pool->QueryBoolData(false, &p), p, 1, FromHex("00")},
        {pool->QueryShortData(SHRT_MIN, &p), p, 2, FromHex("0080")},
        {pool->QueryUShortData(0x1234, &p), p, 3, FromHex("3412")},
        {pool->QueryIntData(INT_MIN, &p), p, 4, FromHex("00000080")},
        {pool->QueryUintData(0x12345678, &p), p, 5, FromHex("78563412")},
        {pool->QueryFloatData(1.0F, &p), p, 6, FromHex("0000803F")},
        {pool->QueryDoubleData(1.0, &p), p, 7, FromHex("000000000000F03F")},
        {pool->QueryLonglongData(LLONG_MIN, &p), p, 8, FromHex("0000000000000080")},
        {pool->QueryULonglongData(ULLONG_MAX, &p), p, 9, FromHex("FFFFFFFFFFFFFFFF")},
        {pool->QueryStringData("xyz", &p), p, 10, FromHex("78797A00")},
        {pool->QueryBlockData("\x01\x00\x02", 3, &p), p, 11, FromHex("010002")},
        {pool->QueryCharData('x', &p), p, 12, FromHex("7800")},
        {pool->QueryByteData(200, &p), p, 13, FromHex("C8")},
    };
    for (const auto& row : rows) {
        ASSERT_EQ(row.nResult, 0) << row.nType;
        Value value(row.pValue, tn::kAdopt);
        EXPECT_EQ(SavedFormOf(*value), SavedValue(row.nType, row.bytes));
    }
}

TEST(DataValuePool, RefusesANullOutPointer) {
    TnRobotPtr<CTnRobotDataValuePool> pool = NewPool();
    EXPECT_EQ(pool->QueryData(nullptr), -1);
    EXPECT_EQ(pool->QueryBoolData(true, nullptr), -1);
    EXPECT_EQ(pool->QueryCharData('x', nullptr), -1);
    EXPECT_EQ(pool->QueryByteData(1, nullptr), -1);
    EXPECT_EQ(pool->QueryShortData(1, nullptr), -1);
    EXPECT_EQ(pool->QueryUShortData(1, nullptr), -1);
    EXPECT_EQ(pool->QueryIntData(1, nullptr), -1);
    EXPECT_EQ(pool->QueryUintData(1, nullptr), -1);
    EXPECT_EQ(pool->QueryFloatData(1, nullptr), -1);
    EXPECT_EQ(pool->QueryDoubleData(1, nullptr), -1);
    EXPECT_EQ(pool->QueryLonglongData(1, nullptr), -1);
    EXPECT_EQ(pool->QueryULonglongData(1, nullptr), -1);
    EXPECT_EQ(pool->QueryStringData("x", nullptr), -1);
    EXPECT_EQ(pool->QueryBlockData("x", 1, nullptr), -1);
    EXPECT_EQ(pool->QueryBlockData(static_cast<ITnRobotMemDataStream*>(nullptr), nullptr), -1);
}

TEST(DataValuePool, ClearsWhatIsHeldWhenItGoes) {
    TnRobotPtr<CTnRobotDataValuePool> pool = NewPool();
    ITnRobotDataValue* pValue = nullptr;
    ASSERT_EQ(pool->QueryStringData("text", &pValue), 0);
    Value value(pValue, tn::kAdopt);
    EXPECT_EQ(pool.detach()->Release(), 0);
    EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_NONE);
    EXPECT_EQ(value.detach()->Release(), 0);
}

TEST(DataValuePool, NeverRefusesForLackOfRoom) {
    TnRobotPtr<CTnRobotDataValuePool> pool = NewPool();
    std::vector<Value> values;
    for (int i = 0; i < 20000; ++i) {
        ITnRobotDataValue* pValue = nullptr;
        ASSERT_EQ(pool->QueryIntData(i, &pValue), 0);
        values.emplace_back(pValue, tn::kAdopt);
    }
    for (int i = 0; i < 20000; ++i) {
        ASSERT_EQ(values[static_cast<std::size_t>(i)]->IntData(nullptr), i);
    }
}

TEST(DataValuePool, TheProcessWideOneExistsBetweenStartUpAndShutDown) {
    const FreshValuePool fresh;
    CTnRobotDataValuePool* const pPool = TnQueryDataValuePool();
    ASSERT_NE(pPool, nullptr);
    EXPECT_EQ(TnQueryDataValuePool(), pPool);
    TnRobotUtils::Init();
    EXPECT_EQ(TnQueryDataValuePool(), pPool) << "a pool that exists is kept";
    TnRobotUtils::Destroy();
    EXPECT_EQ(TnQueryDataValuePool(), nullptr);
}
