// Keeps calls whole: four bytes each, behind the first byte.

#include "FuzzMutator.h"

using namespace tnfuzz;

namespace {

constexpr std::size_t kCall = 4;

Bytes MutateCalls(Bytes bytes, Choice& choice) {
    Pieces calls;
    for (std::size_t i = 1; i < bytes.size(); i += kCall) {
        const auto itFrom = bytes.begin() + static_cast<std::ptrdiff_t>(i);
        calls.emplace_back(itFrom, itFrom + static_cast<std::ptrdiff_t>(std::min(kCall, bytes.size() - i)));
        calls.back().resize(kCall);
    }
    if (calls.empty() || choice.OneIn(4)) {
        Bytes call(kCall);
        for (unsigned char& by : call) {
            by = static_cast<unsigned char>(choice.Below(256));
        }
        calls.insert(calls.begin() + static_cast<std::ptrdiff_t>(choice.Below(calls.size() + 1)), std::move(call));
    } else if (choice.OneIn(2)) {
        Rearrange(calls, choice);
    } else {
        calls[choice.Below(calls.size())][choice.Below(kCall)] = static_cast<unsigned char>(choice.Below(256));
    }
    bytes.resize(1);
    return bytes + Join(calls);
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* pData, std::size_t nSize, std::size_t nMaxSize,
                                               unsigned int nSeed) {
    return MutateByFormat(pData, nSize, nMaxSize, nSeed, MutateCalls);
}
