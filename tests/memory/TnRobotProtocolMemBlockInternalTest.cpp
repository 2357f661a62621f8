// What only code inside the library sees of custom blocks.

#include <gtest/gtest.h>

#include <chrono>

#include "memory/TnRobotProtocolMemBlock.h"
#include "support/objects/Memory.h"

using namespace tntest;

namespace {

using Clock = std::chrono::system_clock;

TnRobotPtr<CTnRobotProtocolMemBlock> MakeProtocolBlock(ITnRobotMemoryBlock* pParent, unsigned char* pData,
                                                       unsigned int nSize) {
    ITnRobotMemoryBlock* pBlock = nullptr;
    EXPECT_EQ(CTnRobotProtocolMemBlock::CreateInstance(pParent, pData, nSize, &pBlock), 1);
    return tn::Adopt(dynamic_cast<CTnRobotProtocolMemBlock*>(pBlock));
}

}  // namespace

TEST(ProtocolMemBlock, IsNeverIdle) {
    const auto block = MakeProtocolBlock(nullptr, nullptr, 0);
    const Clock::time_point first = block->GetRecoveryTime();
    EXPECT_LE(first, Clock::now());
    while (Clock::now() <= first) {
    }
    const Clock::time_point before = Clock::now();
    EXPECT_GE(block->GetRecoveryTime(), before);
}

TEST(ProtocolMemBlock, ClearingItLetsTheParentGoAndKeepsTheView) {
    const HeldPool pool = MakePool();
    HeldBlock parent = Query(*pool, 100);
    unsigned char* const pData = DataOf(*parent);
    const auto block = MakeProtocolBlock(parent.get(), pData, 7);
    parent->AddRef();
    EXPECT_EQ(parent->Release(), 3);
    block->ClearResource();
    parent->AddRef();
    EXPECT_EQ(parent->Release(), 2);
    EXPECT_EQ(DataOf(*block), pData);
    EXPECT_EQ(SizeOf(*block), 7U);
    block->ClearResource();
    parent->AddRef();
    EXPECT_EQ(parent->Release(), 2);
}

TEST(ProtocolMemBlock, ClearingItWithoutAParentDoesNothing) {
    unsigned char byte = 0;
    const auto block = MakeProtocolBlock(nullptr, &byte, 1);
    block->ClearResource();
    EXPECT_EQ(DataOf(*block), &byte);
}
