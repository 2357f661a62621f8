// The dictionary behind value groups, compared with the standard one.

#include "values/TnNamedValues.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "support/Values.h"

using namespace tntest;
using tnrobot::NamedValues;

namespace {

using Model = std::map<std::string, ITnRobotDataValue*>;

NamedValues::Value NewValue() {
    return NamedValues::Value::Adopt(IntValue(1).release());
}

void ExpectEqual(const NamedValues& values, const Model& model) {
    ASSERT_EQ(values.Entries().size(), model.size());
    for (const auto& entry : values.Entries()) {
        const auto it = model.find(entry.m_strName);
        ASSERT_NE(it, model.end()) << entry.m_strName;
        EXPECT_EQ(entry.m_value.Get(), it->second) << entry.m_strName;
    }
    for (const auto& [strName, pValue] : model) {
        const auto* pEntry = values.Find(strName);
        ASSERT_NE(pEntry, nullptr) << strName;
        EXPECT_EQ(pEntry->m_value.Get(), pValue) << strName;
    }
}

}  // namespace

TEST(NamedValues, AreEmptyAtFirst) {
    NamedValues values;
    EXPECT_TRUE(values.Entries().empty());
    EXPECT_EQ(values.Find("name"), nullptr);
    EXPECT_FALSE(values.Remove("name"));
    values.Clear();
    EXPECT_EQ(values.Find(""), nullptr);
}

TEST(NamedValues, AreFoundByAllBytesOfTheirNames) {
    NamedValues values;
    const std::string strWithZero("a\0b", 3);
    values.Set("a", NewValue());
    EXPECT_EQ(values.Find(strWithZero), nullptr);
    values.Set(strWithZero, NewValue());
    values.Set("", NewValue());
    EXPECT_EQ(values.Entries().size(), 3U);
    EXPECT_NE(values.Find("a")->m_value.Get(), values.Find(strWithZero)->m_value.Get());
}

TEST(NamedValues, AnInsertedValueDoesNotReplace) {
    NamedValues values;
    values.Insert("name", NewValue());
    const ITnRobotDataValue* pFirst = values.Find("name")->m_value.Get();
    values.Insert("name", NewValue());
    EXPECT_EQ(values.Find("name")->m_value.Get(), pFirst);
    EXPECT_EQ(values.Entries().size(), 1U);
}

TEST(NamedValues, RoomMadeAheadKeepsTheEntries) {
    NamedValues values;
    values.Set("name", NewValue());
    values.Reserve(1000);
    EXPECT_NE(values.Find("name"), nullptr);
    values.Reserve(1);
    EXPECT_NE(values.Find("name"), nullptr);
}

// Few names, so that entries come and go on crowded and on nearly empty tables.
TEST(NamedValues, DoWhatTheStandardDictionaryDoes) {
    constexpr int kSteps = 20000;
    std::mt19937 random(20240607);  // a fixed seed: every run does the same
    for (const unsigned int nNames : {4U, 40U, 400U}) {
        NamedValues values;
        Model model;
        for (int i = 0; i < kSteps; ++i) {
            const std::string strName = "a name, long or short: " + std::to_string(random() % nNames);
            const std::string strShort = strName.substr(random() % 2 != 0 ? 23 : 0);
            NamedValues::Value value = NewValue();
            switch (random() % 5) {
                case 0:
                case 1:
                    model[strShort] = value.Get();
                    values.Set(strShort, std::move(value));
                    break;
                case 2:
                    model.emplace(strShort, value.Get());
                    values.Insert(std::string(strShort), std::move(value));
                    break;
                default:
                    EXPECT_EQ(values.Remove(strShort), model.erase(strShort) != 0);
                    break;
            }
            if (i % 500 == 0) {
                ExpectEqual(values, model);
                ASSERT_FALSE(HasFatalFailure());
            }
        }
        ExpectEqual(values, model);
        values.Clear();
        ExpectEqual(values, {});
    }
}
