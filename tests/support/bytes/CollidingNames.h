// Names chosen so that the standard library's hash of them is whatever their maker wants, as an
// attacker would make them.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_BYTES_COLLIDINGNAMES_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_BYTES_COLLIDINGNAMES_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tntest {

/// Makes different names of 16 bytes, none of them zero, with chosen hashes.
class CollidingNames {
public:
    /// The same seed makes the same names.
    explicit CollidingNames(std::uint64_t nSeed) : m_random(nSeed) {}

    /// Every step of the hash can be undone: for any first half there is a second half that leads to
    /// the hash.
    std::string Next(std::uint64_t nHash) {
        for (;;) {
            const std::uint64_t nFirst = m_random();
            const std::uint64_t nWanted = Unmixed(Unmixed(nHash) * kInverse) * kInverse;
            const std::uint64_t nSecond = Unmixed((nWanted ^ After(nFirst)) * kInverse) * kInverse;
            char szName[kSize];
            std::memcpy(szName, &nFirst, sizeof(nFirst));
            std::memcpy(szName + sizeof(nFirst), &nSecond, sizeof(nSecond));
            const std::string strName(szName, kSize);
            if (strName.find('\0') == std::string::npos) {
                Check(strName, nHash);
                return strName;
            }
        }
    }

private:
    static constexpr std::size_t kSize = 16;
    static constexpr std::uint64_t kFactor = 0xc6a4a7935bd1e995U;

    static constexpr std::uint64_t kInverse = 0x5f7a0ea7e59b19bdU;
    static_assert(kFactor * kInverse == 1, "the product wraps");

    // Mixing twice changes nothing.
    static std::uint64_t Unmixed(std::uint64_t n) { return n ^ (n >> 47U); }

    static std::uint64_t After(std::uint64_t nFirst) {
        constexpr std::uint64_t kSeed = 0xc70f6907U;
        return ((kSeed ^ (kSize * kFactor)) ^ (Unmixed(nFirst * kFactor) * kFactor)) * kFactor;
    }

    static void Check(std::string_view name, std::uint64_t nHash) {
        if (std::hash<std::string_view>()(name) != nHash) {
            throw std::runtime_error("the standard library hashes otherwise");
        }
    }

    std::mt19937_64 m_random;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_BYTES_COLLIDINGNAMES_H_
