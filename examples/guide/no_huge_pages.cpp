// A program that would rather have the memory than the speed of huge pages.

#include <sys/prctl.h>

#include <cstdio>

#include "TnRobotKernel/make.h"

int main() {
    // [switch]
    if (prctl(PR_SET_THP_DISABLE, 1UL, 0UL, 0UL, 0UL) != 0) {
        std::perror("huge pages stay on");
    }
    const auto pool = tn::MakeMemoryBlockPool();
    // [/switch]
    const auto block = tn::QueryMemBuff(*pool, 6 * 1024 * 1024);
    std::printf("a block without huge pages: %s\n", block ? "yes" : "no");
    return block ? 0 : 1;
}
