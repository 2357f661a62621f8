#include "pipeline/Inspection.h"

#include <algorithm>
#include <cstring>

#include "image/Pictures.h"

namespace bench {

namespace {

constexpr int kDifferentFrames = 10;
constexpr int kHalvedColour = 2;  // as cameras code

// The same scene with another part in shadow each time.
Bytes Frame(int nFrame) {
    constexpr std::size_t kRow = kPixelBytes * kFrameWidth;
    Bytes pixels = Scene(kFrameWidth, kFrameHeight);
    const auto nRegion = static_cast<std::size_t>(nFrame) % kRegions;
    for (int y = Top(nRegion); y < Top(nRegion) + kRegionHeight; ++y) {
        unsigned char* pRow = pixels.data() + static_cast<std::size_t>(y) * kRow;
        unsigned char* pFirst = pRow + kPixelBytes * static_cast<std::size_t>(Left(nRegion));
        std::transform(pFirst, pFirst + kRegionRow, pFirst,
                       [](unsigned char nByte) { return static_cast<unsigned char>(nByte / 2); });
    }
    Bytes jpeg(pixels.size());
    jpeg.resize(EncodeDirectly(pixels.data(), kFrameWidth, kFrameHeight, kHalvedColour, jpeg.data(), jpeg.size()));
    return jpeg;
}

void Write(std::FILE* pFile, const std::string& strName, const void* pValue, std::size_t nBytes) {
    const bool bWritten =
        std::fwrite(strName.c_str(), strName.size() + 1, 1, pFile) == 1 && std::fwrite(pValue, nBytes, 1, pFile) == 1;
    Require(bWritten, "a result cannot be written");
}

}  // namespace

const std::array<ValueNames, kRegions>& Names() {
    static const std::array<ValueNames, kRegions> s_names = [] {
        std::array<ValueNames, kRegions> names;
        for (std::size_t n = 0; n < kRegions; ++n) {
            const std::string strRegion = "region " + std::to_string(n);
            names[n] = {strRegion + " mean", strRegion + " minimum", strRegion + " maximum"};
        }
        return names;
    }();
    return s_names;
}

Measured MeasureRows(const unsigned char* pRows, std::size_t nPitch) {
    unsigned long long nSum = 0;
    unsigned char nMinimum = 255;
    unsigned char nMaximum = 0;
    for (int nRow = 0; nRow < kRegionHeight; ++nRow, pRows += nPitch) {
        unsigned int nRowSum = 0;
        for (std::size_t n = 0; n < kRegionRow; ++n) {
            nRowSum += pRows[n];
            nMinimum = std::min(nMinimum, pRows[n]);
            nMaximum = std::max(nMaximum, pRows[n]);
        }
        nSum += nRowSum;
    }
    return {static_cast<double>(nSum) / (static_cast<double>(kRegionRow) * kRegionHeight), nMinimum, nMaximum};
}

std::pair<std::size_t, std::size_t> Extremes(const Measurements& measured) {
    const auto [darkest, brightest] = std::minmax_element(
        measured.begin(), measured.end(), [](const Measured& a, const Measured& b) { return a.dMean < b.dMean; });
    return {static_cast<std::size_t>(darkest - measured.begin()),
            static_cast<std::size_t>(brightest - measured.begin())};
}

void WriteRecord(std::FILE* pFile, const Measurements& measured) {
    for (std::size_t n = 0; n < kRegions; ++n) {
        const ValueNames& names = Names()[n];
        Write(pFile, names.strMean, &measured[n].dMean, sizeof(double));
        Write(pFile, names.strMinimum, &measured[n].nMinimum, sizeof(int));
        Write(pFile, names.strMaximum, &measured[n].nMaximum, sizeof(int));
    }
}

const std::vector<std::vector<unsigned char>>& Frames() {
    static const std::vector<Bytes> s_frames = [] {
        std::vector<Bytes> frames;
        for (int n = 0; n < kDifferentFrames; ++n) {
            frames.push_back(Frame(n));
        }
        return frames;
    }();
    return s_frames;
}

}  // namespace bench
