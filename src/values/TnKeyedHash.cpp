// SipHash with one round for each word and three at the end, the variant made for hash tables.

#include "values/TnKeyedHash.h"

#include <sys/random.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstring>

namespace tnrobot {

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);

std::uint64_t RotatedLeft(std::uint64_t n, unsigned int nBits) {
    return (n << nBits) | (n >> (64U - nBits));
}

class SipState {
public:
    // The numbers are the method's own: "somepseudorandomlygeneratedbytes".
    explicit SipState(const HashKey& key)
        : m_n0(key.m_nFirst ^ 0x736f6d6570736575U),
          m_n1(key.m_nSecond ^ 0x646f72616e646f6dU),
          m_n2(key.m_nFirst ^ 0x6c7967656e657261U),
          m_n3(key.m_nSecond ^ 0x7465646279746573U) {}

    void Add(std::uint64_t nWord) {
        m_n3 ^= nWord;
        _Round();
        m_n0 ^= nWord;
    }

    std::uint64_t Finish() {
        m_n2 ^= 0xffU;
        _Round();
        _Round();
        _Round();
        return m_n0 ^ m_n1 ^ m_n2 ^ m_n3;
    }

private:
    void _Round() {
        m_n0 += m_n1;
        m_n2 += m_n3;
        m_n1 = RotatedLeft(m_n1, 13) ^ m_n0;
        m_n3 = RotatedLeft(m_n3, 16) ^ m_n2;
        m_n0 = RotatedLeft(m_n0, 32) + m_n3;
        m_n2 += m_n1;
        m_n3 = RotatedLeft(m_n3, 21) ^ m_n0;
        m_n1 = RotatedLeft(m_n1, 17) ^ m_n2;
        m_n2 = RotatedLeft(m_n2, 32);
    }

    std::uint64_t m_n0;
    std::uint64_t m_n1;
    std::uint64_t m_n2;
    std::uint64_t m_n3;
};

// A key that differs from run to run by the time, the process and where memory lies.
HashKey MakeshiftKey(const void* pSomewhere) {
    const auto nTime = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    const auto nAddress = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(pSomewhere));
    return {nTime ^ (static_cast<std::uint64_t>(getpid()) << 32U), nAddress ^ RotatedLeft(nTime, 32)};
}

// The system does not keep the first caller waiting for its random numbers, and may have none early in
// its life or in a cage: such a process is no worse off than with a hash that everybody knows.
HashKey NewKey() {
    HashKey key{};
    if (getrandom(&key, sizeof(key), GRND_NONBLOCK) != static_cast<ssize_t>(sizeof(key))) {
        key = MakeshiftKey(&key);
    }
    return key;
}

// Made when the library is loaded: a static of the function's would be made under a lock, which a fork at
// that moment leaves taken in the child.
const HashKey g_processKey = NewKey();

}  // namespace

std::uint64_t KeyedHash(const HashKey& key, std::string_view text) {
    SipState state(key);
    const std::size_t nWhole = text.size() / kWord * kWord;
    std::uint64_t nWord = 0;
    for (std::size_t n = 0; n < nWhole; n += kWord) {
        std::memcpy(&nWord, text.data() + n, kWord);
        state.Add(nWord);
    }
    // The last word holds the rest, and the length in its highest byte.
    nWord = static_cast<std::uint64_t>(text.size()) << 56U;
    for (std::size_t n = nWhole; n < text.size(); ++n) {
        nWord |= static_cast<std::uint64_t>(static_cast<unsigned char>(text[n])) << (8U * (n - nWhole));
    }
    state.Add(nWord);
    return state.Finish();
}

const HashKey& ProcessHashKey() {
    return g_processKey;
}

}  // namespace tnrobot
