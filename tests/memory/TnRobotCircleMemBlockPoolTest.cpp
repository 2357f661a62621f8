#include "memory/TnRobotCircleMemBlockPool.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "TnRobotKernel/ptr.h"
#include "support/threads/StartGate.h"
#include "support/threads/Storm.h"
#include "support/threads/Watchdog.h"

using namespace tntest;

// Takes the two steps of a request apart, to put other threads' steps in between.
struct CircleMemBlockPoolPeer {
    using Pool = CTnRobotCircleMemBlockPool;
    using Buffer = Pool::Buffer;

    static Pool& Of(ITnRobotMemoryBlockPool* pPool) { return static_cast<Pool&>(*pPool); }
    static Buffer& Choose(ITnRobotMemoryBlockPool* pPool, unsigned int nSize) { return Of(pPool)._ChooseBuffer(nSize); }
    static int Cut(ITnRobotMemoryBlockPool* pPool, Buffer& buffer, unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
        return Of(pPool)._CutBlock(buffer, nSize, ppBlock);
    }
};

namespace {

using Peer = CircleMemBlockPoolPeer;
using Pool = TnRobotPtr<ITnRobotMemoryBlockPool>;
using Block = TnRobotPtr<ITnRobotMemoryBlock>;

constexpr unsigned int kMiB = 1024 * 1024;
constexpr unsigned int kBuffer = 25165824;

Pool MakeCirclePool() {
    Pool pool;
    EXPECT_EQ(TnCreateRobotCircleMemoryBlockPool(pool.put()), 1);
    return pool;
}

Block Query(const Pool& pool, unsigned int nSize) {
    Block block;
    EXPECT_EQ(pool->QueryMemBuff(nSize, block.put()), 1);
    EXPECT_TRUE(block);
    return block;
}

unsigned char* Start(const Block& block) {
    unsigned int nSize = 0;
    return block->QueryMemory(nSize);
}

unsigned int Size(const Block& block) {
    unsigned int nSize = 0;
    block->QueryMemory(nSize);
    return nSize;
}

unsigned char* End(const Block& block) {
    return Start(block) + Size(block);
}

}  // namespace

TEST(CircleMemBlockPool, ServesUpToAWholeBuffer) {
    const Pool pool = MakeCirclePool();
    const Block whole = Query(pool, kBuffer);
    EXPECT_EQ(Size(whole), kBuffer);
    Start(whole)[0] = 1;
    Start(whole)[kBuffer - 1] = 2;
}

TEST(CircleMemBlockPool, RefusesMoreThanABuffer) {
    const Pool pool = MakeCirclePool();
    const Block block = Query(pool, 16);
    for (const unsigned int nSize : {kBuffer + 1, 0x80000000U, 0xFFFFFFFFU}) {
        ITnRobotMemoryBlock* pUntouched = block.get();
        EXPECT_EQ(pool->QueryMemBuff(nSize, &pUntouched), 0);
        EXPECT_EQ(pUntouched, block.get());
    }
}

TEST(CircleMemBlockPool, RefusesANullPointer) {
    const Pool pool = MakeCirclePool();
    EXPECT_EQ(pool->QueryMemBuff(16, nullptr), 0);
}

TEST(CircleMemBlockPool, ServesEmptyBlocks) {
    const Pool pool = MakeCirclePool();
    const Block first = Query(pool, 0);
    const Block second = Query(pool, 5);
    const Block third = Query(pool, 0);
    EXPECT_EQ(Size(first), 0U);
    EXPECT_EQ(Start(first), Start(second));
    EXPECT_EQ(Start(third), End(second));
}

TEST(CircleMemBlockPool, CutsBlocksOneBehindTheOtherWithoutAlignment) {
    const Pool pool = MakeCirclePool();
    std::vector<Block> blocks;
    for (const unsigned int nSize : {3U, 5U, 1U, 4096U, 7U, 65536U, 1U}) {
        blocks.push_back(Query(pool, nSize));
        EXPECT_EQ(Size(blocks.back()), nSize);
        std::memset(Start(blocks.back()), static_cast<int>(nSize % 251), nSize);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const unsigned char by = static_cast<unsigned char>(Size(blocks[i]) % 251);
        EXPECT_TRUE(std::all_of(Start(blocks[i]), End(blocks[i]), [&](unsigned char b) { return b == by; }));
        if (i > 0) {
            EXPECT_EQ(Start(blocks[i]), End(blocks[i - 1]));
        }
    }
}

TEST(CircleMemBlockPool, ABlockGoesBackWithItsHoldersLastReference) {
    const Pool pool = MakeCirclePool();
    Block block = Query(pool, 100);
    block->AddRef();
    EXPECT_EQ(block->Release(), 2);
    EXPECT_EQ(block.detach()->Release(), 1);
}

TEST(CircleMemBlockPool, AFullBufferInUseIsSpent) {
    const Pool pool = MakeCirclePool();
    const Block first = Query(pool, 8 * kMiB);
    const Block second = Query(pool, 8 * kMiB);
    const Block third = Query(pool, 8 * kMiB);
    EXPECT_EQ(Start(second), End(first));
    EXPECT_EQ(Start(third), End(second));
    const Block fourth = Query(pool, 8 * kMiB);
    EXPECT_TRUE(End(fourth) <= Start(first) || Start(fourth) >= End(third));
    const Block fifth = Query(pool, 8 * kMiB);
    EXPECT_EQ(Start(fifth), End(fourth));
}

TEST(CircleMemBlockPool, AReadyBufferIsNotRewoundBetweenRequests) {
    const Pool pool = MakeCirclePool();
    Block block = Query(pool, 1000);
    const unsigned char* pEnd = End(block);
    block.reset();
    EXPECT_EQ(Start(Query(pool, 1000)), pEnd);
}

TEST(CircleMemBlockPool, AReadyBufferTooFullButUnusedStartsOver) {
    const Pool pool = MakeCirclePool();
    Block block = Query(pool, 8 * kMiB);
    const unsigned char* pStart = Start(block);
    block.reset();
    EXPECT_EQ(Start(Query(pool, 17 * kMiB)), pStart);
    EXPECT_EQ(Start(Query(pool, kBuffer)), pStart);
}

TEST(CircleMemBlockPool, ASpentBufferBecomesTheLastReadyOneWithItsLastBlock) {
    const Pool pool = MakeCirclePool();
    std::array<Block, 3> blocks;
    for (Block& block : blocks) {
        block = Query(pool, 8 * kMiB);
    }
    unsigned char* const pStart = Start(blocks[0]);
    const Block second = Query(pool, kBuffer);
    blocks[1].reset();
    blocks[0].reset();
    const Block third = Query(pool, kBuffer);
    blocks[2].reset();
    const Block fourth = Query(pool, kBuffer);
    EXPECT_NE(Start(fourth), pStart) << "the fourth buffer comes before the one just returned";
    EXPECT_EQ(Start(Query(pool, kBuffer)), pStart);
}

TEST(CircleMemBlockPool, ASpentBufferStaysSpentWhileABlockIsHeld) {
    const Pool pool = MakeCirclePool();
    Block first = Query(pool, 8 * kMiB);
    const Block held = Query(pool, 8 * kMiB);
    std::vector<Block> others = {Query(pool, kBuffer), Query(pool, kBuffer), Query(pool, kBuffer)};
    first.reset();
    others.push_back(Query(pool, kBuffer));  // a fifth buffer
    for (const Block& other : others) {
        EXPECT_TRUE(End(other) <= Start(held) - 8 * kMiB || Start(other) >= Start(held) + 16 * kMiB);
    }
}

TEST(CircleMemBlockPool, GrowsByBuffersWithoutLimit) {
    const Pool pool = MakeCirclePool();
    std::vector<Block> blocks;
    for (int i = 0; i < 9; ++i) {
        blocks.push_back(Query(pool, kBuffer));
    }
    std::sort(blocks.begin(), blocks.end(), [](const Block& a, const Block& b) { return Start(a) < Start(b); });
    for (std::size_t i = 1; i < blocks.size(); ++i) {
        EXPECT_LE(End(blocks[i - 1]), Start(blocks[i]));
    }
}

TEST(CircleMemBlockPool, ReusesBlockObjectsInTheOrderOfTheirReturn) {
    const Pool pool = MakeCirclePool();
    Block a = Query(pool, 10);
    Block b = Query(pool, 20);
    Block c = Query(pool, 30);
    ITnRobotMemoryBlock* const pA = a.get();
    ITnRobotMemoryBlock* const pB = b.get();
    unsigned char* const pEnd = End(c);
    b.reset();
    a.reset();
    const Block d = Query(pool, 40);
    const Block e = Query(pool, 50);
    EXPECT_EQ(d.get(), pB);
    EXPECT_EQ(e.get(), pA);
    EXPECT_EQ(Start(d), pEnd) << "only the object is reused, its memory is new";
    EXPECT_EQ(Size(d), 40U);
    EXPECT_EQ(Start(e), End(d));
}

TEST(CircleMemBlockPool, FreeUnuseMemoryChangesNothing) {
    const Pool pool = MakeCirclePool();
    const Block held = Query(pool, 1000);
    const unsigned char* pEnd = nullptr;
    {
        const Block block = Query(pool, 1000);
        pEnd = End(block);
    }
    std::memset(Start(held), 7, 1000);
    pool->FreeUnuseMemory();
    EXPECT_TRUE(std::all_of(Start(held), End(held), [](unsigned char by) { return by == 7; }));
    EXPECT_EQ(Start(Query(pool, 1)), pEnd);
}

TEST(CircleMemBlockPool, BlocksHeldLongerThanThePoolAreFreedByTheirLastRelease) {
    Pool pool = MakeCirclePool();
    Block held = Query(pool, 1000);
    Block shared = Query(pool, 1000);
    const Block sharedAgain = shared;
    Block spent = Query(pool, kBuffer);
    Query(pool, 1000).reset();
    pool.reset();
    EXPECT_EQ(held.detach()->Release(), 0);
    EXPECT_EQ(shared.detach()->Release(), 1);
    EXPECT_EQ(spent.detach()->Release(), 0);
}

TEST(CircleMemBlockPool, BothBasesLeadToTheSameObject) {
    const Pool pool = MakeCirclePool();
    auto* pParent = dynamic_cast<ITnRobotMemoryBlockParent*>(pool.get());
    ASSERT_NE(pParent, nullptr);
    EXPECT_EQ(dynamic_cast<ITnRobotMemoryBlockPool*>(pParent), pool.get());
}

TEST(CircleMemBlockPool, TakesBackOnlyItsOwnBlocksInUse) {
    const Pool pool = MakeCirclePool();
    const Pool otherPool = MakeCirclePool();
    auto* pParent = dynamic_cast<ITnRobotMemoryBlockParent*>(pool.get());
    pParent->RecoveryMemBuff(nullptr);

    unsigned char bytes[4] = {};
    Block custom;
    ASSERT_EQ(TnCreateRobotCustomMemBlock(nullptr, bytes, 4, custom.put()), 1);
    pParent->RecoveryMemBuff(custom.get());

    Pool generalPool;
    ASSERT_EQ(TnCreateRobotMemoryBlockPool(generalPool.put()), 1);
    const Block general = Query(generalPool, 4);
    pParent->RecoveryMemBuff(general.get());

    const Block other = Query(otherPool, 4);
    pParent->RecoveryMemBuff(other.get());

    Block twice = Query(pool, 4);
    ITnRobotMemoryBlock* const pTwice = twice.get();
    twice.reset();
    pParent->RecoveryMemBuff(pTwice);
    const Block first = Query(pool, 4);
    const Block second = Query(pool, 4);
    EXPECT_EQ(first.get(), pTwice);
    EXPECT_NE(second.get(), pTwice) << "returned twice, but kept once";
}

// The documented answer: callers set their pointer to null before and test it afterwards.
TEST(CircleMemBlockPool, ARequestThatLosesItsBufferToAnotherAnswersOneWithoutABlock) {
    const Pool pool = MakeCirclePool();
    const Block full = Query(pool, 20 * kMiB);
    Peer::Buffer& chosen = Peer::Choose(pool.get(), 4 * kMiB);
    const Block other = Query(pool, 1 * kMiB);
    EXPECT_EQ(Start(other), End(full));
    ITnRobotMemoryBlock* pUntouched = full.get();
    EXPECT_EQ(Peer::Cut(pool.get(), chosen, 4 * kMiB, &pUntouched), 1);
    EXPECT_EQ(pUntouched, full.get());
    EXPECT_EQ(Start(Query(pool, 3 * kMiB)), End(other)) << "nothing was cut";
}

TEST(CircleMemBlockPool, ARequestUsesTheBufferThatItHasChosen) {
    const Pool pool = MakeCirclePool();
    const Block first = Query(pool, 20 * kMiB);
    Peer::Buffer& chosen = Peer::Choose(pool.get(), 1 * kMiB);
    const Block elsewhere = Query(pool, 8 * kMiB);  // makes the chosen one spent
    Block late;
    EXPECT_EQ(Peer::Cut(pool.get(), chosen, 1 * kMiB, late.put()), 1);
    ASSERT_TRUE(late);
    EXPECT_EQ(Start(late), End(first)) << "behind the block that is still in use";
}

TEST(CircleMemBlockPool, ABufferRewoundAfterItWasChosenIsCutFromItsStart) {
    const Pool pool = MakeCirclePool();
    Block first = Query(pool, 20 * kMiB);
    unsigned char* const pStart = Start(first);
    Peer::Buffer& chosen = Peer::Choose(pool.get(), 4 * kMiB);
    std::vector<Block> others = {Query(pool, kBuffer)};  // spent
    first.reset();                                       // and ready again, as the last one
    Block late;
    EXPECT_EQ(Peer::Cut(pool.get(), chosen, 4 * kMiB, late.put()), 1);
    ASSERT_TRUE(late);
    EXPECT_EQ(Start(late), pStart);
    others.push_back(Query(pool, kBuffer));
    others.push_back(Query(pool, kBuffer));
    EXPECT_EQ(Start(Query(pool, 20 * kMiB)), End(late)) << "the fourth in turn, behind the late block";
}

TEST(CircleMemBlockPool, ALateBlockKeepsASpentBufferSpent) {
    const Pool pool = MakeCirclePool();
    Block first = Query(pool, 20 * kMiB);
    unsigned char* const pStart = Start(first);
    Peer::Buffer& chosen = Peer::Choose(pool.get(), 1 * kMiB);
    std::vector<Block> others = {Query(pool, kBuffer)};
    Block late;
    EXPECT_EQ(Peer::Cut(pool.get(), chosen, 1 * kMiB, late.put()), 1);
    first.reset();
    for (int i = 0; i < 3; ++i) {
        others.push_back(Query(pool, kBuffer));
        EXPECT_NE(Start(others.back()), pStart);
    }
    late.reset();
    EXPECT_EQ(Start(Query(pool, kBuffer)), pStart);
}

namespace {

// Whole pages of the block that take up memory.
std::size_t ResidentPages(const Block& block) {
    const auto nPage = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const auto nFirst = (reinterpret_cast<std::uintptr_t>(Start(block)) + nPage - 1) / nPage * nPage;
    std::vector<unsigned char> pages(Size(block) / nPage - 1);
    if (mincore(reinterpret_cast<void*>(nFirst), pages.size() * nPage, pages.data()) != 0) {
        return pages.size();
    }
    return static_cast<std::size_t>(
        std::count_if(pages.begin(), pages.end(), [](unsigned char by) { return (by & 1U) != 0; }));
}

std::size_t ResidentPagesOfANewPool() {
    const Pool pool = MakeCirclePool();
    std::vector<Block> blocks;
    std::size_t nPages = 0;
    for (int i = 0; i < 4; ++i) {
        blocks.push_back(Query(pool, kBuffer));
        nPages += ResidentPages(blocks.back());
    }
    return nPages;
}

}  // namespace

// In a process of its own, whose allocator has no used memory to give.
TEST(CircleMemBlockPool, ReservesItsBuffersWithoutTouchingThem) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(ResidentPagesOfANewPool() <= 100 ? 0 : 1), testing::ExitedWithCode(0), "");
}

namespace {

// One thread's view of the pool: blocks that it fills with a pattern of its own when it gets
// them, and checks when it, or another thread, gives them back.
class Holder {
public:
    Holder(const Pool& pool, unsigned int nSeed, std::atomic<ITnRobotMemoryBlock*>& exchange)
        : m_pool(pool), m_random(nSeed), m_exchange(exchange), m_held(12) {}

    void Step() {
        Block& slot = m_held[m_random() % m_held.size()];
        CheckAndReset(slot);
        const unsigned int nSize = RandomSize();
        // A lost race leaves the slot empty.
        if (m_pool->QueryMemBuff(nSize, slot.put()) != 1) {
            ++m_nErrors;
        }
        if (!slot) {
            return;
        }
        ++m_nBlocks;
        m_nErrors += Size(slot) == nSize ? 0 : 1;
        Fill(slot);
        if (m_random() % 8 == 0) {
            Pass(slot);
        }
    }

    void Finish() {
        for (Block& slot : m_held) {
            CheckAndReset(slot);
        }
    }

    int Errors() const { return m_nErrors; }
    long long Blocks() const { return m_nBlocks; }

    // The pattern follows from the first bytes, so that any thread can check it.
    static bool IsIntact(const Block& block) {
        const unsigned char* p = Start(block);
        const unsigned int nSize = Size(block);
        for (unsigned int i = 1; i < nSize; ++i) {
            if (p[i] != static_cast<unsigned char>(p[0] + i)) {
                return false;
            }
        }
        return true;
    }

private:
    unsigned int RandomSize() {
        const unsigned int nKind = static_cast<unsigned int>(m_random() % 1000);
        if (nKind == 0) {
            return static_cast<unsigned int>(m_random() % (12 * kMiB) + 1);
        }
        return static_cast<unsigned int>(m_random() % (nKind < 50 ? 512 * 1024 : 16 * 1024) + 1);
    }

    void Fill(const Block& block) {
        const auto byFirst = static_cast<unsigned char>(m_random());
        unsigned char* p = Start(block);
        for (unsigned int i = 0; i < Size(block); ++i) {
            p[i] = static_cast<unsigned char>(byFirst + i);
        }
    }

    // Swaps the block for one that another thread has left there.
    void Pass(Block& slot) { slot = tn::Adopt(m_exchange.exchange(slot.detach())); }

    void CheckAndReset(Block& slot) {
        if (slot && !IsIntact(slot)) {
            ++m_nErrors;
        }
        slot.reset();
    }

    const Pool& m_pool;
    std::mt19937 m_random;
    std::atomic<ITnRobotMemoryBlock*>& m_exchange;
    std::vector<Block> m_held;
    int m_nErrors = 0;
    long long m_nBlocks = 0;
};

}  // namespace

TEST(CircleMemBlockPool, BlocksOfFourThreadsNeverOverlap) {
    const Pool pool = MakeCirclePool();
    std::atomic<ITnRobotMemoryBlock*> exchange(nullptr);
    std::vector<Holder> holders;
    for (unsigned int i = 0; i < 4; ++i) {
        holders.emplace_back(pool, ScheduleSeed() + i + 1, exchange);
    }
    constexpr int kStormMs = 10000;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(StormLength(kStormMs));
    std::vector<std::thread> threads;
    for (Holder& holder : holders) {
        threads.emplace_back([&holder, end] {
            while (std::chrono::steady_clock::now() < end || holder.Blocks() == 0) {
                holder.Step();
            }
            holder.Finish();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const Holder& holder : holders) {
        EXPECT_EQ(holder.Errors(), 0);
        EXPECT_GT(holder.Blocks(), 0);
    }
    const Block last = tn::Adopt(exchange.exchange(nullptr));
    EXPECT_TRUE(!last || Holder::IsIntact(last));
}

// Blocks of ready and of spent buffers, the last one of a spent buffer among them, come back
// while the pool goes.
TEST(CircleMemBlockPool, BlocksMayBeReleasedWhileThePoolIsBeingDestroyed) {
    for (int nRun = 0; nRun < StormLength(300); ++nRun) {
        Pool pool = MakeCirclePool();
        std::array<std::vector<Block>, 2> held;
        for (const unsigned int nSize : {13 * kMiB, 1000U, 20 * kMiB, 13 * kMiB, 1000U, 1000U}) {
            held[0].push_back(Query(pool, nSize));
            held[1].push_back(Query(pool, 1000));
        }
        std::atomic<int> nReady(0);
        const auto meet = [&nReady] {
            ++nReady;
            while (nReady.load() < 3) {
                std::this_thread::yield();
            }
        };
        std::vector<std::thread> threads;
        for (std::vector<Block>& blocks : held) {
            threads.emplace_back([&blocks, &meet] {
                meet();
                blocks.clear();
            });
        }
        meet();
        pool.reset();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
}

TEST(CircleMemBlockPool, ARequestMayRunWhileTheLastBlockOfASpentBufferComesBack) {
    const Pool pool = MakeCirclePool();
    for (int nRun = 0; nRun < StormLength(2000); ++nRun) {
        Block first = Query(pool, 20 * kMiB);
        const Block second = Query(pool, 20 * kMiB);  // makes the buffer of the first spent
        std::atomic<int> nReady(0);
        const auto meet = [&nReady] {
            ++nReady;
            while (nReady.load() < 2) {
                std::this_thread::yield();
            }
        };
        std::thread releasing([&] {
            meet();
            first.reset();
        });
        meet();
        const Block third = Query(pool, 20 * kMiB);
        const Block fourth = Query(pool, 20 * kMiB);
        releasing.join();
        const std::array<unsigned char*, 3> starts = {Start(second), Start(third), Start(fourth)};
        EXPECT_NE(starts[0], starts[1]);
        EXPECT_NE(starts[1], starts[2]);
        EXPECT_NE(starts[0], starts[2]);
    }
}

namespace {

// The pool as its blocks see it: taking back by its own hand is open to everybody.
void TakeBack(const Pool& pool, const Block& block) {
    auto* pParent = dynamic_cast<ITnRobotMemoryBlockParent*>(pool.get());
    ASSERT_NE(pParent, nullptr);
    pParent->RecoveryMemBuff(block.get());
}

}  // namespace

TEST(CircleMemBlockPool, ItsEndLeavesABlockTakenBackToItsHolders) {
    const Watchdog watchdog(60);
    for (const int nHolders : {1, 2, 3}) {
        for (const bool bSpent : {false, true}) {
            Pool pool = MakeCirclePool();
            Block block = Query(pool, 13 * kMiB);
            const Block neighbour = Query(pool, 100);
            const Block nextBuffer = bSpent ? Query(pool, 20 * kMiB) : Block();
            for (int n = 1; n < nHolders; ++n) {
                block->AddRef();
            }
            TakeBack(pool, block);
            pool.reset();
            for (int nLeft = nHolders - 1; nLeft > 0; --nLeft) {
                EXPECT_EQ(block->Release(), nLeft) << nHolders << " holders";
            }
            EXPECT_EQ(block.detach()->Release(), 0) << nHolders << " holders";
        }
    }
}

TEST(CircleMemBlockPool, ABlockTakenBackStaysUsableWhenItsHoldersLetGo) {
    const Pool pool = MakeCirclePool();
    Block block = Query(pool, 100);
    const ITnRobotMemoryBlock* const pBlock = block.get();
    Block second = block;
    TakeBack(pool, block);
    block.reset();
    second.reset();
    EXPECT_EQ(Query(pool, 50).get(), pBlock);
}

// The last holder lets go at the very moment when the pool looks at what it has taken back.
TEST(CircleMemBlockPool, ABlockTakenBackMayBeReleasedWhileThePoolIsBeingDestroyed) {
    const Watchdog watchdog(120);
    for (int nRun = 0; nRun < StormLength(300); ++nRun) {
        Pool pool = MakeCirclePool();
        std::vector<Block> blocks;
        for (int n = 0; n < 8; ++n) {
            blocks.push_back(Query(pool, 100));
        }
        for (std::size_t n = 0; n < blocks.size(); n += 2) {
            TakeBack(pool, blocks[n]);
        }
        StartGate gate(2);
        std::thread releasing([&] {
            gate.ArriveAndWait();
            for (Block& block : blocks) {
                block.reset();
            }
        });
        gate.ArriveAndWait();
        pool.reset();
        releasing.join();
    }
}

// It is a spare one meanwhile, because it was taken back while it was held. Were it handed out, two last
// releases could be under way at once, and the pool's end would wait for one of them only.
TEST(CircleMemBlockPool, ABlockThatIsJustReturnedIsNotHandedOut) {
    Pool pool = MakeCirclePool();
    Block block = Query(pool, 100);
    auto* const pReturned = dynamic_cast<CTnRobotMemoryBlock*>(block.get());
    TakeBack(pool, block);
    // The first half of a last Release: the count has fallen, RecoveryMemBuff is still to be called.
    pReturned->SetParent(nullptr);
    EXPECT_EQ(block.detach()->Release(), 1);
    pReturned->SetParent(&Peer::Of(pool.get()));
    Block others[] = {Query(pool, 100), Query(pool, 100), Query(pool, 100)};
    for (const Block& other : others) {
        EXPECT_NE(other.get(), pReturned);
    }
    Peer::Of(pool.get()).RecoveryMemBuff(pReturned);
    EXPECT_EQ(Query(pool, 100).get(), pReturned);
    for (Block& other : others) {
        EXPECT_EQ(other.detach()->Release(), 1);
    }
    EXPECT_EQ(pool.detach()->Release(), 0);
}
