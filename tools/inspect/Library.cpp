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

// Of entries with one name the first counts, which is damage already.
bool HoldsSameEntries(ITnRobotDataValueGroup& group, const Group& expected) {
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    if (group.GetAllDataName(names) != static_cast<int>(expected.entries.size())) {
        return false;
    }
    for (const Entry& entry : expected.entries) {
        if (static_cast<std::int32_t>(group.GetDataValueType(entry.strName.c_str())) != entry.nType) {
            return false;
        }
    }
    return true;
}

}  // namespace

TnRobotPtr<ITnRobotDataValue> MakeValue(const Entry& entry) {
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
        case DATA_TYPE_STRING:
            return tn::MakeStringData(entry.bytes.Text().c_str());
        case DATA_TYPE_BLOCK:
            return tn::MakeBlockData(entry.bytes.pData, static_cast<unsigned int>(entry.bytes.nSize));
        case DATA_TYPE_CHAR:
            return Make(tn::MakeCharData, entry.bytes);
        case DATA_TYPE_BYTE:
            return Make<unsigned short, unsigned char>(tn::MakeByteData, entry.bytes);
        case DATA_TYPE_NONE:
            break;
    }
    return nullptr;
}

void CompareWithLibrary(ByteRange file, GroupFile& groups) {
    const LoadingArchive loading(file);
    for (const Group& expected : groups.groups) {
        const TnRobotPtr<ITnRobotDataValueGroup> group = tn::MakeValueDataGroup();
        if (group->Serialize(loading.archive.get()) != 1 || !HoldsSameEntries(*group, expected)) {
            groups.problems.Damage(expected.nOffset, "the library does not load this group");
            return;
        }
    }
}

void CompareWithLibrary(ByteRange file, ObjectTables& tables) {
    const LoadingArchive loading(file);
    if (loading.archive->ReadMapHeader() != 1 ||
        loading.memory->GetPos() != static_cast<long long>(tables.nDataOffset)) {
        tables.problems.Damage(0, "the library does not read these tables");
    }
}
