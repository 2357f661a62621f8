// Whole files in one call, and the files of a directory.

#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "TnRobotKernel/utilities.h"
#include "support/bytes/FileBytes.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

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
