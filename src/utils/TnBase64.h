// The two equal implementations of Base64: one for any processor, one for those with AVX2. On arm64
// the first one runs: a third would have to be measured on such a machine, and has not been.

#ifndef TNROBOTKERNEL_SRC_UTILS_TNBASE64_H_
#define TNROBOTKERNEL_SRC_UTILS_TNBASE64_H_

#include <cstddef>

namespace tnrobot {

/// Encodes bytes. @param[out] pText  room for four characters for every three bytes or part of
/// them. @return characters written.
std::size_t EncodeBase64(const unsigned char* pData, std::size_t nLength, char* pText);

/// Decodes groups of four characters, up to a "=" in third or fourth place of one. A character
/// outside the alphabet has all bits set.
/// @param[out] pData  room for three bytes for each group; only the bytes counted are written.
/// @return bytes written.
std::size_t DecodeBase64(const char* pText, std::size_t nGroups, unsigned char* pData);

/// @return whether the processor has what the following functions need.
bool HasAvx2();

/// As EncodeBase64.
std::size_t EncodeBase64Avx2(const unsigned char* pData, std::size_t nLength, char* pText);

/// As DecodeBase64.
std::size_t DecodeBase64Avx2(const char* pText, std::size_t nGroups, unsigned char* pData);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_UTILS_TNBASE64_H_
