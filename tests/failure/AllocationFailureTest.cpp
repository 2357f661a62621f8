// Every scenario, with one allocation refused and with all from one on, for the first, the second,
// the third ... until the work needs no more.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <ostream>
#include <system_error>
#include <thread>

#include "checked/TnSanitizer.h"
#include "failure/AllocationScenario.h"
#include "support/fakes/TestObjects.h"
#include "support/threads/Gate.h"
#include "values/TnByteStorage.h"

namespace tntest {

namespace {

constexpr long kMostAllocations = 5000;
constexpr long kNever = std::numeric_limits<long>::max();

/// What all scenarios of this run of the program have come to.
struct Totals {
    long nScenarios = 0;
    long nAttempts = 0;
    long nRefused = 0;
};

Totals g_totals;

class Summary : public testing::Environment {
public:
    void TearDown() override {
        std::printf("%ld scenarios, %ld attempts, %ld allocations refused\n", g_totals.nScenarios, g_totals.nAttempts,
                    g_totals.nRefused);
    }
};

const testing::Environment* const s_pSummary = testing::AddGlobalTestEnvironment(new Summary);

/// What must be as it was when a scenario is over.
struct Living {
    long nAllocations = LiveAllocations();
    int nObjects = LiveObject::Count();

    bool operator==(const Living& other) const {
        return nAllocations == other.nAllocations && nObjects == other.nObjects;
    }
};

void PrintTo(const Living& living, std::ostream* pStream) {
    *pStream << living.nAllocations << " allocations, " << living.nObjects << " objects";
}

/// How an attempt ended.
struct Ending {
    bool bDone = false;
    long nRefused = 0;
    const char* lpszStray = nullptr;  ///< what was thrown although nothing documents it
};

/// Only what is documented may come out: no memory, or no thread where one was asked for.
Ending TryOnce(AllocationScenario& scenario, const RefusedAllocations& refused) {
    Ending ending;
    try {
        ending.bDone = scenario.Attempt();
    } catch (const std::bad_alloc&) {
        ending.bDone = false;
    } catch (const std::system_error& error) {
        const bool bNoThread = refused.CountThreads() > 0 && error.code() == std::errc::resource_unavailable_try_again;
        ending.lpszStray = bNoThread ? nullptr : "std::system_error";
    } catch (const std::exception&) {
        ending.lpszStray = "another std::exception";
    } catch (...) {
        ending.lpszStray = "something else";
    }
    ending.nRefused = refused.Count();
    return ending;
}

/// The whole of one trial, from making what the work needs to giving it back.
Ending TryCase(const AllocationCase& tried, Refuse eRefuse, long nFirst) {
    const std::unique_ptr<AllocationScenario> scenario = tried.make();
    Ending ending;
    {
        const RefusedAllocations refused(nFirst, eRefuse, tried.eThreads);
        ending = TryOnce(*scenario, refused);
    }
    EXPECT_TRUE(ending.lpszStray == nullptr) << "thrown: " << ending.lpszStray;
    EXPECT_TRUE(ending.bDone || ending.nRefused > 0) << "fails without a reason";
    scenario->Check(ending.bDone);
    return ending;
}

/// @return how many allocations were refused.
long TryAndCompare(const AllocationCase& tried, Refuse eRefuse, long nFirst) {
    const Living before;
    const Ending ending = TryCase(tried, eRefuse, nFirst);
    if (!testing::Test::HasFailure()) {  // the report of a failure is kept in memory
        EXPECT_EQ(Living(), before) << "something is left behind";
    }
    ++g_totals.nAttempts;
    g_totals.nRefused += ending.nRefused;
    return ending.nRefused;
}

}  // namespace

TEST_P(AllocationFailure, LeavesNothingBehind) {
    ++g_totals.nScenarios;
    TryCase(GetParam(), Refuse::kOne, kNever);  // what is made once in a process comes first
    long nRefusedInAll = 0;
    for (const Refuse eRefuse : {Refuse::kOne, Refuse::kAllFrom}) {
        long nFirst = 0;
        long nRefused = 0;
        do {
            nRefused = TryAndCompare(GetParam(), eRefuse, ++nFirst);
            nRefusedInAll += nRefused;
            EXPECT_TRUE(AwaitNewThreads(0)) << "a thread is left behind";
            ASSERT_FALSE(HasFailure()) << "at allocation " << nFirst << (eRefuse == Refuse::kOne ? "" : " and later");
            ASSERT_LT(nFirst, kMostAllocations) << "never gets through";
        } while (nRefused > 0);
    }
    EXPECT_EQ(nRefusedInAll > 0, GetParam().bAllocates);
    RecordProperty("refused", std::to_string(nRefusedInAll));
}

TEST(RefusedAllocations, ReachTheLibrarysMalloc) {
    tnrobot::ByteStorage storage;
    {
        const RefusedAllocations refused(1, Refuse::kOne, Threads::kCalling);
        EXPECT_THROW(storage.Resize(1000), std::bad_alloc);
        EXPECT_EQ(RefusedAllocations::Count(), 1);
    }
    const long nBefore = LiveAllocations();
    storage.Resize(1000);
    EXPECT_EQ(LiveAllocations(), nBefore + 1);
}

TEST(RefusedAllocations, AreOneOrAllFromThere) {
    const auto Answers = [](Refuse eRefuse) {
        const RefusedAllocations refused(2, eRefuse, Threads::kCalling);
        std::string strAnswers(3, '-');
        for (char& ch : strAnswers) {
            void* const p = std::malloc(1);
            ch = p != nullptr ? '+' : '-';
            std::free(p);
        }
        return strAnswers;
    };
    EXPECT_EQ(Answers(Refuse::kOne), "+-+");
    EXPECT_EQ(Answers(Refuse::kAllFrom), "+--");
}

TEST(RefusedAllocations, AreThoseOfOtherThreadsWhereAllAreMeant) {
    for (const Threads eThreads : {Threads::kCalling, Threads::kAll}) {
        bool bRefused = false;
        Gate gate;
        std::thread other([&] {
            gate.Pass();
            void* const p = std::malloc(1);
            bRefused = p == nullptr;
            std::free(p);
        });
        gate.AwaitArrival();
        {
            const RefusedAllocations refused(1, Refuse::kAllFrom, eThreads);
            gate.Open();
            other.join();
        }
        EXPECT_EQ(bRefused, eThreads == Threads::kAll);
    }
}

#ifdef TN_ADDRESS_SANITIZER
// Memory that does not come from the sanitizer would hide every access outside of it.
TEST(RefusedAllocations, LeaveTheMemoryToTheSanitizer) {
    constexpr std::size_t kSize = 13;
    const std::unique_ptr<char, decltype(&std::free)> byMalloc(static_cast<char*>(std::malloc(kSize)), std::free);
    const std::unique_ptr<char[]> byNew(new char[kSize]);
    EXPECT_EQ(__asan_address_is_poisoned(byMalloc.get() + kSize), 1);
    EXPECT_EQ(__asan_address_is_poisoned(byNew.get() + kSize), 1);
}
#endif

}  // namespace tntest
