#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

#include "TnRobotKernel/utilities.h"

TEST(GeometryUtils, TakePiAs31415926) {
    EXPECT_DOUBLE_EQ(TnRobotGeometryUtils::Rad2Angle(3.1415926), 180.0);
    EXPECT_EQ(TnRobotGeometryUtils::Rad2Angle(1.0), 57.29578049044297);
    EXPECT_EQ(TnRobotGeometryUtils::Rad2Angle(1.0F), 57.29578F);
    EXPECT_NE(TnRobotGeometryUtils::Rad2Angle(3.14159265358979), 180.0) << "not the full-precision constant";
}

TEST(GeometryUtils, MultiplyInTheTypeOfTheArgument) {
    static_assert(std::is_same_v<decltype(TnRobotGeometryUtils::Rad2Angle(1.0F)), float>);
    static_assert(std::is_same_v<decltype(TnRobotGeometryUtils::Rad2Angle(1.0)), double>);
    for (const double d : {0.0, -1.0, 0.5, 1e-300, 1e300, -6.25}) {
        EXPECT_EQ(TnRobotGeometryUtils::Rad2Angle(d), d * 57.29578049044297);
    }
    for (const float f : {0.0F, -1.0F, 0.1F, 1e-30F, 1e30F, 3.1415926F}) {
        EXPECT_EQ(TnRobotGeometryUtils::Rad2Angle(f), f * 57.29578F);
    }
    EXPECT_EQ(TnRobotGeometryUtils::Rad2Angle(std::numeric_limits<double>::infinity()),
              std::numeric_limits<double>::infinity());
}
