// The memory stream beside plain copies and a vector.

#include <array>
#include <cstddef>
#include <cstring>
#include <vector>

#include "memory/MemoryCases.h"

namespace {

constexpr unsigned int kMiB = 1 << 20;
constexpr unsigned int kPage = 4096;
constexpr unsigned int kStreamBytes = 64 * kMiB;

// Sixteen bytes past a cache line, as allocators place large blocks: where source and target differ
// in their place within a line, the processor copies at half the speed, and the cases would compare
// places instead of code.
const unsigned char* Piece() {
    constexpr std::size_t kLargeBlockOffset = 16;
    alignas(kPage) static const std::array<unsigned char, 2 * kPage> s_bytes = [] {
        std::array<unsigned char, 2 * kPage> bytes{};
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<unsigned char>(i * 7 + i / 256);
        }
        return bytes;
    }();
    return s_bytes.data() + kPage / 2 + kLargeBlockOffset;
}

/// Calls append(piece) until the stream's length is reached.
template <unsigned int kPiece, typename Append>
void AppendPieces(unsigned int nBytes, Append append) {
    for (unsigned int nDone = 0; nDone < nBytes; nDone += kPiece) {
        const unsigned char* pPiece = Piece();
        benchmark::DoNotOptimize(pPiece);
        append(pPiece, nDone);
    }
    benchmark::ClobberMemory();
}

template <unsigned int kPiece>
void CheckStream(ITnRobotMemDataStream& stream) {
    bench::Require(stream.GetTotleLength() == kStreamBytes, "the stream refused data");
    stream.BeginReadData();
    for (unsigned int nDone = 0; nDone < kStreamBytes;) {
        unsigned int nSize = 0;
        const unsigned char* pData = stream.ReadData(nSize);
        bench::Require(pData != nullptr && nSize % kPiece == 0, "the stream lost data");
        for (unsigned int n = 0; n < nSize; n += kPiece) {
            bench::Require(std::memcmp(pData + n, Piece(), kPiece) == 0, "the stream changed data");
        }
        nDone += nSize;
    }
    stream.EndReadData();
}

template <unsigned int kPiece>
void AppendToStream(benchmark::State& state) {
    const auto stream =
        bench::Make<ITnRobotMemDataStream>(TnCreateRobotMemDataStream, bench::GeneralPool::s_pool.get());
    const auto append = [&] {
        AppendPieces<kPiece>(kStreamBytes,
                             [&](const unsigned char* pPiece, unsigned int) { stream->WriteData(pPiece, kPiece); });
    };
    append();  // from here on every block is a recycled one
    CheckStream<kPiece>(*stream);
    stream->Clear();
    for (auto _ : state) {
        append();
        stream->Clear();
    }
}

template <unsigned int kPiece>
void AppendToVector(benchmark::State& state, bool bWarm) {
    std::vector<unsigned char> warm(kStreamBytes, 1);
    for (auto _ : state) {
        std::vector<unsigned char> fresh;
        std::vector<unsigned char>& bytes = bWarm ? warm : fresh;
        bytes.clear();
        AppendPieces<kPiece>(kStreamBytes, [&](const unsigned char* pPiece, unsigned int) {
            bytes.insert(bytes.end(), pPiece, pPiece + kPiece);
        });
        benchmark::DoNotOptimize(bytes.data());
    }
}

template <unsigned int kPiece>
void CopyPieces(unsigned char* pTarget, unsigned int nBytes) {
    // A few bytes are copied best without a call.
    constexpr bool kFew = kPiece <= 64;
    const std::size_t nPiece = bench::Unknown(kPiece);
    AppendPieces<kPiece>(nBytes, [=](const unsigned char* pPiece, unsigned int nDone) {
        std::memcpy(pTarget + nDone, pPiece, kFew ? kPiece : nPiece);
    });
}

template <unsigned int kPiece>
void CopyToFlatMemory(benchmark::State& state) {
    std::vector<unsigned char> bytes(kStreamBytes + kPage, 1);
    // At the same place within a cache line as the blocks of the stream.
    unsigned char* pTarget = bytes.data() + (16 - reinterpret_cast<std::uintptr_t>(bytes.data()) % 64 + 64) % 64;
    for (auto _ : state) {
        CopyPieces<kPiece>(pTarget, kStreamBytes);
    }
}

// The copy that the stream cannot beat: to the very blocks that it has recycled, in the same order.
template <unsigned int kPiece>
void CopyToRecycledBlocks(benchmark::State& state) {
    std::vector<ITnRobotMemoryBlock*> blocks(kStreamBytes / kMiB);
    const auto copy = [&] {
        for (auto& pBlock : blocks) {
            pBlock = bench::GeneralPool::Take(kMiB);
            CopyPieces<kPiece>(bench::GeneralPool::Bytes(pBlock), kMiB);
        }
        for (auto* pBlock : blocks) {
            pBlock->Release();
        }
    };
    copy();
    for (auto _ : state) {
        copy();
    }
}

template <unsigned int kPiece>
void RegisterPieces(const std::string& strCase) {
    bench::Register(strCase + "/ours", 1, AppendToStream<kPiece>);
    bench::Register(strCase + "/limit_memcpy", 1, CopyToFlatMemory<kPiece>);
    bench::Register(strCase + "/limit_memcpy_recycled", 1, CopyToRecycledBlocks<kPiece>);
    bench::Register(strCase + "/vector_warm", 1, [](benchmark::State& state) { AppendToVector<kPiece>(state, true); });
    bench::Register(strCase + "/vector_fresh", 1,
                    [](benchmark::State& state) { AppendToVector<kPiece>(state, false); });
}

}  // namespace

void bench::RegisterStreamCases() {
    RegisterPieces<4096>("Stream64MiBIn4KiB");
    RegisterPieces<16>("Stream64MiBIn16B");
}
