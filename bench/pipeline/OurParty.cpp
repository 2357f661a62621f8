// The job with the library, as its guides teach it.

#include <mutex>

#include "BenchSupport.h"
#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/for_each.h"
#include "TnRobotKernel/tn/group_files.h"
#include "TnRobotKernel/tn/groups.h"
#include "TnRobotKernel/tn/pictures.h"
#include "TnRobotKernel/tn/pixels.h"
#include "TnRobotKernel/tn/work_queue.h"
#include "pipeline/Inspection.h"

namespace bench {

namespace {

using Surface = TnRobotPtr<ITnRobotSurface>;
using Regions = std::array<Surface, kRegions>;

STnNLROIRect RectOf(std::size_t nRegion) {
    return {Left(nRegion), Left(nRegion) + kRegionWidth, Top(nRegion), Top(nRegion) + kRegionHeight};
}

// The results of all frames, one group behind the other.
class ResultFile {
public:
    explicit ResultFile(const std::string& strPath) : m_writer(strPath.c_str()) {}

    void Append(const Measurements& measured) {
        for (std::size_t n = 0; n < kRegions; ++n) {
            const ValueNames& names = Names()[n];
            tn::Set(*m_group, names.strMean.c_str(), measured[n].dMean);
            tn::Set(*m_group, names.strMinimum.c_str(), measured[n].nMinimum);
            tn::Set(*m_group, names.strMaximum.c_str(), measured[n].nMaximum);
        }
        Require(m_writer.Write(*m_group), "results cannot be written");
    }

private:
    tn::GroupFileWriter m_writer;
    TnRobotPtr<ITnRobotDataValueGroup> m_group = tn::MakeValueDataGroup();
};

// What all ways with the library have in common: everything but how regions are shared out.
class Inspector {
public:
    Surface Load(const std::vector<unsigned char>& jpeg) const {
        std::error_code ec;
        auto frame = tn::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), m_surfaces.get(), ec);
        Require(!ec, "a frame cannot be decoded");
        return frame;
    }

    Measured Measure(const Surface& frame, std::size_t nRegion, Surface& region) const {
        region = tn::ClipImage(m_surfaces.get(), frame.get(), RectOf(nRegion));
        const tn::LockedPixels pixels(region);
        Require(static_cast<bool>(pixels), "a region cannot be cut out");
        return MeasureRows(pixels.Row(0), static_cast<std::size_t>(pixels.Pitch()));
    }

    TnRobotPtr<ITnRobotMemoryBlock> Join(const Regions& regions, const Measurements& measured) const {
        const auto [nDarkest, nBrightest] = Extremes(measured);
        const auto joined = tn::PieceImage(m_surfaces.get(), regions[nDarkest].get(), regions[nBrightest].get());
        auto picture = tn::SaveImage(joined.get(), m_blocks.get());
        Require(static_cast<bool>(picture), "a picture cannot be encoded");
        return picture;
    }

private:
    TnRobotPtr<ITnRobotMemoryBlockPool> m_blocks = tn::MakeMemoryBlockPool();
    TnRobotPtr<ITnRobotSurfacePool> m_surfaces = tn::MakeSurfacePool(m_blocks.get());
};

class OurParty : public Party {
public:
    explicit OurParty(const std::string& strPath) : m_results(strPath) {}

    void Inspect(const std::vector<unsigned char>& jpeg, std::size_t nFrame, Measurements& measured) override {
        const Surface frame = m_inspector.Load(jpeg);
        Regions regions;
        MeasureAll(frame, regions, measured);
        m_results.Append(measured);
        if (nFrame % kJoinEvery == 0) {
            m_picture = m_inspector.Join(regions, measured);
        }
    }

    std::vector<unsigned char> LastPicture() const override {
        unsigned int nSize = 0;
        const unsigned char* pData = m_picture->QueryMemory(nSize);
        return {pData, pData + nSize};
    }

protected:
    const Inspector& Inspecting() const { return m_inspector; }
    virtual void MeasureAll(const Surface& frame, Regions& regions, Measurements& measured) = 0;

private:
    Inspector m_inspector;
    ResultFile m_results;
    TnRobotPtr<ITnRobotMemoryBlock> m_picture;
};

class OurLoop final : public OurParty {
public:
    using OurParty::OurParty;

protected:
    void MeasureAll(const Surface& frame, Regions& regions, Measurements& measured) override {
        const auto measure = [&](std::size_t n) { measured[n] = Inspecting().Measure(frame, n, regions[n]); };
        Require(tn::ForEach(*m_tasks, kRegions, measure, {kWorkers, tn::kNoLimit}), "a loop has not ended");
    }

private:
    TnRobotPtr<ITnRobotTaskPool> m_tasks = tn::MakeTaskPool();
};

class OurQueue final : public OurParty {
public:
    using OurParty::OurParty;

protected:
    void MeasureAll(const Surface& frame, Regions& regions, Measurements& measured) override {
        for (std::size_t n = 0; n < kRegions; ++n) {
            m_queue.Push(Item{&frame, n, &regions[n], &measured[n]});
        }
        m_queue.Wait();
    }

private:
    struct Item {
        const Surface* pFrame;
        std::size_t nRegion;
        Surface* pRegion;
        Measured* pMeasured;
    };

    TnRobotPtr<ITnRobotTaskPool> m_tasks = tn::MakeTaskPool();
    tn::WorkQueue<Item> m_queue{
        *m_tasks,
        [this](const Item& item) { *item.pMeasured = Inspecting().Measure(*item.pFrame, item.nRegion, *item.pRegion); },
        {kWorkers, kRegions, {}}};
};

class OursAlone final : public OurParty {
public:
    using OurParty::OurParty;

protected:
    void MeasureAll(const Surface& frame, Regions& regions, Measurements& measured) override {
        for (std::size_t n = 0; n < kRegions; ++n) {
            measured[n] = Inspecting().Measure(frame, n, regions[n]);
        }
    }
};

class OurWholeFrames final : public WholeFrames {
public:
    OurWholeFrames(const std::string& strPath, unsigned int nWorkers)
        : m_results(strPath),
          m_queue(*m_tasks, [this](std::size_t nFrame) { InspectOne(nFrame); }, {nWorkers, 0, {}}) {}

    void Inspect(std::size_t nFrames, std::vector<double>& milliseconds) override {
        m_pMilliseconds = &milliseconds;
        for (std::size_t n = 0; n < nFrames; ++n) {
            m_queue.Push(n);
        }
        m_queue.Wait();
    }

private:
    void InspectOne(std::size_t nFrame) {
        const auto start = std::chrono::steady_clock::now();
        const Surface frame = m_inspector.Load(Frames()[nFrame % Frames().size()]);
        Regions regions;
        Measurements measured;
        for (std::size_t n = 0; n < kRegions; ++n) {
            measured[n] = m_inspector.Measure(frame, n, regions[n]);
        }
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_results.Append(measured);
        }
        if (nFrame % kJoinEvery == 0) {
            m_inspector.Join(regions, measured);
        }
        const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - start;
        (*m_pMilliseconds)[nFrame] = passed.count();
    }

    Inspector m_inspector;
    std::mutex m_mutex;
    ResultFile m_results;  // guarded by m_mutex
    std::vector<double>* m_pMilliseconds = nullptr;
    TnRobotPtr<ITnRobotTaskPool> m_tasks = tn::MakeTaskPool();
    tn::WorkQueue<std::size_t> m_queue;
};

}  // namespace

std::unique_ptr<Party> MakeOurLoop(const std::string& strPath) {
    return std::make_unique<OurLoop>(strPath);
}

std::unique_ptr<Party> MakeOurQueue(const std::string& strPath) {
    return std::make_unique<OurQueue>(strPath);
}

std::unique_ptr<Party> MakeOursAlone(const std::string& strPath) {
    return std::make_unique<OursAlone>(strPath);
}

std::unique_ptr<WholeFrames> MakeOurWholeFrames(const std::string& strPath, unsigned int nWorkers) {
    return std::make_unique<OurWholeFrames>(strPath, nWorkers);
}

}  // namespace bench
