#include "Brightness.h"

#include <TnRobotKernel/tn/for_each.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace {

constexpr std::chrono::milliseconds kLimit{10000};  // for all regions together

// Weights of blue, green and red, as the eye sees them; their sum is 256.
constexpr int kBlue = 29;
constexpr int kGreen = 150;
constexpr int kRed = 77;

int Brightness(const unsigned char* pPixel) {
    return (kBlue * pPixel[0] + kGreen * pPixel[1] + kRed * pPixel[2]) / 256;
}

// A region is left, and not within the limit, when that passes before all rows have been looked at.
Measurement Measure(const Region& region, const tn::CancelToken& token) {
    const auto start = std::chrono::steady_clock::now();
    const tn::LockedPixels pixels(region.surface);
    long long nSum = 0;
    int nMinimum = 255;
    int nMaximum = 0;
    int nRow = 0;
    for (; nRow < pixels.Height() && !token.IsCancelled(); ++nRow) {
        const unsigned char* pPixel = pixels.Row(nRow);
        for (int nColumn = 0; nColumn < pixels.Width(); ++nColumn, pPixel += kBytesPerPixel) {
            const int nBrightness = Brightness(pPixel);
            nSum += nBrightness;
            nMinimum = std::min(nMinimum, nBrightness);
            nMaximum = std::max(nMaximum, nBrightness);
        }
    }
    Measurement measurement;
    measurement.strRegion = region.strName;
    measurement.dMean = static_cast<double>(nSum) / pixels.Width() / std::max(1, nRow);
    measurement.nMinimum = nMinimum;
    measurement.nMaximum = nMaximum;
    measurement.dMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    measurement.bWithinLimit = nRow == pixels.Height();
    return measurement;
}

}  // namespace

// Each call of the job has a measurement of its own to write to, so nothing needs a lock.
bool MeasureRegions(const Pools& pools, const std::vector<Region>& regions, std::vector<Measurement>& measurements) {
    measurements.assign(regions.size(), Measurement());
    const auto measure = [&](std::size_t n, const tn::CancelToken& token) {
        measurements[n] = Measure(regions[n], token);
    };
    std::error_code ec;
    if (!tn::ForEach(*pools.Tasks(), regions.size(), measure, {0, kLimit}, ec)) {
        std::fprintf(stderr, "cannot measure all regions: %s\n", ec.message().c_str());
        return false;
    }
    return true;
}
