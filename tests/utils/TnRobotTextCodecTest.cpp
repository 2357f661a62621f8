#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

#ifdef TNROBOT_TEST_WITH_OPENSSL
#include <openssl/evp.h>
#endif

#include "TnRobotKernel/utilities.h"
#include "utils/Base64Reference.h"

using base64_reference::Bytes;
using base64_reference::TextKind;

namespace {

// Encodes into memory of exactly the documented size, so that a sanitizer sees any byte too many.
std::string Encode(const Bytes& bytes) {
    const std::size_t nRoom = (bytes.size() + 2) / 3 * 4;
    const std::unique_ptr<char[]> text(new char[nRoom]);
    const int nWritten = TnRobotTextCodec::Base64Encode(bytes.data(), static_cast<int>(bytes.size()), text.get());
    EXPECT_EQ(nWritten, static_cast<int>(nRoom));
    return std::string(text.get(), nRoom);
}

// Decodes from and into memory of exactly the documented sizes.
Bytes Decode(const std::string& strText) {
    const std::unique_ptr<char[]> text(new char[strText.size() + 1]);
    std::copy(strText.c_str(), strText.c_str() + strText.size() + 1, text.get());
    const std::size_t nRoom = strText.size() / 4 * 3;
    const std::unique_ptr<unsigned char[]> data(new unsigned char[nRoom]);
    const auto nWritten = static_cast<std::size_t>(TnRobotTextCodec::Base64Decode(text.get(), data.get()));
    EXPECT_LE(nWritten, nRoom);
    return Bytes(data.get(), data.get() + nWritten);
}

void ExpectEncodesLikeOthers(const Bytes& bytes) {
    const std::string strText = Encode(bytes);
    ASSERT_TRUE(strText == base64_reference::Encode(bytes)) << bytes.size();
#ifdef TNROBOT_TEST_WITH_OPENSSL
    std::string strOther((bytes.size() + 2) / 3 * 4 + 1, '#');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(strOther.data()), bytes.data(), static_cast<int>(bytes.size()));
    strOther.pop_back();
    ASSERT_TRUE(strText == strOther) << bytes.size();
#endif
    ASSERT_TRUE(Decode(strText) == bytes) << bytes.size();
}

}  // namespace

TEST(Base64, EncodesTheKnownTexts) {
    const struct {
        Bytes bytes;
        const char* lpszText;
    } cases[] = {
        {{0x4D}, "TQ=="},
        {{0x4D, 0x61}, "TWE="},
        {{0x4D, 0x61, 0x6E}, "TWFu"},
        {{0, 0, 0}, "AAAA"},
        {{0xFF, 0xFF, 0xFF}, "////"},
        {{0xFB, 0xEF, 0xBE}, "++++"},
        {{'f', 'o', 'o', 'b', 'a'}, "Zm9vYmE="},
        {{'f', 'o', 'o', 'b', 'a', 'r'}, "Zm9vYmFy"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Encode(test.bytes), test.lpszText);
        EXPECT_EQ(Decode(test.lpszText), test.bytes);
    }
}

TEST(Base64, EncodesNothingWithoutBytes) {
    const unsigned char by = 1;
    char chUntouched = '#';
    for (const int nLength : {0, -1, -2147483647 - 1}) {
        EXPECT_EQ(TnRobotTextCodec::Base64Encode(&by, nLength, &chUntouched), 0);
    }
    EXPECT_EQ(TnRobotTextCodec::Base64Encode(nullptr, 3, &chUntouched), 0);
    EXPECT_EQ(TnRobotTextCodec::Base64Encode(&by, 1, nullptr), 0);
    EXPECT_EQ(chUntouched, '#');
}

TEST(Base64, EncodesEveryShortLengthLikeOthers) {
    std::mt19937 random(1);
    for (std::size_t nLength = 0; nLength <= 200; ++nLength) {
        ExpectEncodesLikeOthers(base64_reference::RandomBytes(nLength, random));
    }
}

TEST(Base64, EncodesLongDataLikeOthers) {
    std::mt19937 random(2);
    for (const std::size_t nLength : {1000U, 4095U, 65536U, 65537U, 300001U, 1048574U, 1048575U, 1048576U}) {
        ExpectEncodesLikeOthers(base64_reference::RandomBytes(nLength, random));
    }
}

TEST(Base64, EncodesEveryPairOfSixBitsAtEveryPlace) {
    Bytes bytes;
    for (unsigned int n = 0; n < 4096; ++n) {
        const unsigned int nGroup = n << 12 | n;
        bytes.push_back(static_cast<unsigned char>(nGroup >> 16));
        bytes.push_back(static_cast<unsigned char>(nGroup >> 8));
        bytes.push_back(static_cast<unsigned char>(nGroup));
    }
    ExpectEncodesLikeOthers(bytes);
}

TEST(Base64, WritesNoTerminator) {
    const unsigned char bytes[] = {1, 2, 3};
    char szText[] = "#####";
    EXPECT_EQ(TnRobotTextCodec::Base64Encode(bytes, 3, szText), 4);
    EXPECT_STREQ(szText, "AQID#");
}

TEST(Base64, DecodesNothingOfAnEmptyText) {
    unsigned char byUntouched = 0xCC;
    EXPECT_EQ(TnRobotTextCodec::Base64Decode("", &byUntouched), 0);
    EXPECT_EQ(TnRobotTextCodec::Base64Decode(nullptr, &byUntouched), 0);
    EXPECT_EQ(TnRobotTextCodec::Base64Decode("TQ==", nullptr), 0);
    EXPECT_EQ(byUntouched, 0xCC);
}

TEST(Base64, DecodingEndsAtPaddingInThirdOrFourthPlace) {
    const struct {
        const char* lpszText;
        Bytes bytes;
    } cases[] = {
        {"TQ==", {0x4D}},
        {"TQ==TWFu", {0x4D}},
        {"TQ=u", {0x4D}},
        {"TQ=uTWFu", {0x4D}},
        {"TWE=TWFu", {0x4D, 0x61}},
        {"TWFuTQ==", {0x4D, 0x61, 0x6E, 0x4D}},
        {"====", {0xFF}},
        {"===u", {0xFF}},
        {"=WFu", {0xFD, 0x61, 0x6E}},                        // in first place it is only a stranger
        {"T=FuTWFu", {0x4F, 0xF1, 0x6E, 0x4D, 0x61, 0x6E}},  // and in second
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Decode(test.lpszText), test.bytes) << test.lpszText;
        EXPECT_EQ(base64_reference::Decode(test.lpszText), test.bytes) << test.lpszText;
    }
}

TEST(Base64, DecodesEveryCharacterAtEveryPlaceByTheFormulas) {
    for (int ch = 1; ch < 256; ++ch) {
        for (std::size_t nPlace = 0; nPlace < 64; ++nPlace) {
            std::string strText(64, 'A');
            strText[nPlace] = static_cast<char>(ch);
            ASSERT_EQ(Decode(strText), base64_reference::Decode(strText)) << ch << " at " << nPlace;
        }
    }
}

// A rest of a group is not a group: nothing is read behind the text, and what is documented as
// room is enough.
TEST(Base64, IgnoresARestOfLessThanFourCharacters) {
    for (const char* lpszRest : {"T", "TQ", "TWF", "TQ=", "=", "==", "==="}) {
        EXPECT_EQ(Decode(lpszRest), Bytes{}) << lpszRest;
        EXPECT_EQ(Decode(std::string("TWFu") + lpszRest), (Bytes{0x4D, 0x61, 0x6E})) << lpszRest;
    }
    std::mt19937 random(3);
    for (std::size_t nLength = 0; nLength < 200; ++nLength) {
        const std::string strText = base64_reference::RandomText(nLength, TextKind::kOfAlphabet, random);
        ASSERT_EQ(Decode(strText), base64_reference::Decode(strText)) << nLength;
    }
}

TEST(Base64, WhiteSpaceIsNotSkipped) {
    EXPECT_EQ(Decode("TW Fu   "), base64_reference::Decode("TW/Fu///"));
    EXPECT_EQ(Decode("TWFu\nTWF"), base64_reference::Decode("TWFu/TWF"));
}

TEST(Base64, DecodesRandomTextsByTheFormulas) {
    std::mt19937 random(4);
    for (int i = 0; i < 100000; ++i) {
        const auto eKind = static_cast<TextKind>(i % static_cast<int>(TextKind::kCount));
        const std::string strText = base64_reference::RandomText(random() % 40 * 4, eKind, random);
        ASSERT_EQ(Decode(strText), base64_reference::Decode(strText)) << strText;
    }
}

TEST(Base64, DecodesLongTextsByTheFormulas) {
    std::mt19937 random(5);
    for (const TextKind eKind : {TextKind::kOfAlphabet, TextKind::kFewStrangers}) {
        std::string strText = base64_reference::RandomText(1 << 20, eKind, random);
        std::replace(strText.begin(), strText.end(), '=', '?');
        ASSERT_TRUE(Decode(strText) == base64_reference::Decode(strText));
    }
}

TEST(Base64, WritesNothingBehindTheBytesItCounts) {
    for (std::size_t nGroups = 1; nGroups < 40; ++nGroups) {
        for (const char* lpszEnd : {"TQ==", "TWE=", "TWFu"}) {
            std::string strText;
            for (std::size_t i = 1; i < nGroups; ++i) {
                strText += "TWFu";
            }
            strText += lpszEnd;
            strText += std::string(80, 'A');  // read only behind the last of the three
            Bytes data(strText.size(), 0xCC);
            const int nWritten = TnRobotTextCodec::Base64Decode(strText.c_str(), data.data());
            ASSERT_EQ(static_cast<std::size_t>(nWritten), base64_reference::Decode(strText).size());
            for (std::size_t i = static_cast<std::size_t>(nWritten); i < data.size(); ++i) {
                ASSERT_EQ(data[i], 0xCC) << nGroups << lpszEnd << " at " << i;
            }
        }
    }
}
