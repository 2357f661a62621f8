#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "TnRobotKernel/utilities.h"
#include "support/FileBytes.h"
#include "support/TempDirectory.h"

using tntest::FromText;
using tntest::ReadBytes;
using tntest::TempDirectory;

namespace {

// Larger than a path buffer, to see that nothing is written behind it.
struct PathBuffer {
    static constexpr char kUnwritten = '#';

    PathBuffer() { std::memset(sz, kUnwritten, sizeof(sz)); }
    bool IsUntouched() const { return IsUntouchedFrom(0); }
    bool IsUntouchedFrom(std::size_t nFirst) const {
        return std::all_of(sz + nFirst, sz + sizeof(sz), [](char ch) { return ch == kUnwritten; });
    }

    char sz[600];
};

int PermissionsOf(const std::string& strPath) {
    struct stat status = {};
    return stat(strPath.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 0777U) : -1;
}

// The directories are computed once for a process, so each test of that runs in a process of its
// own, started anew.
class FreshProcess : public testing::Test {
protected:
    FreshProcess() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    // Loads, so to say, the library in another directory.
    static void StartIn(const std::string& strDirectory) {
        std::filesystem::current_path(strDirectory);
        TnRobotUtils::Init();
    }
    [[noreturn]] static void Finish() {
        TnRobotUtils::Destroy();
        std::exit(HasFailure() ? 1 : 0);
    }
};

#define EXPECT_TO_PASS_IN_FRESH_PROCESS(body) \
    EXPECT_EXIT(                              \
        {                                     \
            body();                           \
            Finish();                         \
        },                                    \
        testing::ExitedWithCode(0), "")

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

TEST(PathsAndFiles, AWorkFilePathIsJoinedWithASlashAndFilledUpWithZeros) {
    PathBuffer path;
    TnRobotUtils::MakeWorkFilePath("part/file.bin", path.sz);
    const std::string strExpected = std::string(TnRobotUtils::GetWorkDir()) + "/part/file.bin";
    EXPECT_EQ(path.sz, strExpected);
    EXPECT_TRUE(std::all_of(path.sz + strExpected.size(), path.sz + 256, [](char ch) { return ch == '\0'; }));
    EXPECT_TRUE(path.IsUntouchedFrom(256));
}

TEST(PathsAndFiles, AWorkFilePathOfAllLengthsFillsExactlyTheBuffer) {
    const std::string strPrefix = std::string(TnRobotUtils::GetWorkDir()) + "/";
    ASSERT_LT(strPrefix.size(), 250U);
    for (std::size_t nTotal = 250; nTotal < 300; ++nTotal) {
        const std::string strName(nTotal - strPrefix.size(), 'n');
        PathBuffer path;
        TnRobotUtils::MakeWorkFilePath(strName.c_str(), path.sz);
        std::string strExpected = strPrefix + strName;
        strExpected.resize(256, '\0');  // cut without a terminator, or filled up
        EXPECT_EQ(std::string(path.sz, 256), strExpected) << nTotal;
        EXPECT_TRUE(path.IsUntouchedFrom(256)) << nTotal;
    }
}

TEST(PathsAndFiles, ANullNameCountsAsEmptyAndANullBufferIsIgnored) {
    PathBuffer path;
    TnRobotUtils::MakeWorkFilePath(nullptr, path.sz);
    EXPECT_EQ(path.sz, std::string(TnRobotUtils::GetWorkDir()) + "/");
    TnRobotUtils::MakeWorkFilePath("name", nullptr);
    TnRobotUtils::MakeWorkFilePath(nullptr, nullptr);
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

TEST(PathsAndFiles, PathsAreTakenApartAtTheLastSeparator) {
    const struct {
        const char* lpszPath;
        const char* lpszDirectory;
        const char* lpszName;
    } cases[] = {
        {"/a/b/c.txt", "/a/b", "c.txt"},
        {"a/b", "a", "b"},
        {"dir\\file.bin", "dir", "file.bin"},
        {"a/b\\c", "a/b", "c"},
        {"a\\b/c", "a\\b", "c"},
        {"/c.txt", "", "c.txt"},
        {"a/b/", "a/b", ""},
        {"/", "", ""},
        {"\\", "", ""},
        {"a//b", "a/", "b"},
        {"./%s%n", ".", "%s%n"},
    };
    for (const auto& test : cases) {
        PathBuffer directory;
        EXPECT_EQ(TnRobotUtils::GetPurePath(test.lpszPath, directory.sz), 0) << test.lpszPath;
        EXPECT_STREQ(directory.sz, test.lpszDirectory);
        EXPECT_TRUE(directory.IsUntouchedFrom(std::strlen(test.lpszDirectory) + 1));
        PathBuffer name;
        EXPECT_EQ(TnRobotUtils::GetPureName(test.lpszPath, name.sz), 0) << test.lpszPath;
        EXPECT_STREQ(name.sz, test.lpszName);
        EXPECT_TRUE(name.IsUntouchedFrom(std::strlen(test.lpszName) + 1));
    }
}

TEST(PathsAndFiles, APathWithoutASeparatorHasNoParts) {
    for (const char* lpszPath : {"c.txt", "", "a:b", static_cast<const char*>(nullptr)}) {
        PathBuffer part;
        EXPECT_EQ(TnRobotUtils::GetPurePath(lpszPath, part.sz), -1);
        EXPECT_EQ(TnRobotUtils::GetPureName(lpszPath, part.sz), -1);
        EXPECT_TRUE(part.IsUntouched());
        EXPECT_EQ(TnRobotUtils::GetPurePath(lpszPath, nullptr), -1);
        EXPECT_EQ(TnRobotUtils::GetPureName(lpszPath, nullptr), -1);
    }
}

TEST(PathsAndFiles, APartIsNotWrittenToANullBuffer) {
    EXPECT_EQ(TnRobotUtils::GetPurePath("a/b", nullptr), 0);
    EXPECT_EQ(TnRobotUtils::GetPureName("a/b", nullptr), 0);
}

TEST(PathsAndFiles, PartsStayWithinThePathBuffer) {
    for (std::size_t nLength = 250; nLength < 300; ++nLength) {
        const std::string strPart(nLength, 'p');
        const std::size_t nKept = std::min<std::size_t>(nLength, 255);
        PathBuffer directory;
        EXPECT_EQ(TnRobotUtils::GetPurePath((strPart + "/x").c_str(), directory.sz), 0);
        EXPECT_EQ(directory.sz, strPart.substr(0, nKept));
        EXPECT_TRUE(directory.IsUntouchedFrom(nKept + 1));
        PathBuffer name;
        EXPECT_EQ(TnRobotUtils::GetPureName(("x/" + strPart).c_str(), name.sz), 0);
        EXPECT_EQ(name.sz, strPart.substr(0, nKept));
        EXPECT_TRUE(name.IsUntouchedFrom(nKept + 1));
    }
}

TEST(PathsAndFiles, APartMayReplaceItsPath) {
    char szPath[256] = "/a/b/c.txt";
    EXPECT_EQ(TnRobotUtils::GetPureName(szPath, szPath), 0);
    EXPECT_STREQ(szPath, "c.txt");
    char szOther[256] = "/a/b/c.txt";
    EXPECT_EQ(TnRobotUtils::GetPurePath(szOther, szOther), 0);
    EXPECT_STREQ(szOther, "/a/b");
}

TEST(PathsAndFiles, NoWildcardMatches) {
    EXPECT_FALSE(TnRobotUtils::MatchWildcard("name", "*"));
    EXPECT_FALSE(TnRobotUtils::MatchWildcard("name", "name"));
    EXPECT_FALSE(TnRobotUtils::MatchWildcard("", ""));
    EXPECT_FALSE(TnRobotUtils::MatchWildcard(nullptr, nullptr));
}

TEST(PathsAndFiles, TheSizeOfAFileHas64Bits) {
    const TempDirectory temp;
    EXPECT_EQ(TnRobotUtils::GetFileSize(temp.File("ten", "0123456789").c_str()), 10);
    EXPECT_EQ(TnRobotUtils::GetFileSize(temp.File("empty", "").c_str()), 0);
    EXPECT_EQ(TnRobotUtils::GetFileSize(temp.SparseFile("large", 5368709123ULL).c_str()), 5368709123LL);
    EXPECT_EQ(TnRobotUtils::GetFileSize((temp / "missing").c_str()), 0);
    EXPECT_EQ(TnRobotUtils::GetFileSize(""), 0);
    EXPECT_EQ(TnRobotUtils::GetFileSize(nullptr), 0);
}

TEST(PathsAndFiles, OnlyARegularFileExists) {
    const TempDirectory temp;
    const std::string strFile = temp.File("file");
    std::filesystem::create_symlink(strFile, temp / "link");
    std::filesystem::create_symlink(temp / "missing", temp / "broken");
    ASSERT_EQ(mkfifo((temp / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(TnRobotUtils::IsFileExist(strFile.c_str(), 0), 0);
    EXPECT_EQ(TnRobotUtils::IsFileExist((temp / "link").c_str(), 0), 0);
    for (const char* lpszName : {"missing", "broken", "pipe", "."}) {
        EXPECT_EQ(TnRobotUtils::IsFileExist((temp / lpszName).c_str(), 0), -1) << lpszName;
        EXPECT_EQ(TnRobotUtils::IsFileExist((temp / lpszName).c_str(), R_OK), -1) << lpszName;
    }
    EXPECT_EQ(TnRobotUtils::IsFileExist("", 0), -1);
    EXPECT_EQ(TnRobotUtils::IsFileExist(nullptr, 0), -1);
}

TEST(PathsAndFiles, AFileExistsForTheAccessThatItAllows) {
    const TempDirectory temp;
    const std::string strFile = temp.File("file");
    ASSERT_EQ(chmod(strFile.c_str(), 0600), 0);
    EXPECT_EQ(TnRobotUtils::IsFileExist(strFile.c_str(), R_OK), 0);
    EXPECT_EQ(TnRobotUtils::IsFileExist(strFile.c_str(), R_OK | W_OK), 0);
    EXPECT_EQ(TnRobotUtils::IsFileExist(strFile.c_str(), X_OK), -1);
    EXPECT_EQ(TnRobotUtils::IsFileExist(strFile.c_str(), R_OK | X_OK), -1);
    EXPECT_EQ(TnRobotUtils::IsFileExist(strFile.c_str(), 0), 0);
    ASSERT_EQ(chmod(strFile.c_str(), 0700), 0);
    EXPECT_EQ(TnRobotUtils::IsFileExist(strFile.c_str(), X_OK), 0);
    EXPECT_EQ(TnRobotUtils::IsFileExist(strFile.c_str(), 0x1000), -1) << "no such mode";
}

namespace {

struct DatedName {
    std::string strHead;
    int nYear = 0, nMonth = 0, nDay = 0;
    long long nMilliseconds = -1;
    std::string strTail;
};

// The digits before a position, which moves in front of them and of the underscore before them.
std::string TakeDigits(const std::string& strPath, std::size_t& nEnd) {
    std::size_t nBegin = nEnd;
    while (nBegin > 0 && std::isdigit(static_cast<unsigned char>(strPath[nBegin - 1])) != 0) {
        --nBegin;
    }
    const std::string strDigits = strPath.substr(nBegin, nEnd - nBegin);
    if (strDigits.empty() || nBegin == 0 || strPath[nBegin - 1] != '_') {
        ADD_FAILURE() << "not a dated name: " << strPath;
        nEnd = 0;
        return "0";
    }
    nEnd = nBegin - 1;
    return strDigits;
}

// Takes "head_YYYY_MM_DD_milliseconds.tail" apart.
DatedName Parse(const std::string& strPath) {
    const std::size_t nPoint = strPath.rfind('.');
    std::size_t nEnd = nPoint == std::string::npos ? 0 : nPoint;
    const std::string strMilliseconds = TakeDigits(strPath, nEnd);
    const std::string strDay = TakeDigits(strPath, nEnd);
    const std::string strMonth = TakeDigits(strPath, nEnd);
    const std::string strYear = TakeDigits(strPath, nEnd);
    EXPECT_LE(strMilliseconds.size(), 8U);
    EXPECT_EQ(strDay.size(), 2U);
    EXPECT_EQ(strMonth.size(), 2U);
    EXPECT_EQ(strYear.size(), 4U);
    return {strPath.substr(0, nEnd), std::stoi(strYear),          std::stoi(strMonth),
            std::stoi(strDay),       std::stoll(strMilliseconds), strPath.substr(nPoint + 1)};
}

std::string DatedPath(const char* lpszDirectory, const char* lpszName, const char* lpszExtension) {
    PathBuffer path;
    TnRobotUtils::MakeValidFile(lpszDirectory, lpszName, lpszExtension, path.sz);
    EXPECT_TRUE(path.IsUntouchedFrom(256));
    return path.sz;
}

// A date and a time of day as one number that grows with the time.
long long LocalTime(const std::tm& local, long long nMillisecond) {
    const long long nDay = (local.tm_year + 1900LL) * 10000 + (local.tm_mon + 1) * 100 + local.tm_mday;
    const long long nOfDay = (local.tm_hour * 3600LL + local.tm_min * 60 + local.tm_sec) * 1000 + nMillisecond;
    return nDay * 100000000 + nOfDay;
}

long long LocalTimeNow() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm local = {};
    localtime_r(&now.tv_sec, &local);
    return LocalTime(local, now.tv_nsec / 1000000);
}

long long LocalTime(const DatedName& name) {
    return ((name.nYear * 10000LL) + name.nMonth * 100 + name.nDay) * 100000000 + name.nMilliseconds;
}

}  // namespace

TEST(DatedFileNames, HoldTheDateAndTheMillisecondsSinceLocalMidnight) {
    const TempDirectory temp;
    const long long nBefore = LocalTimeNow();
    const std::string strPath = DatedPath(temp.Path().c_str(), "image", "bmp");
    const long long nAfter = LocalTimeNow();
    const DatedName name = Parse(strPath);
    EXPECT_EQ(name.strHead, temp / "image");
    EXPECT_EQ(name.strTail, "bmp");
    EXPECT_GE(LocalTime(name), nBefore);
    EXPECT_LE(LocalTime(name), nAfter);
    EXPECT_FALSE(std::filesystem::exists(strPath)) << "only named, not created";
}

TEST_F(FreshProcess, DatedFileNamesFollowTheTimeZone) {
    const auto body = [] {
        long long nTimes[2] = {};
        const char* const zones[] = {"XXX-0", "XXX-12"};
        for (int i = 0; i < 2; ++i) {
            setenv("TZ", zones[i], 1);
            nTimes[i] = Parse(DatedPath("", "n", "e")).nMilliseconds;
        }
        const long long nHalfDay = 12LL * 3600 * 1000;
        const long long nShift = (nTimes[1] - nTimes[0] + 2 * nHalfDay) % (2 * nHalfDay);
        EXPECT_GE(nShift, nHalfDay);
        EXPECT_LT(nShift, nHalfDay + 60000);
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

namespace {

// Sets the time zone so that it is now so many seconds after local midnight, and some more when
// the test is slow.
void SetLocalTime(long long nSecondsOfDay) {
    constexpr long long kDay = 24LL * 3600;
    const long long nWest = ((std::time(nullptr) - nSecondsOfDay) % kDay + kDay) % kDay;
    char szZone[32] = {};
    std::snprintf(szZone, sizeof(szZone), "XXX%02lld:%02lld:%02lld", nWest / 3600, nWest / 60 % 60, nWest % 60);
    setenv("TZ", szZone, 1);
}

}  // namespace

// The milliseconds have no leading zeros.
TEST_F(FreshProcess, DatedFileNamesDoNotSortByTimeAsTexts) {
    const auto body = [] {
        SetLocalTime(2LL * 3600);
        const std::string strTwo = DatedPath("d", "n", "e");
        SetLocalTime(3LL * 3600);
        const std::string strThree = DatedPath("d", "n", "e");
        EXPECT_EQ(Parse(strTwo).nMilliseconds / 60000, 120) << strTwo;
        EXPECT_EQ(Parse(strThree).nMilliseconds / 60000, 180) << strThree;
        EXPECT_GT(strTwo.substr(strTwo.rfind('_')), strThree.substr(strThree.rfind('_')));
    };
    EXPECT_TO_PASS_IN_FRESH_PROCESS(body);
}

TEST(DatedFileNames, TakeTheWorkDirectoryForNoDirectory) {
    EXPECT_EQ(Parse(DatedPath(nullptr, "log", "txt")).strHead, std::string(TnRobotUtils::GetWorkDir()) + "/log");
}

TEST(DatedFileNames, KeepTheirFormWithoutNameOrExtension) {
    EXPECT_EQ(Parse(DatedPath("", "", "")).strHead, "/");
    const DatedName name = Parse(DatedPath("d", nullptr, nullptr));
    EXPECT_EQ(name.strHead, "d/");
    EXPECT_EQ(name.strTail, "");
    EXPECT_EQ(Parse(DatedPath("d", "%s%n", "%d")).strHead, "d/%s%n");
    TnRobotUtils::MakeValidFile("d", "n", "e", nullptr);
}

// Far more names than milliseconds pass meanwhile.
TEST(DatedFileNames, AreNeverThoseOfFilesAndSortByTime) {
    const TempDirectory temp;
    std::set<std::string> paths;
    long long nLast = 0;
    for (int i = 0; i < 500; ++i) {
        const std::string strPath = DatedPath(temp.Path().c_str(), "image", "jpg");
        EXPECT_FALSE(std::filesystem::exists(strPath)) << strPath;
        EXPECT_TRUE(paths.insert(temp.File(std::filesystem::path(strPath).filename().string())).second);
        const long long nTime = LocalTime(Parse(strPath));
        EXPECT_GT(nTime, nLast);
        nLast = nTime;
    }
}

TEST(DatedFileNames, MayHaveTheNameOfADirectory) {
    const TempDirectory temp;
    bool bSame = false;
    for (int i = 0; i < 1000 && !bSame; ++i) {  // until both names are of one millisecond
        const std::string strPath = DatedPath(temp.Path().c_str(), "d", "e");
        std::filesystem::create_directory(strPath);
        bSame = DatedPath(temp.Path().c_str(), "d", "e") == strPath;
    }
    EXPECT_TRUE(bSame);
}

TEST(DatedFileNames, AreEmptyWhenTheyDoNotFit) {
    const std::string strFixed = "d/_2000_01_01_12345678.e";  // at most, without a name
    for (std::size_t nName = 200; nName < 600; ++nName) {
        const std::string strName(nName, 'n');
        const std::string strPath = DatedPath("d", strName.c_str(), "e");
        if (nName + strFixed.size() <= 255) {
            EXPECT_EQ(Parse(strPath).strHead, "d/" + strName);
        } else if (nName + strFixed.size() > 255 + 7) {
            EXPECT_EQ(strPath, "");
        }
    }
}

TEST(DatedFileNames, MayReplaceTheirDirectory) {
    char szPath[256] = "directory";
    TnRobotUtils::MakeValidFile(szPath, "n", "e", szPath);
    EXPECT_EQ(Parse(szPath).strHead, "directory/n");
}

TEST(WholeFiles, AreReadAfterTheirSizeWasAsked) {
    const TempDirectory temp;
    const std::string strContent(
        "\0\r\n\xFF"
        "456789",
        10);
    const std::string strFile = temp.File("ten", strContent);
    int nLength = -5;
    EXPECT_EQ(TnRobotUtils::ReadFile(strFile.c_str(), nullptr, &nLength), 0);
    EXPECT_EQ(nLength, 10);
    nLength = -5;
    std::vector<char> buffer(10);
    EXPECT_EQ(TnRobotUtils::ReadFile(strFile.c_str(), buffer.data(), &nLength), 0);
    EXPECT_EQ(nLength, 10);
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), strContent);
    std::vector<char> other(10);
    EXPECT_EQ(TnRobotUtils::ReadFile(strFile.c_str(), other.data(), nullptr), 0);
    EXPECT_EQ(other, buffer);
    EXPECT_EQ(TnRobotUtils::ReadFile(strFile.c_str(), nullptr, nullptr), 0);
}

TEST(WholeFiles, ThatAreMissingEmptyOrTooLargeAreNotRead) {
    const TempDirectory temp;
    const std::string files[] = {temp / "missing",
                                 "",
                                 temp.File("empty", ""),
                                 temp.SparseFile("2 GiB", 0x80000000ULL),
                                 temp.SparseFile("4 GiB less a byte", 0xFFFFFFFFULL),
                                 temp.SparseFile("4 GiB", 0x100000000ULL),
                                 temp.SparseFile("4 GiB and ten bytes", 0x10000000AULL)};
    for (const std::string& strFile : files) {
        int nLength = -5;
        char chUntouched = '#';
        EXPECT_EQ(TnRobotUtils::ReadFile(strFile.c_str(), nullptr, &nLength), -1) << strFile;
        EXPECT_EQ(TnRobotUtils::ReadFile(strFile.c_str(), &chUntouched, &nLength), -1) << strFile;
        EXPECT_EQ(nLength, -5);
        EXPECT_EQ(chUntouched, '#');
    }
    EXPECT_EQ(TnRobotUtils::ReadFile(nullptr, nullptr, nullptr), -1);
}

TEST(WholeFiles, JustBelowTwoGibibytesTellTheirSize) {
    const TempDirectory temp;
    int nLength = 0;
    EXPECT_EQ(TnRobotUtils::ReadFile(temp.SparseFile("large", 0x7FFFFFFFULL).c_str(), nullptr, &nLength), 0);
    EXPECT_EQ(nLength, 0x7FFFFFFF);
}

TEST(WholeFiles, ThatCannotBeOpenedCountAsReadAndWritten) {
    const TempDirectory temp;
    const std::string strFile = temp.File("ten", "0123456789");
    ASSERT_EQ(chmod(temp.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(strFile.c_str(), 0), 0);
    const uid_t nUser = geteuid();
    if (nUser == 0 && seteuid(65534) != 0) {
        GTEST_SKIP() << "no user to be that may not open the file";
    }
    std::string strBuffer(10, '#');
    int nLength = -5;
    const int nRead = TnRobotUtils::ReadFile(strFile.c_str(), strBuffer.data(), &nLength);
    const int nWritten = TnRobotUtils::WriteFile(strFile.c_str(), "ab", 2, false);
    ASSERT_EQ(seteuid(nUser), 0);
    EXPECT_EQ(nRead, 0);
    EXPECT_EQ(nLength, 10);
    EXPECT_EQ(strBuffer, "##########");
    EXPECT_EQ(nWritten, 0);
    ASSERT_EQ(chmod(strFile.c_str(), 0600), 0);
    EXPECT_EQ(ReadBytes(strFile), FromText("0123456789"));
}

TEST(WholeFiles, MayBeDirectoriesWhichHaveASizeButNoContent) {
    const TempDirectory temp;
    for (int i = 0; i < 100; ++i) {
        temp.File(std::string(200, 'f') + std::to_string(i));  // so that the directory has a size
    }
    const long long nSize = TnRobotUtils::GetFileSize(temp.Path().c_str());
    std::string strBuffer(static_cast<std::size_t>(nSize) + 1, '#');
    const std::string strBefore = strBuffer;
    int nLength = 0;
    EXPECT_EQ(TnRobotUtils::ReadFile(temp.Path().c_str(), strBuffer.data(), &nLength), nSize > 0 ? 0 : -1);
    EXPECT_EQ(nLength, nSize);
    EXPECT_EQ(strBuffer, strBefore);
}

TEST(WholeFiles, AreRewrittenFromTheirStartEvenWhenAskedToAppend) {
    const TempDirectory temp;
    const std::string strFile = temp.File("file", "xyz");
    EXPECT_EQ(TnRobotUtils::WriteFile(strFile.c_str(), "ab", 2, true), 0);
    EXPECT_EQ(ReadBytes(strFile), FromText("ab"));
    EXPECT_EQ(TnRobotUtils::WriteFile(strFile.c_str(), "\0\n", 2, false), 0);
    EXPECT_EQ(ReadBytes(strFile), FromText({"\0\n", 2}));
}

TEST(WholeFiles, AreCreatedWhenMissing) {
    const TempDirectory temp;
    EXPECT_EQ(TnRobotUtils::WriteFile((temp / "new").c_str(), "abc", 3, false), 0);
    EXPECT_EQ(ReadBytes(temp / "new"), FromText("abc"));
}

TEST(WholeFiles, AreNotWrittenWithoutDataOrName) {
    const TempDirectory temp;
    const std::string strFile = temp.File("file", "xyz");
    EXPECT_EQ(TnRobotUtils::WriteFile(strFile.c_str(), nullptr, 2, false), -1);
    EXPECT_EQ(TnRobotUtils::WriteFile(strFile.c_str(), "ab", 0, false), -1);
    EXPECT_EQ(TnRobotUtils::WriteFile(nullptr, "ab", 2, false), -1);
    EXPECT_EQ(ReadBytes(strFile), FromText("xyz"));
}

TEST(WholeFiles, ThatCannotBeWrittenCountAsWritten) {
    const TempDirectory temp;
    EXPECT_EQ(TnRobotUtils::WriteFile((temp / "missing/file").c_str(), "ab", 2, false), 0);
    EXPECT_EQ(TnRobotUtils::WriteFile(temp.Path().c_str(), "ab", 2, false), 0);
    EXPECT_EQ(TnRobotUtils::WriteFile("", "ab", 2, false), 0);
    EXPECT_TRUE(std::filesystem::is_empty(temp.Path()));
}

TEST(WholeFiles, OfSomeMebibytesComeBackAsTheyWere) {
    const TempDirectory temp;
    std::string strContent(3 * 1024 * 1024 + 7, '\0');
    for (std::size_t i = 0; i < strContent.size(); ++i) {
        strContent[i] = static_cast<char>(i * 2654435761U >> 16);
    }
    const std::string strFile = temp / "large";
    ASSERT_EQ(TnRobotUtils::WriteFile(strFile.c_str(), strContent.data(), static_cast<unsigned int>(strContent.size()),
                                      false),
              0);
    std::string strRead(strContent.size(), '#');
    int nLength = 0;
    ASSERT_EQ(TnRobotUtils::ReadFile(strFile.c_str(), strRead.data(), &nLength), 0);
    EXPECT_EQ(static_cast<std::size_t>(nLength), strContent.size());
    EXPECT_TRUE(strRead == strContent);
}

TEST(WholeFiles, MayBeNamedByTheBufferThatTheyAreReadInto) {
    const TempDirectory temp;
    const std::string strContent(300, 'c');
    std::string strBuffer = temp.File("file", strContent);
    strBuffer.resize(strContent.size() + 1);
    int nLength = 0;
    EXPECT_EQ(TnRobotUtils::ReadFile(strBuffer.c_str(), strBuffer.data(), &nLength), 0);
    EXPECT_EQ(nLength, 300);
    EXPECT_EQ(strBuffer.substr(0, 300), strContent);
    const std::string strFile = temp / "name";
    EXPECT_EQ(
        TnRobotUtils::WriteFile(strFile.c_str(), strFile.c_str(), static_cast<unsigned int>(strFile.size()), false), 0);
    EXPECT_EQ(ReadBytes(strFile), FromText(strFile));
}

namespace {

bool s_bHideEntryTypes = false;
int s_nAsked = 0;  // entries that the system was asked about one by one

using Files = std::vector<std::string>;

Files Find(const std::string& strDirectory, const char* lpszPattern) {
    Files files;
    TnRobotUtils::FindFile(strDirectory.c_str(), lpszPattern, files);
    return files;
}

Files Sorted(Files files) {
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

// Stands before the system's function, to play a file system that does not tell entry types.
extern "C" dirent* readdir(DIR* pDirectory) {
    static const auto next = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    dirent* pEntry = next(pDirectory);
    if (pEntry != nullptr && s_bHideEntryTypes) {
        pEntry->d_type = DT_UNKNOWN;
    }
    return pEntry;
}

extern "C" int lstat(const char* lpszPath, struct stat* pStatus) {
    static const auto next = reinterpret_cast<int (*)(const char*, struct stat*)>(dlsym(RTLD_NEXT, "lstat"));
    ++s_nAsked;
    return next(lpszPath, pStatus);
}

TEST(FindFile, ListsTheRegularFilesDirectlyInside) {
    const TempDirectory temp;
    const std::string strFile = temp.File("one");
    temp.Directory("sub");
    temp.File("sub/deeper");
    std::filesystem::create_symlink(strFile, temp / "link");
    ASSERT_EQ(mkfifo((temp / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Find(temp.Path(), "*"), Files{strFile});
    EXPECT_EQ(Find(temp.Path().string() + "/", "*"), Files{temp.Path().string() + "//one"});
}

TEST(FindFile, ListsTheSameWhereTheListingDoesNotTellTypes) {
    const TempDirectory temp;
    const std::string strFile = temp.File("one");
    temp.Directory("sub");
    std::filesystem::create_symlink(strFile, temp / "link");
    ASSERT_EQ(mkfifo((temp / "pipe").c_str(), 0600), 0);
    s_bHideEntryTypes = true;
    const Files files = Find(temp.Path(), "*");
    s_bHideEntryTypes = false;
    EXPECT_EQ(files, Files{strFile});
}

TEST(FindFile, AsksOnceForEachEntryThatMayBeAFile) {
    const TempDirectory temp;
    const Files all = Sorted({temp.File("a"), temp.File("b"), temp.File("c")});
    temp.Directory("sub");
    std::filesystem::create_symlink(temp / "a", temp / "link");
    s_nAsked = 0;
    const Files files = Find(temp.Path(), "*");
    const int nAsked = s_nAsked;
    EXPECT_EQ(Sorted(files), all);
    EXPECT_EQ(nAsked, 3);
}

// A listing alone would tell their names.
TEST(FindFile, ListsNothingThatIsOutOfReach) {
    const TempDirectory temp;
    temp.File("one");
    ASSERT_EQ(chmod(temp.Path().c_str(), 0444), 0);
    const uid_t nUser = geteuid();
    if (nUser == 0 && seteuid(65534) != 0) {
        GTEST_SKIP() << "no user to be that may not enter the directory";
    }
    const Files files = Find(temp.Path(), "*");
    ASSERT_EQ(seteuid(nUser), 0);
    ASSERT_EQ(chmod(temp.Path().c_str(), 0700), 0);
    EXPECT_EQ(files, Files{});
}

// A text as short as this one lies within the list, and moves when that grows.
TEST(FindFile, TakesItsDirectoryFromTheListThatGrows) {
    const TempDirectory temp;
    Files expected = {"."};
    for (int i = 0; i < 20; ++i) {
        temp.File(std::to_string(i));
        expected.push_back("./" + std::to_string(i));
    }
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(temp.Path());
    Files files = {"."};
    files.shrink_to_fit();
    TnRobotUtils::FindFile(files[0].c_str(), "*", files);
    std::filesystem::current_path(before);
    EXPECT_EQ(Sorted(files), Sorted(expected));
}

TEST(FindFile, DoesNotFilter) {
    const TempDirectory temp;
    const Files all = Sorted({temp.File("a.jpg"), temp.File("b.bmp"), temp.File(".hidden")});
    for (const char* lpszPattern : {"*.jpg", "", "nothing", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(Sorted(Find(temp.Path(), lpszPattern)), all);
    }
}

TEST(FindFile, GivesTheOrderOfTheListing) {
    const TempDirectory temp;
    for (int i = 0; i < 100; ++i) {
        temp.File(std::to_string(i * 7919 % 1000));
    }
    Files expected;
    DIR* pDirectory = opendir(temp.Path().c_str());
    ASSERT_NE(pDirectory, nullptr);
    while (const dirent* pEntry = readdir(pDirectory)) {
        if (pEntry->d_name[0] != '.') {
            expected.push_back(temp / pEntry->d_name);
        }
    }
    closedir(pDirectory);
    ASSERT_EQ(expected.size(), 100U);
    EXPECT_EQ(Find(temp.Path(), "*"), expected);
}

TEST(FindFile, AppendsToWhatIsThere) {
    const TempDirectory temp;
    const std::string strFile = temp.File("one");
    Files files = {"before"};
    TnRobotUtils::FindFile(temp.Path().c_str(), "*", files);
    TnRobotUtils::FindFile(temp.Path().c_str(), "*", files);
    EXPECT_EQ(files, (Files{"before", strFile, strFile}));
}

TEST(FindFile, ChangesNothingWithoutADirectory) {
    const TempDirectory temp;
    Files files = {"before"};
    TnRobotUtils::FindFile((temp / "missing").c_str(), "*", files);
    TnRobotUtils::FindFile(temp.File("file").c_str(), "*", files);
    TnRobotUtils::FindFile("", "*", files);
    TnRobotUtils::FindFile(nullptr, "*", files);
    EXPECT_EQ(files, Files{"before"});
    EXPECT_TRUE(Find(temp.Directory("empty"), "*").empty());
}

TEST(FindFile, ListsPathsOfAnyLength) {
    const TempDirectory temp;
    const std::string strDirectory = std::string(200, 'd') + "/" + std::string(200, 'e');
    temp.Directory(strDirectory);
    const std::string strFile = temp.File(strDirectory + "/" + std::string(255, 'f'));
    EXPECT_EQ(Find(temp / strDirectory, "*"), Files{strFile});
}
