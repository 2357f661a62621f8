// The command line of tnrobot-inspect, and how it treats terminals and unsuitable files.

#include <fcntl.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/bytes/PlainJpeg.h"
#include "support/processes/ResourceUse.h"
#include "tools/InspectProgram.h"

using namespace tntest;

namespace {

// Segments of 4 bytes each; the library does not decode what has no picture.
Bytes LargeJpeg(std::size_t nSize) {
    Bytes jpeg = FromHex("FFD8");
    while (jpeg.size() < nSize) {
        jpeg += FromHex("FFFE0002");
    }
    return jpeg + FromHex("FFD9");
}

// One group of short entries.
Bytes LargeGroup(std::size_t nSize) {
    Bytes entries;
    std::uint32_t nCount = 0;
    while (entries.size() < nSize) {
        entries += SavedString(std::to_string(nCount++)) + SavedValue(DATA_TYPE_BYTE, U8(7));
    }
    return U8(1) + U32(nCount) + entries;
}

Bytes LargeFileOfGroups(std::size_t nSize) {
    Bytes groups;
    while (groups.size() < nSize) {
        groups += SavedGroup({});
    }
    return groups;
}

// A chroot or a container may have no /dev/pts.
bool GivesTerminals() {
    const int nTerminal = posix_openpt(O_RDWR | O_NOCTTY);
    const bool bGiven = nTerminal >= 0 && grantpt(nTerminal) == 0 && unlockpt(nTerminal) == 0 &&
                        ptsname(nTerminal) != nullptr && access(ptsname(nTerminal), F_OK) == 0;
    close(nTerminal);
    return bGiven;
}

constexpr const char* kNoTerminal = "no terminal is to be had here (/dev/pts)";

class InspectCommandLine : public InspectProgram {
protected:
    /// Runs the program with a terminal for all its output. @return what the terminal received.
    std::string RunOnTerminal(const std::vector<std::string>& arguments, const char* lpszNoColour) const {
        int nTerminal = -1;
        const pid_t child = forkpty(&nTerminal, nullptr, nullptr, nullptr);
        if (child == 0) {
            constexpr unsigned int kLongestRunSeconds = 120;
            alarm(kLongestRunSeconds);
            setenv("TERM", "xterm", 1);
            setenv("NO_COLOR", lpszNoColour, 1);
            if (chdir(m_directory.Path().c_str()) == 0) {
                BecomeProgram(TNROBOT_INSPECT, arguments);
            }
            _exit(127);
        }
        std::string text;
        char buffer[4096];
        for (ssize_t nRead = 0; (nRead = read(nTerminal, buffer, sizeof(buffer))) > 0;) {
            text.append(buffer, static_cast<std::size_t>(nRead));
        }
        close(nTerminal);
        int nStatus = 0;
        waitpid(child, &nStatus, 0);
        EXPECT_TRUE(WIFEXITED(nStatus) && WEXITSTATUS(nStatus) <= 2);
        return text;
    }

    /// @return a directory of the fuzzers' seeds, one directory for each target.
    std::string WriteSeeds() const {
        const std::string directory = m_directory / "seeds";
        EXPECT_EQ(RunChild({TNROBOT_SEED_WRITER, {directory}, {}, {}}).nExitCode, 0);
        return directory;
    }
};

}  // namespace

TEST_F(InspectCommandLine, HelpAndVersionAreNoErrors) {
    EXPECT_NE(Run({"--help"}).output.find("Exit codes: 0 good"), std::string::npos);
    EXPECT_EQ(Run({"dump", "--help"}).nExitCode, 0);
    const ChildResult version = Run({"--version"});
    EXPECT_EQ(version.output.rfind("tnrobot-inspect 1.", 0), 0U);
    EXPECT_EQ(version.nExitCode, 0);
}

TEST_F(InspectCommandLine, WrongUsageIsTwo) {
    Write("g", SavedGroup({}));
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"nothing"},
        {"info"},
        {"dump", "g", "g"},
        {"diff", "g"},
        {"verify"},
        {"convert", "g"},
        {"info", "--kind", "png", "g"},
        {"info", "--max-memory", "0", "g"},
        {"info", "--color", "sometimes", "g"},
        {"info", "--unknown", "g"},
        {"info", "g", "dump", "g"},
    };
    for (const auto& arguments : wrong) {
        EXPECT_EQ(Run(arguments).nExitCode, 2) << ::testing::PrintToString(arguments);
        EXPECT_EQ(Run(arguments).output, "");
    }
}

TEST_F(InspectCommandLine, UnknownCommandsAreAnsweredWithTheKnownOnes) {
    EXPECT_EQ(RunForErrors({"check\x1b", "g"}).output,
              "There is no command check\\x1b; there are info, dump, diff, verify, convert.\n"
              "Run with --help for more information.\n");
    EXPECT_EQ(RunForErrors({}).output,
              "A command is missing; there are info, dump, diff, verify, convert.\n"
              "Run with --help for more information.\n");
    EXPECT_EQ(RunForErrors({"--version", "check"}).nExitCode, 2);
}

TEST_F(InspectCommandLine, UnsuitableFilesAreTwo) {
    Write("empty", {});
    Write("text", FromText("just some text, nothing else"));
    Write("large", Bytes((2 << 20) + 1, 'x'));
    ASSERT_EQ(mkfifo((m_directory / "pipe").c_str(), 0600), 0);
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } cases[] = {
        {{"missing"}, "missing: No such file or directory"},
        {{"."}, ".: not a regular file"},
        {{"pipe"}, "pipe: not a regular file"},
        {{"/dev/zero"}, "/dev/zero: not a regular file"},
        {{"empty"}, "empty: empty"},
        {{"text"},
         "text: neither value groups, nor a value, nor an archive with a map header, nor BMP, nor JPEG; --kind says "
         "what it should be"},
        {{"large", "--max-memory", "2"}, "large: larger than --max-memory, 2 MiB"},
    };
    for (const auto& unsuitable : cases) {
        for (const char* lpszCommand : {"info", "dump", "verify"}) {
            std::vector<std::string> arguments = {lpszCommand};
            arguments.insert(arguments.end(), unsuitable.arguments.begin(), unsuitable.arguments.end());
            const ChildResult result = RunForErrors(arguments);
            EXPECT_EQ(result.output, "tnrobot-inspect: " + unsuitable.error + "\n");
            EXPECT_EQ(result.nExitCode, 2);
        }
    }
}

// A file may have just as many MiB as --max-memory says, and so may a picture's rows of 4096 bytes.
TEST_F(InspectCommandLine, MaxMemoryIsWhatMayBeUsed) {
    constexpr std::size_t kOneMiB = 1 << 20;
    const std::size_t nOthers = SavedGroup({{"a", SavedValue(DATA_TYPE_BLOCK, {})}}).size();
    Write("exact", SavedGroup({{"a", SavedValue(DATA_TYPE_BLOCK, Bytes(kOneMiB - nOthers, 1))}}));
    Write("more", SavedGroup({{"a", SavedValue(DATA_TYPE_BLOCK, Bytes(kOneMiB - nOthers + 1, 1))}}));
    JpegRecipe recipe;
    recipe.nWidth = 1365;
    recipe.nHeight = 256;
    Write("exact.jpg", EncodePlain(recipe, Bytes(std::size_t{3} * 1365 * 256, 90)));
    recipe.nHeight = 257;
    Write("more.jpg", EncodePlain(recipe, Bytes(std::size_t{3} * 1365 * 257, 90)));
    for (const char* lpszFile : {"exact", "exact.jpg"}) {
        EXPECT_EQ(RunForErrors({"info", "--max-memory", "1", lpszFile}).output, "");
        EXPECT_EQ(Run({"info", "--max-memory", "1", lpszFile}).nExitCode, 0) << lpszFile;
    }
    for (const char* lpszFile : {"more", "more.jpg"}) {
        EXPECT_EQ(Run({"info", "--max-memory", "1", lpszFile}).nExitCode, 2) << lpszFile;
        EXPECT_EQ(Run({"info", "--max-memory", "2", lpszFile}).nExitCode, 0) << lpszFile;
    }
}

// Whatever a file is called, its name is only a name.
TEST_F(InspectCommandLine, FileNamesAreTakenLiterally) {
    const std::vector<std::string> names = {
        "[x]", "[x,y]", "[]", "++",     "{}",     "%%", "dump", "verify", "-",     "-5",       ",", "x,y", "a=b",
        "@x",  "--",    "-f", "--help", "--kind", "$x", "*",    "'x'",    "\"x\"", "--kind=x", "[", "]",   "a b"};
    Write("x", FromText("not what was asked for"));
    Write("y", FromText("not what was asked for"));
    std::vector<std::string> verify = {"verify", "--color", "never", "--"};
    std::string expected;
    for (const std::string& name : names) {
        Write(name, SavedGroup({}));
        verify.push_back(name);
        expected += name + ": good (value groups, 5 bytes)\n";
        for (const char* lpszCommand : {"info", "dump"}) {
            const ChildResult result = Run({lpszCommand, "--", name});
            EXPECT_EQ(result.nExitCode, 0) << name;
            EXPECT_EQ(result.output.rfind(name + ": value groups, 5 bytes", 0), 0U) << result.output;
        }
        EXPECT_EQ(Run({"diff", "--", name, name}).output, "equal\n") << name;
        if (name[0] != '-' || name == "-") {
            ExpectOutput({"verify", name, "--color=never"}, 0, name + ": good (value groups, 5 bytes)\n");
        }
    }
    ExpectOutput(verify, 0, expected);
    EXPECT_EQ(RunForErrors({"verify", ""}).output, "tnrobot-inspect: : No such file or directory\n");
}

TEST_F(InspectCommandLine, OptionsStandAnywhere) {
    Write("g", SavedGroup({}));
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"verify", "g", "--kind", "group", "g"},
                                                      {"verify", "--kind=group", "g", "g"},
                                                      {"verify", "g", "g", "--kind", "group", "--color", "auto"}}) {
        ExpectOutput(arguments, 0, "g: good (value groups, 5 bytes)\ng: good (value groups, 5 bytes)\n");
    }
}

// No memory for one file says nothing about the next.
TEST_F(InspectCommandLine, VerifyGoesOnWhereMemoryEnds) {
    if (kSanitizerOwnsMemory) {
        GTEST_SKIP() << "a sanitizer ends a program that has no memory";
    }
    const char* lpszPreloaded = std::getenv("LD_PRELOAD");
    if (lpszPreloaded != nullptr && std::string(lpszPreloaded).find("mimalloc") != std::string::npos) {
        GTEST_SKIP() << "mimalloc ends a program that has no memory, where others throw";
    }
    m_directory.SparseFile("huge", 900ULL << 20);
    Write("good", SavedGroup({}));
    const std::string limited = R"(ulimit -v 500000; exec "$@" 2>&1)";
    for (const char* lpszCommand : {"verify", "info", "dump"}) {
        std::vector<std::string> arguments = {lpszCommand, "huge"};
        std::string expected = "tnrobot-inspect: huge: not enough memory\n";
        if (lpszCommand == std::string("verify")) {
            arguments.emplace_back("good");
            expected += "good: good (value groups, 5 bytes)\n";
        }
        const ChildResult result = RunInShell(limited, arguments);
        EXPECT_EQ(result.output, expected);
        EXPECT_EQ(result.nExitCode, 2);
    }
}

// A limit of 96 MiB holds the program, its libraries, a file of 1 MiB and what grows with it at
// most as fast as the file, where a hundred times as much would not do.
TEST_F(InspectCommandLine, MemoryDoesNotGrowWithTheNumberOfThings) {
    if (kSanitizerOwnsMemory) {
        GTEST_SKIP() << "a sanitizer needs memory of its own";
    }
    if (IsEmulated()) {
        GTEST_SKIP() << "an emulator needs more memory of its own than the program may have";
    }
    const std::size_t nSize = 1 << 20;
    Write("segments", LargeJpeg(nSize));
    Write("entries", LargeGroup(nSize));
    Write("groups", LargeFileOfGroups(nSize));
    Write("text", SavedGroup({{"a", SavedValue(DATA_TYPE_STRING, Bytes(nSize, 'x') + U8(0))}}));
    Write("block", SavedGroup({{"a", SavedValue(DATA_TYPE_BLOCK, Bytes(nSize, 0xFF))}}));
    Write("no_text", SavedGroup({{"a", SavedValue(DATA_TYPE_STRING, Bytes(nSize, 0xFF) + U8(0))}}));
    const std::string limited = R"(ulimit -v 98304; exec "$@" 2>&1 >/dev/null)";
    for (const char* lpszFile : {"segments", "entries", "groups", "text", "block", "no_text"}) {
        for (const std::vector<std::string>& command : {std::vector<std::string>{"info"},
                                                        {"dump"},
                                                        {"dump", "--full"},
                                                        {"dump", "--json"},
                                                        {"verify"},
                                                        {"diff", lpszFile}}) {
            std::vector<std::string> arguments = command;
            arguments.emplace_back(lpszFile);
            const ChildResult result = RunInShell(limited, arguments);
            EXPECT_NE(result.nExitCode, 2) << lpszFile << " " << ::testing::PrintToString(command);
            EXPECT_EQ(result.output, "");
        }
    }
}

TEST_F(InspectCommandLine, VerifyGoesOnAndAnswersTheWorst) {
    Write("good", SavedGroup({}));
    Write("bad", FromHex("01 0100"));
    ExpectOutput({"verify", "bad", "good"}, 1,
                 "bad: damaged (value groups, 3 bytes)\n"
                 "  damage at 1: the file ends within the entry count\n"
                 "good: good (value groups, 5 bytes)\n");
    ExpectOutput({"verify", "missing", "good"}, 2, "good: good (value groups, 5 bytes)\n");
    EXPECT_EQ(Run({"verify", "missing", "bad", "good"}).nExitCode, 2);
    EXPECT_EQ(Run({"verify", "good", "good"}).nExitCode, 0);
}

TEST_F(InspectCommandLine, KindIsForced) {
    Write("g", SavedGroup({}));
    EXPECT_EQ(Run({"info", "--kind", "group", "g"}).nExitCode, 0);
    for (const char* lpszKind : {"value", "archive", "bmp", "jpeg"}) {
        EXPECT_EQ(Run({"info", "--kind", lpszKind, "g"}).nExitCode, 1) << lpszKind;
    }
}

TEST_F(InspectCommandLine, OutputThatCannotBeWrittenIsTwo) {
    Write("g", SavedGroup({}));
    ChildProgram program = InShell(R"("$@" >/dev/full 2>/dev/null; echo $?)", TNROBOT_INSPECT, {"info", "g"});
    program.directory = m_directory.Path().string();
    EXPECT_EQ(RunChild(program).output, "2\n");
}

TEST_F(InspectCommandLine, ColoursAreForTerminals) {
    if (!GivesTerminals()) {
        GTEST_SKIP() << kNoTerminal;
    }
    Write("g", SavedGroup({}));
    EXPECT_NE(RunOnTerminal({"verify", "g"}, "").find("\x1b[32mgood\x1b[0m"), std::string::npos);
    EXPECT_EQ(RunOnTerminal({"verify", "g"}, "1"), "g: good (value groups, 5 bytes)\r\n");
    EXPECT_EQ(RunOnTerminal({"verify", "--color", "never", "g"}, ""), "g: good (value groups, 5 bytes)\r\n");
    ExpectOutput({"verify", "g"}, 0, "g: good (value groups, 5 bytes)\n");
    ExpectOutput({"verify", "--color", "always", "g"}, 0, "g: \x1b[32mgood\x1b[0m (value groups, 5 bytes)\n");
}

TEST_F(InspectCommandLine, LongReadingShowsProgressOnATerminalOnly) {
    if (!GivesTerminals()) {
        GTEST_SKIP() << kNoTerminal;
    }
    Write("large.bmp", FromText("BM") + Bytes(20 << 20, 0));
    const std::string text = RunOnTerminal({"verify", "large.bmp"}, "1");
    EXPECT_NE(text.find("\rreading large.bmp 49 %"), std::string::npos);
    EXPECT_NE(text.find("\r\x1b[Klarge.bmp: damaged"), std::string::npos) << "the line is cleared before the result";
    EXPECT_EQ(RunForErrors({"verify", "large.bmp"}).output, "");
}

TEST_F(InspectCommandLine, CompletionKnowsCommandsOptionsAndFiles) {
    Write("picture.bmp", {});
    const struct {
        const char* lpszWords;
        const char* lpszCompletions;
    } cases[] = {
        {"du", "dump\n"},
        {"''", "info dump diff verify convert --help --version\n"},
        {"dump --f", "--full\n"},
        {"convert --f", "--force\n"},
        {"info --kind ''", "group value archive bmp jpeg\n"},
        {"info --color a", "auto always\n"},
        {"info --max-memory ''", "\n"},
        {"verify pic", "picture.bmp\n"},
    };
    for (const auto& expected : cases) {
        const std::string script =
            std::string(". '" TNROBOT_INSPECT_COMPLETION "'; COMP_WORDS=(tnrobot-inspect ") + expected.lpszWords +
            "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tnrobot_inspect; echo \"${COMPREPLY[*]}\"";
        const ChildResult result =
            RunChild({"/bin/bash", {"-c", script}, {}, m_directory.Path().string(), false, true});
        EXPECT_EQ(result.output, expected.lpszCompletions) << expected.lpszWords;
    }
}

// Whatever is in a file, the program ends by itself with one of its exit codes.
TEST_F(InspectCommandLine, SurvivesEveryFileOfTheFuzzers) {
    const int nEvery = IsEmulated() ? 10 : 1;  // starting the program takes an emulator long
    int nFiles = 0;
    for (const std::string& strRoot : {WriteSeeds(), std::string(TNROBOT_FUZZ_FINDINGS)}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(strRoot)) {
            if (!entry.is_regular_file() || ++nFiles % nEvery != 0) {
                continue;
            }
            for (const std::vector<std::string>& command :
                 {std::vector<std::string>{"info"}, {"dump"}, {"dump", "--json"}, {"verify"}}) {
                std::vector<std::string> arguments = command;
                arguments.push_back(entry.path().string());
                const int nExitCode = Run(arguments).nExitCode;
                EXPECT_TRUE(nExitCode >= 0 && nExitCode <= 2) << command[0] << " " << entry.path() << " " << nExitCode;
            }
        }
    }
    EXPECT_GT(nFiles, 100);
}

// Bytes all over a good file of each kind, changed one at a time.
TEST_F(InspectCommandLine, SurvivesChangedFiles) {
    const std::size_t nStep = IsEmulated() ? 30 : 3;  // starting the program takes an emulator long
    const std::string seeds = WriteSeeds();
    for (const char* lpszSeed : {"group_load/all_types", "object_graph/shared_and_null", "bmp_file/colour"}) {
        Bytes bytes = ReadBytes(seeds + "/" + lpszSeed);
        ASSERT_FALSE(bytes.empty()) << lpszSeed;
        for (std::size_t i = 0; i < bytes.size(); i += nStep) {
            bytes[i] ^= 0xFF;
            Write("changed", bytes);
            bytes[i] ^= 0xFF;
            const int nExitCode = Run({"dump", "--json", "changed"}).nExitCode;
            EXPECT_TRUE(nExitCode >= 0 && nExitCode <= 2) << lpszSeed << " byte " << i << ": " << nExitCode;
        }
    }
}
