// Random sequences of operations against a literal model of the memory file. Programs that patch
// earlier positions rely on every one of these results.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"
#include "support/bytes/MemFileModels.h"
#include "support/objects/Files.h"

using namespace tntest;

namespace {

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
    const auto file = MakeMemFile();
    ASSERT_TRUE(file->OpenWriteFile(nChunkSize));
    ChunkModel model(nChunkSize);
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
    FlatModel model(memory, bWrite);
    const auto file = MakeMemFile();
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
