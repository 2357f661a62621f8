// Byte sequences of saved forms, written the way a reader of the format would write them down.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_BYTES_BYTES_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_BYTES_BYTES_H_

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace tntest {

using Bytes = std::vector<unsigned char>;

/// "01 0A00" -> { 0x01, 0x0A, 0x00 }; spaces are for the eye only.
inline Bytes FromHex(const std::string& strHex) {
    Bytes bytes;
    std::string strDigits;
    for (char ch : strHex) {
        if (std::isxdigit(static_cast<unsigned char>(ch)) != 0) {
            strDigits += ch;
        }
    }
    for (std::size_t i = 0; i + 1 < strDigits.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoi(strDigits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

inline Bytes FromText(const std::string& strText) {
    return Bytes(strText.begin(), strText.end());
}

inline Bytes& operator+=(Bytes& left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline Bytes operator+(Bytes left, const Bytes& right) {
    left += right;
    return left;
}

/// The in-memory bytes of a number, which is how every number is saved.
template <typename T>
Bytes BytesOf(T value) {
    Bytes bytes(sizeof(T));
    std::memcpy(bytes.data(), &value, sizeof(T));
    return bytes;
}

inline Bytes U8(unsigned int nValue) {
    return BytesOf(static_cast<std::uint8_t>(nValue));
}
inline Bytes U16(unsigned int nValue) {
    return BytesOf(static_cast<std::uint16_t>(nValue));
}
inline Bytes U32(std::uint32_t nValue) {
    return BytesOf(nValue);
}
inline Bytes U64(std::uint64_t nValue) {
    return BytesOf(nValue);
}

/// A text as the archive saves it: count with the terminating zero, characters, zero.
inline Bytes SavedString(const std::string& strText) {
    if (strText.empty()) {
        return U32(0);
    }
    return U32(static_cast<std::uint32_t>(strText.size() + 1)) + FromText(strText) + U8(0);
}

/// A value as it is saved: version, type, byte count, bytes.
inline Bytes SavedValue(int nType, const Bytes& bytes) {
    return U8(1) + U32(static_cast<std::uint32_t>(nType)) + U32(static_cast<std::uint32_t>(bytes.size())) + bytes;
}

/// The start of an object record; the object's own bytes follow when it is new.
inline Bytes ObjectRecord(bool bNew, unsigned int nIndex) {
    return U8(1) + U8(bNew ? 1 : 0) + U16(nIndex);
}

/// One entry of the object table in a map header.
struct SavedObject {
    std::uint64_t nIdentity;
    unsigned int nClass;
};

/// A map header: class identifiers without terminator, then the objects.
inline Bytes SavedMapHeader(const std::vector<std::string>& classes, const std::vector<SavedObject>& objects) {
    Bytes bytes = U16(static_cast<unsigned int>(classes.size()));
    for (const std::string& strGuid : classes) {
        bytes += U32(static_cast<std::uint32_t>(strGuid.size())) + FromText(strGuid);
    }
    bytes += U16(static_cast<unsigned int>(objects.size()));
    for (const SavedObject& object : objects) {
        bytes += U64(object.nIdentity) + U16(object.nClass);
    }
    return bytes;
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_BYTES_BYTES_H_
