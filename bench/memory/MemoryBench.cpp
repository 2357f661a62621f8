// Memory blocks beside allocators and the floor of their own contract, the data stream beside copies.

#include "memory/MemoryCases.h"

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "memory", "Memory");
    const bench::FoundAllocators found(program);
    // The stream comes first, while the C library still gives each of its blocks a mapping of its own
    // and with it the same place within a cache line.
    bench::RegisterStreamCases();
    bench::RegisterBlockCases(program, found);
    bench::RegisterCircleCases(found);
    return program.Run();
}
