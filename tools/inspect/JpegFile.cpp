#include "JpegFile.h"

#include <utility>

namespace {

enum Marker : unsigned char {
    kNoMarker = 0x00,
    kTemporary = 0x01,
    kSof0 = 0xC0,
    kDht = 0xC4,
    kJpg = 0xC8,
    kDac = 0xCC,
    kSof15 = 0xCF,
    kRst0 = 0xD0,
    kRst7 = 0xD7,
    kSoi = 0xD8,
    kEoi = 0xD9,
    kSos = 0xDA,
    kDqt = 0xDB,
    kDnl = 0xDC,
    kDri = 0xDD,
    kApp0 = 0xE0,
    kApp15 = 0xEF,
    kCom = 0xFE,
    kFill = 0xFF,
};

bool IsFrame(unsigned char nMarker) {
    return nMarker >= kSof0 && nMarker <= kSof15 && nMarker != kDht && nMarker != kJpg && nMarker != kDac;
}

bool IsRestart(unsigned char nMarker) {
    return nMarker >= kRst0 && nMarker <= kRst7;
}

constexpr unsigned char kUsualBits = 8;
constexpr unsigned char kManyBits = 12;

// Sequential and progressive, with either entropy coding.
bool IsDecodedProcess(unsigned char nFrameMarker) {
    constexpr unsigned char kSof2 = 0xC2;
    constexpr unsigned char kSof9 = 0xC9;
    constexpr unsigned char kSof10 = 0xCA;
    return (nFrameMarker >= kSof0 && nFrameMarker <= kSof2) || nFrameMarker == kSof9 || nFrameMarker == kSof10;
}

/// Goes through the segments of a file.
class JpegParser {
public:
    using Function = std::function<void(const Segment&)>;

    JpegParser(ByteRange file, Function function) : m_file(file), m_function(std::move(function)) {
        m_jpeg.file = file;
    }

    JpegFile Parse() {
        if (m_file.nSize < 2 || m_file.pData[0] != kFill || m_file.pData[1] != kSoi) {
            m_jpeg.problems.Damage(0, "no start of image marker");
            return std::move(m_jpeg);
        }
        Found({0, kSoi, 2});
        m_nPosition = 2;
        bool bGoesOn = true;
        while (bGoesOn) {
            bGoesOn = ParseSegment();
        }
        CheckSize();
        return std::move(m_jpeg);
    }

private:
    void Found(const Segment& segment) {
        ++m_jpeg.nSegments;
        m_function(segment);
    }

    bool Fail(std::size_t nOffset, std::string strText) {
        m_jpeg.problems.Damage(nOffset, std::move(strText));
        return false;
    }

    // @return whether another segment may follow.
    bool ParseSegment() {
        const std::size_t nOffset = m_nPosition;
        while (m_nPosition < m_file.nSize && m_file.pData[m_nPosition] == kFill) {
            ++m_nPosition;
        }
        if (m_nPosition >= m_file.nSize) {
            return Fail(nOffset, "the file ends without an end of image marker");
        }
        if (m_nPosition == nOffset) {
            return Fail(nOffset, "no marker where one should be");
        }
        const unsigned char nMarker = m_file.pData[m_nPosition++];
        if (nMarker == kEoi) {
            Found({nOffset, nMarker, m_nPosition - nOffset});
            NoteRest();
            return false;
        }
        if (nMarker == kTemporary || IsRestart(nMarker)) {
            return true;
        }
        return ParseLengthAndContent(nOffset, nMarker);
    }

    bool ParseLengthAndContent(std::size_t nOffset, unsigned char nMarker) {
        if (m_file.nSize - m_nPosition < 2) {
            return Fail(nOffset, "the file ends within the length of " + MarkerName(nMarker));
        }
        const auto nLength = static_cast<std::size_t>(m_file.pData[m_nPosition] << 8 | m_file.pData[m_nPosition + 1]);
        if (nLength < 2 || nLength > m_file.nSize - m_nPosition) {
            return Fail(nOffset, MarkerName(nMarker) + " of " + std::to_string(nLength) + " bytes, but " +
                                     std::to_string(m_file.nSize - m_nPosition) + " are left");
        }
        if (IsFrame(nMarker)) {
            ParseFrame(nOffset, nMarker, {m_file.pData + m_nPosition + 2, nLength - 2});
        }
        m_jpeg.bLinesFollow = m_jpeg.bLinesFollow || nMarker == kDnl;
        m_nPosition += nLength;
        if (nMarker == kSos) {
            SkipScan();
        }
        Found({nOffset, nMarker, m_nPosition - nOffset});
        return true;
    }

    void ParseFrame(std::size_t nOffset, unsigned char nMarker, ByteRange content) {
        constexpr std::size_t kFrameFields = 6;
        if (m_jpeg.nFrameMarker != kNoMarker) {
            m_jpeg.problems.Damage(nOffset, "a second frame header");
            return;
        }
        if (content.nSize < kFrameFields) {
            m_jpeg.problems.Damage(nOffset, "the frame header is too short");
            return;
        }
        m_jpeg.nFrameMarker = nMarker;
        m_jpeg.nBitsPerSample = content.pData[0];
        m_jpeg.nHeight = static_cast<std::uint16_t>(content.pData[1] << 8 | content.pData[2]);
        m_jpeg.nWidth = static_cast<std::uint16_t>(content.pData[3] << 8 | content.pData[4]);
        m_jpeg.nComponents = content.pData[5];
        m_nFrameOffset = nOffset;
        constexpr std::size_t kComponentFields = 3;
        if (content.nSize != kFrameFields + (kComponentFields * m_jpeg.nComponents)) {
            m_jpeg.problems.Damage(
                nOffset, "the frame header does not fit its " + std::to_string(m_jpeg.nComponents) + " components");
        }
    }

    void CheckSize() {
        if (m_jpeg.nFrameMarker == kNoMarker) {
            m_jpeg.problems.Damage(m_nPosition, "no frame header, so no size");
        } else if (m_jpeg.nWidth == 0 || (m_jpeg.nHeight == 0 && !m_jpeg.bLinesFollow)) {
            m_jpeg.problems.Damage(
                m_nFrameOffset, "no pixels: " + std::to_string(m_jpeg.nWidth) + " x " + std::to_string(m_jpeg.nHeight));
        }
    }

    // Within a scan a marker byte is followed by 0, or begins a restart marker.
    void SkipScan() {
        while (m_nPosition < m_file.nSize) {
            if (m_file.pData[m_nPosition] != kFill) {
                ++m_nPosition;
                continue;
            }
            if (m_nPosition + 1 >= m_file.nSize) {
                m_nPosition = m_file.nSize;
                return;
            }
            const unsigned char nNext = m_file.pData[m_nPosition + 1];
            if (nNext == kNoMarker || IsRestart(nNext)) {
                m_nPosition += 2;
            } else if (nNext == kFill) {
                ++m_nPosition;
            } else {
                return;
            }
        }
    }

    void NoteRest() {
        if (m_nPosition < m_file.nSize) {
            m_jpeg.problems.Note(m_nPosition,
                                 std::to_string(m_file.nSize - m_nPosition) + " bytes behind the end of the image");
        }
    }

    ByteRange m_file;
    Function m_function;
    std::size_t m_nPosition = 0;
    std::size_t m_nFrameOffset = 0;
    JpegFile m_jpeg;
};

}  // namespace

JpegFile ParseJpeg(ByteRange file) {
    return JpegParser(file, [](const Segment&) {}).Parse();
}

void ForEachSegment(ByteRange file, const std::function<void(const Segment&)>& function) {
    JpegParser(file, function).Parse();
}

std::string Unsupported(const JpegFile& jpeg) {
    if (jpeg.problems.IsDamaged()) {
        return {};
    }
    if (!IsDecodedProcess(jpeg.nFrameMarker)) {
        return ProcessName(jpeg.nFrameMarker) + " pictures are";
    }
    if (jpeg.nBitsPerSample != kUsualBits) {
        return jpeg.nBitsPerSample == kManyBits ? "12 bits per sample are" : "";
    }
    if (jpeg.nHeight == 0) {
        return "a height behind the picture's lines is";
    }
    switch (jpeg.nComponents) {
        case 1:
        case 3:
            return {};
        case 4:
            return "CMYK and YCCK pictures are";
        default:
            return "pictures of " + std::to_string(jpeg.nComponents) + " components are";
    }
}

std::string MarkerName(unsigned char nMarker) {
    if (IsFrame(nMarker)) {
        return "SOF" + std::to_string(nMarker - kSof0);
    }
    if (nMarker >= kApp0 && nMarker <= kApp15) {
        return "APP" + std::to_string(nMarker - kApp0);
    }
    switch (nMarker) {
        case kSoi:
            return "SOI";
        case kEoi:
            return "EOI";
        case kSos:
            return "SOS";
        case kDqt:
            return "DQT";
        case kDht:
            return "DHT";
        case kDac:
            return "DAC";
        case kDri:
            return "DRI";
        case kCom:
            return "COM";
        default:
            return "marker " + std::to_string(nMarker);
    }
}

std::string ProcessName(unsigned char nFrameMarker) {
    switch (nFrameMarker - kSof0) {
        case 0:
            return "baseline";
        case 1:
            return "extended sequential";
        case 2:
            return "progressive";
        case 3:
            return "lossless";
        default:
            return MarkerName(nFrameMarker);
    }
}
