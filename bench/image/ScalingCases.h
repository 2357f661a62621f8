// Pictures from 64 x 64 to 16,384 x 16,384.

#ifndef TNROBOTKERNEL_BENCH_IMAGE_SCALINGCASES_H_
#define TNROBOTKERNEL_BENCH_IMAGE_SCALINGCASES_H_

#include "BenchSupport.h"

namespace bench {

void RegisterScalingCases(const Program& program);

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_IMAGE_SCALINGCASES_H_
