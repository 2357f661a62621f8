#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "support/threads/StartGate.h"

using namespace tntest;

namespace {

class CTnProbe : public ITnUnknown {
public:
    explicit CTnProbe(std::atomic<int>& destroyed) : m_destroyed(destroyed) {}
    ~CTnProbe() override { ++m_destroyed; }

    int Count() const { return m_nRefCount.load(); }
    void ForceCount(int nCount) { m_nRefCount.store(nCount); }

private:
    std::atomic<int>& m_destroyed;
};

}  // namespace

TEST(Unknown, ANewObjectHasOneReferenceAndItsReleaseDestroysIt) {
    std::atomic<int> nDestroyed{0};
    auto* pProbe = new CTnProbe(nDestroyed);
    EXPECT_EQ(pProbe->Count(), 1);
    EXPECT_EQ(pProbe->Release(), 0);
    EXPECT_EQ(nDestroyed, 1);
}

TEST(Unknown, AnAddedReferenceKeepsTheObject) {
    std::atomic<int> nDestroyed{0};
    auto* pProbe = new CTnProbe(nDestroyed);
    pProbe->AddRef();
    EXPECT_EQ(pProbe->Count(), 2);
    EXPECT_EQ(pProbe->Release(), 1);
    EXPECT_EQ(nDestroyed, 0);
    EXPECT_EQ(pProbe->Release(), 0);
    EXPECT_EQ(nDestroyed, 1);
}

TEST(Unknown, ReleaseAnswersWhatItsOwnDecrementLeft) {
    std::atomic<int> nDestroyed{0};
    auto* pProbe = new CTnProbe(nDestroyed);
    for (int n = 0; n < 4; ++n) {
        pProbe->AddRef();
    }
    for (int nLeft = 4; nLeft >= 0; --nLeft) {
        EXPECT_EQ(nDestroyed, 0);
        EXPECT_EQ(pProbe->Release(), nLeft);
    }
    EXPECT_EQ(nDestroyed, 1);
}

// Nothing guards against a count that was 0 already: only the fall from 1 to 0 destroys.
TEST(Unknown, AReleaseTooManyAnswersMinusOneAndDestroysNothing) {
    std::atomic<int> nDestroyed{0};
    auto* pProbe = new CTnProbe(nDestroyed);
    pProbe->ForceCount(0);
    EXPECT_EQ(pProbe->Release(), -1);
    EXPECT_EQ(nDestroyed, 0);
    delete pProbe;
}

TEST(Unknown, ExactlyOneOfManyThreadsSeesTheLastReferenceGo) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    for (int nRound = 0; nRound < kRounds; ++nRound) {
        std::atomic<int> nDestroyed{0};
        std::atomic<int> nZeros{0};
        auto* pProbe = new CTnProbe(nDestroyed);
        for (int n = 1; n < kThreads; ++n) {
            pProbe->AddRef();
        }
        StartGate gate(kThreads);
        std::vector<std::thread> threads;
        for (int n = 0; n < kThreads; ++n) {
            threads.emplace_back([&] {
                gate.ArriveAndWait();
                for (int nTurn = 0; nTurn < 20; ++nTurn) {
                    pProbe->AddRef();
                    EXPECT_GE(pProbe->Release(), 1);
                }
                if (pProbe->Release() == 0) {
                    ++nZeros;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(nZeros, 1);
        ASSERT_EQ(nDestroyed, 1);
    }
}

TEST(CreationFunctions, HandOutObjectsWithOneReference) {
    ITnRobotFile* pFile = nullptr;
    ASSERT_EQ(TnCreateRobotFile(&pFile), 1);
    EXPECT_EQ(pFile->Release(), 0);

    ITnRobotMemFile* pMemFile = nullptr;
    ASSERT_EQ(TnCreateRobotMemFile(&pMemFile), 1);
    EXPECT_EQ(pMemFile->Release(), 0);

    ITnRobotArchive* pArchive = nullptr;
    ASSERT_EQ(TnCreateRobotArchive(&pArchive), 1);
    EXPECT_EQ(pArchive->Release(), 0);

    ITnRobotDataValueGroup* pGroup = nullptr;
    ASSERT_EQ(TnCreateRobotValueDataGroup(&pGroup), 1);
    EXPECT_EQ(pGroup->Release(), 0);

    ITnRobotMemoryBlock* pBlock = nullptr;
    ASSERT_EQ(TnCreateRobotCustomMemBlock(nullptr, nullptr, 0, &pBlock), 1);
    EXPECT_EQ(pBlock->Release(), 0);

    ITnRobotMemoryBlockPool* pPool = nullptr;
    ASSERT_EQ(TnCreateRobotMemoryBlockPool(&pPool), 1);
    ITnRobotMemDataStream* pStream = nullptr;
    ASSERT_EQ(TnCreateRobotMemDataStream(pPool, &pStream), 1);
    EXPECT_EQ(pStream->Release(), 0);
    EXPECT_EQ(pPool->Release(), 0);
}

TEST(CreationFunctions, ThePoolRefusesANullResult) {
    EXPECT_EQ(TnCreateRobotMemoryBlockPool(nullptr), 0);
}

TEST(CreationFunctions, AStreamWithoutAPoolIsNotMade) {
    int nAnything = 0;
    auto* pStream = reinterpret_cast<ITnRobotMemDataStream*>(&nAnything);
    EXPECT_EQ(TnCreateRobotMemDataStream(nullptr, &pStream), 0);
    EXPECT_EQ(pStream, nullptr);
}

namespace {

class ValuePoolAbsent : public ::testing::Test {
protected:
    ValuePoolAbsent() { TnRobotUtils::Destroy(); }
    ~ValuePoolAbsent() override { TnRobotUtils::Init(); }
};

}  // namespace

// Values answer -1 and not 0, which is their success.
TEST_F(ValuePoolAbsent, ValuesAreRefusedWithMinusOne) {
    const struct {
        const char* lpszName;
        std::function<int(ITnRobotDataValue**)> create;
    } cases[] = {
        {"bool", [](auto pp) { return TnCreateRobotBoolData(true, pp); }},
        {"char", [](auto pp) { return TnCreateRobotCharData('a', pp); }},
        {"byte", [](auto pp) { return TnCreateRobotByteData(1, pp); }},
        {"short", [](auto pp) { return TnCreateRobotShortData(1, pp); }},
        {"unsigned short", [](auto pp) { return TnCreateRobotUShortData(1, pp); }},
        {"int", [](auto pp) { return TnCreateRobotIntData(1, pp); }},
        {"unsigned int", [](auto pp) { return TnCreateRobotUintData(1, pp); }},
        {"float", [](auto pp) { return TnCreateRobotFloatData(1, pp); }},
        {"double", [](auto pp) { return TnCreateRobotDoubleData(1, pp); }},
        {"long long", [](auto pp) { return TnCreateRobotLonglongData(1, pp); }},
        {"unsigned long long", [](auto pp) { return TnCreateRobotULonglongData(1, pp); }},
        {"text", [](auto pp) { return TnCreateRobotStringData("a", pp); }},
        {"block", [](auto pp) { return TnCreateRobotBlockData("a", 1U, pp); }},
        {"stream", [](auto pp) { return TnCreateRobotBlockData(static_cast<ITnRobotMemDataStream*>(nullptr), pp); }},
    };
    for (const auto& testCase : cases) {
        ITnRobotDataValue* pValue = nullptr;
        EXPECT_EQ(testCase.create(&pValue), -1) << testCase.lpszName;
        EXPECT_EQ(pValue, nullptr) << testCase.lpszName;
    }
}

TEST_F(ValuePoolAbsent, AGroupIsRefusedWithZero) {
    ITnRobotDataValueGroup* pGroup = nullptr;
    EXPECT_EQ(TnCreateRobotValueDataGroup(&pGroup), 0);
    EXPECT_EQ(pGroup, nullptr);
}

TEST_F(ValuePoolAbsent, ASecondDestroyDoesNothing) {
    TnRobotUtils::Destroy();
    ITnRobotDataValue* pValue = nullptr;
    EXPECT_EQ(TnCreateRobotIntData(1, &pValue), -1);
}
