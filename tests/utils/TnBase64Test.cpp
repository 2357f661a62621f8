#include "utils/TnBase64.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

#include "utils/Base64Reference.h"

using base64_reference::Bytes;
using base64_reference::TextKind;

namespace {

// Both implementations, whatever the processor would choose; where it lacks AVX2, the portable
// one twice.
struct Implementation {
    const char* lpszName;
    std::size_t (*encode)(const unsigned char*, std::size_t, char*);
    std::size_t (*decode)(const char*, std::size_t, unsigned char*);
};

void PrintTo(const Implementation& implementation, std::ostream* pStream) {
    *pStream << implementation.lpszName;
}

const Implementation kPortable = {"portable", tnrobot::EncodeBase64, tnrobot::DecodeBase64};
const Implementation kFast =
    tnrobot::HasAvx2() ? Implementation{"avx2", tnrobot::EncodeBase64Avx2, tnrobot::DecodeBase64Avx2} : kPortable;

class Base64Implementation : public testing::TestWithParam<Implementation> {
protected:
    // Into and from memory of exactly the needed sizes.
    static std::string Encode(const Bytes& bytes) {
        const std::unique_ptr<unsigned char[]> data(new unsigned char[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), data.get());
        const std::unique_ptr<char[]> text(new char[(bytes.size() + 2) / 3 * 4]);
        return std::string(text.get(), GetParam().encode(data.get(), bytes.size(), text.get()));
    }
    static Bytes Decode(const std::string& strText) {
        const std::unique_ptr<char[]> text(new char[strText.size()]);
        std::copy(strText.begin(), strText.end(), text.get());
        const std::unique_ptr<unsigned char[]> data(new unsigned char[strText.size() / 4 * 3]);
        return Bytes(data.get(), data.get() + GetParam().decode(text.get(), strText.size() / 4, data.get()));
    }
};

}  // namespace

TEST_P(Base64Implementation, EncodesEveryLengthAndDecodesItBack) {
    std::mt19937 random(1);
    for (std::size_t nLength = 0; nLength < 400; ++nLength) {
        const Bytes bytes = base64_reference::RandomBytes(nLength, random);
        ASSERT_EQ(Encode(bytes), base64_reference::Encode(bytes)) << nLength;
        ASSERT_EQ(Decode(base64_reference::Encode(bytes)), bytes) << nLength;
    }
}

TEST_P(Base64Implementation, DecodesEveryCharacterAtEveryPlace) {
    for (int ch = 0; ch < 256; ++ch) {
        for (std::size_t nPlace = 0; nPlace < 64; ++nPlace) {
            std::string strText(64, 'A');
            strText[nPlace] = static_cast<char>(ch);
            ASSERT_EQ(Decode(strText), base64_reference::Decode(strText)) << ch << " at " << nPlace;
        }
    }
}

TEST_P(Base64Implementation, DecodesRandomTextsByTheFormulas) {
    std::mt19937 random(2);
    for (int i = 0; i < 20000; ++i) {
        const auto eKind = static_cast<TextKind>(i % static_cast<int>(TextKind::kCount));
        const std::string strText = base64_reference::RandomText(random() % 100 * 4, eKind, random);
        ASSERT_EQ(Decode(strText), base64_reference::Decode(strText)) << strText;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, Base64Implementation, testing::Values(kPortable, kFast),
                         [](const auto& each) { return std::string(each.index == 0 ? "Portable" : "Fast"); });
