// The inspection of one picture, from the file to the archived measurements.

#ifndef INSPECTION_INSPECTION_H_
#define INSPECTION_INSPECTION_H_

#include <string>

#include "OutputDirectory.h"
#include "Pools.h"

/// Loads a picture, measures its regions, archives the measurements, reads them back and prints
/// them; saves each region, and the darkest and the brightest one side by side.
/// @param[in]  strName     what the names of the files begin with.
/// @param[out] strDarkest  name of the darkest region.
/// @return false, after a message, when anything fails or differs after it was read back.
bool InspectPicture(const Pools& pools, OutputDirectory& output, const std::string& strPicture,
                    const std::string& strName, std::string& strDarkest);

/// Draws the test scene, saves it as JPEG and BMP files and inspects the JPEG one.
/// @return as above; also false when the defective part was not found.
bool InspectTestScene(const Pools& pools, OutputDirectory& output);

#endif  // INSPECTION_INSPECTION_H_
