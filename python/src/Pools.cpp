// Pools of blocks, and the buffers of blocks.

#include "Pools.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>

#include "Errors.h"
#include "Seconds.h"
#include "TnRobotKernel/make.h"

namespace tnrobot::python {

namespace {

constexpr std::chrono::milliseconds kStep{20};

// A block of a pool. It holds its pool too: those of a circular one have no memory of their own.
class Block final : public Bound {
public:
    Block(TnRobotPtr<ITnRobotMemoryBlockPool> pool, TnRobotPtr<ITnRobotMemoryBlock> block)
        : m_pool(std::move(pool)), m_block(std::move(block)) {
        m_pBytes = m_block->QueryMemory(m_nBytes);
    }

    unsigned char* Bytes() const { return m_pBytes; }
    unsigned int Size() const { return m_nBytes; }

private:
    TnRobotPtr<ITnRobotMemoryBlockPool> m_pool;
    TnRobotPtr<ITnRobotMemoryBlock> m_block;
    unsigned char* m_pBytes = nullptr;
    unsigned int m_nBytes = 0;
};

int GetBuffer(PyObject* pSelf, Py_buffer* pView, int nFlags) {
    static unsigned char s_byNothing = 0;
    try {
        const auto& block = py::handle(pSelf).cast<const Block&>();
        void* pBytes = block.Bytes() != nullptr ? block.Bytes() : &s_byNothing;
        return PyBuffer_FillInfo(pView, pSelf, pBytes, block.Size(), 0, nFlags);
    } catch (const std::exception& failure) {
        PyErr_SetString(PyExc_BufferError, failure.what());
        return -1;
    }
}

class GeneralPool final : public BlockPool {
public:
    GeneralPool() : BlockPool(tn::MakeMemoryBlockPool()) {}
};

class CircularPool final : public BlockPool {
public:
    CircularPool() : BlockPool(tn::MakeCircleMemoryBlockPool()) {}
};

class LimitedPool final : public BlockPool {
public:
    LimitedPool(unsigned long long nMostBytes, const BlockPool* pSource, const py::object& wait, unsigned int nUnit)
        : LimitedPool(tn::MakeObject<PatientPool>(
              pSource != nullptr ? TnRobotPtr<ITnRobotMemoryBlockPool>(&pSource->Get(), tn::kRetain)
                                 : tn::MakeMemoryBlockPool(),
              nMostBytes, LimitOf(wait), nUnit)) {}

    py::tuple Counters() const {
        Get();
        const tn::LimitedPoolCounters counters = m_limited->Counters();
        return py::make_tuple(counters.nLiveBlocks, counters.nLiveBytes, counters.nHighWater, counters.nRequests,
                              counters.nRefusals, counters.nWaitingNow, counters.nMostBytes);
    }

private:
    explicit LimitedPool(const TnRobotPtr<PatientPool>& pool) : BlockPool(pool), m_limited(pool) {}

    TnRobotPtr<PatientPool> m_limited;
};

// As tn::QueryMemBuff, which does not know that a PatientPool tells its reason.
TnRobotPtr<ITnRobotMemoryBlock> Query(ITnRobotMemoryBlockPool& pool, unsigned int nSize, std::error_code& reason) {
    auto* pPatient = dynamic_cast<PatientPool*>(&pool);
    if (pPatient == nullptr) {
        return tn::QueryMemBuff(pool, nSize, reason);
    }
    TnRobotPtr<ITnRobotMemoryBlock> block;
    pPatient->QueryMemBuff(nSize, block.put(), reason);
    return block;
}

std::unique_ptr<Block> NewBlock(const BlockPool& pool, const py::object& size) {
    ITnRobotMemoryBlockPool& source = pool.Get();
    const auto number = py::reinterpret_steal<py::object>(CallPython([&] { return PyNumber_Index(size.ptr()); }));
    if (!number) {
        throw py::error_already_set();
    }
    const Py_ssize_t nSize = PyLong_AsSsize_t(number.ptr());
    if (nSize == -1 && PyErr_Occurred() != nullptr) {
        throw py::error_already_set();
    }
    if (nSize < 1 || nSize > std::numeric_limits<unsigned int>::max()) {
        Raise(PyExc_ValueError, "a block has 1 to 4294934528 bytes");
    }
    std::error_code reason;
    TnRobotPtr<ITnRobotMemoryBlock> block;
    {
        const WithoutGil others;
        block = Query(source, static_cast<unsigned int>(nSize), reason);
        if (block) {
            // Memory of a pool holds what was there before, maybe of another program's part.
            unsigned int nBytes = 0;
            unsigned char* pBytes = block->QueryMemory(nBytes);
            std::memset(pBytes, 0, nBytes);
        }
    }
    if (!block && PyErr_Occurred() == nullptr && reason == std::errc::resource_unavailable_try_again) {
        Raise(PyExc_MemoryError, "the pool has no room for the block now");
    }
    if (!block && PyErr_Occurred() == nullptr && reason == std::errc::value_too_large) {
        Raise(PyExc_MemoryError, "the pool never has a block of this size");
    }
    Check(reason);
    return std::make_unique<Block>(TnRobotPtr<ITnRobotMemoryBlockPool>(&source, tn::kRetain), std::move(block));
}

void FreeUnused(const BlockPool& pool) {
    ITnRobotMemoryBlockPool& source = pool.Get();
    const WithoutGil others;
    source.FreeUnuseMemory();
}

void SetBufferProtocol(PyHeapTypeObject* pType) {
    pType->ht_type.tp_as_buffer = &pType->as_buffer;
    pType->as_buffer.bf_getbuffer = &GetBuffer;
    pType->as_buffer.bf_releasebuffer = nullptr;
}

}  // namespace

PatientPool::PatientPool(TnRobotPtr<ITnRobotMemoryBlockPool> source, unsigned long long nMostBytes,
                         std::chrono::milliseconds wait, unsigned int nUnit)
    : m_wait(wait), m_pool(tn::MakeLimitedPool(std::move(source), {nMostBytes, std::min(wait, kStep), nUnit})) {}

int PatientPool::QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
    std::error_code ignored;
    return QueryMemBuff(nSize, ppBlock, ignored);
}

int PatientPool::QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock, std::error_code& ec) {
    const auto end = tn::detail::After(m_wait);
    for (;;) {
        const int nResult = m_pool->QueryMemBuff(nSize, ppBlock, ec);
        if (nResult == 1 || ec != std::errc::resource_unavailable_try_again || tn::detail::Clock::now() >= end ||
            !SignalsAllowWaiting()) {
            return nResult;
        }
        ++m_nRepeated;
    }
}

tn::LimitedPoolCounters PatientPool::Counters() const {
    const unsigned long long nRepeated = m_nRepeated;
    tn::LimitedPoolCounters counters = m_pool->Counters();
    counters.nRequests -= std::min(nRepeated, counters.nRequests);
    counters.nRefusals -= std::min(nRepeated, counters.nRefusals);
    return counters;
}

ITnRobotMemoryBlockPool& BlockPool::Get() const {
    if (!m_pool) {
        throw py::value_error("this pool has no memory: its __init__ was never called");
    }
    return *m_pool;
}

void BindPools(py::module_& module) {
    py::class_<Block>(module, "Block", py::custom_type_setup(&SetBufferProtocol),
                      R"(Memory of a pool, as a writable buffer: memoryview(block), numpy.frombuffer(block, ...).

It begins as zeros, and goes back to its pool when neither the block nor a view of it is left.)")
        .def("__len__", &Block::Size, "How many bytes it has.")
        .def("__repr__", [](const Block& block) { return "<Block of " + std::to_string(block.Size()) + " bytes>"; });

    py::class_<BlockPool>(module, "BlockPool", "What all block pools can do.")
        .def("block", &NewBlock, py::arg("size"),
             R"(Hand out a block of so many bytes, 1 to 4294934528, which are zero.

MemoryError where the pool has no room for it, and none comes in time.)")
        .def("free_unused", &FreeUnused,
             "Give memory that has lain unused for a while back to the system. Nothing does that by itself.");
    py::class_<GeneralPool, BlockPool>(module, "GeneralPool", "Blocks of any size, recycled. For nearly everything.")
        .def(py::init<>());
    py::class_<CircularPool, BlockPool>(module, "CircularPool",
                                        "Blocks that live shortly and are given back in about the order they came.")
        .def(py::init<>());
    py::class_<LimitedPool, BlockPool>(module, "LimitedPool",
                                       R"(A pool in front of another one that never has more bytes in use than it may.

A request that finds no room waits for it, at most ``wait`` seconds (None: as long as it takes), in which Ctrl-C
is heard. Blocks count as a whole number of ``unit`` bytes.)")
        .def(py::init<unsigned long long, const BlockPool*, py::object, unsigned int>(), py::arg("most_bytes"),
             py::arg("source") = py::none(), py::arg("wait") = 0.0, py::arg("unit") = 1U)
        .def("_counters", &LimitedPool::Counters);
}

}  // namespace tnrobot::python
