#include "core/TnFormat.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

// Every buffer of the library's callers has one of these sizes.
constexpr unsigned int kTextSize = 256;
constexpr unsigned int kByteSize = 16;

}  // namespace

TEST(Format, WritesTheTextsOfTheLibrarysFormats) {
    char szText[kTextSize] = {};
    EXPECT_EQ(_tnsprintf(szText, kTextSize, "%u", 4294967295U), 10);
    EXPECT_STREQ(szText, "4294967295");
    EXPECT_EQ(_tnsprintf(szText, kTextSize, "%f", -0.5), 9);
    EXPECT_STREQ(szText, "-0.500000");
    EXPECT_EQ(_tnsprintf(szText, kTextSize, "%lf", 1234.56789), 11);
    EXPECT_STREQ(szText, "1234.567890");
    EXPECT_EQ(_tnsprintf(szText, kTextSize, "%lld", -9223372036854775807LL - 1), 20);
    EXPECT_STREQ(szText, "-9223372036854775808");
    EXPECT_EQ(_tnsprintf(szText, kTextSize, "%c", 'x'), 1);
    EXPECT_STREQ(szText, "x");
    EXPECT_EQ(_tnsprintf(szText, kTextSize, "%s/%s", "left", "right"), 10);
    EXPECT_STREQ(szText, "left/right");
    EXPECT_EQ(_tnsprintf(szText, kTextSize, "%s/%s_%04d_%02d_%02d_%d.%s", "d", "n", 2026, 1, 9, 86399999, "txt"), 27);
    EXPECT_STREQ(szText, "d/n_2026_01_09_86399999.txt");
}

TEST(Format, WritesTheTextsOfSingleBytes) {
    char szText[kByteSize] = {};
    EXPECT_EQ(_tnsprintf(szText, kByteSize, "%02x ", 10U), 3);
    EXPECT_STREQ(szText, "0a ");
    EXPECT_EQ(_tnsprintf(szText, kByteSize, "%02d ", 7), 3);
    EXPECT_STREQ(szText, "07 ");
}

// The size has never been enforced; callers with longer texts rely on getting them whole.
TEST(Format, IgnoresTheSizeItIsTold) {
    for (const unsigned int nSize : {0U, 1U, 15U, kByteSize}) {
        char szText[64];
        std::memset(szText, '#', sizeof(szText));
        EXPECT_EQ(_tnsprintf(szText, nSize, "%s", "a text of more than sixteen bytes"), 33) << nSize;
        EXPECT_STREQ(szText, "a text of more than sixteen bytes") << nSize;
        EXPECT_EQ(szText[34], '#') << nSize;
    }
}

TEST(Format, WritesNothingBehindTheTerminatingZero) {
    char szText[kByteSize];
    std::memset(szText, '#', sizeof(szText));
    EXPECT_EQ(_tnsprintf(szText, kByteSize, "%d", 42), 2);
    EXPECT_EQ(std::string(szText, kByteSize), std::string("42\0#############", kByteSize));
}
