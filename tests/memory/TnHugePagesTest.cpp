// Huge pages are asked for inside large memory, and nowhere else.

#include "memory/TnHugePages.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"
#include "support/objects/Memory.h"

using namespace tntest;

namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kHugePage = std::size_t{2} << 20U;

// What the system says of the mapping that the address lies in: the flag is "hg" where huge pages
// have been asked for.
bool IsAskedFor(const unsigned char* pAddress) {
    const auto nAddress = reinterpret_cast<std::uintptr_t>(pAddress);
    std::ifstream maps("/proc/self/smaps");
    bool bHere = false;
    for (std::string strLine; std::getline(maps, strLine);) {
        std::uintptr_t nFirst = 0;
        std::uintptr_t nEnd = 0;
        char cDash = 0;
        std::istringstream range(strLine);
        if (range >> std::hex >> nFirst >> cDash >> nEnd && cDash == '-') {
            bHere = nFirst <= nAddress && nAddress < nEnd;
        } else if (bHere && strLine.rfind("VmFlags:", 0) == 0) {
            return strLine.find(" hg") != std::string::npos;
        }
    }
    return false;
}

class LargeMapping : public testing::Test {
protected:
    void SetUp() override {
        void* const pMapping =
            mmap(nullptr, kMapping, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        ASSERT_NE(pMapping, MAP_FAILED);
        m_pMapping = static_cast<unsigned char*>(pMapping);
        const auto nStart = reinterpret_cast<std::uintptr_t>(m_pMapping);
        m_pAligned = m_pMapping + (kHugePage - nStart % kHugePage) % kHugePage;
    }
    void TearDown() override {
        if (m_pMapping != nullptr) {
            munmap(m_pMapping, kMapping);
        }
    }

    static constexpr std::size_t kMapping = 16 * kHugePage;
    unsigned char* m_pMapping = nullptr;
    unsigned char* m_pAligned = nullptr;  // the first place where a huge page can lie
};

// What the library asks for shows where the system has huge pages, and where nothing between it and
// the program drops the request or shows another process's memory, as an emulator does.
class HugePages : public LargeMapping {
protected:
    void SetUp() override {
        LargeMapping::SetUp();
        unsigned char* const pProbe = m_pAligned + kMapping / 2;
        if (madvise(pProbe, kHugePage, MADV_HUGEPAGE) != 0 || !IsAskedFor(pProbe)) {
            GTEST_SKIP() << "this system has no huge pages to give, or does not show that they were asked for";
        }
    }
};

TEST_F(HugePages, AreAskedForInsideLargeMemory) {
    tnrobot::AskForHugePages(m_pAligned, 4 * kHugePage);
    EXPECT_TRUE(IsAskedFor(m_pAligned));
    EXPECT_TRUE(IsAskedFor(m_pAligned + 4 * kHugePage - kPage));
    EXPECT_FALSE(IsAskedFor(m_pAligned + 4 * kHugePage));
}

TEST_F(HugePages, AreNotAskedForWhereTheyWouldReachBeyondTheMemory) {
    tnrobot::AskForHugePages(m_pAligned + 16, 4 * kHugePage);  // as an allocator places it
    EXPECT_FALSE(IsAskedFor(m_pAligned + 16));
    EXPECT_TRUE(IsAskedFor(m_pAligned + kHugePage));
    EXPECT_TRUE(IsAskedFor(m_pAligned + 4 * kHugePage - kPage));
    EXPECT_FALSE(IsAskedFor(m_pAligned + 4 * kHugePage));
}

TEST_F(HugePages, AreNotAskedForInSmallMemory) {
    tnrobot::AskForHugePages(m_pAligned, 2 * kHugePage - 1);
    EXPECT_FALSE(IsAskedFor(m_pAligned));
    tnrobot::AskForHugePages(m_pAligned, 0);
    EXPECT_FALSE(IsAskedFor(m_pAligned));
    tnrobot::AskForHugePages(m_pAligned, 2 * kHugePage);
    EXPECT_TRUE(IsAskedFor(m_pAligned));
}

TEST_F(LargeMapping, AskingForHugePagesLeavesTheErrorNumberAlone) {
    munmap(m_pMapping, kMapping);
    errno = EDOM;
    tnrobot::AskForHugePages(m_pAligned, 4 * kHugePage);  // nothing is there any more
    EXPECT_EQ(errno, EDOM);
    m_pMapping = nullptr;
}

// The middle of the block, because its first bytes may lie before the first huge page.
TEST_F(HugePages, AreAskedForInLargeBlocksOfAPool) {
    const HeldPool pool = MakePool();
    ITnRobotMemoryBlock* pBlock = nullptr;
    ASSERT_EQ(pool->QueryMemBuff(12 * kHugePage, &pBlock), 1);
    const auto block = tn::Adopt(pBlock);
    unsigned int nSize = 0;
    unsigned char* const pMemory = pBlock->QueryMemory(nSize);
    EXPECT_TRUE(IsAskedFor(pMemory + nSize / 2));
    pMemory[0] = 1;
    pMemory[nSize - 1] = 1;
}

// The process's own switch: whatever memory asks for, its pages are ordinary ones.
class WithoutHugePages {
public:
    WithoutHugePages()
        : m_nBefore(prctl(PR_GET_THP_DISABLE, 0UL, 0UL, 0UL, 0UL)),
          m_bOff(prctl(PR_SET_THP_DISABLE, 1UL, 0UL, 0UL, 0UL) == 0) {}
    WithoutHugePages(const WithoutHugePages&) = delete;
    WithoutHugePages& operator=(const WithoutHugePages&) = delete;
    ~WithoutHugePages() { prctl(PR_SET_THP_DISABLE, m_nBefore > 0 ? 1UL : 0UL, 0UL, 0UL, 0UL); }

    bool IsOff() const { return m_bOff; }

private:
    int m_nBefore;
    bool m_bOff;
};

unsigned char* HugePageAround(unsigned char* pAddress) {
    return pAddress - reinterpret_cast<std::uintptr_t>(pAddress) % kHugePage;
}

// Pages of the huge page around the address that take up memory.
std::ptrdiff_t ResidentAround(unsigned char* pAddress) {
    unsigned char* const pStart = HugePageAround(pAddress);
    std::array<unsigned char, kHugePage / kPage> pages{};
    if (mincore(pStart, kHugePage, pages.data()) != 0) {
        return -1;
    }
    return std::count_if(pages.begin(), pages.end(), [](unsigned char by) { return (by & 1U) != 0; });
}

// One byte in the middle, where a whole huge page lies within the memory. The allocator may have had the memory in
// use before, so its pages are given back first.
std::ptrdiff_t ResidentAfterOneByte(ITnRobotMemoryBlockPool& pool) {
    ITnRobotMemoryBlock* pBlock = nullptr;
    EXPECT_EQ(pool.QueryMemBuff(12 * kHugePage, &pBlock), 1);
    const auto block = tn::Adopt(pBlock);
    unsigned int nSize = 0;
    unsigned char* const pMiddle = pBlock->QueryMemory(nSize) + nSize / 2;
    EXPECT_EQ(madvise(HugePageAround(pMiddle), kHugePage, MADV_DONTNEED), 0);
    EXPECT_EQ(ResidentAround(pMiddle), 0);
    *pMiddle = 1;
    return ResidentAround(pMiddle);
}

TEST_F(HugePages, AProcessCanSwitchThemOff) {
    const WithoutHugePages off;
    if (!off.IsOff()) {
        GTEST_SKIP() << "this system lets no process do without";
    }
    constexpr std::ptrdiff_t kFew = 64;  // a sanitizer may look at a few more than the one
    for (const auto pfnCreate : {&TnCreateRobotMemoryBlockPool, &TnCreateRobotCircleMemoryBlockPool}) {
        ITnRobotMemoryBlockPool* pPool = nullptr;
        ASSERT_EQ(pfnCreate(&pPool), 1);
        const auto pool = tn::Adopt(pPool);
        const std::ptrdiff_t nResident = ResidentAfterOneByte(*pool);
        EXPECT_GE(nResident, 1);
        EXPECT_LE(nResident, kFew);
    }
}

}  // namespace
