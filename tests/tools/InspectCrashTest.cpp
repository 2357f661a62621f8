// A conversion that is killed, refused or short of disk at every system call and byte: the old file or the new
// one is there.

#include <csignal>

#include "support/bytes/BmpBytes.h"
#include "support/processes/Limits.h"
#include "support/processes/Sanitizers.h"
#include "support/processes/SystemCalls.h"
#include "tools/InspectProgram.h"

using namespace tntest;

namespace {

class InspectCrash : public InspectProgram {
protected:
    void SetUp() override {
        Write("p.bmp", BmpFile24(4, 2, Bytes(24, 77)));
        Restore();
        ASSERT_EQ(Convert().nExitCode, 0);
        m_new = ReadBytes(m_directory / "p.jpg");
        Restore();
    }

    void Restore() const {
        for (const std::string& strName : m_directory.Names()) {
            if (strName != "p.bmp") {
                std::filesystem::remove(m_directory / strName);
            }
        }
        Write("p.jpg", m_old);
    }

    ChildProgram Program() const {
        ChildProgram program;
        program.path = TNROBOT_INSPECT;
        program.arguments = {"convert", "-f", "p.bmp", "p.jpg"};
        program.directory = m_directory.Path().string();
        program.bWithErrors = true;
        return program;
    }

    ChildResult Convert() const { return RunChild(Program()); }
    std::vector<SystemCall> Calls() const { return Sampled(CallsFrom(Program(), "p.jpg")); }
    bool IsNew() const { return ReadBytes(m_directory / "p.jpg") == m_new; }
    bool IsOld() const { return ReadBytes(m_directory / "p.jpg") == m_old; }

    // A conversion that has ended by itself says whether it has worked, and leaves nothing else.
    void ExpectTold(const ChildResult& result, bool bPlaced) const {
        EXPECT_EQ(result.nSignal, 0);
        EXPECT_TRUE(result.nExitCode == 0 ? IsNew() : IsOld() || (bPlaced && IsNew())) << result.output;
        EXPECT_TRUE(result.nExitCode == 0 || !result.output.empty()) << "it says why";
        EXPECT_EQ(m_directory.Names(), (std::vector<std::string>{"p.bmp", "p.jpg"}));
    }

    const Bytes m_old = FromText("mine");
    Bytes m_new;
};

class TracedInspectCrash : public InspectCrash {
protected:
    void SetUp() override {
        if (const std::string strReason = WhyNotTraced(); !strReason.empty()) {
            GTEST_SKIP() << strReason;
        }
        InspectCrash::SetUp();
        ASSERT_GT(Calls().size(), 3U);
    }
};

}  // namespace

TEST_F(TracedInspectCrash, AKilledConversionLeavesAWholeFile) {
    for (const SystemCall& call : Calls()) {
        SCOPED_TRACE("killed at " + call.Text());
        Restore();
        EXPECT_EQ(RunKilledAt(Program(), call).nSignal, SIGKILL);
        EXPECT_TRUE(IsOld() || IsNew());
        EXPECT_LE(m_directory.Names().size(), 3U) << "at most the file that would have become the new one";
    }
    EXPECT_TRUE(IsNew()) << "it is killed at its end, too";
}

TEST_F(TracedInspectCrash, ARefusedCallIsReported) {
    int nRefused = 0;
    for (const SystemCall& call : Calls()) {
        for (const std::string& strError : ErrorsOf(call)) {
            SCOPED_TRACE(strError + " at " + call.Text());
            Restore();
            const ChildResult result = RunRefused(Program(), call, strError);
            ExpectTold(result, call.bPlaced);
            nRefused += result.nExitCode != 0 ? 1 : 0;
        }
    }
    // Of the few calls that are tried with a sanitizer it may be none.
    EXPECT_TRUE(nRefused > 0 || kSanitizerOwnsMemory);
}

TEST_F(TracedInspectCrash, AnInterruptedCallIsNoFailure) {
    for (const SystemCall& call : Calls()) {
        if (CanBeInterrupted(call)) {
            SCOPED_TRACE(call.Text());
            Restore();
            const ChildResult result = RunRefused(Program(), call, "EINTR");
            EXPECT_EQ(result.nExitCode, 0) << result.output;
            ExpectTold(result, false);
        }
    }
}

TEST_F(InspectCrash, ADiskThatIsFullAtAnyByteIsReported) {
    const std::size_t nStep = StepOf(m_new.size(), 30);
    for (std::size_t nRoom = 0; nRoom <= m_new.size(); nRoom += nStep) {
        SCOPED_TRACE(nRoom);
        Restore();
        ChildResult result;
        {
            const FileSizeLimit limit(nRoom);
            result = Convert();
        }
        ExpectTold(result, false);
        EXPECT_EQ(result.nExitCode == 0, nRoom >= m_new.size());
    }
}
