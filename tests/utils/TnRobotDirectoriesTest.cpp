// The directories that are the library's own: of its work, of profiles, of debugging.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "TnRobotKernel/utilities.h"
#include "support/processes/TempDirectory.h"
#include "utils/UtilsTest.h"

using namespace tntest;

namespace {

int PermissionsOf(const std::string& strPath) {
    struct stat status = {};
    return stat(strPath.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 0777U) : -1;
}

using WorkDirectory = FreshProcess;
using ProfileDirectory = FreshProcess;
using DebugDirectory = FreshProcess;

}  // namespace

TEST_F(WorkDirectory, IsTheCurrentDirectoryOfTheStartAndStaysIt) {
    const auto body = [] {
        const TempDirectory temp;
        StartIn(temp.Path());
        EXPECT_EQ(TnRobotUtils::GetWorkDir(), temp.Path().string());
        std::filesystem::current_path("/");
        EXPECT_EQ(TnRobotUtils::GetWorkDir(), temp.Path().string());
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST_F(WorkDirectory, IsEmptyWhenItsPathIsTooLong) {
    const auto body = [] {
        const TempDirectory temp;
        StartIn(temp.Directory(std::string(200, 'a') + "/" + std::string(200, 'b')));
        EXPECT_STREQ(TnRobotUtils::GetWorkDir(), "");
        std::filesystem::current_path("/");
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST_F(ProfileDirectory, IsCreatedUnderTheCurrentDirectoryOfTheFirstCall) {
    const auto body = [] {
        const TempDirectory temp;
        StartIn(temp.Directory("start"));
        std::filesystem::current_path(temp.Directory("later"));
        umask(022);
        EXPECT_EQ(TnRobotUtils::GetProfileDir(), temp / "later/TnQuellon");
        EXPECT_EQ(PermissionsOf(temp / "later/TnQuellon"), 0755);
        EXPECT_FALSE(std::filesystem::exists(temp / "start/TnQuellon"));
        std::filesystem::current_path(temp / "start");
        EXPECT_EQ(TnRobotUtils::GetProfileDir(), temp / "later/TnQuellon");
        PathBuffer path;
        TnRobotUtils::MakeProfile("run.txt", path.sz);
        EXPECT_EQ(path.sz, temp / "later/TnQuellon/run.txt");
        EXPECT_TRUE(path.IsUntouchedFrom(256));
        TnRobotUtils::MakeProfile("run.txt", nullptr);
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST_F(ProfileDirectory, MayExistAlready) {
    const auto body = [] {
        const TempDirectory temp;
        std::filesystem::create_directory(temp / "TnQuellon");
        temp.File("TnQuellon/kept");
        StartIn(temp.Path());
        EXPECT_EQ(TnRobotUtils::GetProfileDir(), temp / "TnQuellon");
        EXPECT_TRUE(std::filesystem::exists(temp / "TnQuellon/kept"));
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST_F(ProfileDirectory, IsTriedAgainWhileTheCurrentDirectoryCannotBeRead) {
    const auto body = [] {
        const TempDirectory temp;
        StartIn(temp.Path());
        std::filesystem::current_path(temp.Directory(std::string(200, 'a') + "/" + std::string(200, 'b')));
        EXPECT_STREQ(TnRobotUtils::GetProfileDir(), "");
        PathBuffer path;
        TnRobotUtils::MakeProfile("run.txt", path.sz);
        EXPECT_STREQ(path.sz, "/run.txt");
        std::filesystem::current_path(temp.Directory("gone"));
        std::filesystem::remove(temp / "gone");
        EXPECT_STREQ(TnRobotUtils::GetProfileDir(), "");
        std::filesystem::current_path(temp.Path());
        EXPECT_EQ(TnRobotUtils::GetProfileDir(), temp / "TnQuellon");
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST_F(ProfileDirectory, StaysEmptyWhereItWasHandedOutEmpty) {
    const auto body = [] {
        const TempDirectory temp;
        std::filesystem::current_path(temp.Directory("gone"));
        std::filesystem::remove(temp / "gone");
        const char* lpszNone = TnRobotUtils::GetProfileDir();
        EXPECT_STREQ(lpszNone, "");
        std::filesystem::current_path(temp.Path());
        EXPECT_EQ(TnRobotUtils::GetProfileDir(), temp / "TnQuellon");
        EXPECT_STREQ(lpszNone, "");
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST_F(DebugDirectory, IsCreatedUnderTheWorkDirectoryByTheFirstCall) {
    const auto body = [] {
        const TempDirectory temp;
        StartIn(temp.Directory("start"));
        std::filesystem::current_path(temp.Directory("later"));
        umask(027);
        PathBuffer path;
        TnRobotUtils::MakeDebugFile("dump.bin", path.sz);
        EXPECT_EQ(path.sz, temp / "start/Debug/dump.bin");
        EXPECT_TRUE(path.IsUntouchedFrom(256));
        EXPECT_EQ(PermissionsOf(temp / "start/Debug"), 0750);
        EXPECT_EQ(TnRobotUtils::GetDebugDir(), temp / "start/Debug");
        EXPECT_FALSE(std::filesystem::exists(temp / "later/Debug"));
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST_F(DebugDirectory, IsCreatedOnlyOnce) {
    const auto body = [] {
        const TempDirectory temp;
        StartIn(temp.Path());
        EXPECT_EQ(TnRobotUtils::GetDebugDir(), temp / "Debug");
        std::filesystem::remove(temp / "Debug");
        EXPECT_EQ(TnRobotUtils::GetDebugDir(), temp / "Debug");
        EXPECT_FALSE(std::filesystem::exists(temp / "Debug"));
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST_F(DebugDirectory, IsNamedThoughItCannotBeCreated) {
    const auto body = [] {
        const TempDirectory temp;
        StartIn(temp.Directory("gone"));
        std::filesystem::remove(temp / "gone");
        EXPECT_EQ(TnRobotUtils::GetDebugDir(), temp / "gone/Debug");
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST_F(DebugDirectory, OfTheCallerIsNotCreated) {
    const auto body = [] {
        const TempDirectory temp;
        StartIn(temp.Path());
        TnRobotUtils::SetDebugDir((temp / "mine").c_str());
        EXPECT_EQ(TnRobotUtils::GetDebugDir(), temp / "mine");
        PathBuffer path;
        TnRobotUtils::MakeDebugFile("dump.bin", path.sz);
        EXPECT_EQ(path.sz, temp / "mine/dump.bin");
        EXPECT_TRUE(std::filesystem::is_empty(temp.Path()));
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST_F(DebugDirectory, MayBeReplacedAtAnyTime) {
    const auto body = [] {
        const TempDirectory temp;
        StartIn(temp.Path());
        EXPECT_EQ(TnRobotUtils::GetDebugDir(), temp / "Debug");
        TnRobotUtils::SetDebugDir("first");
        TnRobotUtils::SetDebugDir("second");
        EXPECT_STREQ(TnRobotUtils::GetDebugDir(), "second");
        TnRobotUtils::SetDebugDir(TnRobotUtils::GetDebugDir());
        EXPECT_STREQ(TnRobotUtils::GetDebugDir(), "second");
        EXPECT_FALSE(std::filesystem::exists(temp / "second"));
        TnRobotUtils::SetDebugDir(nullptr);
        EXPECT_EQ(TnRobotUtils::GetDebugDir(), temp / "Debug");
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}
