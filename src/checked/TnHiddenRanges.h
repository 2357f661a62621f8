// What a circular buffer remembers, in checked builds, of the memory that its blocks gave back.

#ifndef TNROBOTKERNEL_SRC_CHECKED_TNHIDDENRANGES_H_
#define TNROBOTKERNEL_SRC_CHECKED_TNHIDDENRANGES_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <typeinfo>

#include "checked/TnChecked.h"

namespace tnrobot {

/// The pieces of a circular buffer that are hidden: each since its block came back, until a new block is
/// cut there. Then it is shown, which tests that nobody has written to it.
///
/// A buffer cuts its blocks from the start to the end, and from the start again after a rewinding. So the
/// pieces that come back are kept apart until then, and afterwards are met in the order of their offsets.
/// A new block may end within a piece: its rest stays hidden. There is room for so many pieces; what comes
/// back beyond that is not remembered, because taking back must not allocate.
///
/// Threads: externally synchronised.
template <bool bChecked>
class HiddenRanges {
public:
    /// A block's memory has been hidden.
    void NoteHidden(std::size_t nOffset, std::size_t nSize) {
        if (m_returned.m_nCount < m_returned.m_ranges.size()) {
            m_returned.m_ranges[m_returned.m_nCount++] = {nOffset, std::min(nSize, checked::kMostPattern)};
        }
    }

    /// Blocks are cut from the start again.
    void NoteRewound() {
        const auto itBegin = m_returned.m_ranges.begin();
        std::sort(itBegin, itBegin + static_cast<std::ptrdiff_t>(m_returned.m_nCount),
                  [](const Range& a, const Range& b) { return a.m_nOffset < b.m_nOffset; });
        m_hidden = m_returned;
        m_nNext = 0;
        m_returned.m_nCount = 0;
    }

    /// A block is cut: shows what is hidden there.
    void Show(const unsigned char* pBuffer, std::size_t nOffset, std::size_t nSize, const std::type_info& type) {
        const std::size_t nEnd = nOffset + nSize;
        while (m_nNext < m_hidden.m_nCount && m_hidden.m_ranges[m_nNext].m_nOffset < nEnd) {
            Range& range = m_hidden.m_ranges[m_nNext];
            const std::size_t nShown = std::min(range.m_nSize, nEnd - range.m_nOffset);
            checked::ShowMemory(pBuffer + range.m_nOffset, nShown, type);
            if (nShown < range.m_nSize) {
                range = {nEnd, range.m_nSize - nShown};
                return;
            }
            ++m_nNext;
        }
    }

private:
    struct Range {
        std::size_t m_nOffset;
        std::size_t m_nSize;
    };
    struct Ranges {
        std::array<Range, 256> m_ranges;
        std::size_t m_nCount = 0;
    };

    Ranges m_returned{};      // since the last rewinding
    Ranges m_hidden{};        // before it, by offset
    std::size_t m_nNext = 0;  // the first of these where no block has been cut since
};

/// Other builds remember nothing.
template <>
class HiddenRanges<false> {
public:
    void NoteHidden(std::size_t /*nOffset*/, std::size_t /*nSize*/) {}
    void NoteRewound() {}
    void Show(const unsigned char* /*pBuffer*/, std::size_t /*nOffset*/, std::size_t /*nSize*/,
              const std::type_info& /*type*/) {}
};

/// What this build remembers.
using HiddenPieces = HiddenRanges<kChecked>;

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CHECKED_TNHIDDENRANGES_H_
