// Every creation function of an object without memory: there is the whole object, or none of it.

#include <functional>

#include "TnRobotKernel/TnRobotKernel.h"
#include "failure/AllocationScenario.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Memory.h"

namespace tntest {

namespace {

template <typename Interface>
class CreatesAnObject : public AllocationScenario {
public:
    using Create = int (*)(Interface**);
    using Use = bool (*)(Interface&);

    CreatesAnObject(Create pfnCreate, Use pfnUse) : m_pfnCreate(pfnCreate), m_pfnUse(pfnUse) {}

    bool Attempt() override {
        Interface* pObject = nullptr;
        const int nResult = m_pfnCreate(&pObject);
        m_object.attach(pObject);
        return nResult == 1;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(m_object != nullptr, bDone);
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_TRUE(m_pfnUse(*m_object));
        EXPECT_EQ(m_object.detach()->Release(), 0) << "the creation's reference is the only one";
    }

private:
    Create m_pfnCreate;
    Use m_pfnUse;
    TnRobotPtr<Interface> m_object;
};

/// What a creation function needs besides its out-pointer.
template <typename Interface>
class CreatesFromAPool : public AllocationScenario {
public:
    using Create = int (*)(ITnRobotMemoryBlockPool*, Interface**);
    using Use = bool (*)(Interface&);

    CreatesFromAPool(Create pfnCreate, Use pfnUse) : m_pfnCreate(pfnCreate), m_pfnUse(pfnUse), m_pool(MakePool()) {}

    bool Attempt() override {
        Interface* pObject = nullptr;
        const int nResult = m_pfnCreate(m_pool.get(), &pObject);
        m_object.attach(pObject);
        return nResult == 1;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(m_object != nullptr, bDone);
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_TRUE(m_pfnUse(*m_object));
        m_object.reset();
        EXPECT_EQ(m_pool.detach()->Release(), 0) << "a reference to the pool is left";
    }

private:
    Create m_pfnCreate;
    Use m_pfnUse;
    HeldPool m_pool;
    TnRobotPtr<Interface> m_object;
};

/// A view, which keeps the block that it was cut from.
class CreatesACustomBlock : public AllocationScenario {
public:
    bool Attempt() override {
        ITnRobotMemoryBlock* pView = nullptr;
        const int nResult = TnCreateRobotCustomMemBlock(m_block.get(), DataOf(*m_block) + 10, 20, &pView);
        m_view.attach(pView);
        return nResult == 1;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(m_view != nullptr, bDone);
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_EQ(SizeOf(*m_view), 20U);
        EXPECT_EQ(DataOf(*m_view), DataOf(*m_block) + 10);
        m_view.reset();
        EXPECT_EQ(m_block.detach()->Release(), 1) << "only the pool's reference is left";
    }

private:
    HeldPool m_pool = MakePool();
    HeldBlock m_block = Query(*m_pool, 100);
    HeldBlock m_view;
};

class CreatesAValueGroup : public CreatesAnObject<ITnRobotDataValueGroup> {
public:
    CreatesAValueGroup() : CreatesAnObject(&TnCreateRobotValueDataGroup, &IsUsable) { TnRobotUtils::Init(); }
    ~CreatesAValueGroup() override { TnRobotUtils::Destroy(); }

private:
    static bool IsUsable(ITnRobotDataValueGroup& group) {
        return group.SetValue("name", 5) == 0 && group.IntData("name", nullptr) == 5;
    }
};

class StartsUp : public AllocationScenario {
public:
    ~StartsUp() override { TnRobotUtils::Destroy(); }

    bool Attempt() override {
        TnRobotUtils::Init();
        return true;
    }

    // Without the value pool values are refused; a second start-up makes it.
    void Check(bool bDone) override {
        ITnRobotDataValue* pValue = nullptr;
        EXPECT_EQ(TnCreateRobotIntData(5, &pValue), bDone ? 0 : -1);
        EXPECT_EQ(pValue != nullptr, bDone);
        const TnRobotPtr<ITnRobotDataValue> value(pValue, tn::kAdopt);
        TnRobotUtils::Init();
        EXPECT_EQ(TnCreateRobotIntData(6, &pValue), 0);
        const TnRobotPtr<ITnRobotDataValue> another(pValue, tn::kAdopt);
        EXPECT_EQ(another->IntData(nullptr), 6);
    }
};

class CreatesAnObjectByItsClass : public AllocationScenario {
public:
    bool Attempt() override {
        m_object.reset(CTnRobotObject::CreateObjectFromGUID(PlainObject::kGuid));
        return m_object != nullptr;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(LiveObject::Count(), bDone ? 1 : 0);
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_EQ(m_object->GetRuntimeClass(), &PlainObject::s_class);
    }

private:
    std::unique_ptr<CTnRobotObject> m_object;
};

/// A class that is registered already moves to the front; without memory it stays where it was.
class RegistersAClassAgain : public AllocationScenario {
public:
    RegistersAClassAgain() {
        const TN_REG_CLASS moved(&s_moved);
        const TN_REG_CLASS other(&s_other);
    }

    bool Attempt() override {
        const TN_REG_CLASS again(&s_moved);
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(CreatedValue(kMovedGuid), kMoved) << "the class was lost";
        EXPECT_EQ(CreatedValue(kOtherGuid), kOther);
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_EQ(CreatedValue(kMovedGuid), kMoved);
        EXPECT_EQ(CreatedValue(kOtherGuid), kOther);
        EXPECT_EQ(CreatedValue(PlainObject::kGuid), 0) << "a class registered before both";
    }

private:
    static constexpr int kMoved = 1;
    static constexpr int kOther = 2;
    static constexpr const char* kMovedGuid = "11111111-AAAA-4AAA-8AAA-0000000000A1";
    static constexpr const char* kOtherGuid = "11111111-AAAA-4AAA-8AAA-0000000000A2";

    // @return -1 for a class that is not found.
    static int CreatedValue(const char* lpszGuid) {
        const std::unique_ptr<CTnRobotObject> object(CTnRobotObject::CreateObjectFromGUID(lpszGuid));
        const auto* pPlain = dynamic_cast<const PlainObject*>(object.get());
        return pPlain != nullptr ? pPlain->Value() : -1;
    }

    template <int nValue>
    static CTnRobotObject* Create() {
        return new PlainObject(static_cast<unsigned char>(nValue));
    }

    static STnRuntimeClass s_moved;
    static STnRuntimeClass s_other;
};

STnRuntimeClass RegistersAClassAgain::s_moved = {kMovedGuid, &Create<kMoved>, nullptr, nullptr};
STnRuntimeClass RegistersAClassAgain::s_other = {kOtherGuid, &Create<kOther>, nullptr, nullptr};

bool CanWrite(ITnRobotMemFile& file) {
    return file.OpenWriteFile(10) && file.Write("abc", 3) == 1 && file.GetTotleLen() == 3;
}

bool IsClosed(ITnRobotFile& file) {
    return file.GetTotleLen() == 0 && !file.Close();
}

bool GivesABlock(ITnRobotMemoryBlockPool& pool) {
    const HeldBlock block = Query(pool, 1000);
    return block != nullptr && SizeOf(*block) == 1000;
}

bool TakesBytes(ITnRobotMemDataStream& stream) {
    const unsigned char bytes[] = {1, 2, 3};
    return stream.WriteData(bytes, 3) == 0 && stream.GetTotleLength() == 3;
}

bool IsDetached(ITnRobotArchive& archive) {
    return !archive.IsLoading() && !archive.IsStoring() && archive.WriteString("text") == 0;
}

bool GivesASurface(ITnRobotSurfacePool& pool) {
    ITnRobotSurface* pSurface = nullptr;
    const ITnRobotSurface::STnSurfaceDesc desc = {5, 4, 0, TN_IMAGE_BGR24, {0, 0}};
    const int nResult = pool.QuerySurface(desc, &pSurface);
    const TnRobotPtr<ITnRobotSurface> surface(pSurface, tn::kAdopt);
    return nResult == 0 && desc.nPitch == 16;
}

bool IsSet(ITnRobotEvent& event) {
    return event.WaitEvent(0);
}

bool CanBeSignalled(ITnRobotSignal& signal) {
    signal.Signal();
    return signal.Wait(0) == 1;
}

bool CanBeStopped(ITnRobotAlarmClock& clock) {
    bool bStopped = false;
    clock.StartRecord(60000);
    const bool bRuns = !clock.IsTimeOut(bStopped) && !bStopped;
    clock.StopRecord();
    return bRuns && clock.Wait();
}

bool HasNoJob(ITnRobotThread& thread) {
    return !thread.Run();
}

bool GivesATask(ITnRobotTaskPool& pool) {
    return pool.CreateTask([](ITnRobotEvent*) {}) && pool.GetTaskCount() == 1;
}

int CreateSetEvent(ITnRobotEvent** ppEvent) {
    return TnCreateRobotManualEvent(true, ppEvent);
}

template <typename Interface>
AllocationCase Creation(const char* lpszName, int (*pfnCreate)(Interface**), bool (*pfnUse)(Interface&)) {
    return MakeCase<CreatesAnObject<Interface>>(lpszName, pfnCreate, pfnUse);
}

template <typename Interface>
AllocationCase Creation(const char* lpszName, int (*pfnCreate)(ITnRobotMemoryBlockPool*, Interface**),
                        bool (*pfnUse)(Interface&)) {
    return MakeCase<CreatesFromAPool<Interface>>(lpszName, pfnCreate, pfnUse);
}

// Its creation starts a thread.
AllocationCase TaskPoolCreation() {
    AllocationCase made = Creation("TaskPool", &TnCreateRobotTaskPool, &GivesATask);
    made.eThreads = Threads::kAll;
    return made;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Creation, AllocationFailure,
                         testing::Values(Creation("File", &TnCreateRobotFile, &IsClosed),
                                         Creation("MemFile", &TnCreateRobotMemFile, &CanWrite),
                                         Creation("BlockPool", &TnCreateRobotMemoryBlockPool, &GivesABlock),
                                         Creation("CircularPool", &TnCreateRobotCircleMemoryBlockPool, &GivesABlock),
                                         MakeCase<CreatesACustomBlock>("CustomBlock"),
                                         Creation("DataStream", &TnCreateRobotMemDataStream, &TakesBytes),
                                         Creation("Archive", &TnCreateRobotArchive, &IsDetached),
                                         MakeCase<CreatesAValueGroup>("ValueGroup"),
                                         Creation("SurfacePool", &TnCreateRobotSurfacePool, &GivesASurface),
                                         Creation("Event", &CreateSetEvent, &IsSet),
                                         Creation("Signal", &TnCreateRobotSignal, &CanBeSignalled),
                                         Creation("AlarmClock", &TnCreateRobotAlarmClock, &CanBeStopped),
                                         Creation("Thread", &TnCreateRobotThread, &HasNoJob), TaskPoolCreation(),
                                         MakeCase<CreatesAnObjectByItsClass>("ObjectOfAClass"),
                                         MakeCase<RegistersAClassAgain>("ClassRegisteredAgain"),
                                         MakeCase<StartsUp>("ValuePool")),
                         AllocationCaseName);

}  // namespace tntest
