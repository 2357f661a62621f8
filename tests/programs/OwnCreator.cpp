// A creation function of the program's own, under the name that logger libraries export.

#include <cstdio>

#include "TnRobotKernel/core.h"

extern "C" __attribute__((visibility("default"))) int TnCreateRobotLogger(ITnRobotLogger** /*ppLogger*/) {
    std::puts("the program's own creation function");
    return 0;
}
