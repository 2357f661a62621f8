#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"
#include "support/objects/Files.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

constexpr auto kBegin = ITnRobotFile::SEEK_DIRECT_BEGIN;
constexpr auto kCurrent = ITnRobotFile::SEEK_DIRECT_CURRENT;
constexpr auto kEnd = ITnRobotFile::SEEK_DIRECT_END;

using HeldFile = TnRobotPtr<ITnRobotFile>;

void Store(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

std::string Load(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

long long Write(ITnRobotFile& file, const std::string& bytes) {
    return file.Write(bytes.data(), static_cast<long long>(bytes.size()));
}

/// What a read of that many bytes delivers; "-1" for a failed one.
std::string Read(ITnRobotFile& file, std::size_t nCount) {
    std::string bytes(nCount, '#');
    const long long nRead = file.Read(bytes.data(), static_cast<long long>(nCount));
    if (nRead < 0) {
        EXPECT_EQ(nRead, -1);
        EXPECT_EQ(bytes, std::string(nCount, '#'));
        return "-1";
    }
    EXPECT_EQ(bytes.substr(static_cast<std::size_t>(nRead)),
              std::string(nCount - static_cast<std::size_t>(nRead), '#'));
    return bytes.substr(0, static_cast<std::size_t>(nRead));
}

class DiskFile : public ::testing::Test {
protected:
    const TempDirectory m_directory;
    const std::string m_path = m_directory / "file";
    const HeldFile m_file = MakeFile();
};

}  // namespace

TEST_F(DiskFile, AClosedFileFailsEveryOperation) {
    EXPECT_EQ(Read(*m_file, 4), "-1");
    EXPECT_EQ(Write(*m_file, "abc"), 0);
    EXPECT_EQ(m_file->Seek(0, kBegin), -1);
    EXPECT_EQ(m_file->GetPos(), -1);
    m_file->Flush();
    EXPECT_EQ(m_file->GetTotleLen(), 0);
    EXPECT_FALSE(m_file->Close());
}

TEST_F(DiskFile, WritesExactBytes) {
    const std::string bytes("line\r\n\0\x1A\xFF end\n", 15);
    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    EXPECT_EQ(Write(*m_file, bytes), 1);
    EXPECT_EQ(Write(*m_file, ""), 1);
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(Load(m_path), bytes);
}

TEST_F(DiskFile, ReadsExactBytes) {
    const std::string bytes("line\r\n\0\x1A\xFF end\n", 15);
    Store(m_path, bytes);
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_EQ(Read(*m_file, 4), bytes.substr(0, 4));
    EXPECT_EQ(Read(*m_file, 0), "");
    EXPECT_EQ(Read(*m_file, 11), bytes.substr(4));
    EXPECT_TRUE(m_file->Close());
}

// Pieces below and above what the file copies itself, so that they end before, at and behind the end
// of its buffer.
TEST_F(DiskFile, PiecesOfAllSizesMakeOneFile) {
    std::string bytes(300000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    }
    const std::size_t sizes[] = {1, 4, 4, 9, 511, 512, 513, 1, 1023, 1024, 5000, 65535, 65536, 2};
    const auto inPieces = [&](bool bAskPosition, auto transfer) {
        std::size_t nDone = 0;
        for (std::size_t i = 0; nDone < bytes.size(); ++i) {
            const std::size_t nPiece = std::min(sizes[i % std::size(sizes)], bytes.size() - nDone);
            ASSERT_TRUE(transfer(bytes.substr(nDone, nPiece))) << "at " << nDone;
            nDone += nPiece;
            ASSERT_TRUE(!bAskPosition || m_file->GetPos() == static_cast<long long>(nDone));
        }
    };
    for (const bool bAskPosition : {true, false}) {
        SCOPED_TRACE(bAskPosition);
        ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
        inPieces(bAskPosition, [&](const std::string& piece) { return Write(*m_file, piece) == 1; });
        EXPECT_TRUE(m_file->Close());
        EXPECT_TRUE(Load(m_path) == bytes);
        ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
        inPieces(bAskPosition, [&](const std::string& piece) { return Read(*m_file, piece.size()) == piece; });
        EXPECT_EQ(Read(*m_file, 1), "");
        EXPECT_EQ(Read(*m_file, 1), "-1");
        EXPECT_TRUE(m_file->Close());
    }
}

TEST_F(DiskFile, SmallPiecesFollowTheirPosition) {
    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    EXPECT_EQ(Write(*m_file, "ab"), 1);
    EXPECT_EQ(m_file->Seek(3, kBegin), 0);
    EXPECT_EQ(Write(*m_file, "X"), 1);
    EXPECT_EQ(Write(*m_file, "Y"), 1);
    EXPECT_EQ(m_file->GetPos(), 5);
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(Load(m_path), "012XY56789ab");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_EQ(Read(*m_file, 2), "01");
    EXPECT_EQ(Read(*m_file, 2), "2X");
    EXPECT_EQ(m_file->Seek(1, kBegin), 0);
    EXPECT_EQ(Read(*m_file, 1), "1");
    EXPECT_EQ(Read(*m_file, 3), "2XY");
    EXPECT_EQ(Write(*m_file, "no"), 0) << "it is open for reading";
}

TEST_F(DiskFile, OpeningForWritingCreatesOrTruncates) {
    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(Load(m_path), "");
    Store(m_path, "old content");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(Load(m_path), "");
}

TEST_F(DiskFile, OpeningForReadingChangesNothing) {
    Store(m_path, "content");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(Load(m_path), "content");
}

TEST_F(DiskFile, AnOpenFileRefusesToOpenAndStaysAsItIs) {
    Store(m_path, "content");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_EQ(Read(*m_file, 3), "con");
    EXPECT_FALSE(m_file->Open(m_path.c_str(), true));
    EXPECT_FALSE(m_file->Open((m_directory / "other").c_str(), true));
    EXPECT_EQ(Read(*m_file, 4), "tent");
    EXPECT_EQ(Load(m_path), "content");
}

TEST_F(DiskFile, WhatCannotBeOpenedIsRefusedAndTheFileStaysUsable) {
    EXPECT_FALSE(m_file->Open((m_directory / "missing").c_str(), false));
    EXPECT_FALSE(m_file->Open((m_directory / "missing/file").c_str(), true));
    EXPECT_FALSE(m_file->Open("", false));
    EXPECT_FALSE(m_file->Open("", true));
    EXPECT_FALSE(m_file->Open(nullptr, false));
    EXPECT_FALSE(m_file->Open(nullptr, true));
    EXPECT_EQ(Read(*m_file, 1), "-1");
    EXPECT_EQ(m_file->GetPos(), -1);
    EXPECT_FALSE(m_file->Close());
    Store(m_path, "content");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_EQ(Read(*m_file, 7), "content");
}

TEST_F(DiskFile, AShortReadIsTheLastThatSucceeds) {
    Store(m_path, "abcdef");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_EQ(Read(*m_file, 4), "abcd");
    EXPECT_EQ(Read(*m_file, 4), "ef");
    EXPECT_EQ(Read(*m_file, 1), "-1");
    EXPECT_EQ(Read(*m_file, 0), "-1");
    EXPECT_EQ(m_file->Seek(0, kBegin), -1);
    EXPECT_EQ(m_file->GetPos(), -1);
    EXPECT_EQ(Read(*m_file, 1), "-1");
    EXPECT_TRUE(m_file->Close());
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_EQ(Read(*m_file, 6), "abcdef");
}

// A read that ends exactly at the end has not met it yet.
TEST_F(DiskFile, TheEndIsMetByReadingBeyondIt) {
    Store(m_path, "abc");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_EQ(Read(*m_file, 3), "abc");
    EXPECT_EQ(m_file->GetPos(), 3);
    EXPECT_EQ(Read(*m_file, 1), "");
    EXPECT_EQ(Read(*m_file, 1), "-1");
}

TEST_F(DiskFile, SeekCountsFromTheBeginningWhateverItIsTold) {
    Store(m_path, "0123456789abcdef");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    for (const auto eDirect : {kBegin, kCurrent, kEnd}) {
        EXPECT_EQ(m_file->Seek(10, eDirect), 0);
        EXPECT_EQ(m_file->GetPos(), 10);
        EXPECT_EQ(Read(*m_file, 3), "abc");
        EXPECT_EQ(m_file->GetPos(), 13);
    }
    EXPECT_EQ(m_file->Seek(0, kEnd), 0);
    EXPECT_EQ(Read(*m_file, 2), "01");
}

TEST_F(DiskFile, SeekingWhileWritingOverwrites) {
    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    EXPECT_EQ(m_file->GetPos(), 0);
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    EXPECT_EQ(m_file->GetPos(), 10);
    EXPECT_EQ(m_file->Seek(3, kCurrent), 0);
    EXPECT_EQ(m_file->GetPos(), 3);
    EXPECT_EQ(Write(*m_file, "xyz"), 1);
    EXPECT_EQ(m_file->GetPos(), 6);
    EXPECT_EQ(m_file->Seek(12, kBegin), 0);
    EXPECT_EQ(Write(*m_file, "!"), 1);
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(Load(m_path), std::string("012xyz6789\0\0!", 13));
}

TEST_F(DiskFile, SeekingBeyondTheEndIsFoundOutByReading) {
    Store(m_path, "abc");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_EQ(m_file->Seek(100, kBegin), 0);
    EXPECT_EQ(m_file->GetPos(), 100);
    EXPECT_EQ(Read(*m_file, 1), "");
    EXPECT_EQ(Read(*m_file, 1), "-1");
}

TEST_F(DiskFile, AnImpossiblePositionIsRefused) {
    Store(m_path, "abc");
    for (const long long nOffset : {-1LL, LLONG_MIN}) {
        ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
        EXPECT_EQ(m_file->Seek(nOffset, kBegin), -1) << nOffset;
        EXPECT_TRUE(m_file->Close());
        ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
        EXPECT_EQ(Read(*m_file, 3), "abc") << nOffset;
        EXPECT_TRUE(m_file->Close());
    }
}

TEST_F(DiskFile, TheWrongDirectionTransfersNothingAndFailsTheFile) {
    Store(m_path, "abc");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    Write(*m_file, "xyz");
    EXPECT_EQ(Write(*m_file, "xyz"), 0);
    EXPECT_EQ(Read(*m_file, 1), "-1");
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(Load(m_path), "abc");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    EXPECT_EQ(Read(*m_file, 1), "");
    EXPECT_EQ(Read(*m_file, 1), "-1");
    EXPECT_EQ(Write(*m_file, "xyz"), 0);
}

TEST_F(DiskFile, NegativeCountsTransferNothing) {
    Store(m_path, "abc");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    char chByte = '#';
    for (const long long nCount : {-1LL, LLONG_MIN}) {
        EXPECT_LE(m_file->Read(&chByte, nCount), 0);
        EXPECT_EQ(chByte, '#');
    }
    EXPECT_TRUE(m_file->Close());
    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    for (const long long nCount : {-1LL, LLONG_MIN}) {
        m_file->Write(&chByte, nCount);
    }
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(Load(m_path), "");
}

// A count below zero is no failure of the file, and does not move it: neither while bytes wait in its memory nor
// before the first of them.
TEST_F(DiskFile, ANegativeCountLeavesTheFileAsItWas) {
    Store(m_path, "abcdef");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    char chByte = '#';
    const char* pNext = "abcde";
    for (const long long nCount : {-1LL, -5LL, -512LL, -513LL, LLONG_MIN}) {
        EXPECT_EQ(m_file->Read(&chByte, nCount), 0) << nCount;
        EXPECT_EQ(m_file->Read(nullptr, nCount), 0) << nCount;
        EXPECT_EQ(Read(*m_file, 1), std::string(1, *pNext++)) << nCount;
    }
    EXPECT_EQ(m_file->Read(&chByte, -5), 0);
    EXPECT_EQ(Read(*m_file, 1), "f");
    EXPECT_TRUE(m_file->Close());

    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    for (const long long nCount : {-1LL, -5LL, -512LL, -513LL, LLONG_MIN}) {
        EXPECT_EQ(m_file->Write(&chByte, nCount), 0) << nCount;
        EXPECT_EQ(m_file->Write(nullptr, nCount), 0) << nCount;
        EXPECT_EQ(Write(*m_file, "x"), 1) << nCount;
    }
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(Load(m_path), "xxxxx");
}

TEST_F(DiskFile, ADirectoryIsNoFile) {
    EXPECT_FALSE(m_file->Open(m_directory.Path().c_str(), true));
    if (m_file->Open(m_directory.Path().c_str(), false)) {
        char chByte = '#';
        EXPECT_LE(m_file->Read(&chByte, 1), 0);
        EXPECT_EQ(chByte, '#');
        EXPECT_EQ(Read(*m_file, 1), "-1");
    }
}

TEST_F(DiskFile, FlushHandsTheBytesToTheSystem) {
    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    EXPECT_EQ(Write(*m_file, "abc"), 1);
    m_file->Flush();
    EXPECT_EQ(Load(m_path), "abc");
    EXPECT_EQ(Write(*m_file, "def"), 1);
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(Load(m_path), "abcdef");
}

TEST_F(DiskFile, ADeviceWithoutRoomFailsTheFile) {
    ASSERT_TRUE(m_file->Open("/dev/full", true));
    EXPECT_EQ(Write(*m_file, "abc"), 1);
    m_file->Flush();
    EXPECT_EQ(Write(*m_file, "def"), 0);
    EXPECT_EQ(m_file->Seek(0, kBegin), -1);
    EXPECT_EQ(m_file->GetPos(), -1);
    EXPECT_TRUE(m_file->Close());
    EXPECT_FALSE(m_file->Close());
    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    EXPECT_EQ(Write(*m_file, "abc"), 1);
}

TEST_F(DiskFile, ItsLengthIsNotReported) {
    Store(m_path, "abc");
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_EQ(m_file->GetTotleLen(), 0);
    EXPECT_EQ(Read(*m_file, 3), "abc");
    EXPECT_EQ(m_file->GetTotleLen(), 0);
}

TEST_F(DiskFile, TheLastReleaseClosesIt) {
    HeldFile file = MakeFile();
    ASSERT_TRUE(file->Open(m_path.c_str(), true));
    EXPECT_EQ(Write(*file, "abc"), 1);
    EXPECT_EQ(file.detach()->Release(), 0);
    EXPECT_EQ(Load(m_path), "abc");
}

TEST_F(DiskFile, LargeContentMakesTheRoundTrip) {
    std::string bytes(300000, '\0');
    for (std::size_t n = 0; n < bytes.size(); ++n) {
        bytes[n] = static_cast<char>(n * 7 + (n >> 8));
    }
    ASSERT_TRUE(m_file->Open(m_path.c_str(), true));
    EXPECT_EQ(Write(*m_file, bytes), 1);
    EXPECT_TRUE(m_file->Close());
    ASSERT_TRUE(m_file->Open(m_path.c_str(), false));
    EXPECT_TRUE(Read(*m_file, bytes.size()) == bytes);
}
