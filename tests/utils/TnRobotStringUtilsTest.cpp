#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "TnRobotKernel/utilities.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Parts = std::vector<std::string>;

constexpr unsigned char kUnwritten = 0xCC;

// One formatted print for each byte: what the dumps must equal.
std::string Dump(const Bytes& bytes, const char* lpszFormat) {
    std::string text;
    for (const unsigned char by : bytes) {
        char szByte[16] = {};
        std::snprintf(szByte, sizeof(szByte), lpszFormat, static_cast<unsigned int>(by));
        text += (text.empty() ? "" : " ") + std::string(szByte);
    }
    return text;
}

unsigned int Length(const Bytes& bytes) {
    return static_cast<unsigned int>(bytes.size());
}

Bytes RandomBytes(std::size_t nLength, unsigned int nSeed) {
    std::mt19937 random(nSeed);
    Bytes bytes(nLength);
    for (unsigned char& by : bytes) {
        by = static_cast<unsigned char>(random());
    }
    return bytes;
}

}  // namespace

TEST(String2Hex, ParsesOneOrTwoDigitsBetweenBlanks) {
    const struct {
        const char* lpszText;
        Bytes bytes;
    } cases[] = {
        {"0A 1b  f", {0x0A, 0x1B, 0x0F}},
        {"", {}},
        {" ", {}},
        {"     ", {}},
        {"0", {0}},
        {"00 0 f F", {0, 0, 15, 15}},
        {"  7f  ", {0x7F}},
        {"AB CD EF", {0xAB, 0xCD, 0xEF}},
        {"ab cd ef", {0xAB, 0xCD, 0xEF}},
        {"1 23 4", {0x01, 0x23, 0x04}},
        {"9 a", {9, 10}},
    };
    for (const auto& test : cases) {
        Bytes out(test.bytes.size() + 1, kUnwritten);
        Bytes expected = test.bytes;
        expected.push_back(kUnwritten);
        EXPECT_EQ(TnRobotStringUtils::String2Hex(test.lpszText, out.data()), static_cast<int>(test.bytes.size()))
            << test.lpszText;
        EXPECT_EQ(out, expected) << test.lpszText;
        EXPECT_EQ(TnRobotStringUtils::String2Hex(test.lpszText, nullptr), static_cast<int>(test.bytes.size()));
    }
}

TEST(String2Hex, RefusesThreeDigitsAndOtherCharactersAndKeepsWhatItParsed) {
    const struct {
        const char* lpszText;
        Bytes bytes;  // stored before the error
    } cases[] = {
        {"123", {}},
        {"000", {}},
        {"0G", {}},
        {"G", {}},
        {"1 2 345", {1, 2}},
        {"1 2 345 6", {1, 2}},
        {"ab,cd", {}},
        {"ab cd\tef", {0xAB}},
        {"ab cd\n", {0xAB}},
        {"0x12", {}},
        {"-1", {}},
        {"12 g", {0x12}},
        {"12 123456789", {0x12}},
    };
    for (const auto& test : cases) {
        Bytes out(16, kUnwritten);
        Bytes expected = test.bytes;
        expected.resize(out.size(), kUnwritten);
        EXPECT_EQ(TnRobotStringUtils::String2Hex(test.lpszText, out.data()), -1) << test.lpszText;
        EXPECT_EQ(out, expected) << test.lpszText;
        EXPECT_EQ(TnRobotStringUtils::String2Hex(test.lpszText, nullptr), -1) << test.lpszText;
    }
    EXPECT_EQ(TnRobotStringUtils::String2Hex(nullptr, nullptr), -1);
}

TEST(String2Hex, KnowsExactlyTheHexadecimalDigits) {
    const std::string strDigits = "0123456789ABCDEFabcdef";
    for (int ch = 1; ch < 256; ++ch) {
        const char szText[] = {static_cast<char>(ch), '\0'};
        unsigned char byValue = kUnwritten;
        const int nResult = TnRobotStringUtils::String2Hex(szText, &byValue);
        const std::size_t nPlace = strDigits.find(szText[0]);
        if (nPlace != std::string::npos) {
            EXPECT_EQ(nResult, 1) << ch;
            EXPECT_EQ(byValue, nPlace < 16 ? nPlace : nPlace - 6) << ch;
        } else {
            EXPECT_EQ(nResult, ch == ' ' ? 0 : -1) << ch;
            EXPECT_EQ(byValue, kUnwritten) << ch;
        }
    }
}

TEST(Dumps, HaveOneBlankBetweenBytesAndNoneAtTheEnd) {
    const unsigned char bytes[] = {0x01, 0xAB};
    EXPECT_EQ(TnRobotStringUtils::Hex2String(bytes, 2), "01 ab");
    EXPECT_EQ(TnRobotStringUtils::Hex2String(bytes, 1), "01");
    EXPECT_EQ(TnRobotStringUtils::Dec2String(bytes, 2), "01 171");
    const unsigned char by = 7;
    EXPECT_EQ(TnRobotStringUtils::Dec2String(&by, 1), "07");
    const unsigned char limits[] = {0, 9, 10, 99, 100, 255, 5};
    EXPECT_EQ(TnRobotStringUtils::Dec2String(limits, 7), "00 09 10 99 100 255 05");
}

TEST(Dumps, OfNothingAreEmpty) {
    const unsigned char by = 1;
    EXPECT_EQ(TnRobotStringUtils::Hex2String(&by, 0), "");
    EXPECT_EQ(TnRobotStringUtils::Dec2String(&by, 0), "");
    EXPECT_EQ(TnRobotStringUtils::Hex2String(nullptr, 0), "");
    EXPECT_EQ(TnRobotStringUtils::Dec2String(nullptr, 0), "");
    EXPECT_EQ(TnRobotStringUtils::Hex2String(nullptr, 5), "");
    EXPECT_EQ(TnRobotStringUtils::Dec2String(nullptr, 5), "");
}

TEST(Dumps, EqualOnePrintForEachByteAtEveryLength) {
    for (std::size_t nLength = 0; nLength < 200; ++nLength) {
        const Bytes bytes = RandomBytes(nLength, static_cast<unsigned int>(nLength));
        EXPECT_EQ(TnRobotStringUtils::Hex2String(bytes.data(), Length(bytes)), Dump(bytes, "%02x"));
        EXPECT_EQ(TnRobotStringUtils::Dec2String(bytes.data(), Length(bytes)), Dump(bytes, "%02d"));
    }
    Bytes all(256);
    for (unsigned int i = 0; i < 256; ++i) {
        all[i] = static_cast<unsigned char>(i);
    }
    EXPECT_EQ(TnRobotStringUtils::Hex2String(all.data(), 256), Dump(all, "%02x"));
    EXPECT_EQ(TnRobotStringUtils::Dec2String(all.data(), 256), Dump(all, "%02d"));
}

TEST(Dumps, OfManyBytesAreParsedBack) {
    const Bytes bytes = RandomBytes(100000, 5);
    const std::string strText = TnRobotStringUtils::Hex2String(bytes.data(), Length(bytes));
    EXPECT_EQ(strText.size(), 3 * bytes.size() - 1);
    Bytes parsed(bytes.size());
    EXPECT_EQ(TnRobotStringUtils::String2Hex(strText.c_str(), parsed.data()), static_cast<int>(bytes.size()));
    EXPECT_TRUE(parsed == bytes);
}

TEST(TextConversions, GiveTheTextBackByteForByte) {
    std::string strAllBytes;
    for (int ch = 1; ch < 256; ++ch) {
        strAllBytes += static_cast<char>(ch);
    }
    for (const std::string& strText : {strAllBytes, std::string(), std::string("\xC4\xE3"), std::string(10000, 'x')}) {
        EXPECT_EQ(TnRobotStringUtils::GbkToUtf8(strText.c_str()), strText);
        EXPECT_EQ(TnRobotStringUtils::UtfToGbk(strText.c_str()), strText);
    }
}

TEST(TextConversions, OfANullTextThrow) {
    EXPECT_THROW(TnRobotStringUtils::GbkToUtf8(nullptr), std::logic_error);
    EXPECT_THROW(TnRobotStringUtils::UtfToGbk(nullptr), std::logic_error);
}

TEST(TextConversions, OfWideTextsAreEmpty) {
    EXPECT_EQ(TnRobotStringUtils::WStringToString(L"text"), "");
    EXPECT_EQ(TnRobotStringUtils::WStringToString(L""), "");
    EXPECT_EQ(TnRobotStringUtils::WStringToString(nullptr), "");
}

TEST(SplitString, DropsEmptyParts) {
    const struct {
        const char* lpszText;
        char chSeparator;
        Parts parts;
    } cases[] = {
        {",a,,b,", ',', {"a", "b"}},
        {"a", ',', {"a"}},
        {"", ',', {}},
        {",", ',', {}},
        {",,,", ',', {}},
        {"a,b", ';', {"a,b"}},
        {"a b  c", ' ', {"a", "b", "c"}},
        {"a,b,", ',', {"a", "b"}},
        {" a , b ", ',', {" a ", " b "}},
        {"\xFF\xFE\xFF", '\xFE', {"\xFF", "\xFF"}},
        {"whole", '\0', {"whole"}},
    };
    for (const auto& test : cases) {
        Parts parts;
        EXPECT_EQ(TnRobotStringUtils::SplitString(test.lpszText, test.chSeparator, parts),
                  static_cast<int>(test.parts.size()))
            << test.lpszText;
        EXPECT_EQ(parts, test.parts) << test.lpszText;
    }
}

TEST(SplitString, AppendsToWhatIsThere) {
    Parts parts = {"before"};
    EXPECT_EQ(TnRobotStringUtils::SplitString("a,b", ',', parts), 3);
    EXPECT_EQ(parts, (Parts{"before", "a", "b"}));
    EXPECT_EQ(TnRobotStringUtils::SplitString("", ',', parts), 3);
    EXPECT_EQ(TnRobotStringUtils::SplitString(nullptr, ',', parts), -1);
    EXPECT_EQ(parts.size(), 3U);
}

TEST(SplitString, TakesPartsOfAnyLength) {
    for (const std::size_t nLength : {254U, 255U, 256U, 257U, 1000U, 1000000U}) {
        const std::string strLong(nLength, 'x');
        Parts parts;
        EXPECT_EQ(TnRobotStringUtils::SplitString((strLong + ",b," + strLong).c_str(), ',', parts), 3);
        EXPECT_EQ(parts, (Parts{strLong, "b", strLong}));
    }
}

TEST(SplitString, MaySplitOneOfItsOwnParts) {
    Parts parts = {"a,b,c,d,e,f,g,h"};
    parts.shrink_to_fit();
    EXPECT_EQ(TnRobotStringUtils::SplitString(parts[0].c_str(), ',', parts), 9);
    EXPECT_EQ(parts.front(), "a,b,c,d,e,f,g,h");
    EXPECT_EQ(parts[1], "a");
    EXPECT_EQ(parts.back(), "h");
}
