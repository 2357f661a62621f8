// How SaveTo replaces a file: never in place, never partly, and only what is a file.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TnRobotKernel/make.h"
#include "support/bytes/FileBytes.h"
#include "support/processes/ChildProcess.h"
#include "support/processes/Descriptors.h"
#include "support/processes/Limits.h"
#include "support/processes/SystemCalls.h"
#include "support/processes/TempDirectory.h"
#include "support/threads/Watchdog.h"

using namespace tntest;

namespace {

using Group = TnRobotPtr<ITnRobotDataValueGroup>;

constexpr mode_t kModeBits = 07777;
constexpr uid_t kNobody = 65534;

// A group that says which one it is at both ends.
Group Numbered(int nNumber, std::size_t nLength = 100) {
    Group group = tn::MakeValueDataGroup();
    group->SetValue("number", nNumber);
    group->SetValue("text", std::string(nLength, static_cast<char>('0' + nNumber % 10)).c_str());
    return group;
}

// Which one a file holds; below 0 when it is not whole.
int NumberIn(const std::string& strPath) {
    const Group group = tn::MakeValueDataGroup();
    if (!tn::LoadFrom(strPath.c_str(), *group)) {
        return -1;
    }
    const int nNumber = group->IntData("number", nullptr);
    const std::string strText = group->StringData("text", nullptr);
    return strText == std::string(strText.size(), static_cast<char>('0' + nNumber % 10)) ? nNumber : -2;
}

struct stat StatusOf(const std::string& strPath) {
    struct stat status = {};
    EXPECT_EQ(lstat(strPath.c_str(), &status), 0) << strPath;
    return status;
}

mode_t ModeOf(const std::string& strPath) {
    return StatusOf(strPath).st_mode & kModeBits;
}

// An entry of an access list as the system keeps it: for whom, which rights, and whose number.
struct AccessEntry {
    std::uint16_t nTag;
    std::uint16_t nRights;
    std::uint32_t nWho = 0xFFFFFFFFU;
};

constexpr char kAccessList[] = "system.posix_acl_access";

std::string AccessList(const std::vector<AccessEntry>& entries) {
    const std::uint32_t nVersion = 2;
    std::string strList(reinterpret_cast<const char*>(&nVersion), sizeof(nVersion));
    return strList.append(reinterpret_cast<const char*>(entries.data()), entries.size() * sizeof(AccessEntry));
}

std::string AccessListOf(const std::string& strPath) {
    char list[512];
    const ssize_t nList = getxattr(strPath.c_str(), kAccessList, list, sizeof(list));
    return std::string(list, nList > 0 ? static_cast<std::size_t>(nList) : 0);
}

class Umask {
public:
    explicit Umask(mode_t nMask) : m_nBefore(umask(nMask)) {}
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;
    ~Umask() { umask(m_nBefore); }

private:
    const mode_t m_nBefore;
};

// Runs work in a child process as a user without rights. @return its result, or below 0.
int AsNobody(const std::function<bool()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        const bool bChanged = setegid(kNobody) == 0 && seteuid(kNobody) == 0;
        _exit(bChanged ? (work() ? 1 : 0) : 2);
    }
    int nStatus = 0;
    waitpid(child, &nStatus, 0);
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
}

// How often a line of a text begins with another one.
std::size_t LinesWith(const std::string& strText, const std::string& strBeginning) {
    std::istringstream lines(strText);
    std::size_t nLines = 0;
    for (std::string strLine; std::getline(lines, strLine);) {
        nLines += strLine.rfind(strBeginning, 0) == 0 ? 1 : 0;
    }
    return nLines;
}

// Runs the program of one save under strace.
ChildResult Traced(std::vector<std::string> options, const std::vector<std::string>& arguments) {
    ChildProgram program;
    program.path = TNROBOT_SAVE_PROBE;
    program.arguments = arguments;
    return RunTraced(program, options);
}

class ReplacedFile : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(CountDescriptors(), m_nDescriptors); }

    std::string Path(const std::string& strName) const { return m_directory / strName; }
    bool Save(const std::string& strName, int nNumber) const {
        return tn::SaveTo(Path(strName).c_str(), *Numbered(nNumber));
    }
    void ExpectNames(const std::vector<std::string>& names) const { EXPECT_EQ(m_directory.Names(), names); }

    const TempDirectory m_directory;
    const std::size_t m_nDescriptors = CountDescriptors();
};

}  // namespace

TEST_F(ReplacedFile, ModeBitsStay) {
    ASSERT_TRUE(Save("a", 1));
    for (mode_t nMode : {0600U, 0640U, 0664U, 0755U, 0777U, 0200U, 02755U, 04755U, 01644U}) {
        ASSERT_EQ(chmod(Path("a").c_str(), nMode), 0);
        if (faccessat(AT_FDCWD, Path("a").c_str(), W_OK, AT_EACCESS) == 0) {
            EXPECT_TRUE(Save("a", 2)) << std::oct << nMode;
            EXPECT_EQ(ModeOf(Path("a")), nMode);
        }
    }
    ExpectNames({"a"});
}

TEST_F(ReplacedFile, NewFilesFollowTheUmask) {
    int nFile = 0;
    for (mode_t nMask : {0022U, 0027U, 0077U, 0000U, 0777U, 0222U}) {
        const Umask umask(nMask);
        const std::string strName = std::to_string(++nFile);
        EXPECT_TRUE(Save(strName, 1)) << std::oct << nMask;
        EXPECT_EQ(ModeOf(Path(strName)), 0666U & ~nMask);
        EXPECT_TRUE(Save(strName, 2) || geteuid() != 0);
        EXPECT_EQ(ModeOf(Path(strName)), 0666U & ~nMask);
    }
}

TEST_F(ReplacedFile, OwnerAndGroupStayWhereThatIsPermitted) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may give files away";
    }
    ASSERT_TRUE(Save("a", 1));
    ASSERT_EQ(chown(Path("a").c_str(), 12345, 23456), 0);
    ASSERT_EQ(chmod(Path("a").c_str(), 04640), 0);
    ASSERT_TRUE(Save("a", 2));
    const struct stat status = StatusOf(Path("a"));
    EXPECT_EQ(status.st_uid, 12345U);
    EXPECT_EQ(status.st_gid, 23456U);
    EXPECT_EQ(status.st_mode & kModeBits, 04640U);
}

// The rights of the old group are not for the group that the new file happens to have.
TEST_F(ReplacedFile, AGroupThatCannotStayPassesNoRightsOn) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become somebody else";
    }
    ASSERT_EQ(chmod(m_directory.Path().c_str(), 0777), 0);
    ASSERT_TRUE(Save("a", 1));
    ASSERT_EQ(chmod(Path("a").c_str(), 06676), 0);
    ASSERT_EQ(AsNobody([this] { return Save("a", 2); }), 1);
    EXPECT_EQ(StatusOf(Path("a")).st_uid, kNobody);
    EXPECT_EQ(ModeOf(Path("a")), 0666U);
    EXPECT_EQ(NumberIn(Path("a")), 2);
}

// Where a file has an access list, the rights of its group are in the list, and its mode shows the most
// that anybody has.
TEST_F(ReplacedFile, AccessListsStayAndAreNotTakenFromTheDirectory) {
    ASSERT_TRUE(Save("a", 1));
    const std::string strList = AccessList({{1, 6}, {2, 6, 12345}, {4, 0}, {16, 6}, {32, 0}});
    if (setxattr(Path("a").c_str(), kAccessList, strList.data(), strList.size(), 0) != 0) {
        GTEST_SKIP() << "the file system has no access lists";
    }
    ASSERT_TRUE(Save("a", 2));
    EXPECT_EQ(AccessListOf(Path("a")), strList);
    EXPECT_EQ(ModeOf(Path("a")), 0660U);

    ASSERT_TRUE(Save("b", 1));
    ASSERT_EQ(chmod(Path("b").c_str(), 0664), 0);
    const std::string strDefault = AccessList({{1, 7}, {2, 7, 12345}, {4, 7}, {16, 7}, {32, 5}});
    const std::string strDirectory = m_directory.Path();
    ASSERT_EQ(setxattr(strDirectory.c_str(), "system.posix_acl_default", strDefault.data(), strDefault.size(), 0), 0);
    ASSERT_TRUE(Save("b", 2));
    EXPECT_EQ(AccessListOf(Path("b")), "");
    EXPECT_EQ(ModeOf(Path("b")), 0664U);
    ASSERT_TRUE(Save("c", 1));
    EXPECT_NE(AccessListOf(Path("c")), "") << "a new file has what its directory gives";
}

// A list speaks of the old group, and its rights are not for the group that the new file happens to have.
TEST_F(ReplacedFile, AnAccessListWhoseGroupCannotStayIsDropped) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become somebody else";
    }
    ASSERT_EQ(chmod(m_directory.Path().c_str(), 0777), 0);
    ASSERT_TRUE(Save("a", 1));
    const std::string strList = AccessList({{1, 6}, {2, 6, kNobody}, {4, 6}, {16, 6}, {32, 4}});
    if (setxattr(Path("a").c_str(), kAccessList, strList.data(), strList.size(), 0) != 0) {
        GTEST_SKIP() << "the file system has no access lists";
    }
    ASSERT_EQ(AsNobody([this] { return Save("a", 2); }), 1);
    EXPECT_EQ(AccessListOf(Path("a")), "");
    EXPECT_EQ(ModeOf(Path("a")), 0644U);
    EXPECT_EQ(NumberIn(Path("a")), 2);
}

TEST_F(ReplacedFile, WhatMayNotBeWrittenIsNotReplaced) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become somebody else";
    }
    ASSERT_TRUE(Save("a", 1));
    ASSERT_EQ(chmod(m_directory.Path().c_str(), 0777), 0);
    ASSERT_EQ(chmod(Path("a").c_str(), 0644), 0);
    const auto refused = [this](const char* lpszName) {
        std::error_code ec;
        return !tn::SaveTo(Path(lpszName).c_str(), *Numbered(2), ec) && ec == std::errc::permission_denied;
    };
    EXPECT_EQ(AsNobody([&] { return refused("a"); }), 1);
    ASSERT_EQ(chmod(m_directory.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(Path("a").c_str(), 0666), 0);
    EXPECT_EQ(AsNobody([&] { return refused("a"); }), 1) << "nobody may make files beside it";
    EXPECT_EQ(AsNobody([&] { return refused("new"); }), 1);
    EXPECT_EQ(NumberIn(Path("a")), 1);
    ExpectNames({"a"});
}

TEST_F(ReplacedFile, SymbolicLinksStayAndLeadToTheNewFile) {
    m_directory.Directory("data");
    m_directory.Directory("links");
    ASSERT_TRUE(Save("data/a", 1));
    ASSERT_EQ(symlink(Path("data/a").c_str(), Path("links/absolute").c_str()), 0);
    ASSERT_EQ(symlink("../data/a", Path("links/relative").c_str()), 0);
    ASSERT_EQ(symlink("relative", Path("links/chain").c_str()), 0);
    ASSERT_EQ(symlink("links", Path("directory").c_str()), 0);
    int nNumber = 1;
    for (const char* lpszLink : {"links/absolute", "links/relative", "links/chain", "directory/chain"}) {
        SCOPED_TRACE(lpszLink);
        ASSERT_TRUE(Save(lpszLink, ++nNumber));
        EXPECT_TRUE(S_ISLNK(StatusOf(Path(lpszLink)).st_mode));
        EXPECT_TRUE(S_ISREG(StatusOf(Path("data/a")).st_mode));
        EXPECT_EQ(NumberIn(Path("data/a")), nNumber);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Path("links")), {}), 3);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Path("data")), {}), 1);
}

TEST_F(ReplacedFile, ALinkToNothingMakesWhatItLeadsTo) {
    ASSERT_EQ(symlink("missing", Path("link").c_str()), 0);
    ASSERT_TRUE(Save("link", 1));
    EXPECT_TRUE(S_ISLNK(StatusOf(Path("link")).st_mode));
    EXPECT_EQ(NumberIn(Path("missing")), 1);
    ASSERT_EQ(symlink("no/such/directory", Path("nowhere").c_str()), 0);
    EXPECT_FALSE(Save("nowhere", 1));
    ASSERT_EQ(symlink("circle", Path("circle").c_str()), 0);
    std::error_code ec;
    EXPECT_FALSE(tn::SaveTo(Path("circle").c_str(), *Numbered(1), ec));
    EXPECT_EQ(ec, std::errc::too_many_symbolic_link_levels);
    ExpectNames({"circle", "link", "missing", "nowhere"});
}

TEST_F(ReplacedFile, WhatIsNoRegularFileIsRefusedAtOnceAndUntouched) {
    const Watchdog watchdog(60);  // opening a FIFO without a reader would wait for one
    m_directory.Directory("directory");
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink("fifo", Path("link").c_str()), 0);
    ASSERT_EQ(symlink("/dev/full", Path("full").c_str()), 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    Path("socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int nSocket = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(nSocket);
    const std::vector<std::string> names = m_directory.Names();
    for (const std::string& strName : names) {
        SCOPED_TRACE(strName);
        const struct stat before = StatusOf(Path(strName));
        std::error_code ec;
        EXPECT_FALSE(tn::SaveTo(Path(strName).c_str(), *Numbered(1), ec));
        EXPECT_TRUE(ec == tn::errc::not_a_regular_file || ec == std::errc::is_a_directory) << ec.message();
        EXPECT_FALSE(tn::LoadFrom(Path(strName).c_str(), *tn::MakeValueDataGroup(), ec));
        EXPECT_TRUE(ec == tn::errc::not_a_regular_file || ec == std::errc::is_a_directory) << ec.message();
        EXPECT_EQ(StatusOf(Path(strName)).st_ino, before.st_ino);
        EXPECT_EQ(StatusOf(Path(strName)).st_mode, before.st_mode);
    }
    ExpectNames(names);
    EXPECT_FALSE(tn::SaveTo(Path("fresh/").c_str(), *Numbered(1)));
    EXPECT_FALSE(tn::SaveTo("/dev/null", *Numbered(1)));
    EXPECT_TRUE(S_ISCHR(StatusOf("/dev/null").st_mode));
}

TEST_F(ReplacedFile, AFullDiskLeavesTheOldFileAndNothingElse) {
    ASSERT_TRUE(Save("a", 1));
    const Bytes old = ReadBytes(Path("a"));
    for (std::size_t nLength : {100U, 100000U, 3000000U}) {
        const Group group = Numbered(2, nLength);
        for (std::size_t nRoom : {std::size_t{0}, std::size_t{1}, nLength / 2, nLength}) {
            std::error_code ec;
            bool bSaved = true;
            {
                const FileSizeLimit limit(nRoom);
                bSaved = tn::SaveTo(Path("a").c_str(), *group, ec) || tn::SaveTo(Path("new").c_str(), *group);
            }
            EXPECT_FALSE(bSaved) << nLength << " " << nRoom;
            EXPECT_EQ(ec, std::errc::file_too_large) << ec.message();
        }
    }
    EXPECT_EQ(ReadBytes(Path("a")), old);
    ExpectNames({"a"});
}

TEST_F(ReplacedFile, WithoutDescriptorsTheOldFileStays) {
    ASSERT_TRUE(Save("a", 1));
    bool bSaved = false;
    for (std::size_t nLeft = 0; !bSaved && nLeft < 10; ++nLeft) {
        std::error_code ec;
        {
            const DescriptorLimit limit(nLeft);
            bSaved = tn::SaveTo(Path("a").c_str(), *Numbered(2), ec);
        }
        EXPECT_TRUE(bSaved || ec == std::errc::too_many_files_open) << ec.message();
        EXPECT_EQ(NumberIn(Path("a")), bSaved ? 2 : 1);
        ExpectNames({"a"});
    }
    EXPECT_TRUE(bSaved);
}

TEST_F(ReplacedFile, AnObjectThatFailsOrThrowsLeavesTheOldFile) {
    class Failing final : public ITnRobotSerialize {
    public:
        explicit Failing(bool bThrows) : m_bThrows(bThrows) {}
        int Serialize(ITnRobotArchive* pArchive) override {
            pArchive->Write("half", 4);
            if (m_bThrows) {
                throw std::runtime_error("in the middle");
            }
            return 0;
        }

    private:
        const bool m_bThrows;
    };
    ASSERT_TRUE(Save("a", 1));
    Failing failing(false);
    Failing throwing(true);
    for (const char* lpszName : {"a", "new"}) {
        EXPECT_FALSE(tn::SaveTo(Path(lpszName).c_str(), failing));
        EXPECT_THROW(static_cast<void>(tn::SaveTo(Path(lpszName).c_str(), throwing)), std::runtime_error);
    }
    EXPECT_EQ(NumberIn(Path("a")), 1);
    ExpectNames({"a"});
}

TEST_F(ReplacedFile, NamesOfAnyLengthAndPathsWithoutADirectoryWork) {
    const std::string strLongest(255, 'n');
    ASSERT_TRUE(Save(strLongest, 1));
    ASSERT_TRUE(Save(strLongest, 2));
    EXPECT_EQ(NumberIn(Path(strLongest)), 2);
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_directory.Path());
    const bool bSaved = tn::SaveTo("here", *Numbered(3)) && tn::SaveTo("here", *Numbered(4));
    std::filesystem::current_path(before);
    EXPECT_TRUE(bSaved);
    EXPECT_EQ(NumberIn(Path("here")), 4);
    ExpectNames({"here", strLongest});
}

TEST_F(ReplacedFile, APathThatIsAsLongAsItMayBeWorks) {
    constexpr std::size_t kLongestPath = PATH_MAX - 1;
    constexpr std::size_t kStep = 100;
    constexpr std::size_t kName = 40;
    std::string strName = "d";
    while (Path(strName).size() + 1 + kName < kLongestPath) {
        ASSERT_EQ(mkdir(Path(strName).c_str(), 0777), 0);
        const std::size_t nLeft = kLongestPath - Path(strName).size() - 1;
        strName += '/' + std::string(nLeft <= kStep + kName ? nLeft : kStep, 'n');
    }
    ASSERT_EQ(Path(strName).size(), kLongestPath);
    EXPECT_TRUE(Save(strName, 1));
    EXPECT_TRUE(Save(strName, 2));
    EXPECT_EQ(NumberIn(Path(strName)), 2);
}

TEST_F(ReplacedFile, ReadersBesideAWriterNeverFail) {
    constexpr int kSaves = 200;
    const std::string strPath = Path("a");
    ASSERT_TRUE(tn::SaveTo(strPath.c_str(), *Numbered(0, 100000)));
    std::atomic<bool> bDone{false};
    std::atomic<int> nLoads{0};
    std::atomic<int> nBad{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&] {
            do {
                nBad += NumberIn(strPath) < 0 ? 1 : 0;
                ++nLoads;
            } while (!bDone);
        });
    }
    std::thread second([&] {
        for (int i = 0; i < kSaves; ++i) {
            nBad += tn::SaveTo(strPath.c_str(), *Numbered(i, 50000)) ? 0 : 1;
        }
    });
    for (int i = 0; i < kSaves; ++i) {
        nBad += tn::SaveTo(strPath.c_str(), *Numbered(i, 100000)) ? 0 : 1;
    }
    second.join();
    bDone = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(nBad, 0) << "of " << nLoads << " loads";
    ExpectNames({"a"});
}

// Whatever a writer was about to do, the file is the old one or the new one.
TEST_F(ReplacedFile, AWriterThatIsKilledAtAnySystemCallLeavesAWholeFile) {
    if (const std::string strReason = WhyNotTraced(); !strReason.empty()) {
        GTEST_SKIP() << strReason;
    }
    int nOld = 0;
    int nNew = 0;
    // Each kind of call is counted by itself, from the program's start to its end.
    for (const char* lpszCall : {"openat", "write", "?writev", "?lseek", "close", "?fchmod", "?fchown", "fsync",
                                 "?fstat", "?newfstatat", "?rename", "?renameat", "?renameat2", "?unlink", "?munmap"}) {
        bool bEnded = false;
        for (int nCall = 1; !bEnded; ++nCall) {
            ASSERT_TRUE(Save("a", 1));
            ASSERT_LT(nCall, 1000) << lpszCall;
            const std::string strWhen = std::string(lpszCall) + ":signal=KILL:when=" + std::to_string(nCall);
            const ChildResult result = Traced({"-e", "inject=" + strWhen}, {Path("a"), "2"});
            bEnded = result.nExitCode == 0;
            const int nNumber = NumberIn(Path("a"));
            ASSERT_TRUE(nNumber == 1 || nNumber == 2) << "killed at " << strWhen;
            ASSERT_TRUE(!bEnded || nNumber == 2) << lpszCall;
            if (!bEnded) {
                (nNumber == 1 ? nOld : nNew) += 1;
            }
        }
    }
    EXPECT_GT(nOld, 10);
    EXPECT_GT(nNew, 1) << "it is killed after the rename too";
}

// Whatever the system refuses, what the program says is true and nothing else is left.
TEST_F(ReplacedFile, ACallThatFailsLeavesAWholeFileAndNoOther) {
    if (const std::string strReason = WhyNotTraced(); !strReason.empty()) {
        GTEST_SKIP() << strReason;
    }
    int nRefused = 0;
    for (const char* lpszCall : {"fsync", "fchmod", "fchown", "getrandom", "?rename", "?renameat", "?renameat2",
                                 "fgetxattr", "fsetxattr", "flistxattr", "fremovexattr"}) {
        for (int nCall = 1; nCall <= 3; ++nCall) {
            ASSERT_TRUE(Save("a", 1));
            ASSERT_EQ(chmod(Path("a").c_str(), 0640), 0);
            const std::string strWhen = std::string(lpszCall) + ":error=EIO:when=" + std::to_string(nCall);
            const ChildResult result = Traced({"-e", "inject=" + strWhen}, {Path("a"), "2"});
            const bool bSynchronised = lpszCall != std::string("fsync") || nCall != 2;
            const int nExpected = result.nExitCode == 0 || !bSynchronised ? 2 : 1;
            EXPECT_EQ(NumberIn(Path("a")), nExpected) << strWhen << ", ended with " << result.nExitCode;
            ExpectNames({"a"});
            nRefused += result.nExitCode == 1 ? 1 : 0;
        }
    }
    EXPECT_GE(nRefused, 3) << "a file and its directory that cannot be synchronised, a file that cannot be renamed";
}

// Its group's mode bits are the most that anybody in the list has, so they are not the group's without it.
TEST_F(ReplacedFile, AnAccessListThatCannotBeTakenOverPassesNoRightsOn) {
    if (const std::string strReason = WhyNotTraced(); !strReason.empty()) {
        GTEST_SKIP() << strReason;
    }
    const std::string strList = AccessList({{1, 6}, {2, 6, 12345}, {4, 0}, {16, 6}, {32, 0}});
    for (const char* lpszCall : {"getxattr:error=EIO:when=1", "getxattr:error=EIO:when=2", "fsetxattr:error=ENOSPC"}) {
        SCOPED_TRACE(lpszCall);
        ASSERT_TRUE(Save("a", 1));
        if (setxattr(Path("a").c_str(), kAccessList, strList.data(), strList.size(), 0) != 0) {
            GTEST_SKIP() << "the file system has no access lists";
        }
        EXPECT_EQ(Traced({"-e", std::string("inject=") + lpszCall}, {Path("a"), "2"}).nExitCode, 0);
        EXPECT_EQ(NumberIn(Path("a")), 2);
        EXPECT_EQ(AccessListOf(Path("a")), "");
        EXPECT_EQ(ModeOf(Path("a")), 0600U);
        ASSERT_EQ(std::filesystem::remove(Path("a")), true);
    }
}

// A list that the directory gives to a new file is for others than the old file was.
TEST_F(ReplacedFile, AnAccessListOfTheDirectoryThatCannotBeDroppedPassesNoRightsOn) {
    if (const std::string strReason = WhyNotTraced(); !strReason.empty()) {
        GTEST_SKIP() << strReason;
    }
    ASSERT_TRUE(Save("a", 1));
    ASSERT_EQ(chmod(Path("a").c_str(), 0660), 0);
    const std::string strDefault = AccessList({{1, 7}, {2, 7, 12345}, {4, 7}, {16, 7}, {32, 5}});
    const std::string strDirectory = m_directory.Path();
    if (setxattr(strDirectory.c_str(), "system.posix_acl_default", strDefault.data(), strDefault.size(), 0) != 0) {
        GTEST_SKIP() << "the file system has no access lists";
    }
    EXPECT_EQ(Traced({"-e", "inject=fremovexattr:error=EIO"}, {Path("a"), "2"}).nExitCode, 0);
    EXPECT_EQ(NumberIn(Path("a")), 2);
    EXPECT_EQ(ModeOf(Path("a")), 0600U);
}

// What is saved is waited for by default, and only then: the file and the directory that knows it.
TEST_F(ReplacedFile, TheDiskIsWaitedForUnlessFlushingIsEnough) {
    if (const std::string strReason = WhyNotTraced(); !strReason.empty()) {
        GTEST_SKIP() << strReason;
    }
    struct Case {
        const char* lpszHow;
        std::size_t nSyncs;
    };
    constexpr Case kCases[] = {{"", 2},       {"flushed", 0},       {"graph", 2}, {"flushed graph", 0},
                               {"groups", 2}, {"flushed groups", 0}};
    for (const Case& entry : kCases) {
        SCOPED_TRACE(entry.lpszHow);
        ASSERT_TRUE(Save("a", 1));
        const ChildResult result = Traced({"-o", Path("calls"), "-e", "trace=fsync,fdatasync,sync,syncfs,/rename"},
                                          {Path("a"), "2", entry.lpszHow});
        ASSERT_EQ(result.nExitCode, 0);
        const Bytes calls = ReadBytes(Path("calls"));
        const std::string strCalls(calls.begin(), calls.end());
        EXPECT_EQ(LinesWith(strCalls, "fsync"), entry.nSyncs) << strCalls;
        EXPECT_EQ(LinesWith(strCalls, "rename"), 1U) << strCalls;
        EXPECT_EQ(LinesWith(strCalls, ""), entry.nSyncs + 1) << strCalls;
    }
}

TEST_F(ReplacedFile, WhatIsOnlyFlushedIsReplacedAsWholeToo) {
    ASSERT_TRUE(Save("a", 1));
    EXPECT_TRUE(tn::SaveTo(Path("a").c_str(), *Numbered(2), tn::Durability::kFlushed));
    EXPECT_EQ(NumberIn(Path("a")), 2);
    std::error_code ec = tn::errc::file_damaged;
    EXPECT_TRUE(tn::SaveTo(Path("a").c_str(), *Numbered(3), tn::Durability::kFlushed, ec));
    EXPECT_EQ(ec, std::error_code());
    EXPECT_FALSE(tn::SaveTo(Path("no directory/a").c_str(), *Numbered(4), tn::Durability::kFlushed, ec));
    EXPECT_EQ(ec, std::errc::no_such_file_or_directory);
    EXPECT_EQ(NumberIn(Path("a")), 3);
    ExpectNames({"a"});
}
