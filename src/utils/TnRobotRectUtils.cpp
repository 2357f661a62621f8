// Rectangles include their edges where it is asked whether they touch, and areas wrap at 32 bits; callers
// are built on both.

#include <algorithm>

#include "TnRobotKernel/utilities.h"
#include "utils/TnLargestArea.h"

namespace {

STnNLRect Union(const STnNLRect& a, const STnNLRect& b) {
    return {std::min(a.left, b.left), std::max(a.right, b.right), std::min(a.top, b.top), std::max(a.bottom, b.bottom)};
}

bool _compareRects(const STnNLRect& a, const STnNLRect& b) {
    return a.left < b.left;
}

// One of the two vertical conditions is enough, so well-formed rectangles merge whatever lies
// between them vertically. Callers rely on that: do not "fix".
bool IsMergeable(const STnNLRect& merged, const STnNLRect& next) {
    return merged.right >= next.left && (merged.bottom >= next.top || merged.top <= next.bottom);
}

void AppendStrips(const STnNLRect& r, const STnNLRect& overlap, std::vector<STnNLRect>& strips) {
    if (r.left < overlap.left) {
        strips.push_back({r.left, overlap.left, r.top, r.bottom});
    }
    if (r.right > overlap.right) {
        strips.push_back({overlap.right, r.right, r.top, r.bottom});
    }
    if (r.top < overlap.top) {
        strips.push_back({r.left, r.right, r.top, overlap.top});
    }
    if (r.bottom > overlap.bottom) {
        strips.push_back({r.left, r.right, overlap.bottom, r.bottom});
    }
}

}  // namespace

bool TnRobotRectUtils::CheckInter(const STnNLRect& a, const STnNLRect& b) {
    return a.right >= b.left && b.right >= a.left && a.bottom >= b.top && b.bottom >= a.top;
}

// The result is made before it is stored: out may be a or b.
bool TnRobotRectUtils::GetInterRect(const STnNLRect& a, const STnNLRect& b, STnNLRect& out) {
    if (!CheckInter(a, b)) {
        return false;
    }
    out = STnNLRect{std::max(a.left, b.left), std::min(a.right, b.right), std::max(a.top, b.top),
                    std::min(a.bottom, b.bottom)};
    return true;
}

STnNLRect TnRobotRectUtils::getOverlapRect(const STnNLRect& a, const STnNLRect& b) {
    STnNLRect overlap = {};
    overlap.left = std::max(a.left, b.left);
    overlap.top = std::max(a.top, b.top);
    overlap.right = std::max(std::min(a.right, b.right), overlap.left);
    overlap.bottom = std::max(std::min(a.bottom, b.bottom), overlap.top);
    return overlap;
}

STnNLRect TnRobotRectUtils::getBoundingBox(const STnNLRect* pRects, unsigned int nCount) {
    if (pRects == nullptr || nCount == 0) {
        return {};
    }
    STnNLRect box = pRects[0];
    for (unsigned int i = 1; i < nCount; ++i) {
        box = Union(box, pRects[i]);
    }
    return box;
}

// The minimum on every side, the right and the bottom one too: callers rely on it. Do not "fix".
STnNLRect TnRobotRectUtils::GetBoundBox(const STnNL2DRect& quad) {
    const STnNL2DPoint* pt = quad.pt;
    return {std::min(pt[0].x, pt[3].x), std::min(pt[1].x, pt[2].x), std::min(pt[0].y, pt[1].y),
            std::min(pt[2].y, pt[3].y)};
}

int TnRobotRectUtils::findLargestRect(const STnNLRect* pRects, unsigned int nCount, STnNLRect& out) {
    if (pRects == nullptr || nCount == 0) {
        return -1;
    }
    const unsigned int nLargest = tnrobot::FindLargestArea(pRects, nCount);
    out = pRects[nLargest];
    return static_cast<int>(nLargest);
}

std::vector<STnNLRect> TnRobotRectUtils::rectXor(const STnNLRect& a, const STnNLRect& b) {
    const STnNLRect overlap = getOverlapRect(a, b);
    std::vector<STnNLRect> strips;
    strips.reserve(8);
    AppendStrips(a, overlap, strips);
    AppendStrips(b, overlap, strips);
    return strips;
}

// The sorted copy becomes the result: the merged rectangles never catch up with those still to
// be read.
std::vector<STnNLRect> TnRobotRectUtils::mergeRects(const STnNLRect* pRects, unsigned int nCount) {
    if (pRects == nullptr || nCount == 0) {
        return {};
    }
    std::vector<STnNLRect> rects(pRects, pRects + nCount);
    std::sort(rects.begin(), rects.end(), [](const STnNLRect& a, const STnNLRect& b) { return _compareRects(a, b); });
    std::size_t nLast = 0;
    for (std::size_t i = 1; i < rects.size(); ++i) {
        if (IsMergeable(rects[nLast], rects[i])) {
            rects[nLast] = Union(rects[nLast], rects[i]);
        } else {
            rects[++nLast] = rects[i];
        }
    }
    rects.resize(nLast + 1);
    return rects;
}
