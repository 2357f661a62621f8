// Compares the operations on rectangles with the same ones in 64 bits.

#include <TnRobotKernel/TnRobotKernel.h>

#include <set>
#include <vector>

#include "FuzzBudget.h"
#include "FuzzInput.h"

using namespace tnfuzz;

namespace {

using Rects = std::vector<STnNLRect>;

struct WideRect {
    std::int64_t left;
    std::int64_t right;
    std::int64_t top;
    std::int64_t bottom;

    explicit WideRect(const STnNLRect& r) : left(r.left), right(r.right), top(r.top), bottom(r.bottom) {}
    WideRect(std::int64_t l, std::int64_t r, std::int64_t t, std::int64_t b) : left(l), right(r), top(t), bottom(b) {}

    bool operator==(const STnNLRect& r) const {
        return left == r.left && right == r.right && top == r.top && bottom == r.bottom;
    }
    WideRect UnitedWith(const WideRect& r) const {
        return {std::min(left, r.left), std::max(right, r.right), std::min(top, r.top), std::max(bottom, r.bottom)};
    }
    WideRect CommonWith(const WideRect& r) const {
        return {std::max(left, r.left), std::min(right, r.right), std::max(top, r.top), std::min(bottom, r.bottom)};
    }
};

using WideRects = std::vector<WideRect>;

bool AreEqual(const WideRects& expected, const Rects& rects) {
    return std::equal(expected.begin(), expected.end(), rects.begin(), rects.end());
}

// Small coordinates meet each other; large ones overflow.
int Coordinate(FuzzInput& input, bool bSmall) {
    return bSmall ? input.Number<std::int8_t>() : input.Number<std::int32_t>();
}

STnNLRect NextRect(FuzzInput& input, bool bSmall) {
    STnNLRect rect = {};
    rect.left = Coordinate(input, bSmall);
    rect.right = Coordinate(input, bSmall);
    rect.top = Coordinate(input, bSmall);
    rect.bottom = Coordinate(input, bSmall);
    return rect;
}

WideRects Outside(const WideRect& r, const WideRect& o) {
    WideRects strips;
    if (r.left < o.left) {
        strips.emplace_back(r.left, o.left, r.top, r.bottom);
    }
    if (r.right > o.right) {
        strips.emplace_back(o.right, r.right, r.top, r.bottom);
    }
    if (r.top < o.top) {
        strips.emplace_back(r.left, r.right, r.top, o.top);
    }
    if (r.bottom > o.bottom) {
        strips.emplace_back(r.left, r.right, o.bottom, r.bottom);
    }
    return strips;
}

void CheckPair(const STnNLRect& a, const STnNLRect& b) {
    const WideRect wideA(a);
    const WideRect wideB(b);
    const WideRect common = wideA.CommonWith(wideB);
    const bool bMeet = a.right >= b.left && b.right >= a.left && a.bottom >= b.top && b.bottom >= a.top;
    Require(TnRobotRectUtils::CheckInter(a, b) == bMeet, "rectangles meet when neither lies beside the other");

    const STnNLRect untouched = {7, 7, 7, 7};
    STnNLRect out = untouched;
    Require(TnRobotRectUtils::GetInterRect(a, b, out) == bMeet, "and only then have a common part");
    Require((bMeet ? common : WideRect(untouched)) == out, "which is the common part");

    WideRect overlap = common;
    overlap.right = std::max(overlap.right, overlap.left);
    overlap.bottom = std::max(overlap.bottom, overlap.top);
    Require(overlap == TnRobotRectUtils::getOverlapRect(a, b), "an overlap is never negative");

    WideRects strips = Outside(wideA, overlap);
    const WideRects more = Outside(wideB, overlap);
    strips.insert(strips.end(), more.begin(), more.end());
    Require(AreEqual(strips, TnRobotRectUtils::rectXor(a, b)), "what lies outside is covered by strips");
}

WideRect BoxOf(const Rects& rects) {
    if (rects.empty()) {
        return {0, 0, 0, 0};
    }
    WideRect box(rects[0]);
    for (const STnNLRect& rect : rects) {
        box = box.UnitedWith(WideRect(rect));
    }
    return box;
}

// Only its lowest 32 bits count, as a signed number.
std::int64_t Area(const STnNLRect& r) {
    const auto nWidth = static_cast<std::uint64_t>(std::int64_t{r.right} - r.left);
    const auto nHeight = static_cast<std::uint64_t>(std::int64_t{r.bottom} - r.top);
    const auto nLow = static_cast<std::int64_t>(nWidth * nHeight & 0xFFFFFFFFU);
    return nLow > INT32_MAX ? nLow - (std::int64_t{1} << 32) : nLow;
}

void CheckLargest(const Rects& rects) {
    int nLargest = rects.empty() ? -1 : 0;
    for (std::size_t i = 1; i < rects.size(); ++i) {
        if (Area(rects[i]) > Area(rects[static_cast<std::size_t>(nLargest)])) {
            nLargest = static_cast<int>(i);
        }
    }
    STnNLRect out = {7, 7, 7, 7};
    const WideRect expected(rects.empty() ? out : rects[static_cast<std::size_t>(nLargest)]);
    Require(TnRobotRectUtils::findLargestRect(rects.data(), static_cast<unsigned int>(rects.size()), out) == nLargest,
            "the first of the largest is found");
    Require(expected == out, "and given");
}

WideRects Merged(Rects rects) {
    std::sort(rects.begin(), rects.end(), [](const STnNLRect& a, const STnNLRect& b) { return a.left < b.left; });
    WideRects merged;
    for (const STnNLRect& rect : rects) {
        const WideRect r(rect);
        if (!merged.empty() && merged.back().right >= r.left &&
            (merged.back().bottom >= r.top || merged.back().top <= r.bottom)) {
            merged.back() = merged.back().UnitedWith(r);
        } else {
            merged.push_back(r);
        }
    }
    return merged;
}

// The order of rectangles with the same left edge is open, and the result depends on it.
void CheckMerging(const Rects& rects) {
    const Rects merged = TnRobotRectUtils::mergeRects(rects.data(), static_cast<unsigned int>(rects.size()));
    std::set<int> lefts;
    for (const STnNLRect& rect : rects) {
        lefts.insert(rect.left);
    }
    Require(lefts.size() != rects.size() || AreEqual(Merged(rects), merged), "rectangles merge from left to right");
    Require(merged.size() <= rects.size() && merged.empty() == rects.empty(), "merging makes no rectangles");
    const WideRect box = BoxOf(merged);
    Require(BoxOf(rects) == STnNLRect{static_cast<int>(box.left), static_cast<int>(box.right),
                                      static_cast<int>(box.top), static_cast<int>(box.bottom)},
            "and loses none");
}

void CheckQuad(FuzzInput& input, bool bSmall) {
    STnNL2DRect quad = {};
    for (STnNL2DPoint& point : quad.pt) {
        point.x = Coordinate(input, bSmall);
        point.y = Coordinate(input, bSmall);
    }
    const STnNL2DPoint* pt = quad.pt;
    const WideRect expected(std::min(pt[0].x, pt[3].x), std::min(pt[1].x, pt[2].x), std::min(pt[0].y, pt[1].y),
                            std::min(pt[2].y, pt[3].y));
    Require(expected == TnRobotRectUtils::GetBoundBox(quad), "each edge is a minimum of two corners");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    FuzzInput input(pData, nSize);
    const bool bSmall = input.Below(2) == 0;
    CheckQuad(input, bSmall);
    Rects rects;
    while (input.Left() != 0) {
        rects.push_back(NextRect(input, bSmall));
    }
    rects.shrink_to_fit();
    for (std::size_t i = 1; i < rects.size(); ++i) {
        CheckPair(rects[i - 1], rects[i]);
    }
    const STnNLRect box = TnRobotRectUtils::getBoundingBox(rects.data(), static_cast<unsigned int>(rects.size()));
    Require(BoxOf(rects) == box, "a box holds all rectangles");
    CheckLargest(rects);
    CheckMerging(rects);
    return 0;
}
