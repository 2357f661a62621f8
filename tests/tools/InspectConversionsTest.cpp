// Where the files go that tnrobot-inspect converts to: an old file is replaced whole or not at all.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "support/bytes/BmpBytes.h"
#include "support/bytes/PlainJpeg.h"
#include "support/processes/Sanitizers.h"
#include "tools/InspectProgram.h"
#include "tools/ProgramUnderSignals.h"

using namespace tntest;
namespace fs = std::filesystem;

namespace {

class InspectConversions : public InspectProgram {
protected:
    void SetUp() override {
        Write("p.bmp", BmpFile24(4, 2, Bytes(24, 77)));
        EXPECT_EQ(Run({"convert", "p.bmp", "expected.jpg"}).nExitCode, 0);
        m_expected = ReadBytes(m_directory / "expected.jpg");
        fs::remove(m_directory / "expected.jpg");
    }

    mode_t ModeOf(const std::string& name) const {
        struct stat status {};
        EXPECT_EQ(lstat((m_directory / name).c_str(), &status), 0) << name;
        return status.st_mode & 07777;
    }

    /// @return the names in a directory of the test's.
    std::vector<std::string> Names(const std::string& directory = ".") const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(m_directory / directory)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    bool IsExpected(const std::string& name) const { return ReadBytes(m_directory / name) == m_expected; }

    void Link(const std::string& target, const std::string& name) const {
        fs::create_symlink(target, m_directory / name);
    }

    Bytes m_expected;
};

const Bytes kMine = FromText("mine");

constexpr char kCannotBeTraced[] = "what an emulator runs cannot be traced: it has no ptrace";

}  // namespace

TEST_F(InspectConversions, TheOldFilesModeStays) {
    Write("p.jpg", kMine);
    for (const mode_t nMode : {0600U, 0640U, 0444U, 0755U, 0606U}) {
        ASSERT_EQ(chmod((m_directory / "p.jpg").c_str(), nMode), 0);
        EXPECT_EQ(Run({"convert", "-f", "p.bmp", "p.jpg"}).nExitCode, 0);
        EXPECT_EQ(ModeOf("p.jpg"), nMode);
        EXPECT_TRUE(IsExpected("p.jpg"));
    }
}

TEST_F(InspectConversions, ALinkStaysAndItsTargetIsReplaced) {
    m_directory.Directory("there");
    Write("there/target.jpg", kMine);
    ASSERT_EQ(chmod((m_directory / "there/target.jpg").c_str(), 0600), 0);
    Link("there/second", "first.jpg");
    Link("target.jpg", "there/second");
    Link((m_directory / "there/target.jpg"), "absolute.jpg");
    for (const char* lpszLink : {"first.jpg", "absolute.jpg"}) {
        Write("there/target.jpg", kMine);
        EXPECT_EQ(Run({"convert", "--force", "p.bmp", lpszLink}).nExitCode, 0);
        EXPECT_TRUE(fs::is_symlink(m_directory / lpszLink));
        EXPECT_TRUE(fs::is_symlink(m_directory / "there/second"));
        EXPECT_TRUE(IsExpected("there/target.jpg"));
        EXPECT_EQ(ModeOf("there/target.jpg"), 0600U);
    }
    EXPECT_EQ(Names("there"), (std::vector<std::string>{"second", "target.jpg"}));
}

TEST_F(InspectConversions, ALinkThatLeadsNowhereIsThereAlready) {
    Link("nothing.jpg", "p.jpg");
    const ChildResult refused = RunForErrors({"convert", "p.bmp", "p.jpg"});
    EXPECT_EQ(refused.output, "tnrobot-inspect: p.jpg: is there already; --force replaces it\n");
    EXPECT_EQ(refused.nExitCode, 2);
    EXPECT_EQ(Names(), (std::vector<std::string>{"p.bmp", "p.jpg"}));
    EXPECT_TRUE(fs::is_symlink(m_directory / "p.jpg"));

    EXPECT_EQ(Run({"convert", "-f", "p.bmp", "p.jpg"}).nExitCode, 0);
    EXPECT_TRUE(fs::is_symlink(m_directory / "p.jpg"));
    EXPECT_TRUE(IsExpected("nothing.jpg"));
    Link("no/directory.jpg", "q.jpg");
    EXPECT_EQ(RunForErrors({"convert", "-f", "p.bmp", "q.jpg"}).output,
              "tnrobot-inspect: q.jpg: cannot be written: No such file or directory\n");
    Link("r.jpg", "r.jpg");
    EXPECT_EQ(RunForErrors({"convert", "-f", "p.bmp", "r.jpg"}).output,
              "tnrobot-inspect: r.jpg: cannot be written: Too many levels of symbolic links\n");
}

TEST_F(InspectConversions, WhatIsNoRegularFileIsNotTouched) {
    ASSERT_EQ(mkfifo((m_directory / "fifo.jpg").c_str(), 0600), 0);
    m_directory.Directory("directory.jpg");
    Link("/dev/null", "device.jpg");
    const std::vector<std::string> before = Names();
    for (const char* lpszOutput : {"fifo.jpg", "directory.jpg", "device.jpg"}) {
        const ChildResult result = RunForErrors({"convert", "-f", "p.bmp", lpszOutput});
        EXPECT_EQ(result.output,
                  "tnrobot-inspect: " + std::string(lpszOutput) + ": cannot be written: not a regular file\n");
        EXPECT_EQ(result.nExitCode, 2);
    }
    EXPECT_EQ(Names(), before);
    EXPECT_TRUE(fs::is_fifo(m_directory / "fifo.jpg"));
    EXPECT_TRUE(fs::is_symlink(m_directory / "device.jpg"));
}

TEST_F(InspectConversions, AFullDiskKeepsTheOldFile) {
    Write("p.jpg", kMine);
    std::string limited = R"(ulimit -f 0; exec "$@" 2>/dev/null)";
    if (kThreadSanitizer) {
        limited = "trap '' XFSZ; " + limited;  // the sanitizer writes a file of its own before the program begins
    }
    for (const char* lpszOutput : {"p.jpg", "new.jpg", "new.bmp"}) {
        EXPECT_EQ(RunInShell(limited, {"convert", "-f", "p.bmp", lpszOutput}).nExitCode, 2);
    }
    EXPECT_EQ(ReadBytes(m_directory / "p.jpg"), kMine);
    EXPECT_EQ(Names(), (std::vector<std::string>{"p.bmp", "p.jpg"}));
}

// Whenever a signal comes, the old file or the new one is there, whole, and nothing else.
TEST_F(InspectConversions, SignalsLeaveNothingBehind) {
    if (IsEmulated()) {
        GTEST_SKIP() << kCannotBeTraced;
    }
    const TracedProgram program = {
        {TNROBOT_INSPECT, "convert", "-f", "p.bmp", "p.jpg"}, m_directory.Path().string(), 0};
    int nFirst = -1;
    const ProgramEnd undisturbed = RunTraced(program, [&](int nStop) {
        nFirst = nFirst < 0 && Names().size() > 1 ? nStop : nFirst;
        return 0;
    });
    ASSERT_EQ(undisturbed.nExitCode, 0);
    ASSERT_GT(nFirst, 0);
    const int signals[] = {SIGTERM, SIGINT, SIGHUP};
    int nEndedWithTheOldFile = 0;
    for (int nChosen = nFirst - 4; nChosen < undisturbed.nStops; ++nChosen) {
        const int nSignal = signals[nChosen % 3];
        Write("p.jpg", kMine);
        const ProgramEnd end = RunTraced(program, [&](int nStop) { return nStop == nChosen ? nSignal : 0; });
        EXPECT_TRUE(end.nSignal == nSignal || end.nExitCode == 0) << nChosen << " " << end.nSignal;
        EXPECT_EQ(Names(), (std::vector<std::string>{"p.bmp", "p.jpg"})) << nChosen;
        const bool bOld = ReadBytes(m_directory / "p.jpg") == kMine;
        EXPECT_TRUE(bOld || IsExpected("p.jpg")) << nChosen;
        nEndedWithTheOldFile += bOld ? 1 : 0;
    }
    EXPECT_GT(nEndedWithTheOldFile, 10);
}

// As under nohup.
TEST_F(InspectConversions, IgnoredSignalsStayIgnored) {
    if (IsEmulated()) {
        GTEST_SKIP() << kCannotBeTraced;
    }
    const TracedProgram program = {
        {TNROBOT_INSPECT, "convert", "-f", "p.bmp", "p.jpg"}, m_directory.Path().string(), SIGHUP};
    const ProgramEnd end = RunTraced(program, [](int nStop) { return nStop % 2 == 0 ? SIGHUP : 0; });
    EXPECT_EQ(end.nExitCode, 0);
    EXPECT_TRUE(IsExpected("p.jpg"));
}

// Whoever is faster keeps his file: it has appeared after the program has looked.
TEST_F(InspectConversions, AFileThatAppearsMeanwhileStays) {
    if (IsEmulated()) {
        GTEST_SKIP() << kCannotBeTraced;
    }
    const TracedProgram program = {{TNROBOT_INSPECT, "convert", "p.bmp", "p.jpg"}, m_directory.Path().string(), 0};
    bool bWritten = false;
    const ProgramEnd end = RunTraced(program, [&](int) {
        if (!bWritten && Names().size() > 1) {
            Write("p.jpg", kMine);
            bWritten = true;
        }
        return 0;
    });
    EXPECT_EQ(end.nExitCode, 2);
    EXPECT_TRUE(bWritten);
    EXPECT_EQ(ReadBytes(m_directory / "p.jpg"), kMine);
    EXPECT_EQ(Names(), (std::vector<std::string>{"p.bmp", "p.jpg"}));
}
