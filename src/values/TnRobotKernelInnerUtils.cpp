#include "core/TnRobotKernelInnerUtils.h"

#include <atomic>

#include "core/TnChecked.h"
#include "values/TnRobotDataValuePool.h"

namespace {

// Set at load and cleared at unload, while any thread may read it. Release and acquire suffice: all
// that the pointer publishes is the pool as it was made.
std::atomic<CTnRobotDataValuePool*> g_pDataValuePool{nullptr};

}  // namespace

CTnRobotDataValuePool* TnQueryDataValuePool() {
    return g_pDataValuePool.load(std::memory_order_acquire);
}

void TnRobotKernelInnerUtils::Init() {
    if (TnQueryDataValuePool() == nullptr) {
        g_pDataValuePool.store(tnrobot::Watch(new CTnRobotDataValuePool), std::memory_order_release);
    }
}

// Destroyed directly, not released: whoever holds values holds no reference to the pool.
void TnRobotKernelInnerUtils::Destroy() {
    delete g_pDataValuePool.exchange(nullptr, std::memory_order_acq_rel);
}
