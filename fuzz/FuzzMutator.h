// What mutators share: an input taken apart into pieces that stay whole, and numbers that matter.
//
// Included by sources that define LLVMFuzzerCustomMutator, which only fuzzers are linked with.

#ifndef TNROBOTKERNEL_FUZZ_FUZZMUTATOR_H_
#define TNROBOTKERNEL_FUZZ_FUZZMUTATOR_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "support/bytes/Bytes.h"

// Of libFuzzer: changes bytes in place in one of its own ways. @return how many there are then.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* pData, std::size_t nSize, std::size_t nMaxSize);

namespace tnfuzz {

using tntest::Bytes;
using tntest::operator+=;
using tntest::operator+;
using Pieces = std::vector<Bytes>;

/// The same choices for the same seed, so that a run can be repeated.
class Choice {
public:
    explicit Choice(unsigned int nSeed) : m_random(nSeed) {}

    /// @return a number below nLimit, which is not 0.
    std::size_t Below(std::size_t nLimit) { return m_random() % nLimit; }
    bool OneIn(std::size_t nCases) { return Below(nCases) == 0; }

    /// @return a number around those that fields go wrong at, or any.
    std::uint32_t Number() {
        static constexpr std::uint32_t kAround[] = {0,       0x7F,       0xFF,       0x100,     0x7FFF,
                                                    0x10000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        return OneIn(4) ? static_cast<std::uint32_t>(m_random())
                        : kAround[Below(std::size(kAround))] + static_cast<std::uint32_t>(Below(5)) - 2;
    }

private:
    std::minstd_rand m_random;
};

/// Swaps two of the pieces, doubles or drops one. There may be none.
template <typename Piece>
void Rearrange(std::vector<Piece>& pieces, Choice& choice) {
    if (pieces.empty()) {
        return;
    }
    const std::size_t nOne = choice.Below(pieces.size());
    const std::size_t nOther = choice.Below(pieces.size());
    const auto At = [&pieces](std::size_t n) { return pieces.begin() + static_cast<std::ptrdiff_t>(n); };
    switch (choice.Below(3)) {
        case 0:
            std::swap(pieces[nOne], pieces[nOther]);
            break;
        case 1: {
            Piece copy = pieces[nOne];
            pieces.insert(At(nOther), std::move(copy));
            break;
        }
        default:
            pieces.erase(At(nOne));
    }
}

/// Has libFuzzer change what lies behind the first nFrom bytes; it may become longer by nMore.
inline void MutateBehind(Bytes& bytes, std::size_t nFrom, std::size_t nMore) {
    if (nFrom > bytes.size()) {
        return;
    }
    const std::size_t nBefore = bytes.size() - nFrom;
    bytes.resize(bytes.size() + nMore + 1);  // libFuzzer makes something of nothing, if there is room
    const std::size_t nAfter = LLVMFuzzerMutate(bytes.data() + nFrom, nBefore, nBefore + nMore + 1);
    bytes.resize(nFrom + nAfter);
}

inline Bytes Join(const Pieces& pieces) {
    Bytes bytes;
    for (const Bytes& piece : pieces) {
        bytes += piece;
    }
    return bytes;
}

/// A custom mutator: one input in three is left to libFuzzer, which knows no format; others are changed one to
/// three times by whatever the format's own mutator chooses.
/// @param[in] mutate  Bytes(Bytes, Choice&): empty where the bytes have no such format.
/// @return bytes written; never 0.
template <typename Mutate>
std::size_t MutateByFormat(std::uint8_t* pData, std::size_t nSize, std::size_t nMaxSize, unsigned int nSeed,
                           Mutate mutate) {
    Choice choice(nSeed);
    Bytes bytes;
    if (!choice.OneIn(3)) {
        bytes.assign(pData, pData + nSize);
        for (std::size_t nTimes = 1 + choice.Below(3); nTimes != 0 && !bytes.empty(); --nTimes) {
            bytes = mutate(std::move(bytes), choice);
        }
    }
    if (bytes.empty() || bytes.size() > nMaxSize) {
        return LLVMFuzzerMutate(pData, nSize, nMaxSize);
    }
    std::copy(bytes.begin(), bytes.end(), pData);
    return bytes.size();
}

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_FUZZMUTATOR_H_
