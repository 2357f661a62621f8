// A process-wide value pool of the test's own, so that which object comes next is known.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_VALUEPOOL_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_VALUEPOOL_H_

#include "TnRobotKernel/utilities.h"

namespace tntest {

/// Starts with an empty pool; a pool is there again afterwards whatever the test did.
class FreshValuePool {
public:
    FreshValuePool() {
        TnRobotUtils::Destroy();
        TnRobotUtils::Init();
    }
    FreshValuePool(const FreshValuePool&) = delete;
    FreshValuePool& operator=(const FreshValuePool&) = delete;
    ~FreshValuePool() { TnRobotUtils::Init(); }
};

/// No value pool for as long as it lives, as after the library's shut-down.
class NoValuePool {
public:
    NoValuePool() { TnRobotUtils::Destroy(); }
    NoValuePool(const NoValuePool&) = delete;
    NoValuePool& operator=(const NoValuePool&) = delete;
    ~NoValuePool() { TnRobotUtils::Init(); }
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_VALUEPOOL_H_
