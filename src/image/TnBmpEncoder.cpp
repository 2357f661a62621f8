// All sizes are worked out first (BmpPlan); then header, colour table and rows go out as pieces, in
// memory or to a sink.

#include "image/TnBmpEncoder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "image/TnBmpHeader.h"

namespace {

constexpr std::size_t kPieceSize = std::size_t{256} * 1024;
constexpr std::size_t kColourSize = 4;
constexpr std::size_t kRampSize = 256 * kColourSize;  // the table repeats after this many bytes

static_assert(kPieceSize % kRampSize == 0, "pieces of the table must continue each other");

// What the encoder makes of a record: everything in bytes, computed once.
struct BmpPlan {
    std::uint32_t m_nColours;
    std::uint64_t m_nFileSize;
    std::size_t m_nRow;       // bytes of a row
    std::size_t m_nRows = 0;  // rows that the record holds completely
    std::size_t m_nZeroTail;  // bytes of the data size that no such row covers

    explicit BmpPlan(const STnNLImageData& image)
        : m_nColours(1U << (8U * image.nChannels) % 32U),
          m_nFileSize(tnrobot::kBmpHeaderSize + std::uint64_t{m_nColours} * kColourSize + image.nDataSize),
          m_nRow(image.nWidth > 0 ? static_cast<std::size_t>(image.nWidth) * image.nChannels : 0) {
        if (image.pData != nullptr && m_nRow > 0 && image.nHeight > 0) {
            m_nRows = std::min<std::size_t>(static_cast<std::size_t>(image.nHeight), image.nDataSize / m_nRow);
        }
        m_nZeroTail = image.nDataSize - m_nRows * m_nRow;
    }

    bool FitsHeader() const { return m_nFileSize <= std::numeric_limits<std::uint32_t>::max(); }

    tnrobot::BmpHeaderBytes Header(const STnNLImageData& image) const {
        tnrobot::BmpHeader header{};
        header.m_nFileSize = static_cast<std::uint32_t>(m_nFileSize);
        header.m_nDataOffset = static_cast<std::uint32_t>(tnrobot::kBmpHeaderSize + m_nColours * kColourSize);
        header.m_nWidth = image.nWidth;
        header.m_nHeight = image.nHeight;
        header.m_nBitsPerPixel = static_cast<std::uint16_t>(8 * image.nChannels);
        header.m_nImageSize = image.nDataSize;
        header.m_nColours = m_nColours;
        return tnrobot::FormatBmpHeader(header);
    }
};

// Collects small pieces into large ones; large ones pass through.
class PieceWriter {
public:
    explicit PieceWriter(const CTnBmpEncoder::PieceSink& sink) : m_sink(sink), m_piece(kPieceSize) {}

    void Write(const unsigned char* pBytes, std::size_t nSize) {
        if (nSize > kPieceSize - m_nUsed) {
            Flush();
        }
        if (nSize > kPieceSize) {
            m_sink(pBytes, nSize);
            return;
        }
        std::memcpy(m_piece.data() + m_nUsed, pBytes, nSize);
        m_nUsed += nSize;
    }

    // The first nSize bytes of a sequence that repeats kPieceSize bytes. Written as often as
    // needed, they never leave the processor's cache.
    void WriteRepeated(const std::vector<unsigned char>& pattern, std::size_t nSize) {
        Flush();
        while (nSize > 0) {
            const std::size_t nPiece = std::min(nSize, pattern.size());
            m_sink(pattern.data(), nPiece);
            nSize -= nPiece;
        }
    }

    void Flush() {
        if (m_nUsed > 0) {
            m_sink(m_piece.data(), m_nUsed);
            m_nUsed = 0;
        }
    }

private:
    const CTnBmpEncoder::PieceSink& m_sink;
    std::vector<unsigned char> m_piece;
    std::size_t m_nUsed = 0;
};

// Entry i has all four bytes, the reserved one included, equal to i mod 256. The ramp is laid once
// and then doubled.
std::vector<unsigned char> ColourPattern(std::size_t nTableSize) {
    std::vector<unsigned char> pattern(std::min(nTableSize, kPieceSize));
    const std::size_t nRamp = std::min(pattern.size(), kRampSize);
    for (std::size_t i = 0; i < nRamp; ++i) {
        pattern[i] = static_cast<unsigned char>(i / kColourSize);
    }
    for (std::size_t nDone = nRamp; nDone < pattern.size();) {
        const std::size_t nCopy = std::min(nDone, pattern.size() - nDone);
        std::memcpy(pattern.data() + nDone, pattern.data(), nCopy);
        nDone += nCopy;
    }
    return pattern;
}

void WriteZeros(PieceWriter& writer, std::size_t nSize) {
    if (nSize > 0) {
        writer.WriteRepeated(std::vector<unsigned char>(std::min(nSize, kPieceSize)), nSize);
    }
}

}  // namespace

// Rows are counted from the end of the data, whatever lies before the first of them: a record with
// more data than its rows need is written without its beginning. Callers rely on it.
bool CTnBmpEncoder::EncodePieces(const STnNLImageData& image, const PieceSink& sink) {
    const BmpPlan plan(image);
    if (!plan.FitsHeader()) {
        return false;
    }
    PieceWriter writer(sink);
    const tnrobot::BmpHeaderBytes header = plan.Header(image);
    writer.Write(header.data(), header.size());
    const std::size_t nTableSize = plan.m_nColours * kColourSize;
    writer.WriteRepeated(ColourPattern(nTableSize), nTableSize);
    for (std::size_t i = 1; i <= plan.m_nRows; ++i) {
        writer.Write(image.pData + (image.nDataSize - i * plan.m_nRow), plan.m_nRow);
    }
    writer.Flush();
    WriteZeros(writer, plan.m_nZeroTail);
    return true;
}

bool CTnBmpEncoder::Encode(const STnNLImageData& image) {
    m_file.clear();
    const BmpPlan plan(image);
    if (!plan.FitsHeader()) {
        return false;
    }
    m_file.reserve(static_cast<std::size_t>(plan.m_nFileSize));
    return EncodePieces(image, [this](const unsigned char* pPiece, std::size_t nSize) {
        m_file.insert(m_file.end(), pPiece, pPiece + nSize);
    });
}

const unsigned char* CTnBmpEncoder::GetEncodeData(unsigned int& nSize) const {
    nSize = static_cast<unsigned int>(m_file.size());
    return m_file.data();
}
