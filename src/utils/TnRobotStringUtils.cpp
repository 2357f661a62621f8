// Texts: hex dumps, splitting, and the conversions that by contract only copy.

#include <array>
#include <cstring>
#include <iterator>

#include "TnRobotKernel/utilities.h"

namespace {

constexpr int kNoDigit = -1;
constexpr int kMaxDigits = 2;  // of a token

constexpr int HexDigit(char ch) {
    if (ch >= '0' && ch <= '9') {
        return ch - '0';
    }
    if (ch >= 'A' && ch <= 'F') {
        return ch - 'A' + 10;
    }
    return ch >= 'a' && ch <= 'f' ? ch - 'a' + 10 : kNoDigit;
}

// One byte's text with the blank that follows it, ready to be copied as a whole: the copy may be
// longer than the text, because the next one overwrites what is too much.
struct ByteText {
    char m_szText[4];
};
using ByteTexts = std::array<ByteText, 256>;

constexpr ByteTexts MakeHexTexts() {
    ByteTexts texts = {};
    for (unsigned int i = 0; i < 256; ++i) {
        constexpr char kDigits[] = "0123456789abcdef";
        texts[i] = ByteText{{kDigits[i / 16], kDigits[i % 16], ' ', ' '}};
    }
    return texts;
}

constexpr char DecDigit(unsigned int n) {
    return static_cast<char>('0' + n % 10);
}

constexpr ByteTexts MakeDecTexts() {
    ByteTexts texts = {};
    for (unsigned int i = 0; i < 256; ++i) {
        texts[i] = i < 100 ? ByteText{{DecDigit(i / 10), DecDigit(i), ' ', ' '}}
                           : ByteText{{DecDigit(i / 100), DecDigit(i / 10), DecDigit(i), ' '}};
    }
    return texts;
}

constexpr ByteTexts kHexTexts = MakeHexTexts();
constexpr ByteTexts kDecTexts = MakeDecTexts();

constexpr std::size_t DecWidth(unsigned char by) {
    return by < 100 ? 2 : 3;
}

}  // namespace

int TnRobotStringUtils::String2Hex(const char* lpszText, unsigned char* pBytes) {
    if (lpszText == nullptr) {
        return -1;
    }
    std::size_t nBytes = 0;
    int nDigits = 0;
    int nValue = 0;
    const auto store = [&] {
        if (pBytes != nullptr) {
            pBytes[nBytes] = static_cast<unsigned char>(nValue);
        }
        ++nBytes;
        nDigits = 0;
        nValue = 0;
    };
    for (; *lpszText != '\0'; ++lpszText) {
        if (*lpszText == ' ') {
            if (nDigits > 0) {
                store();
            }
            continue;
        }
        const int nDigit = HexDigit(*lpszText);
        if (nDigit == kNoDigit || nDigits == kMaxDigits) {
            return -1;
        }
        nValue = nValue * 16 + nDigit;
        ++nDigits;
    }
    if (nDigits > 0) {
        store();
    }
    return static_cast<int>(nBytes);
}

std::string TnRobotStringUtils::Hex2String(const unsigned char* pData, unsigned int nLength) {
    if (pData == nullptr || nLength == 0) {
        return {};
    }
    const std::size_t nLast = nLength - 1;
    std::string text(nLast * 3 + 2, ' ');
    char* pText = text.data();
    for (std::size_t i = 0; i < nLast; ++i, pText += 3) {
        std::memcpy(pText, kHexTexts[pData[i]].m_szText, 4);
    }
    std::memcpy(pText, kHexTexts[pData[nLast]].m_szText, 2);
    return text;
}

std::string TnRobotStringUtils::Dec2String(const unsigned char* pData, unsigned int nLength) {
    if (pData == nullptr || nLength == 0) {
        return {};
    }
    const std::size_t nLast = nLength - 1;
    std::string text(std::size_t{nLength} * 4, ' ');  // at most
    char* pText = text.data();
    for (std::size_t i = 0; i < nLast; ++i) {
        std::memcpy(pText, kDecTexts[pData[i]].m_szText, 4);
        pText += DecWidth(pData[i]) + 1;
    }
    std::memcpy(pText, kDecTexts[pData[nLast]].m_szText, 4);
    text.resize(static_cast<std::size_t>(pText - text.data()) + DecWidth(pData[nLast]));
    return text;
}

std::string TnRobotStringUtils::GbkToUtf8(const char* lpszText) {
    return {lpszText};
}

std::string TnRobotStringUtils::UtfToGbk(const char* lpszText) {
    return {lpszText};
}

std::string TnRobotStringUtils::WStringToString(const wchar_t* /*lpszText*/) {
    return {};
}

// The new parts are put together apart from the others: the text may belong to one of them, and
// would move when parts grows.
int TnRobotStringUtils::SplitString(const char* lpszText, char chSeparator, std::vector<std::string>& parts) {
    if (lpszText == nullptr) {
        return -1;
    }
    std::vector<std::string> newParts;
    const char* pEnd = lpszText + std::strlen(lpszText);
    while (lpszText != pEnd) {
        const auto nRest = static_cast<std::size_t>(pEnd - lpszText);
        const auto* pSeparator = static_cast<const char*>(std::memchr(lpszText, chSeparator, nRest));
        const char* pPartEnd = pSeparator != nullptr ? pSeparator : pEnd;
        if (pPartEnd != lpszText) {
            newParts.emplace_back(lpszText, pPartEnd);
        }
        lpszText = pSeparator != nullptr ? pSeparator + 1 : pEnd;
    }
    parts.insert(parts.end(), std::make_move_iterator(newParts.begin()), std::make_move_iterator(newParts.end()));
    return static_cast<int>(parts.size());
}
