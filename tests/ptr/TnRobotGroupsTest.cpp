// Set, Get, Items and BlockBytes: values as C++ writes them.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <limits>
#include <map>

#include "TnRobotKernel/make.h"
#include "support/fakes/ForeignValue.h"
#include "support/objects/Archives.h"

using namespace tntest;

namespace {

using GroupPtr = TnRobotPtr<ITnRobotDataValueGroup>;

enum class Side : std::uint16_t { kLeft = 1, kRight = 65535 };
enum Plain { kNone, kSome = 70000 };

struct Point {
    float x;
    float y;
};

// What a value group keeps of a variable, and gives back.
template <typename T>
void ExpectBack(const T& value, ETnRobotDataValueType eType) {
    const GroupPtr group = tn::MakeValueDataGroup();
    ASSERT_TRUE(tn::Set(*group, "name", value));
    EXPECT_EQ(group->GetDataValueType("name"), eType);
    const std::optional<T> back = tn::Get<T>(*group, "name");
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, value);
}

template <typename T>
void ExpectLimitsBack(ETnRobotDataValueType eType) {
    ExpectBack(std::numeric_limits<T>::min(), eType);
    ExpectBack(std::numeric_limits<T>::max(), eType);
    ExpectBack(T{7}, eType);
}

}  // namespace

TEST(TnGroups, EveryTypeComesBackAsItWas) {
    ExpectBack(true, DATA_TYPE_BOOL);
    ExpectBack('x', DATA_TYPE_CHAR);
    ExpectLimitsBack<std::int8_t>(DATA_TYPE_SHORT);
    ExpectLimitsBack<std::uint8_t>(DATA_TYPE_BYTE);
    ExpectLimitsBack<std::int16_t>(DATA_TYPE_SHORT);
    ExpectLimitsBack<std::uint16_t>(DATA_TYPE_USHORT);
    ExpectLimitsBack<std::int32_t>(DATA_TYPE_INT);
    ExpectLimitsBack<std::uint32_t>(DATA_TYPE_UINT);
    ExpectLimitsBack<std::int64_t>(DATA_TYPE_LONGLONG);
    ExpectLimitsBack<std::uint64_t>(DATA_TYPE_ULONGLONG);
    ExpectLimitsBack<long>(DATA_TYPE_LONGLONG);
    ExpectLimitsBack<unsigned long>(DATA_TYPE_ULONGLONG);
    ExpectLimitsBack<long long>(DATA_TYPE_LONGLONG);
    ExpectLimitsBack<unsigned long long>(DATA_TYPE_ULONGLONG);
    ExpectBack(std::size_t{5}, DATA_TYPE_ULONGLONG);
    ExpectBack(std::time_t{1700000000}, DATA_TYPE_LONGLONG);
    ExpectBack(Side::kRight, DATA_TYPE_USHORT);
    ExpectBack(kSome, DATA_TYPE_UINT);
    ExpectBack(1.5F, DATA_TYPE_FLOAT);
    ExpectBack(0.1, DATA_TYPE_DOUBLE);
    ExpectBack(std::string("text, and a second one that no small buffer holds"), DATA_TYPE_STRING);
    ExpectBack(std::vector<float>{1, 2, 3}, DATA_TYPE_BLOCK);
    ExpectBack(std::array<int, 4>{1, 2, 3, 4}, DATA_TYPE_BLOCK);
    ExpectBack(std::vector<unsigned char>(), DATA_TYPE_BLOCK);
}

TEST(TnGroups, TextsAreTextWhateverTheirForm) {
    const GroupPtr group = tn::MakeValueDataGroup();
    const char* lpszText = "text";
    char buffer[16] = "text";
    const char full[] = {'t', 'e', 'x', 't'};
    const std::string_view part = std::string_view("text and more").substr(0, 4);
    EXPECT_TRUE(tn::Set(*group, "literal", "text"));
    EXPECT_TRUE(tn::Set(*group, "pointer", lpszText));
    EXPECT_TRUE(tn::Set(*group, "buffer", buffer));
    EXPECT_TRUE(tn::Set(*group, "full", full));
    EXPECT_TRUE(tn::Set(*group, "view", part));
    EXPECT_TRUE(tn::Set(*group, "string", std::string("text")));
    for (const auto& [strName, value] : tn::Items(*group)) {
        EXPECT_EQ(tn::Get<std::string>(*value), "text") << strName;
        EXPECT_EQ(tn::Get<std::string_view>(*value), "text") << strName;
    }
    EXPECT_EQ(tn::Items(*group).size(), 6U);
}

TEST(TnGroups, WhatWouldComeBackShorterIsNotStored) {
    const GroupPtr group = tn::MakeValueDataGroup();
    ASSERT_TRUE(tn::Set(*group, "name", 7));
    EXPECT_FALSE(tn::Set(*group, "name", std::string("a\0b", 3)));
    EXPECT_FALSE(tn::Set(*group, "name", static_cast<const char*>(nullptr)));
    EXPECT_FALSE(tn::Set(*group, "name", TnRobotPtr<ITnRobotDataValue>()));
    EXPECT_EQ(tn::Get<int>(*group, "name"), 7) << "the entry is left as it was";
}

TEST(TnGroups, NamesThatAreNoneAreRefused) {
    const GroupPtr group = tn::MakeValueDataGroup();
    EXPECT_FALSE(tn::Set(*group, nullptr, 7));
    EXPECT_FALSE(tn::Set(*group, "", 7));
    EXPECT_FALSE(tn::Get<int>(*group, nullptr));
    EXPECT_FALSE(tn::Get<int>(*group, ""));
    EXPECT_FALSE(tn::Get<int>(*group, "not there"));
    EXPECT_TRUE(tn::Items(*group).empty());
}

TEST(TnGroups, BlocksOfPlainElements) {
    const GroupPtr group = tn::MakeValueDataGroup();
    const float curve[] = {1, 2, 3};
    const std::vector<Point> points = {{1, 2}, {3, 4}};
    EXPECT_TRUE(tn::Set(*group, "curve", curve));
    EXPECT_TRUE(tn::Set(*group, "points", points));
    EXPECT_EQ(tn::Get<std::vector<float>>(*group, "curve"), (std::vector<float>{1, 2, 3}));
    EXPECT_EQ((tn::Get<std::array<float, 3>>(*group, "curve")), (std::array<float, 3>{1, 2, 3}));
    EXPECT_FALSE((tn::Get<std::array<float, 2>>(*group, "curve"))) << "one of its own size only";
    EXPECT_FALSE((tn::Get<std::array<float, 4>>(*group, "curve")));
    EXPECT_FALSE(tn::Get<std::vector<double>>(*group, "curve")) << "12 bytes are no doubles";
    EXPECT_EQ(tn::Get<std::vector<Point>>(*group, "points")->at(1).y, 4);
    EXPECT_FALSE(tn::Get<std::string>(*group, "curve"));
    EXPECT_FALSE(tn::Get<std::vector<float>>(*group, "not there"));
}

TEST(TnGroups, WholeNumbersAreReadWhereTheyFit) {
    const GroupPtr group = tn::MakeValueDataGroup();
    ASSERT_TRUE(tn::Set(*group, "small", std::int8_t{-5}));
    ASSERT_TRUE(tn::Set(*group, "large", std::uint64_t{1} << 63));
    ASSERT_TRUE(tn::Set(*group, "int", 300));
    EXPECT_EQ(tn::Get<std::int64_t>(*group, "small"), -5);
    EXPECT_EQ(tn::Get<int>(*group, "small"), -5);
    EXPECT_FALSE(tn::Get<unsigned int>(*group, "small"));
    EXPECT_FALSE(tn::Get<std::uint64_t>(*group, "small")) << "the bits would fit";
    EXPECT_FALSE(tn::Get<std::int64_t>(*group, "large"));
    EXPECT_EQ(tn::Get<std::uint64_t>(*group, "large"), std::uint64_t{1} << 63);
    EXPECT_EQ(tn::Get<std::uint16_t>(*group, "int"), 300);
    EXPECT_FALSE(tn::Get<std::uint8_t>(*group, "int"));
    EXPECT_EQ(tn::Get<Side>(*group, "int"), static_cast<Side>(300));
    EXPECT_FALSE(tn::Get<bool>(*group, "int"));
    EXPECT_FALSE(tn::Get<char>(*group, "int"));
    EXPECT_FALSE(tn::Get<double>(*group, "int"));
    EXPECT_FALSE(tn::Get<std::string>(*group, "int"));
    EXPECT_FALSE(tn::Get<std::vector<int>>(*group, "int"));
    ASSERT_TRUE(tn::Set(*group, "truth", true));
    ASSERT_TRUE(tn::Set(*group, "letter", 'x'));
    EXPECT_FALSE(tn::Get<int>(*group, "truth"));
    EXPECT_FALSE(tn::Get<int>(*group, "letter"));
    EXPECT_EQ(tn::Get<char>(*group, "letter"), 'x');
}

TEST(TnGroups, RealNumbersAreReadWhereTheyAreTheSame) {
    const GroupPtr group = tn::MakeValueDataGroup();
    constexpr double kInfinite = std::numeric_limits<double>::infinity();
    ASSERT_TRUE(tn::Set(*group, "half", 0.5));
    ASSERT_TRUE(tn::Set(*group, "tenth", 0.1));
    ASSERT_TRUE(tn::Set(*group, "huge", 1e300));
    ASSERT_TRUE(tn::Set(*group, "infinite", -kInfinite));
    ASSERT_TRUE(tn::Set(*group, "none", std::numeric_limits<double>::quiet_NaN()));
    ASSERT_TRUE(tn::Set(*group, "float", 0.1F));
    EXPECT_EQ(tn::Get<float>(*group, "half"), 0.5F);
    EXPECT_FALSE(tn::Get<float>(*group, "tenth"));
    EXPECT_EQ(tn::Get<double>(*group, "tenth"), 0.1);
    EXPECT_FALSE(tn::Get<float>(*group, "huge"));
    EXPECT_EQ(tn::Get<float>(*group, "infinite"), -std::numeric_limits<float>::infinity());
    EXPECT_EQ(tn::Get<double>(*group, "infinite"), -kInfinite);
    EXPECT_TRUE(std::isnan(tn::Get<float>(*group, "none").value()));
    EXPECT_EQ(tn::Get<double>(*group, "float"), static_cast<double>(0.1F));
    EXPECT_FALSE(tn::Get<int>(*group, "half"));
}

TEST(TnGroups, ValuesAreShared) {
    const GroupPtr group = tn::MakeValueDataGroup();
    const auto value = tn::MakeIntData(7);
    ASSERT_TRUE(tn::Set(*group, "name", value));
    EXPECT_EQ(tn::Items(*group).at(0).second, value);
    EXPECT_EQ(tn::Get<int>(*value), 7);
}

TEST(TnGroups, ItemsStandOnTheirOwn) {
    const GroupPtr group = tn::MakeValueDataGroup();
    ASSERT_TRUE(tn::Set(*group, "a", 1));
    ASSERT_TRUE(tn::Set(*group, "b", 2));
    group->SetValue("", 3);
    std::map<std::string, int> seen;
    for (const auto& [strName, value] : tn::Items(*group)) {
        seen[strName] = tn::Get<int>(*value).value();
        group->RemoveValue(strName.c_str());
    }
    EXPECT_EQ(seen, (std::map<std::string, int>{{"a", 1}, {"b", 2}})) << "nobody can ask for the empty name";
}

// A loaded value keeps the length that it had before.
TEST(TnGroups, ALoadedBlockTellsItsTrueSize) {
    for (const std::size_t nBytes : {0U, 1U, 8U, 9U, 1000U}) {
        const GroupPtr group = tn::MakeValueDataGroup();
        const std::vector<unsigned char> bytes(nBytes, 5);
        ASSERT_TRUE(tn::Set(*group, "block", bytes));
        const Bytes saved = SavedFormOf(*group);
        const GroupPtr loaded = tn::MakeValueDataGroup();
        Channel channel = Loading(saved);
        ASSERT_EQ(loaded->Serialize(channel.Get()), 1);
        const auto value = tn::GetValue(*loaded, "block");
        ASSERT_TRUE(value);
        unsigned int nRecorded = 0;
        value->BlockData(nRecorded, nullptr);
        EXPECT_EQ(nRecorded, 8U);
        EXPECT_EQ(tn::BlockBytes(*value), nBytes);
        EXPECT_EQ(tn::Get<std::vector<unsigned char>>(*loaded, "block"), bytes);
        EXPECT_EQ(tn::BlockBytes(*tn::Clone(*value)), nBytes);
    }
    EXPECT_EQ(tn::BlockBytes(*tn::MakeIntData(5)), 0U);
    EXPECT_EQ(tn::BlockBytes(*tn::MakeBlockData("abc", 3)), 3U);
}
