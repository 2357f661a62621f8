// What the classes of memory do with the allocator: how much they hold, and what is left of them
// when it has nothing more to give.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "memory/IdlePools.h"
#include "memory/TnRobotFixedMemBlockPool.h"
#include "memory/TnRobotRandomMemBlockPool.h"
#include "support/fakes/FailingNew.h"
#include "support/objects/Files.h"
#include "support/objects/Memory.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

constexpr unsigned int kUnit = 32768;
constexpr unsigned int kMebibyte = 1048576;

TnRobotPtr<CTnRobotFixedMemBlockPool> MakeFixedPool() {
    CTnRobotFixedMemBlockPool* pPool = nullptr;
    EXPECT_EQ(CTnRobotFixedMemBlockPool::CreateInstance(100, 0xFFFFFFFF, 0.0, &pPool), 1);
    return tn::Adopt(pPool);
}

TnRobotPtr<ITnRobotMemDataStream> MakeStream(ITnRobotMemoryBlockPool& pool) {
    ITnRobotMemDataStream* pStream = nullptr;
    EXPECT_EQ(TnCreateRobotMemDataStream(&pool, &pStream), 1);
    return tn::Adopt(pStream);
}

template <typename Interface, typename Create>
void ExpectCleanFailure(Create create) {
    FailEveryAllocation([&] {
        Interface* pNew = nullptr;
        create(&pNew);
        pNew->Release();
    });
}

std::size_t ReadableBytes(ITnRobotMemDataStream& stream) {
    std::size_t nTotal = 0;
    unsigned int nSize = 0;
    stream.BeginReadData();
    while (stream.ReadData(nSize) != nullptr) {
        nTotal += nSize;
    }
    stream.EndReadData();
    return nTotal;
}

}  // namespace

TEST(MemoryAllocation, CreationFailsCleanly) {
    const HeldPool pool = MakePoolIdleAfter(60.0);
    ExpectCleanFailure<ITnRobotFile>([](auto pp) { return TnCreateRobotFile(pp); });
    ExpectCleanFailure<ITnRobotMemFile>([](auto pp) { return TnCreateRobotMemFile(pp); });
    ExpectCleanFailure<ITnRobotMemoryBlockPool>([](auto pp) { return TnCreateRobotMemoryBlockPool(pp); });
    ExpectCleanFailure<ITnRobotMemDataStream>([&](auto pp) { return TnCreateRobotMemDataStream(pool.get(), pp); });
    ExpectCleanFailure<ITnRobotMemoryBlock>(
        [](auto pp) { return TnCreateRobotCustomMemBlock(nullptr, nullptr, 0, pp); });
    ExpectCleanFailure<CTnRobotFixedMemBlockPool>(
        [](auto pp) { return CTnRobotFixedMemBlockPool::CreateInstance(1, 1, 0.0, pp); });
}

TEST(MemoryAllocation, AFixedPoolCountsOnlyBlocksThatItMade) {
    const auto pool = MakeFixedPool();
    for (long nLeft = 0; pool->GetCount() == 0; ++nLeft) {
        ITnRobotMemoryBlock* pBlock = nullptr;
        try {
            const FailAllocationsAfter failing(nLeft);
            pool->QueryBlock(&pBlock);
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(pBlock, nullptr);
            EXPECT_EQ(pool->GetCount(), 0U);
        }
        const HeldBlock block(pBlock, tn::kAdopt);
        ASSERT_LT(nLeft, 1000);
    }
    EXPECT_EQ(pool->GetCount(), 1U);
}

TEST(MemoryAllocation, AFixedPoolGivesEverythingBack) {
    FailEveryAllocation([] {
        CTnRobotFixedMemBlockPool* pPool = nullptr;
        CTnRobotFixedMemBlockPool::CreateInstance(100, 2, 0.0, &pPool);
        const auto pool = tn::Adopt(pPool);
        HeldBlock blocks[2];
        for (HeldBlock& block : blocks) {
            ITnRobotMemoryBlock* pBlock = nullptr;
            pool->QueryBlock(&pBlock);
            block.attach(pBlock);
        }
    });
}

TEST(MemoryAllocation, AGeneralPoolServesAgainAfterAFailure) {
    FailEveryAllocation([] {
        const HeldPool pool = MakePool();
        for (const unsigned int nSize : {1U, 2 * kUnit, 3 * kUnit, 1U}) {
            Query(*pool, nSize);
        }
    });
    const HeldPool pool = MakePoolIdleAfter(60.0);
    for (long nLeft = 0; nLeft < 20; ++nLeft) {
        try {
            const FailAllocationsAfter failing(nLeft);
            Query(*pool, kUnit);
        } catch (const std::bad_alloc&) {
        }
        EXPECT_NE(Query(*pool, 5 * kUnit), nullptr);
    }
    EXPECT_NE(Query(*pool, kUnit), nullptr);
}

// Release has nowhere to report a failure to.
TEST(MemoryAllocation, BlocksReturnAndPoolsGoWithoutAllocating) {
    const long nBefore = LiveAllocations();
    {
        HeldPool pool = MakePoolIdleAfter(0.0);
        std::vector<HeldBlock> blocks;
        for (unsigned int n = 0; n < 300; ++n) {
            blocks.push_back(Query(*pool, 1 + n % 2 * kUnit));
        }
        const FailAllocationsAfter failing(0);
        while (blocks.size() > 10) {
            blocks.pop_back();
        }
        pool->FreeUnuseMemory();
        pool.reset();
        blocks.clear();
    }
    EXPECT_EQ(LiveAllocations(), nBefore);
}

TEST(MemoryAllocation, ASweepOfAnIdlePoolGivesEverythingBack) {
    const HeldPool pool = MakePoolIdleAfter(0.0);
    const long nBefore = LiveAllocations();
    Query(*pool, kUnit).reset();
    const long nOneClass = LiveAllocations();
    EXPECT_GT(nOneClass, nBefore);
    Query(*pool, 2 * kUnit).reset();
    EXPECT_GT(LiveAllocations(), nOneClass);
    pool->FreeUnuseMemory();
    EXPECT_EQ(LiveAllocations(), nBefore);
}

TEST(MemoryAllocation, ASweepKeepsAClassThatIsInUse) {
    const HeldPool pool = MakePoolIdleAfter(0.0);
    const HeldBlock held = Query(*pool, kUnit);
    const long nBefore = LiveAllocations();
    Query(*pool, 2 * kUnit).reset();
    pool->FreeUnuseMemory();
    EXPECT_EQ(LiveAllocations(), nBefore);
}

TEST(MemoryAllocation, WithinTheIdleTimeSweepsGiveNothingBack) {
    const HeldPool pool = MakePoolIdleAfter(60.0);
    Query(*pool, kUnit).reset();
    const long nBefore = LiveAllocations();
    pool->FreeUnuseMemory();
    pool->FreeUnuseMemory();
    EXPECT_EQ(LiveAllocations(), nBefore);
}

TEST(MemoryAllocation, RefusalsAllocateNothing) {
    const HeldPool pool = MakePoolIdleAfter(60.0);
    const FailAllocationsAfter failing(0);
    ITnRobotMemoryBlock* pBlock = nullptr;
    EXPECT_EQ(pool->QueryMemBuff(0, &pBlock), 0);
    EXPECT_EQ(pool->QueryMemBuff(1, nullptr), 0);
    EXPECT_EQ(pool->QueryMemBuff(4294934529U, &pBlock), 0);
    EXPECT_EQ(TnCreateRobotMemoryBlockPool(nullptr), 0);
    EXPECT_EQ(CTnRobotFixedMemBlockPool::CreateInstance(1, 1, 0.0, nullptr), 0);
}

TEST(MemoryAllocation, AStreamKeepsWhatFoundRoom) {
    const std::vector<unsigned char> bytes(3 * kMebibyte + 5, 'x');
    bool bFailed = true;
    for (long nLeft = 0; bFailed; ++nLeft) {
        const HeldPool pool = MakePoolIdleAfter(60.0);
        const auto stream = MakeStream(*pool);
        bFailed = false;
        try {
            const FailAllocationsAfter failing(nLeft);
            stream->WriteData(bytes.data(), static_cast<unsigned int>(bytes.size()));
        } catch (const std::bad_alloc&) {
            bFailed = true;
        }
        EXPECT_EQ(stream->GetTotleLength(), ReadableBytes(*stream)) << nLeft;
        stream->Clear();
        EXPECT_EQ(stream->WriteData(bytes.data(), kMebibyte + 1), 0);
        EXPECT_EQ(ReadableBytes(*stream), kMebibyte + 1);
        ASSERT_LT(nLeft, 1000);
    }
}

TEST(MemoryAllocation, AStreamGivesEverythingBack) {
    const std::vector<unsigned char> bytes(2 * kMebibyte + 5, 'x');
    FailEveryAllocation([&] {
        const HeldPool pool = MakePool();
        ITnRobotMemDataStream* pStream = nullptr;
        TnCreateRobotMemDataStream(pool.get(), &pStream);
        const auto stream = tn::Adopt(pStream);
        stream->WriteData(bytes.data(), static_cast<unsigned int>(bytes.size()));
        ReadableBytes(*stream);
    });
}

TEST(MemoryAllocation, AMemoryFileStaysReadableAfterAFailure) {
    std::string bytes(100, ' ');
    for (std::size_t n = 0; n < bytes.size(); ++n) {
        bytes[n] = static_cast<char>('0' + n % 64);
    }
    bool bFailed = true;
    for (long nLeft = 0; bFailed; ++nLeft) {
        const auto file = MakeMemFile();
        ASSERT_TRUE(file->OpenWriteFile(3));
        bFailed = false;
        try {
            const FailAllocationsAfter failing(nLeft);
            file->Write(bytes.data(), static_cast<long long>(bytes.size()));
        } catch (const std::bad_alloc&) {
            bFailed = true;
        }
        std::string copy(bytes.size(), '#');
        auto nLength = static_cast<long long>(copy.size());
        EXPECT_TRUE(file->GetMemData(copy.data(), nLength));
        ASSERT_LE(nLength, static_cast<long long>(bytes.size()));
        copy.resize(static_cast<std::size_t>(nLength));
        EXPECT_EQ(copy, bytes.substr(0, copy.size())) << nLeft;
        EXPECT_TRUE(bFailed || copy == bytes);
        ASSERT_LT(nLeft, 1000);
    }
}

TEST(MemoryAllocation, AMemoryFileThatCannotOpenStaysClosed) {
    const auto file = MakeMemFile();
    bool bFailed = true;
    for (long nLeft = 0; bFailed; ++nLeft) {
        bFailed = false;
        try {
            const FailAllocationsAfter failing(nLeft);
            file->OpenWriteFile(3);
        } catch (const std::bad_alloc&) {
            bFailed = true;
            EXPECT_EQ(file->GetPos(), -1);
        }
        ASSERT_LT(nLeft, 1000);
    }
    EXPECT_EQ(file->GetPos(), 0);
}

TEST(MemoryAllocation, ADiskFileThatCannotOpenLeaksNothing) {
    const TempDirectory directory;
    const std::string path = directory / "file";
    FailEveryAllocation([&] {
        const auto file = MakeFile();
        if (!file->Open(path.c_str(), true)) {
            throw std::bad_alloc();
        }
        file->Write("abc", 3);
    });
}
