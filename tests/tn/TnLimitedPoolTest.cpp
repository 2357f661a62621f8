#include "TnRobotKernel/tn/limited_pool.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/threads/StartGate.h"
#include "tn/WorkTest.h"

using namespace tntest;

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

namespace {

constexpr unsigned int kKiB = 1024;
constexpr unsigned int kMiB = 1024 * kKiB;
constexpr unsigned int kCircleMost = 24 * kMiB;

class LimitedPool : public ThreadTest {
protected:
    static TnRobotPtr<tn::LimitedPool> Over(TnRobotPtr<ITnRobotMemoryBlockPool> source, unsigned long long nMost,
                                            std::chrono::milliseconds wait = 0ms, unsigned int nUnit = 1) {
        return tn::MakeLimitedPool(std::move(source), {nMost, wait, nUnit});
    }
    static TnRobotPtr<tn::LimitedPool> OverGeneral(unsigned long long nMost, std::chrono::milliseconds wait = 0ms) {
        return Over(tn::MakeMemoryBlockPool(), nMost, wait);
    }
};

class QueryMemBuff : public testing::Test {};

// Answers what it is told to.
class RiggedPool final : public ITnRobotMemoryBlockPool {
public:
    explicit RiggedPool(std::vector<int> answers) : m_answers(std::move(answers)) {}

    // 1 a block, 0 a refusal, -1 the lost race, -2 an exception.
    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) override {
        const int nAnswer = m_answers.at(std::min(m_nAsked++, m_answers.size() - 1));
        if (nAnswer == -2) {
            throw std::bad_alloc();
        }
        return nAnswer == 1 ? m_source->QueryMemBuff(nSize, ppBlock) : -nAnswer;
    }
    void FreeUnuseMemory() override { ++m_nFreed; }

    std::size_t Asked() const { return m_nAsked; }
    int Freed() const { return m_nFreed; }

private:
    const std::vector<int> m_answers;
    const TnRobotPtr<ITnRobotMemoryBlockPool> m_source = tn::MakeMemoryBlockPool();
    std::size_t m_nAsked = 0;
    int m_nFreed = 0;
};

unsigned int SizeOf(ITnRobotMemoryBlock& block) {
    unsigned int nSize = 0;
    block.QueryMemory(nSize);
    return nSize;
}

}  // namespace

TEST_F(LimitedPool, HandsOutTheBlocksOfTheOther) {
    const auto pool = OverGeneral(kMiB);
    const auto block = tn::QueryMemBuff(*pool, 1000);
    ASSERT_TRUE(block);
    unsigned int nSize = 0;
    unsigned char* pData = block->QueryMemory(nSize);
    EXPECT_EQ(nSize, 1000U);
    std::memset(pData, 7, nSize);
    EXPECT_FALSE(tn::MakeLimitedPool(nullptr, {}));
}

TEST_F(LimitedPool, RefusesWhatWouldExceedItsLimit) {
    const auto pool = OverGeneral(1000);
    auto first = tn::QueryMemBuff(*pool, 600);
    ASSERT_TRUE(first);
    auto* const pUntouched = reinterpret_cast<ITnRobotMemoryBlock*>(&first);
    ITnRobotMemoryBlock* pBlock = pUntouched;
    EXPECT_EQ(pool->QueryMemBuff(401, &pBlock), 0);
    EXPECT_EQ(pBlock, pUntouched);
    const auto second = tn::QueryMemBuff(*pool, 400);  // to the last byte
    EXPECT_TRUE(second);
    EXPECT_FALSE(tn::QueryMemBuff(*pool, 1));
    first.reset();
    EXPECT_TRUE(tn::QueryMemBuff(*pool, 600));
    EXPECT_EQ(pool->QueryMemBuff(1, nullptr), 0);
}

TEST_F(LimitedPool, CountsRequestsBlocksAndBytes) {
    const auto pool = OverGeneral(1000);
    {
        const auto first = tn::QueryMemBuff(*pool, 300);
        const auto second = tn::QueryMemBuff(*pool, 500);
        EXPECT_FALSE(tn::QueryMemBuff(*pool, 500));   // no room
        EXPECT_FALSE(tn::QueryMemBuff(*pool, 2000));  // never
        const tn::LimitedPoolCounters counters = pool->Counters();
        EXPECT_EQ(counters.nLiveBlocks, 2U);
        EXPECT_EQ(counters.nLiveBytes, 800U);
        EXPECT_EQ(counters.nHighWater, 800U);
        EXPECT_EQ(counters.nRequests, 4U);
        EXPECT_EQ(counters.nRefusals, 2U);
        EXPECT_EQ(counters.nWaitingNow, 0U);
        EXPECT_EQ(counters.nMostBytes, 1000U);
    }
    const tn::LimitedPoolCounters counters = pool->Counters();
    EXPECT_EQ(counters.nLiveBlocks, 0U);
    EXPECT_EQ(counters.nLiveBytes, 0U);
    EXPECT_EQ(counters.nHighWater, 800U);
}

TEST_F(LimitedPool, CountsInWholeUnits) {
    const auto pool = Over(tn::MakeMemoryBlockPool(), 128 * kKiB, 0ms, 32 * kKiB);
    const auto first = tn::QueryMemBuff(*pool, 1);
    EXPECT_EQ(pool->Counters().nLiveBytes, 32U * kKiB);
    const auto second = tn::QueryMemBuff(*pool, 32 * kKiB + 1);
    EXPECT_EQ(pool->Counters().nLiveBytes, 96U * kKiB);
    EXPECT_FALSE(tn::QueryMemBuff(*pool, 32 * kKiB + 1));
    EXPECT_TRUE(tn::QueryMemBuff(*pool, 32 * kKiB));
    // A unit of nothing is one byte; the largest request there is does not overflow.
    const auto plain = Over(tn::MakeMemoryBlockPool(), ~0ULL, 0ms, 0);
    EXPECT_FALSE(tn::QueryMemBuff(*plain, 0xFFFFFFFFU));
    EXPECT_EQ(plain->Counters().nHighWater, 0U);
    const auto huge = Over(tn::MakeMemoryBlockPool(), ~0ULL, 0ms, 0xFFFFFFFFU);
    EXPECT_TRUE(tn::QueryMemBuff(*huge, 10));
    EXPECT_EQ(huge->Counters().nHighWater, 0xFFFFFFFFULL);
}

TEST_F(LimitedPool, CountsNothingForABlockThatTheOtherDoesNotHave) {
    const auto source = tn::MakeObject<RiggedPool>(std::vector<int>{0, -1, -2, 1});
    const auto pool = Over(source, 1000);
    TnRobotPtr<ITnRobotMemoryBlock> block;
    EXPECT_EQ(pool->QueryMemBuff(1000, block.put()), 0);
    EXPECT_FALSE(block);
    EXPECT_EQ(pool->QueryMemBuff(1000, block.put()), 1);  // its answer is passed on
    EXPECT_FALSE(block);
    EXPECT_THROW(pool->QueryMemBuff(1000, block.put()), std::bad_alloc);
    EXPECT_EQ(pool->Counters().nLiveBytes, 0U);
    EXPECT_EQ(pool->Counters().nLiveBlocks, 0U);
    EXPECT_EQ(pool->Counters().nHighWater, 0U);
    EXPECT_EQ(pool->Counters().nRefusals, 3U);
    EXPECT_EQ(pool->QueryMemBuff(1000, block.put()), 1);
    EXPECT_TRUE(block);
    EXPECT_EQ(pool->Counters().nRequests, 4U);
    EXPECT_EQ(pool->Counters().nRefusals, 3U);
}

TEST_F(LimitedPool, HasTheOtherGiveBackWhatLiesUnused) {
    const auto source = tn::MakeObject<RiggedPool>(std::vector<int>{1});
    const auto pool = Over(source, 1000);
    pool->FreeUnuseMemory();
    EXPECT_EQ(source->Freed(), 1);
    EXPECT_EQ(&pool->Source(), source.get());
}

TEST_F(LimitedPool, IsFoundBehindItsInterfaces) {
    const TnRobotPtr<ITnRobotMemoryBlockPool> pool = OverGeneral(1000);
    const TnRobotPtr<ITnUnknown> root = pool;
    EXPECT_TRUE(root.try_as<tn::LimitedPool>());
    EXPECT_TRUE(root.try_as<ITnRobotMemoryBlockPool>());
    EXPECT_FALSE(root.try_as<ITnRobotMemoryBlock>());
    const TnRobotPtr<ITnUnknown> block = tn::QueryMemBuff(*pool, 10);
    EXPECT_TRUE(block.try_as<ITnRobotMemoryBlock>());
    EXPECT_FALSE(block.try_as<ITnRobotMemoryBlockPool>());
}

TEST_F(LimitedPool, BlocksOutliveThePools) {
    for (const bool bCircular : {false, true}) {
        TnRobotPtr<ITnRobotMemoryBlock> block;
        {
            const auto pool = Over(bCircular ? tn::MakeCircleMemoryBlockPool() : tn::MakeMemoryBlockPool(), kMiB);
            block = tn::QueryMemBuff(*pool, 5000);
            ASSERT_TRUE(block);
        }
        unsigned int nSize = 0;
        unsigned char* pData = block->QueryMemory(nSize);
        ASSERT_EQ(nSize, 5000U);
        std::memset(pData, 1, nSize);  // under AddressSanitizer this is the test
        block->AddRef();
        EXPECT_EQ(block->Release(), 1);
    }
}

TEST_F(LimitedPool, WaitsForABlockThatComesBack) {
    const auto pool = OverGeneral(1000, tn::kNoLimit);
    auto held = tn::QueryMemBuff(*pool, 800);
    TnRobotPtr<ITnRobotMemoryBlock> got;
    Caller waiter([&] { got = tn::QueryMemBuff(*pool, 500); });
    EXPECT_TRUE(Eventually([&] { return pool->Counters().nWaitingNow == 1; }));
    held.reset();
    waiter.Join();
    EXPECT_TRUE(got);
    EXPECT_EQ(pool->Counters().nWaitingNow, 0U);
    EXPECT_EQ(pool->Counters().nRefusals, 0U);
}

TEST_F(LimitedPool, GivesUpWhenNothingHasComeInTime) {
    const auto pool = OverGeneral(1000, 10ms);
    const auto held = tn::QueryMemBuff(*pool, 800);
    std::error_code ec;
    EXPECT_FALSE(tn::QueryMemBuff(*pool, 500, ec));
    EXPECT_EQ(ec, std::errc::resource_unavailable_try_again);
    EXPECT_EQ(pool->Counters().nRefusals, 1U);
    EXPECT_EQ(pool->Counters().nWaitingNow, 0U);
    EXPECT_TRUE(tn::QueryMemBuff(*pool, 200));
}

TEST_F(LimitedPool, DoesNotWaitForWhatCanNeverBe) {
    const auto pool = OverGeneral(1000, tn::kNoLimit);
    const auto held = tn::QueryMemBuff(*pool, 800);
    std::error_code ec;
    EXPECT_FALSE(tn::QueryMemBuff(*pool, 1001, ec));
    EXPECT_EQ(ec, tn::errc::block_too_large);
    EXPECT_EQ(ec, std::errc::value_too_large);  // either name
    EXPECT_EQ(ec.message(), "The pool never has a block of so many bytes");
    EXPECT_NE(std::error_code(tn::errc::no_surface), std::errc::value_too_large);
}

// Small requests would always find room before the large one does.
TEST_F(LimitedPool, ServesThoseWhoWaitInTheirOrder) {
    const auto pool = OverGeneral(1000, tn::kNoLimit);
    auto held = tn::QueryMemBuff(*pool, 600);
    auto alsoHeld = tn::QueryMemBuff(*pool, 300);
    std::atomic<bool> bLarge{false};
    std::atomic<bool> bSmall{false};
    TnRobotPtr<ITnRobotMemoryBlock> large;
    TnRobotPtr<ITnRobotMemoryBlock> small;
    Caller first([&] {
        large = tn::QueryMemBuff(*pool, 700);
        bLarge = true;
    });
    EXPECT_TRUE(Eventually([&] { return pool->Counters().nWaitingNow == 1; }));
    Caller second([&] {
        small = tn::QueryMemBuff(*pool, 50);  // there is room, but it came later
        bSmall = true;
    });
    EXPECT_TRUE(Eventually([&] { return pool->Counters().nWaitingNow == 2; }));
    alsoHeld.reset();  // 400 are free: still too few for the first
    EXPECT_EQ(pool->Counters().nWaitingNow, 2U);
    EXPECT_FALSE(bSmall);
    held.reset();
    first.Join();
    second.Join();
    EXPECT_TRUE(bLarge && bSmall);
    EXPECT_EQ(pool->Counters().nLiveBytes, 750U);
}

TEST_F(LimitedPool, WhoGivesUpLetsThoseBehindGoOn) {
    const auto pool = OverGeneral(1000, 50ms);
    const auto held = tn::QueryMemBuff(*pool, 600);
    TnRobotPtr<ITnRobotMemoryBlock> small;
    Caller first([&] { EXPECT_FALSE(tn::QueryMemBuff(*pool, 700)); });
    EXPECT_TRUE(Eventually([&] { return pool->Counters().nWaitingNow == 1 || first.Returned(); }));
    while (!small) {
        small = tn::QueryMemBuff(*pool, 300);
    }
    EXPECT_EQ(pool->Counters().nLiveBytes, 900U);
}

TEST_F(LimitedPool, WritesItsCountersIntoAGroup) {
    const auto pool = OverGeneral(1000);
    const auto block = tn::QueryMemBuff(*pool, 300);
    EXPECT_FALSE(tn::QueryMemBuff(*pool, 900));
    const auto group = tn::MakeValueDataGroup();
    group->SetValue("requests", "as another type");
    ASSERT_TRUE(tn::WriteCounters(pool->Counters(), *group));
    const struct {
        const char* lpszName;
        unsigned long long nValue;
    } kExpected[] = {{"live blocks", 1}, {"live bytes", 300}, {"high water", 300}, {"requests", 2},
                     {"refusals", 1},    {"waiting now", 0},  {"most bytes", 1000}};
    for (const auto& expected : kExpected) {
        int nError = -1;
        EXPECT_EQ(group->ULonglongData(expected.lpszName, &nError), expected.nValue) << expected.lpszName;
        EXPECT_EQ(nError, 0) << expected.lpszName;
    }
}

TEST_F(LimitedPool, FeedsStreamsAndSurfaces) {
    const auto pool = OverGeneral(3 * kMiB);
    const auto stream = tn::MakeMemDataStream(pool.get());
    const std::vector<unsigned char> bytes(kMiB, 3);
    EXPECT_EQ(stream->WriteData(bytes.data(), kMiB), 0);
    const auto surfaces = tn::MakeSurfacePool(pool.get());
    const ITnRobotSurface::STnSurfaceDesc desc{1024, 1024, 0, TN_IMAGE_GRAY8, {0, 0}};
    auto surface = tn::QuerySurface(*surfaces, desc);
    EXPECT_TRUE(surface);
    EXPECT_EQ(pool->Counters().nLiveBytes, 2U * kMiB);
    EXPECT_EQ(stream->WriteData(bytes.data(), kMiB), 0);
    EXPECT_EQ(stream->WriteData(bytes.data(), 1), -1);  // the stream's own refusal
    EXPECT_FALSE(tn::QuerySurface(*surfaces, desc));
    stream->Clear();
    EXPECT_TRUE(tn::QuerySurface(*surfaces, desc));
}

TEST_F(LimitedPool, NeverExceedsItsLimitInAStorm) {
    constexpr int kThreads = 8;
    for (const std::chrono::milliseconds wait : {0ms, 2ms, tn::kNoLimit}) {
        const auto pool = OverGeneral(100 * kKiB, wait);
        std::atomic<long long> nLive{0};
        std::atomic<bool> bExceeded{false};
        StartGate gate(kThreads);
        std::vector<std::thread> threads;
        for (int nThread = 0; nThread < kThreads; ++nThread) {
            threads.emplace_back([&, nThread] {
                gate.ArriveAndWait();
                for (unsigned int n = 0; n < 300; ++n) {
                    const unsigned int nSize =
                        1 + (n * 7919U + static_cast<unsigned int>(nThread) * 104729U) % (60 * kKiB);
                    const auto block = tn::QueryMemBuff(*pool, nSize);
                    if (block) {
                        bExceeded = bExceeded || nLive.fetch_add(nSize) + nSize > 100 * kKiB;
                        EXPECT_EQ(SizeOf(*block), nSize);
                        nLive -= nSize;
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_FALSE(bExceeded);
        const tn::LimitedPoolCounters counters = pool->Counters();
        EXPECT_EQ(counters.nLiveBytes, 0U);
        EXPECT_EQ(counters.nLiveBlocks, 0U);
        EXPECT_EQ(counters.nRequests, 300U * kThreads);
        EXPECT_LE(counters.nHighWater, 100U * kKiB);
        EXPECT_TRUE(wait != tn::kNoLimit || counters.nRefusals == 0);
    }
}

TEST_F(QueryMemBuff, TellsWhetherItHelpsToAskAgain) {
    const auto general = tn::MakeMemoryBlockPool();
    const auto circular = tn::MakeCircleMemoryBlockPool();
    const auto limited = tn::MakeLimitedPool(circular, {2ULL * kCircleMost, 0ms, 1});
    const auto full = tn::MakeLimitedPool(general, {100, 0ms, 1});
    const auto held = tn::QueryMemBuff(*full, 100);
    const auto fullTwice = tn::MakeLimitedPool(full, {1000, 0ms, 1});
    const struct {
        ITnRobotMemoryBlockPool& pool;
        unsigned int nSize;
        std::error_condition expected;
    } kCases[] = {
        {*general, 1, {}},
        {*general, 0, std::errc::invalid_argument},
        {*general, 0xFFFFFFFFU, std::errc::value_too_large},
        {*circular, 0, {}},
        {*circular, kCircleMost, {}},
        {*circular, kCircleMost + 1, std::errc::value_too_large},
        {*limited, kCircleMost, {}},
        {*limited, kCircleMost + 1, std::errc::value_too_large},  // the limit would allow it
        {*full, 1, std::errc::resource_unavailable_try_again},
        {*full, 101, std::errc::value_too_large},
        {*fullTwice, 50, std::errc::resource_unavailable_try_again},
    };
    for (const auto& each : kCases) {
        std::error_code ec = std::make_error_code(std::errc::io_error);
        const auto block = tn::QueryMemBuff(each.pool, each.nSize, ec);
        EXPECT_EQ(ec.default_error_condition() == each.expected || (!ec && each.expected == std::error_condition()),
                  true)
            << each.nSize << ": " << ec.message();
        EXPECT_EQ(static_cast<bool>(block), !ec);
    }
}

TEST_F(QueryMemBuff, RunsALostRaceAgain) {
    const auto pool = tn::MakeObject<RiggedPool>(std::vector<int>{-1, -1, -1, 1});
    std::error_code ec;
    EXPECT_TRUE(tn::QueryMemBuff(*pool, 10, ec));
    EXPECT_FALSE(ec);
    EXPECT_EQ(pool->Asked(), 4U);
}

TEST_F(QueryMemBuff, DoesNotRunItForEver) {
    const auto pool = tn::MakeObject<RiggedPool>(std::vector<int>{-1});
    std::error_code ec;
    EXPECT_FALSE(tn::QueryMemBuff(*pool, 10, ec));
    EXPECT_EQ(ec, std::errc::resource_unavailable_try_again);
    EXPECT_EQ(pool->Asked(), 100U);
}
