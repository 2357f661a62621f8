// Base64 on 32 characters at a time. What is left of a text, and the group that ends one early,
// goes to the portable functions.

#include "utils/TnBase64.h"

#ifdef __x86_64__

#include <immintrin.h>

// The file is built for any processor; only these functions use the newer instructions.
#define TN_AVX2 __attribute__((target("avx2")))

namespace tnrobot {

namespace {

constexpr std::size_t kChars = 32;                         // in one step
constexpr std::size_t kBytes = 24;                         // in one step
constexpr unsigned int kThirdAndFourthPlace = 0xCCCCCCCC;  // of every group

TN_AVX2 inline __m256i All(char n) {
    return _mm256_set1_epi8(n);
}

// The pattern in both halves.
TN_AVX2 inline __m256i BothHalves(__m128i pattern) {
    return _mm256_broadcastsi128_si256(pattern);
}

// Twelve bytes in each half become sixteen numbers of six bits.
TN_AVX2 inline __m256i SplitIntoSixBits(__m256i bytes) {
    // Each 32-bit lane gets the bytes 1, 0, 2, 1 of its group, so that every number lies within
    // one of its 16-bit halves; multiplying shifts each to its place.
    const __m256i spread =
        _mm256_shuffle_epi8(bytes, BothHalves(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10)));
    const __m256i firstAndThird =
        _mm256_mulhi_epu16(_mm256_and_si256(spread, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
    const __m256i secondAndFourth =
        _mm256_mullo_epi16(_mm256_and_si256(spread, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(firstAndThird, secondAndFourth);
}

// What to add to the numbers above a limit.
TN_AVX2 inline __m256i Above(__m256i numbers, char nLimit, char nStep) {
    return _mm256_and_si256(_mm256_cmpgt_epi8(numbers, All(nLimit)), All(nStep));
}

TN_AVX2 inline __m256i NumbersToChars(__m256i numbers) {
    const __m256i lower = Above(numbers, 25, 'a' - 26 - 'A');
    const __m256i digit = Above(numbers, 51, ('0' - 52) - ('a' - 26));
    const __m256i plus = Above(numbers, 61, ('+' - 62) - ('0' - 52));
    const __m256i slash = Above(numbers, 62, ('/' - 63) - ('+' - 62));
    const __m256i letters = _mm256_add_epi8(_mm256_add_epi8(numbers, All('A')), lower);
    return _mm256_add_epi8(_mm256_add_epi8(letters, digit), _mm256_add_epi8(plus, slash));
}

// The alphabet in the table of ASCII has rows of sixteen characters, which the upper half of a
// character numbers: "+" in row 2, digits in row 3, upper-case letters in rows 4 and 5, lower-case
// ones in rows 6 and 7. Within a row the distance from a character to its number is the same. What
// is in none of them, "/" included, counts as 63.
TN_AVX2 inline __m256i CharsToNumbers(__m256i chars) {
    const __m256i row = _mm256_and_si256(_mm256_srli_epi16(chars, 4), All(15));
    const __m256i distance = _mm256_shuffle_epi8(
        BothHalves(_mm_setr_epi8(0, 0, 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0)),
        row);
    // One bit for each row: by the row, and by the column all rows that have a character there.
    // (Looking up a character above 127 gives zero.)
    const __m256i rowBit =
        _mm256_shuffle_epi8(BothHalves(_mm_setr_epi8(0, 0, 1, 2, 4, 8, 16, 32, 0, 0, 0, 0, 0, 0, 0, 0)), row);
    const __m256i rowsOfColumn = _mm256_shuffle_epi8(
        BothHalves(_mm_setr_epi8(42, 62, 62, 62, 62, 62, 62, 62, 62, 62, 60, 21, 20, 20, 20, 20)), chars);
    const __m256i isStranger = _mm256_cmpeq_epi8(_mm256_and_si256(rowBit, rowsOfColumn), _mm256_setzero_si256());
    return _mm256_min_epu8(_mm256_or_si256(_mm256_add_epi8(chars, distance), isStranger), All(63));
}

// Sixteen numbers of six bits in each half become twelve bytes; all 24 come first in the result.
TN_AVX2 inline __m256i JoinSixBits(__m256i numbers) {
    const __m256i twelveBits = _mm256_maddubs_epi16(numbers, _mm256_set1_epi32(0x01400140));
    const __m256i groups = _mm256_madd_epi16(twelveBits, _mm256_set1_epi32(0x00011000));
    const __m256i bytes =
        _mm256_shuffle_epi8(groups, BothHalves(_mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1)));
    return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
}

}  // namespace

bool HasAvx2() {
    return __builtin_cpu_supports("avx2") != 0;
}

TN_AVX2 std::size_t EncodeBase64Avx2(const unsigned char* pData, std::size_t nLength, char* pText) {
    const char* pStart = pText;
    // The two loads of sixteen bytes reach four bytes beyond the step.
    for (; nLength >= kBytes + 4; nLength -= kBytes, pData += kBytes, pText += kChars) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pData));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pData + kBytes / 2));
        const __m256i bytes = _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pText), NumbersToChars(SplitIntoSixBits(bytes)));
    }
    return static_cast<std::size_t>(pText - pStart) + EncodeBase64(pData, nLength, pText);
}

TN_AVX2 std::size_t DecodeBase64Avx2(const char* pText, std::size_t nGroups, unsigned char* pData) {
    const unsigned char* pStart = pData;
    for (; nGroups >= kChars / 4; nGroups -= kChars / 4, pText += kChars, pData += kBytes) {
        const __m256i chars = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pText));
        const auto nPadding = static_cast<unsigned int>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(chars, All('='))));
        if ((nPadding & kThirdAndFourthPlace) != 0) {
            break;
        }
        const __m256i bytes = JoinSixBits(CharsToNumbers(chars));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(pData), _mm256_castsi256_si128(bytes));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(pData + 16), _mm256_extracti128_si256(bytes, 1));
    }
    return static_cast<std::size_t>(pData - pStart) + DecodeBase64(pText, nGroups, pData);
}

}  // namespace tnrobot

#else

namespace tnrobot {

bool HasAvx2() {
    return false;
}

std::size_t EncodeBase64Avx2(const unsigned char* pData, std::size_t nLength, char* pText) {
    return EncodeBase64(pData, nLength, pText);
}

std::size_t DecodeBase64Avx2(const char* pText, std::size_t nGroups, unsigned char* pData) {
    return DecodeBase64(pText, nGroups, pData);
}

}  // namespace tnrobot

#endif
