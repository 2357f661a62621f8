// Blocks whose content says whose they are.

#ifndef TNROBOTKERNEL_FUZZ_CONCURRENCY_HELDBLOCK_H_
#define TNROBOTKERNEL_FUZZ_CONCURRENCY_HELDBLOCK_H_

#include <TnRobotKernel/TnRobotKernel.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "FuzzInput.h"
#include "TnRobotKernel/make.h"

namespace tnfuzz {

/// A reference to a block that nobody writes to any more, and the number that stands at both of its ends. Two
/// blocks that overlap, or one that is handed out twice, spoil each other's.
class HeldBlock {
public:
    HeldBlock() = default;
    HeldBlock(TnRobotPtr<ITnRobotMemoryBlock> block, bool bCircle, std::uint64_t nStamp)
        : m_block(std::move(block)), m_bCircle(bCircle), m_nStamp(nStamp) {
        Ends([this](unsigned char* pEnd, std::size_t nBytes) { std::memcpy(pEnd, &m_nStamp, nBytes); });
    }

    explicit operator bool() const { return static_cast<bool>(m_block); }

    /// The circular pool takes the memory of its blocks along, whoever holds them.
    /// @param[in] bHasCircle  whether the caller holds that pool.
    void Check(bool bHasCircle) const {
        if (m_bCircle && !bHasCircle) {
            return;
        }
        Ends([this](const unsigned char* pEnd, std::size_t nBytes) {
            Require(std::memcmp(pEnd, &m_nStamp, nBytes) == 0, "a block belongs to its holders alone");
        });
    }

    /// @return a block over the same bytes that keeps this one.
    HeldBlock View() const {
        HeldBlock view;
        if (m_block) {
            unsigned int nSize = 0;
            unsigned char* pBytes = m_block->QueryMemory(nSize);
            view.m_block = tn::MakeCustomMemBlock(m_block.get(), pBytes, nSize);
            view.m_bCircle = m_bCircle;
            view.m_nStamp = m_nStamp;
        }
        return view;
    }

private:
    template <typename Work>
    void Ends(Work work) const {
        if (m_block) {
            unsigned int nSize = 0;
            unsigned char* pBytes = m_block->QueryMemory(nSize);
            const std::size_t nBytes = std::min<std::size_t>(nSize, sizeof(m_nStamp));
            work(pBytes + nSize - nBytes, nBytes);
            // The ends of a short block are the same.
            work(pBytes, nSize < 2 * sizeof(m_nStamp) ? 0 : nBytes);
        }
    }

    TnRobotPtr<ITnRobotMemoryBlock> m_block;
    bool m_bCircle = false;
    std::uint64_t m_nStamp = 0;
};

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_CONCURRENCY_HELDBLOCK_H_
