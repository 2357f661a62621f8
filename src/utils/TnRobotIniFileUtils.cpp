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

short TnRobotIniFileUtils::GetShortValue(const char* /*lpszSection*/, const char* /*lpszKey*/, short nDefault) {
    return nDefault;
}

bool TnRobotIniFileUtils::GetBoolValue(const char* /*lpszSection*/, const char* /*lpszKey*/, bool bDefault) {
    return bDefault;
}

float TnRobotIniFileUtils::GetFloatValue(const char* /*lpszSection*/, const char* /*lpszKey*/, float fDefault) {
    return fDefault;
}

int TnRobotIniFileUtils::SetIntValue(const char* /*lpszSection*/, const char* /*lpszKey*/, int /*nValue*/) {
    return 0;
}

int TnRobotIniFileUtils::SetBoolValue(const char* /*lpszSection*/, const char* /*lpszKey*/, bool /*bValue*/) {
    return 0;
}
