// Sizes and offsets that programs compiled against the headers have built in. A failure here
// means that programs built earlier break: change the library back, not the numbers.

#include <gtest/gtest.h>

#include <cstddef>

#include "TnRobotKernel/TnRobotKernel.h"

namespace {

// Where a base lies in an object; the interfaces are abstract, so only the addresses are used.
template <typename Interface, typename Base>
std::ptrdiff_t BaseOffset() {
    alignas(std::max_align_t) static unsigned char s_memory[sizeof(Interface)];
    Interface* pInterface = reinterpret_cast<Interface*>(s_memory);
    Base* pBase = static_cast<Base*>(pInterface);
    return reinterpret_cast<unsigned char*>(pBase) - s_memory;
}

class CountedProbe : public ITnUnknown {
public:
    std::ptrdiff_t CountOffset() {
        return reinterpret_cast<unsigned char*>(&m_nRefCount) - reinterpret_cast<unsigned char*>(this);
    }
};

class ElementProbe final : public ITnPoolElement {
public:
    void ClearResource() override {}
    std::ptrdiff_t ParentOffset() {
        return reinterpret_cast<unsigned char*>(&m_pParent) - reinterpret_cast<unsigned char*>(this);
    }
};

}  // namespace

TEST(RecordLayout, RuntimeClassHasFourPointers) {
    EXPECT_EQ(sizeof(STnRuntimeClass), 32U);
    EXPECT_EQ(alignof(STnRuntimeClass), 8U);
    EXPECT_EQ(offsetof(STnRuntimeClass, m_lpszClassGuid), 0U);
    EXPECT_EQ(offsetof(STnRuntimeClass, m_pfnCreateObject), 8U);
    EXPECT_EQ(offsetof(STnRuntimeClass, m_pReserved), 16U);
    EXPECT_EQ(offsetof(STnRuntimeClass, m_pNext), 24U);
}

TEST(RecordLayout, RuntimeClassIsInitialisedByPosition) {
    int nReserved = 0;
    STnRuntimeClass next = {"next", nullptr, nullptr, nullptr};
    const STnRuntimeClass record = {"id", nullptr, &nReserved, &next};
    EXPECT_STREQ(record.m_lpszClassGuid, "id");
    EXPECT_EQ(record.m_pfnCreateObject, nullptr);
    EXPECT_EQ(record.m_pReserved, &nReserved);
    EXPECT_EQ(record.m_pNext, &next);
}

TEST(RecordLayout, BaseRecordCreatesNothing) {
    EXPECT_STREQ(CTnRobotObject::classCTnRobotObject.m_lpszClassGuid, "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(CTnRobotObject::classCTnRobotObject.m_pfnCreateObject, nullptr);
    EXPECT_EQ(CTnRobotObject::classCTnRobotObject.m_pReserved, nullptr);
    EXPECT_EQ(CTnRobotObject::classCTnRobotObject.m_pNext, nullptr);
}

TEST(RecordLayout, InterfaceSizes) {
    const struct {
        const char* lpszName;
        std::size_t nSize;
        std::size_t nExpected;
    } rows[] = {
        // Counted: the table pointer and the count.
        {"ITnUnknown", sizeof(ITnUnknown), 16},
        {"ITnRobotLogger", sizeof(ITnRobotLogger), 16},
        {"ITnRobotMemoryBlock", sizeof(ITnRobotMemoryBlock), 16},
        {"ITnRobotMemoryBlockPool", sizeof(ITnRobotMemoryBlockPool), 16},
        {"ITnRobotMemDataStream", sizeof(ITnRobotMemDataStream), 16},
        {"ITnRobotFile", sizeof(ITnRobotFile), 16},
        {"ITnRobotMemFile", sizeof(ITnRobotMemFile), 16},
        {"ITnPoolUnknown", sizeof(ITnPoolUnknown), 16},
        {"ITnElementAlloc", sizeof(ITnElementAlloc), 16},
        {"ITnPool", sizeof(ITnPool<ITnRobotDataValue>), 16},
        {"ITnRobotArchive", sizeof(ITnRobotArchive), 16},
        // Not counted: the table pointer.
        {"CTnRobotObject", sizeof(CTnRobotObject), 8},
        {"ITnRobotSerialize", sizeof(ITnRobotSerialize), 8},
        {"ITnRobotMemoryBlockParent", sizeof(ITnRobotMemoryBlockParent), 8},
        // Counted, with the parent pool.
        {"ITnPoolElement", sizeof(ITnPoolElement), 24},
        // With ITnRobotSerialize as second base.
        {"ITnRobotDataValue", sizeof(ITnRobotDataValue), 32},
        {"ITnRobotDataValueGroup", sizeof(ITnRobotDataValueGroup), 24},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.nSize, row.nExpected) << row.lpszName;
    }
}

TEST(RecordLayout, FieldsOfTheCountedRoots) {
    CountedProbe counted;
    EXPECT_EQ(counted.CountOffset(), 8);
    ElementProbe element;
    EXPECT_EQ(element.ParentOffset(), 16);
}

TEST(RecordLayout, FirstBasesLieAtTheStartAndSecondOnesBehind) {
    EXPECT_EQ((BaseOffset<ITnRobotDataValue, ITnPoolElement>()), 0);
    EXPECT_EQ((BaseOffset<ITnRobotDataValue, ITnRobotSerialize>()), 24);
    EXPECT_EQ((BaseOffset<ITnRobotDataValueGroup, ITnUnknown>()), 0);
    EXPECT_EQ((BaseOffset<ITnRobotDataValueGroup, ITnRobotSerialize>()), 16);
    EXPECT_EQ((BaseOffset<ITnRobotMemFile, ITnRobotFile>()), 0);
    EXPECT_EQ((BaseOffset<ITnPool<ITnRobotDataValue>, ITnPoolUnknown>()), 0);
}

TEST(RecordLayout, EnumerationsAreFourBytesAndKeepTheirNumbers) {
    EXPECT_EQ(sizeof(ETnRobotDataValueType), 4U);
    EXPECT_EQ(sizeof(ITnRobotFile::ETnSeekDirect), 4U);
    const struct {
        int nValue;
        int nExpected;
    } rows[] = {
        {DATA_TYPE_NONE, 0},
        {DATA_TYPE_BOOL, 1},
        {DATA_TYPE_SHORT, 2},
        {DATA_TYPE_USHORT, 3},
        {DATA_TYPE_INT, 4},
        {DATA_TYPE_UINT, 5},
        {DATA_TYPE_FLOAT, 6},
        {DATA_TYPE_DOUBLE, 7},
        {DATA_TYPE_LONGLONG, 8},
        {DATA_TYPE_ULONGLONG, 9},
        {DATA_TYPE_STRING, 10},
        {DATA_TYPE_BLOCK, 11},
        {DATA_TYPE_CHAR, 12},
        {DATA_TYPE_BYTE, 13},
        {ITnRobotFile::SEEK_DIRECT_BEGIN, 0},
        {ITnRobotFile::SEEK_DIRECT_CURRENT, 1},
        {ITnRobotFile::SEEK_DIRECT_END, 2},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.nValue, row.nExpected);
    }
}
