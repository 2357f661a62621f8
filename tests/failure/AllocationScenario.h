// Pieces of work that are tried with every allocation refused in turn.

#ifndef TNROBOTKERNEL_TESTS_FAILURE_ALLOCATIONSCENARIO_H_
#define TNROBOTKERNEL_TESTS_FAILURE_ALLOCATIONSCENARIO_H_

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "support/fakes/FailingNew.h"
#include "support/objects/ValuePool.h"
#include "support/threads/ThreadTest.h"

namespace tntest {

/// One piece of work. The constructor makes what the work needs and the destructor gives all of it
/// back: what is still allocated afterwards is a leak.
class AllocationScenario {
public:
    AllocationScenario() = default;
    AllocationScenario(const AllocationScenario&) = delete;
    AllocationScenario& operator=(const AllocationScenario&) = delete;
    virtual ~AllocationScenario() = default;

    /// The work, while allocations are refused. Lets std::bad_alloc through, and std::system_error
    /// of a thread that could not be started; everything else that is thrown is an error.
    /// @return whether it was done; false stands for the result that is documented for failure.
    virtual bool Attempt() = 0;

    /// Looks at what the attempt has left, with all memory there is: the whole result when it was
    /// done, and otherwise objects that are as documented and do the work when they are asked again.
    virtual void Check(bool bDone) = 0;
};

struct AllocationCase {
    std::string strName;
    /// Work that starts threads is tried with the allocations of all of them, since their part of
    /// it must fail as cleanly. All other work is done by its caller alone.
    Threads eThreads;
    bool bAllocates;  ///< otherwise the work must not allocate at all
    std::function<std::unique_ptr<AllocationScenario>()> make;
};

/// A case whose scenario is made from the arguments each time.
template <typename Scenario, typename... Args>
AllocationCase MakeCase(std::string strName, Args... args) {
    return {std::move(strName), Threads::kCalling, true,
            [args...]() -> std::unique_ptr<AllocationScenario> { return std::make_unique<Scenario>(args...); }};
}

template <typename Scenario>
AllocationCase MakeThreadedCase(std::string strName) {
    AllocationCase made = MakeCase<Scenario>(std::move(strName));
    made.eThreads = Threads::kAll;
    return made;
}

template <typename Scenario>
AllocationCase MakeFreeCase(std::string strName) {
    AllocationCase made = MakeCase<Scenario>(std::move(strName));
    made.bAllocates = false;
    return made;
}

/// The suite of all scenarios; each file of them adds its own. There is no process-wide value pool
/// meanwhile: what it keeps for later would count as left behind.
class AllocationFailure : public ThreadTest, public testing::WithParamInterface<AllocationCase> {
private:
    NoValuePool m_noPool;
};

inline void PrintTo(const AllocationCase& tried, std::ostream* pStream) {
    *pStream << tried.strName;
}

/// For INSTANTIATE_TEST_SUITE_P.
inline std::string AllocationCaseName(const testing::TestParamInfo<AllocationCase>& info) {
    return info.param.strName;
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_FAILURE_ALLOCATIONSCENARIO_H_
