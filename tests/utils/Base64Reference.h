// Base64 written down a second time, as plainly as possible, to compare the real one with.

#ifndef TNROBOTKERNEL_TESTS_UTILS_BASE64REFERENCE_H_
#define TNROBOTKERNEL_TESTS_UTILS_BASE64REFERENCE_H_

#include <random>
#include <string>
#include <vector>

namespace base64_reference {

using Bytes = std::vector<unsigned char>;

inline const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Bit by bit: six bits give a character, "=" fills the last group.
inline std::string Encode(const Bytes& bytes) {
    std::string text;
    unsigned int nNumber = 0;
    int nBits = 0;
    for (const unsigned char by : bytes) {
        for (int nBit = 7; nBit >= 0; --nBit) {
            nNumber = nNumber * 2 + (by >> nBit & 1U);
            if (++nBits == 6) {
                text += kAlphabet[nNumber];
                nNumber = 0;
                nBits = 0;
            }
        }
    }
    if (nBits > 0) {
        text += kAlphabet[nNumber << (6 - nBits)];
    }
    while (text.size() % 4 != 0) {
        text += '=';
    }
    return text;
}

// A character's value is found by searching the alphabet; one that is not there counts as 255.
inline unsigned int Value(char ch) {
    const std::size_t nPlace = kAlphabet.find(ch);
    return nPlace != std::string::npos ? static_cast<unsigned int>(nPlace) : 255U;
}

// Whole groups only.
inline Bytes Decode(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i + 4 <= text.size(); i += 4) {
        const unsigned int c1 = Value(text[i]);
        const unsigned int c2 = Value(text[i + 1]);
        const unsigned int c3 = Value(text[i + 2]);
        const unsigned int c4 = Value(text[i + 3]);
        bytes.push_back(static_cast<unsigned char>(c1 << 2 | (c2 >> 4 & 3U)));
        if (text[i + 2] == '=') {
            break;
        }
        bytes.push_back(static_cast<unsigned char>(c2 << 4 | (c3 >> 2 & 15U)));
        if (text[i + 3] == '=') {
            break;
        }
        bytes.push_back(static_cast<unsigned char>(c3 << 6 | (c4 & 63U)));
    }
    return bytes;
}

inline Bytes RandomBytes(std::size_t nLength, std::mt19937& random) {
    Bytes bytes(nLength);
    for (unsigned char& by : bytes) {
        by = static_cast<unsigned char>(random());
    }
    return bytes;
}

/// How a random text is made up.
enum class TextKind { kOfAlphabet, kAnyCharacter, kFewStrangers, kMuchPadding, kCount };

inline char RandomChar(TextKind eKind, std::mt19937& random) {
    const auto anyChar = static_cast<char>(random() % 255 + 1);
    const char chOfAlphabet = kAlphabet[random() % 64];
    switch (eKind) {
        case TextKind::kAnyCharacter:
            return anyChar;
        case TextKind::kFewStrangers:
            return random() % 40 == 0 ? anyChar : chOfAlphabet;
        case TextKind::kMuchPadding:
            return random() % 60 == 0 ? '=' : chOfAlphabet;
        default:
            return chOfAlphabet;
    }
}

inline std::string RandomText(std::size_t nLength, TextKind eKind, std::mt19937& random) {
    std::string text(nLength, ' ');
    for (char& ch : text) {
        ch = RandomChar(eKind, random);
    }
    return text;
}

}  // namespace base64_reference

#endif  // TNROBOTKERNEL_TESTS_UTILS_BASE64REFERENCE_H_
