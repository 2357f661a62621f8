// Dumps bytes as hexadecimal and decimal text, parses such text, and splits text.

#include <TnRobotKernel/TnRobotKernel.h>

#include <vector>

#include "FuzzBudget.h"
#include "FuzzInput.h"

using namespace tnfuzz;

namespace {

std::string Printed(const Bytes& bytes, const char* lpszFormat) {
    std::string strText;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        char szByte[8] = {};
        std::snprintf(szByte, sizeof(szByte), lpszFormat, bytes[i]);
        strText += (i == 0 ? "" : " ");
        strText += szByte;
    }
    return strText;
}

void CheckDumps(const Bytes& bytes) {
    const auto nCount = static_cast<unsigned int>(bytes.size());
    const std::string strHex = TnRobotStringUtils::Hex2String(bytes.data(), nCount);
    Require(strHex == Printed(bytes, "%02x"), "hexadecimal text is what printf makes");
    Require(TnRobotStringUtils::Dec2String(bytes.data(), nCount) == Printed(bytes, "%02d"), "and so is decimal text");
    Bytes parsed(bytes.size());
    Require(
        TnRobotStringUtils::String2Hex(strHex.c_str(), parsed.data()) == static_cast<int>(nCount) && parsed == bytes,
        "hexadecimal text gives the bytes again");
}

// @return the tokens as long as they are well formed, and whether all are.
bool ParseTokens(const std::string& strText, Bytes& bytes) {
    std::string strToken;
    for (const char ch : strText + " ") {
        if (ch == ' ' && !strToken.empty()) {
            bytes.push_back(static_cast<unsigned char>(std::stoi(strToken, nullptr, 16)));
            strToken.clear();
        } else if (ch != ' ') {
            if (std::strchr("0123456789abcdefABCDEF", ch) == nullptr || strToken.size() == 2) {
                return false;
            }
            strToken += ch;
        }
    }
    return true;
}

void CheckParsing(const std::string& strText) {
    Bytes expected;
    const bool bOk = ParseTokens(strText, expected);
    const int nResult = bOk ? static_cast<int>(expected.size()) : -1;
    Require(TnRobotStringUtils::String2Hex(strText.c_str(), nullptr) == nResult, "tokens are counted");
    Bytes bytes(expected.size());
    Require(TnRobotStringUtils::String2Hex(strText.c_str(), bytes.data()) == nResult && bytes == expected,
            "and stored, as far as they are well formed");
}

void CheckSplitting(const std::string& strText, char chSeparator) {
    std::vector<std::string> parts = {"already there"};
    const int nResult = TnRobotStringUtils::SplitString(strText.c_str(), chSeparator, parts);
    Require(nResult == static_cast<int>(parts.size()) && parts[0] == "already there", "parts are appended");
    std::vector<std::string> expected = {parts[0]};
    std::string strPart;
    for (const char ch : strText + chSeparator) {
        if (ch != chSeparator) {
            strPart += ch;
        } else if (!strPart.empty()) {
            expected.push_back(strPart);
            strPart.clear();
        }
    }
    Require(parts == expected, "empty parts are dropped and no other");

    // What was split can be joined and split again.
    std::string strJoined;
    for (std::size_t i = 1; i < parts.size(); ++i) {
        strJoined += parts[i] + chSeparator;
    }
    std::vector<std::string> again = {parts[0]};
    TnRobotStringUtils::SplitString(strJoined.c_str(), chSeparator, again);
    Require(again == parts || chSeparator == '\0', "joining undoes splitting");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    FuzzInput input(pData, nSize);
    const auto chSeparator = static_cast<char>(input.Number<std::uint8_t>());
    const Bytes bytes = input.Rest();
    const std::string strText(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
    CheckDumps(bytes);
    CheckParsing(strText);
    CheckSplitting(strText, chSeparator);
    Require(TnRobotStringUtils::GbkToUtf8(strText.c_str()) == strText, "character sets are not converted");
    Require(TnRobotStringUtils::UtfToGbk(strText.c_str()) == strText, "in either direction");
    return 0;
}
