// Memory that is mapped: zero until it is written to, whole wherever it goes as it grows.

#include "memory/TnMappedMemory.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <optional>

#include "memory/TnHugePages.h"

namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20U;
constexpr std::size_t kPage = 4096;

bool IsZero(const unsigned char* pBytes, std::size_t nCount) {
    return std::all_of(pBytes, pBytes + nCount, [](unsigned char by) { return by == 0; });
}

// A different byte for each place that could be taken for another.
unsigned char Pattern(std::size_t nIndex) {
    return static_cast<unsigned char>(nIndex / kPage * 31 + nIndex + 1);
}

void Fill(unsigned char* pBytes, std::size_t nCount) {
    for (std::size_t i = 0; i < nCount; i += 512) {
        pBytes[i] = Pattern(i);
    }
}

bool HasPattern(const unsigned char* pBytes, std::size_t nCount) {
    for (std::size_t i = 0; i < nCount; i += 512) {
        if (pBytes[i] != Pattern(i)) {
            return false;
        }
    }
    return true;
}

std::size_t WholeHugePages(std::size_t nSize) {
    return (nSize + tnrobot::kHugePage - 1) / tnrobot::kHugePage * tnrobot::kHugePage;
}

/// A page right behind a piece, so that the piece cannot grow where it is.
class PageBehind {
public:
    PageBehind(unsigned char* pMemory, std::size_t nSize)
        : m_pPage(mmap(pMemory + WholeHugePages(nSize), kPage, PROT_NONE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0)) {}
    PageBehind(const PageBehind&) = delete;
    PageBehind& operator=(const PageBehind&) = delete;
    ~PageBehind() {
        if (m_pPage != MAP_FAILED) {
            munmap(m_pPage, kPage);
        }
    }

private:
    void* m_pPage;  // MAP_FAILED where something else is there already
};

/// Lets the process map nothing more.
class NoMoreMemory {
public:
    NoMoreMemory() {
        getrlimit(RLIMIT_AS, &m_before);
        rlimit none = m_before;
        none.rlim_cur = kPage;
        setrlimit(RLIMIT_AS, &none);
    }
    NoMoreMemory(const NoMoreMemory&) = delete;
    NoMoreMemory& operator=(const NoMoreMemory&) = delete;
    ~NoMoreMemory() { setrlimit(RLIMIT_AS, &m_before); }

private:
    rlimit m_before = {};
};

}  // namespace

TEST(MappedMemory, IsZero) {
    for (const std::size_t nSize : {std::size_t{1}, kPage, kMiB + 1, 5 * kMiB + 77}) {
        unsigned char* pMemory = tnrobot::MapMemory(nSize);
        ASSERT_NE(pMemory, nullptr);
        EXPECT_TRUE(IsZero(pMemory, nSize));
        tnrobot::UnmapMemory(pMemory, nSize);
    }
}

TEST(MappedMemory, KeepsItsBytesAsItGrowsInPlaceOrMoves) {
    for (const bool bMoves : {false, true}) {
        std::size_t nSize = kMiB + 1;
        unsigned char* pMemory = tnrobot::MapMemory(nSize);
        ASSERT_NE(pMemory, nullptr);
        for (const std::size_t nLarger : {nSize, nSize + 1, 3 * kMiB + 1, 8 * kMiB + 1, 17 * kMiB + 5}) {
            Fill(pMemory, nSize);
            const unsigned char* const pBefore = pMemory;
            {
                std::optional<PageBehind> page;
                if (bMoves) {
                    page.emplace(pMemory, nSize);
                }
                pMemory = tnrobot::GrowMapped(pMemory, nSize, nLarger);
            }
            ASSERT_NE(pMemory, nullptr);
            EXPECT_TRUE(pMemory != pBefore || !bMoves || WholeHugePages(nLarger) == WholeHugePages(nSize)) << nLarger;
            EXPECT_TRUE(HasPattern(pMemory, nSize)) << nLarger;
            EXPECT_TRUE(IsZero(pMemory + nSize, nLarger - nSize)) << nLarger;
            nSize = nLarger;
        }
        tnrobot::UnmapMemory(pMemory, nSize);
    }
}

TEST(MappedMemory, StaysAsItIsWhenThereIsNoMore) {
    constexpr std::size_t kSize = kMiB;
    unsigned char* pMemory = tnrobot::MapMemory(kSize);
    ASSERT_NE(pMemory, nullptr);
    Fill(pMemory, kSize);
    unsigned char* pNew = pMemory;
    unsigned char* pGrown = pMemory;
    {
        const NoMoreMemory none;
        pNew = tnrobot::MapMemory(kSize);
        pGrown = tnrobot::GrowMapped(pMemory, kSize, 64 * kMiB);
    }
    EXPECT_EQ(pNew, nullptr);
    EXPECT_EQ(pGrown, nullptr);
    EXPECT_TRUE(HasPattern(pMemory, kSize));
    tnrobot::UnmapMemory(pMemory, kSize);
}

TEST(MappedMemory, LeavesTheErrorNumberAlone) {
    errno = EDOM;
    unsigned char* pMemory = tnrobot::MapMemory(kMiB);
    ASSERT_NE(pMemory, nullptr);
    {
        const PageBehind page(pMemory, kMiB);
        errno = EDOM;
        pMemory = tnrobot::GrowMapped(pMemory, kMiB, 2 * kMiB);
    }
    ASSERT_NE(pMemory, nullptr);
    tnrobot::UnmapMemory(pMemory, 2 * kMiB);
}
