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

// Keeps a constant of a loop in its register: the compiler would make it anew in each round.
TN_AVX2 inline __m256i Keep(__m256i constant) {
    __asm__("" : "+x"(constant));
    return constant;
}

TN_AVX2 inline __m256i All(char n) {
    return Keep(_mm256_set1_epi8(n));
}

TN_AVX2 inline __m256i AllInts(int n) {
    return Keep(_mm256_set1_epi32(n));
}

// The pattern in both halves, in which bytes are looked up apart.
TN_AVX2 inline __m256i BothHalves(__m128i pattern) {
    return Keep(_mm256_broadcastsi128_si256(pattern));
}

/// Encodes 24 bytes, twelve in the lower part of each half.
struct Encoder {
    TN_AVX2 Encoder() {}  // NOLINT(modernize-use-equals-default): that one could not have the attribute
    __m256i Encode(__m256i bytes) const;

    // Each 32-bit lane gets the bytes 1, 0, 2, 1 of its group, so that each of its four numbers of
    // six bits lies within one of its 16-bit halves; multiplying shifts the numbers to their places.
    const __m256i m_spread = BothHalves(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    const __m256i m_firstAndThird = AllInts(0x0FC0FC00);
    const __m256i m_shiftDown = AllInts(0x04000040);
    const __m256i m_secondAndFourth = AllInts(0x003F03F0);
    const __m256i m_shiftUp = AllInts(0x01000010);
    // The alphabet's ranges: lower-case letters, ten digits, plus, slash, and upper-case letters. In
    // each the distance from a number to its character is the same.
    const __m256i m_lastLetter = All(51);
    const __m256i m_firstLower = All(26);
    const __m256i m_upperRange = All(13);
    const __m256i m_distances =
        BothHalves(_mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                 '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
};

TN_AVX2 inline __m256i Encoder::Encode(__m256i bytes) const {
    const __m256i spread = _mm256_shuffle_epi8(bytes, m_spread);
    const __m256i numbers = _mm256_or_si256(_mm256_mulhi_epu16(_mm256_and_si256(spread, m_firstAndThird), m_shiftDown),
                                            _mm256_mullo_epi16(_mm256_and_si256(spread, m_secondAndFourth), m_shiftUp));
    // Which range a number is in, as the index of its distance: subtracting 51 and stopping at zero gives 0 for
    // all letters, 1 to 10 for digits, 11 for plus and 12 for slash. Upper-case letters, those below 26, are
    // then told apart by 13.
    const __m256i range = _mm256_or_si256(_mm256_subs_epu8(numbers, m_lastLetter),
                                          _mm256_and_si256(_mm256_cmpgt_epi8(m_firstLower, numbers), m_upperRange));
    return _mm256_add_epi8(numbers, _mm256_shuffle_epi8(m_distances, range));
}

/// Decodes 32 characters.
struct Decoder {
    TN_AVX2 Decoder() {}  // NOLINT(modernize-use-equals-default)
    bool HasPadding(__m256i chars) const;
    __m256i Decode(__m256i chars) const;

    const __m256i m_padding = All('=');
    // The alphabet in the table of ASCII has rows of sixteen characters, which the upper half of a
    // character numbers: "+" in row 2, digits in row 3, upper-case letters in rows 4 and 5,
    // lower-case ones in rows 6 and 7. In each row the distance from a character to its number is
    // the same. What is in none of them, "/" included, counts as 63.
    const __m256i m_lowerHalf = All(15);
    const __m256i m_distances =
        BothHalves(_mm_setr_epi8(0, 0, 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0));
    // One bit for each row: by the row, and by the column all rows that have a character there.
    const __m256i m_rowBits = BothHalves(_mm_setr_epi8(0, 0, 1, 2, 4, 8, 16, 32, 0, 0, 0, 0, 0, 0, 0, 0));
    const __m256i m_rowsOfColumns =
        BothHalves(_mm_setr_epi8(42, 62, 62, 62, 62, 62, 62, 62, 62, 62, 60, 21, 20, 20, 20, 20));
    const __m256i m_zero = Keep(_mm256_setzero_si256());
    const __m256i m_63 = All(63);
    // Numbers of six bits join to twelve, to 24, and then the bytes and the lanes without a gap are
    // put in their order.
    const __m256i m_joinTwo = AllInts(0x01400140);
    const __m256i m_joinFour = AllInts(0x00011000);
    const __m256i m_byteOrder = BothHalves(_mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    const __m256i m_laneOrder = Keep(_mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
};

TN_AVX2 inline bool Decoder::HasPadding(__m256i chars) const {
    const int nPlaces = _mm256_movemask_epi8(_mm256_cmpeq_epi8(chars, m_padding));
    return (static_cast<unsigned int>(nPlaces) & kThirdAndFourthPlace) != 0;
}

// The bytes are the first 24 of the result.
TN_AVX2 inline __m256i Decoder::Decode(__m256i chars) const {
    const __m256i row = _mm256_and_si256(_mm256_srli_epi16(chars, 4), m_lowerHalf);
    // Looking up a character above 127 gives zero, and so it has no row.
    const __m256i rowsOfColumn = _mm256_shuffle_epi8(m_rowsOfColumns, chars);
    const __m256i isStranger =
        _mm256_cmpeq_epi8(_mm256_and_si256(_mm256_shuffle_epi8(m_rowBits, row), rowsOfColumn), m_zero);
    const __m256i moved = _mm256_add_epi8(chars, _mm256_shuffle_epi8(m_distances, row));
    const __m256i numbers = _mm256_min_epu8(_mm256_or_si256(moved, isStranger), m_63);
    const __m256i groups = _mm256_madd_epi16(_mm256_maddubs_epi16(numbers, m_joinTwo), m_joinFour);
    return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(groups, m_byteOrder), m_laneOrder);
}

}  // namespace

bool HasAvx2() {
    return __builtin_cpu_supports("avx2") != 0;
}

TN_AVX2 std::size_t EncodeBase64Avx2(const unsigned char* pData, std::size_t nLength, char* pText) {
    const char* pStart = pText;
    const Encoder encoder;
    // The two loads of sixteen bytes reach four bytes beyond the step.
    for (; nLength >= kBytes + 4; nLength -= kBytes, pData += kBytes, pText += kChars) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pData));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pData + kBytes / 2));
        const __m256i bytes = _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pText), encoder.Encode(bytes));
    }
    return static_cast<std::size_t>(pText - pStart) + EncodeBase64(pData, nLength, pText);
}

TN_AVX2 std::size_t DecodeBase64Avx2(const char* pText, std::size_t nGroups, unsigned char* pData) {
    const unsigned char* pStart = pData;
    const Decoder decoder;
    for (; nGroups >= kChars / 4; nGroups -= kChars / 4, pText += kChars, pData += kBytes) {
        const __m256i chars = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pText));
        if (decoder.HasPadding(chars)) {
            break;
        }
        const __m256i bytes = decoder.Decode(chars);
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
