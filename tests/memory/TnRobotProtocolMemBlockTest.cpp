// Custom blocks as applications see them.

#include <gtest/gtest.h>

#include "TnRobotKernel/memory.h"
#include "support/objects/Memory.h"

using namespace tntest;

TEST(CustomMemBlock, WithoutAParentViewsTheCallersMemory) {
    unsigned char bytes[] = {1, 2, 3, 4};
    ITnRobotMemoryBlock* pBlock = nullptr;
    ASSERT_EQ(TnCreateRobotCustomMemBlock(nullptr, bytes, 4, &pBlock), 1);
    EXPECT_EQ(DataOf(*pBlock), bytes);
    EXPECT_EQ(SizeOf(*pBlock), 4U);
    EXPECT_EQ(pBlock->Release(), 0);
    EXPECT_EQ(bytes[3], 4);
}

// Nothing is validated: data and size are handed back as they came.
TEST(CustomMemBlock, StoresWhatItIsGivenUnchecked) {
    unsigned char byte = 0;
    const struct {
        unsigned char* pData;
        unsigned int nSize;
    } cases[] = {{nullptr, 0}, {nullptr, 5}, {&byte, 0}, {&byte, 0xFFFFFFFF}};
    for (const auto& testCase : cases) {
        const HeldBlock view = MakeView(nullptr, testCase.pData, testCase.nSize);
        EXPECT_EQ(DataOf(*view), testCase.pData);
        EXPECT_EQ(SizeOf(*view), testCase.nSize);
    }
}

TEST(CustomMemBlock, KeepsItsParentAlive) {
    HeldPool pool = MakePool();
    HeldBlock parent = Query(*pool, 100);
    unsigned char* const pData = DataOf(*parent);
    pData[20] = 77;
    HeldBlock view = MakeView(parent.get(), pData + 20, 10);
    EXPECT_EQ(parent.detach()->Release(), 2);

    // The parent is still in use, so the pool has to make another block.
    const HeldBlock other = Query(*pool, 100);
    EXPECT_NE(DataOf(*other), pData);
    EXPECT_EQ(DataOf(*view), pData + 20);
    EXPECT_EQ(DataOf(*view)[0], 77);

    EXPECT_EQ(view.detach()->Release(), 0);
    const HeldBlock again = Query(*pool, 100);
    EXPECT_EQ(DataOf(*again), pData);
}

TEST(CustomMemBlock, OutlivesThePoolOfItsParent) {
    HeldPool pool = MakePool();
    HeldBlock parent = Query(*pool, 100);
    const HeldBlock view = MakeView(parent.get(), DataOf(*parent), 100);
    pool.reset();
    parent.reset();
    DataOf(*view)[99] = 9;
    EXPECT_EQ(DataOf(*view)[99], 9);
}

TEST(CustomMemBlock, ViewsOfViewsGiveEverythingBack) {
    const HeldPool pool = MakePool();
    HeldBlock parent = Query(*pool, 100);
    unsigned char* const pData = DataOf(*parent);
    HeldBlock outer = MakeView(parent.get(), pData, 50);
    HeldBlock inner = MakeView(outer.get(), pData + 10, 5);
    EXPECT_EQ(parent.detach()->Release(), 2);
    EXPECT_EQ(outer.detach()->Release(), 1);
    EXPECT_EQ(DataOf(*inner), pData + 10);
    EXPECT_EQ(inner.detach()->Release(), 0);
    EXPECT_EQ(DataOf(*Query(*pool, 1)), pData);
}

TEST(CustomMemBlock, IsDestroyedByItsLastReleaseAndNotRecycled) {
    unsigned char byte = 0;
    HeldBlock view = MakeView(nullptr, &byte, 1);
    view->AddRef();
    EXPECT_EQ(view->Release(), 1);
    EXPECT_EQ(DataOf(*view), &byte);
    EXPECT_EQ(view.detach()->Release(), 0);
}
