#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "TnRobotKernel/utilities.h"

// Applications exchange these records as bytes with other libraries of the family.

TEST(UtilityLayout, TheIntegerRectangleIsLeftRightTopBottom) {
    EXPECT_EQ(sizeof(STnNLRect), 16U);
    EXPECT_EQ(alignof(STnNLRect), 4U);
    EXPECT_EQ(offsetof(STnNLRect, left), 0U);
    EXPECT_EQ(offsetof(STnNLRect, right), 4U);
    EXPECT_EQ(offsetof(STnNLRect, top), 8U);
    EXPECT_EQ(offsetof(STnNLRect, bottom), 12U);
    EXPECT_TRUE((std::is_same_v<decltype(STnNLRect::left), int>));
    EXPECT_TRUE(std::is_standard_layout_v<STnNLRect> && std::is_trivial_v<STnNLRect>);
}

TEST(UtilityLayout, APointIsXAndY) {
    EXPECT_EQ(sizeof(STnNL2DPoint), 8U);
    EXPECT_EQ(alignof(STnNL2DPoint), 4U);
    EXPECT_EQ(offsetof(STnNL2DPoint, x), 0U);
    EXPECT_EQ(offsetof(STnNL2DPoint, y), 4U);
    EXPECT_TRUE((std::is_same_v<decltype(STnNL2DPoint::x), int>));
    EXPECT_TRUE(std::is_standard_layout_v<STnNL2DPoint> && std::is_trivial_v<STnNL2DPoint>);
}

TEST(UtilityLayout, AFourCornerRectangleIsFourPoints) {
    EXPECT_EQ(sizeof(STnNL2DRect), 32U);
    EXPECT_EQ(alignof(STnNL2DRect), 4U);
    EXPECT_EQ(offsetof(STnNL2DRect, pt), 0U);
    EXPECT_EQ(offsetof(STnNL2DRect, pt[1]), 8U);
    EXPECT_EQ(offsetof(STnNL2DRect, pt[3].y), 28U);
    EXPECT_TRUE(std::is_standard_layout_v<STnNL2DRect> && std::is_trivial_v<STnNL2DRect>);
}

TEST(UtilityLayout, TheComparisonsHaveTheirNumbers) {
    EXPECT_EQ(sizeof(TnRobotSQLUtils::ETnRobotSQLOpera), sizeof(int));
    EXPECT_EQ(TnRobotSQLUtils::SQL_OPERA_NONE, 0);
    EXPECT_EQ(TnRobotSQLUtils::SQL_OPERA_GREATER, 1);
    EXPECT_EQ(TnRobotSQLUtils::SQL_OPERA_LESS, 2);
}
