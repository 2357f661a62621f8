#include "Library.h"

#include <utility>
#include <vector>

namespace {

template <typename T>
Owned<T> Create(int (*pfnCreate)(T**)) {
    T* pObject = nullptr;
    pfnCreate(&pObject);
    return Owned<T>(pObject);
}

// An entry that is readable has as many bytes as its type.
template <typename Argument, typename Stored = Argument>
Owned<ITnRobotDataValue> Make(int (*pfnCreate)(Argument, ITnRobotDataValue**), ByteRange bytes) {
    Stored stored{};
    ByteReader(bytes).Take(stored);
    ITnRobotDataValue* pValue = nullptr;
    pfnCreate(static_cast<Argument>(stored), &pValue);
    return Owned<ITnRobotDataValue>(pValue);
}

Owned<ITnRobotDataValue> MakeText(ByteRange bytes) {
    ITnRobotDataValue* pValue = nullptr;
    TnCreateRobotStringData(bytes.Text().c_str(), &pValue);
    return Owned<ITnRobotDataValue>(pValue);
}

Owned<ITnRobotDataValue> MakeBlock(ByteRange bytes) {
    ITnRobotDataValue* pValue = nullptr;
    TnCreateRobotBlockData(bytes.pData, static_cast<unsigned int>(bytes.nSize), &pValue);
    return Owned<ITnRobotDataValue>(pValue);
}

/// An archive that loads from the bytes of a file. The library only reads them.
struct LoadingArchive {
    explicit LoadingArchive(ByteRange file) {
        memory->OpenMemFile(const_cast<unsigned char*>(file.pData), static_cast<long long>(file.nSize), false);
        archive->Attach(memory.get(), false);
    }

    Owned<ITnRobotMemFile> memory = Create(TnCreateRobotMemFile);
    Owned<ITnRobotArchive> archive = Create(TnCreateRobotArchive);
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

Owned<ITnRobotDataValue> MakeValue(const Entry& entry) {
    if (!entry.bReadable) {
        return nullptr;
    }
    switch (static_cast<ETnRobotDataValueType>(entry.nType)) {
        case DATA_TYPE_BOOL:
            return Make<bool, unsigned char>(TnCreateRobotBoolData, entry.bytes);
        case DATA_TYPE_SHORT:
            return Make(TnCreateRobotShortData, entry.bytes);
        case DATA_TYPE_USHORT:
            return Make(TnCreateRobotUShortData, entry.bytes);
        case DATA_TYPE_INT:
            return Make(TnCreateRobotIntData, entry.bytes);
        case DATA_TYPE_UINT:
            return Make(TnCreateRobotUintData, entry.bytes);
        case DATA_TYPE_FLOAT:
            return Make(TnCreateRobotFloatData, entry.bytes);
        case DATA_TYPE_DOUBLE:
            return Make(TnCreateRobotDoubleData, entry.bytes);
        case DATA_TYPE_LONGLONG:
            return Make(TnCreateRobotLonglongData, entry.bytes);
        case DATA_TYPE_ULONGLONG:
            return Make(TnCreateRobotULonglongData, entry.bytes);
        case DATA_TYPE_STRING:
            return MakeText(entry.bytes);
        case DATA_TYPE_BLOCK:
            return MakeBlock(entry.bytes);
        case DATA_TYPE_CHAR:
            return Make(TnCreateRobotCharData, entry.bytes);
        case DATA_TYPE_BYTE:
            return Make<unsigned short, unsigned char>(TnCreateRobotByteData, entry.bytes);
        case DATA_TYPE_NONE:
            break;
    }
    return nullptr;
}

void CompareWithLibrary(ByteRange file, GroupFile& groups) {
    const LoadingArchive loading(file);
    for (const Group& expected : groups.groups) {
        const Owned<ITnRobotDataValueGroup> group = Create(TnCreateRobotValueDataGroup);
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
