// What the tests of value groups share.

#ifndef TNROBOTKERNEL_TESTS_VALUES_GROUPTEST_H_
#define TNROBOTKERNEL_TESTS_VALUES_GROUPTEST_H_

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/values.h"
#include "support/objects/Groups.h"
#include "support/objects/Values.h"

namespace tntest {

using Names = std::vector<std::pair<std::string, ETnRobotDataValueType>>;

// All entries as the enumeration gives them, sorted.
inline std::map<std::string, ETnRobotDataValueType> EntriesOf(ITnRobotDataValueGroup& group) {
    Names names;
    const int nCount = group.GetAllDataName(names);
    EXPECT_EQ(nCount, static_cast<int>(names.size()));
    const std::map<std::string, ETnRobotDataValueType> entries(names.begin(), names.end());
    EXPECT_EQ(entries.size(), names.size()) << "names are unique";
    return entries;
}

inline Value ValueOf(ITnRobotDataValueGroup& group, const char* lpszName) {
    ITnRobotDataValue* pValue = nullptr;
    return tn::Adopt(group.GetValue(lpszName, &pValue) == 0 ? pValue : nullptr);
}

// A group with one entry of each type under the type's name, made with the typed setters.
inline Group GroupOfEverything() {
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

// The outcome of one of the group's typed getters.
struct Got {
    int nError;
    bool bZero;
};

inline std::vector<std::pair<ETnRobotDataValueType, Got>> GetAsEachType(ITnRobotDataValueGroup& group,
                                                                        const char* lpszName) {
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

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_VALUES_GROUPTEST_H_
