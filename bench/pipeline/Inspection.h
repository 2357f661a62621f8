// The job that the parties of the pipeline do: frames of a camera, twelve regions each, their brightness.

#ifndef TNROBOTKERNEL_BENCH_PIPELINE_INSPECTION_H_
#define TNROBOTKERNEL_BENCH_PIPELINE_INSPECTION_H_

#include <array>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace bench {

constexpr int kFrameWidth = 1280;
constexpr int kFrameHeight = 960;
constexpr int kColumns = 4;
constexpr int kRows = 3;
constexpr std::size_t kRegions = std::size_t{kColumns} * kRows;
constexpr int kRegionWidth = kFrameWidth / kColumns;
constexpr int kRegionHeight = kFrameHeight / kRows;
constexpr std::size_t kPixelBytes = 3;
constexpr std::size_t kRegionRow = kPixelBytes * kRegionWidth;
constexpr std::size_t kJoinEvery = 10;  // so many frames, the darkest and the brightest region are joined
constexpr unsigned int kWorkers = 4;

/// Of all bytes of a region.
struct Measured {
    double dMean = 0;
    int nMinimum = 0;
    int nMaximum = 0;
};
using Measurements = std::array<Measured, kRegions>;

/// Under what the values of a region are kept.
struct ValueNames {
    std::string strMean;
    std::string strMinimum;
    std::string strMaximum;
};
const std::array<ValueNames, kRegions>& Names();

constexpr int Left(std::size_t nRegion) {
    return static_cast<int>(nRegion) % kColumns * kRegionWidth;
}
constexpr int Top(std::size_t nRegion) {
    return static_cast<int>(nRegion) / kColumns * kRegionHeight;
}

/// A loop as one writes it; of the parties that have no such function of their own.
Measured MeasureRows(const unsigned char* pRows, std::size_t nPitch);

/// @return numbers of the darkest and of the brightest region.
std::pair<std::size_t, std::size_t> Extremes(const Measurements& measured);

/// Appends the values and their names to a file of the C library.
void WriteRecord(std::FILE* pFile, const Measurements& measured);

/// @return the coded frames, a few, which come again and again.
const std::vector<std::vector<unsigned char>>& Frames();

/// One way to do the job.
class Party {
public:
    Party() = default;
    Party(const Party&) = delete;
    Party& operator=(const Party&) = delete;
    virtual ~Party() = default;

    /// Takes a frame from its coded bytes to its results in the file, and every tenth to a picture.
    virtual void Inspect(const std::vector<unsigned char>& jpeg, std::size_t nFrame, Measurements& measured) = 0;

    /// @return the last picture, coded.
    virtual std::vector<unsigned char> LastPicture() const = 0;
};

/// Makes a party that appends its results to a file.
using MakeParty = std::unique_ptr<Party> (*)(const std::string& strPath);

std::unique_ptr<Party> MakeOurLoop(const std::string& strPath);
std::unique_ptr<Party> MakeOurQueue(const std::string& strPath);
std::unique_ptr<Party> MakeOursAlone(const std::string& strPath);
std::unique_ptr<Party> MakeFloor(const std::string& strPath);
std::unique_ptr<Party> MakeFloorAlone(const std::string& strPath);
std::unique_ptr<Party> MakeOpenCv(const std::string& strPath);
std::unique_ptr<Party> MakeOpenCvKept(const std::string& strPath);

/// Whole frames side by side: each worker does one from its beginning to its end.
class WholeFrames {
public:
    WholeFrames() = default;
    WholeFrames(const WholeFrames&) = delete;
    WholeFrames& operator=(const WholeFrames&) = delete;
    virtual ~WholeFrames() = default;

    /// @param[out] milliseconds  of each frame, which its worker took for it.
    virtual void Inspect(std::size_t nFrames, std::vector<double>& milliseconds) = 0;
};

std::unique_ptr<WholeFrames> MakeOurWholeFrames(const std::string& strPath, unsigned int nWorkers);
std::unique_ptr<WholeFrames> MakeFloorWholeFrames(const std::string& strPath, unsigned int nWorkers);

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_PIPELINE_INSPECTION_H_
