// Where blocks come from: the general pool and the circular pool.

#include <TnRobotKernel/make.h>

#include <cstdio>

namespace {

const char* YesOrNo(bool bYes) {
    return bYes ? "yes" : "no";
}

unsigned char* Data(ITnRobotMemoryBlock& block) {
    unsigned int nSize = 0;
    return block.QueryMemory(nSize);
}

void ShowGeneral() {
    // [general]
    const auto pool = tn::MakeMemoryBlockPool();
    auto block = tn::QueryMemBuff(*pool, 100000);
    unsigned int nSize = 0;
    const unsigned char* pFirst = block->QueryMemory(nSize);
    std::printf("general: asked for 100000 bytes, got %u\n", nSize);

    block.reset();                            // back to the pool
    block = tn::QueryMemBuff(*pool, 120000);  // 98305 to 131072 bytes share one size class
    std::printf("the same memory for 120000 bytes: %s\n", YesOrNo(Data(*block) == pFirst));
    const auto other = tn::QueryMemBuff(*pool, 120000);
    std::printf("while that is in use: %s\n", YesOrNo(Data(*other) == pFirst));
    // [/general]
}

void ShowCircular() {
    // [circular]
    const auto pool = tn::MakeCircleMemoryBlockPool();
    const auto first = tn::QueryMemBuff(*pool, 1000);
    const auto second = tn::QueryMemBuff(*pool, 1000);
    std::printf("circular: the second block lies %d bytes after the first\n",
                static_cast<int>(Data(*second) - Data(*first)));
    const auto tooLarge = tn::QueryMemBuff(*pool, 24 * 1024 * 1024 + 1);
    std::printf("more than 24 MiB: %s\n", tooLarge ? "a block" : "no block");
    // [/circular]
}

}  // namespace

int main() {
    ShowGeneral();
    ShowCircular();
}
