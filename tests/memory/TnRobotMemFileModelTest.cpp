// Random sequences of operations against a literal model of the memory file: chunks in a list,
// pointers instead of clever arithmetic, and the chunk index that a seek past the length leaves
// behind. Programs that patch earlier positions rely on every one of these results.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TnRobotKernel/memory.h"
#include "support/Held.h"

namespace {

using Bytes = std::vector<unsigned char>;

class CTnChunkModel {
public:
    explicit CTnChunkModel(long long nChunkSize)
        : m_nChunkSize(nChunkSize), m_current(NewChunk()), m_pCursor(m_current->data()), m_nRoom(nChunkSize) {}

    long long Length() const { return m_nLength; }
    long long Position() const { return m_nIndex * m_nChunkSize + (m_nChunkSize - m_nRoom); }

    void Write(const Bytes& bytes) {
        std::size_t nDone = 0;
        while (nDone < bytes.size()) {
            const auto nStep = std::min<long long>(static_cast<long long>(bytes.size() - nDone), m_nRoom);
            std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(nDone), nStep, m_pCursor);
            nDone += static_cast<std::size_t>(nStep);
            m_pCursor += nStep;
            m_nRoom -= nStep;
            m_nLength = std::max(m_nLength, Position());
            if (m_nRoom == 0) {
                ++m_nIndex;
                if (m_nIndex > Listed()) {
                    AppendCurrent();
                }
                Place(m_nIndex < Listed() ? *m_list[static_cast<std::size_t>(m_nIndex)] : *m_current, 0);
            }
        }
    }

    void Seek(long long nTarget) {
        const long long nChunk = nTarget / m_nChunkSize;
        const long long nRest = nTarget % m_nChunkSize;
        if (nTarget >= m_nLength) {
            while (Listed() < nChunk) {
                AppendCurrent();
            }
            Place(*m_current, nRest);  // and the index stays as it was
        } else if (nChunk != m_nIndex) {
            if (nChunk < Listed()) {
                m_nIndex = nChunk;
                Place(*m_list[static_cast<std::size_t>(nChunk)], nRest);
            }
        } else {
            Place(*m_pCursorChunk, nRest);
        }
    }

    Bytes MemData(std::size_t nRoom) const {
        Bytes all;
        for (const auto& pChunk : m_list) {
            all.insert(all.end(), pChunk->begin(), pChunk->end());
        }
        all.insert(all.end(), m_current->begin(), m_current->end());
        all.resize(std::min(nRoom, static_cast<std::size_t>(m_nLength)));
        return all;
    }

private:
    using Chunk = std::shared_ptr<Bytes>;

    Chunk NewChunk() const { return std::make_shared<Bytes>(static_cast<std::size_t>(m_nChunkSize), '\0'); }
    long long Listed() const { return static_cast<long long>(m_list.size()); }

    void AppendCurrent() {
        m_list.push_back(m_current);
        m_current = NewChunk();
    }

    void Place(Bytes& chunk, long long nOffset) {
        m_pCursorChunk = &chunk;
        m_pCursor = chunk.data() + nOffset;
        m_nRoom = m_nChunkSize - nOffset;
    }

    long long m_nChunkSize;
    std::vector<Chunk> m_list;
    Chunk m_current;
    long long m_nIndex = 0;
    Bytes* m_pCursorChunk = m_current.get();
    unsigned char* m_pCursor;
    long long m_nRoom;
    long long m_nLength = 0;
};

/// Caller memory, whose positions are where they are.
class CTnFlatModel {
public:
    CTnFlatModel(Bytes memory, bool bWrite) : m_memory(std::move(memory)), m_bWrite(bWrite) {}

    long long Size() const { return static_cast<long long>(m_memory.size()); }
    long long Length() const { return m_nLength; }
    long long Position() const { return m_nPosition; }
    long long ReportedPosition() const { return m_bWrite ? m_nLength : m_nPosition; }
    const Bytes& Memory() const { return m_memory; }

    Bytes Read(long long nCount) {
        if (m_bWrite) {
            return {};
        }
        const long long nStep = std::min(nCount, Size() - m_nPosition);
        Bytes bytes(m_memory.begin() + m_nPosition, m_memory.begin() + m_nPosition + nStep);
        Advance(nStep);
        return bytes;
    }

    long long Write(const Bytes& bytes) {
        const auto nCount = static_cast<long long>(bytes.size());
        if (!m_bWrite || Size() - m_nPosition < nCount) {
            return 0;
        }
        std::copy(bytes.begin(), bytes.end(), m_memory.begin() + m_nPosition);
        Advance(nCount);
        return 1;
    }

    long long Seek(long long nTarget) {
        if (nTarget > Size()) {
            return -2;
        }
        m_nPosition = nTarget;
        return 0;
    }

private:
    void Advance(long long nStep) {
        m_nPosition += nStep;
        // Also a read of no bytes reaches the position that it is at.
        m_nLength = std::max(m_nLength, m_nPosition);
    }

    Bytes m_memory;
    bool m_bWrite;
    long long m_nPosition = 0;
    long long m_nLength = 0;
};

class Script {
public:
    explicit Script(unsigned int nSeed) : m_random(nSeed) {}

    long long Number(long long nLow, long long nHigh) {
        return std::uniform_int_distribution<long long>(nLow, nHigh)(m_random);
    }

    Bytes Data(long long nCount) {
        Bytes bytes(static_cast<std::size_t>(nCount));
        for (unsigned char& byte : bytes) {
            byte = static_cast<unsigned char>(Number(1, 255));
        }
        return bytes;
    }

private:
    std::mt19937 m_random;
};

tntest::Held<ITnRobotMemFile> MakeFile() {
    ITnRobotMemFile* pFile = nullptr;
    TnCreateRobotMemFile(&pFile);
    return tntest::Hold(pFile);
}

Bytes MemData(ITnRobotMemFile& file, std::size_t nRoom) {
    Bytes buffer(nRoom + 1, '#');
    auto nLength = static_cast<long long>(nRoom);
    EXPECT_TRUE(file.GetMemData(reinterpret_cast<char*>(buffer.data()), nLength));
    EXPECT_EQ(nLength, file.GetTotleLen());
    buffer.resize(std::min(nRoom, static_cast<std::size_t>(nLength)));
    return buffer;
}

long long Origin(long long nDirect, long long nPosition, long long nLength) {
    return nDirect == 1 ? nPosition : nDirect == 2 ? nLength : 0;
}

void CompareChunks(unsigned int nSeed) {
    Script script(nSeed);
    const long long nChunkSize = script.Number(1, 9);
    const auto file = MakeFile();
    ASSERT_TRUE(file->OpenWriteFile(nChunkSize));
    CTnChunkModel model(nChunkSize);
    for (int nStep = 0; nStep < 40; ++nStep) {
        if (script.Number(0, 1) == 0) {
            const Bytes bytes = script.Data(script.Number(0, 3 * nChunkSize));
            ASSERT_EQ(file->Write(bytes.data(), static_cast<long long>(bytes.size())), 1);
            model.Write(bytes);
        } else {
            const long long nDirect = script.Number(0, 3);
            const long long nOrigin = Origin(nDirect, model.Position(), model.Length());
            const long long nTarget = script.Number(0, model.Length() + 3 * nChunkSize);
            ASSERT_EQ(file->Seek(nTarget - nOrigin, static_cast<ITnRobotFile::ETnSeekDirect>(nDirect)), 0);
            model.Seek(nTarget);
        }
        ASSERT_EQ(file->GetTotleLen(), model.Length()) << "step " << nStep;
        ASSERT_EQ(file->GetPos(), model.Length()) << "step " << nStep;
        const auto nRoom = static_cast<std::size_t>(script.Number(0, model.Length() + 2 * nChunkSize));
        ASSERT_EQ(MemData(*file, nRoom), model.MemData(nRoom)) << "step " << nStep;
    }
    const auto nLength = static_cast<std::size_t>(model.Length());
    ASSERT_EQ(MemData(*file, nLength), model.MemData(nLength));
}

void CompareFlat(unsigned int nSeed) {
    Script script(nSeed);
    const bool bWrite = script.Number(0, 1) == 1;
    Bytes memory = script.Data(script.Number(1, 30));
    CTnFlatModel model(memory, bWrite);
    const auto file = MakeFile();
    ASSERT_TRUE(file->OpenMemFile(memory.data(), model.Size(), bWrite));
    for (int nStep = 0; nStep < 40; ++nStep) {
        const long long nCount = script.Number(0, 8);
        switch (script.Number(0, 2)) {
            case 0: {
                const Bytes bytes = script.Data(nCount);
                ASSERT_EQ(file->Write(bytes.data(), nCount), model.Write(bytes)) << "step " << nStep;
                break;
            }
            case 1: {
                Bytes buffer(static_cast<std::size_t>(nCount) + 1, '#');
                const long long nRead = file->Read(buffer.data(), nCount);
                buffer.resize(static_cast<std::size_t>(nRead));
                ASSERT_EQ(buffer, model.Read(nCount)) << "step " << nStep;
                break;
            }
            default: {
                const long long nDirect = script.Number(0, 3);
                const long long nOrigin = Origin(nDirect, model.Position(), model.Length());
                const long long nTarget = script.Number(0, model.Size() + 4);
                ASSERT_EQ(file->Seek(nTarget - nOrigin, static_cast<ITnRobotFile::ETnSeekDirect>(nDirect)),
                          model.Seek(nTarget))
                    << "step " << nStep;
            }
        }
        ASSERT_EQ(file->GetTotleLen(), model.Length()) << "step " << nStep;
        ASSERT_EQ(file->GetPos(), model.ReportedPosition()) << "step " << nStep;
    }
    ASSERT_EQ(memory, model.Memory());
    const auto nLength = static_cast<std::size_t>(model.Length());
    ASSERT_EQ(MemData(*file, nLength),
              Bytes(model.Memory().begin(), model.Memory().begin() + static_cast<std::ptrdiff_t>(nLength)));
}

}  // namespace

TEST(MemFileModel, ChunksBehaveLikeTheLiteralModel) {
    for (unsigned int nSeed = 0; nSeed < 5000 && !::testing::Test::HasFatalFailure(); ++nSeed) {
        SCOPED_TRACE("seed " + std::to_string(nSeed));
        CompareChunks(nSeed);
    }
}

TEST(MemFileModel, CallerMemoryBehavesLikeTheLiteralModel) {
    for (unsigned int nSeed = 0; nSeed < 5000 && !::testing::Test::HasFatalFailure(); ++nSeed) {
        SCOPED_TRACE("seed " + std::to_string(nSeed));
        CompareFlat(nSeed);
    }
}
