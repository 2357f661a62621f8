// The slot number of every virtual operation. Programs compiled against the headers call by slot,
// so a failure here means that programs built earlier break: move the operation back.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "support/bytes/Slots.h"

using namespace tntest;

namespace {

struct Row {
    const char* lpszOperation;
    SlotAddress address;
    int nSlot;
    int nBaseOffset = 0;
};

template <typename Interface, typename Result, typename... Args>
SlotAddress Slot(Result (Interface::*pfn)(Args...)) {
    return SlotOf(pfn);
}

template <typename Interface, typename Result, typename... Args>
SlotAddress Slot(Result (Interface::*pfn)(Args...) const) {
    return SlotOf(pfn);
}

void Check(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        EXPECT_EQ(row.address.nSlot, row.nSlot) << row.lpszOperation;
        EXPECT_EQ(row.address.nBaseOffset, row.nBaseOffset) << row.lpszOperation;
    }
}

// Every counted interface starts alike: the destructor's two slots, AddRef, Release.
template <typename Interface>
void CheckCounted() {
    Check({
        {"AddRef", Slot<Interface>(static_cast<void (Interface::*)()>(&Interface::AddRef)), 2},
        {"Release", Slot<Interface>(static_cast<int (Interface::*)()>(&Interface::Release)), 3},
    });
}

// A group's typed setter.
template <typename... Args>
SlotAddress Setter() {
    using Signature = int (ITnRobotDataValueGroup::*)(const char*, Args...);
    return SlotOf(static_cast<Signature>(&ITnRobotDataValueGroup::SetValue));
}

}  // namespace

TEST(SlotNumber, CountedInterfacesStartWithTheRoot) {
    CheckCounted<ITnUnknown>();
    CheckCounted<ITnRobotLogger>();
    CheckCounted<ITnRobotMemoryBlock>();
    CheckCounted<ITnRobotMemoryBlockPool>();
    CheckCounted<ITnRobotMemDataStream>();
    CheckCounted<ITnRobotFile>();
    CheckCounted<ITnRobotMemFile>();
    CheckCounted<ITnPoolUnknown>();
    CheckCounted<ITnPoolElement>();
    CheckCounted<ITnElementAlloc>();
    CheckCounted<ITnPool<ITnRobotDataValue>>();
    CheckCounted<ITnRobotDataValue>();
    CheckCounted<ITnRobotDataValueGroup>();
    CheckCounted<ITnRobotArchive>();
}

TEST(SlotNumber, Core) {
    Check({
        {"CTnRobotObject::GetRuntimeClass", Slot<CTnRobotObject, STnRuntimeClass*>(&CTnRobotObject::GetRuntimeClass),
         2},
        {"ITnRobotSerialize::Serialize", Slot<ITnRobotSerialize, int, ITnRobotArchive*>(&ITnRobotSerialize::Serialize),
         2},
        {"ITnRobotLogger::SetLogParam", Slot<ITnRobotLogger, void, int, int>(&ITnRobotLogger::SetLogParam), 4},
        {"ITnRobotLogger::WriteLog", Slot<ITnRobotLogger, void, int, const char*>(&ITnRobotLogger::WriteLog), 5},
        {"ITnRobotLogger::IsLevelEnabled", Slot<ITnRobotLogger, bool, int>(&ITnRobotLogger::IsLevelEnabled), 6},
    });
}

TEST(SlotNumber, BlocksPoolsAndStreams) {
    using Block = ITnRobotMemoryBlock;
    using Parent = ITnRobotMemoryBlockParent;
    using Pool = ITnRobotMemoryBlockPool;
    using Stream = ITnRobotMemDataStream;
    Check({
        {"QueryMemory", Slot<Block, unsigned char*, unsigned int&>(&Block::QueryMemory), 4},
        {"RecoveryMemBuff", Slot<Parent, void, Block*>(&Parent::RecoveryMemBuff), 2},
        {"QueryMemBuff", Slot<Pool, int, unsigned int, Block**>(&Pool::QueryMemBuff), 4},
        {"FreeUnuseMemory", Slot<Pool, void>(&Pool::FreeUnuseMemory), 5},
        {"WriteData", Slot<Stream, int, const unsigned char*, unsigned int>(&Stream::WriteData), 4},
        {"BeginReadData", Slot<Stream, int>(&Stream::BeginReadData), 5},
        {"ReadData", Slot<Stream, unsigned char*, unsigned int&>(&Stream::ReadData), 6},
        {"EndReadData", Slot<Stream, void>(&Stream::EndReadData), 7},
        {"GetTotleLength", Slot<Stream, unsigned int>(&Stream::GetTotleLength), 8},
        {"Clear", Slot<Stream, void>(&Stream::Clear), 9},
    });
}

TEST(SlotNumber, Files) {
    using File = ITnRobotFile;
    using MemFile = ITnRobotMemFile;
    Check({
        {"Open", Slot<File, bool, const char*, bool>(&File::Open), 4},
        {"Read", Slot<File, long long, void*, long long>(&File::Read), 5},
        {"Write", Slot<File, long long, const void*, long long>(&File::Write), 6},
        {"Seek", Slot<File, long long, long long, File::ETnSeekDirect>(&File::Seek), 7},
        {"GetPos", Slot<File, long long>(&File::GetPos), 8},
        {"Flush", Slot<File, void>(&File::Flush), 9},
        {"Close", Slot<File, bool>(&File::Close), 10},
        {"GetTotleLen", Slot<File, long long>(&File::GetTotleLen), 11},
        {"OpenMemFile", Slot<MemFile, bool, unsigned char*, long long, bool>(&MemFile::OpenMemFile), 12},
        {"OpenWriteFile", Slot<MemFile, bool, long long>(&MemFile::OpenWriteFile), 13},
        {"GetMemData", Slot<MemFile, bool, char*, long long&>(&MemFile::GetMemData), 14},
    });
}

TEST(SlotNumber, RecyclingPool) {
    using Pool = ITnPool<ITnRobotDataValue>;
    using Alloc = ITnElementAlloc;
    Check({
        {"RecoveryResource", Slot<ITnPoolUnknown, bool, ITnPoolElement*>(&ITnPoolUnknown::RecoveryResource), 4},
        {"QueryPoolElement", Slot<Pool, bool, unsigned int, void*, ITnRobotDataValue**>(&Pool::QueryPoolElement), 5},
        {"ClearResource", Slot<ITnPoolElement, void>(&ITnPoolElement::ClearResource), 4},
        {"SetParent", Slot<ITnPoolElement, void, ITnPoolUnknown*>(&ITnPoolElement::SetParent), 5},
        {"AllocElement", Slot<Alloc, bool, void*, ITnPoolElement**>(&Alloc::AllocElement), 4},
        {"SetElementParam", Slot<Alloc, void, ITnPoolElement*, void*>(&Alloc::SetElementParam), 5},
    });
}

TEST(SlotNumber, DataValue) {
    using Value = ITnRobotDataValue;
    Check({
        {"ClearResource", SlotOf(static_cast<void (Value::*)()>(&Value::ClearResource)), 4},
        {"SetParent", SlotOf(static_cast<void (Value::*)(ITnPoolUnknown*)>(&Value::SetParent)), 5},
        {"GetDataValueType", Slot<Value, ETnRobotDataValueType>(&Value::GetDataValueType), 6},
        {"BoolData", Slot<Value, bool, int*>(&Value::BoolData), 7},
        {"CharData", Slot<Value, char, int*>(&Value::CharData), 8},
        {"ByteData", Slot<Value, unsigned char, int*>(&Value::ByteData), 9},
        {"ShortData", Slot<Value, short, int*>(&Value::ShortData), 10},
        {"UShortData", Slot<Value, unsigned short, int*>(&Value::UShortData), 11},
        {"IntData", Slot<Value, int, int*>(&Value::IntData), 12},
        {"UintData", Slot<Value, unsigned int, int*>(&Value::UintData), 13},
        {"FloatData", Slot<Value, float, int*>(&Value::FloatData), 14},
        {"DoubleData", Slot<Value, double, int*>(&Value::DoubleData), 15},
        {"LonglongData", Slot<Value, long long, int*>(&Value::LonglongData), 16},
        {"ULonglongData", Slot<Value, unsigned long long, int*>(&Value::ULonglongData), 17},
        {"StringData", Slot<Value, const char*, int&, int*>(&Value::StringData), 18},
        {"BlockData", Slot<Value, const void*, unsigned int&, int*>(&Value::BlockData), 19},
        {"Convert2String", Slot<Value, const char*, unsigned int*>(&Value::Convert2String), 20},
        {"Copy", Slot<Value, void, Value*>(&Value::Copy), 21},
        {"Clone", Slot<Value, Value*>(&Value::Clone), 22},
        {"Serialize", SlotOf(static_cast<int (Value::*)(ITnRobotArchive*)>(&Value::Serialize)), 2, 24},
    });
}

TEST(SlotNumber, DataValueGroup) {
    using Group = ITnRobotDataValueGroup;
    using Names = std::vector<std::pair<std::string, ETnRobotDataValueType>>;
    Check({
        {"SetValue(value)", Setter<ITnRobotDataValue*>(), 4},
        {"GetValue", Slot<Group, int, const char*, ITnRobotDataValue**>(&Group::GetValue), 5},
        {"HasValue", Slot<Group, bool, const char*>(&Group::HasValue), 6},
        {"RemoveValue", Slot<Group, int, const char*>(&Group::RemoveValue), 7},
        {"ClearAllValues", Slot<Group, int>(&Group::ClearAllValues), 8},
        {"GetAllDataName", Slot<Group, int, Names&>(&Group::GetAllDataName), 9},
        {"GetDataValueType", Slot<Group, ETnRobotDataValueType, const char*>(&Group::GetDataValueType), 10},
        {"SetValue(bool)", Setter<bool>(), 11},
        {"BoolData", Slot<Group, bool, const char*, int*>(&Group::BoolData), 12},
        {"SetValue(char)", Setter<char>(), 13},
        {"CharData", Slot<Group, char, const char*, int*>(&Group::CharData), 14},
        {"SetValue(unsigned char)", Setter<unsigned char>(), 15},
        {"ByteData", Slot<Group, unsigned char, const char*, int*>(&Group::ByteData), 16},
        {"SetValue(short)", Setter<short>(), 17},
        {"ShortData", Slot<Group, short, const char*, int*>(&Group::ShortData), 18},
        {"SetValue(unsigned short)", Setter<unsigned short>(), 19},
        {"UShortData", Slot<Group, unsigned short, const char*, int*>(&Group::UShortData), 20},
        {"SetValue(int)", Setter<int>(), 21},
        {"IntData", Slot<Group, int, const char*, int*>(&Group::IntData), 22},
        {"SetValue(unsigned int)", Setter<unsigned int>(), 23},
        {"UintData", Slot<Group, unsigned int, const char*, int*>(&Group::UintData), 24},
        {"SetValue(float)", Setter<float>(), 25},
        {"FloatData", Slot<Group, float, const char*, int*>(&Group::FloatData), 26},
        {"SetValue(double)", Setter<double>(), 27},
        {"DoubleData", Slot<Group, double, const char*, int*>(&Group::DoubleData), 28},
        {"SetValue(long long)", Setter<long long>(), 29},
        {"LonglongData", Slot<Group, long long, const char*, int*>(&Group::LonglongData), 30},
        {"SetValue(unsigned long long)", Setter<unsigned long long>(), 31},
        {"ULonglongData", Slot<Group, unsigned long long, const char*, int*>(&Group::ULonglongData), 32},
        {"SetValue(text)", Setter<const char*>(), 33},
        {"StringData", Slot<Group, const char*, const char*, int*>(&Group::StringData), 34},
        {"SetValue(block)", Setter<const void*, unsigned int>(), 35},
        {"BlockData", Slot<Group, const void*, const char*, unsigned int&, int*>(&Group::BlockData), 36},
        {"Copy", Slot<Group, void, Group*>(&Group::Copy), 37},
        {"Clone", Slot<Group, Group*>(&Group::Clone), 38},
        {"Serialize", SlotOf(static_cast<int (Group::*)(ITnRobotArchive*)>(&Group::Serialize)), 2, 16},
    });
}

TEST(SlotNumber, Archive) {
    using Archive = ITnRobotArchive;
    Check({
        {"Attach", Slot<Archive, bool, ITnRobotFile*, bool>(&Archive::Attach), 4},
        {"IsStoring", Slot<Archive, bool>(&Archive::IsStoring), 5},
        {"IsLoading", Slot<Archive, bool>(&Archive::IsLoading), 6},
        {"Write", Slot<Archive, long long, const void*, long long>(&Archive::Write), 7},
        {"Read", Slot<Archive, long long, void*, long long>(&Archive::Read), 8},
        {"WriteString", Slot<Archive, int, const char*>(&Archive::WriteString), 9},
        {"ReadString", Slot<Archive, const char*, int&, int*>(&Archive::ReadString), 10},
        {"WriteObject", Slot<Archive, int, CTnRobotObject*>(&Archive::WriteObject), 11},
        {"ReadObject", Slot<Archive, int, CTnRobotObject**>(&Archive::ReadObject), 12},
        {"WriteMapHeader", Slot<Archive, int>(&Archive::WriteMapHeader), 13},
        {"ReadMapHeader", Slot<Archive, int>(&Archive::ReadMapHeader), 14},
        {"Flush", Slot<Archive, void>(&Archive::Flush), 15},
        {"Detach", Slot<Archive, void>(&Archive::Detach), 16},
    });
}
