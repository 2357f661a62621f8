// Bytes that grow in memory without being moved, and a value made of them.

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <vector>

int main() {
    // [stream]
    const auto pool = tn::MakeMemoryBlockPool();
    const auto stream = tn::MakeMemDataStream(pool.get());
    const std::vector<unsigned char> bytes(1500000, 7);
    if (stream->WriteData(bytes.data(), static_cast<unsigned int>(bytes.size())) != 0) {
        return 1;
    }
    std::printf("stream of %u bytes:", stream->GetTotleLength());
    stream->BeginReadData();
    unsigned int nSize = 0;
    while (stream->ReadData(nSize) != nullptr) {  // piece by piece, nothing is copied
        std::printf(" %u", nSize);
    }
    stream->EndReadData();
    std::printf("\n");
    // [/stream]

    // [value]
    const auto value = tn::MakeBlockData(stream.get());  // copies everything into one piece
    value->BlockData(nSize, nullptr);
    std::printf("block value of %u bytes\n", nSize);
    // [/value]
    return 0;
}
