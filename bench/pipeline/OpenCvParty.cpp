// The job with OpenCV: as one writes it, and with all matrices kept from frame to frame.

#ifdef TNROBOT_BENCH_OPENCV

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgcodecs.hpp>

#include "BenchSupport.h"
#include "pipeline/Inspection.h"

namespace bench {

namespace {

using Bytes = std::vector<unsigned char>;

cv::Rect RectOf(std::size_t nRegion) {
    return {Left(nRegion), Top(nRegion), kRegionWidth, kRegionHeight};
}

// The functions that it has for this; they want one channel.
Measured MeasureMatrix(const cv::Mat& region) {
    const cv::Mat bytes = region.reshape(1);
    double dMinimum = 0;
    double dMaximum = 0;
    cv::minMaxLoc(bytes, &dMinimum, &dMaximum);
    return {cv::mean(bytes)[0], static_cast<int>(dMinimum), static_cast<int>(dMaximum)};
}

cv::Mat MatrixOver(const Bytes& jpeg) {
    return {1, static_cast<int>(jpeg.size()), CV_8UC1, const_cast<unsigned char*>(jpeg.data())};
}

class OpenCv final : public Party {
public:
    explicit OpenCv(const std::string& strPath) : m_file(strPath + ".yml", cv::FileStorage::WRITE) {
        cv::setNumThreads(static_cast<int>(kWorkers));
        m_file << "frames"
               << "[";
    }
    ~OpenCv() override { m_file << "]"; }

    void Inspect(const Bytes& jpeg, std::size_t nFrame, Measurements& measured) override {
        const cv::Mat frame = cv::imdecode(MatrixOver(jpeg), cv::IMREAD_COLOR);
        std::vector<cv::Mat> regions(kRegions);
        cv::parallel_for_(cv::Range(0, static_cast<int>(kRegions)), [&](const cv::Range& range) {
            for (int i = range.start; i < range.end; ++i) {
                const auto n = static_cast<std::size_t>(i);
                regions[n] = frame(RectOf(n)).clone();
                measured[n] = MeasureMatrix(regions[n]);
            }
        });
        m_file << "{";
        for (std::size_t n = 0; n < kRegions; ++n) {
            const ValueNames& names = Names()[n];
            m_file << names.strMean << measured[n].dMean << names.strMinimum << measured[n].nMinimum << names.strMaximum
                   << measured[n].nMaximum;
        }
        m_file << "}";
        if (nFrame % kJoinEvery == 0) {
            const auto [nDarkest, nBrightest] = Extremes(measured);
            cv::Mat joined;
            cv::hconcat(regions[nDarkest], regions[nBrightest], joined);
            Bytes picture;
            cv::imencode(".jpg", joined, picture);
            m_picture = std::move(picture);
        }
    }

    Bytes LastPicture() const override { return m_picture; }

private:
    cv::FileStorage m_file;
    Bytes m_picture;
};

class OpenCvKept final : public Party {
public:
    explicit OpenCvKept(const std::string& strPath) : m_file(std::fopen(strPath.c_str(), "wb")) {
        Require(m_file != nullptr, "no file for the results");
        cv::setNumThreads(static_cast<int>(kWorkers));
    }
    ~OpenCvKept() override { std::fclose(m_file); }

    void Inspect(const Bytes& jpeg, std::size_t nFrame, Measurements& measured) override {
        cv::imdecode(MatrixOver(jpeg), cv::IMREAD_COLOR, &m_frame);
        cv::parallel_for_(cv::Range(0, static_cast<int>(kRegions)), [&](const cv::Range& range) {
            for (int i = range.start; i < range.end; ++i) {
                const auto n = static_cast<std::size_t>(i);
                m_frame(RectOf(n)).copyTo(m_regions[n]);
                measured[n] = MeasureMatrix(m_regions[n]);
            }
        });
        WriteRecord(m_file, measured);
        if (nFrame % kJoinEvery == 0) {
            const auto [nDarkest, nBrightest] = Extremes(measured);
            cv::hconcat(m_regions[nDarkest], m_regions[nBrightest], m_joined);
            cv::imencode(".jpg", m_joined, m_picture);
        }
    }

    Bytes LastPicture() const override { return m_picture; }

private:
    std::FILE* m_file;
    cv::Mat m_frame;
    std::array<cv::Mat, kRegions> m_regions;
    cv::Mat m_joined;
    Bytes m_picture;
};

}  // namespace

std::unique_ptr<Party> MakeOpenCv(const std::string& strPath) {
    return std::make_unique<OpenCv>(strPath);
}

std::unique_ptr<Party> MakeOpenCvKept(const std::string& strPath) {
    return std::make_unique<OpenCvKept>(strPath);
}

}  // namespace bench

#endif  // TNROBOT_BENCH_OPENCV
