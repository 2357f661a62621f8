// Measures the brightness of regions, side by side.

#ifndef INSPECTION_BRIGHTNESS_H_
#define INSPECTION_BRIGHTNESS_H_

#include <vector>

#include "Measurement.h"
#include "Picture.h"

/// Measures all regions, as many at the same time as there are processors.
/// @param[out] measurements  one for each region, in the same order.
/// @return false, after a message, when some were not even begun within the limit.
bool MeasureRegions(const Pools& pools, const std::vector<Region>& regions, std::vector<Measurement>& measurements);

#endif  // INSPECTION_BRIGHTNESS_H_
