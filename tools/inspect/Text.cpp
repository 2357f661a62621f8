#include "Text.h"

namespace {

std::uint32_t Byte(std::string_view text, std::size_t nAt) {
    return static_cast<unsigned char>(text[nAt]);
}

bool Continues(std::string_view text, std::size_t nAt) {
    return (Byte(text, nAt) & 0xC0U) == 0x80;
}

// @return the length that a first byte announces, 0 for a byte that begins no character.
std::size_t Length(std::uint32_t nFirst) {
    if (nFirst < 0x80) {
        return 1;
    }
    if (nFirst >= 0xC2 && nFirst < 0xE0) {
        return 2;
    }
    if (nFirst >= 0xE0 && nFirst < 0xF0) {
        return 3;
    }
    return nFirst >= 0xF0 && nFirst < 0xF5 ? 4 : 0;
}

// Overlong forms, surrogates and codes beyond Unicode are refused.
bool IsAllowed(std::uint32_t nCode, std::size_t nSize) {
    constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    return nCode >= kSmallest[nSize] && nCode <= 0x10FFFF && (nCode < 0xD800 || nCode > 0xDFFF);
}

bool IsBetween(std::uint32_t nCode, std::uint32_t nFirst, std::uint32_t nLast) {
    return nCode >= nFirst && nCode <= nLast;
}

bool IsControl(std::uint32_t nCode) {
    return nCode < 0x20 || IsBetween(nCode, 0x7F, 0x9F);
}

// Arabic letter mark; left-to-right and right-to-left marks; separators of lines and paragraphs,
// embeddings and overrides; isolates.
bool ChangesDirection(std::uint32_t nCode) {
    return nCode == 0x061C || IsBetween(nCode, 0x200E, 0x200F) || IsBetween(nCode, 0x2028, 0x202E) ||
           IsBetween(nCode, 0x2066, 0x2069);
}

std::string Escaped(std::string_view bytes) {
    if (bytes == "\n") {
        return "\\n";
    }
    if (bytes == "\t") {
        return "\\t";
    }
    constexpr char kDigits[] = "0123456789abcdef";
    std::string strText;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        strText += {'\\', 'x', kDigits[Byte(bytes, i) / 16], kDigits[Byte(bytes, i) % 16]};
    }
    return strText;
}

}  // namespace

Character FirstCharacter(std::string_view text) {
    const std::size_t nSize = Length(Byte(text, 0));
    if (nSize == 0 || nSize > text.size()) {
        return {kNoCharacter, 1};
    }
    if (nSize == 1) {
        return {Byte(text, 0), 1};
    }
    std::uint32_t nCode = Byte(text, 0) & (0xFFU >> (nSize + 1));
    for (std::size_t i = 1; i < nSize; ++i) {
        if (!Continues(text, i)) {
            return {kNoCharacter, 1};
        }
        nCode = nCode << 6U | (Byte(text, i) & 0x3FU);
    }
    return IsAllowed(nCode, nSize) ? Character{nCode, nSize} : Character{kNoCharacter, 1};
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const Character character = FirstCharacter(text);
        if (character.nCode == kNoCharacter) {
            return false;
        }
        text.remove_prefix(character.nSize);
    }
    return true;
}

bool Steers(std::uint32_t nCode) {
    return IsControl(nCode) || ChangesDirection(nCode);
}

std::string Printable(std::string_view text) {
    std::string strResult;
    while (!text.empty()) {
        const Character character = FirstCharacter(text);
        const std::string_view bytes = text.substr(0, character.nSize);
        if (character.nCode == kNoCharacter || Steers(character.nCode)) {
            strResult += Escaped(bytes);
        } else {
            strResult += bytes;
        }
        text.remove_prefix(character.nSize);
    }
    return strResult;
}

std::size_t WholeCharacters(std::string_view text, std::size_t nMost) {
    if (text.size() <= nMost) {
        return text.size();
    }
    constexpr std::size_t kMostContinuing = 3;
    for (std::size_t nBack = 0; nBack <= kMostContinuing && nBack < nMost; ++nBack) {
        if (!Continues(text, nMost - nBack)) {
            return nMost - nBack;
        }
    }
    return nMost;  // so many bytes in a row continue no character
}
