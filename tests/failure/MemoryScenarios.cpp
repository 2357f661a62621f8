// Blocks, pools, streams and files without memory.

#include <algorithm>
#include <cstring>
#include <vector>

#include "failure/AllocationScenario.h"
#include "memory/TnRobotCircleMemBlockPool.h"
#include "memory/TnRobotFixedMemBlockPool.h"
#include "support/bytes/Bytes.h"
#include "support/bytes/FileBytes.h"
#include "support/objects/Files.h"
#include "support/objects/Memory.h"
#include "support/processes/TempDirectory.h"

namespace tntest {

namespace {

constexpr unsigned int kUnit = 32768;
constexpr unsigned int kMebibyte = 1048576;

Bytes SomeBytes(std::size_t nCount) {
    Bytes bytes(nCount);
    for (std::size_t i = 0; i < nCount; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 7 + (i >> 8));
    }
    return bytes;
}

bool Usable(ITnRobotMemoryBlock* pBlock, unsigned int nSize) {
    if (pBlock == nullptr || SizeOf(*pBlock) != nSize) {
        return false;
    }
    FillPattern(*pBlock, nSize);
    return HasPattern(*pBlock, nSize);
}

/// The first and the last bytes of a block, which its neighbours would overwrite first.
template <typename Work>
void ForBothEnds(ITnRobotMemoryBlock& block, Work work) {
    constexpr unsigned int kEnd = 1000;
    unsigned int nSize = 0;
    unsigned char* pData = block.QueryMemory(nSize);
    for (unsigned int n = 0; n < nSize; n = n == kEnd && nSize > 2 * kEnd ? nSize - kEnd : n + 1) {
        work(pData[n], static_cast<unsigned char>(nSize * 31 + n * 7));
    }
}

/// Blocks that are held, each with a pattern of its own.
class HeldBlocks {
public:
    explicit HeldBlocks(std::size_t nMost) { m_blocks.reserve(nMost); }

    bool Take(ITnRobotMemoryBlockPool& pool, unsigned int nSize) {
        ITnRobotMemoryBlock* pBlock = nullptr;
        if (pool.QueryMemBuff(nSize, &pBlock) != 1 || pBlock == nullptr) {
            return false;
        }
        m_blocks.emplace_back(pBlock, tn::kAdopt);
        ForBothEnds(*pBlock, [](unsigned char& by, unsigned char byPattern) { by = byPattern; });
        return true;
    }

    /// Whether every block has the size and the bytes that it was given: none lies in another.
    bool AreIntact(const std::vector<unsigned int>& sizes) const {
        bool bIntact = true;
        for (std::size_t i = 0; i < m_blocks.size(); ++i) {
            bIntact = bIntact && SizeOf(*m_blocks[i]) == sizes[i];
            ForBothEnds(*m_blocks[i],
                        [&](unsigned char by, unsigned char byPattern) { bIntact = bIntact && by == byPattern; });
        }
        return bIntact;
    }

    std::size_t Count() const { return m_blocks.size(); }

private:
    std::vector<HeldBlock> m_blocks;
};

/// Takes blocks of the given sizes from a pool, and goes on where it was stopped.
class TakesBlocks : public AllocationScenario {
public:
    using CreatePool = int (*)(ITnRobotMemoryBlockPool**);

    TakesBlocks(CreatePool pfnCreate, std::vector<unsigned int> sizes)
        : m_sizes(std::move(sizes)), m_held(m_sizes.size()) {
        ITnRobotMemoryBlockPool* pPool = nullptr;
        EXPECT_EQ(pfnCreate(&pPool), 1);
        m_pool.attach(pPool);
    }

    bool Attempt() override {
        while (m_held.Count() < m_sizes.size()) {
            if (!m_held.Take(*m_pool, m_sizes[m_held.Count()])) {
                return false;
            }
        }
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(m_held.AreIntact(m_sizes));
        EXPECT_TRUE(bDone || Attempt()) << "the pool serves again";
        EXPECT_EQ(m_held.Count(), m_sizes.size());
        EXPECT_TRUE(m_held.AreIntact(m_sizes));
    }

private:
    std::vector<unsigned int> m_sizes;
    HeldPool m_pool;
    HeldBlocks m_held;
};

class FixedPoolHandsOutBlocks : public AllocationScenario {
public:
    FixedPoolHandsOutBlocks() {
        m_blocks.reserve(kBlocks);
        CTnRobotFixedMemBlockPool* pPool = nullptr;
        EXPECT_EQ(CTnRobotFixedMemBlockPool::CreateInstance(100, kBlocks, 0.0, &pPool), 1);
        m_pool = tn::Adopt(pPool);
    }

    bool Attempt() override {
        while (m_blocks.size() < kBlocks) {
            ITnRobotMemoryBlock* pBlock = nullptr;
            if (m_pool->QueryBlock(&pBlock) != 1) {
                return false;
            }
            m_blocks.emplace_back(pBlock, tn::kAdopt);
        }
        return true;
    }

    // A block that could not be made does not count against the maximum.
    void Check(bool bDone) override {
        EXPECT_EQ(m_pool->GetCount(), m_blocks.size());
        EXPECT_TRUE(bDone || Attempt());
        for (const HeldBlock& block : m_blocks) {
            EXPECT_TRUE(Usable(block.get(), 100));
        }
        m_blocks.clear();
        m_pool->FreeUnuseMemory();
        EXPECT_EQ(m_pool->GetCount(), 0U);
    }

private:
    static constexpr unsigned int kBlocks = 20;
    TnRobotPtr<CTnRobotFixedMemBlockPool> m_pool;
    std::vector<HeldBlock> m_blocks;
};

class StreamIsWritten : public AllocationScenario {
public:
    StreamIsWritten() : m_bytes(SomeBytes(2 * kMebibyte + 5)), m_pool(MakePool()) {
        ITnRobotMemDataStream* pStream = nullptr;
        EXPECT_EQ(TnCreateRobotMemDataStream(m_pool.get(), &pStream), 1);
        m_stream = tn::Adopt(pStream);
    }

    bool Attempt() override {
        return m_stream->WriteData(m_bytes.data(), static_cast<unsigned int>(m_bytes.size())) == 0;
    }

    // What found room is kept, and writing goes on behind it.
    void Check(bool bDone) override {
        const std::size_t nKept = m_stream->GetTotleLength();
        EXPECT_TRUE(bDone ? nKept == m_bytes.size() : nKept < m_bytes.size());
        EXPECT_EQ(m_stream->WriteData(m_bytes.data() + nKept, static_cast<unsigned int>(m_bytes.size() - nKept)), 0);
        EXPECT_TRUE(Content() == m_bytes);
        m_stream->Clear();
        EXPECT_EQ(m_stream->WriteData(m_bytes.data(), 10), 0);
        EXPECT_EQ(Content(), Bytes(m_bytes.begin(), m_bytes.begin() + 10));
    }

private:
    Bytes Content() {
        Bytes content;
        unsigned int nSize = 0;
        m_stream->BeginReadData();
        while (const unsigned char* pPiece = m_stream->ReadData(nSize)) {
            content.insert(content.end(), pPiece, pPiece + nSize);
        }
        m_stream->EndReadData();
        return content;
    }

    Bytes m_bytes;
    HeldPool m_pool;
    TnRobotPtr<ITnRobotMemDataStream> m_stream;
};

/// A memory file in small chunks.
class MemFileScenario : public AllocationScenario {
public:
    MemFileScenario() : m_bytes(SomeBytes(100)) {}

protected:
    static constexpr long long kChunk = 16;

    Bytes Content() {
        long long nLength = 0;
        EXPECT_TRUE(m_file->GetMemData(nullptr, nLength));
        Bytes content(static_cast<std::size_t>(nLength));
        EXPECT_TRUE(m_file->GetMemData(reinterpret_cast<char*>(content.data()), nLength));
        return content;
    }

    Bytes m_bytes;
    TnRobotPtr<ITnRobotMemFile> m_file = MakeMemFile();
};

class MemFileOpens : public MemFileScenario {
public:
    bool Attempt() override { return m_file->OpenWriteFile(kChunk); }

    void Check(bool bDone) override {
        EXPECT_EQ(m_file->GetPos(), bDone ? 0 : -1) << "a file that did not open is closed";
        EXPECT_EQ(m_file->OpenWriteFile(kChunk), !bDone);
        EXPECT_EQ(m_file->Write(m_bytes.data(), 20), 1);
        EXPECT_EQ(Content(), Bytes(m_bytes.begin(), m_bytes.begin() + 20));
    }
};

class MemFileIsWritten : public MemFileScenario {
public:
    MemFileIsWritten() { EXPECT_TRUE(m_file->OpenWriteFile(kChunk)); }

    bool Attempt() override { return m_file->Write(m_bytes.data(), static_cast<long long>(m_bytes.size())) == 1; }

    void Check(bool bDone) override {
        const auto nKept = static_cast<std::size_t>(m_file->GetTotleLen());
        EXPECT_TRUE(bDone ? nKept == m_bytes.size() : nKept < m_bytes.size());
        EXPECT_EQ(Content(), Bytes(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(nKept)));
        EXPECT_EQ(m_file->Write(m_bytes.data() + nKept, static_cast<long long>(m_bytes.size() - nKept)), 1);
        EXPECT_EQ(Content(), m_bytes);
    }
};

class MemFileSeeksPastItsEnd : public MemFileScenario {
public:
    MemFileSeeksPastItsEnd() {
        EXPECT_TRUE(m_file->OpenWriteFile(kChunk));
        EXPECT_EQ(m_file->Write(m_bytes.data(), 10), 1);
    }

    bool Attempt() override { return m_file->Seek(5 * kChunk + 3, ITnRobotFile::SEEK_DIRECT_BEGIN) == 0; }

    // A seek changes neither the length nor what is in the file, whether it gets there or not.
    void Check(bool bDone) override {
        EXPECT_EQ(Content(), Bytes(m_bytes.begin(), m_bytes.begin() + 10));
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_EQ(m_file->GetTotleLen(), 10);
        EXPECT_EQ(m_file->Seek(0, ITnRobotFile::SEEK_DIRECT_BEGIN), 0);
        EXPECT_TRUE(m_file->Close());
        EXPECT_TRUE(m_file->OpenWriteFile(kChunk));
        EXPECT_EQ(m_file->Write(m_bytes.data(), static_cast<long long>(m_bytes.size())), 1);
        EXPECT_EQ(Content(), m_bytes);
    }
};

class DiskFileScenario : public AllocationScenario {
public:
    DiskFileScenario() : m_strPath(Directory() / "file"), m_bytes(SomeBytes(50000)) {}

protected:
    long long Size() const { return static_cast<long long>(m_bytes.size()); }

    const std::string m_strPath;
    const Bytes m_bytes;
    TnRobotPtr<ITnRobotFile> m_file = MakeFile();

private:
    static const TempDirectory& Directory() {
        static const TempDirectory s_directory;
        return s_directory;
    }
};

class DiskFileIsWritten : public DiskFileScenario {
public:
    bool Attempt() override { return Write(); }

    void Check(bool bDone) override {
        if (!bDone) {
            EXPECT_EQ(m_file->GetPos(), -1) << "a file that did not open is closed";
            EXPECT_FALSE(m_file->Close());
            EXPECT_TRUE(Write()) << "and opens when there is memory";
        }
        EXPECT_TRUE(m_file->Close());
        EXPECT_TRUE(ReadBytes(m_strPath) == m_bytes);
    }

private:
    bool Write() { return m_file->Open(m_strPath.c_str(), true) && m_file->Write(m_bytes.data(), Size()) == 1; }
};

class DiskFileIsRead : public DiskFileScenario {
public:
    DiskFileIsRead() : m_buffer(m_bytes.size()) { WriteBytes(m_strPath, m_bytes); }

    bool Attempt() override { return Read(); }

    void Check(bool bDone) override {
        if (!bDone) {
            EXPECT_EQ(m_file->Read(m_buffer.data(), 1), -1);
            EXPECT_FALSE(m_file->Close());
            EXPECT_TRUE(Read());
        }
        EXPECT_TRUE(m_buffer == m_bytes);
    }

private:
    bool Read() { return m_file->Open(m_strPath.c_str(), false) && m_file->Read(m_buffer.data(), Size()) == Size(); }

    Bytes m_buffer;
};

std::vector<unsigned int> ManySmall() {
    std::vector<unsigned int> sizes;
    for (unsigned int n = 0; n < 40; ++n) {
        sizes.push_back(n * 37 % 1000);
    }
    return sizes;
}

// One in each of the four buffers there are at first, then two in a fifth.
std::vector<unsigned int> MoreThanFourBuffers() {
    std::vector<unsigned int> sizes(4, CTnRobotCircleMemBlockPool::kBufferSize - 1000);
    sizes.insert(sizes.end(), {2000, 3000});
    return sizes;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(
    Memory, AllocationFailure,
    testing::Values(MakeCase<FixedPoolHandsOutBlocks>("FixedPoolHandsOutBlocks"),
                    MakeCase<TakesBlocks>("GeneralPoolHandsOutBlocks", &TnCreateRobotMemoryBlockPool,
                                          std::vector<unsigned int>{1, kUnit, kUnit + 1, 3 * kUnit, 5, 100 * kUnit}),
                    MakeCase<TakesBlocks>("CircularPoolCutsBlocks", &TnCreateRobotCircleMemoryBlockPool, ManySmall()),
                    MakeCase<TakesBlocks>("CircularPoolGrows", &TnCreateRobotCircleMemoryBlockPool,
                                          MoreThanFourBuffers()),
                    MakeCase<StreamIsWritten>("StreamIsWritten"), MakeCase<MemFileOpens>("MemFileOpens"),
                    MakeCase<MemFileIsWritten>("MemFileIsWritten"),
                    MakeCase<MemFileSeeksPastItsEnd>("MemFileSeeksPastItsEnd"),
                    MakeCase<DiskFileIsWritten>("DiskFileIsWritten"), MakeCase<DiskFileIsRead>("DiskFileIsRead")),
    AllocationCaseName);

}  // namespace tntest
