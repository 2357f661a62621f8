// Files whose reads are interrupted, answer less than they were asked for, or fail. File systems of the
// network and of user programs do so with regular files too.

#include "image/TnImageFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "support/bytes/Bytes.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

constexpr long long kAll = 1LL << 40U;

// What the next calls of preadv answer: at most so many bytes, or the error with that negative number. Those
// after them answer what the last one does.
std::vector<long long> g_answers;
std::size_t g_nCall = 0;

long long NextAnswer() {
    if (g_answers.empty()) {
        return kAll;
    }
    return g_answers[std::min(g_nCall++, g_answers.size() - 1)];
}

class ImageFileReads : public testing::Test {
protected:
    void SetUp() override {
        for (std::size_t n = 0; n < kSize; ++n) {
            m_content.push_back(static_cast<unsigned char>(n % 251));
        }
        std::ofstream file(m_path, std::ios::binary);
        file.write(reinterpret_cast<const char*>(m_content.data()), static_cast<std::streamsize>(kSize));
    }
    void TearDown() override { g_answers.clear(); }

    static void Answer(std::vector<long long> answers) {
        g_answers = std::move(answers);
        g_nCall = 0;
    }

    Bytes Part(std::size_t nFirst, std::size_t nSize) const {
        const auto first = m_content.begin() + static_cast<std::ptrdiff_t>(nFirst);
        return Bytes(first, first + static_cast<std::ptrdiff_t>(nSize));
    }

    Bytes Reversed(std::size_t nFirst) const {
        Bytes rows;
        for (std::size_t n = kRows; n > 0; --n) {
            const Bytes row = Part(nFirst + (n - 1) * kRow, kRow);
            rows.insert(rows.end(), row.begin(), row.end());
        }
        return rows;
    }

    // More rows than one call takes, twice.
    static constexpr std::size_t kRow = 7;
    static constexpr std::size_t kRows = 600;
    static constexpr std::size_t kOffset = 5;
    static constexpr std::size_t kSize = kOffset + kRow * kRows;

    TempDirectory m_directory;
    std::string m_path = m_directory / "picture";
    Bytes m_content;
};

}  // namespace

// In place of the C library's.
extern "C" ssize_t preadv(int nFile, const iovec* pParts, int nParts, off_t nOffset) {
    long long nLeft = NextAnswer();
    if (nLeft < 0) {
        errno = static_cast<int>(-nLeft);
        return -1;
    }
    ssize_t nDone = 0;
    for (int n = 0; n < nParts && nLeft > 0; ++n) {
        const std::size_t nWanted = std::min(pParts[n].iov_len, static_cast<std::size_t>(nLeft));
        const ssize_t nRead = pread(nFile, pParts[n].iov_base, nWanted, nOffset + nDone);
        if (nRead < 0) {
            return nDone > 0 ? nDone : -1;
        }
        nDone += nRead;
        nLeft -= nRead;
        if (static_cast<std::size_t>(nRead) < pParts[n].iov_len) {
            break;
        }
    }
    return nDone;
}

TEST_F(ImageFileReads, BytesArriveInPiecesOfAnySize) {
    const tnrobot::ImageFile file(m_path.c_str());
    ASSERT_TRUE(file.IsOpen());
    EXPECT_EQ(file.Length(), static_cast<std::int64_t>(kSize));
    for (const std::vector<long long>& answers : {std::vector<long long>{kAll},
                                                  {1},
                                                  {3},
                                                  {99, kAll},
                                                  {100, kAll},
                                                  {-EINTR, kAll},
                                                  {1, -EINTR, -EINTR, 98, kAll}}) {
        Answer(answers);
        Bytes read(100, 0xCC);
        EXPECT_TRUE(file.ReadAt(kOffset, read.data(), read.size())) << answers.front();
        EXPECT_EQ(read, Part(kOffset, 100)) << answers.front();
    }
}

// Directories report absurd lengths, pipes and devices have none, and a pipe may wait for ever.
TEST_F(ImageFileReads, OnlyRegularFilesOpen) {
    const std::string pipe = m_directory / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const char* lpszPath : {m_directory.Path().c_str(), pipe.c_str(), "/dev/null", "/dev/zero"}) {
        const tnrobot::ImageFile file(lpszPath);
        EXPECT_FALSE(file.IsOpen()) << lpszPath;
        EXPECT_EQ(file.Length(), 0) << lpszPath;
    }
    EXPECT_FALSE(tnrobot::ImageFile(nullptr).IsOpen());
    EXPECT_FALSE(tnrobot::ImageFile((m_directory / "none").c_str()).IsOpen());
}

// Whoever starts another program must not hand it the pictures that are being read.
TEST_F(ImageFileReads, FilesAreClosedInOtherPrograms) {
    const tnrobot::ImageFile file(m_path.c_str());
    int nFound = 0;
    for (int nFile = 0; nFile < 100; ++nFile) {
        std::error_code error;
        if (std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(nFile), error) == m_path) {
            ++nFound;
            EXPECT_NE(fcntl(nFile, F_GETFD) & FD_CLOEXEC, 0);
        }
    }
    EXPECT_EQ(nFound, 1);
}

TEST_F(ImageFileReads, BytesThatDoNotArriveAreAFailure) {
    const tnrobot::ImageFile file(m_path.c_str());
    for (const std::vector<long long>& answers : {std::vector<long long>{0}, {99, 0}, {-EIO}, {99, -EIO}}) {
        Answer(answers);
        Bytes read(100);
        EXPECT_FALSE(file.ReadAt(0, read.data(), read.size())) << answers.front();
    }
    Answer({kAll});
    Bytes last(2);
    EXPECT_TRUE(file.ReadAt(kSize - 2, last.data(), last.size()));
    EXPECT_EQ(last, Part(kSize - 2, 2));
    EXPECT_FALSE(file.ReadAt(kSize - 1, last.data(), last.size()));
    EXPECT_TRUE(file.ReadAt(kSize, last.data(), 0));
}

TEST_F(ImageFileReads, RowsFindTheirPlacesHoweverManyACallBrings) {
    const tnrobot::ImageFile file(m_path.c_str());
    const Bytes expected = Reversed(kOffset);
    constexpr long long kWhole = 256 * kRow;  // what one call asks for
    for (const std::vector<long long>& answers : {std::vector<long long>{kAll},
                                                  {kWhole},
                                                  {kWhole - 1},
                                                  {kWhole - static_cast<long long>(kRow)},
                                                  {kRow},
                                                  {kRow + 1},
                                                  {kRow - 1},
                                                  {1},
                                                  {0, kAll},
                                                  {-EINTR, kAll},
                                                  {kAll, 10, kAll},
                                                  {kAll, kAll, kRow, kAll},
                                                  {kAll, 13, 2, -EINTR, 4, kAll}}) {
        Answer(answers);
        Bytes read(kRows * kRow, 0xCC);
        EXPECT_TRUE(file.ReadRowsReversed(kOffset, read.data(), kRow, kRows)) << answers.front();
        EXPECT_TRUE(read == expected) << answers.front();
    }
}

TEST_F(ImageFileReads, RowsThatDoNotArriveAreAFailure) {
    const tnrobot::ImageFile file(m_path.c_str());
    Bytes read(kRows * kRow);
    for (const std::vector<long long>& answers :
         {std::vector<long long>{0}, {-EIO}, {kAll, 0}, {kAll, kAll, -EIO}, {kAll, kAll, kRow, kRow, 1, 0}}) {
        Answer(answers);
        EXPECT_FALSE(file.ReadRowsReversed(kOffset, read.data(), kRow, kRows)) << answers.front();
    }
    Answer({kAll});
    EXPECT_FALSE(file.ReadRowsReversed(kOffset + 1, read.data(), kRow, kRows)) << "the last row is not whole";
}

TEST_F(ImageFileReads, AFileThatMovedIsReadWhereItIsNow) {
    tnrobot::ImageFile first(m_path.c_str());
    tnrobot::ImageFile file(std::move(first));
    EXPECT_EQ(file.Length(), static_cast<std::int64_t>(kSize));
    Bytes read(4);
    EXPECT_TRUE(file.ReadAt(0, read.data(), read.size()));
    EXPECT_EQ(read, Part(0, 4));
    file = tnrobot::ImageFile();
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.Length(), 0);
}
