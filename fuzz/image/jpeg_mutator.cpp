// Keeps the segments of a JPEG whole, a scan with its header: they change places, and what is changed
// inside of one is followed by its length.

#include "FuzzMutator.h"

using namespace tnfuzz;

namespace {

constexpr std::size_t kMarker = 2;
constexpr std::size_t kHead = 4;  // marker and length

// In a frame, behind its precision.
constexpr std::size_t kHeight = 5;
constexpr std::size_t kWidth = 7;
constexpr std::size_t kComponents = 9;

enum : unsigned char {
    kSof0 = 0xC0,
    kHuffman = 0xC4,
    kSof15 = 0xCF,
    kRestart0 = 0xD0,
    kStart = 0xD8,
    kEnd = 0xD9,
    kScan = 0xDA,
    kQuantisers = 0xDB
};

bool IsFrame(unsigned char byMarker) {
    return byMarker >= kSof0 && byMarker <= kSof15 && byMarker != kHuffman;
}

// Markers without a length: start, end, and those between the pieces of a scan.
bool IsBare(unsigned char byMarker) {
    return (byMarker >= kRestart0 && byMarker <= kEnd) || byMarker <= 1;
}

std::size_t LengthAt(const Bytes& bytes, std::size_t nAt) {
    return static_cast<std::size_t>(bytes[nAt]) << 8U | bytes[nAt + 1];
}

// @return where the next segment begins behind nAt: coded bytes, stuffed ones and restarts are no segments.
std::size_t EndOfScan(const Bytes& bytes, std::size_t nAt) {
    for (; nAt + 1 < bytes.size(); ++nAt) {
        const unsigned char byNext = bytes[nAt + 1];
        if (bytes[nAt] == 0xFF && byNext != 0 && (byNext < kRestart0 || byNext >= kStart)) {
            return nAt;
        }
    }
    return bytes.size();
}

std::size_t EndOfSegment(const Bytes& bytes, std::size_t nAt) {
    if (bytes.size() - nAt < kHead || bytes[nAt] != 0xFF) {
        return bytes.size();
    }
    const unsigned char byMarker = bytes[nAt + 1];
    if (IsBare(byMarker)) {
        return nAt + kMarker;
    }
    const std::size_t nEnd = std::min(nAt + kMarker + LengthAt(bytes, nAt + kMarker), bytes.size());
    return byMarker == kScan ? EndOfScan(bytes, nEnd) : nEnd;
}

// The first piece is the start of the picture.
Pieces Split(const Bytes& bytes) {
    Pieces segments;
    for (std::size_t nAt = 0; nAt < bytes.size();) {
        const std::size_t nEnd = EndOfSegment(bytes, nAt);
        segments.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(nAt),
                              bytes.begin() + static_cast<std::ptrdiff_t>(nEnd));
        nAt = nEnd;
    }
    return segments;
}

void SetLength(Bytes& segment, std::size_t nEnd) {
    const std::size_t nLength = nEnd - kMarker;
    segment[kMarker] = static_cast<unsigned char>(nLength >> 8U);
    segment[kMarker + 1] = static_cast<unsigned char>(nLength);
}

// Precision, height and width (mostly small ones), and components with their sampling and tables.
void MutateFrame(Bytes& frame, Choice& choice) {
    constexpr std::size_t kFirst = 10;
    static constexpr unsigned char kKinds[] = {0xC0, 0xC1, 0xC2, 0xC9, 0xCA, 0xC3};
    if (frame.size() < kFirst + 3) {
        return;
    }
    switch (choice.Below(5)) {
        case 0:
            frame[1] = kKinds[choice.Below(std::size(kKinds))];
            break;
        case 1:
            for (std::size_t i = kHeight; i < kComponents; ++i) {
                frame[i] = static_cast<unsigned char>(i % 2 == 0 ? choice.Below(70) : choice.OneIn(12) ? 1 : 0);
            }
            break;
        case 2: {
            const std::size_t nCount = 1 + choice.Below(4);
            frame.resize(kFirst + 3 * nCount, 1);
            frame[kComponents] = static_cast<unsigned char>(nCount);
            SetLength(frame, frame.size());
            break;
        }
        case 3:
            frame[kFirst + 1] = static_cast<unsigned char>((1 + choice.Below(4)) << 4U | (1 + choice.Below(4)));
            break;
        default:
            frame[kHead + choice.Below(frame.size() - kHead)] = static_cast<unsigned char>(choice.Number());
    }
}

// Components, and where a progressive scan begins and ends; the coded bytes stay.
void MutateScan(Bytes& scan, Choice& choice) {
    const std::size_t nHeader = std::min(kMarker + LengthAt(scan, kMarker), scan.size());
    if (nHeader > kHead && choice.OneIn(2)) {
        static constexpr unsigned char kUsual[] = {0, 1, 2, 0x10, 0x11, 0x21, 5, 63};
        scan[kHead + choice.Below(nHeader - kHead)] =
            choice.OneIn(4) ? static_cast<unsigned char>(choice.Number()) : kUsual[choice.Below(std::size(kUsual))];
    } else {
        MutateBehind(scan, nHeader, 16);
    }
}

// Any other segment: its content, and its length after it.
void MutateContent(Bytes& segment, Choice& choice) {
    if (segment[1] == kQuantisers || segment[1] == kHuffman) {
        // The table's place, its counts or one of its values.
        segment[kHead] =
            choice.OneIn(3) ? static_cast<unsigned char>(choice.Below(4) | choice.Below(2) << 4U) : segment[kHead];
        segment[kHead + choice.Below(segment.size() - kHead)] = static_cast<unsigned char>(choice.Number());
        return;
    }
    MutateBehind(segment, kHead, 16);
    SetLength(segment, segment.size());
}

Bytes MutateJpeg(const Bytes& bytes, Choice& choice) {
    Pieces segments = Split(bytes);
    if (segments.size() < 3) {
        return {};
    }
    if (choice.OneIn(2)) {
        Pieces inner(segments.begin() + 1, segments.end());
        Rearrange(inner, choice);
        segments.resize(1);
        segments.insert(segments.end(), inner.begin(), inner.end());
        return Join(segments);
    }
    Bytes& segment = segments[1 + choice.Below(segments.size() - 1)];
    if (segment.size() > kHead && segment[0] == 0xFF && !IsBare(segment[1])) {
        if (IsFrame(segment[1])) {
            MutateFrame(segment, choice);
        } else if (segment[1] == kScan) {
            MutateScan(segment, choice);
        } else {
            MutateContent(segment, choice);
        }
    }
    return Join(segments);
}

// Wherever a frame says its size: at most 255 in each direction. A picture of 65,535 columns tells nothing else, and
// keeps memory busy for as long as a thousand small ones.
void MakeSmall(const Pieces& segments, std::uint8_t* pData) {
    for (const Bytes& segment : segments) {
        if (segment.size() > kComponents && segment[0] == 0xFF && IsFrame(segment[1])) {
            pData[kHeight] = 0;
            pData[kWidth] = 0;
        }
        pData += segment.size();
    }
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* pData, std::size_t nSize, std::size_t nMaxSize,
                                               unsigned int nSeed) {
    nSize = MutateByFormat(pData, nSize, nMaxSize, nSeed, MutateJpeg);
    constexpr unsigned int kOfAnySize = 32;
    if (nSeed % kOfAnySize != 0) {
        MakeSmall(Split(Bytes(pData, pData + nSize)), pData);
    }
    return nSize;
}
