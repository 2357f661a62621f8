// The bytes of a value: inside of it, from the heap or mapped, always with a zero behind them.

#include "values/TnByteStorage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "support/processes/ResourceUse.h"

using tnrobot::ByteStorage;

namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20U;

// The places where the memory is of another kind, and beside them.
constexpr std::size_t kSizes[] = {0, 23, 24, kMiB, 32 * kMiB - 1, 32 * kMiB, 33 * kMiB + 7};
constexpr std::size_t kMost = 40 * kMiB;
constexpr std::size_t kStep = 1021;

// The first of them are what every storage here holds.
const std::vector<unsigned char>& Bytes() {
    static const auto s_bytes = [] {
        std::vector<unsigned char> bytes(kMost, 200);
        for (std::size_t i = 0; i < kMost; i += kStep) {
            bytes[i] = static_cast<unsigned char>(1 + i / kStep % 199);
        }
        return bytes;
    }();
    return s_bytes;
}

void ExpectContent(const ByteStorage& storage, std::size_t nCount) {
    ASSERT_LE(nCount, storage.Size());
    for (std::size_t i = 0; i < nCount; i += kStep) {
        ASSERT_EQ(storage.Data()[i], Bytes()[i]) << i;
    }
    for (std::size_t i = nCount; i <= storage.Size(); i += kStep) {
        ASSERT_EQ(storage.Data()[i], 0) << i;
    }
    EXPECT_EQ(storage.Data()[storage.Size()], 0);
}

}  // namespace

TEST(ByteStorage, KeepsItsContentFromEachKindOfMemoryToEachOther) {
    for (const std::size_t nFrom : kSizes) {
        for (const std::size_t nTo : kSizes) {
            ByteStorage storage;
            storage.Assign(Bytes().data(), nFrom);
            storage.Resize(nTo);
            ASSERT_EQ(storage.Size(), nTo);
            ExpectContent(storage, nFrom < nTo ? nFrom : nTo);
            ASSERT_FALSE(testing::Test::HasFatalFailure()) << nFrom << " to " << nTo;
        }
    }
}

TEST(ByteStorage, GrowsStepByStepAsALoadedValueDoes) {
    ByteStorage storage;
    for (std::size_t nDone = 0; nDone < kMost;) {
        const std::size_t nNext = nDone == 0 ? kMiB : std::min(2 * nDone, kMost);
        storage.Resize(nNext);
        ASSERT_EQ(storage.Data()[nDone], 0);
        std::memcpy(storage.Data() + nDone, Bytes().data() + nDone, nNext - nDone);
        nDone = nNext;
    }
    EXPECT_EQ(std::memcmp(storage.Data(), Bytes().data(), kMost), 0);
    storage.Resize(35 * kMiB);
    ExpectContent(storage, 35 * kMiB);
    storage.Resize(kMost);
    ExpectContent(storage, 35 * kMiB);
}

TEST(ByteStorage, TakesMemoryOfEveryKindFromAnother) {
    for (const std::size_t nCount : kSizes) {
        ByteStorage from;
        from.Assign(Bytes().data(), nCount);
        ByteStorage to;
        to.Resize(33 * kMiB);
        to.TakeFrom(from);
        ASSERT_EQ(to.Size(), nCount);
        ExpectContent(to, nCount);
        EXPECT_TRUE(from.IsCleared());
        to.Clear();
        EXPECT_TRUE(to.IsCleared());
    }
}

// Each way in which a storage parts with its memory, thirty times what may be added at once.
TEST(ByteStorage, LargeMemoryGoesBackToTheSystem) {
    const long long nGrowth = tntest::PeakGrowth([] {
        for (int nRound = 0; nRound < 30; ++nRound) {
            ByteStorage cleared;
            cleared.Resize(33 * kMiB);
            cleared.Clear();
            ByteStorage from;
            from.Resize(33 * kMiB);
            ByteStorage to;
            to.Resize(33 * kMiB);
            to.TakeFrom(from);
        }
    });
    EXPECT_GE(nGrowth, 0);
    EXPECT_LT(nGrowth, static_cast<long long>(150 * kMiB));
}
