// A module with the record of a class that nobody has registered: the test writes into it what it needs.

#include "TnRobotKernel/core.h"

extern "C" __attribute__((visibility("default"))) STnRuntimeClass g_record;
STnRuntimeClass g_record = {nullptr, nullptr, nullptr, nullptr};
