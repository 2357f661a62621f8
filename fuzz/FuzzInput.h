// What fuzz targets share: an input that is taken apart piece by piece, and checks that end the
// process, so that the fuzzer keeps the input.

#ifndef TNROBOTKERNEL_FUZZ_FUZZINPUT_H_
#define TNROBOTKERNEL_FUZZ_FUZZINPUT_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/bytes/Bytes.h"

namespace tnfuzz {

using tntest::Bytes;

/// Ends the process when a result is wrong.
inline void Require(bool bOk, const char* lpszClaim) {
    if (!bOk) {
        std::fprintf(stderr, "does not hold: %s\n", lpszClaim);
        std::abort();
    }
}

/// Reads every byte, so that a sanitizer notices a pointer outside memory.
inline unsigned int Touch(const void* pData, std::size_t nSize) {
    unsigned int nSum = 0;
    const auto* pBytes = static_cast<const volatile unsigned char*>(pData);
    for (std::size_t i = 0; pBytes != nullptr && i < nSize; ++i) {
        nSum += pBytes[i];
    }
    return nSum;
}

/// One input, read from its start. Where it has ended everything reads as zero or empty.
class FuzzInput {
public:
    FuzzInput(const std::uint8_t* pData, std::size_t nSize) : m_pData(pData), m_nLeft(nSize) {}

    std::size_t Left() const { return m_nLeft; }

    template <typename T>
    T Number() {
        T value{};
        const std::size_t nBytes = std::min(sizeof(T), m_nLeft);
        if (nBytes != 0) {
            std::memcpy(&value, m_pData, nBytes);
            Skip(nBytes);
        }
        return value;
    }

    /// @return a number below nLimit, from one byte.
    unsigned int Below(unsigned int nLimit) { return Number<std::uint8_t>() % nLimit; }

    /// @return the next nCount bytes, or as many as there are.
    Bytes Take(std::size_t nCount) {
        const std::size_t nBytes = std::min(nCount, m_nLeft);
        Bytes bytes(m_pData, m_pData + nBytes);
        Skip(nBytes);
        return bytes;
    }

    Bytes Rest() { return Take(m_nLeft); }

    /// @return the next nCount bytes up to the first zero among them.
    std::string Text(std::size_t nCount) {
        const Bytes bytes = Take(nCount);
        return {bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)};
    }

private:
    void Skip(std::size_t nBytes) {
        m_pData += nBytes;
        m_nLeft -= nBytes;
    }

    const std::uint8_t* m_pData;
    std::size_t m_nLeft;
};

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_FUZZINPUT_H_
