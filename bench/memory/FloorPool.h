// What a recycled block costs at the very least, written by hand.

#ifndef TNROBOTKERNEL_BENCH_MEMORY_FLOORPOOL_H_
#define TNROBOTKERNEL_BENCH_MEMORY_FLOORPOOL_H_

#include <time.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace bench {

/// The system clock as of the last tick of the kernel's timer, without reading the hardware.
struct CoarseClock {
    using time_point = std::chrono::nanoseconds;
    static time_point now() {
        timespec time = {};
        clock_gettime(CLOCK_REALTIME_COARSE, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }
};

/// A pool with the locks, counts and the order of reuse that the library's callers rely on, and with
/// nothing else: no interface, no map, no set of all blocks, no checks of what comes back.
///
/// One query and return hold exactly: the general lock, under which a table is indexed; the size
/// class's lock, under which the last free block is taken and its count raised; the lowering of the
/// count; the size class's lock again, under which the clock is read and the block put back.
template <typename Clock>
class FloorPool {
private:
    struct SizeClass;

public:
    class Block;

    FloorPool() : m_classes(kClasses) {
        for (auto& sizeClass : m_classes) {
            sizeClass = std::make_unique<SizeClass>();
        }
    }

    Block* Take(unsigned int nSize) {
        SizeClass* pClass = nullptr;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            pClass = m_classes[(nSize + kUnit - 1) / kUnit].get();
        }
        const std::lock_guard<std::mutex> lock(pClass->m_mutex);
        if (pClass->m_free.empty()) {
            pClass->MakeBlock((nSize + kUnit - 1) / kUnit * kUnit);
        }
        Block* pBlock = pClass->m_free.back();
        pClass->m_free.pop_back();
        pBlock->m_nCount.fetch_add(1);
        return pBlock;
    }

    class Block {
    public:
        void Release() {
            if (m_nCount.fetch_sub(1) == 2) {
                const std::lock_guard<std::mutex> lock(m_pClass->m_mutex);
                m_returned = Clock::now();
                m_pClass->m_free.push_back(this);
            }
        }
        unsigned char* Bytes() { return m_bytes.get(); }

    private:
        friend class FloorPool;
        std::atomic<int> m_nCount{1};
        std::unique_ptr<unsigned char[]> m_bytes;
        SizeClass* m_pClass = nullptr;
        typename Clock::time_point m_returned{};
    };

private:
    static constexpr unsigned int kUnit = 32768;
    static constexpr std::size_t kClasses = (24U << 20) / kUnit + 1;

    struct alignas(64) SizeClass {
        void MakeBlock(unsigned int nSize) {
            m_all.push_back(std::make_unique<Block>());
            Block& block = *m_all.back();
            block.m_bytes.reset(new unsigned char[nSize]);
            block.m_pClass = this;
            m_free.push_back(&block);
        }

        std::mutex m_mutex;
        std::vector<Block*> m_free;
        std::vector<std::unique_ptr<Block>> m_all;
    };

    std::mutex m_mutex;
    std::vector<std::unique_ptr<SizeClass>> m_classes;
};

/// The floor as a party beside the allocators.
template <typename Clock>
struct FloorParty {
    using Handle = typename FloorPool<Clock>::Block*;
    inline static FloorPool<Clock> s_pool;
    static Handle Take(unsigned int nSize) { return s_pool.Take(nSize); }
    static void GiveBack(Handle pBlock) { pBlock->Release(); }
    static unsigned char* Bytes(Handle pBlock) { return pBlock->Bytes(); }
};

struct Floor : FloorParty<std::chrono::system_clock> {
    static constexpr const char* kParty = "floor_pool";
};
struct CoarseFloor : FloorParty<CoarseClock> {
    static constexpr const char* kParty = "floor_pool_coarse_clock";
};

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_MEMORY_FLOORPOOL_H_
