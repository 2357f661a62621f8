// The log file when the system refuses, when others use it too, and when it is not a file at all.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "logger/RobotLog.h"

using namespace tntest;

namespace {

class LogFile : public RobotLog {
protected:
    LogFile() { m_probe = TNROBOT_LOG_FILE_PROBE; }
};

#ifdef TNROBOT_TEST_WITHOUT_DESCRIPTORS
constexpr bool kWithoutDescriptors = true;
#else
constexpr bool kWithoutDescriptors = false;
#endif
constexpr char kNeedsDescriptors[] = "the check of an object's class needs descriptors of its own";

Steps FloodOf(int nThreads, int nLines) {
    Steps lines;
    for (int nThread = 0; nThread < nThreads; ++nThread) {
        for (int nLine = 0; nLine < nLines; ++nLine) {
            lines.push_back("I thread " + std::to_string(nThread) + " line " + std::to_string(nLine) + ".");
        }
    }
    return lines;
}

Steps Sorted(Steps lines) {
    std::sort(lines.begin(), lines.end());
    return lines;
}

long Number(const std::string& text, const std::string& before) {
    const std::size_t nAt = text.find(before);
    return nAt == std::string::npos ? -1 : std::atol(text.c_str() + nAt + before.size());
}

// Each line is a whole one of the program's, or tells of lost ones; together they are all.
void ExpectAllCounted(const Steps& lines, long nLogged) {
    long nWhole = 0;
    long nLost = 0;
    for (const std::string& line : lines) {
        EXPECT_NE(line.rfind("malformed", 0), 0U) << line;
        const long nTold = Number(line, "W logger: lines lost: ");
        nWhole += nTold < 0 ? 1 : 0;
        nLost += std::max(nTold, 0L);
    }
    EXPECT_GT(nWhole, 0);
    EXPECT_GT(nLost, 0);
    EXPECT_EQ(nWhole + nLost, nLogged);
}

/// A file system of its own in a directory, as small as wanted.
class SmallDisk {
public:
    SmallDisk(std::string path, const char* lpszOptions)
        : m_path(std::move(path)), m_bMounted(mount("tmpfs", m_path.c_str(), "tmpfs", 0, lpszOptions) == 0) {}
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk() {
        if (m_bMounted) {
            umount(m_path.c_str());
        }
    }
    bool IsMounted() const { return m_bMounted; }

private:
    const std::string m_path;
    const bool m_bMounted;
};

}  // namespace

// There is no descriptor for the directory's lock, nor for the new file.
TEST_F(LogFile, LosesNothingWhenRotationCannotCreateTheFile) {
    if (!kWithoutDescriptors) {
        GTEST_SKIP() << kNeedsDescriptors;
    }
    const ChildResult result = Run({"init", "param:3:1", "descriptors:0", "flood:4:100", "param:6:0", "descriptors:-1",
                                    "until::" + OldFile(1), "destroy"});
    EXPECT_EQ(result.nExitCode, 0);
    const Steps lines = LoggedInAll();
    Steps flood;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(flood), [](const auto& l) { return l != "I again"; });
    EXPECT_EQ(Sorted(flood), Sorted(FloodOf(4, 100)));
}

TEST_F(LogFile, SaysOnceThatItCannotBeRotated) {
    if (!kWithoutDescriptors) {
        GTEST_SKIP() << kNeedsDescriptors;
    }
    const auto console = Console({"init", "param:3:1", "descriptors:0", "flood:1:200", "log:4:seen", "descriptors:-1",
                                  "until::" + OldFile(1), "destroy"});
    ASSERT_EQ(console.size(), 3U);
    EXPECT_EQ(console[1].rfind("E logger: " + File() + " cannot be rotated and may grow beyond its limit: ", 0), 0U)
        << console[1];
    EXPECT_EQ(console[2], "E seen");
}

TEST_F(LogFile, LosesNothingWithoutAnInodeForTheNextFile) {
    const std::string disk = m_directory.Directory("disk");
    const SmallDisk mounted(disk, "size=1m,nr_inodes=2");  // its root and one file
    if (!mounted.IsMounted()) {
        GTEST_SKIP() << "no file system of our own may be mounted";
    }
    const ChildResult result =
        Run({"init", "param:3:1", "flood:1:200", "destroy"}, {{"TNROBOT_LOG_FILE", disk + "/robot.log"}});
    EXPECT_EQ(result.nExitCode, 0);
    EXPECT_EQ(WithoutTimes(FileLines(disk + "/robot.log")), FloodOf(1, 200));
    EXPECT_FALSE(std::filesystem::exists(disk + "/robot.1.log"));
}

TEST_F(LogFile, IsKeptAndContinuedInADirectoryThatCannotBeWritten) {
    ASSERT_EQ(chmod(m_directory.Path().c_str(), 0755), 0);
    const ChildResult result =
        Run({"init", "log:3:first", "chmod:438:" + File(), "chmod:365:" + m_directory.Path().string(), "nobody",
             "param:3:1", "flood:1:200", "destroy"});
    chmod(m_directory.Path().c_str(), 0755);
    EXPECT_EQ(result.output, "Init 0\nchmod 0\nchmod 0\nsetuid 0\n");
    Steps expected = FloodOf(1, 200);
    expected.insert(expected.begin(), "W first");
    EXPECT_EQ(Logged(), expected);
    EXPECT_FALSE(std::filesystem::exists(OldFile(1)));
}

// One of the old files cannot be replaced; the others must not go one by one with each try.
TEST_F(LogFile, KeepsItsOldFilesWhileOneIsInTheWay) {
    std::filesystem::create_directories(OldFile(3) + "/full");
    WriteBytes(OldFile(1), FromText("one\n"));
    WriteBytes(OldFile(2), FromText("two\n"));
    Run({"init", "param:3:1", "param:4:3", "flood:1:200", "param:4:3", "flood:1:200", "destroy"});
    EXPECT_EQ(FileLines(OldFile(1)), Steps{"one"});
    EXPECT_EQ(FileLines(OldFile(2)), Steps{"two"});
    EXPECT_EQ(Logged().size(), 400U);
}

TEST_F(LogFile, StaysWhereItIsWhenTheProgramMoves) {
    const std::string elsewhere = m_directory.Directory("elsewhere");
    const Bytes stranger = FromText("of somebody else\n");
    for (const char* lpszName : {"/robot.log", "/robot.1.log"}) {
        WriteBytes(elsewhere + lpszName, stranger);
    }
    Run({"init", "chdir::elsewhere", "param:3:1", "param:4:1000", "flood:1:200", "destroy"},
        {{"TNROBOT_LOG_FILE", "robot.log"}});
    EXPECT_EQ(LoggedInAll(), FloodOf(1, 200));
    EXPECT_EQ(ReadBytes(elsewhere + "/robot.log"), stranger);
    EXPECT_EQ(ReadBytes(elsewhere + "/robot.1.log"), stranger);
    EXPECT_FALSE(std::filesystem::exists(elsewhere + "/robot.2.log"));
}

TEST_F(LogFile, IsNotOpenedByARelativePathInADirectoryThatIsGone) {
    const std::string gone = m_directory.Directory("gone");
    const ChildResult result = Run({"chdir::gone", "remove::nothing", "init"}, {{"TNROBOT_LOG_FILE", "../robot.log"}});
    EXPECT_EQ(result.output, "chdir 0\nremove -1\nInit 0\n");
    ChildProgram shell = InShell(R"(cd gone && rmdir ../gone && exec "$@")", m_probe, {"init"});
    shell.environment = {{"LD_LIBRARY_PATH", TNROBOT_LOG_DIRECTORY}, {"TNROBOT_LOG_FILE", "x.log"}};
    shell.directory = m_directory.Path().string();
    EXPECT_EQ(RunChild(shell).output, "Init 2\n");
}

TEST_F(LogFile, CountsEveryLineThatAFullDiskTakes) {
    const ChildResult result = Run({"init", "filesize:10000", "flood:4:500", "filesize:-1", "untiltold::" + File(),
                                    "log:2:after", "destroy", "logged"});
    EXPECT_EQ(result.nExitCode, 0);
    ExpectAllCounted(Logged(), Number(result.output, "logged "));
    EXPECT_EQ(Logged().back(), "I after");
}

TEST_F(LogFile, CountsEveryLineOfSeveralFullDisks) {
    const ChildResult result = Run({"init", "filesize:10000", "flood:1:500", "filesize:-1", "untiltold::" + File(),
                                    "log:3:more", "filesize:9000", "flood:1:500", "filesize:-1", "destroy", "logged"});
    EXPECT_EQ(result.nExitCode, 0);
    ExpectAllCounted(Logged(), Number(result.output, "logged "));
}

TEST_F(LogFile, CountsEveryLineThatAFullFileSystemTakes) {
    const std::string disk = m_directory.Directory("disk");
    const SmallDisk mounted(disk, "size=64k");
    if (!mounted.IsMounted()) {
        GTEST_SKIP() << "no file system of our own may be mounted";
    }
    WriteBytes(disk + "/other", Bytes(40000));
    const std::string file = disk + "/robot.log";
    const ChildResult result =
        Run({"init", "flood:4:500", "remove::" + disk + "/other", "untiltold::" + file, "destroy", "logged"},
            {{"TNROBOT_LOG_FILE", file}});
    EXPECT_EQ(result.nExitCode, 0);
    ExpectAllCounted(WithoutTimes(FileLines(file)), Number(result.output, "logged "));
}

TEST_F(LogFile, StartsALineOfItsOwnBehindATornOne) {
    WriteBytes(File(), FromText("torn"));
    Run({"init", "log:2:whole", "destroy"});
    const Steps lines = FileLines(File());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "torn");
    EXPECT_EQ(WithoutTime(lines[1]), "I whole");
}

TEST_F(LogFile, IsMadeAgainWhenSomebodyRemovesIt) {
    Run({"init", "log:3:gone", "remove::" + File(), "log:2:kept", "log:3:too", "destroy"});
    EXPECT_EQ(Logged(), (Steps{"I kept", "W too"}));
}

// What goes to a file without a name is lost, and has to be counted.
TEST_F(LogFile, IsMadeAgainWithItsDirectory) {
    const std::string directory = m_directory.Directory("logs");
    const std::string file = directory + "/robot.log";
    const ChildResult result = Run({"init", "param:2:6", "log:3:gone", "remove::" + file, "remove::" + directory,
                                    "flood:2:50", "untiltold::" + file, "log:2:kept", "logged", "destroy"},
                                   {{"TNROBOT_LOG_FILE", file}});
    ExpectAllCounted(WithoutTimes(FileLines(file)), Number(result.output, "logged ") - 1);
}

// Whoever has a lock of the directory may keep it.
TEST_F(LogFile, SaysThatSomebodyKeepsItFromBeingRotated) {
    const int nDirectory = open(m_directory.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(nDirectory, LOCK_SH), 0);
    const std::string errors = m_directory / "errors";
    Run({"init", "errors::" + errors, "param:3:1", "flood:1:200", "untilstuck::" + errors, "log:2:kept", "destroy"});
    close(nDirectory);
    const Steps lines = Logged();
    ASSERT_GT(lines.size(), 201U);
    EXPECT_EQ(Steps(lines.begin(), lines.begin() + 200), FloodOf(1, 200));
    EXPECT_EQ(lines.back(), "I kept");
    EXPECT_EQ(FileLines(errors).size(), 1U);
}

// Waiting for its reader would be for ever.
TEST_F(LogFile, MayNotBeAFifo) {
    ASSERT_EQ(mkfifo(File().c_str(), 0600), 0);
    EXPECT_EQ(Run({"init", "log:3:lost"}).output, "Init 2\n");
    const int nReader = open(File().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(nReader, 0);
    EXPECT_EQ(Run({"init", "log:3:lost"}).output, "Init 2\n");
    close(nReader);
}

TEST_F(LogFile, MayNotBeADirectoryOrASocket) {
    m_directory.Directory("robot.log");
    EXPECT_EQ(Run({"init"}).output, "Init 2\n");
    const std::string path = m_directory / "socket";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path.c_str());
    const int nSocket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(Run({"init"}, {{"TNROBOT_LOG_FILE", path}}).output, "Init 2\n");
    close(nSocket);
}

// It has no size, and its name is not ours to give away.
TEST_F(LogFile, OfADeviceIsNotRotated) {
    const ChildResult result =
        Run({"init", "param:3:1", "flood:1:200", "destroy"}, {{"TNROBOT_LOG_FILE", "/dev/null"}});
    EXPECT_EQ(result.nExitCode, 0);
    struct stat status = {};
    ASSERT_EQ(stat("/dev/null", &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    EXPECT_FALSE(std::filesystem::exists("/dev/null.1"));
}

// Locks of a device have meanings of their own.
TEST_F(LogFile, OfADeviceIsNotLocked) {
    const ChildResult result =
        Run({"init", "start::init,log:2:line,destroy", "wait", "destroy"}, {{"TNROBOT_LOG_FILE", "/dev/zero"}}, true);
    EXPECT_EQ(result.output, "Init 0\nInit 0\nother ended 0\n");
}

TEST_F(LogFile, HasNoMoreOldFilesThanWanted) {
    for (int nNumber = 1; nNumber <= 8; ++nNumber) {
        WriteBytes(OldFile(nNumber), FromText("old\n"));
    }
    WriteBytes(OldFile(10), FromText("of somebody else\n"));
    Run({"init", "param:4:6", "log:2:six", "destroy"});
    EXPECT_TRUE(std::filesystem::exists(OldFile(6)));
    EXPECT_FALSE(std::filesystem::exists(OldFile(7)));
    EXPECT_FALSE(std::filesystem::exists(OldFile(8)));
    EXPECT_TRUE(std::filesystem::exists(OldFile(10)));
    Run({"init", "param:4:2", "destroy"});
    EXPECT_TRUE(std::filesystem::exists(OldFile(2)));
    EXPECT_FALSE(std::filesystem::exists(OldFile(3)));
    Run({"init", "param:4:0", "destroy"});
    EXPECT_FALSE(std::filesystem::exists(OldFile(1)));
    EXPECT_EQ(Logged(), Steps{"I six"});
}

// Their number is what it is at first until the program sets it, which it may do last.
TEST_F(LogFile, KeepsAllOldFilesUntilTheirNumberIsSet) {
    for (int nNumber = 1; nNumber <= 8; ++nNumber) {
        WriteBytes(OldFile(nNumber), FromText("old\n"));
    }
    Run({"init", "param:3:1", "param:4:20", "flood:1:100", "destroy"});
    for (int nNumber = 1; nNumber <= 9; ++nNumber) {
        EXPECT_TRUE(std::filesystem::exists(OldFile(nNumber))) << nNumber;
    }
}

TEST_F(LogFile, SaysThatAnOldFileCannotBeRemoved) {
    std::filesystem::create_directories(OldFile(3));
    Run({"init", "param:4:2", "log:2:after", "destroy"});
    ASSERT_EQ(Logged().size(), 2U);
    EXPECT_EQ(Logged()[0].rfind("W logger: old files of " + File() + " cannot be removed: ", 0), 0U) << Logged()[0];
}

TEST_F(LogFile, ChangesNoErrorNumber) {
    Steps steps = {"init", "param:3:1"};
    std::string expected = "Init 0\n";
    for (int i = 0; i < 50; ++i) {
        steps.emplace_back("errno:3:this one or another makes the file too large");
        expected += "errno 77\n";
    }
    steps.insert(steps.end(), {"filesize:10", "errno:3:fails", "errno:2:is lost", "filesize:-1"});
    EXPECT_EQ(Run(steps).output, expected + "errno 77\nerrno 77\n");
}

TEST_F(LogFile, SaysThatAnotherProcessWritesItToo) {
    const ChildResult result =
        Run({"init", "log:3:first", "start::init,log:3:second,destroy", "wait", "log:3:third", "destroy"});
    EXPECT_EQ(result.output, "Init 0\nInit 0\nother ended 0\n");
    EXPECT_EQ(Logged(),
              (Steps{"W first", "W logger: " + File() + " is written by another process too", "W second", "W third"}));
}

// While one of them is stopped in the middle of rotating, the others' lines go to the file as it is: how many files
// the flood leaves is a matter of time, but not that there are more of them later.
TEST_F(LogFile, OfSeveralProcessesGetsEveryLineOnceAndWhole) {
    const std::string other = "start::init,param:3:4,param:4:1000,flood:2:500,destroy";
    const ChildResult result = Run({"init", "param:2:6", "param:3:4", "param:4:1000", other, other, "flood:2:500",
                                    "wait", "until::" + OldFile(20), "destroy"});
    EXPECT_EQ(result.nExitCode, 0);
    Steps lines = LoggedInAll();
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const auto& line) { return line[0] == 'W' || line == "I again"; }),
                lines.end());
    Steps expected;
    for (int nProcess = 0; nProcess < 3; ++nProcess) {
        const Steps flood = FloodOf(2, 500);
        expected.insert(expected.end(), flood.begin(), flood.end());
    }
    EXPECT_EQ(Sorted(lines), Sorted(expected));
}
