#include <gtest/gtest.h>

#include <initializer_list>

#include "TnRobotKernel/utilities.h"

TEST(IniFileUtils, TextsAndIntegersIgnoreTheDefault) {
    EXPECT_EQ(TnRobotIniFileUtils::GetStringValue("section", "key", "abc"), "");
    EXPECT_EQ(TnRobotIniFileUtils::GetIntValue("section", "key", 42), 0);
}

TEST(IniFileUtils, TheOtherGettersReturnTheDefault) {
    for (const short nDefault : std::initializer_list<short>{42, 0, -32768, 32767}) {
        EXPECT_EQ(TnRobotIniFileUtils::GetShortValue("section", "key", nDefault), nDefault);
    }
    EXPECT_TRUE(TnRobotIniFileUtils::GetBoolValue("section", "key", true));
    EXPECT_FALSE(TnRobotIniFileUtils::GetBoolValue("section", "key", false));
    EXPECT_EQ(TnRobotIniFileUtils::GetFloatValue("section", "key", 1.5F), 1.5F);
}

TEST(IniFileUtils, NothingIsStored) {
    EXPECT_EQ(TnRobotIniFileUtils::SetIntValue("section", "key", 42), 0);
    EXPECT_EQ(TnRobotIniFileUtils::GetIntValue("section", "key", 7), 0);
    EXPECT_EQ(TnRobotIniFileUtils::SetBoolValue("section", "key", true), 0);
    EXPECT_FALSE(TnRobotIniFileUtils::GetBoolValue("section", "key", false));
}

TEST(IniFileUtils, TheNamesAreNotLookedAt) {
    EXPECT_EQ(TnRobotIniFileUtils::GetStringValue(nullptr, nullptr, nullptr), "");
    EXPECT_EQ(TnRobotIniFileUtils::GetIntValue(nullptr, nullptr, 42), 0);
    EXPECT_EQ(TnRobotIniFileUtils::GetShortValue(nullptr, nullptr, 42), 42);
    EXPECT_TRUE(TnRobotIniFileUtils::GetBoolValue(nullptr, nullptr, true));
    EXPECT_EQ(TnRobotIniFileUtils::GetFloatValue(nullptr, nullptr, 1.5F), 1.5F);
    EXPECT_EQ(TnRobotIniFileUtils::SetIntValue(nullptr, nullptr, 42), 0);
    EXPECT_EQ(TnRobotIniFileUtils::SetBoolValue(nullptr, nullptr, true), 0);
}
