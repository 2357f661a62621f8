// Runs a sequence of operations on a memory file and on a literal model of it.

#include <TnRobotKernel/TnRobotKernel.h>

#include <limits>

#include "FuzzBudget.h"
#include "FuzzInput.h"
#include "TnRobotKernel/ptr.h"
#include "support/bytes/MemFileModels.h"

using namespace tnfuzz;
using tntest::ChunkModel;
using tntest::FlatModel;

namespace {

constexpr long long kMostBytes = 40;  // of one operation

using MemFile = TnRobotPtr<ITnRobotMemFile>;

MemFile MakeFile() {
    ITnRobotMemFile* pFile = nullptr;
    TnCreateRobotMemFile(&pFile);
    return tn::Adopt(pFile);
}

long long SumSaturated(long long a, long long b) {
    long long nSum = 0;
    if (__builtin_add_overflow(a, b, &nSum)) {
        return a < 0 ? std::numeric_limits<long long>::min() : std::numeric_limits<long long>::max();
    }
    return nSum;
}

// Mostly a short way, now and then any distance.
long long Distance(FuzzInput& input) {
    return input.Below(8) == 0 ? input.Number<std::int64_t>() : input.Number<std::int8_t>();
}

struct SeekStep {
    long long nOffset;
    ITnRobotFile::ETnSeekDirect eDirect;
    long long nTarget;
};

template <typename Model>
SeekStep NextSeek(FuzzInput& input, const Model& model) {
    const auto eDirect = static_cast<ITnRobotFile::ETnSeekDirect>(input.Below(4));
    const long long nOffset = Distance(input);
    const long long nOrigin = eDirect == ITnRobotFile::SEEK_DIRECT_CURRENT ? model.Position()
                              : eDirect == ITnRobotFile::SEEK_DIRECT_END   ? model.Length()
                                                                           : 0;
    return {nOffset, eDirect, SumSaturated(nOffset, nOrigin)};
}

// Seeking far is paid with chunks up to there; beyond what fits an index it is refused.
bool IsTooCostly(long long nTarget, long long nChunkSize) {
    constexpr long long kMostChunks = 100;
    return nTarget / nChunkSize > kMostChunks && nTarget / nChunkSize <= std::numeric_limits<int>::max();
}

Bytes Content(ITnRobotMemFile& file, std::size_t nRoom) {
    Bytes buffer(nRoom);
    buffer.reserve(nRoom + 1);  // not null, even without room
    auto nLength = static_cast<long long>(nRoom);
    Require(file.GetMemData(reinterpret_cast<char*>(buffer.data()), nLength), "content is always given");
    Require(nLength == file.GetTotleLen(), "with the file's length");
    buffer.resize(std::min(nRoom, static_cast<std::size_t>(nLength)));
    return buffer;
}

void CheckClosed(ITnRobotMemFile& file) {
    char byOne = 0;
    long long nLength = 1;
    Require(file.Close() && file.GetPos() == -1, "a closed file has no position");
    Require(file.Seek(0, ITnRobotFile::SEEK_DIRECT_BEGIN) == -1, "and is not moved");
    Require(file.Read(&byOne, 1) == 0 && file.Write(&byOne, 1) == 0, "nor read nor written");
    Require(file.GetMemData(&byOne, nLength) && byOne == 0, "nor copied");
}

void RunChunks(FuzzInput& input, ITnRobotMemFile& file) {
    const long long nChunkSize = input.Below(17) + 1;
    Require(file.OpenWriteFile(nChunkSize) && !file.OpenWriteFile(nChunkSize), "a file is opened once");
    ChunkModel model(nChunkSize);
    while (input.Left() != 0) {
        switch (input.Below(4)) {
            case 0:
            case 1: {
                const Bytes bytes = input.Take(input.Below(kMostBytes));
                const auto nCount = static_cast<long long>(bytes.size());
                Require(file.Write(bytes.data(), nCount) == model.Write(bytes), "a write has the model's result");
                break;
            }
            case 2: {
                const SeekStep step = NextSeek(input, model);
                if (!IsTooCostly(step.nTarget, nChunkSize)) {
                    Require(file.Seek(step.nOffset, step.eDirect) == model.Seek(step.nTarget), "so has a seek");
                }
                break;
            }
            default: {
                const std::size_t nRoom = input.Number<std::uint8_t>();
                Require(Content(file, nRoom) == model.MemData(nRoom), "the content is the model's");
                char chUnread = 'u';
                Require(file.Read(&chUnread, 1) == 0 && chUnread == 'u', "nothing is read while it is written");
            }
        }
        Require(file.GetTotleLen() == model.Length() && file.GetPos() == model.Length(), "and so is the length");
    }
    const auto nLength = static_cast<std::size_t>(model.Length());
    Require(Content(file, nLength + 1) == model.MemData(nLength), "the whole content is the model's");
}

void CheckRead(ITnRobotMemFile& file, FlatModel& model, long long nCount) {
    Bytes buffer(static_cast<std::size_t>(kMostBytes), '#');
    const long long nRead = file.Read(buffer.data(), nCount);
    const Bytes expected = model.Read(nCount);
    Require(nRead == static_cast<long long>(expected.size()), "as much is read as the model has");
    Require(std::equal(expected.begin(), expected.end(), buffer.begin()), "and the same");
}

void RunFlat(FuzzInput& input, ITnRobotMemFile& file, bool bWrite) {
    Bytes memory = input.Take(input.Below(60) + 1);
    if (memory.empty()) {
        Require(!file.OpenMemFile(memory.data(), 0, bWrite), "no memory, no file");
        return;
    }
    FlatModel model(memory, bWrite);
    Require(file.OpenMemFile(memory.data(), model.Size(), bWrite), "memory can be opened");
    while (input.Left() != 0) {
        const auto nCount = static_cast<long long>(input.Below(kMostBytes));
        switch (input.Below(4)) {
            case 0: {
                const Bytes bytes = input.Take(static_cast<std::size_t>(nCount));
                Require(file.Write(bytes.data(), static_cast<long long>(bytes.size())) == model.Write(bytes),
                        "a write has the model's result");
                break;
            }
            case 1:
                CheckRead(file, model, nCount);
                break;
            case 2:
                CheckRead(file, model, -nCount);
                Require(file.Write(memory.data(), -1 - nCount) == 0, "less than nothing is not written");
                break;
            default: {
                const SeekStep step = NextSeek(input, model);
                Require(file.Seek(step.nOffset, step.eDirect) == model.Seek(step.nTarget), "so has a seek");
            }
        }
        Require(file.GetTotleLen() == model.Length(), "the length is the model's");
        Require(file.GetPos() == model.ReportedPosition(), "and so is the position");
    }
    Require(memory == model.Memory(), "the memory is the model's");
    const auto nLength = static_cast<std::size_t>(model.Length());
    Require(Content(file, nLength + 1) == Bytes(memory.begin(), memory.begin() + static_cast<std::ptrdiff_t>(nLength)),
            "the content is what lies before the length");
}

void RunKind(unsigned int nKind, const Bytes& bytes, ITnRobotMemFile& file) {
    FuzzInput input(bytes.data(), bytes.size());
    if (nKind == 0) {
        RunChunks(input, file);
    } else {
        RunFlat(input, file, nKind == 1);
    }
    CheckClosed(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    FuzzInput input(pData, nSize);
    const MemFile file = MakeFile();
    // Two files one after the other in the same object: nothing of the first one is left.
    const unsigned int nKinds = input.Below(9);
    RunKind(nKinds % 3, input.Take(input.Left() / 2), *file);
    RunKind(nKinds / 3, input.Rest(), *file);
    return 0;
}
