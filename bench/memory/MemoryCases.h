// The groups of cases that make up the program of the memory area.

#ifndef TNROBOTKERNEL_BENCH_MEMORY_MEMORYCASES_H_
#define TNROBOTKERNEL_BENCH_MEMORY_MEMORYCASES_H_

#include "memory/Allocators.h"

namespace bench {

void RegisterBlockCases(Program& program, const FoundAllocators& found);
void RegisterCircleCases(const FoundAllocators& found);
void RegisterStreamCases();

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_MEMORY_MEMORYCASES_H_
