#include "BrightnessRunner.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

namespace {

constexpr unsigned int kLimitMs = 2000;     // results that come later are marked
constexpr unsigned int kGiveUpMs = 120000;  // nothing is waited for any longer

// Weights of blue, green and red, as the eye sees them; their sum is 256.
constexpr int kBlue = 29;
constexpr int kGreen = 150;
constexpr int kRed = 77;

int Brightness(const unsigned char* pPixel) {
    return (kBlue * pPixel[0] + kGreen * pPixel[1] + kRed * pPixel[2]) / 256;
}

// @return false when the run was ended before all rows had been looked at.
bool Measure(ITnRobotSurface& region, ITnRobotEvent& runEvent, Measurement& measurement) {
    const tn::LockedPixels pixels(region);
    long long nSum = 0;
    int nMinimum = 255;
    int nMaximum = 0;
    for (int nRow = 0; nRow < pixels.Height(); ++nRow) {
        if (!runEvent.WaitEvent(0)) {
            return false;
        }
        const unsigned char* pPixel = pixels.Row(nRow);
        for (int nColumn = 0; nColumn < pixels.Width(); ++nColumn, pPixel += kBytesPerPixel) {
            const int nBrightness = Brightness(pPixel);
            nSum += nBrightness;
            nMinimum = std::min(nMinimum, nBrightness);
            nMaximum = std::max(nMaximum, nBrightness);
        }
    }
    measurement.dMean = static_cast<double>(nSum) / pixels.Width() / pixels.Height();
    measurement.nMinimum = nMinimum;
    measurement.nMaximum = nMaximum;
    return true;
}

// @return the running task, empty on failure. It keeps the runner alive.
TnRobotPtr<ITnRobotTask> StartTask(const Pools& pools, const TnRobotPtr<BrightnessRunner>& runner) {
    auto task = tn::CreateTask(*pools.Tasks(), runner.get());
    return task && task->Start() ? std::move(task) : nullptr;
}

}  // namespace

// The measurement is complete before it is counted: the waiting thread may read it at once. A run
// that is being ended counts nothing, and nobody reads what it leaves behind.
void BrightnessRunner::Execute(ITnRobotEvent* pRunEvent) {
    const auto start = std::chrono::steady_clock::now();
    m_bDone = true;
    if (!Measure(*m_pRegion->surface, *pRunEvent, *m_pMeasurement)) {
        return;
    }
    m_pMeasurement->strRegion = m_pRegion->strName;
    m_pMeasurement->dMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    m_pMeasurement->bWithinLimit = m_pProgress->IsWithinLimit();
    m_pProgress->FinishOne();
}

void BrightnessRunner::Copy(ITnRobotTaskRunner* pRunner) {
    if (const auto* pOther = dynamic_cast<BrightnessRunner*>(pRunner)) {
        m_pRegion = pOther->m_pRegion;
        m_pProgress = pOther->m_pProgress;
        m_pMeasurement = pOther->m_pMeasurement;
    }
}

ITnRobotTaskRunner* BrightnessRunner::Clone() {
    return new BrightnessRunner(*m_pRegion, *m_pProgress, *m_pMeasurement);
}

// The tasks are declared last and therefore given back first, which waits for their jobs: on every
// way out, nobody uses the progress or the measurements any more when they go.
bool MeasureRegions(const Pools& pools, const std::vector<Region>& regions, std::vector<Measurement>& measurements) {
    measurements.assign(regions.size(), Measurement());
    Progress progress(regions.size(), kLimitMs);
    std::vector<TnRobotPtr<ITnRobotTask>> tasks;
    for (std::size_t i = 0; i < regions.size(); ++i) {
        tasks.push_back(StartTask(pools, tn::MakeObject<BrightnessRunner>(regions[i], progress, measurements[i])));
        if (!tasks.back()) {
            std::fprintf(stderr, "cannot measure %s\n", regions[i].strName.c_str());
            return false;
        }
    }
    if (!progress.Wait(kGiveUpMs)) {
        std::fprintf(stderr, "the measuring did not end\n");
        return false;
    }
    return true;
}
