// Directories, whole files, texts and rectangles without memory.

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "TnRobotKernel/utilities.h"
#include "failure/AllocationScenario.h"
#include "support/bytes/Bytes.h"
#include "support/bytes/FileBytes.h"
#include "support/processes/TempDirectory.h"
#include "utils/TnRobotDirectories.h"

namespace tntest {

namespace {

const TempDirectory& Directory() {
    static const TempDirectory s_directory;
    return s_directory;
}

/// The directories as after a load in a directory of the test's own.
class DirectoryScenario : public AllocationScenario {
public:
    DirectoryScenario() {
        std::filesystem::current_path(Directory().Path());
        m_strWork.swap(g_strWorkDir);
        g_strWorkDir = Directory().Path().string();
    }
    ~DirectoryScenario() override {
        g_strWorkDir.swap(m_strWork);
        std::string().swap(g_strDebugDir);
        std::string().swap(g_strProfileDir);
        std::filesystem::current_path(m_current);
        std::filesystem::remove(Directory().Path() / "Debug");
        std::filesystem::remove(Directory().Path() / "TnQuellon");
    }

private:
    const std::filesystem::path m_current = std::filesystem::current_path();
    std::string m_strWork;
};

class PathsAreMade : public DirectoryScenario {
public:
    bool Attempt() override {
        TnRobotUtils::MakeWorkFilePath("work", m_paths[0]);
        TnRobotUtils::MakeDebugFile("debug", m_paths[1]);
        TnRobotUtils::MakeProfile("profile", m_paths[2]);
        TnRobotUtils::MakeValidFile(nullptr, "valid", "txt", m_paths[3]);
        return true;
    }

    // A directory that could not be remembered is worked out again.
    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_EQ(m_paths[0], Directory() / "work");
        EXPECT_EQ(m_paths[1], Directory() / "Debug/debug");
        EXPECT_EQ(m_paths[2], Directory() / "TnQuellon/profile");
        EXPECT_EQ(std::string(m_paths[3]).rfind(Directory() / "valid_", 0), 0U);
        EXPECT_TRUE(std::filesystem::is_directory(Directory() / "Debug"));
        EXPECT_TRUE(std::filesystem::is_directory(Directory() / "TnQuellon"));
    }

private:
    char m_paths[4][TnRobotUtils::kPathSize] = {};
};

class DebugDirectoryIsReplaced : public DirectoryScenario {
public:
    DebugDirectoryIsReplaced() { TnRobotUtils::SetDebugDir("/old"); }

    bool Attempt() override {
        TnRobotUtils::SetDebugDir(kNew);
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_STREQ(TnRobotUtils::GetDebugDir(), bDone ? kNew : "/old");
        TnRobotUtils::SetDebugDir(kNew);
        EXPECT_STREQ(TnRobotUtils::GetDebugDir(), kNew);
    }

private:
    static constexpr char kNew[] = "/a directory whose name needs memory of its own";
};

class WholeFilesAreWrittenAndRead : public AllocationScenario {
public:
    bool Attempt() override {
        return TnRobotUtils::WriteFile(m_strPath.c_str(), kText, kSize, false) == 0 &&
               TnRobotUtils::ReadFile(m_strPath.c_str(), m_buffer, nullptr) == 0;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_EQ(std::string(m_buffer, kSize), kText);
        EXPECT_EQ(ReadBytes(m_strPath), FromText(kText));
        EXPECT_EQ(TnRobotUtils::GetFileSize(m_strPath.c_str()), kSize);
    }

private:
    static constexpr char kText[] = "the content of a whole file";
    static constexpr unsigned int kSize = sizeof(kText) - 1;
    const std::string m_strPath = Directory() / "whole";
    char m_buffer[kSize] = {};
};

class FilesAreFound : public AllocationScenario {
public:
    FilesAreFound() {
        std::filesystem::create_directory(m_strDirectory);
        for (const char* lpszName : {"/a", "/b", "/c"}) {
            WriteBytes(m_strDirectory + lpszName, FromText("x"));
        }
    }
    ~FilesAreFound() override { std::filesystem::remove_all(m_strDirectory); }

    bool Attempt() override {
        TnRobotUtils::FindFile(m_strDirectory.c_str(), "", m_files);
        return true;
    }

    // What was there before stays, and what was found is whole.
    void Check(bool bDone) override {
        EXPECT_EQ(m_files.front(), "before");
        EXPECT_TRUE(bDone ? m_files.size() == 4 : m_files.size() < 4);
        m_files.resize(1);
        EXPECT_TRUE(Attempt());
        std::sort(m_files.begin() + 1, m_files.end());
        const std::vector<std::string> expected = {"before", m_strDirectory + "/a", m_strDirectory + "/b",
                                                   m_strDirectory + "/c"};
        EXPECT_EQ(m_files, expected);
    }

private:
    const std::string m_strDirectory = Directory() / "found";
    std::vector<std::string> m_files = {"before"};
};

class TextsAreMade : public AllocationScenario {
public:
    bool Attempt() override {
        const unsigned char bytes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 200};
        m_strHex = TnRobotStringUtils::Hex2String(bytes, sizeof(bytes));
        m_strDec = TnRobotStringUtils::Dec2String(bytes, sizeof(bytes));
        m_strCopy = TnRobotStringUtils::GbkToUtf8(m_strHex.c_str());
        m_strOther = TnRobotStringUtils::UtfToGbk(m_strDec.c_str());
        m_strLike = TnRobotSQLUtils::CreateFilter("a field with a long name", "a value");
        m_strLess = TnRobotSQLUtils::CreateFilter("a field with a long name", TnRobotSQLUtils::SQL_OPERA_LESS, "10");
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_EQ(m_strHex, "01 02 03 04 05 06 07 08 09 0a 0b c8");
        EXPECT_EQ(m_strDec, "01 02 03 04 05 06 07 08 09 10 11 200");
        EXPECT_EQ(m_strCopy, m_strHex);
        EXPECT_EQ(m_strOther, m_strDec);
        EXPECT_EQ(m_strLike, "a field with a long name LIKE 'a value'");
        EXPECT_EQ(m_strLess, "a field with a long name < 10");
    }

private:
    std::string m_strHex;
    std::string m_strDec;
    std::string m_strCopy;
    std::string m_strOther;
    std::string m_strLike;
    std::string m_strLess;
};

class TextIsSplit : public AllocationScenario {
public:
    bool Attempt() override {
        return TnRobotStringUtils::SplitString("a part that needs memory of its own,b,,another such part of a text",
                                               ',', m_parts) == 4;
    }

    // All parts are appended, or none.
    void Check(bool bDone) override {
        const std::vector<std::string> before = {"before"};
        const std::vector<std::string> after = {"before", "a part that needs memory of its own", "b",
                                                "another such part of a text"};
        EXPECT_EQ(m_parts, bDone ? after : before);
        m_parts.resize(1);
        EXPECT_TRUE(Attempt());
        EXPECT_EQ(m_parts, after);
    }

private:
    std::vector<std::string> m_parts = {"before"};
};

class RectanglesAreMergedAndCut : public AllocationScenario {
public:
    bool Attempt() override {
        const STnNLRect rects[] = {{20, 30, 0, 10}, {0, 10, 0, 10}, {5, 15, 100, 110}};
        m_merged = TnRobotRectUtils::mergeRects(rects, 3);
        m_strips = TnRobotRectUtils::rectXor(rects[1], {5, 15, 0, 10});
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || Attempt());
        ASSERT_EQ(m_merged.size(), 2U);
        EXPECT_EQ(m_merged[0].right, 15);
        EXPECT_EQ(m_merged[0].bottom, 110);
        EXPECT_EQ(m_merged[1].left, 20);
        ASSERT_EQ(m_strips.size(), 2U);
        EXPECT_EQ(m_strips[0].right, 5);
        EXPECT_EQ(m_strips[1].left, 10);
    }

private:
    std::vector<STnNLRect> m_merged;
    std::vector<STnNLRect> m_strips;
};

/// What works in its callers' buffers.
class BuffersAreConverted : public AllocationScenario {
public:
    bool Attempt() override {
        const unsigned char bytes[] = {0x4D, 0x61, 0x6E, 0x4D};
        const int nText = TnRobotTextCodec::Base64Encode(bytes, sizeof(bytes), m_szText);
        const int nBytes = TnRobotTextCodec::Base64Decode(m_szText, m_bytes);
        const int nHex = TnRobotStringUtils::String2Hex("0A 1b  f", m_hex);
        STnNLRect out = {};
        const bool bMeet = TnRobotRectUtils::GetInterRect({0, 10, 0, 10}, {5, 15, 5, 15}, out);
        return nText == 8 && nBytes == 4 && nHex == 3 && bMeet && out.left == 5 &&
               TnRobotUtils::GetPureName("/a/b/c.txt", m_szName) == 0;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone);
        EXPECT_STREQ(m_szText, "TWFuTQ==");
        EXPECT_STREQ(m_szName, "c.txt");
        EXPECT_EQ(m_bytes[2], 0x6E);
        EXPECT_EQ(m_hex[2], 0x0F);
    }

private:
    char m_szText[16] = {};
    unsigned char m_bytes[8] = {};
    unsigned char m_hex[8] = {};
    char m_szName[TnRobotUtils::kPathSize] = {};
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Utilities, AllocationFailure,
                         testing::Values(MakeCase<PathsAreMade>("PathsAreMade"),
                                         MakeCase<DebugDirectoryIsReplaced>("DebugDirectoryIsReplaced"),
                                         MakeCase<WholeFilesAreWrittenAndRead>("WholeFilesAreWrittenAndRead"),
                                         MakeCase<FilesAreFound>("FilesAreFound"),
                                         MakeCase<TextsAreMade>("TextsAreMade"), MakeCase<TextIsSplit>("TextIsSplit"),
                                         MakeCase<RectanglesAreMergedAndCut>("RectanglesAreMergedAndCut"),
                                         MakeFreeCase<BuffersAreConverted>("BuffersAreConverted")),
                         AllocationCaseName);

}  // namespace tntest
