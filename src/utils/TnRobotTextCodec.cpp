// Base64 for callers: chooses the form for this processor and checks the arguments.

#include <cstring>

#include "TnRobotKernel/utilities.h"
#include "utils/TnBase64.h"

namespace {

constexpr std::size_t kPieceChars = 8192;  // a multiple of four

}  // namespace

int TnRobotTextCodec::Base64Encode(const unsigned char* pData, int nLength, char* lpszText) {
    if (pData == nullptr || lpszText == nullptr || nLength < 1) {
        return 0;
    }
    const auto nBytes = static_cast<std::size_t>(nLength);
    const auto encode = tnrobot::HasAvx2() ? tnrobot::EncodeBase64Avx2 : tnrobot::EncodeBase64;
    return static_cast<int>(encode(pData, nBytes, lpszText));
}

// Nobody says how long the text is. Measuring it as a whole and then decoding it would read it twice from
// memory; 8,192 characters at a time are still in the processor's cache when they are decoded. The loop ends
// after a piece that is not full (the text ends there), or of which fewer than three bytes for each group
// were written (it has met the padding).
int TnRobotTextCodec::Base64Decode(const char* lpszText, unsigned char* pData) {
    if (lpszText == nullptr || pData == nullptr) {
        return 0;
    }
    const auto decode = tnrobot::HasAvx2() ? tnrobot::DecodeBase64Avx2 : tnrobot::DecodeBase64;
    std::size_t nTotal = 0;
    std::size_t nWritten = 0;
    std::size_t nGroups = 0;
    do {
        nGroups = strnlen(lpszText, kPieceChars) / 4;
        nWritten = decode(lpszText, nGroups, pData + nTotal);
        nTotal += nWritten;
        lpszText += kPieceChars;
    } while (nGroups == kPieceChars / 4 && nWritten == nGroups * 3);
    return static_cast<int>(nTotal);
}
