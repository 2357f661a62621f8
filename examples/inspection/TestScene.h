// A picture for those who have none at hand: parts on a conveyor, one of them defective.

#ifndef INSPECTION_TESTSCENE_H_
#define INSPECTION_TESTSCENE_H_

#include <string>

#include "Pools.h"

/// Draws the scene, the same in every run: one part in each place of the grid. They cover equal
/// areas, except for the defective one, whose place is therefore the darkest.
/// @return empty on failure.
TnRobotPtr<ITnRobotSurface> DrawTestScene(const Pools& pools);

/// @return name of the region where the defective part lies.
std::string DefectiveRegion();

#endif  // INSPECTION_TESTSCENE_H_
