#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <ostream>
#include <random>
#include <vector>

#include "TnRobotKernel/utilities.h"

using Rects = std::vector<STnNLRect>;

static bool operator==(const STnNLRect& a, const STnNLRect& b) {
    return a.left == b.left && a.right == b.right && a.top == b.top && a.bottom == b.bottom;
}

static std::ostream& operator<<(std::ostream& out, const STnNLRect& rect) {
    return out << "(" << rect.left << ", " << rect.right << ", " << rect.top << ", " << rect.bottom << ")";
}

namespace {

constexpr int kMin = std::numeric_limits<int>::min();
constexpr int kMax = std::numeric_limits<int>::max();
constexpr STnNLRect kUntouched = {-1, -2, -3, -4};

Rects Merge(const Rects& rects) {
    return TnRobotRectUtils::mergeRects(rects.data(), static_cast<unsigned int>(rects.size()));
}

int WrappedArea(const STnNLRect& rect) {
    const auto n = [](int nSide) { return static_cast<unsigned int>(nSide); };
    return static_cast<int>((n(rect.right) - n(rect.left)) * (n(rect.bottom) - n(rect.top)));
}

int FindLargest(const Rects& rects, STnNLRect& out) {
    return TnRobotRectUtils::findLargestRect(rects.data(), static_cast<unsigned int>(rects.size()), out);
}

}  // namespace

TEST(RectUtils, IntersectionAndOverlap) {
    const struct {
        STnNLRect a;
        STnNLRect b;
        bool bMeets;
        STnNLRect overlap;
    } cases[] = {
        {{0, 10, 0, 10}, {5, 15, 5, 15}, true, {5, 10, 5, 10}},
        {{0, 10, 0, 10}, {2, 8, 3, 7}, true, {2, 8, 3, 7}},
        {{0, 10, 0, 10}, {10, 20, 10, 20}, true, {10, 10, 10, 10}},  // a corner in common
        {{0, 10, 0, 10}, {10, 20, 0, 10}, true, {10, 10, 0, 10}},    // an edge in common
        {{0, 10, 0, 10}, {11, 20, 0, 10}, false, {11, 11, 0, 10}},
        {{0, 10, 0, 10}, {20, 30, 0, 10}, false, {20, 20, 0, 10}},
        {{0, 10, 0, 10}, {0, 10, 11, 20}, false, {0, 10, 11, 11}},
        {{0, 10, 0, 10}, {20, 30, 40, 50}, false, {20, 20, 40, 40}},
        {{0, 10, 0, 10}, {-20, -10, -50, -40}, false, {0, 0, 0, 0}},
        {{5, 5, 5, 5}, {0, 10, 0, 10}, true, {5, 5, 5, 5}},
        {{kMin, kMax, kMin, kMax}, {kMin, kMax, kMin, kMax}, true, {kMin, kMax, kMin, kMax}},
    };
    for (const auto& test : cases) {
        for (const bool bSwap : {false, true}) {
            const STnNLRect& a = bSwap ? test.b : test.a;
            const STnNLRect& b = bSwap ? test.a : test.b;
            EXPECT_EQ(TnRobotRectUtils::CheckInter(a, b), test.bMeets) << a << b;
            STnNLRect out = kUntouched;
            EXPECT_EQ(TnRobotRectUtils::GetInterRect(a, b, out), test.bMeets) << a << b;
            EXPECT_EQ(out, test.bMeets ? test.overlap : kUntouched) << a << b;
            EXPECT_EQ(TnRobotRectUtils::getOverlapRect(a, b), test.overlap) << a << b;
        }
    }
}

TEST(RectUtils, TheIntersectionMayReplaceAnOperand) {
    STnNLRect a = {0, 10, 0, 10};
    EXPECT_TRUE(TnRobotRectUtils::GetInterRect(a, {5, 15, 6, 16}, a));
    EXPECT_EQ(a, (STnNLRect{5, 10, 6, 10}));
    EXPECT_TRUE(TnRobotRectUtils::GetInterRect({5, 15, 7, 16}, a, a));
    EXPECT_EQ(a, (STnNLRect{5, 10, 7, 10}));
}

// Nobody refuses them: the formulas apply as they stand.
TEST(RectUtils, TurnedRectanglesAreTakenAsTheyAre) {
    const STnNLRect turned = {10, 0, 10, 0};
    const STnNLRect other = {0, 10, 0, 10};
    EXPECT_TRUE(TnRobotRectUtils::CheckInter(turned, other));
    STnNLRect out = kUntouched;
    EXPECT_TRUE(TnRobotRectUtils::GetInterRect(turned, other, out));
    EXPECT_EQ(out, (STnNLRect{10, 0, 10, 0}));
    EXPECT_EQ(TnRobotRectUtils::getOverlapRect(turned, other), (STnNLRect{10, 10, 10, 10}));
    EXPECT_FALSE(TnRobotRectUtils::CheckInter(turned, turned));
    EXPECT_EQ(TnRobotRectUtils::getBoundingBox(&turned, 1), turned);
}

TEST(RectUtils, TheBoundingBoxEnclosesAll) {
    const Rects rects = {{5, 6, 7, 8}, {-3, 2, 10, 11}, {0, 100, 9, 9}, {1, 1, -50, 1}};
    EXPECT_EQ(TnRobotRectUtils::getBoundingBox(rects.data(), 4), (STnNLRect{-3, 100, -50, 11}));
    EXPECT_EQ(TnRobotRectUtils::getBoundingBox(rects.data(), 1), rects[0]);
    EXPECT_EQ(TnRobotRectUtils::getBoundingBox(rects.data(), 2), (STnNLRect{-3, 6, 7, 11}));
}

TEST(RectUtils, TheBoundingBoxOfNoneIsZero) {
    const STnNLRect rect = {1, 2, 3, 4};
    EXPECT_EQ(TnRobotRectUtils::getBoundingBox(&rect, 0), (STnNLRect{0, 0, 0, 0}));
    EXPECT_EQ(TnRobotRectUtils::getBoundingBox(nullptr, 3), (STnNLRect{0, 0, 0, 0}));
    EXPECT_EQ(TnRobotRectUtils::getBoundingBox(nullptr, 0), (STnNLRect{0, 0, 0, 0}));
}

TEST(RectUtils, TheBoxOfFourCornersTakesTheSmallerCoordinateOnEverySide) {
    const struct {
        STnNL2DRect quad;
        STnNLRect box;
    } cases[] = {
        {{{{0, 0}, {10, 0}, {10, 10}, {0, 10}}}, {0, 10, 0, 10}},
        {{{{0, 0}, {10, 0}, {12, 12}, {0, 10}}}, {0, 10, 0, 10}},
        {{{{0, 0}, {12, 0}, {10, 10}, {0, 12}}}, {0, 10, 0, 10}},
        {{{{2, 1}, {11, 3}, {10, 12}, {1, 10}}}, {1, 10, 1, 10}},
        {{{{1, 3}, {10, 1}, {11, 10}, {2, 12}}}, {1, 10, 1, 10}},
        {{{{kMax, kMax}, {kMin, kMin}, {kMax, kMax}, {kMin, kMin}}}, {kMin, kMin, kMin, kMin}},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(TnRobotRectUtils::GetBoundBox(test.quad), test.box);
    }
}

TEST(RectUtils, FindsTheFirstOfTheLargest) {
    const struct {
        Rects rects;
        int nIndex;
    } cases[] = {
        {{{0, 10, 0, 10}}, 0},
        {{{0, 10, 0, 10}, {5, 15, 5, 15}}, 0},  // equal
        {{{0, 10, 0, 10}, {0, 11, 0, 10}}, 1},
        {{{0, 1, 0, 1}, {0, 5, 0, 20}, {0, 20, 0, 5}, {0, 3, 0, 3}}, 1},
        {{{0, 10, 0, -10}, {0, 5, 0, -5}, {3, 3, 3, 3}}, 2},  // negative areas are smaller
        {{{0, 0, 0, 0}, {10, 0, 10, 0}}, 1},                  // turned twice is positive
        {{{0, 10, 0, -10}}, 0},
    };
    for (const auto& test : cases) {
        STnNLRect out = kUntouched;
        EXPECT_EQ(FindLargest(test.rects, out), test.nIndex);
        EXPECT_EQ(out, test.rects[static_cast<std::size_t>(test.nIndex)]);
    }
}

TEST(RectUtils, AnAreaBeyond32BitsWraps) {
    STnNLRect out = kUntouched;
    // 65536 x 65536 is 0; 46341 x 46341 is negative; the full range is 1 after wrapping.
    EXPECT_EQ(FindLargest({{0, 65536, 0, 65536}, {0, 1, 0, 1}}, out), 1);
    EXPECT_EQ(FindLargest({{0, 46341, 0, 46341}, {0, 0, 0, 0}}, out), 1);
    EXPECT_EQ(FindLargest({{0, 2, 0, 1}, {kMin, kMax, kMin, kMax}}, out), 0);
    EXPECT_EQ(FindLargest({{0, 0, 0, 1}, {kMin, kMax, kMin, kMax}}, out), 1);
}

// Several are compared at a time: wherever the largest stand, and however many follow, the first wins.
TEST(RectUtils, FindsTheFirstOfTheLargestAtEveryPlaceOfEveryCount) {
    for (std::size_t nCount = 1; nCount <= 13; ++nCount) {
        for (std::size_t nFirst = 0; nFirst < nCount; ++nFirst) {
            for (std::size_t nSecond = nFirst; nSecond < nCount; ++nSecond) {
                Rects rects(nCount, {0, 3, 0, 3});
                rects[nFirst] = {1, 3, 5, 10};
                rects[nSecond] = {-7, -2, -1, 1};
                STnNLRect out = kUntouched;
                ASSERT_EQ(FindLargest(rects, out), static_cast<int>(nFirst)) << nCount << ", " << nSecond;
                ASSERT_EQ(out, rects[nFirst]);
            }
        }
    }
}

TEST(RectUtils, FindsTheLargestOfAnySidesAsAPlainLoopDoes) {
    std::mt19937 random(1);
    for (std::size_t nCount = 1; nCount <= 500; ++nCount) {
        // Few different sides make equal areas, all of them make areas that wrap.
        const unsigned int nMask = nCount % 2 == 0 ? 0xFFFFFFFFU : 3U;
        Rects rects(nCount);
        for (STnNLRect& rect : rects) {
            for (int* pSide : {&rect.left, &rect.right, &rect.top, &rect.bottom}) {
                *pSide = static_cast<int>(static_cast<unsigned int>(random()) & nMask);
            }
        }
        std::size_t nLargest = 0;
        for (std::size_t i = 1; i < nCount; ++i) {
            nLargest = WrappedArea(rects[i]) > WrappedArea(rects[nLargest]) ? i : nLargest;
        }
        STnNLRect out = kUntouched;
        ASSERT_EQ(FindLargest(rects, out), static_cast<int>(nLargest)) << nCount;
    }
}

TEST(RectUtils, FindsNoLargestOfNone) {
    const STnNLRect rect = {1, 2, 3, 4};
    STnNLRect out = kUntouched;
    EXPECT_EQ(TnRobotRectUtils::findLargestRect(&rect, 0, out), -1);
    EXPECT_EQ(TnRobotRectUtils::findLargestRect(nullptr, 2, out), -1);
    EXPECT_EQ(out, kUntouched);
}

TEST(RectUtils, XorGivesTheStripsOutsideTheOverlap) {
    const struct {
        STnNLRect a;
        STnNLRect b;
        Rects strips;
    } cases[] = {
        {{0, 10, 0, 10}, {5, 15, 0, 10}, {{0, 5, 0, 10}, {10, 15, 0, 10}}},
        {{0, 10, 0, 10}, {0, 10, 0, 10}, {}},
        // Strips at full height and full width share the corners.
        {{0, 10, 0, 10}, {3, 7, 4, 6}, {{0, 3, 0, 10}, {7, 10, 0, 10}, {0, 10, 0, 4}, {0, 10, 6, 10}}},
        {{3, 7, 4, 6}, {0, 10, 0, 10}, {{0, 3, 0, 10}, {7, 10, 0, 10}, {0, 10, 0, 4}, {0, 10, 6, 10}}},
        {{0, 10, 0, 10}, {5, 15, 5, 15}, {{0, 5, 0, 10}, {0, 10, 0, 5}, {10, 15, 5, 15}, {5, 15, 10, 15}}},
        {{0, 10, 3, 7}, {4, 6, 0, 10}, {{0, 4, 3, 7}, {6, 10, 3, 7}, {4, 6, 0, 3}, {4, 6, 7, 10}}},
        // Apart from each other: against the overlap without width at (20, 20, 0, 10).
        {{0, 10, 0, 10}, {20, 30, 0, 10}, {{0, 20, 0, 10}, {20, 30, 0, 10}}},
        // Apart in both directions: against (20, 20, 40, 40).
        {{0, 10, 0, 10}, {20, 30, 40, 50}, {{0, 20, 0, 10}, {0, 10, 0, 40}, {20, 30, 40, 50}, {20, 30, 40, 50}}},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(TnRobotRectUtils::rectXor(test.a, test.b), test.strips) << test.a << test.b;
    }
}

// A turned rectangle is on both sides of the overlap at once.
TEST(RectUtils, XorGivesAtMostEightStrips) {
    EXPECT_LE(TnRobotRectUtils::rectXor({kMin, kMax, kMin, kMax}, {0, 1, 0, 1}).size(), 8U);
    EXPECT_EQ(TnRobotRectUtils::rectXor({kMin, kMax, kMin, kMax}, {0, 1, 0, 1}),
              (Rects{{kMin, 0, kMin, kMax}, {1, kMax, kMin, kMax}, {kMin, kMax, kMin, 0}, {kMin, kMax, 1, kMax}}));
}

TEST(RectUtils, MergesWhatMeetsFromLeftToRight) {
    const struct {
        Rects rects;
        Rects merged;
    } cases[] = {
        {{{0, 10, 0, 10}}, {{0, 10, 0, 10}}},
        // The vertical distance does not matter.
        {{{0, 10, 0, 10}, {5, 15, 100, 110}}, {{0, 15, 0, 110}}},
        {{{0, 10, 100, 110}, {5, 15, 0, 10}}, {{0, 15, 0, 110}}},
        {{{0, 10, 0, 10}, {11, 20, 0, 10}}, {{0, 10, 0, 10}, {11, 20, 0, 10}}},
        {{{0, 10, 0, 10}, {10, 20, 0, 10}}, {{0, 20, 0, 10}}},
        // Sorted first.
        {{{30, 40, 0, 1}, {0, 10, 2, 3}, {5, 20, 4, 5}}, {{0, 20, 2, 5}, {30, 40, 0, 1}}},
        // A long one keeps its right edge, and later ones are compared with it.
        {{{0, 100, 0, 1}, {10, 20, 0, 1}, {90, 95, 5, 6}, {101, 102, 0, 1}}, {{0, 100, 0, 6}, {101, 102, 0, 1}}},
        // Compared with the last result only.
        {{{0, 1, 0, 1}, {2, 3, 0, 1}, {3, 4, 0, 1}}, {{0, 1, 0, 1}, {2, 4, 0, 1}}},
        // Turned upside down: neither vertical condition holds.
        {{{0, 10, 10, 0}, {5, 15, 5, 5}}, {{0, 10, 10, 0}, {5, 15, 5, 5}}},
        // One of them is enough.
        {{{0, 10, 10, 0}, {5, 15, 5, 20}}, {{0, 15, 5, 20}}},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Merge(test.rects), test.merged);
    }
}

TEST(RectUtils, MergesNone) {
    const STnNLRect rect = {1, 2, 3, 4};
    EXPECT_TRUE(TnRobotRectUtils::mergeRects(&rect, 0).empty());
    EXPECT_TRUE(TnRobotRectUtils::mergeRects(nullptr, 3).empty());
}

TEST(RectUtils, MergesManyLikeAPlainLoop) {
    std::mt19937 random(1);
    for (int nRun = 0; nRun < 200; ++nRun) {
        Rects rects;
        Rects sorted;
        const auto nCount = static_cast<int>(random() % 200 + 1);
        std::vector<int> lefts(5000);
        for (int i = 0; i < 5000; ++i) {
            lefts[static_cast<std::size_t>(i)] = i;  // no two alike: their order would be open
        }
        std::shuffle(lefts.begin(), lefts.end(), random);
        for (int i = 0; i < nCount; ++i) {
            const int nLeft = lefts[static_cast<std::size_t>(i)];
            const int nTop = static_cast<int>(random() % 1000);
            rects.push_back(
                {nLeft, nLeft + static_cast<int>(random() % 40), nTop, nTop + static_cast<int>(random() % 40)});
        }
        const Rects input = rects;
        std::sort(rects.begin(), rects.end(), [](const auto& a, const auto& b) { return a.left < b.left; });
        for (const STnNLRect& r : rects) {
            if (!sorted.empty() && sorted.back().right >= r.left) {
                STnNLRect& m = sorted.back();
                m = {m.left, std::max(m.right, r.right), std::min(m.top, r.top), std::max(m.bottom, r.bottom)};
            } else {
                sorted.push_back(r);
            }
        }
        EXPECT_EQ(Merge(input), sorted);
    }
}
