#include "image/TnByteBuffer.h"

#include <gtest/gtest.h>

TEST(ByteBuffer, IsAsLongAsItWasAllocatedLast) {
    tnrobot::ByteBuffer buffer;
    EXPECT_TRUE(buffer.Empty());
    EXPECT_EQ(buffer.Size(), 0U);
    EXPECT_EQ(buffer.Data(), nullptr);
    for (const std::size_t nSize : {3U, 1U, 70000U}) {
        buffer.Allocate(nSize);
        EXPECT_FALSE(buffer.Empty()) << nSize;
        EXPECT_EQ(buffer.Size(), nSize);
        buffer.Data()[nSize - 1] = 7;
        EXPECT_EQ(static_cast<const tnrobot::ByteBuffer&>(buffer).Data()[nSize - 1], 7) << nSize;
    }
    buffer.Clear();
    EXPECT_TRUE(buffer.Empty());
    EXPECT_EQ(buffer.Size(), 0U);
    EXPECT_EQ(buffer.Data(), nullptr);
}
