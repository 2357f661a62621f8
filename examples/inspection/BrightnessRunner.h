// Measures the brightness of regions, each in a task of its own.

#ifndef INSPECTION_BRIGHTNESSRUNNER_H_
#define INSPECTION_BRIGHTNESSRUNNER_H_

#include <vector>

#include "Measurement.h"
#include "Picture.h"
#include "Progress.h"

/// Measures one region, once for each start. The task calls everything from its own thread.
class BrightnessRunner final : public ITnRobotTaskRunner {
public:
    /// All three are borrowed. They must outlive the run, but not the runner, which an idle task
    /// keeps until it gets another.
    BrightnessRunner(const Region& region, Progress& progress, Measurement& measurement)
        : m_pRegion(&region), m_pProgress(&progress), m_pMeasurement(&measurement) {}

    void Init() override { m_bDone = false; }
    void Execute(ITnRobotEvent* pRunEvent) override;
    void ClearResource() override {}
    bool IsStop() override { return m_bDone; }

    void Copy(ITnRobotTaskRunner* pRunner) override;
    ITnRobotTaskRunner* Clone() override;

private:
    const Region* m_pRegion;
    Progress* m_pProgress;
    Measurement* m_pMeasurement;
    bool m_bDone = false;
};

/// Measures all regions at the same time.
/// @param[out] measurements  one for each region, in the same order.
/// @return false, after a message, when a task could not be started or did not end.
bool MeasureRegions(const Pools& pools, const std::vector<Region>& regions, std::vector<Measurement>& measurements);

#endif  // INSPECTION_BRIGHTNESSRUNNER_H_
