// The search for the rectangle with the largest area.

#ifndef TNROBOTKERNEL_SRC_UTILS_TNLARGESTAREA_H_
#define TNROBOTKERNEL_SRC_UTILS_TNLARGESTAREA_H_

#include "TnRobotKernel/utilities.h"

namespace tnrobot {

/// Compares areas in 32 bits, as callers know them: a larger one wraps and may count as negative.
/// @param[in] pRects  nCount rectangles, at least one.
/// @return index of the first of the largest.
unsigned int FindLargestArea(const STnNLRect* pRects, unsigned int nCount);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_UTILS_TNLARGESTAREA_H_
