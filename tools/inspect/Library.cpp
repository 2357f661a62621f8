#include "Library.h"

#include <TnRobotKernel/make.h>

#include <utility>
#include <vector>

namespace {

using MadeValue = TnRobotPtr<ITnRobotDataValue>;

// An entry that is readable has as many bytes as its type.
template <typename Argument, typename Stored = Argument>
MadeValue Make(MadeValue (*pfnMake)(Argument), ByteRange bytes) {
    Stored stored{};
    ByteReader(bytes).Take(stored);
    return pfnMake(static_cast<Argument>(stored));
}

/// An archive that loads from the bytes of a file. The library only reads them.
struct LoadingArchive {
    explicit LoadingArchive(ByteRange file) {
        memory->OpenMemFile(const_cast<unsigned char*>(file.pData), static_cast<long long>(file.nSize), false);
        archive->Attach(memory.get(), false);
    }

    TnRobotPtr<ITnRobotMemFile> memory = tn::MakeMemFile();
    TnRobotPtr<ITnRobotArchive> archive = tn::MakeArchive();
};

// More than any usual group has.
constexpr std::size_t kMostEntries = 4096;

// The entries must be those of a file without damage: no name occurs twice.
bool Holds(ITnRobotDataValueGroup& group, ByteRange file, std::size_t nFirst, std::size_t nCount) {
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    if (group.GetAllDataName(names) != static_cast<int>(nCount)) {
        return false;
    }
    for (std::size_t i = 0, nOffset = nFirst; i < nCount; ++i) {
        const Entry entry = EntryAt(file, nOffset);
        if (static_cast<std::int32_t>(group.GetDataValueType(std::string(entry.name).c_str())) != entry.nType) {
            return false;
        }
        nOffset = entry.nEnd;
    }
    return true;
}

// Lets the library load a group that ends at a position, and looks whether it has certain entries.
bool LoadsEntries(const LoadingArchive& loading, std::size_t nEnd, ByteRange file, std::size_t nFirst,
                  std::size_t nCount) {
    const TnRobotPtr<ITnRobotDataValueGroup> group = tn::MakeValueDataGroup();
    return group->Serialize(loading.archive.get()) == 1 && loading.memory->GetPos() == static_cast<long long>(nEnd) &&
           Holds(*group, file, nFirst, nCount);
}

/// Collects entries of one group until they are worth loading.
class Part {
public:
    explicit Part(ByteRange file) : m_file(file) {}

    void Add(const Entry& entry) {
        m_nFirst = m_nCount == 0 ? entry.nOffset : m_nFirst;
        m_nEnd = entry.nEnd;
        ++m_nCount;
    }
    bool IsFull() const { return m_nCount == kMostEntries || m_nEnd - m_nFirst >= kLargestPart; }

    // Begins anew. @return whether the library finds the same entries.
    bool LoadsWell() {
        Bytes bytes = {1};
        const auto nCount = static_cast<std::uint32_t>(m_nCount);
        const auto* pCount = reinterpret_cast<const unsigned char*>(&nCount);
        bytes.insert(bytes.end(), pCount, pCount + sizeof(nCount));
        bytes.insert(bytes.end(), m_file.pData + m_nFirst, m_file.pData + m_nEnd);
        return LoadsEntries(LoadingArchive(RangeOf(bytes)), bytes.size(), m_file, m_nFirst, std::exchange(m_nCount, 0));
    }

private:
    static constexpr std::size_t kLargestPart = std::size_t{1024} * 1024;

    ByteRange m_file;
    std::size_t m_nFirst = 0;
    std::size_t m_nEnd = 0;
    std::size_t m_nCount = 0;
};

bool LoadsInParts(ByteRange file, const Group& group) {
    Part part(file);
    bool bGood = true;
    std::size_t nEntries = 0;
    ForEachEntry(file, group, [&](const Entry& entry) {
        part.Add(entry);
        ++nEntries;
        if (part.IsFull() || nEntries == group.nEntries) {
            bGood = part.LoadsWell() && bGood;
        }
    });
    return bGood;
}

// The archive stands at the group's beginning, and afterwards at its end.
bool Loads(const LoadingArchive& loading, ByteRange file, const Group& group) {
    constexpr std::size_t kVersionAndCount = 5;
    const std::size_t nEnd = group.nOffset + group.nSize;
    if (group.nEntries <= kMostEntries) {
        return LoadsEntries(loading, nEnd, file, group.nOffset + kVersionAndCount, group.nEntries);
    }
    return LoadsInParts(file, group) &&
           loading.memory->Seek(static_cast<long long>(nEnd), ITnRobotFile::SEEK_DIRECT_BEGIN) == 0;
}

}  // namespace

TnRobotPtr<ITnRobotDataValue> MakeScalar(const Entry& entry) {
    if (!entry.bReadable) {
        return nullptr;
    }
    switch (static_cast<ETnRobotDataValueType>(entry.nType)) {
        case DATA_TYPE_BOOL:
            return Make<bool, unsigned char>(tn::MakeBoolData, entry.bytes);
        case DATA_TYPE_SHORT:
            return Make(tn::MakeShortData, entry.bytes);
        case DATA_TYPE_USHORT:
            return Make(tn::MakeUShortData, entry.bytes);
        case DATA_TYPE_INT:
            return Make(tn::MakeIntData, entry.bytes);
        case DATA_TYPE_UINT:
            return Make(tn::MakeUintData, entry.bytes);
        case DATA_TYPE_FLOAT:
            return Make(tn::MakeFloatData, entry.bytes);
        case DATA_TYPE_DOUBLE:
            return Make(tn::MakeDoubleData, entry.bytes);
        case DATA_TYPE_LONGLONG:
            return Make(tn::MakeLonglongData, entry.bytes);
        case DATA_TYPE_ULONGLONG:
            return Make(tn::MakeULonglongData, entry.bytes);
        case DATA_TYPE_CHAR:
            return Make(tn::MakeCharData, entry.bytes);
        case DATA_TYPE_BYTE:
            return Make<unsigned short, unsigned char>(tn::MakeByteData, entry.bytes);
        case DATA_TYPE_STRING:
        case DATA_TYPE_BLOCK:
        case DATA_TYPE_NONE:
            break;
    }
    return nullptr;
}

void CompareWithLibrary(GroupFile& groups) {
    const LoadingArchive loading(groups.file);
    ForEachGroup(groups.file, [&](const Group& group) {
        if (!groups.problems.IsDamaged() && !Loads(loading, groups.file, group)) {
            groups.problems.Damage(group.nOffset, "the library does not load this group");
        }
    });
}

void CompareWithLibrary(ByteRange file, ValueFile& value) {
    const LoadingArchive loading(file);
    const TnRobotPtr<ITnRobotDataValue> loaded = tn::MakeIntData(0);  // of any type: loading replaces it
    if (loaded->Serialize(loading.archive.get()) != 1 ||
        loading.memory->GetPos() != static_cast<long long>(value.value.nEnd) ||
        static_cast<std::int32_t>(loaded->GetDataValueType()) != value.value.nType) {
        value.problems.Damage(0, "the library does not load this value");
    }
}

void CompareWithLibrary(ByteRange file, ObjectTables& tables) {
    const LoadingArchive loading(file);
    if (loading.archive->ReadMapHeader() != 1 ||
        loading.memory->GetPos() != static_cast<long long>(tables.nDataOffset)) {
        tables.problems.Damage(0, "the library does not read these tables");
    }
}
