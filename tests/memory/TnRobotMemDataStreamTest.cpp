#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TnRobotKernel/memory.h"
#include "support/objects/Memory.h"

using namespace tntest;

namespace {

constexpr unsigned int kBlockSize = 1048576;

using Bytes = std::vector<unsigned char>;
using HeldStream = TnRobotPtr<ITnRobotMemDataStream>;

HeldStream MakeStream(ITnRobotMemoryBlockPool& pool) {
    ITnRobotMemDataStream* pStream = nullptr;
    EXPECT_EQ(TnCreateRobotMemDataStream(&pool, &pStream), 1);
    return tn::Adopt(pStream);
}

Bytes SomeBytes(std::size_t nCount, unsigned int nSeed = 1) {
    Bytes bytes(nCount);
    for (std::size_t n = 0; n < nCount; ++n) {
        bytes[n] = static_cast<unsigned char>(n * 7 + (n >> 9) + nSeed);
    }
    return bytes;
}

int Write(ITnRobotMemDataStream& stream, const Bytes& bytes) {
    return stream.WriteData(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

/// The pieces from here to the end of the read pass.
std::vector<Bytes> ReadPieces(ITnRobotMemDataStream& stream) {
    constexpr std::size_t kMostPieces = 100;
    std::vector<Bytes> pieces;
    unsigned int nSize = 0;
    while (const unsigned char* const pData = stream.ReadData(nSize)) {
        pieces.emplace_back(pData, pData + nSize);
        if (pieces.size() > kMostPieces) {
            ADD_FAILURE() << "the read pass does not end";
            break;
        }
    }
    EXPECT_EQ(nSize, 0U);
    return pieces;
}

std::vector<std::size_t> SizesOf(const std::vector<Bytes>& pieces) {
    std::vector<std::size_t> sizes;
    for (const Bytes& piece : pieces) {
        sizes.push_back(piece.size());
    }
    return sizes;
}

Bytes Join(const std::vector<Bytes>& pieces) {
    Bytes all;
    for (const Bytes& piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

std::vector<Bytes> ReadAll(ITnRobotMemDataStream& stream) {
    EXPECT_EQ(stream.BeginReadData(), 0);
    std::vector<Bytes> pieces = ReadPieces(stream);
    stream.EndReadData();
    return pieces;
}

bool ReadsNothing(ITnRobotMemDataStream& stream) {
    unsigned int nSize = 99;
    return stream.ReadData(nSize) == nullptr && nSize == 0;
}

/// A block whose references and answers a test can see and steer.
class CTnRiggedBlock : public ITnRobotMemoryBlock {
public:
    explicit CTnRiggedBlock(unsigned int nSize, int* pAlive) : m_bytes(nSize, 0xEE), m_nSize(nSize), m_pAlive(pAlive) {
        ++*m_pAlive;
    }
    ~CTnRiggedBlock() override { --*m_pAlive; }

    unsigned char* QueryMemory(unsigned int& nSize) override {
        nSize = m_nSize;
        return m_bHasMemory ? m_bytes.data() : nullptr;
    }

    void LoseMemory() { m_bHasMemory = false; }
    void Claim(unsigned int nSize) {
        m_bytes.resize(std::max<std::size_t>(m_bytes.size(), nSize), 0xEE);
        m_nSize = nSize;
    }
    const Bytes& Content() const { return m_bytes; }

private:
    Bytes m_bytes;
    unsigned int m_nSize;
    int* m_pAlive;
    bool m_bHasMemory = true;
};

/// A pool that answers what the test tells it to.
class CTnRiggedPool : public ITnRobotMemoryBlockPool {
public:
    using Answer = std::function<int(unsigned int nSize, ITnRobotMemoryBlock** ppBlock)>;

    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) override {
        m_asked.push_back(nSize);
        return m_answer(nSize, ppBlock);
    }
    void FreeUnuseMemory() override {}

    void AnswerBlocksOf(unsigned int nBlockSize) {
        m_answer = [this, nBlockSize](unsigned int, ITnRobotMemoryBlock** ppBlock) {
            *ppBlock = m_pLast = new CTnRiggedBlock(nBlockSize, &m_nAlive);
            return 1;
        };
    }

    int Count() const { return m_nRefCount.load(); }

    Answer m_answer = [](unsigned int, ITnRobotMemoryBlock**) { return 0; };
    std::vector<unsigned int> m_asked;
    CTnRiggedBlock* m_pLast = nullptr;
    int m_nAlive = 0;
};

class RiggedStream : public ::testing::Test {
protected:
    RiggedStream() : m_pool(tn::MakeObject<CTnRiggedPool>()), m_stream(MakeStream(*m_pool)) {}

    TnRobotPtr<CTnRiggedPool> m_pool;
    HeldStream m_stream;
};

}  // namespace

TEST(MemDataStream, StartsEmpty) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    EXPECT_EQ(stream->GetTotleLength(), 0U);
    EXPECT_TRUE(ReadsNothing(*stream));
    EXPECT_TRUE(ReadAll(*stream).empty());
}

TEST(MemDataStream, HoldsItsPoolForItsWholeLife) {
    TnRobotPtr<CTnRiggedPool> pool(new CTnRiggedPool, tn::kAdopt);
    HeldStream stream = MakeStream(*pool);
    EXPECT_EQ(pool->Count(), 2);
    stream->Clear();
    EXPECT_EQ(pool->Count(), 2);
    EXPECT_EQ(stream.detach()->Release(), 0);
    EXPECT_EQ(pool->Count(), 1);
}

TEST(MemDataStream, OutlivesTheCallersReferenceToThePool) {
    HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    EXPECT_EQ(pool.detach()->Release(), 1);
    const Bytes bytes = SomeBytes(10);
    EXPECT_EQ(Write(*stream, bytes), 0);
    EXPECT_EQ(Join(ReadAll(*stream)), bytes);
}

TEST(MemDataStream, HandsItsContentBackInBlocks) {
    const struct {
        std::vector<unsigned int> writes;
        std::vector<std::size_t> pieces;
    } cases[] = {
        {{}, {}},
        {{1}, {1}},
        {{3, 4, 5}, {12}},
        {{kBlockSize - 1}, {kBlockSize - 1}},
        {{kBlockSize}, {kBlockSize}},
        {{kBlockSize - 1, 1}, {kBlockSize}},
        {{kBlockSize + 1}, {kBlockSize, 1}},
        {{kBlockSize, 1}, {kBlockSize, 1}},
        {{kBlockSize - 3, 7}, {kBlockSize, 4}},
        {{2 * kBlockSize}, {kBlockSize, kBlockSize}},
        {{5, 3 * kBlockSize + 2}, {kBlockSize, kBlockSize, kBlockSize, 7}},
    };
    const HeldPool pool = MakePool();
    for (const auto& testCase : cases) {
        const HeldStream stream = MakeStream(*pool);
        Bytes written;
        for (const unsigned int nLength : testCase.writes) {
            const Bytes bytes = SomeBytes(nLength, static_cast<unsigned int>(written.size()) + 1);
            EXPECT_EQ(Write(*stream, bytes), 0);
            written.insert(written.end(), bytes.begin(), bytes.end());
            EXPECT_EQ(stream->GetTotleLength(), written.size());
        }
        for (int nPass = 0; nPass < 2; ++nPass) {
            const std::vector<Bytes> pieces = ReadAll(*stream);
            EXPECT_EQ(SizesOf(pieces), testCase.pieces);
            EXPECT_TRUE(Join(pieces) == written);
        }
    }
}

TEST(MemDataStream, WritesInSmallStepsAcrossBlocks) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    const Bytes bytes = SomeBytes(2 * kBlockSize + 77);
    for (std::size_t n = 0; n < bytes.size(); n += 4099) {
        const std::size_t nStep = std::min<std::size_t>(4099, bytes.size() - n);
        EXPECT_EQ(stream->WriteData(bytes.data() + n, static_cast<unsigned int>(nStep)), 0);
    }
    EXPECT_EQ(stream->GetTotleLength(), bytes.size());
    EXPECT_TRUE(Join(ReadAll(*stream)) == bytes);
}

TEST(MemDataStream, WhatIsWrittenNeverMoves) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    Write(*stream, SomeBytes(10));
    unsigned int nSize = 0;
    stream->BeginReadData();
    const unsigned char* const pFirst = stream->ReadData(nSize);
    stream->EndReadData();
    Write(*stream, SomeBytes(3 * kBlockSize));
    stream->BeginReadData();
    EXPECT_EQ(stream->ReadData(nSize), pFirst);
    EXPECT_EQ(nSize, kBlockSize);
    stream->EndReadData();
}

TEST(MemDataStream, OutsideAReadPassNothingIsRead) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    Write(*stream, SomeBytes(kBlockSize + 5));
    EXPECT_TRUE(ReadsNothing(*stream));
    ReadAll(*stream);
    EXPECT_TRUE(ReadsNothing(*stream));
    stream->EndReadData();
    EXPECT_TRUE(ReadsNothing(*stream));
}

// The tail is still unread when the pass ends early, and must not be handed out afterwards.
TEST(MemDataStream, AfterAnEarlyEndNothingIsRead) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    const Bytes bytes = SomeBytes(2 * kBlockSize + 5);
    Write(*stream, bytes);
    for (int nRead = 0; nRead < 3; ++nRead) {
        stream->BeginReadData();
        unsigned int nSize = 0;
        for (int n = 0; n < nRead; ++n) {
            EXPECT_NE(stream->ReadData(nSize), nullptr);
        }
        stream->EndReadData();
        EXPECT_TRUE(ReadsNothing(*stream)) << nRead;
    }
    EXPECT_TRUE(Join(ReadAll(*stream)) == bytes);
}

TEST(MemDataStream, AnExhaustedPassStaysExhausted) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    Write(*stream, SomeBytes(kBlockSize));
    stream->BeginReadData();
    EXPECT_EQ(ReadPieces(*stream).size(), 1U);
    EXPECT_TRUE(ReadsNothing(*stream));
    EXPECT_TRUE(ReadsNothing(*stream));
    stream->EndReadData();
}

TEST(MemDataStream, BeginningAgainStartsAtTheFirstByte) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    const Bytes bytes = SomeBytes(kBlockSize + 5);
    Write(*stream, bytes);
    unsigned int nSize = 0;
    stream->BeginReadData();
    EXPECT_NE(stream->ReadData(nSize), nullptr);
    EXPECT_TRUE(Join(ReadAll(*stream)) == bytes);
}

TEST(MemDataStream, ClearDropsAllContent) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    Write(*stream, SomeBytes(kBlockSize + 5));
    stream->Clear();
    EXPECT_EQ(stream->GetTotleLength(), 0U);
    EXPECT_TRUE(ReadsNothing(*stream));
    EXPECT_TRUE(ReadAll(*stream).empty());
    stream->Clear();
    const Bytes bytes = SomeBytes(9, 5);
    Write(*stream, bytes);
    EXPECT_EQ(stream->GetTotleLength(), 9U);
    EXPECT_EQ(Join(ReadAll(*stream)), bytes);
}

TEST(MemDataStream, APieceOutlivesClear) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    const Bytes bytes = SomeBytes(kBlockSize + 5);
    Write(*stream, bytes);
    stream->BeginReadData();
    unsigned int nSize = 0;
    const unsigned char* const pPiece = stream->ReadData(nSize);
    stream->Clear();
    EXPECT_EQ(std::memcmp(pPiece, bytes.data(), nSize), 0);
    EXPECT_TRUE(ReadsNothing(*stream));
    stream->EndReadData();
}

// What a pass returns was fixed when it began, but the tail is handed out as long as it is now.
TEST(MemDataStream, ATailThatGrowsDuringThePassIsReadOnce) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    Write(*stream, SomeBytes(10));
    stream->BeginReadData();
    Write(*stream, SomeBytes(5));
    EXPECT_EQ(SizesOf(ReadPieces(*stream)), (std::vector<std::size_t>{15}));
    stream->EndReadData();
}

TEST(MemDataStream, ABlockFilledDuringThePassIsSeenByIt) {
    const HeldPool pool = MakePool();
    const HeldStream stream = MakeStream(*pool);
    Write(*stream, SomeBytes(kBlockSize + 1));
    stream->BeginReadData();
    unsigned int nSize = 0;
    EXPECT_NE(stream->ReadData(nSize), nullptr);
    Write(*stream, SomeBytes(kBlockSize));
    EXPECT_EQ(SizesOf(ReadPieces(*stream)), (std::vector<std::size_t>{kBlockSize}));
    stream->EndReadData();
}

TEST_F(RiggedStream, AsksForOneMebibyteAtATime) {
    m_pool->AnswerBlocksOf(kBlockSize);
    EXPECT_EQ(m_stream->WriteData(nullptr, 0), 0);
    EXPECT_TRUE(m_pool->m_asked.empty());
    EXPECT_EQ(Write(*m_stream, SomeBytes(kBlockSize)), 0);
    EXPECT_EQ(m_pool->m_asked.size(), 1U);
    EXPECT_EQ(Write(*m_stream, SomeBytes(1)), 0);
    EXPECT_EQ(m_pool->m_asked, (std::vector<unsigned int>{kBlockSize, kBlockSize}));
}

TEST_F(RiggedStream, GivesEveryBlockBack) {
    m_pool->AnswerBlocksOf(kBlockSize);
    Write(*m_stream, SomeBytes(2 * kBlockSize + 5));
    EXPECT_EQ(m_pool->m_nAlive, 3);
    ReadAll(*m_stream);
    m_stream->Clear();
    EXPECT_EQ(m_pool->m_nAlive, 0);
    Write(*m_stream, SomeBytes(kBlockSize + 5));
    m_stream->BeginReadData();
    unsigned int nSize = 0;
    m_stream->ReadData(nSize);
    m_stream.reset();
    EXPECT_EQ(m_pool->m_nAlive, 0);
}

TEST_F(RiggedStream, TheReadBlockIsHeldUntilThePassGoesOn) {
    m_pool->AnswerBlocksOf(kBlockSize);
    unsigned int nSize = 0;
    const struct {
        const char* lpszWhat;
        std::function<void()> goOn;
    } cases[] = {
        {"the next piece", [&] { m_stream->ReadData(nSize); }},
        {"a new pass", [&] { m_stream->BeginReadData(); }},
        {"the end", [&] { m_stream->EndReadData(); }},
    };
    for (const auto& testCase : cases) {
        const Bytes bytes = SomeBytes(kBlockSize);
        Write(*m_stream, bytes);
        m_stream->BeginReadData();
        const unsigned char* const pPiece = m_stream->ReadData(nSize);
        m_stream->Clear();
        EXPECT_EQ(m_pool->m_nAlive, 1) << testCase.lpszWhat;
        EXPECT_EQ(std::memcmp(pPiece, bytes.data(), bytes.size()), 0);
        Write(*m_stream, bytes);
        testCase.goOn();
        m_stream->EndReadData();
        m_stream->Clear();
        EXPECT_EQ(m_pool->m_nAlive, 0) << testCase.lpszWhat;
    }
}

// A released read block must be forgotten: every further end or beginning would release it again.
TEST_F(RiggedStream, TheReadBlockIsReleasedOnce) {
    m_pool->AnswerBlocksOf(kBlockSize);
    const Bytes bytes = SomeBytes(kBlockSize + 5);
    Write(*m_stream, bytes);
    unsigned int nSize = 0;
    m_stream->BeginReadData();
    m_stream->ReadData(nSize);
    m_stream->BeginReadData();
    m_stream->BeginReadData();
    m_stream->EndReadData();
    m_stream->EndReadData();
    m_stream->BeginReadData();
    EXPECT_EQ(m_pool->m_nAlive, 2);
    EXPECT_TRUE(Join(ReadAll(*m_stream)) == bytes);
}

// The content first, its unfinished block before the full ones, and the piece that was read last at
// the end. Callers see it where the pool hands out first what came back last.
TEST_F(RiggedStream, ItsEndGivesTheBlocksBackInAFixedOrder) {
    const HeldPool source = MakePool();
    std::vector<ITnRobotMemoryBlock*> given;
    m_pool->m_answer = [&](unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
        const int nAnswer = source->QueryMemBuff(nSize, ppBlock);
        given.push_back(*ppBlock);
        return nAnswer;
    };
    const Bytes bytes = SomeBytes(2 * kBlockSize + 5);
    ASSERT_EQ(Write(*m_stream, bytes), 0);
    ASSERT_EQ(given.size(), 3U);
    ITnRobotMemoryBlock* const pRead = given.front();
    m_stream->BeginReadData();
    unsigned int nSize = 0;
    ASSERT_NE(m_stream->ReadData(nSize), nullptr);
    m_stream->Clear();
    given.clear();
    ASSERT_EQ(Write(*m_stream, bytes), 0);
    ASSERT_EQ(given.size(), 3U);
    m_stream.reset();
    std::vector<HeldBlock> again;
    std::vector<ITnRobotMemoryBlock*> order;
    for (int n = 0; n < 4; ++n) {
        again.push_back(Query(*source, kBlockSize));
        order.push_back(again.back().get());
    }
    EXPECT_EQ(order, (std::vector<ITnRobotMemoryBlock*>{pRead, given[1], given[0], given[2]}));
}

TEST_F(RiggedStream, ARefusalEndsTheWriteAndKeepsWhatFoundRoom) {
    m_pool->m_answer = [this](unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
        if (m_pool->m_asked.size() > 2) {
            return 0;
        }
        *ppBlock = new CTnRiggedBlock(nSize, &m_pool->m_nAlive);
        return 1;
    };
    const Bytes bytes = SomeBytes(2 * kBlockSize + 5);
    EXPECT_EQ(Write(*m_stream, bytes), -1);
    EXPECT_EQ(m_stream->GetTotleLength(), 2 * kBlockSize);
    EXPECT_TRUE(Join(ReadAll(*m_stream)) == Bytes(bytes.begin(), bytes.begin() + 2 * kBlockSize));
    m_pool->AnswerBlocksOf(kBlockSize);
    EXPECT_EQ(Write(*m_stream, SomeBytes(5)), 0);
    EXPECT_EQ(m_stream->GetTotleLength(), 2 * kBlockSize + 5);
}

TEST_F(RiggedStream, APoolThatIsAlwaysEmptyLeavesTheStreamEmpty) {
    EXPECT_EQ(Write(*m_stream, SomeBytes(5)), -1);
    EXPECT_EQ(m_pool->m_asked.size(), 1U);
    EXPECT_EQ(m_stream->GetTotleLength(), 0U);
    EXPECT_TRUE(ReadAll(*m_stream).empty());
}

TEST_F(RiggedStream, SuccessWithoutABlockIsARefusal) {
    m_pool->m_answer = [](unsigned int, ITnRobotMemoryBlock** ppBlock) {
        *ppBlock = nullptr;
        return 1;
    };
    EXPECT_EQ(Write(*m_stream, SomeBytes(5)), -1);
    m_pool->m_answer = [](unsigned int, ITnRobotMemoryBlock**) { return 1; };
    EXPECT_EQ(Write(*m_stream, SomeBytes(5)), -1);
    EXPECT_EQ(m_stream->GetTotleLength(), 0U);
    EXPECT_TRUE(ReadAll(*m_stream).empty());
}

TEST_F(RiggedStream, ARefusalWithABlockIsARefusalAndTheBlockIsNotWrittenTo) {
    CTnRiggedBlock* pBlock = nullptr;
    m_pool->m_answer = [&](unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
        *ppBlock = pBlock = new CTnRiggedBlock(nSize, &m_pool->m_nAlive);
        pBlock->AddRef();  // the test's own
        return 0;
    };
    EXPECT_EQ(Write(*m_stream, SomeBytes(5)), -1);
    ASSERT_NE(pBlock, nullptr);
    EXPECT_EQ(pBlock->Content(), Bytes(kBlockSize, 0xEE));
    EXPECT_EQ(m_stream->GetTotleLength(), 0U);
    EXPECT_TRUE(ReadAll(*m_stream).empty());
    // Whose reference came with the refusal is the pool's secret; both answers are taken.
    while (m_pool->m_nAlive > 0) {
        pBlock->Release();
    }
}

TEST_F(RiggedStream, ABlockWithoutRoomIsARefusalAndIsGivenBack) {
    m_pool->AnswerBlocksOf(0);
    EXPECT_EQ(Write(*m_stream, SomeBytes(5)), -1);
    EXPECT_EQ(m_pool->m_nAlive, 0);
    m_pool->m_answer = [this](unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
        auto* pBlock = new CTnRiggedBlock(nSize, &m_pool->m_nAlive);
        pBlock->LoseMemory();
        *ppBlock = pBlock;
        return 1;
    };
    EXPECT_EQ(Write(*m_stream, SomeBytes(5)), -1);
    EXPECT_EQ(m_pool->m_nAlive, 0);
    EXPECT_EQ(m_stream->GetTotleLength(), 0U);
    EXPECT_TRUE(ReadAll(*m_stream).empty());
}

TEST_F(RiggedStream, BlocksOfOtherSizesAreFilledAsFarAsTheyGo) {
    const struct {
        unsigned int nBlockSize;
        std::vector<std::size_t> pieces;
    } cases[] = {
        {1, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}}, {3, {3, 3, 3, 1}}, {5, {5, 5}}, {10, {10}}, {2 * kBlockSize, {10}},
    };
    for (const auto& testCase : cases) {
        m_stream->Clear();
        m_pool->AnswerBlocksOf(testCase.nBlockSize);
        const Bytes bytes = SomeBytes(10);
        EXPECT_EQ(Write(*m_stream, bytes), 0);
        EXPECT_EQ(m_stream->GetTotleLength(), 10U);
        const std::vector<Bytes> pieces = ReadAll(*m_stream);
        EXPECT_EQ(SizesOf(pieces), testCase.pieces) << testCase.nBlockSize;
        EXPECT_EQ(Join(pieces), bytes) << testCase.nBlockSize;
    }
}

// A block decides anew at every question how large it is. Every piece but that one takes from the
// bytes that the pass began with, so that it ends.
TEST_F(RiggedStream, ABlockThatChangesItsSizeLaterDoesNotKeepThePassGoing) {
    for (const unsigned int nClaimed : {0U, 1U, 7U, 9U, 100U}) {
        m_stream->Clear();
        m_pool->AnswerBlocksOf(8);
        EXPECT_EQ(Write(*m_stream, SomeBytes(8)), 0);
        m_pool->m_pLast->Claim(nClaimed);
        EXPECT_EQ(Write(*m_stream, SomeBytes(3)), 0);
        EXPECT_EQ(m_stream->GetTotleLength(), 11U);
        EXPECT_LE(ReadAll(*m_stream).size(), 11U) << nClaimed;
    }
}

TEST_F(RiggedStream, NoDataToWriteIsAnError) {
    m_pool->AnswerBlocksOf(kBlockSize);
    EXPECT_EQ(m_stream->WriteData(nullptr, 5), -1);
    EXPECT_EQ(m_stream->GetTotleLength(), 0U);
}
