#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"
#include "support/objects/Files.h"

using namespace tntest;

namespace {

constexpr auto kBegin = ITnRobotFile::SEEK_DIRECT_BEGIN;
constexpr auto kCurrent = ITnRobotFile::SEEK_DIRECT_CURRENT;
constexpr auto kEnd = ITnRobotFile::SEEK_DIRECT_END;

using HeldFile = TnRobotPtr<ITnRobotMemFile>;
using Bytes = std::vector<unsigned char>;

Bytes BytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

std::string TextOf(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

long long Write(ITnRobotFile& file, const std::string& bytes) {
    return file.Write(bytes.data(), static_cast<long long>(bytes.size()));
}

/// What a read of that many bytes delivers. Bytes beyond what it reports must stay as they were.
std::string Read(ITnRobotFile& file, std::size_t nCount) {
    std::string bytes(nCount, '#');
    const long long nRead = file.Read(bytes.data(), static_cast<long long>(nCount));
    EXPECT_GE(nRead, 0);
    const auto nUsed = static_cast<std::size_t>(std::max(nRead, 0LL));
    EXPECT_EQ(bytes.substr(nUsed), std::string(nCount - nUsed, '#'));
    return bytes.substr(0, nUsed);
}

/// A buffer of that many bytes after GetMemData; what it left alone is '#'.
std::string MemData(ITnRobotMemFile& file, std::size_t nRoom) {
    std::string buffer(nRoom, '#');
    auto nLength = static_cast<long long>(nRoom);
    EXPECT_TRUE(file.GetMemData(buffer.data(), nLength));
    EXPECT_EQ(nLength, file.GetTotleLen());
    return buffer;
}

/// Everything in the file.
std::string Content(ITnRobotMemFile& file) {
    long long nLength = -1;
    EXPECT_TRUE(file.GetMemData(nullptr, nLength));
    EXPECT_EQ(nLength, file.GetTotleLen());
    return MemData(file, static_cast<std::size_t>(nLength));
}

class MemFile : public ::testing::Test {
protected:
    const HeldFile m_file = MakeMemFile();
};

class FlatMemFile : public MemFile {
protected:
    bool Open(bool bWrite) {
        return m_file->OpenMemFile(m_memory.data(), static_cast<long long>(m_memory.size()), bWrite);
    }

    Bytes m_memory = BytesOf("0123456789");
};

class ChunkMemFile : public MemFile {};

}  // namespace

TEST_F(MemFile, HasNoName) {
    EXPECT_FALSE(m_file->Open("name", true));
    EXPECT_FALSE(m_file->Open("name", false));
    EXPECT_FALSE(m_file->Open(nullptr, false));
    EXPECT_TRUE(m_file->OpenWriteFile(4));
}

TEST_F(MemFile, AClosedFileTransfersNothing) {
    EXPECT_EQ(Read(*m_file, 4), "");
    EXPECT_EQ(Write(*m_file, "abc"), 0);
    EXPECT_EQ(m_file->Seek(0, kBegin), -1);
    EXPECT_EQ(m_file->GetPos(), -1);
    EXPECT_EQ(m_file->GetTotleLen(), 0);
    EXPECT_EQ(Content(*m_file), "");
    EXPECT_EQ(MemData(*m_file, 4), "####");
    m_file->Flush();
    EXPECT_TRUE(m_file->Close());
    EXPECT_TRUE(m_file->Close());
}

TEST_F(MemFile, RefusesMemoryAndChunksThatAreNone) {
    unsigned char byte = 0;
    for (const bool bWrite : {false, true}) {
        EXPECT_FALSE(m_file->OpenMemFile(nullptr, 1, bWrite));
        EXPECT_FALSE(m_file->OpenMemFile(&byte, 0, bWrite));
        EXPECT_FALSE(m_file->OpenMemFile(&byte, -1, bWrite));
        EXPECT_FALSE(m_file->OpenMemFile(&byte, LLONG_MIN, bWrite));
    }
    EXPECT_FALSE(m_file->OpenWriteFile(0));
    EXPECT_FALSE(m_file->OpenWriteFile(-1));
    EXPECT_FALSE(m_file->OpenWriteFile(LLONG_MIN));
    EXPECT_EQ(m_file->GetPos(), -1);
    EXPECT_TRUE(m_file->OpenMemFile(&byte, 1, true));
}

TEST_F(MemFile, AnOpenFileRefusesToOpen) {
    unsigned char bytes[2] = {'a', 'b'};
    unsigned char other[2] = {};
    ASSERT_TRUE(m_file->OpenMemFile(bytes, 2, false));
    EXPECT_FALSE(m_file->OpenMemFile(other, 2, true));
    EXPECT_FALSE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Read(*m_file, 2), "ab");
    EXPECT_TRUE(m_file->Close());
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_FALSE(m_file->OpenMemFile(other, 2, true));
    EXPECT_FALSE(m_file->OpenWriteFile(2));
    EXPECT_EQ(Write(*m_file, "abc"), 1);
    EXPECT_EQ(Content(*m_file), "abc");
}

TEST_F(MemFile, MayBeReopenedInAnyMode) {
    unsigned char bytes[3] = {'a', 'b', 'c'};
    for (int n = 0; n < 2; ++n) {
        ASSERT_TRUE(m_file->OpenWriteFile(2));
        EXPECT_EQ(m_file->GetTotleLen(), 0);
        EXPECT_EQ(Write(*m_file, "xyz"), 1);
        EXPECT_TRUE(m_file->Close());
        ASSERT_TRUE(m_file->OpenMemFile(bytes, 3, false));
        EXPECT_EQ(m_file->GetTotleLen(), 0);
        EXPECT_EQ(m_file->GetPos(), 0);
        EXPECT_EQ(Read(*m_file, 9), "abc");
        EXPECT_TRUE(m_file->Close());
    }
}

// The length of what was there is still known; the bytes are not.
TEST_F(MemFile, AfterCloseNothingIsCopied) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(m_file->GetTotleLen(), 10);
    EXPECT_EQ(MemData(*m_file, 12), "############");
    EXPECT_EQ(Write(*m_file, "a"), 0);
    EXPECT_EQ(m_file->Seek(0, kBegin), -1);
    EXPECT_EQ(m_file->GetPos(), -1);

    {
        Bytes gone = BytesOf("abc");
        ASSERT_TRUE(m_file->OpenMemFile(gone.data(), 3, false));
        EXPECT_EQ(Read(*m_file, 3), "abc");
        EXPECT_TRUE(m_file->Close());
    }
    EXPECT_EQ(m_file->GetTotleLen(), 3);
    EXPECT_EQ(MemData(*m_file, 3), "###");
}

TEST_F(MemFile, IsDestroyedOpen) {
    HeldFile file = MakeMemFile();
    ASSERT_TRUE(file->OpenWriteFile(4));
    EXPECT_EQ(Write(*file, "0123456789"), 1);
    EXPECT_EQ(file.detach()->Release(), 0);
}

TEST_F(FlatMemFile, ReadsUpToTheEndOfTheMemory) {
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(m_file->GetPos(), 0);
    EXPECT_EQ(m_file->GetTotleLen(), 0);
    EXPECT_EQ(Read(*m_file, 4), "0123");
    EXPECT_EQ(m_file->GetPos(), 4);
    EXPECT_EQ(m_file->GetTotleLen(), 4);
    EXPECT_EQ(Read(*m_file, 0), "");
    EXPECT_EQ(Read(*m_file, 100), "456789");
    EXPECT_EQ(m_file->GetPos(), 10);
    EXPECT_EQ(m_file->GetTotleLen(), 10);
    EXPECT_EQ(Read(*m_file, 1), "");
    EXPECT_EQ(Read(*m_file, 1), "");
}

TEST_F(FlatMemFile, IsForReadingOrForWritingButNotBoth) {
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(Write(*m_file, "x"), 0);
    EXPECT_EQ(Write(*m_file, ""), 0);
    EXPECT_TRUE(m_file->Close());
    ASSERT_TRUE(Open(true));
    EXPECT_EQ(Read(*m_file, 1), "");
    EXPECT_TRUE(m_file->Close());
    EXPECT_EQ(TextOf(m_memory), "0123456789");
}

TEST_F(FlatMemFile, WritesAllOrNothing) {
    ASSERT_TRUE(Open(true));
    EXPECT_EQ(Write(*m_file, "abcdefgh"), 1);
    EXPECT_EQ(Write(*m_file, "xyz"), 0);
    EXPECT_EQ(TextOf(m_memory), "abcdefgh89");
    EXPECT_EQ(m_file->GetTotleLen(), 8);
    EXPECT_EQ(Write(*m_file, "xy"), 1);
    EXPECT_EQ(Write(*m_file, ""), 1);
    EXPECT_EQ(Write(*m_file, "z"), 0);
    EXPECT_EQ(TextOf(m_memory), "abcdefghxy");
    EXPECT_EQ(m_file->GetTotleLen(), 10);
}

// Pieces larger than the caches are copied in another way where they are shifted a little within their pages.
TEST_F(MemFile, LargePiecesArriveWhole) {
    constexpr std::size_t kPiece = (std::size_t{20} << 20U) + 12345;
    Bytes piece(kPiece, 200);
    for (std::size_t i = 0; i < kPiece; i += 1021) {
        piece[i] = static_cast<unsigned char>(i / 1021 % 199);
    }
    for (const std::size_t nShift :
         {std::size_t{0}, std::size_t{1}, std::size_t{511}, std::size_t{512}, std::size_t{4095}}) {
        Bytes memory(kPiece + 4096 + 10, '#');
        // So far behind the piece within their pages.
        const auto nStart = (reinterpret_cast<std::uintptr_t>(piece.data()) + nShift + 4096 -
                             reinterpret_cast<std::uintptr_t>(memory.data()) % 4096) %
                            4096;
        const auto nLength = static_cast<long long>(kPiece);
        ASSERT_TRUE(m_file->OpenMemFile(memory.data() + nStart, nLength + 1, true));
        EXPECT_EQ(m_file->Write(piece.data(), nLength), 1);
        m_file->Close();
        EXPECT_EQ(std::memcmp(memory.data() + nStart, piece.data(), kPiece), 0) << nShift;
        EXPECT_EQ(memory[nStart + kPiece], '#');

        Bytes read(kPiece + 1, '#');
        ASSERT_TRUE(m_file->OpenMemFile(memory.data() + nStart, nLength + 1, false));
        EXPECT_EQ(m_file->Read(read.data(), nLength), nLength);
        m_file->Close();
        EXPECT_EQ(std::memcmp(read.data(), piece.data(), kPiece), 0) << nShift;
        EXPECT_EQ(read[kPiece], '#');
    }
}

// A file that is being written answers its length, wherever the cursor is.
TEST_F(FlatMemFile, ThePositionOfAWriterIsTheLength) {
    ASSERT_TRUE(Open(true));
    EXPECT_EQ(Write(*m_file, "abcdef"), 1);
    EXPECT_EQ(m_file->Seek(2, kBegin), 0);
    EXPECT_EQ(m_file->GetPos(), 6);
    EXPECT_EQ(Write(*m_file, "XY"), 1);
    EXPECT_EQ(m_file->GetPos(), 6);
    EXPECT_EQ(m_file->GetTotleLen(), 6);
    EXPECT_EQ(TextOf(m_memory), "abXYef6789");
}

TEST_F(FlatMemFile, SeeksFromThreeOrigins) {
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(Read(*m_file, 6), "012345");
    const struct {
        long long nOffset;
        ITnRobotFile::ETnSeekDirect eDirect;
        long long nPosition;
    } cases[] = {
        {3, kBegin, 3},    {2, kCurrent, 5},
        {-4, kCurrent, 1}, {0, kEnd, 6},
        {-2, kEnd, 4},     {4, kEnd, 10},
        {0, kCurrent, 10}, {10, kBegin, 10},
        {0, kBegin, 0},    {7, static_cast<ITnRobotFile::ETnSeekDirect>(7), 7},
    };
    for (const auto& testCase : cases) {
        EXPECT_EQ(m_file->Seek(testCase.nOffset, testCase.eDirect), 0);
        EXPECT_EQ(m_file->GetPos(), testCase.nPosition);
    }
    EXPECT_EQ(Read(*m_file, 2), "78");
}

// The end is the highest position reached, not the end of the memory.
TEST_F(FlatMemFile, TheEndOfAnUnreadFileIsItsBeginning) {
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(m_file->Seek(0, kEnd), 0);
    EXPECT_EQ(m_file->GetPos(), 0);
    EXPECT_EQ(m_file->Seek(8, kBegin), 0);
    EXPECT_EQ(m_file->GetTotleLen(), 0);
    EXPECT_EQ(Read(*m_file, 1), "8");
    EXPECT_EQ(m_file->GetTotleLen(), 9);
    EXPECT_EQ(m_file->Seek(0, kEnd), 0);
    EXPECT_EQ(m_file->GetPos(), 9);
}

TEST_F(FlatMemFile, ASeekPastTheMemoryLeavesTheCursor) {
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(Read(*m_file, 4), "0123");
    EXPECT_EQ(m_file->Seek(11, kBegin), -2);
    EXPECT_EQ(m_file->Seek(7, kCurrent), -2);
    EXPECT_EQ(m_file->Seek(7, kEnd), -2);
    for (const auto eDirect : {kBegin, kCurrent, kEnd}) {
        EXPECT_EQ(m_file->Seek(LLONG_MAX, eDirect), -2);
    }
    EXPECT_EQ(m_file->GetPos(), 4);
    EXPECT_EQ(Read(*m_file, 2), "45");
}

// The length is the highest position at which something was done, be it with no bytes.
TEST_F(FlatMemFile, WritingNothingReachesThePosition) {
    ASSERT_TRUE(Open(true));
    EXPECT_EQ(m_file->Seek(3, kBegin), 0);
    EXPECT_EQ(Write(*m_file, ""), 1);
    EXPECT_EQ(m_file->GetTotleLen(), 3);
    EXPECT_EQ(m_file->GetPos(), 3);
}

TEST_F(FlatMemFile, ReadingNothingReachesThePosition) {
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(m_file->Seek(3, kBegin), 0);
    EXPECT_EQ(Read(*m_file, 0), "");
    EXPECT_EQ(m_file->GetTotleLen(), 3);
    EXPECT_EQ(m_file->Seek(10, kBegin), 0);
    EXPECT_EQ(Read(*m_file, 1), "");
    EXPECT_EQ(m_file->GetTotleLen(), 10);
}

// No lower bound is checked; the position is kept, and nothing is transferred there.
TEST_F(FlatMemFile, BeforeTheMemoryNothingIsRead) {
    ASSERT_TRUE(Open(false));
    for (const long long nOffset : {-1LL, -10LL, -100000LL, LLONG_MIN + 100}) {
        EXPECT_EQ(m_file->Seek(nOffset, kBegin), 0) << nOffset;
        EXPECT_EQ(m_file->GetPos(), nOffset);
        EXPECT_EQ(Read(*m_file, 4), "") << nOffset;
        EXPECT_EQ(m_file->GetTotleLen(), 0);
    }
    EXPECT_EQ(m_file->Seek(2, kBegin), 0);
    EXPECT_EQ(Read(*m_file, 4), "2345");
}

TEST_F(FlatMemFile, BeforeTheMemoryNothingIsWritten) {
    ASSERT_TRUE(Open(true));
    for (const long long nOffset : {-1LL, -3LL, -100000LL, LLONG_MIN + 100}) {
        EXPECT_EQ(m_file->Seek(nOffset, kBegin), 0) << nOffset;
        EXPECT_EQ(Write(*m_file, "xyz"), 0) << nOffset;
        EXPECT_EQ(TextOf(m_memory), "0123456789");
        EXPECT_EQ(m_file->GetTotleLen(), 0);
    }
    EXPECT_EQ(m_file->Seek(0, kBegin), 0);
    EXPECT_EQ(Write(*m_file, "xyz"), 1);
    EXPECT_EQ(TextOf(m_memory), "xyz3456789");
}

TEST_F(FlatMemFile, SumsThatOverflowDoNoHarm) {
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(Read(*m_file, 4), "0123");
    for (const auto eDirect : {kBegin, kCurrent, kEnd}) {
        m_file->Seek(LLONG_MIN, eDirect);
        m_file->Seek(LLONG_MIN, eDirect);
        m_file->Seek(LLONG_MAX, eDirect);
        m_file->GetPos();
        Read(*m_file, 4);
        EXPECT_LE(m_file->GetTotleLen(), 10);
        MemData(*m_file, 20);
    }
    EXPECT_EQ(m_file->Seek(1, kBegin), 0);
    EXPECT_EQ(Read(*m_file, 4), "1234");
}

// Large pieces are copied in steps where they lie so within their pages that one copy would be slow.
TEST_F(FlatMemFile, LargePiecesArriveWholeWhereverTheyLie) {
    constexpr std::size_t kPage = 4096;
    constexpr std::size_t kLarge = std::size_t{8} << 20U;
    Bytes source(kLarge + (std::size_t{2} << 20U) + kPage);
    for (std::size_t n = 0; n < source.size(); ++n) {
        source[n] = static_cast<unsigned char>(n % 251);
    }
    Bytes memory(source.size() + 2 * kPage);
    const auto placeOf = [](const unsigned char* p) { return reinterpret_cast<std::uintptr_t>(p) % kPage; };
    for (const std::size_t nBehind :
         {std::size_t{0}, std::size_t{1}, std::size_t{64}, std::size_t{511}, std::size_t{512}}) {
        unsigned char* pTarget =
            memory.data() + (placeOf(source.data()) + nBehind + kPage - placeOf(memory.data())) % kPage;
        for (const std::size_t nSize :
             {kLarge - 1, kLarge, kLarge + 1, kLarge + (std::size_t{1} << 20U), kLarge + 1500000}) {
            std::fill_n(pTarget, nSize + 1, static_cast<unsigned char>(0xCC));
            ASSERT_TRUE(m_file->OpenMemFile(pTarget, static_cast<long long>(nSize) + 1, true));
            EXPECT_EQ(m_file->Write(source.data(), static_cast<long long>(nSize)), 1);
            m_file->Close();
            EXPECT_EQ(std::memcmp(pTarget, source.data(), nSize), 0) << nBehind << ' ' << nSize;
            EXPECT_EQ(pTarget[nSize], 0xCC) << nBehind << ' ' << nSize;
        }
    }
}

TEST_F(FlatMemFile, NegativeCountsTransferNothing) {
    char chByte = '#';
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(m_file->Read(&chByte, -1), 0);
    EXPECT_EQ(m_file->Read(&chByte, LLONG_MIN), 0);
    EXPECT_EQ(chByte, '#');
    EXPECT_EQ(m_file->GetPos(), 0);
    EXPECT_TRUE(m_file->Close());
    ASSERT_TRUE(Open(true));
    m_file->Write(&chByte, -1);
    m_file->Write(&chByte, LLONG_MIN);
    EXPECT_EQ(m_file->GetTotleLen(), 0);
    EXPECT_EQ(TextOf(m_memory), "0123456789");
    EXPECT_EQ(Write(*m_file, "ABCDEFGHIJ"), 1);
    EXPECT_EQ(TextOf(m_memory), "ABCDEFGHIJ");
}

TEST_F(FlatMemFile, AHugeCountReadsWhatIsThere) {
    ASSERT_TRUE(Open(false));
    char bytes[10] = {};
    EXPECT_EQ(m_file->Read(bytes, LLONG_MAX), 10);
    EXPECT_EQ(std::string(bytes, 10), "0123456789");
    EXPECT_TRUE(m_file->Close());
    ASSERT_TRUE(Open(true));
    EXPECT_EQ(m_file->Write(bytes, LLONG_MAX), 0);
}

// What was read or written so far is copied, from the caller's memory.
TEST_F(FlatMemFile, MemDataIsWhatWasReached) {
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(MemData(*m_file, 4), "####");
    EXPECT_EQ(Read(*m_file, 6), "012345");
    EXPECT_EQ(Content(*m_file), "012345");
    EXPECT_EQ(MemData(*m_file, 3), "012");
    EXPECT_EQ(MemData(*m_file, 8), "012345##");
    EXPECT_TRUE(m_file->Close());
    ASSERT_TRUE(Open(true));
    EXPECT_EQ(Write(*m_file, "abc"), 1);
    EXPECT_EQ(Content(*m_file), "abc");
    EXPECT_EQ(MemData(*m_file, 5), "abc##");
}

TEST_F(FlatMemFile, ANegativeRoomForMemDataCopiesNothing) {
    ASSERT_TRUE(Open(true));
    EXPECT_EQ(Write(*m_file, "abc"), 1);
    for (const long long nRoom : {-1LL, LLONG_MIN, 0LL}) {
        char chByte = '#';
        long long nLength = nRoom;
        EXPECT_TRUE(m_file->GetMemData(&chByte, nLength));
        EXPECT_EQ(nLength, 3);
        EXPECT_EQ(chByte, '#');
    }
}

TEST_F(ChunkMemFile, StartsEmpty) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(m_file->GetTotleLen(), 0);
    EXPECT_EQ(m_file->GetPos(), 0);
    EXPECT_EQ(Content(*m_file), "");
    EXPECT_EQ(Read(*m_file, 4), "");
}

TEST_F(ChunkMemFile, KeepsBytesInOrderAcrossChunks) {
    for (const long long nChunkSize : {1LL, 2LL, 3LL, 4LL, 5LL, 9LL, 10LL, 11LL, 1000LL}) {
        ASSERT_TRUE(m_file->OpenWriteFile(nChunkSize));
        EXPECT_EQ(Write(*m_file, "0123456789"), 1);
        EXPECT_EQ(m_file->GetTotleLen(), 10);
        EXPECT_EQ(m_file->GetPos(), 10);
        EXPECT_EQ(MemData(*m_file, 10), "0123456789") << nChunkSize;
        EXPECT_EQ(MemData(*m_file, 7), "0123456") << nChunkSize;
        EXPECT_EQ(MemData(*m_file, 12), "0123456789##") << nChunkSize;
        EXPECT_EQ(Write(*m_file, "abc"), 1);
        EXPECT_EQ(Content(*m_file), "0123456789abc") << nChunkSize;
        EXPECT_TRUE(m_file->Close());
    }
}

TEST_F(ChunkMemFile, ASizeQueryCopiesNothing) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    long long nLength = -5;
    EXPECT_TRUE(m_file->GetMemData(nullptr, nLength));
    EXPECT_EQ(nLength, 10);
}

TEST_F(ChunkMemFile, WritingNothingSucceeds) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    char chByte = '#';
    EXPECT_EQ(m_file->Write(&chByte, 0), 1);
    EXPECT_EQ(m_file->Write(&chByte, -1), 1);
    EXPECT_EQ(m_file->Write(&chByte, LLONG_MIN), 1);
    EXPECT_EQ(m_file->Write(nullptr, 0), 1);
    EXPECT_EQ(m_file->GetTotleLen(), 0);
}

TEST_F(ChunkMemFile, ANegativeRoomForMemDataCopiesNothing) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    for (const long long nRoom : {-1LL, LLONG_MIN, 0LL}) {
        char chByte = '#';
        long long nLength = nRoom;
        EXPECT_TRUE(m_file->GetMemData(&chByte, nLength));
        EXPECT_EQ(nLength, 10);
        EXPECT_EQ(chByte, '#');
    }
}

TEST_F(ChunkMemFile, SeekingBackOverwritesAndKeepsTheLength) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    EXPECT_EQ(m_file->Seek(2, kBegin), 0);
    EXPECT_EQ(m_file->GetPos(), 10);
    EXPECT_EQ(Write(*m_file, "abcde"), 1);
    EXPECT_EQ(Content(*m_file), "01abcde789");
    EXPECT_EQ(m_file->Seek(-6, kCurrent), 0);
    EXPECT_EQ(Write(*m_file, "X"), 1);
    EXPECT_EQ(Content(*m_file), "0Xabcde789");
    EXPECT_EQ(m_file->Seek(-7, kEnd), 0);
    EXPECT_EQ(Write(*m_file, "Y"), 1);
    EXPECT_EQ(Content(*m_file), "0XaYcde789");
}

TEST_F(ChunkMemFile, WritingOnFromAListedChunkReachesTheCurrentOne) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    EXPECT_EQ(m_file->Seek(1, kBegin), 0);
    EXPECT_EQ(Write(*m_file, "abcdefghijklm"), 1);
    EXPECT_EQ(m_file->GetTotleLen(), 14);
    EXPECT_EQ(Content(*m_file), "0abcdefghijklm");
}

TEST_F(ChunkMemFile, SeekingWithinTheCursorsChunkStaysInIt) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    EXPECT_EQ(m_file->Seek(9, kBegin), 0);
    EXPECT_EQ(Write(*m_file, "X"), 1);
    EXPECT_EQ(Content(*m_file), "012345678X");
    EXPECT_EQ(m_file->Seek(1, kBegin), 0);
    EXPECT_EQ(m_file->Seek(2, kBegin), 0);
    EXPECT_EQ(Write(*m_file, "Y"), 1);
    EXPECT_EQ(Content(*m_file), "01Y345678X");
}

// The chunk being filled is not in the list that such a seek walks: the cursor does not move.
TEST_F(ChunkMemFile, SeekingFromAListedChunkIntoTheCurrentOneDoesNotMove) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    EXPECT_EQ(m_file->Seek(1, kBegin), 0);
    EXPECT_EQ(m_file->Seek(8, kBegin), 0);
    EXPECT_EQ(Write(*m_file, "X"), 1);
    EXPECT_EQ(Content(*m_file), "0X23456789");
}

TEST_F(ChunkMemFile, SeekingPastTheLengthMakesChunksOfZeros) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "ab"), 1);
    EXPECT_EQ(m_file->Seek(9, kBegin), 0);
    EXPECT_EQ(m_file->GetTotleLen(), 2);
    EXPECT_EQ(Content(*m_file), "ab");
}

// The chunk index is not brought up to date by such a seek, and positions follow the index.
TEST_F(ChunkMemFile, AfterASeekPastTheLengthPositionsFollowTheOldIndex) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(m_file->Seek(9, kBegin), 0);
    EXPECT_EQ(Write(*m_file, "X"), 1);
    EXPECT_EQ(m_file->GetTotleLen(), 2);
    EXPECT_EQ(Content(*m_file), std::string("\0\0", 2));
    // The byte lies in the third chunk, where a later write can still bring it into view.
    EXPECT_EQ(Write(*m_file, "YZ"), 1);
    EXPECT_EQ(m_file->GetTotleLen(), 4);
    EXPECT_EQ(Write(*m_file, "0123"), 1);
    EXPECT_EQ(m_file->GetTotleLen(), 8);
    EXPECT_EQ(Content(*m_file), std::string("\0\0\0\0"
                                            "0123",
                                            8));
    EXPECT_EQ(Write(*m_file, "abcd"), 1);
    EXPECT_EQ(m_file->GetTotleLen(), 12);
}

TEST_F(ChunkMemFile, SeekingToTheLengthGoesOnWriting) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "01"), 1);
    EXPECT_EQ(m_file->Seek(0, kEnd), 0);
    EXPECT_EQ(Write(*m_file, "23456"), 1);
    EXPECT_EQ(m_file->Seek(7, kBegin), 0);
    EXPECT_EQ(Write(*m_file, "789"), 1);
    EXPECT_EQ(Content(*m_file), "0123456789");
}

TEST_F(ChunkMemFile, BeforeTheBeginningNothingIsTransferred) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    for (const long long nOffset : {-1LL, -3LL, -4LL, -5LL, -100000LL, LLONG_MIN + 100, LLONG_MIN}) {
        EXPECT_EQ(m_file->Seek(1, kBegin), 0);
        EXPECT_EQ(m_file->Seek(nOffset, kBegin), 0) << nOffset;
        EXPECT_EQ(m_file->GetPos(), 10) << nOffset;
        EXPECT_EQ(m_file->GetTotleLen(), 10) << nOffset;
        EXPECT_EQ(Content(*m_file), "0123456789") << nOffset;
    }
}

// Where the bytes of a write before the beginning would go is not memory of the file.
TEST_F(ChunkMemFile, AWriteBeforeTheBeginningLeavesTheFilesMemory) {
    for (const long long nOffset : {-1LL, -3LL}) {
        ASSERT_TRUE(m_file->OpenWriteFile(4));
        EXPECT_EQ(Write(*m_file, "ab"), 1);
        EXPECT_EQ(m_file->Seek(nOffset, kBegin), 0);
        Write(*m_file, "X");
        EXPECT_EQ(MemData(*m_file, 2), "ab") << nOffset;
        EXPECT_EQ(m_file->Seek(1, kBegin), 0);
        EXPECT_EQ(Write(*m_file, "Y"), 1);
        EXPECT_EQ(MemData(*m_file, 2), "aY") << nOffset;
        EXPECT_TRUE(m_file->Close());
    }
}

TEST_F(ChunkMemFile, SumsBelowTheSmallestNumberDoNoHarm) {
    ASSERT_TRUE(m_file->OpenWriteFile(4));
    EXPECT_EQ(Write(*m_file, "0123456789"), 1);
    for (const auto eDirect : {kCurrent, kBegin, kEnd, kCurrent}) {
        m_file->Seek(LLONG_MIN, eDirect);
        m_file->Seek(LLONG_MIN, eDirect);
        Write(*m_file, "");
        EXPECT_EQ(Content(*m_file), "0123456789");
    }
    EXPECT_EQ(m_file->Seek(0, kBegin), 0);
    EXPECT_EQ(Write(*m_file, "ab"), 1);
    EXPECT_EQ(Content(*m_file), "ab23456789");
}
