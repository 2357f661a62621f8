// Radians to degrees.

#include "TnRobotKernel/utilities.h"

namespace {

// 180 / 3.1415926 as callers know it, to the last bit: do not "fix" it to the exact pi.
constexpr double kDegreesPerRadian = 57.29578049044297;

}  // namespace

float TnRobotGeometryUtils::Rad2Angle(float fRadians) {
    return fRadians * static_cast<float>(kDegreesPerRadian);
}

double TnRobotGeometryUtils::Rad2Angle(double dRadians) {
    return dRadians * kDegreesPerRadian;
}
