// The two kinds of cases that make up the program of the groups area.

#ifndef TNROBOTKERNEL_BENCH_GROUPS_GROUPCASES_H_
#define TNROBOTKERNEL_BENCH_GROUPS_GROUPCASES_H_

#include "BenchSupport.h"

namespace bench {

void RegisterContainerCases(Program& program);
void RegisterArchiveCases(Program& program);

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_GROUPS_GROUPCASES_H_
