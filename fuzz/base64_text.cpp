// Decodes an untrusted text as Base64, and encodes the bytes again.

#include <TnRobotKernel/TnRobotKernel.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const std::string strText(reinterpret_cast<const char*>(pData), nSize);
    // Exactly the room that is asked for, so that one byte too many is noticed.
    std::vector<unsigned char> bytes(strText.size() / 4 * 3);
    const int nDecoded = TnRobotTextCodec::Base64Decode(strText.c_str(), bytes.data());
    std::vector<char> encoded((static_cast<std::size_t>(nDecoded) + 2) / 3 * 4);
    TnRobotTextCodec::Base64Encode(bytes.data(), nDecoded, encoded.data());
    return 0;
}
