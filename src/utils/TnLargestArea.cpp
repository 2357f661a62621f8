// Four rectangles at a time where the processor is known to have the instructions: every x86-64 has. Each
// lane keeps the first of the largest among its own, and the first of the largest lanes wins.

#include "utils/TnLargestArea.h"

#ifdef __x86_64__
#include <emmintrin.h>
#endif

namespace tnrobot {

namespace {

struct Largest {
    int m_nArea;
    unsigned int m_nIndex;
};

// Unsigned, where wrapping is defined.
int Area(const STnNLRect& rect) {
    const unsigned int nWidth = static_cast<unsigned int>(rect.right) - static_cast<unsigned int>(rect.left);
    const unsigned int nHeight = static_cast<unsigned int>(rect.bottom) - static_cast<unsigned int>(rect.top);
    return static_cast<int>(nWidth * nHeight);
}

Largest FindFrom(const STnNLRect* pRects, unsigned int nFirst, unsigned int nEnd, Largest largest) {
    for (unsigned int i = nFirst; i < nEnd; ++i) {
        const int nArea = Area(pRects[i]);
        if (nArea > largest.m_nArea) {
            largest = {nArea, i};
        }
    }
    return largest;
}

#ifdef __x86_64__

constexpr unsigned int kLanes = 4;
constexpr int kEvenLanes = _MM_SHUFFLE(2, 0, 2, 0);
constexpr int kOddLanes = _MM_SHUFFLE(3, 1, 3, 1);

template <int nLanes>
__m128i Pick(__m128i a, __m128i b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), nLanes));
}

// Lanes 0 and 2 hold the areas of two rectangles, whose sides lie as left, right, top, bottom.
__m128i TwoAreas(const STnNLRect* pRects) {
    const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pRects));
    const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pRects + 1));
    const __m128i sizes = _mm_sub_epi32(Pick<kOddLanes>(first, second), Pick<kEvenLanes>(first, second));
    return _mm_mul_epu32(sizes, _mm_srli_epi64(sizes, 32));
}

__m128i Choose(__m128i mask, __m128i ifSet, __m128i otherwise) {
    return _mm_or_si128(_mm_and_si128(mask, ifSet), _mm_andnot_si128(mask, otherwise));
}

Largest LargestLane(__m128i areas, __m128i indices) {
    int nAreas[kLanes];
    unsigned int nIndices[kLanes];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(nAreas), areas);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(nIndices), indices);
    Largest largest = {nAreas[0], nIndices[0]};
    for (unsigned int i = 1; i < kLanes; ++i) {
        if (nAreas[i] > largest.m_nArea || (nAreas[i] == largest.m_nArea && nIndices[i] < largest.m_nIndex)) {
            largest = {nAreas[i], nIndices[i]};
        }
    }
    return largest;
}

// @param[in] nCount  a multiple of kLanes, not 0.
Largest FindInFours(const STnNLRect* pRects, unsigned int nCount) {
    __m128i indices = _mm_setr_epi32(0, 1, 2, 3);
    __m128i largestIndices = indices;
    __m128i largestAreas = Pick<kEvenLanes>(TwoAreas(pRects), TwoAreas(pRects + 2));
    for (unsigned int i = kLanes; i < nCount; i += kLanes) {
        indices = _mm_add_epi32(indices, _mm_set1_epi32(kLanes));
        const __m128i areas = Pick<kEvenLanes>(TwoAreas(pRects + i), TwoAreas(pRects + i + 2));
        const __m128i larger = _mm_cmpgt_epi32(areas, largestAreas);
        largestAreas = Choose(larger, areas, largestAreas);
        largestIndices = Choose(larger, indices, largestIndices);
    }
    return LargestLane(largestAreas, largestIndices);
}

Largest FindFirst(const STnNLRect* pRects, unsigned int nCount) {
    const unsigned int nInFours = nCount / kLanes * kLanes;
    return nInFours == 0 ? FindFrom(pRects, 1, nCount, {Area(pRects[0]), 0})
                         : FindFrom(pRects, nInFours, nCount, FindInFours(pRects, nInFours));
}

#else

Largest FindFirst(const STnNLRect* pRects, unsigned int nCount) {
    return FindFrom(pRects, 1, nCount, {Area(pRects[0]), 0});
}

#endif

}  // namespace

unsigned int FindLargestArea(const STnNLRect* pRects, unsigned int nCount) {
    return FindFirst(pRects, nCount).m_nIndex;
}

}  // namespace tnrobot
