// Blocks of both pools and streams over them: filled with a pattern, held for a while, compared.

#include <algorithm>
#include <vector>

#include "soak/Workshop.h"
#include "support/bytes/Bytes.h"
#include "support/objects/Memory.h"

using namespace tntest;

namespace tnsoak {

namespace {

constexpr unsigned int kMostHeld = 6;

// Takes some blocks, fills them all, and only then looks whether they still are what they were.
void UsePool(Worker& worker, ITnRobotMemoryBlockPool& pool, unsigned int nLargest) {
    struct Taken {
        HeldBlock block;
        unsigned int nSize;
        unsigned int nSeed;
    };
    std::vector<Taken> taken;
    const unsigned int nBlocks = worker.Size(1, kMostHeld);
    while (taken.size() < nBlocks) {
        const unsigned int nSize = worker.Size(1, nLargest);
        HeldBlock block = Query(pool, nSize);
        if (block == nullptr) {
            continue;  // another thread was faster: the pool says so, and is asked again
        }
        const unsigned int nSeed = worker.Size(0, 255);
        Insist(SizeOf(*block) == nSize, "a block has another size than asked");
        FillPattern(*block, nSeed);
        taken.push_back({std::move(block), nSize, nSeed});
    }
    std::shuffle(taken.begin(), taken.end(), worker.random);
    for (const Taken& one : taken) {
        Insist(HasPattern(*one.block, one.nSeed), "a block's content has changed");
    }
}

void UseStream(Worker& worker) {
    ITnRobotMemDataStream* pStream = nullptr;
    Require(TnCreateRobotMemDataStream(worker.shop.blocks.get(), &pStream) == 1, "no stream");
    const TnRobotPtr<ITnRobotMemDataStream> stream(pStream, tn::kAdopt);
    Bytes written(worker.Size(1, 1500000));
    for (std::size_t n = 0; n < written.size(); ++n) {
        written[n] = static_cast<unsigned char>(n * 13 + (n >> 9));
    }
    const unsigned int nFirst = worker.Size(0, static_cast<unsigned int>(written.size()));
    const unsigned int nSecond = static_cast<unsigned int>(written.size()) - nFirst;
    Require(stream->WriteData(written.data(), nFirst) == 0, "the stream takes nothing");
    Require(stream->WriteData(written.data() + nFirst, nSecond) == 0, "the stream takes nothing more");
    std::size_t nRead = 0;
    unsigned int nSize = 0;
    stream->BeginReadData();
    while (const unsigned char* pPiece = stream->ReadData(nSize)) {
        Insist(nRead + nSize <= written.size(), "the stream delivers too much");
        Insist(std::equal(pPiece, pPiece + nSize, written.data() + nRead), "the stream's content has changed");
        nRead += nSize;
    }
    stream->EndReadData();
    Insist(nRead == written.size(), "the stream ends early");
}

}  // namespace

void UseGeneralPool(Worker& worker) {
    if (worker.Number(1, 16) == 1) {
        UseStream(worker);
        worker.shop.blocks->FreeUnuseMemory();
        return;
    }
    constexpr unsigned int kLargest = 128 * 1024;
    UsePool(worker, *worker.shop.blocks, kLargest);
}

void UseCirclePool(Worker& worker) {
    constexpr unsigned int kLargest = 64 * 1024;
    UsePool(worker, *worker.shop.circle, kLargest);
}

}  // namespace tnsoak
