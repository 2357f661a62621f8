// What the debugger is shown: one object of each kind, and a place to stop.
//
// The hidden classes are described here by their own headers, so that the test needs no library
// with debug information. TNROBOT_UNDESCRIBED leaves them out, as in an application beside a
// library without debug information.

#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_map>

#include "TnRobotKernel/make.h"
#ifndef TNROBOT_UNDESCRIBED
#include "image/TnRobotSurface.h"
#include "memory/TnRobotMemoryBlock.h"
#include "memory/TnRobotProtocolMemBlock.h"
#include "values/TnRobotDataValue.h"
#include "values/TnRobotDataValueGroup.h"
#endif

namespace {

#ifndef TNROBOT_UNDESCRIBED
// Uses the classes, so that the compiler describes them, a group's dictionary included.
[[gnu::used]] void Describe(CTnRobotDataValue* pValue, CTnRobotDataValueGroup* pGroup, CTnRobotSurface* pSurface,
                            CTnRobotMemoryBlock* pBlock, CTnRobotProtocolMemBlock* pView) {
    const std::unordered_map<std::string, TnRobotPtr<ITnRobotDataValue>> values{{"", {}}};
    std::printf("%zu %p %p %p %p %p\n", values.begin()->first.size(), static_cast<void*>(pValue),
                static_cast<void*>(pGroup), static_cast<void*>(pSurface), static_cast<void*>(pBlock),
                static_cast<void*>(pView));
}
#endif

/// An application's own class, for which there is no printer.
class Probe final : public ITnUnknown {};

}  // namespace

extern "C" [[gnu::noinline]] void StopHere() {
    std::puts("stopped");
}

int main() {
    const TnRobotPtr<ITnRobotDataValue> empty;
    const auto flag = tn::MakeBoolData(true);
    const auto letter = tn::MakeCharData('x');
    const auto byte = tn::MakeByteData(200);
    const auto small = tn::MakeShortData(-2);
    const auto port = tn::MakeUShortData(65534);
    const auto number = tn::MakeIntData(42);
    const auto size = tn::MakeUintData(4000000000U);
    const auto ratio = tn::MakeFloatData(-1.5F);
    const auto angle = tn::MakeDoubleData(0.1);
    const auto offset = tn::MakeLonglongData(-8000000000LL);
    const auto stamp = tn::MakeULonglongData(18000000000000000000ULL);
    const auto text = tn::MakeStringData("a \"quoted\"\ttext");
    const auto bytes = tn::MakeBlockData("\x00\x01\xFE\xFF", 4);
    const auto shared = number;

    const auto group = tn::MakeValueDataGroup();
    group->SetValue("name", "arm");
    group->SetValue("count", 3);
    group->SetValue("bits", tn::MakeBlockData(nullptr, 0).get());
    const auto none = tn::MakeValueDataGroup();

    const auto blocks = tn::MakeMemoryBlockPool();
    const auto block = tn::QueryMemBuff(*blocks, 20);
    unsigned int nSize = 0;
    unsigned char* pData = block->QueryMemory(nSize);
    std::memset(pData, 0xAB, nSize);
    const auto view = tn::MakeCustomMemBlock(block.get(), pData + 1, 3);
    const ITnRobotMemoryBlock* pRaw = view.get();

    const auto pool = tn::MakeSurfacePool(blocks.get());
    const auto surface = tn::QuerySurface(*pool, {2, 1, 0, TN_IMAGE_BGR24, {5, 6}});
    ITnRobotSurface::STnLockSurface lock{};
    surface->LockSurface(lock);
    std::memset(lock.pData, 0x11, lock.nDataSize);
    surface->UnLockSurface();
    surface->SetTimeStamp(1234);
    TnRobotPtr<ITnRobotSurface> bare;
    static_cast<void>(tn::QuerySurface(*pool, {2, 1, 0, TN_IMAGE_GRAY8, {0, 0}}));
    pool->QuerySurface({}, bare.put());

    const auto probe = tn::MakeObject<Probe>();
    const TnRobotPtr<ITnUnknown> unknown = probe;

    // Memory that is no object any more.
    alignas(16) unsigned char garbage[256];
    std::memset(garbage, 0x5A, sizeof garbage);
    const auto* pBroken = reinterpret_cast<const ITnRobotDataValue*>(garbage);

    StopHere();
    return empty || shared != number || pRaw == nullptr || pBroken == nullptr || !unknown ? 1 : 0;
}
