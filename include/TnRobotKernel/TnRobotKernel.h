/// @file
/// The whole public interface of the library; ptr.h, make.h, tn/ and opencv.h are included on their own.

#ifndef TNROBOTKERNEL_TNROBOTKERNEL_H_
#define TNROBOTKERNEL_TNROBOTKERNEL_H_

#include "TnRobotKernel/archive.h"
#include "TnRobotKernel/concurrency.h"
#include "TnRobotKernel/core.h"
#include "TnRobotKernel/image.h"
#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/pool.h"
#include "TnRobotKernel/utilities.h"
#include "TnRobotKernel/values.h"

#endif  // TNROBOTKERNEL_TNROBOTKERNEL_H_
