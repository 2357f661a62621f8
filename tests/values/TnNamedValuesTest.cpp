// The dictionary behind value groups, compared with the standard one.

#include "values/TnNamedValues.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/bytes/CollidingNames.h"
#include "support/objects/Values.h"
#include "support/processes/ResourceUse.h"

using namespace tntest;
using tnrobot::NamedValues;

namespace {

using Model = std::map<std::string, ITnRobotDataValue*>;

NamedValues::Value NewValue() {
    return tn::Adopt(IntValue(1).detach());
}

void ExpectEqual(const NamedValues& values, const Model& model) {
    ASSERT_EQ(values.Entries().size(), model.size());
    for (const auto& entry : values.Entries()) {
        const auto it = model.find(entry.m_strName);
        ASSERT_NE(it, model.end()) << entry.m_strName;
        EXPECT_EQ(entry.m_value.get(), it->second) << entry.m_strName;
    }
    for (const auto& [strName, pValue] : model) {
        const auto* pEntry = values.Find(strName);
        ASSERT_NE(pEntry, nullptr) << strName;
        EXPECT_EQ(pEntry->m_value.get(), pValue) << strName;
    }
}

// A copy shares the values here, so that it has to be equal; it must also serve on. What is there already
// stays.
void ExpectCopiesToBeEqual(const NamedValues& values, Model model) {
    const auto same = [](const NamedValues::Value& value) { return value; };
    NamedValues copy;
    copy.InsertClones(values, same);
    ExpectEqual(copy, model);
    const NamedValues::Value before = NewValue();
    NamedValues merged;
    merged.Set("there before", before);
    if (!model.empty()) {
        merged.Set(model.begin()->first, before);
        model.begin()->second = before.get();
    }
    model["there before"] = before.get();
    merged.InsertClones(values, same);
    ExpectEqual(merged, model);
    for (int i = 0; i < 100; ++i) {
        copy.Insert("later " + std::to_string(i), NewValue());
    }
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(copy.Remove("later " + std::to_string(i)));
    }
    EXPECT_EQ(copy.Entries().size(), values.Entries().size());
}

void CompareWithTheStandardDictionary(const std::vector<std::string>& names) {
    constexpr int kSteps = 20000;
    std::mt19937 random(20240607);  // a fixed seed: every run does the same
    NamedValues values;
    Model model;
    for (int i = 0; i < kSteps; ++i) {
        const std::string& strName = names[random() % names.size()];
        NamedValues::Value value = NewValue();
        switch (random() % 5) {
            case 0:
            case 1:
                model[strName] = value.get();
                values.Set(strName, std::move(value));
                break;
            case 2:
                model.emplace(strName, value.get());
                values.Insert(std::string(strName), std::move(value));
                break;
            default:
                EXPECT_EQ(values.Remove(strName), model.erase(strName) != 0);
                break;
        }
        if (i % 500 == 0) {
            ExpectEqual(values, model);
            ExpectCopiesToBeEqual(values, model);
            ASSERT_FALSE(testing::Test::HasFatalFailure());
        }
    }
    ExpectEqual(values, model);
    values.Clear();
    ExpectEqual(values, {});
}

// Enough for a search through all names at each step to take seconds without a sanitizer.
constexpr std::size_t kManyNames = 20000;

// How names are chosen: so many in a row have one hash, and the next ones that hash and a distance.
struct Craft {
    const char* lpszWhat;
    std::uint64_t nSameHash;
    std::uint64_t nDistance;
};

constexpr Craft kOneHash = {"one hash for all", ~0ULL, 0};

std::vector<std::string> CraftedNames(std::size_t nCount, const Craft& craft, std::uint64_t nSeed = 1) {
    CollidingNames maker(nSeed);
    std::vector<std::string> names;
    for (std::uint64_t i = 0; i < nCount; ++i) {
        names.push_back(maker.Next(i / craft.nSameHash * craft.nDistance));
    }
    return names;
}

std::vector<std::string> PlainNames(std::size_t nCount, const std::string& strStart) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < nCount; ++i) {
        names.push_back(strStart + std::to_string(i));
    }
    return names;
}

// Everything that a group does with names: stores, merges, finds, misses and removes them.
double SecondsForAll(const std::vector<std::string>& names, const std::vector<std::string>& missing) {
    const NamedValues::Value value = NewValue();
    return SecondsFor([&] {
        NamedValues values;
        for (const std::string& strName : names) {
            values.Insert(std::string(strName), NamedValues::Value(value));
        }
        for (const std::string& strName : missing) {
            EXPECT_EQ(values.Find(strName), nullptr);
        }
        for (const std::string& strName : names) {
            EXPECT_TRUE(values.Remove(strName));
        }
        EXPECT_TRUE(values.Entries().empty());
    });
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
    EXPECT_NE(values.Find("a")->m_value.get(), values.Find(strWithZero)->m_value.get());
}

TEST(NamedValues, AnInsertedValueDoesNotReplace) {
    NamedValues values;
    values.Insert("name", NewValue());
    const ITnRobotDataValue* pFirst = values.Find("name")->m_value.get();
    values.Insert("name", NewValue());
    EXPECT_EQ(values.Find("name")->m_value.get(), pFirst);
    EXPECT_EQ(values.Entries().size(), 1U);
}

// Clones may be made by an application's own value, which may put something into the group meanwhile.
TEST(NamedValues, KeepWhatIsInsertedWhileTheyAreFilledWithClones) {
    const NamedValues::Value first = NewValue();
    const NamedValues::Value meanwhile = NewValue();
    NamedValues source;
    source.Set("a", first);
    source.Set("b", first);
    NamedValues target;
    target.InsertClones(source, [&](const NamedValues::Value& value) {
        target.Set("b", meanwhile);
        return value;
    });
    ExpectEqual(target, {{"a", first.get()}, {"b", meanwhile.get()}});
}

TEST(NamedValues, RoomMadeAheadKeepsTheEntries) {
    NamedValues values;
    values.Set("name", NewValue());
    values.Reserve(1000);
    EXPECT_NE(values.Find("name"), nullptr);
    values.Reserve(1);
    EXPECT_NE(values.Find("name"), nullptr);
}

// The time is the processor's, and the bound far from what a long walk at each step would take.
TEST(NamedValues, TakeNoLongerWithNamesThatWereChosenForIt) {
    const double dPlain = SecondsForAll(PlainNames(kManyNames, "plain "), PlainNames(kManyNames, "missing "));
    for (const Craft& craft : {kOneHash, Craft{"groups with one hash", 100, 256}, Craft{"a row of slots", 1, 1},
                               Craft{"pairs in a row of slots", 2, 2}}) {
        // What is missing has the hashes of what is there.
        const double dCrafted = SecondsForAll(CraftedNames(kManyNames, craft), CraftedNames(kManyNames, craft, 2));
        EXPECT_LT(dCrafted, 20 * dPlain + 0.3) << craft.lpszWhat;
    }
}

TEST(NamedValues, KeepTheirOrderWhateverTheirHashes) {
    const std::vector<std::string> names = CraftedNames(1000, kOneHash);
    NamedValues values;
    for (const std::string& strName : names) {
        values.Set(strName, NewValue());
    }
    ASSERT_EQ(values.Entries().size(), names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(values.Entries()[i].m_strName, names[i]) << i;
    }
}

// Few names, so that entries come and go on crowded and on nearly empty tables.
TEST(NamedValues, DoWhatTheStandardDictionaryDoes) {
    for (const unsigned int nNames : {4U, 40U, 400U}) {
        std::vector<std::string> names = PlainNames(nNames, "");
        const std::vector<std::string> longNames = PlainNames(nNames, "a name, long or short: ");
        names.insert(names.end(), longNames.begin(), longNames.end());
        CompareWithTheStandardDictionary(names);
    }
}

TEST(NamedValues, DoSoWithNamesOfOneHashToo) {
    for (const unsigned int nNames : {4U, 120U, 200U, 400U}) {
        CompareWithTheStandardDictionary(CraftedNames(nNames, kOneHash));
    }
}
