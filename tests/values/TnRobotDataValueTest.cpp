#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "TnRobotKernel/values.h"
#include "support/fakes/ForeignValue.h"
#include "support/objects/Archives.h"
#include "support/objects/ValuePool.h"
#include "support/objects/Values.h"

using namespace tntest;

namespace {

// What a char reader gives back is one byte, whatever is stored behind it.
Bytes ReadableBytes(const ValueSample& sample) {
    return sample.eType == DATA_TYPE_CHAR ? Bytes{sample.bytes[0]} : sample.bytes;
}

std::string TextOf(ITnRobotDataValue& value) {
    return value.Convert2String(nullptr);
}

Bytes BlockOf(ITnRobotDataValue& value) {
    return ReadAs(value, DATA_TYPE_BLOCK).bytes;
}

// An empty value, as the pool keeps them.
Value ClearedValue() {
    Value value = IntValue(5);
    value->ClearResource();
    return value;
}

}  // namespace

TEST(DataValue, IsReadAsExactlyTheTypeItHas) {
    for (const ValueSample& sample : ValueSamples()) {
        Value value = sample.create();
        ASSERT_NE(value, nullptr) << sample.lpszName;
        EXPECT_EQ(value->GetDataValueType(), sample.eType) << sample.lpszName;
        for (int nType = DATA_TYPE_BOOL; nType <= DATA_TYPE_BYTE; ++nType) {
            const Reading reading = ReadAs(*value, static_cast<ETnRobotDataValueType>(nType));
            if (nType == sample.eType) {
                EXPECT_EQ(reading.nError, 0) << sample.lpszName;
                EXPECT_EQ(reading.bytes, ReadableBytes(sample)) << sample.lpszName;
            } else {
                EXPECT_EQ(reading.nError, -1) << sample.lpszName << " read as " << nType;
                EXPECT_TRUE(reading.bZero) << sample.lpszName << " read as " << nType;
            }
        }
    }
}

TEST(DataValue, ReadersAcceptANullErrorPointer) {
    for (const ValueSample& sample : ValueSamples()) {
        Value value = sample.create();
        value->BoolData(nullptr);
        value->CharData(nullptr);
        value->ByteData(nullptr);
        value->ShortData(nullptr);
        value->UShortData(nullptr);
        EXPECT_EQ(value->IntData(nullptr), sample.eType == DATA_TYPE_INT ? -305419896 : 0);
        value->UintData(nullptr);
        value->FloatData(nullptr);
        value->DoubleData(nullptr);
        value->LonglongData(nullptr);
        value->ULonglongData(nullptr);
        int nText = 0;
        EXPECT_EQ(value->StringData(nText, nullptr) != nullptr, sample.eType == DATA_TYPE_STRING);
        unsigned int nBlock = 0;
        EXPECT_EQ(value->BlockData(nBlock, nullptr) != nullptr, sample.eType == DATA_TYPE_BLOCK);
    }
}

TEST(DataValue, AFailedPointerReaderDoesNotWriteTheLength) {
    Value value = IntValue(5);
    int nError = 0;
    int nText = 4711;
    EXPECT_EQ(value->StringData(nText, &nError), nullptr);
    EXPECT_EQ(nText, 4711);
    unsigned int nBlock = 4712;
    EXPECT_EQ(value->BlockData(nBlock, &nError), nullptr);
    EXPECT_EQ(nBlock, 4712U);
}

TEST(DataValue, ConvertsToText) {
    for (const ValueSample& sample : ValueSamples()) {
        Value value = sample.create();
        unsigned int nLength = 0;
        EXPECT_EQ(value->Convert2String(&nLength), sample.strText) << sample.lpszName;
        EXPECT_EQ(nLength, sample.strText.size() + 1) << sample.lpszName;
        // From the cache this time.
        nLength = 0;
        EXPECT_EQ(value->Convert2String(&nLength), sample.strText) << sample.lpszName;
        EXPECT_EQ(nLength, sample.strText.size() + 1) << sample.lpszName;
        EXPECT_EQ(value->Convert2String(nullptr), sample.strText) << sample.lpszName;
    }
}

TEST(DataValue, TextOfLimits) {
    struct Row {
        Value value;
        std::string strText;
    };
    Row rows[] = {
        {BoolValue(false), "0"},
        {Made(TnCreateRobotShortData, short{SHRT_MIN}), "-32768"},
        {Made(TnCreateRobotUShortData, static_cast<unsigned short>(65535)), "65535"},
        {IntValue(INT_MIN), "-2147483648"},
        {IntValue(INT_MAX), "2147483647"},
        {Made(TnCreateRobotUintData, UINT_MAX), "4294967295"},
        {Made(TnCreateRobotLonglongData, LLONG_MIN), "-9223372036854775808"},
        {Made(TnCreateRobotULonglongData, 0x7FFFFFFFFFFFFFFFULL), "9223372036854775807"},
        // The upper half prints as negative numbers.
        {Made(TnCreateRobotULonglongData, 0x8000000000000000ULL), "-9223372036854775808"},
        {Made(TnCreateRobotULonglongData, ULLONG_MAX), "-1"},
        {Made(TnCreateRobotByteData, static_cast<unsigned short>(0)), "0"},
        {Made(TnCreateRobotByteData, static_cast<unsigned short>(255)), "255"},
        {Made(TnCreateRobotCharData, '\x01'), "\x01"},
        {Made(TnCreateRobotCharData, '\xFE'), "\xFE"},
        {TextValue(""), ""},
        {TextValue("a b\n\"%s"), "a b\n\"%s"},
        {BlockValue(FromHex("00 01 7F 80 FF")), "00017f80ff"},
        {DoubleValue(-0.0), "-0.000000"},
        {DoubleValue(1e15), "1000000000000000.000000"},
        {DoubleValue(std::numeric_limits<double>::infinity()), "inf"},
        {DoubleValue(-std::numeric_limits<double>::infinity()), "-inf"},
        {Made(TnCreateRobotFloatData, 0.1F), "0.100000"},
        {Made(TnCreateRobotFloatData, FLT_MAX), "340282346638528859811704183484516925440.000000"},
    };
    for (Row& row : rows) {
        unsigned int nLength = 0;
        EXPECT_EQ(row.value->Convert2String(&nLength), row.strText);
        EXPECT_EQ(nLength, row.strText.size() + 1);
    }
}

TEST(DataValue, TextOfTheLongestDoublesIsComplete) {
    for (double dValue : {1e308, -1e308, DBL_MAX, -DBL_MAX, 1e250, 1e240, DBL_MIN, std::nan("")}) {
        char szExpected[512] = {};
        std::snprintf(szExpected, sizeof(szExpected), "%f", dValue);
        Value value = DoubleValue(dValue);
        unsigned int nLength = 0;
        EXPECT_STREQ(value->Convert2String(&nLength), szExpected);
        EXPECT_EQ(nLength, std::strlen(szExpected) + 1);
    }
}

TEST(DataValue, TheTextOfAZeroCharacterIsEmpty) {
    Value value = Made(TnCreateRobotCharData, '\0');
    unsigned int nLength = 0;
    EXPECT_STREQ(value->Convert2String(&nLength), "");
    EXPECT_EQ(nLength, 1U);
}

TEST(DataValue, ALongBlockConvertsWhole) {
    Bytes bytes(100000);
    std::string strExpected;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i * 7);
        char szDigits[3] = {};
        std::snprintf(szDigits, sizeof(szDigits), "%02x", bytes[i]);
        strExpected += szDigits;
    }
    Value value = BlockValue(bytes);
    unsigned int nLength = 0;
    EXPECT_EQ(value->Convert2String(&nLength), strExpected);
    EXPECT_EQ(nLength, 200001U);
}

TEST(DataValue, WithoutDataConvertsToLengthZero) {
    Value values[] = {ClearedValue(), BlockValue({})};
    for (Value& value : values) {
        unsigned int nLength = 99;
        EXPECT_STREQ(value->Convert2String(&nLength), "");
        EXPECT_EQ(nLength, 0U);
        EXPECT_STREQ(value->Convert2String(nullptr), "");
    }
}

TEST(DataValue, AnEmptyBlockReadsAsNullWithoutError) {
    Value value = BlockValue({});
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_BLOCK);
    int nError = 77;
    unsigned int nLength = 99;
    EXPECT_EQ(value->BlockData(nLength, &nError), nullptr);
    EXPECT_EQ(nError, 0);
    EXPECT_EQ(nLength, 0U);
}

TEST(DataValue, ClearedHoldsNothing) {
    for (const ValueSample& sample : ValueSamples()) {
        Value value = sample.create();
        value->Convert2String(nullptr);
        value->ClearResource();
        EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_NONE) << sample.lpszName;
        EXPECT_EQ(ReadAs(*value, sample.eType).nError, -1) << sample.lpszName;
        EXPECT_EQ(TextOf(*value), "") << sample.lpszName;
        EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_NONE, {})) << sample.lpszName;
    }
}

TEST(DataValue, CopiesAreIndependent) {
    for (const ValueSample& sample : ValueSamples()) {
        Value source = sample.create();
        Value copy = TextValue("a longer text than any scalar has");
        copy->Convert2String(nullptr);
        copy->Copy(source.get());
        source.reset();
        EXPECT_EQ(copy->GetDataValueType(), sample.eType) << sample.lpszName;
        EXPECT_EQ(ReadAs(*copy, sample.eType).nError, 0) << sample.lpszName;
        EXPECT_EQ(ReadAs(*copy, sample.eType).bytes, ReadableBytes(sample)) << sample.lpszName;
        EXPECT_EQ(TextOf(*copy), sample.strText) << sample.lpszName;
        EXPECT_EQ(SavedFormOf(*copy), SavedValue(sample.eType, sample.bytes)) << sample.lpszName;
    }
}

TEST(DataValue, AnEmptyTextFormStaysWhereItIs) {
    for (const auto& create : {+[] { return TextValue(""); }, +[] { return Made(TnCreateRobotCharData, '\0'); },
                               +[] { return BlockValue({}); }, +[] { return ClearedValue(); }}) {
        Value value = create();
        const char* lpszFirst = value->Convert2String(nullptr);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(value->Convert2String(nullptr), lpszFirst);
        }
        EXPECT_STREQ(lpszFirst, "");
    }
}

TEST(DataValue, AnEmptyTextFormGivesWayToThatOfALoad) {
    Value value = TextValue("");
    const char* lpszFirst = value->Convert2String(nullptr);
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_BYTE, U8(200))), 1);
    EXPECT_EQ(TextOf(*value), "200") << "only a text that is not empty is kept";
    EXPECT_STREQ(lpszFirst, "") << "and what was handed out stays";
}

TEST(DataValue, CopyingOntoItselfChangesNothing) {
    for (const ValueSample& sample : ValueSamples()) {
        Value value = sample.create();
        value->Copy(value.get());
        EXPECT_EQ(value->GetDataValueType(), sample.eType) << sample.lpszName;
        EXPECT_EQ(ReadAs(*value, sample.eType).bytes, ReadableBytes(sample)) << sample.lpszName;
        EXPECT_EQ(TextOf(*value), sample.strText) << sample.lpszName;
    }
}

TEST(DataValue, CopyingAnEmptyValueOntoItselfLeavesItWithoutData) {
    Value value = ClearedValue();
    value->Copy(value.get());
    unsigned int nLength = 99;
    EXPECT_STREQ(value->Convert2String(&nLength), "");
    EXPECT_EQ(nLength, 0U);
    EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_NONE);
}

TEST(DataValue, CopyIgnoresNull) {
    Value value = IntValue(5);
    value->Copy(nullptr);
    EXPECT_EQ(value->IntData(nullptr), 5);
}

TEST(DataValue, CopyIgnoresForeignImplementations) {
    Value value = IntValue(5);
    Value foreign = tn::Adopt<ITnRobotDataValue>(new ForeignValue);
    value->Copy(foreign.get());
    EXPECT_EQ(value->IntData(nullptr), 5);
    EXPECT_EQ(TextOf(*value), "5");
}

TEST(DataValue, CopyTakesTheTextOverAndMakesItAfresh) {
    Value source = IntValue(5);
    Value copy = IntValue(6);
    EXPECT_EQ(TextOf(*copy), "6");
    copy->Copy(source.get());
    EXPECT_EQ(TextOf(*copy), "5") << "the old text went with the old value";
}

TEST(DataValue, CopiesOfCopiesStayIndependent) {
    Value a = TextValue("first");
    Value b = tn::Adopt(a->Clone());
    b->Copy(IntValue(3).get());
    EXPECT_EQ(TextOf(*a), "first");
    EXPECT_EQ(b->IntData(nullptr), 3);
    a->Copy(BlockValue(FromHex("01")).get());
    EXPECT_EQ(b->IntData(nullptr), 3);
    EXPECT_EQ(BlockOf(*a), FromHex("01"));
}

TEST(DataValue, AnEmptyValueCopies) {
    Value source = ClearedValue();
    Value copy = TextValue("text");
    copy->Copy(source.get());
    EXPECT_EQ(copy->GetDataValueType(), DATA_TYPE_NONE);
    EXPECT_EQ(TextOf(*copy), "");
    EXPECT_EQ(SavedFormOf(*copy), SavedValue(DATA_TYPE_NONE, {}));
}

TEST(DataValue, AnEmptyBlockCopies) {
    Value source = BlockValue({});
    Value clone = tn::Adopt(source->Clone());
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone->GetDataValueType(), DATA_TYPE_BLOCK);
    EXPECT_EQ(ReadAs(*clone, DATA_TYPE_BLOCK).nError, 0);
    EXPECT_EQ(BlockOf(*clone), Bytes{});
    EXPECT_EQ(TextOf(*clone), "");
}

TEST(DataValue, ClonesComeFromThePool) {
    const FreshValuePool pool;
    for (const ValueSample& sample : ValueSamples()) {
        Value source = sample.create();
        Value clone = tn::Adopt(source->Clone());
        ASSERT_NE(clone, nullptr) << sample.lpszName;
        EXPECT_NE(clone, source);
        EXPECT_EQ(clone->GetDataValueType(), sample.eType) << sample.lpszName;
        EXPECT_EQ(ReadAs(*clone, sample.eType).bytes, ReadableBytes(sample)) << sample.lpszName;
        EXPECT_EQ(TextOf(*clone), sample.strText) << sample.lpszName;
        ITnRobotDataValue* pClone = clone.detach();
        EXPECT_EQ(pClone->Release(), 1) << "the pool keeps one reference";
    }
}

TEST(DataValue, WithoutAPoolThereIsNoClone) {
    const NoValuePool noPool;
    TnRobotUtils::Init();
    Value value = IntValue(5);
    TnRobotUtils::Destroy();
    EXPECT_EQ(value->Clone(), nullptr);
}

TEST(DataValueSaving, WritesVersionTypeCountAndBytes) {
    const struct {
        const char* lpszName;
        const char* lpszHex;
    } rows[] = {
        {"bool", "01 01000000 01000000 01"},
        {"short", "01 02000000 02000000 FEFF"},
        {"ushort", "01 03000000 02000000 FEFF"},
        {"int", "01 04000000 04000000 88A9CBED"},
        {"uint", "01 05000000 04000000 98BADCFE"},
        {"float", "01 06000000 04000000 0000C0BF"},
        {"double", "01 07000000 08000000 9A9999999999B93F"},
        {"longlong", "01 08000000 08000000 FEFFFFFFFFFFFFFF"},
        {"ulonglong", "01 09000000 08000000 0807060504030201"},
        {"string", "01 0A000000 03000000 616200"},
        {"block", "01 0B000000 02000000 0AFF"},
        {"char", "01 0C000000 02000000 7800"},
        {"byte", "01 0D000000 01000000 C8"},
    };
    const std::vector<ValueSample> samples = ValueSamples();
    ASSERT_EQ(samples.size(), std::size(rows));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        ASSERT_STREQ(samples[i].lpszName, rows[i].lpszName);
        Channel channel = Storing();
        EXPECT_EQ(samples[i].create()->Serialize(channel.Get()), 1) << rows[i].lpszName;
        EXPECT_EQ(channel.file->Content(), FromHex(rows[i].lpszHex)) << rows[i].lpszName;
    }
}

TEST(DataValueSaving, NothingIsStoredOfAValueWithoutData) {
    EXPECT_EQ(SavedFormOf(*ClearedValue()), FromHex("01 00000000 00000000"));
    EXPECT_EQ(SavedFormOf(*BlockValue({})), FromHex("01 0B000000 00000000"));
    EXPECT_EQ(SavedFormOf(*TextValue("")), FromHex("01 0A000000 01000000 00"));
}

TEST(DataValueSaving, WithoutAFileWritesNothingAndSucceeds) {
    TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    Value value = IntValue(5);
    EXPECT_EQ(value->Serialize(archive.get()), 1);
    EXPECT_EQ(value->IntData(nullptr), 5);
}

TEST(DataValueSaving, DoesNotLookAtTheResultsOfItsWrites) {
    for (int nCall = 1; nCall <= 4; ++nCall) {
        for (bool bFromThenOn : {false, true}) {
            Channel channel = Storing();
            channel.file->FailWrite(nCall, bFromThenOn);
            EXPECT_EQ(IntValue(5)->Serialize(channel.Get()), 1) << nCall;
        }
    }
}

TEST(DataValueLoading, RestoresTypeAndBytesOfEverySample) {
    for (const ValueSample& sample : ValueSamples()) {
        Value value = Made(TnCreateRobotULonglongData, 0ULL);
        Channel channel = Loading(SavedValue(sample.eType, sample.bytes));
        EXPECT_EQ(value->Serialize(channel.Get()), 1) << sample.lpszName;
        EXPECT_EQ(channel.file->Position(), channel.file->Content().size()) << sample.lpszName;
        EXPECT_EQ(value->GetDataValueType(), sample.eType) << sample.lpszName;
        EXPECT_EQ(ReadAs(*value, sample.eType).nError, 0) << sample.lpszName;
        EXPECT_EQ(SavedFormOf(*value), SavedValue(sample.eType, sample.bytes)) << sample.lpszName;
        // Scalars read as what was saved; texts and blocks start with it.
        Bytes read = ReadAs(*value, sample.eType).bytes;
        const Bytes expected = ReadableBytes(sample);
        ASSERT_GE(read.size(), expected.size()) << sample.lpszName;
        read.resize(expected.size());
        EXPECT_EQ(read, expected) << sample.lpszName;
    }
}

TEST(DataValueLoading, KeepsTheRecordedLength) {
    // The length is that of the value before the load: 4 here.
    Value value = IntValue(5);
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_STRING, FromText("abcdefghij") + U8(0))), 1);
    int nError = 77;
    int nLength = 0;
    EXPECT_STREQ(value->StringData(nLength, &nError), "abcdefghij");
    EXPECT_EQ(nError, 0);
    EXPECT_EQ(nLength, 4);
}

TEST(DataValueLoading, KeepsTheRecordedLengthOfALongerValue) {
    Value value = TextValue("0123456789");
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_BLOCK, FromHex("AABB"))), 1);
    int nError = 77;
    unsigned int nLength = 0;
    const void* pData = value->BlockData(nLength, &nError);
    ASSERT_NE(pData, nullptr);
    EXPECT_EQ(nError, 0);
    EXPECT_EQ(nLength, 11U);
    EXPECT_EQ(BlockOf(*value), FromHex("AABB") + Bytes(9)) << "the length reaches into zeros, not into old bytes";
    EXPECT_EQ(TextOf(*value), "aabb000000000000000000");
}

TEST(DataValueLoading, KeepsTheTextThatWasAskedForBefore) {
    Value value = IntValue(5);
    EXPECT_EQ(TextOf(*value), "5");
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_INT, BytesOf(9))), 1);
    EXPECT_EQ(value->IntData(nullptr), 9);
    unsigned int nLength = 0;
    EXPECT_STREQ(value->Convert2String(&nLength), "5");
    EXPECT_EQ(nLength, 2U);
    // A copy takes the old text along.
    Value copy = tn::Adopt(value->Clone());
    EXPECT_EQ(copy->IntData(nullptr), 9);
    EXPECT_EQ(TextOf(*copy), "5");
}

TEST(DataValueLoading, ConvertsWhatWasLoadedWhenNoTextWasAskedForBefore) {
    Value value = IntValue(5);
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_STRING, FromText("abcdefghij") + U8(0))), 1);
    EXPECT_EQ(TextOf(*value), "abcdefghij");
}

TEST(DataValueLoading, ConvertsWhatWasLoadedWhenTheTextBeforeWasEmpty) {
    Value value = TextValue("");
    EXPECT_EQ(TextOf(*value), "");
    EXPECT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_STRING, FromHex("616200"))), 1);
    EXPECT_EQ(TextOf(*value), "ab");
}

TEST(DataValueLoading, ABlockConvertsAsFarAsTheRecordedLength) {
    Value value = IntValue(5);
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_BLOCK, FromHex("010203040506"))), 1);
    EXPECT_EQ(TextOf(*value), "01020304");
}

TEST(DataValueLoading, ScalarsLargerThanTheirBytesReadZerosBehindThem) {
    for (const ValueSample& sample : ValueSamples()) {
        Value value = Made(TnCreateRobotULonglongData, ULLONG_MAX);
        ASSERT_EQ(LoadFrom(*value, SavedValue(sample.eType, FromHex("01"))), 1);
        const Reading reading = ReadAs(*value, sample.eType);
        EXPECT_EQ(reading.nError, 0) << sample.lpszName;
        ASSERT_FALSE(reading.bytes.empty());
        EXPECT_EQ(reading.bytes[0], 1) << sample.lpszName;
        EXPECT_EQ(Bytes(reading.bytes.begin() + 1, reading.bytes.end()), Bytes(reading.bytes.size() - 1))
            << sample.lpszName;
    }
}

TEST(DataValueLoading, AnEightByteNumberFitsAOneByteValue) {
    Value value = BoolValue(true);
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_DOUBLE, BytesOf(2.5))), 1);
    EXPECT_EQ(value->DoubleData(nullptr), 2.5);
    EXPECT_EQ(TextOf(*value), "2.500000");
    // And one that is cut short in the file does not reach beyond the value's memory.
    Value cut = BoolValue(true);
    ASSERT_EQ(LoadFrom(*cut, SavedValue(DATA_TYPE_ULONGLONG, FromHex("FF"))), 1);
    EXPECT_EQ(cut->ULonglongData(nullptr), 255U);
}

TEST(DataValueLoading, ATextWithoutItsZeroStillEnds) {
    for (std::size_t nLength : {1U, 3U, 4U, 8U, 9U, 23U, 24U, 25U, 4096U, 100000U}) {
        const std::string strText(nLength, 'z');
        Value value = IntValue(5);
        ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_STRING, FromText(strText))), 1);
        int nRecorded = 0;
        EXPECT_EQ(value->StringData(nRecorded, nullptr), strText);
        EXPECT_EQ(nRecorded, 4);
        EXPECT_EQ(TextOf(*value), strText);
        Value clone = tn::Adopt(value->Clone());
        EXPECT_EQ(clone->StringData(nRecorded, nullptr), strText);
        value->Copy(value.get());
        EXPECT_EQ(value->StringData(nRecorded, nullptr), strText);
    }
}

TEST(DataValueLoading, TheRecordedLengthStaysReadableAfterCopies) {
    const Bytes original = FromText(std::string(300, 'o')) + U8(0);
    Value value = TextValue(std::string(300, 'o').c_str());
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_BLOCK, FromHex("0102"))), 1);
    const Bytes expected = FromHex("0102") + Bytes(original.size() - 2);
    EXPECT_EQ(BlockOf(*value), expected);
    Value clone = tn::Adopt(value->Clone());
    EXPECT_EQ(BlockOf(*clone), expected);
    Value copy = IntValue(1);
    copy->Copy(clone.get());
    EXPECT_EQ(BlockOf(*copy), expected);
    copy->Copy(copy.get());
    EXPECT_EQ(BlockOf(*copy), expected);
    EXPECT_EQ(SavedFormOf(*copy), SavedValue(DATA_TYPE_BLOCK, FromHex("0102"))) << "what is saved has its own length";
}

TEST(DataValueLoading, AnEmptyLoadKeepsTheRecordedLengthOverZeros) {
    Value value = Made(TnCreateRobotULonglongData, ULLONG_MAX);
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_BLOCK, {})), 1);
    EXPECT_EQ(BlockOf(*value), Bytes(8));
    EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_BLOCK, {}));
}

TEST(DataValueLoading, AValueWithoutViewKeepsIt) {
    for (const ValueSample& sample : ValueSamples()) {
        Value value = ClearedValue();
        ASSERT_EQ(LoadFrom(*value, SavedValue(sample.eType, sample.bytes)), 1) << sample.lpszName;
        EXPECT_EQ(value->GetDataValueType(), sample.eType) << sample.lpszName;
        EXPECT_TRUE(ReadAs(*value, sample.eType).bZero) << sample.lpszName;
        if (sample.eType != DATA_TYPE_BLOCK) {
            EXPECT_EQ(ReadAs(*value, sample.eType).nError, -1) << sample.lpszName;
        }
        unsigned int nLength = 99;
        EXPECT_STREQ(value->Convert2String(&nLength), "") << sample.lpszName;
        EXPECT_EQ(nLength, 0U) << sample.lpszName;
        EXPECT_EQ(SavedFormOf(*value), SavedValue(sample.eType, sample.bytes)) << sample.lpszName;
    }
}

TEST(DataValueLoading, ACopyOfAValueWithoutViewShowsItsBytes) {
    Value value = ClearedValue();
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_INT, BytesOf(7))), 1);
    Value clone = tn::Adopt(value->Clone());
    int nError = 77;
    EXPECT_EQ(clone->IntData(&nError), 7) << "copying points the view at the storage";
    EXPECT_EQ(nError, 0);
}

TEST(DataValueLoading, RefusesVersionsItDoesNotKnowAndChangesNothing) {
    for (unsigned int nVersion : {0U, 2U, 3U, 128U, 255U}) {
        Value value = IntValue(5);
        Channel channel = Loading(U8(nVersion) + U32(DATA_TYPE_BOOL) + U32(1) + U8(1));
        EXPECT_EQ(value->Serialize(channel.Get()), 0) << nVersion;
        EXPECT_EQ(channel.file->Position(), 1U) << nVersion;
        EXPECT_EQ(value->IntData(nullptr), 5) << nVersion;
        EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_INT, BytesOf(5))) << nVersion;
    }
}

TEST(DataValueLoading, EveryPrefixGivesItsDocumentedResult) {
    const Bytes saved = SavedValue(DATA_TYPE_UINT, FromHex("01020304"));
    const struct {
        std::size_t nBytes;
        int nResult;
        int nType;
        const char* lpszStored;
    } rows[] = {
        {0, 0, DATA_TYPE_INT, "05000000"},
        {1, 0, DATA_TYPE_INT, "05000000"},
        {2, 0, DATA_TYPE_INT, "05000000"},
        {3, 0, DATA_TYPE_INT, "05000000"},
        {4, 0, DATA_TYPE_INT, "05000000"},
        // From here the type is replaced; a count that is missing is 0.
        {5, 1, DATA_TYPE_UINT, ""},
        // The count's first byte says 4, the rest counts as zero.
        {6, 0, DATA_TYPE_UINT, nullptr},
        {7, 0, DATA_TYPE_UINT, nullptr},
        {8, 0, DATA_TYPE_UINT, nullptr},
        {9, 0, DATA_TYPE_UINT, nullptr},
        {10, 0, DATA_TYPE_UINT, nullptr},
        {12, 0, DATA_TYPE_UINT, nullptr},
        {13, 1, DATA_TYPE_UINT, "01020304"},
    };
    for (const auto& row : rows) {
        Value value = IntValue(5);
        const Bytes prefix(saved.begin(), saved.begin() + static_cast<std::ptrdiff_t>(row.nBytes));
        EXPECT_EQ(LoadFrom(*value, prefix), row.nResult) << row.nBytes;
        EXPECT_EQ(value->GetDataValueType(), row.nType) << row.nBytes;
        if (row.lpszStored != nullptr) {
            EXPECT_EQ(SavedFormOf(*value), SavedValue(row.nType, FromHex(row.lpszStored))) << row.nBytes;
        }
        ReadAs(*value, DATA_TYPE_UINT);
        TextOf(*value);
    }
}

TEST(DataValueLoading, ACountOfZeroOrLessBringsNoBytes) {
    for (std::uint32_t nCount : {0U, 0xFFFFFFFFU, 0x80000000U}) {
        Value value = IntValue(5);
        Channel channel = Loading(U8(1) + U32(DATA_TYPE_UINT) + U32(nCount) + FromHex("AABBCCDD"));
        EXPECT_EQ(value->Serialize(channel.Get()), 1) << nCount;
        EXPECT_EQ(channel.file->Position(), 9U) << nCount;
        EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_UINT);
        EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_UINT, {})) << nCount;
        EXPECT_EQ(value->UintData(nullptr), 0U) << nCount;
    }
}

TEST(DataValueLoading, AnUnknownTypeNumberIsKept) {
    for (int nType : {14, 99, -1, INT_MAX, INT_MIN}) {
        Value value = IntValue(5);
        ASSERT_EQ(LoadFrom(*value, SavedValue(nType, FromHex("01020304"))), 1);
        EXPECT_EQ(static_cast<int>(value->GetDataValueType()), nType);
        EXPECT_EQ(ReadAs(*value, DATA_TYPE_INT).nError, -1);
        unsigned int nLength = 99;
        EXPECT_STREQ(value->Convert2String(&nLength), "");
        EXPECT_EQ(nLength, 1U);
        EXPECT_EQ(SavedFormOf(*value), SavedValue(nType, FromHex("01020304")));
    }
}

TEST(DataValueLoading, BytesThatComeInPiecesAreNotAllThereAtOnce) {
    // One read that gets less than asked for means that not exactly that many arrived.
    Value value = IntValue(5);
    Channel channel = Loading(SavedValue(DATA_TYPE_BLOCK, Bytes(10, 0xEE)));
    channel.file->FailRead(4, TestFile::kShort);
    EXPECT_EQ(value->Serialize(channel.Get()), 0);
    EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_BLOCK);
}

TEST(DataValueLoading, AReadThatFailsIsNotTakenAsRead) {
    const Bytes saved = SavedValue(DATA_TYPE_UINT, FromHex("01020304"));
    for (long long nAnswer : {0LL, -1LL}) {
        for (int nCall = 1; nCall <= 4; ++nCall) {
            Value value = IntValue(5);
            Channel channel = Loading(saved);
            channel.file->FailRead(nCall, nAnswer, true);
            // A count that cannot be read is 0, which is no error.
            EXPECT_EQ(value->Serialize(channel.Get()), nCall == 3 ? 1 : 0) << nCall;
            EXPECT_EQ(value->GetDataValueType(), nCall <= 2 ? DATA_TYPE_INT : DATA_TYPE_UINT) << nCall;
            ReadAs(*value, value->GetDataValueType());
        }
    }
}

TEST(DataValueLoading, ALargeBlockMakesTheRoundTrip) {
    Bytes bytes(3 * 1024 * 1024 + 17);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i * 31 + (i >> 8));
    }
    Value value = IntValue(5);
    ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_BLOCK, bytes)), 1);
    unsigned int nLength = 0;
    const void* pData = value->BlockData(nLength, nullptr);
    ASSERT_NE(pData, nullptr);
    EXPECT_EQ(nLength, 4U);
    EXPECT_EQ(std::memcmp(pData, bytes.data(), bytes.size()), 0) << "the view is that of the whole storage";
    EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_BLOCK, bytes));
}

TEST(DataValueLoading, AReusedValueStartsAfresh) {
    const FreshValuePool pool;
    ITnRobotDataValue* pFirst = nullptr;
    {
        Value value = IntValue(5);
        TextOf(*value);
        ASSERT_EQ(LoadFrom(*value, SavedValue(DATA_TYPE_BLOCK, Bytes(100, 0xEE))), 1);
        pFirst = value.get();
    }
    Value again = TextValue("abc");
    EXPECT_EQ(again.get(), pFirst);
    int nLength = 0;
    EXPECT_STREQ(again->StringData(nLength, nullptr), "abc");
    EXPECT_EQ(nLength, 4);
    EXPECT_EQ(TextOf(*again), "abc");
}
