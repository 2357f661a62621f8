#include "TnLogText.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

namespace tnrobotlog {

namespace {

constexpr unsigned char kDelete = 0x7f;

bool IsWithin(std::uint32_t nValue, std::uint32_t nFirst, std::uint32_t nLast) {
    return nValue >= nFirst && nValue <= nLast;
}

unsigned char Byte(char ch) {
    return static_cast<unsigned char>(ch);
}

bool IsPlain(char ch) {
    return IsWithin(Byte(ch), ' ', kDelete - 1) || ch == '\t';
}

// What a character of several bytes begins with, by their number, and the first one that needs
// so many.
struct Form {
    unsigned char byLead;
    unsigned char byMask;
    std::uint32_t nFirst;
};
constexpr Form kForms[] = {{0xc0, 0xe0, 0x80}, {0xe0, 0xf0, 0x800}, {0xf0, 0xf8, 0x10000}};

// The number of the character and of its bytes; no bytes for what is no UTF-8 of several bytes.
// Forms longer than needed are none: a terminal might still take them for what they spell.
std::pair<std::uint32_t, std::size_t> Decode(std::string_view text) {
    for (std::size_t nMore = 1; nMore <= std::size(kForms) && nMore < text.size(); ++nMore) {
        const Form& form = kForms[nMore - 1];
        if ((Byte(text[0]) & form.byMask) != form.byLead) {
            continue;
        }
        std::uint32_t nCharacter = Byte(text[0]) & static_cast<unsigned char>(~form.byMask);
        for (std::size_t i = 1; i <= nMore; ++i) {
            if ((Byte(text[i]) & 0xc0U) != 0x80U) {
                return {0, 0};
            }
            nCharacter = nCharacter << 6U | (Byte(text[i]) & 0x3fU);
        }
        const bool bExists = nCharacter <= 0x10ffff && !IsWithin(nCharacter, 0xd800, 0xdfff);
        return {nCharacter, bExists && nCharacter >= form.nFirst ? nMore + 1 : 0};
    }
    return {0, 0};
}

// Controls, separators of lines and paragraphs, and what marks, embeds, overrides or isolates
// directions.
bool IsUnfit(std::uint32_t nCharacter) {
    return IsWithin(nCharacter, 0x80, 0x9f) || nCharacter == 0x61c || IsWithin(nCharacter, 0x200e, 0x200f) ||
           IsWithin(nCharacter, 0x2028, 0x202e) || IsWithin(nCharacter, 0x2066, 0x2069);
}

bool IsUnfitByte(char ch) {
    return !IsPlain(ch) && !IsWithin(Byte(ch), 0xa0, 0xff);
}

void AppendEscaped(std::string& strText, char ch) {
    constexpr char kDigits[] = "0123456789abcdef";
    if (ch == '\n') {
        strText += "\\n";
    } else if (ch == '\r') {
        strText += "\\r";
    } else {
        strText += "\\x";
        strText += kDigits[Byte(ch) / 16];
        strText += kDigits[Byte(ch) % 16];
    }
}

// @return the number of bytes that the first character of the text has.
std::size_t AppendFit(std::string& strLine, std::string_view text) {
    const auto [nCharacter, nLength] = Decode(text);
    const std::size_t nBytes = std::max<std::size_t>(nLength, 1);
    if (nLength == 0 ? !IsUnfitByte(text[0]) : !IsUnfit(nCharacter)) {
        strLine += text.substr(0, nBytes);
        return nBytes;
    }
    for (const char ch : text.substr(0, nBytes)) {
        AppendEscaped(strLine, ch);
    }
    return nBytes;
}

}  // namespace

std::string_view OneLine(const char* lpszText, std::string& strRoom) {
    std::string_view text = lpszText != nullptr ? lpszText : "";
    if (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    if (std::all_of(text.begin(), text.end(), IsPlain)) {
        return text;
    }
    strRoom.clear();
    while (!text.empty()) {
        text.remove_prefix(AppendFit(strRoom, text));
    }
    return strRoom;
}

}  // namespace tnrobotlog
