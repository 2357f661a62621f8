// Files that are written while the process is killed, a system call fails, or the disk is full: at every system
// call and at every byte. The old file or the new one is there, and where a save cannot promise that, the old
// one or the new one as far as it came.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "failure/Saves.h"
#include "support/bytes/FileBytes.h"
#include "support/processes/Limits.h"
#include "support/processes/Sanitizers.h"
#include "support/processes/SystemCalls.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

constexpr int kOld = 1;
constexpr int kNew = 2;

bool IsBeginning(const Bytes& bytes, const Bytes& whole) {
    return bytes.size() <= whole.size() && std::equal(bytes.begin(), bytes.end(), whole.begin());
}

// A directory with one file, which a save replaces.
class SavedFile {
public:
    explicit SavedFile(const Save& save) : m_save(save) {
        m_new = Written(kNew);
        m_old = Written(kOld);
        EXPECT_NE(m_old, m_new);
        EXPECT_FALSE(IsBeginning(m_old, m_new)) << "they could not be told apart";
    }

    void Restore() const {
        for (const std::string& strName : m_directory.Names()) {
            std::filesystem::remove(m_directory / strName);
        }
        WriteBytes(Path(), m_old);
    }

    std::string Path() const { return m_directory / ("saved" + std::string(m_save.lpszEnding)); }
    const Bytes& New() const { return m_new; }
    bool IsNew() const { return ReadBytes(Path()) == m_new; }
    bool IsOld() const { return ReadBytes(Path()) == m_old; }
    bool SaveNew() const { return m_save.run(Path().c_str(), kNew); }

    ChildProgram Program() const {
        ChildProgram program;
        program.path = TNROBOT_CRASH_PROGRAM;
        program.arguments = {m_save.lpszName, Path(), std::to_string(kNew)};
        return program;
    }

    // Whatever has happened.
    void ExpectPromised() const {
        const bool bWhole = IsOld() || IsNew();
        EXPECT_TRUE(bWhole || m_save.eLeaves == Leaves::kBeginning);
        EXPECT_TRUE(bWhole || IsBeginning(ReadBytes(Path()), m_new));
        if (std::string(m_save.lpszName) == "groups in place" && !IsOld()) {
            ExpectGroups();
        }
    }

    // Nothing but the file is there, and the result is true.
    // @param[in] bPlaced  whether the new file may be there in spite of a failure.
    void ExpectTold(bool bSaved, bool bPlaced) const {
        ExpectPromised();
        EXPECT_EQ(m_directory.Names().size(), 1U);
        if (bSaved && m_save.bReports) {
            EXPECT_TRUE(IsNew());
        }
        if (!bSaved && m_save.eLeaves == Leaves::kOldOrNew) {
            EXPECT_TRUE(IsOld() || (bPlaced && IsNew()));
        }
    }

    // A writer that is killed may leave the file that would have become the new one.
    void ExpectAtMostOneMore() const {
        std::vector<std::string> names = m_directory.Names();
        EXPECT_LE(names.size(), m_save.eLeaves == Leaves::kOldOrNew ? 2U : 1U);
        EXPECT_TRUE(names.size() == 1 || names.front().front() == '.') << names.front();
    }

private:
    Bytes Written(int nContent) const {
        EXPECT_TRUE(m_save.run(Path().c_str(), nContent));
        return ReadBytes(Path());
    }

    // All groups before the cut one can be read.
    void ExpectGroups() const {
        const std::size_t nBytes = ReadBytes(Path()).size();
        const std::size_t nFirst = (m_new.size() - 3) / 3;  // the second has a byte more, and the third two
        const int nWhole = nBytes >= m_new.size() ? 3 : nBytes >= 2 * nFirst + 1 ? 2 : nBytes >= nFirst ? 1 : 0;
        EXPECT_EQ(WholeGroups(Path(), kNew), nWhole);
    }

    const Save& m_save;
    const TempDirectory m_directory;
    Bytes m_old;
    Bytes m_new;
};

class TracedTest : public testing::TestWithParam<Save> {
protected:
    void SetUp() override {
        if (const std::string strReason = WhyNotTraced(); !strReason.empty()) {
            GTEST_SKIP() << strReason;
        }
        m_file.Restore();
        m_calls = CallsFrom(m_file.Program(), m_file.Path());
        ASSERT_GT(m_calls.size(), 2U);
        ASSERT_TRUE(m_file.IsNew());
    }

    const SavedFile m_file{GetParam()};
    std::vector<SystemCall> m_calls;
};

class KilledWriter : public TracedTest {};
class RefusedCall : public TracedTest {};
class InterruptedCall : public TracedTest {};
class FullDisk : public testing::TestWithParam<Save> {};

std::string NameOf(const testing::TestParamInfo<Save>& info) {
    std::string strName = info.param.lpszName;
    std::replace(strName.begin(), strName.end(), ' ', '_');
    return strName;
}

}  // namespace

namespace tntest {

void PrintTo(const Save& save, std::ostream* pOutput) {
    *pOutput << save.lpszName;
}

}  // namespace tntest

TEST_P(KilledWriter, LeavesWhatItPromises) {
    int nOld = 0;
    for (const SystemCall& call : Sampled(m_calls)) {
        SCOPED_TRACE("killed at " + call.Text());
        m_file.Restore();
        EXPECT_EQ(RunKilledAt(m_file.Program(), call).nSignal, SIGKILL);
        m_file.ExpectPromised();
        m_file.ExpectAtMostOneMore();
        nOld += m_file.IsOld() ? 1 : 0;
    }
    EXPECT_GT(nOld, 0);
    EXPECT_TRUE(m_file.IsNew()) << "it is killed at its end, too";
}

TEST_P(RefusedCall, IsReported) {
    int nRefused = 0;
    for (const SystemCall& call : Sampled(m_calls)) {
        for (const std::string& strError : ErrorsOf(call)) {
            SCOPED_TRACE(strError + " at " + call.Text());
            m_file.Restore();
            const ChildResult result = RunRefused(m_file.Program(), call, strError);
            EXPECT_TRUE(result.nExitCode == 0 || result.nExitCode == 1) << result.nExitCode << ' ' << result.nSignal;
            m_file.ExpectTold(result.nExitCode == 0, call.bPlaced);
            nRefused += result.nExitCode;
        }
    }
    // Of the few calls that are tried with a sanitizer it may be none.
    EXPECT_TRUE(nRefused > 0 ? GetParam().bReports : !GetParam().bReports || kSanitizerOwnsMemory) << nRefused;
}

TEST_P(InterruptedCall, IsNoFailure) {
    for (const SystemCall& call : Sampled(m_calls)) {
        if (CanBeInterrupted(call)) {
            SCOPED_TRACE(call.Text());
            m_file.Restore();
            EXPECT_EQ(RunRefused(m_file.Program(), call, "EINTR").nExitCode, 0);
            EXPECT_TRUE(m_file.IsNew());
            m_file.ExpectTold(true, false);
        }
    }
}

TEST_P(FullDisk, AtAnyByteIsReported) {
    const SavedFile file(GetParam());
    const std::size_t nStep = StepOf(file.New().size(), 150);
    for (std::size_t nRoom = 0; nRoom <= file.New().size(); nRoom += nStep) {
        SCOPED_TRACE(nRoom);
        file.Restore();
        bool bSaved = false;
        {
            const FileSizeLimit limit(nRoom);
            bSaved = file.SaveNew();
        }
        file.ExpectTold(bSaved, false);
        EXPECT_TRUE(!GetParam().bReports || bSaved == (nRoom == file.New().size()));
        if (nRoom < file.New().size() && nRoom + nStep > file.New().size()) {
            nRoom = file.New().size() - nStep;  // all of it is room enough
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Saves, KilledWriter, testing::ValuesIn(AllSaves()), NameOf);
INSTANTIATE_TEST_SUITE_P(Saves, RefusedCall, testing::ValuesIn(AllSaves()), NameOf);
INSTANTIATE_TEST_SUITE_P(Saves, InterruptedCall, testing::ValuesIn(AllSaves()), NameOf);
INSTANTIATE_TEST_SUITE_P(Saves, FullDisk, testing::ValuesIn(AllSaves()), NameOf);
