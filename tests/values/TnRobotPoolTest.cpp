#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TnRobotKernel/pool.h"
#include "TnRobotKernel/ptr.h"
#include "support/threads/StartGate.h"

using namespace tntest;

namespace {

// The interface that the pool is asked for.
class IWidget : public ITnPoolElement {
public:
    virtual int Number() const = 0;
};

class Widget final : public IWidget {
public:
    Widget() { ++s_nLive; }
    ~Widget() override { --s_nLive; }

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

std::atomic<int> Widget::s_nLive{0};

// A pool element that is not an IWidget.
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

// Makes widgets; the parameter is an int or null. Misbehaves on request.
class WidgetAlloc final : public ITnElementAlloc {
public:
    enum class Answer { kWidget, kFalse, kTrueWithoutElement, kStranger, kThrow };

    WidgetAlloc() { ++s_nLive; }
    ~WidgetAlloc() override { --s_nLive; }

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
                throw std::runtime_error("no widget");
            case Answer::kWidget:
                break;
        }
        Widget* pWidget = new Widget;
        Fill(*pWidget, pParam);
        *ppElement = pWidget;
        return true;
    }

    void SetElementParam(ITnPoolElement* pElement, void* pParam) override {
        ++m_nReused;
        m_pLastParam = pParam;
        if (Widget* pWidget = dynamic_cast<Widget*>(pElement)) {
            Fill(*pWidget, pParam);
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
    static void Fill(Widget& widget, const void* pParam) {
        if (pParam != nullptr) {
            widget.SetNumber(*static_cast<const int*>(pParam));
        }
    }

    Answer m_answer = Answer::kWidget;
    int m_nAllocated = 0;
    int m_nReused = 0;
    const void* m_pLastParam = nullptr;
};

int WidgetAlloc::s_nLive = 0;

using Pool = CTnRobotPool<IWidget>;
using Answer = WidgetAlloc::Answer;

class RecyclingPool : public ::testing::Test {
protected:
    RecyclingPool() : m_alloc(tn::Adopt(new WidgetAlloc)), m_pool(tn::Adopt(new Pool(m_alloc.get()))) {}

    ~RecyclingPool() override {
        m_pool.reset();
        EXPECT_EQ(m_alloc->References(), 1);
        m_alloc.reset();
        EXPECT_EQ(Widget::LiveCount(), 0);
        EXPECT_EQ(Stranger::s_nLive, 0);
        EXPECT_EQ(WidgetAlloc::s_nLive, 0);
    }

    TnRobotPtr<Widget> Take(int nNumber) {
        IWidget* pWidget = nullptr;
        EXPECT_TRUE(m_pool->QueryPoolElement(0, &nNumber, &pWidget));
        return tn::Adopt(dynamic_cast<Widget*>(pWidget));
    }

    bool CanTake() {
        IWidget* pWidget = nullptr;
        if (!m_pool->QueryPoolElement(0, nullptr, &pWidget)) {
            return false;
        }
        pWidget->Release();
        return true;
    }

    TnRobotPtr<WidgetAlloc> m_alloc;
    TnRobotPtr<Pool> m_pool;
};

}  // namespace

TEST_F(RecyclingPool, KeepsOneReferenceOfItsOwnToAnElementInUse) {
    TnRobotPtr<Widget> widget = Take(7);
    EXPECT_EQ(widget->References(), 2);
    EXPECT_EQ(widget->Parent(), m_pool.get());
    EXPECT_EQ(widget->Number(), 7);
}

TEST_F(RecyclingPool, HoldsItsAllocatorUntilItGoes) {
    EXPECT_EQ(m_alloc->References(), 2);
    m_pool.reset();
    EXPECT_EQ(m_alloc->References(), 1);
}

TEST_F(RecyclingPool, TheLastHoldersReleaseClearsAndKeepsTheElement) {
    Widget* pWidget = Take(7).detach();
    EXPECT_EQ(pWidget->Release(), 1);
    EXPECT_EQ(Widget::LiveCount(), 1);
    EXPECT_EQ(pWidget->TimesCleared(), 1);
    EXPECT_EQ(pWidget->Parent(), nullptr);
    EXPECT_EQ(pWidget->References(), 1);
}

TEST_F(RecyclingPool, AnExtraReferenceDelaysTheReturn) {
    TnRobotPtr<Widget> widget = Take(7);
    widget->AddRef();
    EXPECT_EQ(widget->References(), 3);
    EXPECT_EQ(widget->Release(), 2);
    EXPECT_EQ(widget->TimesCleared(), 0);
    EXPECT_EQ(widget->Number(), 7);
    Widget* pWidget = widget.detach();
    EXPECT_EQ(pWidget->Release(), 1);
    EXPECT_EQ(pWidget->TimesCleared(), 1);
}

TEST_F(RecyclingPool, HandsAReturnedElementOutAgainReinitialised) {
    Widget* pFirst = Take(7).detach();
    pFirst->Release();
    TnRobotPtr<Widget> second = Take(8);
    EXPECT_EQ(second.get(), pFirst);
    EXPECT_EQ(second->Number(), 8);
    EXPECT_EQ(second->References(), 2);
    EXPECT_EQ(second->Parent(), m_pool.get());
    EXPECT_EQ(m_alloc->Allocated(), 1);
    EXPECT_EQ(m_alloc->Reused(), 1);
}

TEST_F(RecyclingPool, ReusesTheElementThatCameBackFirst) {
    std::vector<Widget*> widgets;
    for (int i = 0; i < 20; ++i) {
        widgets.push_back(Take(i).detach());
    }
    const int order[] = {3, 0, 19, 7};
    for (int i : order) {
        widgets[static_cast<std::size_t>(i)]->Release();
    }
    std::vector<TnRobotPtr<Widget>> again;
    for (int i : order) {
        again.push_back(Take(100 + i));
        EXPECT_EQ(again.back().get(), widgets[static_cast<std::size_t>(i)]);
        EXPECT_EQ(again.back()->Number(), 100 + i);
        widgets[static_cast<std::size_t>(i)] = nullptr;
    }
    for (Widget* pWidget : widgets) {
        if (pWidget != nullptr) {
            pWidget->Release();
        }
    }
}

TEST_F(RecyclingPool, NeverShrinksAndAllocatesNothingInSteadyState) {
    for (int nRound = 0; nRound < 50; ++nRound) {
        std::vector<TnRobotPtr<Widget>> widgets;
        for (int i = 0; i < 9; ++i) {
            widgets.push_back(Take(i));
        }
    }
    EXPECT_EQ(Widget::LiveCount(), 9);
    EXPECT_EQ(m_alloc->Allocated(), 9);
}

TEST_F(RecyclingPool, PassesTheParameterOnUnchanged) {
    int nParam = 5;
    IWidget* pWidget = nullptr;
    ASSERT_TRUE(m_pool->QueryPoolElement(4711, &nParam, &pWidget));
    EXPECT_EQ(m_alloc->LastParam(), &nParam);
    pWidget->Release();
    ASSERT_TRUE(m_pool->QueryPoolElement(0, nullptr, &pWidget));
    EXPECT_EQ(m_alloc->LastParam(), nullptr);
    EXPECT_EQ(pWidget->Number(), 0) << "a recycled element without a parameter stays cleared";
    pWidget->Release();
}

TEST_F(RecyclingPool, ANewElementWithoutParameterKeepsItsDefaults) {
    IWidget* pWidget = nullptr;
    ASSERT_TRUE(m_pool->QueryPoolElement(0, nullptr, &pWidget));
    EXPECT_EQ(pWidget->Number(), -1);
    pWidget->Release();
}

TEST_F(RecyclingPool, RefusesBeyondItsMaximumUntilAnElementComesBack) {
    m_pool->SetMaxCount(1);
    TnRobotPtr<Widget> first = Take(1);
    IWidget* const pUntouched = first.get();
    IWidget* pSecond = pUntouched;
    int nParam = 2;
    EXPECT_FALSE(m_pool->QueryPoolElement(0, &nParam, &pSecond));
    EXPECT_EQ(pSecond, pUntouched);
    EXPECT_EQ(m_alloc->Allocated(), 1);

    Widget* pFirst = first.detach();
    pFirst->Release();
    TnRobotPtr<Widget> third = Take(3);
    EXPECT_EQ(third.get(), pFirst);
    EXPECT_EQ(third->Number(), 3);
}

TEST_F(RecyclingPool, AMaximumOfZeroHandsOutNothing) {
    m_pool->SetMaxCount(0);
    EXPECT_FALSE(CanTake());
    EXPECT_EQ(m_alloc->Allocated(), 0);
}

TEST_F(RecyclingPool, ALoweredMaximumStillLendsWhatIsFree) {
    { TnRobotPtr<Widget> widget = Take(1); }
    m_pool->SetMaxCount(0);
    EXPECT_TRUE(CanTake());
}

TEST_F(RecyclingPool, ANullOutPointerFailsAndCreatesNothing) {
    int nParam = 1;
    EXPECT_FALSE(m_pool->QueryPoolElement(0, &nParam, nullptr));
    EXPECT_EQ(m_alloc->Allocated(), 0);
    { TnRobotPtr<Widget> widget = Take(1); }
    EXPECT_FALSE(m_pool->QueryPoolElement(0, &nParam, nullptr));
    EXPECT_EQ(m_alloc->Reused(), 0);
}

TEST(RecyclingPoolAlone, WithoutAnAllocatorHandsOutNothing) {
    TnRobotPtr<Pool> pool = tn::Adopt(new Pool(nullptr));
    Widget widget;
    IWidget* pWidget = &widget;
    EXPECT_FALSE(pool->QueryPoolElement(0, nullptr, &pWidget));
    EXPECT_EQ(pWidget, &widget);
    EXPECT_FALSE(pool->QueryPoolElement(0, nullptr, nullptr));
}

TEST_F(RecyclingPool, TakesNoNullBack) {
    EXPECT_FALSE(m_pool->RecoveryResource(nullptr));
    EXPECT_TRUE(CanTake());
    EXPECT_EQ(m_alloc->Allocated(), 1) << "nothing was on the free list";
}

TEST_F(RecyclingPool, AFailedAllocationLeavesEverythingAsItWas) {
    TnRobotPtr<Widget> held = Take(1);
    for (Answer answer : {Answer::kFalse, Answer::kTrueWithoutElement, Answer::kThrow, Answer::kStranger}) {
        m_alloc->AnswerWith(answer);
        IWidget* pWidget = nullptr;
        if (answer == Answer::kThrow) {
            EXPECT_THROW(m_pool->QueryPoolElement(0, nullptr, &pWidget), std::runtime_error);
        } else {
            EXPECT_FALSE(m_pool->QueryPoolElement(0, nullptr, &pWidget));
        }
        EXPECT_EQ(pWidget, nullptr);
        EXPECT_EQ(Widget::LiveCount(), 1);
    }
    // Two elements are owned now if a failed request had counted.
    m_pool->SetMaxCount(2);
    m_alloc->AnswerWith(Answer::kWidget);
    TnRobotPtr<Widget> second = Take(2);
    EXPECT_NE(second, nullptr);
}

TEST_F(RecyclingPool, ARefusedAllocationLeavesTheOutPointerUntouched) {
    Widget widget;
    IWidget* pWidget = &widget;
    m_alloc->AnswerWith(Answer::kFalse);
    EXPECT_FALSE(m_pool->QueryPoolElement(0, nullptr, &pWidget));
    EXPECT_EQ(pWidget, &widget);
}

TEST_F(RecyclingPool, AnElementOfAnotherTypeGivesNull) {
    Widget widget;
    for (Answer answer : {Answer::kStranger, Answer::kTrueWithoutElement}) {
        IWidget* pWidget = &widget;
        m_alloc->AnswerWith(answer);
        EXPECT_FALSE(m_pool->QueryPoolElement(0, nullptr, &pWidget));
        EXPECT_EQ(pWidget, nullptr);
    }
}

TEST_F(RecyclingPool, AStrangerOnTheFreeListIsNotHandedOut) {
    TnRobotPtr<Stranger> stranger = tn::Adopt(new Stranger);
    m_pool->SetMaxCount(1);
    EXPECT_TRUE(m_pool->RecoveryResource(stranger.get()));
    EXPECT_EQ(stranger->TimesCleared(), 1);
    Widget widget;
    IWidget* pWidget = &widget;
    EXPECT_FALSE(m_pool->QueryPoolElement(0, nullptr, &pWidget));
    EXPECT_EQ(pWidget, nullptr);
    // It costs the one request that met it, and no room.
    EXPECT_EQ(stranger.detach()->Release(), 0) << "the pool has no reference to it";
    EXPECT_NE(Take(1), nullptr);
    EXPECT_TRUE(CanTake());
}

TEST_F(RecyclingPool, AStrangerOfTheRightTypeIsLentAndStaysItsOwners) {
    TnRobotPtr<Widget> stranger = tn::Adopt(new Widget);
    EXPECT_TRUE(m_pool->RecoveryResource(stranger.get()));
    EXPECT_EQ(stranger->TimesCleared(), 1);
    TnRobotPtr<Widget> widget = Take(7);
    EXPECT_EQ(widget.get(), stranger.get());
    EXPECT_EQ(widget->Number(), 7);
    EXPECT_EQ(m_alloc->Allocated(), 0);
    EXPECT_EQ(widget.detach()->Release(), 1);
    EXPECT_EQ(Take(8).get(), stranger.get()) << "it comes back as others do";
    m_pool.reset();
    EXPECT_EQ(Widget::LiveCount(), 1) << "the pool never had a reference of its own";
}

namespace {

// Counts the calls that a pool makes of an element's count.
class CountedElement final : public ITnPoolElement {
public:
    explicit CountedElement(std::vector<std::string>& calls) : m_calls(calls) {}
    void AddRef() override {
        m_calls.emplace_back("AddRef");
        ITnPoolElement::AddRef();
    }
    int Release() override {
        m_calls.emplace_back("Release");
        return ITnPoolElement::Release();
    }
    void ClearResource() override { m_calls.emplace_back("ClearResource"); }
    void SetParent(ITnPoolUnknown* pParent) override {
        m_calls.emplace_back(pParent != nullptr ? "SetParent" : "SetParent null");
        ITnPoolElement::SetParent(pParent);
    }

private:
    std::vector<std::string>& m_calls;
};

class CountedElementAlloc final : public ITnElementAlloc {
public:
    bool AllocElement(void* pParam, ITnPoolElement** ppElement) override {
        *ppElement = new CountedElement(*static_cast<std::vector<std::string>*>(pParam));
        return true;
    }
    void SetElementParam(ITnPoolElement*, void*) override {}
};

}  // namespace

TEST(RecyclingPoolAlone, ReleasesEachElementOnceWhenItGoes) {
    using Calls = std::vector<std::string>;
    const struct {
        int nHolders;
        Calls expected;
    } rows[] = {
        {0, {"Release"}},
        {1, {"Release", "ClearResource", "SetParent null"}},
        {2, {"Release", "SetParent null"}},
        {3, {"Release", "SetParent null"}},
    };
    for (const auto& row : rows) {
        TnRobotPtr<CountedElementAlloc> alloc = tn::Adopt(new CountedElementAlloc);
        TnRobotPtr<CTnRobotPool<CountedElement>> pool = tn::Adopt(new CTnRobotPool<CountedElement>(alloc.get()));
        Calls calls;
        CountedElement* pElement = nullptr;
        ASSERT_TRUE(pool->QueryPoolElement(0, &calls, &pElement));
        for (int i = 1; i < row.nHolders; ++i) {
            pElement->AddRef();
        }
        if (row.nHolders == 0) {
            pElement->Release();
        }
        calls.clear();
        pool.reset();
        EXPECT_EQ(calls, row.expected) << row.nHolders << " holders";
        for (int i = 0; i < row.nHolders; ++i) {
            pElement->Release();
        }
    }
}

namespace {

// Interfaces whose common base is one object, as applications with several of them make it.
class IShared : public virtual ITnPoolElement {
public:
    virtual int Number() const = 0;
};

class INamed : public virtual ITnPoolElement {
public:
    virtual std::string Name() const = 0;
};

class SharedElement final : public IShared, public INamed {
public:
    explicit SharedElement(int nNumber) : m_nNumber(nNumber) {}
    void ClearResource() override { m_nNumber = 0; }
    int Number() const override { return m_nNumber; }
    std::string Name() const override { return std::to_string(m_nNumber); }
    void SetNumber(int nNumber) { m_nNumber = nNumber; }

private:
    int m_nNumber;
};

class SharedElementAlloc final : public ITnElementAlloc {
public:
    bool AllocElement(void* pParam, ITnPoolElement** ppElement) override {
        *ppElement = new SharedElement(*static_cast<int*>(pParam));
        return true;
    }
    void SetElementParam(ITnPoolElement* pElement, void* pParam) override {
        dynamic_cast<SharedElement&>(*pElement).SetNumber(*static_cast<int*>(pParam));
    }
};

}  // namespace

TEST(RecyclingPoolAlone, LendsInterfacesWithAVirtualBase) {
    TnRobotPtr<SharedElementAlloc> alloc = tn::Adopt(new SharedElementAlloc);
    TnRobotPtr<CTnRobotPool<INamed>> pool = tn::Adopt(new CTnRobotPool<INamed>(alloc.get()));
    const INamed* pFirst = nullptr;
    for (int nNumber : {7, 8, 9}) {
        INamed* pNamed = nullptr;
        ASSERT_TRUE(pool->QueryPoolElement(0, &nNumber, &pNamed));
        EXPECT_EQ(pNamed->Name(), std::to_string(nNumber));
        EXPECT_EQ(pFirst == nullptr || pFirst == pNamed, true) << "it is recycled";
        pFirst = pNamed;
        EXPECT_EQ(pNamed->Release(), 1);
    }
}

TEST_F(RecyclingPool, AnExceptionWhileReusingLeavesTheElementFree) {
    Widget* pWidget = Take(1).detach();
    pWidget->Release();
    m_alloc->AnswerWith(Answer::kThrow);
    int nParam = 2;
    IWidget* pOut = nullptr;
    for (int i = 0; i < 3; ++i) {
        EXPECT_THROW(m_pool->QueryPoolElement(0, &nParam, &pOut), std::runtime_error);
        EXPECT_EQ(pOut, nullptr);
        EXPECT_EQ(pWidget->References(), 1);
        EXPECT_EQ(pWidget->Parent(), nullptr);
        EXPECT_EQ(pWidget->Number(), 0) << "an idle element is a cleared one";
    }
    EXPECT_EQ(m_alloc->Allocated(), 1);

    m_alloc->AnswerWith(Answer::kWidget);
    TnRobotPtr<Widget> again = Take(3);
    EXPECT_EQ(again.get(), pWidget);
    EXPECT_EQ(m_alloc->Allocated(), 1);
}

TEST_F(RecyclingPool, AnExceptionReleasesTheLock) {
    m_alloc->AnswerWith(Answer::kThrow);
    IWidget* pOut = nullptr;
    EXPECT_THROW(m_pool->QueryPoolElement(0, nullptr, &pOut), std::runtime_error);
    m_alloc->AnswerWith(Answer::kWidget);
    std::thread other([this] { EXPECT_TRUE(CanTake()); });
    other.join();
}

TEST_F(RecyclingPool, IdleElementsGoWithThePool) {
    {
        TnRobotPtr<Widget> first = Take(1);
        TnRobotPtr<Widget> second = Take(2);
    }
    EXPECT_EQ(Widget::LiveCount(), 2);
    m_pool.reset();
    EXPECT_EQ(Widget::LiveCount(), 0);
}

TEST_F(RecyclingPool, AHeldElementOutlivesThePoolButIsCleared) {
    TnRobotPtr<Widget> widget = Take(7);
    m_pool.reset();
    EXPECT_EQ(Widget::LiveCount(), 1);
    EXPECT_EQ(widget->References(), 1);
    EXPECT_EQ(widget->Number(), 0);
    EXPECT_EQ(widget->TimesCleared(), 1);
    EXPECT_EQ(widget->Parent(), nullptr);
    EXPECT_EQ(widget.detach()->Release(), 0);
    EXPECT_EQ(Widget::LiveCount(), 0);
}

TEST_F(RecyclingPool, AnElementWithSeveralHoldersLosesItsParentWithThePool) {
    TnRobotPtr<Widget> widget = Take(7);
    widget->AddRef();
    widget->AddRef();
    m_pool.reset();
    EXPECT_EQ(widget->References(), 3);
    EXPECT_EQ(widget->Parent(), nullptr);
    EXPECT_EQ(widget->TimesCleared(), 0) << "only the fall from two to one clears";
    EXPECT_EQ(widget->Number(), 7);
    EXPECT_EQ(widget->Release(), 2);
    EXPECT_EQ(widget->Release(), 1);
    EXPECT_EQ(Widget::LiveCount(), 1);
    EXPECT_EQ(widget.detach()->Release(), 0);
    EXPECT_EQ(Widget::LiveCount(), 0);
}

TEST_F(RecyclingPool, EveryMixOfHoldersSurvivesThePool) {
    std::vector<std::vector<TnRobotPtr<Widget>>> holders(6);
    for (std::size_t nElement = 0; nElement < holders.size(); ++nElement) {
        TnRobotPtr<Widget> widget = Take(static_cast<int>(nElement));
        for (std::size_t i = 0; i < nElement; ++i) {
            widget->AddRef();
            holders[nElement].push_back(tn::Adopt(widget.get()));
        }
    }
    m_pool.reset();
    EXPECT_EQ(Widget::LiveCount(), 5) << "the one without a holder went with the pool";
    for (auto& held : holders) {
        held.clear();
    }
    EXPECT_EQ(Widget::LiveCount(), 0);
}

TEST(PoolElement, OutsideAnyPoolIsAnOrdinaryCountedObject) {
    Widget* pWidget = new Widget;
    pWidget->AddRef();
    EXPECT_EQ(pWidget->Release(), 1) << "no parent: nothing happens at the fall from two to one";
    EXPECT_EQ(pWidget->TimesCleared(), 0);
    EXPECT_EQ(pWidget->Release(), 0);
    EXPECT_EQ(Widget::LiveCount(), 0);
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
    TnRobotPtr<CountingParent> parent = tn::Adopt(new CountingParent);
    TnRobotPtr<Widget> widget = tn::Adopt(new Widget);
    widget->SetParent(parent.get());
    widget->AddRef();
    widget->AddRef();
    EXPECT_EQ(widget->Release(), 2);
    EXPECT_TRUE(parent->m_returned.empty());
    EXPECT_EQ(widget->Release(), 1);
    ASSERT_EQ(parent->m_returned.size(), 1U);
    EXPECT_EQ(parent->m_returned[0], widget.get());
    EXPECT_EQ(widget.detach()->Release(), 0);
    EXPECT_EQ(parent->m_returned.size(), 1U);
}

TEST_F(RecyclingPool, ThreadsNeverShareAnElement) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    StartGate gate(kThreads);
    std::atomic<int> nWrong{0};
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            gate.ArriveAndWait();
            for (int i = 0; i < kRounds; ++i) {
                int nNumber = nThread * kRounds + i;
                IWidget* pWidget = nullptr;
                if (!m_pool->QueryPoolElement(0, &nNumber, &pWidget) || pWidget->Number() != nNumber) {
                    ++nWrong;
                }
                pWidget->Release();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(nWrong.load(), 0);
    EXPECT_LE(Widget::LiveCount(), kThreads);
}

TEST_F(RecyclingPool, AReferenceMayEndOnAnotherThread) {
    constexpr int kRounds = 1000;
    for (int i = 0; i < kRounds; ++i) {
        Widget* pWidget = Take(i).detach();
        pWidget->AddRef();
        std::thread other([pWidget] { pWidget->Release(); });
        pWidget->Release();
        other.join();
        EXPECT_EQ(pWidget->References(), 1);
    }
    EXPECT_EQ(Widget::LiveCount(), 1);
}
