#include "soak/Workshop.h"

#include <vector>

#include "support/objects/Memory.h"

using namespace tntest;

namespace tnsoak {

namespace {

constexpr unsigned int kCircleBuffers = 4;
constexpr unsigned int kLargeBlock = 8 * 1024 * 1024;
constexpr unsigned int kPerBuffer = 3;

template <typename T, typename Create>
TnRobotPtr<T> Made(Create create) {
    T* pNew = nullptr;
    Require(create(&pNew) == 1 && pNew != nullptr, "nothing was created");
    return tn::Adopt(pNew);
}

template <typename T>
bool IsLast(TnRobotPtr<T>& held) {
    return held.detach()->Release() == 0;
}

}  // namespace

Workshop::Workshop(const std::filesystem::path& where)
    : blocks(Made<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool)),
      circle(Made<ITnRobotMemoryBlockPool>(TnCreateRobotCircleMemoryBlockPool)),
      surfaces(Made<ITnRobotSurfacePool>(
          [this](ITnRobotSurfacePool** pp) { return TnCreateRobotSurfacePool(blocks.get(), pp); })),
      tasks(Made<ITnRobotTaskPool>(TnCreateRobotTaskPool)),
      directory(where) {
    TouchWholeCircle();
}

// The circular pool goes round all of its buffers sooner or later. It does so now, so that their
// memory is there from the start and is not taken for growth.
void Workshop::TouchWholeCircle() {
    std::vector<HeldBlock> held;
    for (unsigned int n = 0; n < kCircleBuffers * kPerBuffer; ++n) {
        held.push_back(Query(*circle, kLargeBlock));
        Require(held.back() != nullptr, "the circular pool has no block");
        FillPattern(*held.back(), n);
    }
    for (unsigned int n = 0; n < held.size(); ++n) {
        Require(HasPattern(*held[n], n), "blocks of the circular pool overlap");
    }
}

bool Workshop::Close() {
    const bool bTasks = IsLast(tasks);
    const bool bSurfaces = IsLast(surfaces);
    const bool bCircle = IsLast(circle);
    return IsLast(blocks) && bCircle && bSurfaces && bTasks;
}

}  // namespace tnsoak
