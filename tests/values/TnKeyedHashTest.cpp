#include "values/TnKeyedHash.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "support/bytes/CollidingNames.h"

using namespace tntest;

using tnrobot::HashKey;
using tnrobot::KeyedHash;

namespace {

// Bytes that count from 0.
std::string Counting(std::size_t nBytes) {
    std::string strBytes(nBytes, '\0');
    for (std::size_t i = 0; i < nBytes; ++i) {
        strBytes[i] = static_cast<char>(i);
    }
    return strBytes;
}

}  // namespace

// From other implementations of the same method.
TEST(KeyedHash, IsSipHashWithOneAndThreeRounds) {
    const HashKey counting{0x0706050403020100U, 0x0f0e0d0c0b0a0908U};
    const struct {
        HashKey key;
        std::string strText;
        std::uint64_t nHash;
    } rows[] = {
        {{0, 0}, "a", 0x407448d2b89b1813U},
        {{0, 0}, "abc", 0xc03bc3a0042630f2U},
        {{0, 0}, "exposure", 0x36ca6ce34bb39c01U},
        {{0, 0}, "sixteen letters!", 0x31d1d67c5018cd44U},
        {{0, 0}, "a longer name with a longer text", 0x1a446324a227270U},
        {counting, Counting(0), 0xabac0158050fc4dcU},
        {counting, Counting(1), 0xc9f49bf37d57ca93U},
        {counting, Counting(7), 0xd3927d989bb11140U},
        {counting, Counting(8), 0x369095118d299a8eU},
        {counting, Counting(9), 0x25a48eb36c063de4U},
        {counting, Counting(63), 0x9d199062b7bbb3a8U},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(KeyedHash(row.key, row.strText), row.nHash) << row.strText.size() << " bytes";
    }
}

TEST(KeyedHash, TheKeyOfTheProcessStaysAndIsNotTheSimplestOne) {
    const HashKey first = tnrobot::ProcessHashKey();
    const HashKey& again = tnrobot::ProcessHashKey();
    EXPECT_EQ(std::memcmp(&first, &again, sizeof(first)), 0);
    EXPECT_TRUE(first.m_nFirst != 0 || first.m_nSecond != 0);
}

TEST(KeyedHash, TellsNamesApartThatTheStandardHashDoesNot) {
    CollidingNames names(1);
    std::set<std::uint64_t> hashes;
    constexpr std::size_t kNames = 1000;
    for (std::size_t i = 0; i < kNames; ++i) {
        hashes.insert(KeyedHash(tnrobot::ProcessHashKey(), names.Next(7)));
    }
    EXPECT_EQ(hashes.size(), kNames);
}
