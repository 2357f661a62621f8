#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

#include "TnRobotKernel/pool.h"
#include "support/Held.h"
#include "support/StartLine.h"

namespace {

using tntest::Held;
using tntest::Hold;
using tntest::StartLine;

// The interface that the pool is asked for.
class IPart : public ITnPoolElement {
public:
    virtual int Number() const = 0;
};

class Part final : public IPart {
public:
    Part() { ++s_nLive; }
    ~Part() override { --s_nLive; }

    void ClearResource() override {
        m_nNumber = 0;
        ++m_nCleared;
    }
    int Number() const override { return m_nNumber; }

    void SetNumber(int nNumber) { m_nNumber = nNumber; }
    int TimesCleared() const { return m_nCleared; }
    int References() const { return m_nRefCount.load(); }
    const ITnPoolUnknown* Parent() const { return m_pParent; }

    static int LiveCount() { return s_nLive.load(); }

private:
    static std::atomic<int> s_nLive;
    int m_nNumber = -1;
    int m_nCleared = 0;
};

std::atomic<int> Part::s_nLive{0};

// A pool element that is not an IPart.
class Stranger final : public ITnPoolElement {
public:
    Stranger() { ++s_nLive; }
    ~Stranger() override { --s_nLive; }
    void ClearResource() override { ++m_nCleared; }
    int TimesCleared() const { return m_nCleared; }

    static int s_nLive;

private:
    int m_nCleared = 0;
};

int Stranger::s_nLive = 0;

// Makes parts; the parameter is an int or null. Misbehaves on request.
class PartAlloc final : public ITnElementAlloc {
public:
    enum class Answer { kPart, kFalse, kTrueWithoutElement, kStranger, kThrow };

    PartAlloc() { ++s_nLive; }
    ~PartAlloc() override { --s_nLive; }

    bool AllocElement(void* pParam, ITnPoolElement** ppElement) override {
        ++m_nAllocated;
        m_pLastParam = pParam;
        switch (m_answer) {
            case Answer::kFalse:
                return false;
            case Answer::kTrueWithoutElement:
                *ppElement = nullptr;
                return true;
            case Answer::kStranger:
                *ppElement = new Stranger;
                return true;
            case Answer::kThrow:
                throw std::runtime_error("no part");
            case Answer::kPart:
                break;
        }
        Part* pPart = new Part;
        Fill(*pPart, pParam);
        *ppElement = pPart;
        return true;
    }

    void SetElementParam(ITnPoolElement* pElement, void* pParam) override {
        ++m_nReused;
        m_pLastParam = pParam;
        if (Part* pPart = dynamic_cast<Part*>(pElement)) {
            Fill(*pPart, pParam);
        }
        if (m_answer == Answer::kThrow) {
            throw std::runtime_error("no reuse");
        }
    }

    void AnswerWith(Answer answer) { m_answer = answer; }
    int Allocated() const { return m_nAllocated; }
    int Reused() const { return m_nReused; }
    const void* LastParam() const { return m_pLastParam; }
    int References() const { return m_nRefCount.load(); }

    static int s_nLive;

private:
    static void Fill(Part& part, const void* pParam) {
        if (pParam != nullptr) {
            part.SetNumber(*static_cast<const int*>(pParam));
        }
    }

    Answer m_answer = Answer::kPart;
    int m_nAllocated = 0;
    int m_nReused = 0;
    const void* m_pLastParam = nullptr;
};

int PartAlloc::s_nLive = 0;

using Pool = CTnRobotPool<IPart>;
using Answer = PartAlloc::Answer;

class RecyclingPool : public ::testing::Test {
protected:
    RecyclingPool() : m_alloc(Hold(new PartAlloc)), m_pool(Hold(new Pool(m_alloc.get()))) {}

    ~RecyclingPool() override {
        m_pool.reset();
        EXPECT_EQ(m_alloc->References(), 1);
        m_alloc.reset();
        EXPECT_EQ(Part::LiveCount(), 0);
        EXPECT_EQ(Stranger::s_nLive, 0);
        EXPECT_EQ(PartAlloc::s_nLive, 0);
    }

    Held<Part> Take(int nNumber) {
        IPart* pPart = nullptr;
        EXPECT_TRUE(m_pool->QueryPoolElement(0, &nNumber, &pPart));
        return Hold(dynamic_cast<Part*>(pPart));
    }

    bool CanTake() {
        IPart* pPart = nullptr;
        if (!m_pool->QueryPoolElement(0, nullptr, &pPart)) {
            return false;
        }
        pPart->Release();
        return true;
    }

    Held<PartAlloc> m_alloc;
    Held<Pool> m_pool;
};

}  // namespace

TEST_F(RecyclingPool, KeepsOneReferenceOfItsOwnToAnElementInUse) {
    Held<Part> part = Take(7);
    EXPECT_EQ(part->References(), 2);
    EXPECT_EQ(part->Parent(), m_pool.get());
    EXPECT_EQ(part->Number(), 7);
}

TEST_F(RecyclingPool, HoldsItsAllocatorUntilItGoes) {
    EXPECT_EQ(m_alloc->References(), 2);
    m_pool.reset();
    EXPECT_EQ(m_alloc->References(), 1);
}

TEST_F(RecyclingPool, TheLastHoldersReleaseClearsAndKeepsTheElement) {
    Part* pPart = Take(7).release();
    EXPECT_EQ(pPart->Release(), 1);
    EXPECT_EQ(Part::LiveCount(), 1);
    EXPECT_EQ(pPart->TimesCleared(), 1);
    EXPECT_EQ(pPart->Parent(), nullptr);
    EXPECT_EQ(pPart->References(), 1);
}

TEST_F(RecyclingPool, AnExtraReferenceDelaysTheReturn) {
    Held<Part> part = Take(7);
    part->AddRef();
    EXPECT_EQ(part->References(), 3);
    EXPECT_EQ(part->Release(), 2);
    EXPECT_EQ(part->TimesCleared(), 0);
    EXPECT_EQ(part->Number(), 7);
    Part* pPart = part.release();
    EXPECT_EQ(pPart->Release(), 1);
    EXPECT_EQ(pPart->TimesCleared(), 1);
}

TEST_F(RecyclingPool, HandsAReturnedElementOutAgainReinitialised) {
    Part* pFirst = Take(7).release();
    pFirst->Release();
    Held<Part> second = Take(8);
    EXPECT_EQ(second.get(), pFirst);
    EXPECT_EQ(second->Number(), 8);
    EXPECT_EQ(second->References(), 2);
    EXPECT_EQ(second->Parent(), m_pool.get());
    EXPECT_EQ(m_alloc->Allocated(), 1);
    EXPECT_EQ(m_alloc->Reused(), 1);
}

TEST_F(RecyclingPool, ReusesTheElementThatCameBackFirst) {
    std::vector<Part*> parts;
    for (int i = 0; i < 20; ++i) {
        parts.push_back(Take(i).release());
    }
    const int order[] = {3, 0, 19, 7};
    for (int i : order) {
        parts[static_cast<std::size_t>(i)]->Release();
    }
    std::vector<Held<Part>> again;
    for (int i : order) {
        again.push_back(Take(100 + i));
        EXPECT_EQ(again.back().get(), parts[static_cast<std::size_t>(i)]);
        EXPECT_EQ(again.back()->Number(), 100 + i);
        parts[static_cast<std::size_t>(i)] = nullptr;
    }
    for (Part* pPart : parts) {
        if (pPart != nullptr) {
            pPart->Release();
        }
    }
}

TEST_F(RecyclingPool, NeverShrinksAndAllocatesNothingInSteadyState) {
    for (int nRound = 0; nRound < 50; ++nRound) {
        std::vector<Held<Part>> parts;
        for (int i = 0; i < 9; ++i) {
            parts.push_back(Take(i));
        }
    }
    EXPECT_EQ(Part::LiveCount(), 9);
    EXPECT_EQ(m_alloc->Allocated(), 9);
}

TEST_F(RecyclingPool, PassesTheParameterOnUnchanged) {
    int nParam = 5;
    IPart* pPart = nullptr;
    ASSERT_TRUE(m_pool->QueryPoolElement(4711, &nParam, &pPart));
    EXPECT_EQ(m_alloc->LastParam(), &nParam);
    pPart->Release();
    ASSERT_TRUE(m_pool->QueryPoolElement(0, nullptr, &pPart));
    EXPECT_EQ(m_alloc->LastParam(), nullptr);
    EXPECT_EQ(pPart->Number(), 0) << "a recycled element without a parameter stays cleared";
    pPart->Release();
}

TEST_F(RecyclingPool, ANewElementWithoutParameterKeepsItsDefaults) {
    IPart* pPart = nullptr;
    ASSERT_TRUE(m_pool->QueryPoolElement(0, nullptr, &pPart));
    EXPECT_EQ(pPart->Number(), -1);
    pPart->Release();
}

TEST_F(RecyclingPool, RefusesBeyondItsMaximumUntilAnElementComesBack) {
    m_pool->SetMaxCount(1);
    Held<Part> first = Take(1);
    IPart* const pUntouched = first.get();
    IPart* pSecond = pUntouched;
    int nParam = 2;
    EXPECT_FALSE(m_pool->QueryPoolElement(0, &nParam, &pSecond));
    EXPECT_EQ(pSecond, pUntouched);
    EXPECT_EQ(m_alloc->Allocated(), 1);

    Part* pFirst = first.release();
    pFirst->Release();
    Held<Part> third = Take(3);
    EXPECT_EQ(third.get(), pFirst);
    EXPECT_EQ(third->Number(), 3);
}

TEST_F(RecyclingPool, AMaximumOfZeroHandsOutNothing) {
    m_pool->SetMaxCount(0);
    EXPECT_FALSE(CanTake());
    EXPECT_EQ(m_alloc->Allocated(), 0);
}

TEST_F(RecyclingPool, ALoweredMaximumStillLendsWhatIsFree) {
    { Held<Part> part = Take(1); }
    m_pool->SetMaxCount(0);
    EXPECT_TRUE(CanTake());
}

TEST_F(RecyclingPool, ANullOutPointerFailsAndCreatesNothing) {
    int nParam = 1;
    EXPECT_FALSE(m_pool->QueryPoolElement(0, &nParam, nullptr));
    EXPECT_EQ(m_alloc->Allocated(), 0);
    { Held<Part> part = Take(1); }
    EXPECT_FALSE(m_pool->QueryPoolElement(0, &nParam, nullptr));
    EXPECT_EQ(m_alloc->Reused(), 0);
}

TEST(RecyclingPoolAlone, WithoutAnAllocatorHandsOutNothing) {
    Held<Pool> pool = Hold(new Pool(nullptr));
    Part part;
    IPart* pPart = &part;
    EXPECT_FALSE(pool->QueryPoolElement(0, nullptr, &pPart));
    EXPECT_EQ(pPart, &part);
    EXPECT_FALSE(pool->QueryPoolElement(0, nullptr, nullptr));
}

TEST_F(RecyclingPool, TakesNoNullBack) {
    EXPECT_FALSE(m_pool->RecoveryResource(nullptr));
    EXPECT_TRUE(CanTake());
    EXPECT_EQ(m_alloc->Allocated(), 1) << "nothing was on the free list";
}

TEST_F(RecyclingPool, AFailedAllocationLeavesEverythingAsItWas) {
    Held<Part> held = Take(1);
    for (Answer answer : {Answer::kFalse, Answer::kTrueWithoutElement, Answer::kThrow, Answer::kStranger}) {
        m_alloc->AnswerWith(answer);
        IPart* pPart = nullptr;
        if (answer == Answer::kThrow) {
            EXPECT_THROW(m_pool->QueryPoolElement(0, nullptr, &pPart), std::runtime_error);
        } else {
            EXPECT_FALSE(m_pool->QueryPoolElement(0, nullptr, &pPart));
        }
        EXPECT_EQ(pPart, nullptr);
        EXPECT_EQ(Part::LiveCount(), 1);
    }
    // Two elements are owned now if a failed request had counted.
    m_pool->SetMaxCount(2);
    m_alloc->AnswerWith(Answer::kPart);
    Held<Part> second = Take(2);
    EXPECT_NE(second, nullptr);
}

TEST_F(RecyclingPool, ARefusedAllocationLeavesTheOutPointerUntouched) {
    Part part;
    IPart* pPart = &part;
    m_alloc->AnswerWith(Answer::kFalse);
    EXPECT_FALSE(m_pool->QueryPoolElement(0, nullptr, &pPart));
    EXPECT_EQ(pPart, &part);
}

TEST_F(RecyclingPool, AnElementOfAnotherTypeGivesNull) {
    Part part;
    for (Answer answer : {Answer::kStranger, Answer::kTrueWithoutElement}) {
        IPart* pPart = &part;
        m_alloc->AnswerWith(answer);
        EXPECT_FALSE(m_pool->QueryPoolElement(0, nullptr, &pPart));
        EXPECT_EQ(pPart, nullptr);
    }
}

TEST_F(RecyclingPool, AStrangerOnTheFreeListIsNotHandedOut) {
    Held<Stranger> stranger = Hold(new Stranger);
    EXPECT_TRUE(m_pool->RecoveryResource(stranger.get()));
    EXPECT_EQ(stranger->TimesCleared(), 1);
    Part part;
    IPart* pPart = &part;
    EXPECT_FALSE(m_pool->QueryPoolElement(0, nullptr, &pPart));
    EXPECT_EQ(pPart, nullptr);
}

TEST_F(RecyclingPool, AnExceptionWhileReusingLeavesTheElementFree) {
    Part* pPart = Take(1).release();
    pPart->Release();
    m_alloc->AnswerWith(Answer::kThrow);
    int nParam = 2;
    IPart* pOut = nullptr;
    for (int i = 0; i < 3; ++i) {
        EXPECT_THROW(m_pool->QueryPoolElement(0, &nParam, &pOut), std::runtime_error);
        EXPECT_EQ(pOut, nullptr);
        EXPECT_EQ(pPart->References(), 1);
        EXPECT_EQ(pPart->Parent(), nullptr);
        EXPECT_EQ(pPart->Number(), 0) << "an idle element is a cleared one";
    }
    EXPECT_EQ(m_alloc->Allocated(), 1);

    m_alloc->AnswerWith(Answer::kPart);
    Held<Part> again = Take(3);
    EXPECT_EQ(again.get(), pPart);
    EXPECT_EQ(m_alloc->Allocated(), 1);
}

TEST_F(RecyclingPool, AnExceptionReleasesTheLock) {
    m_alloc->AnswerWith(Answer::kThrow);
    IPart* pOut = nullptr;
    EXPECT_THROW(m_pool->QueryPoolElement(0, nullptr, &pOut), std::runtime_error);
    m_alloc->AnswerWith(Answer::kPart);
    std::thread other([this] { EXPECT_TRUE(CanTake()); });
    other.join();
}

TEST_F(RecyclingPool, IdleElementsGoWithThePool) {
    {
        Held<Part> first = Take(1);
        Held<Part> second = Take(2);
    }
    EXPECT_EQ(Part::LiveCount(), 2);
    m_pool.reset();
    EXPECT_EQ(Part::LiveCount(), 0);
}

TEST_F(RecyclingPool, AHeldElementOutlivesThePoolButIsCleared) {
    Held<Part> part = Take(7);
    m_pool.reset();
    EXPECT_EQ(Part::LiveCount(), 1);
    EXPECT_EQ(part->References(), 1);
    EXPECT_EQ(part->Number(), 0);
    EXPECT_EQ(part->TimesCleared(), 1);
    EXPECT_EQ(part->Parent(), nullptr);
    EXPECT_EQ(part.release()->Release(), 0);
    EXPECT_EQ(Part::LiveCount(), 0);
}

TEST_F(RecyclingPool, AnElementWithSeveralHoldersLosesItsParentWithThePool) {
    Held<Part> part = Take(7);
    part->AddRef();
    part->AddRef();
    m_pool.reset();
    EXPECT_EQ(part->References(), 3);
    EXPECT_EQ(part->Parent(), nullptr);
    EXPECT_EQ(part->TimesCleared(), 0) << "only the fall from two to one clears";
    EXPECT_EQ(part->Number(), 7);
    EXPECT_EQ(part->Release(), 2);
    EXPECT_EQ(part->Release(), 1);
    EXPECT_EQ(Part::LiveCount(), 1);
    EXPECT_EQ(part.release()->Release(), 0);
    EXPECT_EQ(Part::LiveCount(), 0);
}

TEST_F(RecyclingPool, EveryMixOfHoldersSurvivesThePool) {
    std::vector<std::vector<Held<Part>>> holders(6);
    for (std::size_t nElement = 0; nElement < holders.size(); ++nElement) {
        Held<Part> part = Take(static_cast<int>(nElement));
        for (std::size_t i = 0; i < nElement; ++i) {
            part->AddRef();
            holders[nElement].push_back(Hold(part.get()));
        }
    }
    m_pool.reset();
    EXPECT_EQ(Part::LiveCount(), 5) << "the one without a holder went with the pool";
    for (auto& held : holders) {
        held.clear();
    }
    EXPECT_EQ(Part::LiveCount(), 0);
}

TEST(PoolElement, OutsideAnyPoolIsAnOrdinaryCountedObject) {
    Part* pPart = new Part;
    pPart->AddRef();
    EXPECT_EQ(pPart->Release(), 1) << "no parent: nothing happens at the fall from two to one";
    EXPECT_EQ(pPart->TimesCleared(), 0);
    EXPECT_EQ(pPart->Release(), 0);
    EXPECT_EQ(Part::LiveCount(), 0);
}

namespace {

// Counts what comes back.
class CountingParent final : public ITnPoolUnknown {
public:
    bool RecoveryResource(ITnPoolElement* pElement) override {
        m_returned.push_back(pElement);
        return true;
    }
    std::vector<ITnPoolElement*> m_returned;
};

}  // namespace

TEST(PoolElement, ComesBackExactlyAtTheFallFromTwoToOne) {
    Held<CountingParent> parent = Hold(new CountingParent);
    Held<Part> part = Hold(new Part);
    part->SetParent(parent.get());
    part->AddRef();
    part->AddRef();
    EXPECT_EQ(part->Release(), 2);
    EXPECT_TRUE(parent->m_returned.empty());
    EXPECT_EQ(part->Release(), 1);
    ASSERT_EQ(parent->m_returned.size(), 1u);
    EXPECT_EQ(parent->m_returned[0], part.get());
    EXPECT_EQ(part.release()->Release(), 0);
    EXPECT_EQ(parent->m_returned.size(), 1u);
}

TEST_F(RecyclingPool, ThreadsNeverShareAnElement) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    StartLine line(kThreads);
    std::atomic<int> nWrong{0};
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            line.Arrive();
            for (int i = 0; i < kRounds; ++i) {
                int nNumber = nThread * kRounds + i;
                IPart* pPart = nullptr;
                if (!m_pool->QueryPoolElement(0, &nNumber, &pPart) || pPart->Number() != nNumber) {
                    ++nWrong;
                }
                pPart->Release();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(nWrong.load(), 0);
    EXPECT_LE(Part::LiveCount(), kThreads);
}

TEST_F(RecyclingPool, AReferenceMayEndOnAnotherThread) {
    constexpr int kRounds = 1000;
    for (int i = 0; i < kRounds; ++i) {
        Part* pPart = Take(i).release();
        pPart->AddRef();
        std::thread other([pPart] { pPart->Release(); });
        pPart->Release();
        other.join();
        EXPECT_EQ(pPart->References(), 1);
    }
    EXPECT_EQ(Part::LiveCount(), 1);
}
