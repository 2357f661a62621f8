// The portable form: tables turn twelve bits into two characters, and the four characters of a group into
// three bytes.

#include "utils/TnBase64.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace tnrobot {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Encoding looks up two characters at a time.
struct CharPair {
    char m_sz[2];
};

constexpr std::array<CharPair, 4096> MakePairs() {
    std::array<CharPair, 4096> pairs = {};
    for (unsigned int i = 0; i < pairs.size(); ++i) {
        pairs[i] = CharPair{{kAlphabet[i / 64], kAlphabet[i % 64]}};
    }
    return pairs;
}

constexpr std::array<CharPair, 4096> kPairs = MakePairs();

// What a character adds to the three bytes of its group, first byte lowest, for each of its four
// places. The bit above the bytes says that the text ends there.
constexpr std::uint32_t kStop = 0x01000000;

struct GroupTables {
    std::uint32_t m_place[4][256];
};

constexpr void EnterChar(GroupTables& tables, unsigned int ch, std::uint32_t n) {
    tables.m_place[0][ch] = n << 2;
    tables.m_place[1][ch] = n >> 4 | (n & 15) << 12;
    tables.m_place[2][ch] = (n >> 2) << 8 | (n & 3) << 22;
    tables.m_place[3][ch] = n << 16;
}

constexpr unsigned char kPadding = '=';

constexpr GroupTables MakeGroupTables() {
    GroupTables tables = {};
    for (unsigned int ch = 0; ch < 256; ++ch) {
        EnterChar(tables, ch, 63);  // a character that the alphabet does not have
    }
    for (unsigned int i = 0; i < 64; ++i) {
        EnterChar(tables, static_cast<unsigned char>(kAlphabet[i]), i);
    }
    tables.m_place[2][kPadding] |= kStop;
    tables.m_place[3][kPadding] |= kStop;
    return tables;
}

constexpr GroupTables kGroupTables = MakeGroupTables();

std::uint32_t Group(const unsigned char* p) {
    const auto& place = kGroupTables.m_place;
    const std::uint32_t n = p[0] | static_cast<std::uint32_t>(p[1]) << 8;  // one load: they are what takes time
    return place[0][n & 255] | place[1][n >> 8] | place[2][p[2]] | place[3][p[3]];
}

// One store of four bytes. The fourth is zero; whoever calls this overwrites it with the first one
// of the next group.
void StoreFourBytes(unsigned char* pData, std::uint32_t nGroup) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the lowest byte comes first");
    std::memcpy(pData, &nGroup, 4);
}

// Decodes group by group and writes exactly the bytes that count.
std::size_t DecodeRest(const unsigned char* pText, std::size_t nGroups, unsigned char* pData) {
    const unsigned char* pStart = pData;
    for (; nGroups > 0; --nGroups, pText += 4) {
        const std::uint32_t nGroup = Group(pText);
        *pData++ = static_cast<unsigned char>(nGroup);
        if (pText[2] == '=') {
            break;
        }
        *pData++ = static_cast<unsigned char>(nGroup >> 8);
        if (pText[3] == '=') {
            break;
        }
        *pData++ = static_cast<unsigned char>(nGroup >> 16);
    }
    return static_cast<std::size_t>(pData - pStart);
}

// Compilers turn this into one load and one swap of bytes.
std::uint64_t LoadBigEndian(const unsigned char* p) {
    const auto byte = [p](int nIndex) { return std::uint64_t{p[nIndex]} << (56 - 8 * nIndex); };
    return byte(0) | byte(1) | byte(2) | byte(3) | byte(4) | byte(5) | byte(6) | byte(7);
}

void StorePair(char* pText, std::uint64_t nBits) {
    std::memcpy(pText, kPairs[nBits & 4095].m_sz, 2);
}

// Encodes one to three bytes.
void EncodeGroup(const unsigned char* pData, std::size_t nBytes, char* pText) {
    const unsigned int n = static_cast<unsigned int>(pData[0]) << 16 |
                           static_cast<unsigned int>(nBytes > 1 ? pData[1] : 0) << 8 |
                           static_cast<unsigned int>(nBytes > 2 ? pData[2] : 0);
    StorePair(pText, n >> 12);
    StorePair(pText + 2, n);
    if (nBytes < 3) {
        pText[3] = '=';
    }
    if (nBytes < 2) {
        pText[2] = '=';
    }
}

}  // namespace

std::size_t EncodeBase64(const unsigned char* pData, std::size_t nLength, char* pText) {
    const char* pStart = pText;
    // Loads eight bytes and encodes the first six.
    for (; nLength >= 8; nLength -= 6, pData += 6, pText += 8) {
        const std::uint64_t n = LoadBigEndian(pData);
        StorePair(pText, n >> 52);
        StorePair(pText + 2, n >> 40);
        StorePair(pText + 4, n >> 28);
        StorePair(pText + 6, n >> 16);
    }
    while (nLength > 0) {
        const std::size_t nBytes = nLength < 3 ? nLength : 3;
        EncodeGroup(pData, nBytes, pText);
        nLength -= nBytes;
        pData += nBytes;
        pText += 4;
    }
    return static_cast<std::size_t>(pText - pStart);
}

std::size_t DecodeBase64(const char* pText, std::size_t nGroups, unsigned char* pData) {
    const auto* p = reinterpret_cast<const unsigned char*>(pText);
    const unsigned char* pStart = pData;
    // Four groups at a time, as long as a further one follows: its first byte is written in any
    // case, over the byte that the fourth group writes too much.
    for (; nGroups > 4; nGroups -= 4, p += 16, pData += 12) {
        const std::uint32_t n0 = Group(p);
        const std::uint32_t n1 = Group(p + 4);
        const std::uint32_t n2 = Group(p + 8);
        const std::uint32_t n3 = Group(p + 12);
        if (((n0 | n1 | n2 | n3) & kStop) != 0) {
            break;
        }
        StoreFourBytes(pData, n0);
        StoreFourBytes(pData + 3, n1);
        StoreFourBytes(pData + 6, n2);
        StoreFourBytes(pData + 9, n3);
    }
    return static_cast<std::size_t>(pData - pStart) + DecodeRest(p, nGroups, pData);
}

}  // namespace tnrobot
