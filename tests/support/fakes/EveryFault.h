// Lets a file fail at its first call, at its second ... and looks at what is left behind.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_FAKES_EVERYFAULT_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_FAKES_EVERYFAULT_H_

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

#include "support/fakes/TestBlocks.h"
#include "support/fakes/TestFile.h"
#include "support/fakes/TestObjects.h"
#include "support/processes/Descriptors.h"
#include "support/threads/Watchdog.h"

namespace tntest {

/// What must be there again after a failure as it was before.
struct Census {
    int nFiles;
    int nObjects;
    int nBlocks;
    std::size_t nDescriptors;

    static Census Take() {
        return {TestFile::LiveCount(), LiveObject::Count(), TestBlock::LiveCount(), CountDescriptors()};
    }
};

inline bool operator==(const Census& left, const Census& right) {
    return left.nFiles == right.nFiles && left.nObjects == right.nObjects && left.nBlocks == right.nBlocks &&
           left.nDescriptors == right.nDescriptors;
}

inline std::ostream& operator<<(std::ostream& out, const Census& census) {
    return out << census.nFiles << " files, " << census.nObjects << " objects, " << census.nBlocks << " blocks, "
               << census.nDescriptors << " descriptors";
}

inline std::ostream& operator<<(std::ostream& out, const FileFault& fault) {
    constexpr const char* kNames[] = {"read", "write", "seek"};
    return out << kNames[static_cast<int>(fault.eCall)] << ' ' << fault.nCall << " answers " << fault.nAnswer
               << (fault.bFromThenOn ? " from then on" : "");
}

/// The ways in which a call of the kind can fail.
inline std::vector<long long> AnswersOf(FileCall eCall) {
    return eCall == FileCall::kSeek ? std::vector<long long>{-1} : std::vector<long long>{0, -1, TestFile::kShort};
}

/// Runs the work with call nCall of a fresh file failing. It must give back everything it took.
/// @return the number of calls that failed.
template <typename Work>
int FailCall(const FileFault& fault, const Bytes& content, Work& work) {
    SCOPED_TRACE(testing::Message() << fault);
    const Census before = Census::Take();
    const TnRobotPtr<TestFile> file = TestFile::Create(content);
    file->Fail(fault);
    work(*file, fault);
    EXPECT_EQ(file->References(), 1);
    const Census after = Census::Take();
    EXPECT_EQ(after.nFiles, before.nFiles + 1);
    EXPECT_EQ((Census{before.nFiles, after.nObjects, after.nBlocks, after.nDescriptors}), before);
    return file->FailedCalls();
}

/// A test that lets things fail. It must end in time, and its record holds how many failures it
/// has injected.
class FaultTest : public testing::Test {
protected:
    static constexpr unsigned int kSeconds = 240;

    void TearDown() override {
        EXPECT_GT(m_nInjected, 0);
        RecordProperty("injected_failures", m_nInjected);
    }

    void CountInjected(int nFailures = 1) { m_nInjected += nFailures; }

    /// Runs the work with its first call of a kind failing, then with its second ... until it gets
    /// through untouched; and that for every way in which a call can fail, once and from then on.
    /// @param[in] work  (TestFile& file, const FileFault& fault); file.FailedCalls() says whether
    ///                  the fault was met.
    template <typename Work>
    void FailEveryCall(FileCall eCall, const Bytes& content, Work work) {
        for (long long nAnswer : AnswersOf(eCall)) {
            for (bool bFromThenOn : {false, true}) {
                FailUntilThrough({eCall, 1, nAnswer, bFromThenOn}, content, work);
            }
        }
    }

private:
    template <typename Work>
    void FailUntilThrough(FileFault fault, const Bytes& content, Work& work) {
        constexpr int kMostCalls = 100000;
        int nFailed = 1;
        for (; nFailed != 0 && fault.nCall <= kMostCalls && !HasFailure(); ++fault.nCall) {
            nFailed = FailCall(fault, content, work);
            m_nInjected += nFailed;
        }
        EXPECT_LE(fault.nCall, kMostCalls) << "never gets through";
    }

    Watchdog m_watchdog{kSeconds};
    int m_nInjected = 0;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_FAKES_EVERYFAULT_H_
