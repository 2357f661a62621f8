#include "Inspector.h"

#include <TnRobotKernel/tn/saving.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

constexpr double kMiB = 1024.0 * 1024.0;
constexpr unsigned long long kMostPixelBytes = 64ULL << 20U;
constexpr std::chrono::milliseconds kPatience{50};  // with a frame that finds no memory
constexpr unsigned int kThreads = 4;
constexpr std::size_t kPictureEvery = 10;

tn::LimitedPoolOptions Limit() {
    tn::LimitedPoolOptions options;
    options.nMostBytes = kMostPixelBytes;
    options.wait = kPatience;
    return options;
}

std::string NameOf(std::size_t nFrame, std::size_t nRegion) {
    return "frame " + std::to_string(nFrame) + " region " + std::to_string(nRegion);
}

// @return what that many of a hundred do not exceed.
double Percentile(std::vector<double>& values, std::size_t nPercent) {
    if (values.empty()) {
        return 0;
    }
    const auto nth = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) * nPercent / 100);
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
}

}  // namespace

Inspector::Inspector(std::string strDirectory)
    : m_strDirectory(std::move(strDirectory)),
      m_strResults(m_strDirectory + "/camera.tnr"),
      m_blocks(tn::MakeLimitedPool(tn::MakeMemoryBlockPool(), Limit())),
      m_surfaces(tn::MakeSurfacePool(m_blocks.get())),
      m_queue(*m_tasks, [this](const Region& region) { Measure(region); }, {kThreads, 2 * kRegions}) {}

void Inspector::Take(TnRobotPtr<ITnRobotSurface> frame) {
    const auto taken = std::make_shared<Frame>();
    taken->nNumber = m_nTaken++;
    taken->surface = std::move(frame);
    for (std::size_t n = 0; n < kRegions; ++n) {
        m_queue.Push(Region{taken, n});
    }
}

// All of one size, so that any two can be joined; what is left over at the right and below is not looked at.
STnNLROIRect Inspector::RectOf(const ITnRobotSurface::STnSurfaceDesc& desc, std::size_t nRegion) {
    const int nWidth = desc.nWidth / kColumns;
    const int nHeight = desc.nHeight / kRows;
    const int nLeft = static_cast<int>(nRegion) % kColumns * nWidth;
    const int nTop = static_cast<int>(nRegion) / kColumns * nHeight;
    return {nLeft, nLeft + nWidth, nTop, nTop + nHeight};
}

// Several regions of a surface are read at once, which needs no lock: nobody writes.
double Inspector::MeanOf(ITnRobotSurface& surface, std::size_t nRegion) {
    constexpr int kPixelBytes = 3;
    ITnRobotSurface::STnSurfaceDesc desc{};
    surface.GetSurfaceDesc(desc);
    const tn::LockedPixels pixels(surface);
    if (!pixels) {
        throw std::runtime_error("a frame has no pixels");
    }
    const STnNLROIRect rect = RectOf(desc, nRegion);
    unsigned long long nSum = 0;
    for (int nRow = rect.top; nRow < rect.bottom; ++nRow) {
        const unsigned char* pRow = pixels.Row(nRow);
        for (int n = rect.left * kPixelBytes; n < rect.right * kPixelBytes; ++n) {
            nSum += pRow[n];
        }
    }
    const int nBytes = (rect.right - rect.left) * (rect.bottom - rect.top) * kPixelBytes;
    return nBytes > 0 ? static_cast<double>(nSum) / nBytes : 0;
}

void Inspector::Measure(const Region& region) {
    Frame& frame = *region.frame;
    frame.means[region.nRegion] = MeanOf(*frame.surface, region.nRegion);
    if (--frame.nLeft == 0) {
        Complete(frame);
    }
}

void Inspector::Complete(const Frame& frame) {
    if (frame.nNumber % kPictureEvery == 0 && !SaveJoined(frame)) {
        throw std::runtime_error("a picture cannot be saved");
    }
    const std::chrono::duration<double, std::milli> passed = Clock::now() - frame.arrival;
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (std::size_t n = 0; n < kRegions; ++n) {
        m_results->SetValue(NameOf(frame.nNumber, n).c_str(), frame.means[n]);
    }
    m_milliseconds.push_back(passed.count());
    ++m_nFrames;
}

// The darkest region and the brightest, side by side. Without memory there is no picture, which is no
// failure: the frames need it more.
bool Inspector::SaveJoined(const Frame& frame) {
    const auto [darkest, brightest] = std::minmax_element(frame.means.begin(), frame.means.end());
    ITnRobotSurface::STnSurfaceDesc desc{};
    frame.surface->GetSurfaceDesc(desc);
    const auto clip = [&](const double* pMean) {
        const auto nRegion = static_cast<std::size_t>(pMean - frame.means.data());
        return tn::ClipImage(m_surfaces.get(), frame.surface.get(), RectOf(desc, nRegion));
    };
    const auto left = clip(&*darkest);
    const auto right = clip(&*brightest);
    const auto joined = left && right ? tn::PieceImage(m_surfaces.get(), left.get(), right.get()) : nullptr;
    if (!joined) {
        return true;
    }
    const std::string strPath = m_strDirectory + "/frame_" + std::to_string(frame.nNumber) + ".jpg";
    ++m_nPictures;
    return TnRobotImageUtils::SaveImage(strPath.c_str(), joined.get()) == 0;
}

Status Inspector::Look() {
    std::vector<double> milliseconds;
    Status status;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        milliseconds.swap(m_milliseconds);
        status.nFrames = m_nFrames;
    }
    status.dMedianMs = Percentile(milliseconds, 50);
    status.dNinetyNinthMs = Percentile(milliseconds, 99);
    const tn::LimitedPoolCounters counters = m_blocks->Counters();
    status.dLiveMiB = static_cast<double>(counters.nLiveBytes) / kMiB;
    status.dHighWaterMiB = static_cast<double>(counters.nHighWater) / kMiB;
    return status;
}

bool Inspector::Finish() {
    m_queue.Finish();
    tn::WriteCounters(m_blocks->Counters(), *m_results);
    const auto loaded = tn::MakeValueDataGroup();
    if (!tn::SaveTo(m_strResults.c_str(), *m_results) || !tn::LoadFrom(m_strResults.c_str(), *loaded)) {
        return false;
    }
    for (std::size_t nFrame = 0; nFrame < m_nFrames; ++nFrame) {
        const std::string strName = NameOf(nFrame, nFrame % kRegions);
        int nError = 0;
        const double dLoaded = loaded->DoubleData(strName.c_str(), &nError);
        if (nError != 0 || dLoaded != m_results->DoubleData(strName.c_str(), nullptr)) {
            return false;
        }
    }
    return true;
}
