// Stubs by contract: nothing is read from or written to any file.

#include "TnRobotKernel/utilities.h"

// Applications are built on these exact results, the uneven treatment of defaults included: do
// not "fix".

std::string TnRobotIniFileUtils::GetStringValue(const char* /*lpszSection*/, const char* /*lpszKey*/,
                                                const char* /*lpszDefault*/) {
    return {};
}

int TnRobotIniFileUtils::GetIntValue(const char* /*lpszSection*/, const char* /*lpszKey*/, int /*nDefault*/) {
    return 0;
}

short TnRobotIniFileUtils::GetShortValue(const char* /*lpszSection*/, const char* /*lpszKey*/, short defaultValue) {
    return defaultValue;
}

bool TnRobotIniFileUtils::GetBoolValue(const char* /*lpszSection*/, const char* /*lpszKey*/, bool defaultValue) {
    return defaultValue;
}

float TnRobotIniFileUtils::GetFloatValue(const char* /*lpszSection*/, const char* /*lpszKey*/, float defaultValue) {
    return defaultValue;
}

int TnRobotIniFileUtils::SetIntValue(const char* /*lpszSection*/, const char* /*lpszKey*/, int /*value*/) {
    return 0;
}

int TnRobotIniFileUtils::SetBoolValue(const char* /*lpszSection*/, const char* /*lpszKey*/, bool /*value*/) {
    return 0;
}
