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
#include "support/processes/TempDirectory.h"
#include "utils/UtilsTest.h"

using namespace tntest;

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
