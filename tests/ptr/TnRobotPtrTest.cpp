#include "TnRobotKernel/ptr.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "ptr/PtrProbe.h"

using namespace tntest;

namespace {

using Ptr = TnRobotPtr<PtrProbe>;

/// Every test ends with no object alive.
class RobotPtr : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(PtrProbe::LiveCount(), 0); }

    static Ptr Make(int nNumber = 0) { return tn::MakeObject<PtrProbe>(nNumber); }
};

// A function in the library's style. @return 1, or 0 with the pointer left alone.
int CreateProbe(bool bSuccess, ITnPtrProbe** ppProbe) {
    if (!bSuccess) {
        return 0;
    }
    *ppProbe = new PtrProbe(7);
    return 1;
}

// Moving into itself is what some algorithms do; written plainly, a compiler warns about it.
template <typename T>
void MoveInto(T& to, T& from) {
    to = std::move(from);
}

}  // namespace

TEST_F(RobotPtr, IsAsLargeAsAPlainPointerAndMovesWithoutThrowing) {
    static_assert(sizeof(Ptr) == sizeof(PtrProbe*));
    static_assert(std::is_nothrow_move_constructible_v<Ptr> && std::is_nothrow_move_assignable_v<Ptr>);
    static_assert(std::is_nothrow_copy_constructible_v<Ptr> && std::is_nothrow_destructible_v<Ptr>);
    static_assert(std::is_nothrow_swappable_v<Ptr>);
    static Ptr s_constantInitialised;
    EXPECT_FALSE(s_constantInitialised);
}

TEST_F(RobotPtr, ConvertsOnlyWhereThePlainPointerDoes) {
    static_assert(std::is_convertible_v<Ptr, TnRobotPtr<ITnPtrProbe>>);
    static_assert(std::is_convertible_v<Ptr, TnRobotPtr<ITnUnknown>>);
    static_assert(std::is_convertible_v<Ptr, TnRobotPtr<const PtrProbe>>);
    static_assert(std::is_convertible_v<std::nullptr_t, Ptr>);
    static_assert(!std::is_constructible_v<Ptr, TnRobotPtr<ITnPtrProbe>>);
    static_assert(!std::is_constructible_v<Ptr, TnRobotPtr<const PtrProbe>>);
    static_assert(!std::is_constructible_v<Ptr, TnRobotPtr<ITnRobotFile>>);
    static_assert(!std::is_assignable_v<Ptr&, TnRobotPtr<ITnPtrProbe>>);
    static_assert(!std::is_constructible_v<Ptr, PtrProbe*>);
    static_assert(!std::is_assignable_v<Ptr&, PtrProbe*>);
    static_assert(!std::is_convertible_v<Ptr, PtrProbe*>);
    static_assert(!std::is_convertible_v<Ptr, bool> && std::is_constructible_v<bool, Ptr>);
    static_assert(!std::is_constructible_v<PtrProbe*, Ptr>);
}

TEST_F(RobotPtr, IsEmptyAtFirst) {
    const Ptr empty;
    const Ptr null = nullptr;
    EXPECT_EQ(empty.get(), nullptr);
    EXPECT_EQ(null.get(), nullptr);
    EXPECT_FALSE(empty);
    EXPECT_TRUE(empty == nullptr);
    EXPECT_TRUE(nullptr == null);
}

TEST_F(RobotPtr, AdoptsWithoutCountingAndRetainsWithOneMore) {
    auto* pProbe = new PtrProbe(5);
    const Ptr adopted(pProbe, tn::kAdopt);
    EXPECT_EQ(pProbe->References(), 1);
    EXPECT_EQ(pProbe->Added(), 0);
    {
        const Ptr retained(pProbe, tn::kRetain);
        EXPECT_EQ(retained.get(), pProbe);
        EXPECT_EQ(pProbe->References(), 2);
    }
    EXPECT_EQ(pProbe->References(), 1);
    EXPECT_EQ(adopted->Number(), 5);
    EXPECT_EQ((*adopted).Number(), 5);
}

TEST_F(RobotPtr, AdoptsAndRetainsByFunctionToo) {
    const auto adopted = tn::Adopt(new PtrProbe);
    static_assert(std::is_same_v<decltype(adopted), const Ptr>);
    const auto retained = tn::Retain(adopted.get());
    EXPECT_EQ(adopted->References(), 2);
    EXPECT_FALSE(tn::Adopt(static_cast<PtrProbe*>(nullptr)));
    EXPECT_FALSE(tn::Retain(static_cast<PtrProbe*>(nullptr)));
}

TEST_F(RobotPtr, ACopyAddsAReferenceAndAMoveNone) {
    Ptr first = Make();
    PtrProbe* pProbe = first.get();
    Ptr second = first;
    EXPECT_EQ(pProbe->References(), 2);
    Ptr third = std::move(first);
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(pProbe->References(), 2);
    EXPECT_EQ(pProbe->Added(), 1);
    EXPECT_EQ(third, second);
}

TEST_F(RobotPtr, AssignmentGivesTheOldObjectBack) {
    Ptr first = Make(1);
    Ptr second = Make(2);
    first = second;
    EXPECT_EQ(PtrProbe::LiveCount(), 1);
    EXPECT_EQ(first->References(), 2);
    Ptr third = Make(3);
    third = std::move(second);
    EXPECT_EQ(PtrProbe::LiveCount(), 1);
    EXPECT_EQ(second.get(), nullptr);
    third = nullptr;
    EXPECT_EQ(first->References(), 1);
    first = Ptr();
    EXPECT_EQ(PtrProbe::LiveCount(), 0);
}

TEST_F(RobotPtr, AssigningAPointerToItselfChangesNothing) {
    Ptr probe = Make(4);
    const Ptr& same = probe;
    probe = same;
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->References(), 1);
    MoveInto(probe, probe);
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->References(), 1);
    EXPECT_EQ(probe->Number(), 4);
    probe.swap(probe);
    probe.copy_from(probe.get());
    EXPECT_EQ(probe->References(), 1);
}

TEST_F(RobotPtr, ConvertsToItsBasesByCopyAndMove) {
    TnRobotPtr<RolePtrProbe> role = tn::MakeObject<RolePtrProbe>(9);
    const TnRobotPtr<ITnPtrProbe> copied = role;
    EXPECT_EQ(role->References(), 2);
    EXPECT_EQ(copied->Number(), 9);
    TnRobotPtr<ITnUnknown> moved = std::move(role);
    EXPECT_EQ(role.get(), nullptr);
    EXPECT_EQ(moved, copied);
    TnRobotPtr<ITnUnknown> assigned;
    assigned = copied;
    assigned = TnRobotPtr<RolePtrProbe>(tn::MakeObject<RolePtrProbe>(10));
    EXPECT_EQ(PtrProbe::LiveCount(), 2);
}

TEST_F(RobotPtr, HoldsConstObjects) {
    const TnRobotPtr<const PtrProbe> constant = Make(3);
    const TnRobotPtr<const PtrProbe> copy = constant;
    static_assert(std::is_same_v<decltype(copy.get()), const PtrProbe*>);
    EXPECT_EQ(copy->Number(), 3);
    EXPECT_EQ(copy->References(), 2);
}

TEST_F(RobotPtr, AttachTakesOverAndGivesTheOldObjectBack) {
    Ptr probe = Make(1);
    auto* pOther = new PtrProbe(2);
    probe.attach(pOther);
    EXPECT_EQ(PtrProbe::LiveCount(), 1);
    EXPECT_EQ(pOther->Added(), 0);
    EXPECT_EQ(probe.get(), pOther);
    probe.attach(nullptr);
    EXPECT_FALSE(probe);
}

TEST_F(RobotPtr, AttachingTheSameObjectTakesASecondReference) {
    Ptr probe = Make(1);
    probe->AddRef();
    probe.attach(probe.get());
    EXPECT_EQ(probe->References(), 1);
}

TEST_F(RobotPtr, DetachHandsTheReferenceOut) {
    Ptr probe = Make();
    PtrProbe* pProbe = probe.detach();
    EXPECT_FALSE(probe);
    EXPECT_EQ(pProbe->References(), 1);
    EXPECT_EQ(pProbe->Release(), 0);
    EXPECT_EQ(probe.detach(), nullptr);
}

TEST_F(RobotPtr, PutGivesBackFirstAndReceivesAReference) {
    TnRobotPtr<ITnPtrProbe> probe;
    ASSERT_EQ(CreateProbe(true, probe.put()), 1);
    EXPECT_EQ(probe->Number(), 7);
    ASSERT_EQ(CreateProbe(true, probe.put()), 1);
    EXPECT_EQ(PtrProbe::LiveCount(), 1);
    ASSERT_EQ(CreateProbe(false, probe.put()), 0);
    EXPECT_FALSE(probe);
    EXPECT_EQ(PtrProbe::LiveCount(), 0);
}

TEST_F(RobotPtr, CopiesFromAndToRawPointers) {
    Ptr source = Make(1);
    Ptr target = Make(2);
    target.copy_from(source.get());
    EXPECT_EQ(PtrProbe::LiveCount(), 1);
    EXPECT_EQ(source->References(), 2);

    ITnPtrProbe* pOut = nullptr;
    target.copy_to(&pOut);
    ASSERT_NE(pOut, nullptr);
    EXPECT_EQ(source->References(), 3);
    EXPECT_EQ(pOut->Release(), 2);

    target.copy_from(nullptr);
    EXPECT_FALSE(target);
    target.copy_to(&pOut);
    EXPECT_EQ(pOut, nullptr);
}

TEST_F(RobotPtr, ResetEmpties) {
    Ptr probe = Make();
    probe.reset();
    EXPECT_FALSE(probe);
    EXPECT_EQ(PtrProbe::LiveCount(), 0);
    probe.reset();
    EXPECT_FALSE(probe);
}

TEST_F(RobotPtr, SwapExchangesWithoutCounting) {
    Ptr first = Make(1);
    Ptr second = Make(2);
    first.swap(second);
    EXPECT_EQ(first->Number(), 2);
    swap(first, second);
    EXPECT_EQ(first->Number(), 1);
    EXPECT_EQ(first->Added() + second->Added(), 0);
}

TEST_F(RobotPtr, TryAsFindsTheTypeOrIsEmpty) {
    const TnRobotPtr<ITnUnknown> unknown = tn::MakeObject<RolePtrProbe>(6);
    const auto role = unknown.try_as<RolePtrProbe>();
    ASSERT_TRUE(role);
    EXPECT_EQ(role->References(), 2);
    EXPECT_EQ(role, unknown);
    EXPECT_FALSE(unknown.try_as<ITnRobotFile>());
    EXPECT_EQ(role->References(), 2);
    EXPECT_FALSE(TnRobotPtr<ITnUnknown>().try_as<RolePtrProbe>());
}

TEST_F(RobotPtr, TryAsOfAnEndingPointerMovesTheReferenceOnSuccessOnly) {
    TnRobotPtr<ITnUnknown> unknown = Make(6);
    EXPECT_FALSE(std::move(unknown).try_as<RolePtrProbe>());
    ASSERT_TRUE(unknown);
    const auto probe = std::move(unknown).try_as<PtrProbe>();
    EXPECT_FALSE(unknown);
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->References(), 1);
    EXPECT_EQ(probe->Added(), 0);
}

TEST_F(RobotPtr, AsThrowsForAnotherTypeAndLeavesThePointerAlone) {
    TnRobotPtr<ITnUnknown> unknown = Make(6);
    EXPECT_THROW((void)unknown.as<RolePtrProbe>(), std::bad_cast);
    EXPECT_THROW((void)std::move(unknown).as<RolePtrProbe>(), std::bad_cast);
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown.as<PtrProbe>()->Number(), 6);
    EXPECT_FALSE(TnRobotPtr<ITnUnknown>().as<PtrProbe>());
    const auto probe = std::move(unknown).as<PtrProbe>();
    EXPECT_FALSE(unknown);
    EXPECT_EQ(probe->References(), 1);
}

TEST_F(RobotPtr, ComparesObjectsWhateverTypeTheyAreSeenAs) {
    const TnRobotPtr<RolePtrProbe> role = tn::MakeObject<RolePtrProbe>(1);
    const TnRobotPtr<ITnUnknown> same = role;
    const TnRobotPtr<ITnUnknown> other = Make(2);
    EXPECT_TRUE(role == same && same == role && !(role != same));
    EXPECT_TRUE(role != other && other != role && !(other == role));
    EXPECT_TRUE(same == role.get() && role.get() == same);
    EXPECT_TRUE(other != role.get() && role.get() != other);
    EXPECT_TRUE(role != nullptr && nullptr != role);
    EXPECT_TRUE(TnRobotPtr<const PtrProbe>() == Ptr());
}

TEST_F(RobotPtr, OrdersByAddress) {
    const Ptr a = Make(1);
    const Ptr b = Make(2);
    const bool bLess = std::less<>()(a.get(), b.get());
    EXPECT_EQ(a < b, bLess);
    EXPECT_EQ(b > a, bLess);
    EXPECT_EQ(a <= b, bLess);
    EXPECT_EQ(b >= a, bLess);
    EXPECT_TRUE(a <= a && a >= a && !(a < a) && !(a > a));
}

TEST_F(RobotPtr, LivesInContainers) {
    const Ptr a = Make(1);
    const Ptr b = Make(2);
    const std::set<Ptr> sorted{a, b, a};
    const std::unordered_set<Ptr> hashed{a, b, b};
    EXPECT_EQ(sorted.size(), 2U);
    EXPECT_EQ(hashed.size(), 2U);
    EXPECT_EQ(hashed.count(b), 1U);
    EXPECT_EQ(std::hash<Ptr>()(a), std::hash<PtrProbe*>()(a.get()));

    const int nAddedBefore = a->Added();
    std::vector<Ptr> grown;
    for (int n = 0; n < 100; ++n) {
        grown.push_back(a);
    }
    EXPECT_EQ(a->References(), 103);
    EXPECT_EQ(a->Added() - nAddedBefore, 100) << "growing moves, it does not count";
}

// The object empties the pointer that is just giving it back, and finds it empty already.
TEST_F(RobotPtr, AnObjectMayReachItsPointerWhileItGoes) {
    Ptr probe = Make();
    int nCalls = 0;
    probe->OnEnd([&] {
        ++nCalls;
        EXPECT_FALSE(probe);
        probe.reset();
    });
    probe.reset();
    EXPECT_EQ(nCalls, 1);

    probe = Make();
    probe->OnEnd([&] {
        ++nCalls;
        EXPECT_FALSE(probe);
    });
    probe.put();
    EXPECT_EQ(nCalls, 2);
}

TEST_F(RobotPtr, AnObjectMaySetItsPointerAnewWhileItGoes) {
    Ptr probe = Make(1);
    probe->OnEnd([&] { probe = Make(2); });
    probe.reset();
    ASSERT_TRUE(probe);
    EXPECT_EQ(probe->Number(), 2);

    probe->OnEnd([&] {
        ASSERT_TRUE(probe);
        EXPECT_EQ(probe->Number(), 3);
    });
    probe = Make(3);
    EXPECT_EQ(PtrProbe::LiveCount(), 1);

    probe->OnEnd([&] { EXPECT_EQ(probe->Number(), 4); });
    probe.attach(new PtrProbe(4));
    EXPECT_EQ(PtrProbe::LiveCount(), 1);
}

TEST_F(RobotPtr, ReturnsPooledElementsToTheirPool) {
    const auto alloc = tn::MakeObject<PooledPtrProbeAlloc>();
    const auto pool = tn::MakeObject<CTnRobotPool<PooledPtrProbe>>(alloc.get());
    TnRobotPtr<PooledPtrProbe> element;
    ASSERT_TRUE(pool->QueryPoolElement(0, nullptr, element.put()));
    PooledPtrProbe* pFirst = element.get();
    EXPECT_EQ(pFirst->References(), 2);
    TnRobotPtr<ITnPoolElement> second = element;
    EXPECT_EQ(pFirst->References(), 3);
    element.reset();
    EXPECT_EQ(pFirst->Cleared(), 0);
    second.reset();
    EXPECT_EQ(pFirst->Cleared(), 1);
    EXPECT_EQ(pFirst->References(), 1);
    ASSERT_TRUE(pool->QueryPoolElement(0, nullptr, element.put()));
    EXPECT_EQ(element, pFirst);
}

TEST_F(RobotPtr, MakeObjectGivesNothingAwayWhenTheConstructorThrows) {
    struct Throwing : PtrProbe {
        Throwing() { throw 1; }
    };
    EXPECT_THROW((void)tn::MakeObject<Throwing>(), int);
}
