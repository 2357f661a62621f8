// A block pool of one's own in front of another: how much memory does a stream ask for?

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <utility>

namespace {

// [counting]
// A pool of our own in front of another one: counts what is asked for.
class CountingPool final : public ITnRobotMemoryBlockPool {
public:
    explicit CountingPool(TnRobotPtr<ITnRobotMemoryBlockPool> source) : m_source(std::move(source)) {}

    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) override {
        ++m_nRequests;
        m_nBytes += nSize;
        return m_source->QueryMemBuff(nSize, ppBlock);
    }
    void FreeUnuseMemory() override { m_source->FreeUnuseMemory(); }

    unsigned int Requests() const { return m_nRequests; }
    unsigned long long Bytes() const { return m_nBytes; }

private:
    TnRobotPtr<ITnRobotMemoryBlockPool> m_source;
    unsigned int m_nRequests = 0;
    unsigned long long m_nBytes = 0;
};
// [/counting]

}  // namespace

int main() {
    // [statistics]
    const auto pool = tn::MakeObject<CountingPool>(tn::MakeMemoryBlockPool());
    const auto stream = tn::MakeMemDataStream(pool.get());
    const unsigned char szText[] = "a stream takes whole blocks of 1 MiB";
    for (int i = 0; i < 100; ++i) {
        stream->WriteData(szText, sizeof(szText));
    }
    std::printf("counted: %u bytes in the stream, %u request for %llu bytes\n", stream->GetTotleLength(),
                pool->Requests(), pool->Bytes());
    // [/statistics]
    return pool->Requests() == 1 ? 0 : 1;
}
