// Encodes bytes as Base64 and decodes them again, and decodes an untrusted text.

#include <TnRobotKernel/TnRobotKernel.h>

#include "FuzzBudget.h"
#include "FuzzInput.h"
#include "utils/Base64Reference.h"

using namespace tnfuzz;

namespace {

// Exactly the room that is asked for, so that one byte too many is noticed.
Bytes Decode(const std::string& strText) {
    Bytes bytes(strText.size() / 4 * 3);
    const int nDecoded = TnRobotTextCodec::Base64Decode(strText.c_str(), bytes.data());
    Require(nDecoded >= 0 && static_cast<std::size_t>(nDecoded) <= bytes.size(), "three bytes for a group at most");
    bytes.resize(static_cast<std::size_t>(nDecoded));
    return bytes;
}

std::string Encode(const Bytes& bytes) {
    std::string strText((bytes.size() + 2) / 3 * 4, '?');
    const int nWritten = TnRobotTextCodec::Base64Encode(bytes.data(), static_cast<int>(bytes.size()), strText.data());
    Require(static_cast<std::size_t>(nWritten) == strText.size(), "four characters for three bytes or part of them");
    return strText;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    const Bytes bytes(pData, pData + nSize);
    const std::string strEncoded = Encode(bytes);
    Require(strEncoded == base64_reference::Encode(bytes), "bytes are encoded as by a plain encoder");
    Require(Decode(strEncoded) == bytes, "and decoded to the same bytes");

    const std::string strText(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
    const Bytes decoded = Decode(strText);
    Require(decoded == base64_reference::Decode(strText), "any text is decoded as by a plain decoder");
    Require(Decode(Encode(decoded)) == decoded, "and what it gives can be encoded");
    return 0;
}
