// Inspects frames: their regions side by side, the results in one file, now and then a picture.

#ifndef TNROBOTKERNEL_EXAMPLES_CAMERA_INSPECTOR_H_
#define TNROBOTKERNEL_EXAMPLES_CAMERA_INSPECTOR_H_

#include <TnRobotKernel/make.h>
#include <TnRobotKernel/tn/limited_pool.h>
#include <TnRobotKernel/tn/work_queue.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// What has been done since the last look.
struct Status {
    std::size_t nFrames = 0;    ///< inspected, all in all
    double dMedianMs = 0;       ///< from a frame's arrival to its last region, half took less
    double dNinetyNinthMs = 0;  ///< 99 of 100 took less
    double dLiveMiB = 0;        ///< pixels in use now
    double dHighWaterMiB = 0;   ///< pixels in use at most so far
};

/// Takes frames and measures each of their regions on a task of its own.
///
/// Pixels never take more memory than the limit: where a frame finds none in time it is dropped.
class Inspector {
public:
    /// @param[in] strDirectory  where results and pictures go.
    explicit Inspector(std::string strDirectory);

    /// Where frames are to be copied to.
    ITnRobotSurfacePool& Surfaces() { return *m_surfaces; }

    /// Hands a frame's regions over; waits when those of the frames before are not done.
    void Take(TnRobotPtr<ITnRobotSurface> frame);

    Status Look();

    /// Waits for all regions and saves the results. What went wrong with a region is thrown.
    /// @return whether the results were saved and read back as they are.
    bool Finish();

    const std::string& ResultPath() const { return m_strResults; }
    std::size_t Pictures() const { return m_nPictures; }

private:
    static constexpr int kColumns = 4;
    static constexpr int kRows = 3;
    static constexpr std::size_t kRegions = std::size_t{kColumns} * kRows;

    using Clock = std::chrono::steady_clock;

    // A frame while its regions are measured. Each writes its own mean; the last one completes it.
    struct Frame {
        std::size_t nNumber = 0;
        TnRobotPtr<ITnRobotSurface> surface;
        Clock::time_point arrival = Clock::now();
        std::array<double, kRegions> means{};
        std::atomic<std::size_t> nLeft{kRegions};
    };
    struct Region {
        std::shared_ptr<Frame> frame;
        std::size_t nRegion;
    };

    static STnNLROIRect RectOf(const ITnRobotSurface::STnSurfaceDesc& desc, std::size_t nRegion);
    static double MeanOf(ITnRobotSurface& surface, std::size_t nRegion);
    void Measure(const Region& region);
    void Complete(const Frame& frame);
    bool SaveJoined(const Frame& frame);

    const std::string m_strDirectory;
    const std::string m_strResults;
    TnRobotPtr<tn::LimitedPool> m_blocks;
    TnRobotPtr<ITnRobotSurfacePool> m_surfaces;
    TnRobotPtr<ITnRobotTaskPool> m_tasks = tn::MakeTaskPool();
    std::size_t m_nTaken = 0;
    std::atomic<std::size_t> m_nPictures{0};
    std::mutex m_mutex;
    TnRobotPtr<ITnRobotDataValueGroup> m_results = tn::MakeValueDataGroup();  // guarded by m_mutex
    std::vector<double> m_milliseconds;                                       // since the last look; guarded by m_mutex
    std::size_t m_nFrames = 0;                                                // guarded by m_mutex
    tn::WorkQueue<Region> m_queue;                                            // goes first
};

#endif  // TNROBOTKERNEL_EXAMPLES_CAMERA_INSPECTOR_H_
