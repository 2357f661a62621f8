/// @file
/// All that stands above the library's interfaces, in headers only: namespace tn and TnRobotPtr. opencv.h
/// needs more than the library and is included on its own.

#ifndef TNROBOTKERNEL_TN_TN_H_
#define TNROBOTKERNEL_TN_TN_H_

#include "TnRobotKernel/make.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/tn/cancel.h"
#include "TnRobotKernel/tn/durability.h"
#include "TnRobotKernel/tn/error.h"
#include "TnRobotKernel/tn/for_each.h"
#include "TnRobotKernel/tn/group_files.h"
#include "TnRobotKernel/tn/groups.h"
#include "TnRobotKernel/tn/limited_pool.h"
#include "TnRobotKernel/tn/objects.h"
#include "TnRobotKernel/tn/pictures.h"
#include "TnRobotKernel/tn/pixels.h"
#include "TnRobotKernel/tn/run.h"
#include "TnRobotKernel/tn/saving.h"
#include "TnRobotKernel/tn/surfaces.h"
#include "TnRobotKernel/tn/work_queue.h"

#endif  // TNROBOTKERNEL_TN_TN_H_
