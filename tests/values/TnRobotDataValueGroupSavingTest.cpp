// The saved form of value groups, and what loading makes of it.

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/values.h"
#include "support/fakes/ForeignArchive.h"
#include "support/fakes/ForeignValue.h"
#include "support/objects/Archives.h"
#include "support/objects/Files.h"
#include "support/objects/Groups.h"
#include "support/objects/ValuePool.h"
#include "support/objects/Values.h"
#include "support/processes/TempDirectory.h"
#include "values/GroupTest.h"

using namespace tntest;

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
    ASSERT_EQ(nBlock, 8U);
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
    EXPECT_EQ(EntriesOf(*group).size(), 2U);
}

TEST(DataValueGroupLoading, RefusesVersionsItDoesNotKnow) {
    for (unsigned int nVersion : {0U, 2U, 200U, 255U}) {
        Group group = NewGroup();
        group->SetValue("a", 1);
        Channel channel = Loading(U8(nVersion) + U32(1) + SavedString("b") + SavedValue(DATA_TYPE_INT, BytesOf(5)));
        EXPECT_EQ(group->Serialize(channel.Get()), 0) << nVersion;
        EXPECT_EQ(channel.file->Position(), 1U) << nVersion;
        EXPECT_EQ(EntriesOf(*group).size(), 1U) << nVersion;
    }
}

TEST(DataValueGroupLoading, ACountOfZeroOrLessAddsNothing) {
    for (std::uint32_t nCount : {0U, 0xFFFFFFFFU, 0x80000000U}) {
        Group group = NewGroup();
        Channel channel = Loading(U8(1) + U32(nCount) + SavedString("b") + SavedValue(DATA_TYPE_INT, BytesOf(5)));
        EXPECT_EQ(group->Serialize(channel.Get()), 1) << nCount;
        EXPECT_EQ(channel.file->Position(), 5U) << nCount;
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
    EXPECT_EQ(EntriesOf(*group).size(), 2U);
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

// An application's own archive need not say that there was no error.
TEST(DataValueGroupLoading, ReadsFromAnArchiveThatOnlyReportsErrors) {
    const Bytes value = SavedFormOf(*IntValue(7));
    const auto archive = tn::Adopt(new ForeignArchive(U8(1) + U32(3) + value + value + value,
                                                      {{"first", 5}, {"second and more", 6}, {nullptr, 0}}));
    const Group group = NewGroup();
    EXPECT_EQ(group->Serialize(archive.get()), 1);
    for (const char* lpszName : {"first", "second", ""}) {
        EXPECT_EQ(ParseSavedGroup(SavedFormOf(*group))[lpszName], value) << lpszName;
    }
    const auto failing =
        tn::Adopt(new ForeignArchive(U8(1) + U32(2) + value + value, {{"third", 5}, {"fourth", 6, true}}));
    EXPECT_EQ(group->Serialize(failing.get()), 0);
    EXPECT_EQ(ParseSavedGroup(SavedFormOf(*group)).at("third"), value);
    EXPECT_EQ(ParseSavedGroup(SavedFormOf(*group)).count("fourth"), 0U);
}

TEST(DataValueGroupLoading, ANameThatIsOnlyAZeroIsTheEmptyName) {
    Group group = NewGroup();
    ASSERT_EQ(LoadFrom(*group, U8(1) + U32(1) + U32(1) + U8(0) + SavedValue(DATA_TYPE_INT, BytesOf(5))), 1);
    EXPECT_EQ(group->IntData("", nullptr), 5);
}

TEST(DataValueGroupLoading, ClonesOfLoadedGroupsReadTheSame) {
    Group group = NewGroup();
    ASSERT_EQ(LoadFrom(*group, SavedFormOf(*GroupOfEverything())), 1);
    Group clone = tn::Adopt(group->Clone());
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
