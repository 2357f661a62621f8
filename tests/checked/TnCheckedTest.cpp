// Mistakes that stop a checked build with the name of the class.

#include "checked/TnChecked.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "checked/TnSanitizer.h"
#include "support/objects/Groups.h"
#include "support/objects/Memory.h"
#include "support/objects/TaskPools.h"

using namespace tntest;

namespace {

class CheckedDeathTest : public ::testing::Test {
protected:
    // The objects have threads, and a child that goes on from a copy of this process has not.
    CheckedDeathTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

/// What stops a call of a destroyed object: AddressSanitizer, which names the class among the
/// functions that freed it, or the check itself.
std::string Destroyed(const std::string& strClass, const std::string& strWhat) {
    return tnrobot::kHidesMemory ? "heap-use-after-free.*~" + strClass : strClass + ": " + strWhat;
}

std::string Stopped(const std::string& strClass, const std::string& strWhat) {
    return "TnRobotKernel: " + strClass + ": " + strWhat;
}

/// What stops a use of memory that was hidden: AddressSanitizer at once, or the check later.
std::string Written(const std::string& strClass) {
    return tnrobot::kHidesMemory ? "use-after-poison" : strClass + ": written to after its return to its pool";
}

ITnRobotMemoryBlock* QueryBlock(ITnRobotMemoryBlockPool& pool, unsigned int nSize) {
    return Query(pool, nSize).detach();
}

ITnRobotDataValue* MakeText(const char* lpszText) {
    ITnRobotDataValue* pValue = nullptr;
    TnCreateRobotStringData(lpszText, &pValue);
    return pValue;
}

/// A surface and what it needs.
struct SurfaceSource {
    SurfaceSource() : m_blocks(MakePool()) {
        ITnRobotSurfacePool* pPool = nullptr;
        TnCreateRobotSurfacePool(m_blocks.get(), &pPool);
        m_pool = tn::Adopt(pPool);
    }
    ITnRobotSurface* Query() const {
        ITnRobotSurface::STnSurfaceDesc desc{};
        desc.nWidth = desc.nHeight = 4;
        desc.eImageType = TN_IMAGE_GRAY8;
        ITnRobotSurface* pSurface = nullptr;
        m_pool->QuerySurface(desc, &pSurface);
        return pSurface;
    }

    HeldPool m_blocks;
    TnRobotPtr<ITnRobotSurfacePool> m_pool;
};

/// A task and what it needs.
struct TaskSource {
    ITnRobotTask* Query() const {
        ITnRobotTask* pTask = nullptr;
        m_pool->CreateTask(nullptr, &pTask);
        return pTask;
    }

    TnRobotPtr<ITnRobotTaskPool> m_pool = MakeTaskPool();
};

template <typename Interface>
ITnUnknown* Create(int (*pfnCreate)(Interface**)) {
    Interface* pObject = nullptr;
    pfnCreate(&pObject);
    return pObject;
}

struct STnHeapClass {
    const char* lpszName;
    ITnUnknown* (*pfnCreate)();
};

// A stream and a surface pool take a reference to the block pool and give it back.
const STnHeapClass kHeapClasses[] = {
    {"CTnRobotFile", [] { return Create(TnCreateRobotFile); }},
    {"CTnRobotMemFile", [] { return Create(TnCreateRobotMemFile); }},
    {"CTnRobotArchive", [] { return Create(TnCreateRobotArchive); }},
    {"CTnRobotDataValueGroup", [] { return Create(TnCreateRobotValueDataGroup); }},
    {"CTnRobotRandomMemBlockPool", [] { return Create(TnCreateRobotMemoryBlockPool); }},
    {"CTnRobotCircleMemBlockPool", [] { return Create(TnCreateRobotCircleMemoryBlockPool); }},
    {"CTnRobotSignal", [] { return Create(TnCreateRobotSignal); }},
    {"CTnRobotAlarmClock", [] { return Create(TnCreateRobotAlarmClock); }},
    {"CTnRobotThread", [] { return Create(TnCreateRobotThread); }},
    {"CTnRobotTaskPool", [] { return Create(TnCreateRobotTaskPool); }},
    {"CTnRobotManualEvent",
     [] {
         ITnRobotEvent* pEvent = nullptr;
         TnCreateRobotManualEvent(false, &pEvent);
         return static_cast<ITnUnknown*>(pEvent);
     }},
    {"CTnRobotProtocolMemBlock", [] { return static_cast<ITnUnknown*>(MakeView(nullptr, nullptr, 0).detach()); }},
    {"CTnRobotMemDataStream",
     [] {
         ITnRobotMemDataStream* pStream = nullptr;
         TnCreateRobotMemDataStream(MakePool().get(), &pStream);
         return static_cast<ITnUnknown*>(pStream);
     }},
    {"CTnRobotSurfacePool", [] { return static_cast<ITnUnknown*>(SurfaceSource().m_pool.detach()); }},
};

// Whose calls the compiler's own check of classes would stop before the library's has seen them.
#define TNTEST_WITHOUT_CLASS_CHECK __attribute__((no_sanitize("vptr")))

TNTEST_WITHOUT_CLASS_CHECK void ReleaseTwice(ITnUnknown* pObject) {
    pObject->Release();
    pObject->Release();
}

TNTEST_WITHOUT_CLASS_CHECK void UseReleased(ITnUnknown* pObject) {
    pObject->Release();
    pObject->AddRef();
}

}  // namespace

TEST_F(CheckedDeathTest, AReleaseTooManyOfADestroyedObject) {
    for (const STnHeapClass& heapClass : kHeapClasses) {
        EXPECT_DEATH(ReleaseTwice(heapClass.pfnCreate()), Destroyed(heapClass.lpszName, "Release below zero"))
            << heapClass.lpszName;
    }
}

TEST_F(CheckedDeathTest, AnAddRefOfADestroyedObject) {
    EXPECT_DEATH(UseReleased(Create(TnCreateRobotMemFile)),
                 Destroyed("CTnRobotMemFile", "AddRef after it was destroyed"));
}

TEST_F(CheckedDeathTest, AnyOtherCallOfADestroyedObject) {
    const auto use = []() TNTEST_WITHOUT_CLASS_CHECK {
        ITnRobotMemFile* pFile = nullptr;
        TnCreateRobotMemFile(&pFile);
        pFile->Release();
        pFile->GetTotleLen();
    };
    EXPECT_DEATH(use(), Destroyed("CTnRobotMemFile", "called after it was destroyed"));
}

// The second base of an object has a table of its own.
TEST_F(CheckedDeathTest, ACallOfADestroyedObjectThroughItsSecondBase) {
    const auto use = []() TNTEST_WITHOUT_CLASS_CHECK {
        ITnRobotDataValueGroup* pGroup = NewGroup().detach();
        ITnRobotSerialize* pSerialize = pGroup;
        pGroup->Release();
        pSerialize->Serialize(nullptr);
    };
    EXPECT_DEATH(use(), Destroyed("CTnRobotDataValueGroup", "called after it was destroyed"));
}

TEST_F(CheckedDeathTest, AWriteToADestroyedObject) {
    const auto use = [] {
        ITnRobotMemFile* pFile = nullptr;
        TnCreateRobotMemFile(&pFile);
        auto* pMemory = reinterpret_cast<unsigned char*>(pFile);
        pFile->Release();
        pMemory[40] ^= 1U;
        tnrobot::checked::FreeKept();
    };
    EXPECT_DEATH(use(), Destroyed("CTnRobotMemFile", "written to after it was destroyed"));
}

TEST_F(CheckedDeathTest, AReleaseTooManyOfAFreeBlock) {
    const HeldPool pools[] = {MakePool(), MakeCirclePool()};
    for (const HeldPool& pool : pools) {
        EXPECT_DEATH(ReleaseTwice(QueryBlock(*pool, 10)), Stopped("CTnRobotMemoryBlock", "Release below zero"));
    }
}

TEST_F(CheckedDeathTest, AReleaseTooManyOfAFreeElement) {
    EXPECT_DEATH(ReleaseTwice(MakeText("text")), Stopped("CTnRobotDataValue", "Release below zero"));
    const SurfaceSource surfaces;
    EXPECT_DEATH(ReleaseTwice(surfaces.Query()), Stopped("CTnRobotSurface", "Release below zero"));
    const TaskSource tasks;
    EXPECT_DEATH(ReleaseTwice(tasks.Query()), Stopped("CTnRobotTask", "Release below zero"));
}

TEST_F(CheckedDeathTest, AnAddRefOfAFreeElement) {
    const char* const lpszWhat = "AddRef after its return to its pool";
    const HeldPool blocks = MakePool();
    EXPECT_DEATH(UseReleased(QueryBlock(*blocks, 10)), Stopped("CTnRobotMemoryBlock", lpszWhat));
    EXPECT_DEATH(UseReleased(MakeText("text")), Stopped("CTnRobotDataValue", lpszWhat));
    const SurfaceSource surfaces;
    EXPECT_DEATH(UseReleased(surfaces.Query()), Stopped("CTnRobotSurface", lpszWhat));
    const TaskSource tasks;
    EXPECT_DEATH(UseReleased(tasks.Query()), Stopped("CTnRobotTask", lpszWhat));
}

TEST_F(CheckedDeathTest, AnyOtherCallOfAFreeElement) {
    const char* const lpszWhat = "used after its return to its pool";
    const HeldPool blocks = MakePool();
    const auto useBlock = [&blocks] {
        ITnRobotMemoryBlock* pBlock = QueryBlock(*blocks, 10);
        pBlock->Release();
        DataOf(*pBlock);
    };
    EXPECT_DEATH(useBlock(), Stopped("CTnRobotMemoryBlock", lpszWhat));
    const auto useValue = [] {
        ITnRobotDataValue* pValue = MakeText("text");
        pValue->Release();
        pValue->IntData(nullptr);
    };
    EXPECT_DEATH(useValue(), Stopped("CTnRobotDataValue", lpszWhat));
    const SurfaceSource surfaces;
    const auto useSurface = [&surfaces] {
        ITnRobotSurface* pSurface = surfaces.Query();
        pSurface->Release();
        pSurface->SetTimeStamp(1);
    };
    EXPECT_DEATH(useSurface(), Stopped("CTnRobotSurface", lpszWhat));
    const TaskSource tasks;
    const auto useTask = [&tasks] {
        ITnRobotTask* pTask = tasks.Query();
        pTask->Release();
        pTask->Start();
    };
    EXPECT_DEATH(useTask(), Stopped("CTnRobotTask", lpszWhat));
}

TEST_F(CheckedDeathTest, EveryCallOfAFreeValue) {
    using Call = void (*)(ITnRobotDataValue&, ITnRobotDataValue & other);
    static unsigned int s_nLength = 0;
    static int s_nText = 0;
    const Call calls[] = {
        [](ITnRobotDataValue& value, ITnRobotDataValue&) { value.GetDataValueType(); },
        [](ITnRobotDataValue& value, ITnRobotDataValue&) { value.BoolData(nullptr); },
        [](ITnRobotDataValue& value, ITnRobotDataValue&) { value.DoubleData(nullptr); },
        [](ITnRobotDataValue& value, ITnRobotDataValue&) { value.StringData(s_nText, nullptr); },
        [](ITnRobotDataValue& value, ITnRobotDataValue&) { value.BlockData(s_nLength, nullptr); },
        [](ITnRobotDataValue& value, ITnRobotDataValue&) { value.Convert2String(nullptr); },
        [](ITnRobotDataValue& value, ITnRobotDataValue&) { value.Copy(nullptr); },
        [](ITnRobotDataValue& value, ITnRobotDataValue& other) { other.Copy(&value); },
        [](ITnRobotDataValue& value, ITnRobotDataValue&) { value.Clone(); },
    };
    const auto use = [](Call call) {
        ITnRobotDataValue* const pOther = MakeText("other");
        ITnRobotDataValue* const pValue = MakeText("text");
        pValue->Release();
        call(*pValue, *pOther);
    };
    for (const Call& call : calls) {
        EXPECT_DEATH(use(call), Stopped("CTnRobotDataValue", "used after its return to its pool")) << &call - calls;
    }
}

// What an archive calls belongs to the second base, which lies in the memory that is hidden.
TEST_F(CheckedDeathTest, SavingAFreeValue) {
    const auto use = [] {
        ITnRobotDataValue* const pValue = MakeText("text");
        pValue->Release();
        pValue->Serialize(nullptr);
    };
    EXPECT_DEATH(use(), tnrobot::kHidesMemory ? "use-after-poison"
                                              : Stopped("CTnRobotDataValue", "used after its return to its pool"));
}

TEST_F(CheckedDeathTest, EveryCallOfAFreeSurface) {
    using Call = void (*)(ITnRobotSurface&);
    static ITnRobotSurface::STnLockSurface s_lock;
    static ITnRobotSurface::STnSurfaceDesc s_desc;
    const Call calls[] = {
        [](ITnRobotSurface& surface) { surface.LockSurface(s_lock); },
        [](ITnRobotSurface& surface) { surface.UnLockSurface(); },
        [](ITnRobotSurface& surface) { surface.GetSurfaceDesc(s_desc); },
        [](ITnRobotSurface& surface) { surface.GetOriPos(); },
        [](ITnRobotSurface& surface) {
            surface.ResetOriPos({1, 1});
        },
        [](ITnRobotSurface& surface) { surface.QueryTimeStamp(); },
    };
    const SurfaceSource surfaces;
    const auto use = [&surfaces](Call call) {
        ITnRobotSurface* const pSurface = surfaces.Query();
        pSurface->Release();
        call(*pSurface);
    };
    for (const Call& call : calls) {
        EXPECT_DEATH(use(call), Stopped("CTnRobotSurface", "used after its return to its pool")) << &call - calls;
    }
}

TEST_F(CheckedDeathTest, AReturnedValuePutIntoAGroup) {
    const auto use = [] {
        const Group group = NewGroup();
        ITnRobotDataValue* pValue = MakeText("text");
        pValue->Release();
        group->SetValue("name", pValue);
    };
    EXPECT_DEATH(use(), Stopped("CTnRobotDataValue", "AddRef after its return to its pool"));
}

TEST_F(CheckedDeathTest, AWriteToAReturnedBlock) {
    const HeldPool pool = MakePool();
    const auto use = [&pool](unsigned int nAt) {
        ITnRobotMemoryBlock* pBlock = QueryBlock(*pool, 32768);
        unsigned char* pData = DataOf(*pBlock);
        pBlock->Release();
        pData[nAt] = 1;
        QueryBlock(*pool, 32768);
    };
    for (const unsigned int nAt : {0U, 1U, 20000U, 32767U}) {
        EXPECT_DEATH(use(nAt), Written("CTnRobotMemoryBlock")) << nAt;
    }
}

// The buffer starts over when nothing of it is in use, and the memory is handed out again.
TEST_F(CheckedDeathTest, AWriteToAReturnedBlockOfTheCircularPool) {
    const HeldPool pool = MakeCirclePool();
    const auto use = [&pool] {
        constexpr unsigned int kTwoThirds = 0x1000000;
        ITnRobotMemoryBlock* pBlock = QueryBlock(*pool, kTwoThirds);
        unsigned char* pData = DataOf(*pBlock);
        pBlock->Release();
        pData[1000] = 1;
        QueryBlock(*pool, kTwoThirds);
    };
    EXPECT_DEATH(use(), Written("CTnRobotMemoryBlock"));
}

// A short text lies within the value itself.
TEST_F(CheckedDeathTest, AWriteToTheTextOfAReturnedValue) {
    const auto use = [] {
        TnRobotUtils::Destroy();
        TnRobotUtils::Init();  // an empty pool, which hands the same value out again
        ITnRobotDataValue* pValue = MakeText("text");
        int nLength = 0;
        char* pText = const_cast<char*>(pValue->StringData(nLength, nullptr));
        pValue->Release();
        pText[1] = 'x';
        MakeText("more");
    };
    EXPECT_DEATH(use(), Written("CTnRobotDataValue"));
}

namespace {

class CTnProbe : public ITnUnknown {
public:
    void ForceCount(int nCount) { m_nRefCount.store(nCount); }
};

}  // namespace

TEST_F(CheckedDeathTest, ABrokenInvariantNamesTheClass) {
    const CTnProbe probe;
    tnrobot::CheckInvariant(probe, true, "is broken");
    EXPECT_DEATH(tnrobot::CheckInvariant(probe, false, "is broken"), "CTnProbe: is broken");
}

// An application's object answers a Release too many, whatever the build.
TEST(Checked, LeavesObjectsOfApplicationsAlone) {
    CTnProbe probe;
    probe.ForceCount(0);
    EXPECT_EQ(probe.Release(), -1);
}

TEST(Checked, HoldersKeepWhatOutlivesItsPool) {
    auto surfaces = std::make_unique<SurfaceSource>();
    const TnRobotPtr<ITnRobotSurface> surface = tn::Adopt(surfaces->Query());
    auto tasks = std::make_unique<TaskSource>();
    const TnRobotPtr<ITnRobotTask> task = tn::Adopt(tasks->Query());
    HeldPool blocks = MakeCirclePool();
    const TnRobotPtr<ITnRobotMemoryBlock> block = tn::Adopt(QueryBlock(*blocks, 10));
    surfaces.reset();
    tasks.reset();
    blocks.reset();
    surface->AddRef();
    surface->SetTimeStamp(7);
    EXPECT_EQ(surface->QueryTimeStamp(), 7U);
    EXPECT_EQ(surface->Release(), 1);
    task->AddRef();
    EXPECT_FALSE(task->Start());
    EXPECT_EQ(task->Release(), 1);
    block->AddRef();
    EXPECT_EQ(block->Release(), 1);
}

TEST(Checked, ValuesAreWatchedAgainAfterEachHandOut) {
    for (int nRound = 0; nRound < 3; ++nRound) {
        const TnRobotPtr<ITnRobotDataValue> value = tn::Adopt(MakeText("text"));
        int nLength = 0;
        EXPECT_STREQ(value->StringData(nLength, nullptr), "text");
    }
}
