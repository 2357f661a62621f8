// Objects and types on both sides of the library's border: a program that is linked with the
// library, and a plug-in that it opens at run time, built with the same compiler or another.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "abi/plugin/Plugin.h"
#include "support/processes/ChildProcess.h"

using namespace tntest;

namespace {

template <typename Interface>
TnRobotPtr<Interface> Made(int (*pfnCreate)(Interface**)) {
    Interface* p = nullptr;
    pfnCreate(&p);
    return tn::Adopt(p);
}

TnRobotPtr<ITnRobotDataValue> MadeValue(int nValue) {
    ITnRobotDataValue* pValue = nullptr;
    TnCreateRobotIntData(nValue, &pValue);
    return tn::Adopt(pValue);
}

ITnUnknown* RootOf(CTnRobotObject* pObject) {
    return dynamic_cast<ITnUnknown*>(pObject);
}

class ProgramsObject final : public CTnRobotObject {
public:
    STnRuntimeClass* GetRuntimeClass() override { return nullptr; }
};

// Classes of the program's own, registered by the tests.
constexpr char kFirst[] = "11111111-AAAA-4AAA-8AAA-0000000000F1";
constexpr char kSecond[] = "11111111-AAAA-4AAA-8AAA-0000000000F2";
constexpr char kThird[] = "11111111-AAAA-4AAA-8AAA-0000000000F3";

template <const char* Guid>
void Register() {
    static STnRuntimeClass s_class = {Guid, []() -> CTnRobotObject* { return new ProgramsObject; }, nullptr, nullptr};
    const TN_REG_CLASS registered(&s_class);
}

bool IsCreated(const char* lpszGuid) {
    CTnRobotObject* pObject = CTnRobotObject::CreateObjectFromGUID(lpszGuid);
    delete pObject;
    return pObject != nullptr;
}

// Opens the plug-in, and closes it again when nothing of it is alive.
class Border : public ::testing::Test {
protected:
    void SetUp() override { Open(); }

    void TearDown() override { Close(); }

    void Open() {
        m_pHandle = dlopen(TNROBOT_TEST_PLUGIN, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_pHandle, nullptr) << dlerror();
        const auto pfnGet = reinterpret_cast<GetPluginFunction>(dlsym(m_pHandle, kGetPlugin));
        ASSERT_NE(pfnGet, nullptr);
        m_pTable = pfnGet();
    }

    void Close() {
        if (m_pTable != nullptr) {
            EXPECT_EQ(m_pTable->pfnLiveObjects(), 0);
            m_pTable = nullptr;
        }
        if (m_pHandle != nullptr) {
            EXPECT_EQ(dlclose(m_pHandle), 0);
            m_pHandle = nullptr;
        }
    }

    const PluginTable& Plugin() const { return *m_pTable; }

    // A file of the plug-in's with the node in it: the tables, then the record.
    TnRobotPtr<ITnRobotFile> SavedNode(int nNumber) {
        CTnRobotObject* pNode = Plugin().pfnCreateNode(nNumber);
        auto objects = tn::Adopt(Plugin().pfnCreateFile());
        auto archive = Made(TnCreateRobotArchive);
        archive->Attach(objects.get(), true);
        EXPECT_EQ(archive->WriteObject(pNode), 1);
        archive->Detach();
        auto file = tn::Adopt(Plugin().pfnCreateFile());
        archive->Attach(file.get(), true);
        EXPECT_EQ(archive->WriteMapHeader(), 1);
        std::vector<unsigned char> records(static_cast<std::size_t>(objects->GetTotleLen()));
        EXPECT_EQ(objects->Read(records.data(), objects->GetTotleLen()), objects->GetTotleLen());
        EXPECT_EQ(file->Write(records.data(), static_cast<long long>(records.size())), 1);
        EXPECT_EQ(RootOf(pNode)->Release(), 0);
        return file;
    }

private:
    void* m_pHandle = nullptr;
    const PluginTable* m_pTable = nullptr;
};

}  // namespace

TEST_F(Border, TypesOfInterfacesAreTheSameOnBothSides) {
    EXPECT_EQ(*Plugin().pRootType, typeid(ITnUnknown));
    EXPECT_EQ(*Plugin().pFileType, typeid(ITnRobotFile));
    EXPECT_EQ(*Plugin().pSerializeType, typeid(ITnRobotSerialize));
    EXPECT_EQ(*Plugin().pObjectType, typeid(CTnRobotObject));
    // One record in the process, not merely one of the same name.
    EXPECT_EQ(Plugin().pRootType, &typeid(ITnUnknown));
    EXPECT_EQ(Plugin().pFileType, &typeid(ITnRobotFile));
    EXPECT_EQ(Plugin().pSerializeType, &typeid(ITnRobotSerialize));
    EXPECT_EQ(Plugin().pObjectType, &typeid(CTnRobotObject));
}

TEST_F(Border, TypesOfObjectsAreTheSameOnBothSides) {
    const auto value = MadeValue(5);
    const auto group = Made(TnCreateRobotValueDataGroup);
    const auto file = tn::Adopt(Plugin().pfnCreateFile());
    const ITnUnknown& anyValue = *value;
    const ITnUnknown& anyFile = *file;
    const auto& valueType = typeid(anyValue);
    const auto& fileType = typeid(anyFile);
    EXPECT_EQ(*Plugin().pfnTypeOf(value.get()), valueType);
    EXPECT_EQ(*Plugin().pfnTypeOf(MadeValue(6).get()), valueType);
    EXPECT_NE(*Plugin().pfnTypeOf(group.get()), valueType);
    EXPECT_EQ(*Plugin().pfnTypeOf(file.get()), fileType);
}

TEST_F(Border, APluginCastsObjectsOfTheLibrary) {
    const auto value = MadeValue(5);
    const auto group = Made(TnCreateRobotValueDataGroup);
    const auto file = Made(TnCreateRobotFile);
    const auto memFile = Made(TnCreateRobotMemFile);
    EXPECT_TRUE(Plugin().pfnIsValue(value.get()));
    EXPECT_FALSE(Plugin().pfnIsValue(group.get()));
    EXPECT_TRUE(Plugin().pfnIsGroup(group.get()));
    EXPECT_FALSE(Plugin().pfnIsGroup(value.get()));
    EXPECT_TRUE(Plugin().pfnIsSerialisable(value.get()));
    EXPECT_TRUE(Plugin().pfnIsSerialisable(group.get()));
    EXPECT_FALSE(Plugin().pfnIsSerialisable(file.get()));
    EXPECT_TRUE(Plugin().pfnIsMemFile(memFile.get()));
    EXPECT_FALSE(Plugin().pfnIsMemFile(file.get()));
    EXPECT_EQ(Plugin().pfnRootOf(value.get()), value.get());
    EXPECT_EQ(Plugin().pfnRootOf(group.get()), group.get());
}

TEST_F(Border, AProgramCastsObjectsOfAPlugin) {
    const auto file = tn::Adopt(Plugin().pfnCreateFile());
    ITnUnknown* pFile = file.get();
    EXPECT_EQ(dynamic_cast<ITnRobotFile*>(pFile), file.get());
    EXPECT_EQ(dynamic_cast<ITnRobotMemFile*>(pFile), nullptr);
    EXPECT_EQ(dynamic_cast<ITnRobotSerialize*>(pFile), nullptr);

    CTnRobotObject* pNode = Plugin().pfnCreateNode(3);
    auto* pSerialize = dynamic_cast<ITnRobotSerialize*>(pNode);
    ASSERT_NE(pSerialize, nullptr);
    EXPECT_EQ(dynamic_cast<CTnRobotObject*>(pSerialize), pNode);
    EXPECT_EQ(Plugin().pfnRootOf(pSerialize), RootOf(pNode));
    EXPECT_EQ(RootOf(pNode)->Release(), 0);
}

TEST_F(Border, EitherSideDestroysObjectsOfTheOtherThroughAnyBase) {
    delete Plugin().pfnCreateNode(1);
    delete dynamic_cast<ITnRobotSerialize*>(Plugin().pfnCreateNode(2));
    EXPECT_EQ(Plugin().pfnLiveObjects(), 0);

    // A group that nobody else holds gives its value back wherever its destructor is called from.
    const auto value = MadeValue(5);
    ITnRobotDataValueGroup* pGroup = Made(TnCreateRobotValueDataGroup).detach();
    ASSERT_EQ(pGroup->SetValue("five", value.get()), 0);
    value->AddRef();
    const int nWithGroup = value->Release();
    Plugin().pfnDestroy(pGroup);
    value->AddRef();
    EXPECT_EQ(value->Release(), nWithGroup - 1);
}

TEST_F(Border, AnArchiveOfTheLibraryWritesToAFileOfAPlugin) {
    ITnRobotFile* pFile = Plugin().pfnCreateFile();
    const auto archive = Made(TnCreateRobotArchive);
    const auto group = tn::Adopt(Plugin().pfnCreateGroup());
    ASSERT_TRUE(archive->Attach(pFile, true));
    EXPECT_EQ(group->Serialize(archive.get()), 1);
    archive->Detach();
    const auto loaded = Made(TnCreateRobotValueDataGroup);
    ASSERT_TRUE(archive->Attach(pFile, false));
    EXPECT_EQ(loaded->Serialize(archive.get()), 1);
    int nError = -1;
    EXPECT_EQ(loaded->IntData("answer", &nError), 42);
    EXPECT_EQ(nError, 0);

    pFile->Release();
    EXPECT_EQ(Plugin().pfnLiveObjects(), 1) << "the archive holds it";
    archive->Detach();
    EXPECT_EQ(Plugin().pfnLiveObjects(), 0);
}

TEST_F(Border, AStreamOfTheLibraryFillsBlocksOfAPlugin) {
    const auto pool = tn::Adopt(Plugin().pfnCreateBlockPool());
    ITnRobotMemDataStream* pStream = nullptr;
    ASSERT_EQ(TnCreateRobotMemDataStream(pool.get(), &pStream), 1);
    const unsigned char content[] = "across the border";
    EXPECT_EQ(pStream->WriteData(content, sizeof(content)), 0);
    EXPECT_GT(Plugin().pfnLiveObjects(), 0);
    pStream->BeginReadData();
    unsigned int nSize = 0;
    const unsigned char* pPiece = pStream->ReadData(nSize);
    ASSERT_EQ(nSize, sizeof(content));
    EXPECT_EQ(std::memcmp(pPiece, content, sizeof(content)), 0);
    pStream->EndReadData();
    pStream->Release();
    EXPECT_EQ(Plugin().pfnLiveObjects(), 0);
}

TEST_F(Border, ABlockOfTheLibraryKeepsABlockOfAPluginAlive) {
    const auto pool = tn::Adopt(Plugin().pfnCreateBlockPool());
    ITnRobotMemoryBlock* pParent = nullptr;
    ASSERT_EQ(pool->QueryMemBuff(16, &pParent), 1);
    unsigned int nSize = 0;
    unsigned char* pData = pParent->QueryMemory(nSize);
    ITnRobotMemoryBlock* pBlock = nullptr;
    ASSERT_EQ(TnCreateRobotCustomMemBlock(pParent, pData + 4, 8, &pBlock), 1);
    pParent->Release();
    EXPECT_EQ(Plugin().pfnLiveObjects(), 1);
    EXPECT_EQ(pBlock->QueryMemory(nSize), pData + 4);
    EXPECT_EQ(pBlock->Release(), 0);
    EXPECT_EQ(Plugin().pfnLiveObjects(), 0);
}

TEST_F(Border, ElementsOfAPluginLiveInAPoolOfTheProgram) {
    auto alloc = tn::Adopt(Plugin().pfnCreateElementAlloc());
    auto pool = tn::Adopt(new CTnRobotPool<ITnPoolElement>(alloc.get()));
    alloc.reset();
    ITnPoolElement* pFirst = nullptr;
    ASSERT_TRUE(pool->QueryPoolElement(0, nullptr, &pFirst));
    EXPECT_FALSE(Plugin().pfnIsValue(pFirst));
    EXPECT_EQ(pFirst->Release(), 1) << "back in its pool";
    ITnPoolElement* pAgain = nullptr;
    ASSERT_TRUE(pool->QueryPoolElement(0, nullptr, &pAgain));
    EXPECT_EQ(pAgain, pFirst);
    EXPECT_EQ(Plugin().pfnLiveObjects(), 1);
    pool.reset();
    EXPECT_EQ(pAgain->Release(), 0) << "its pool is gone";
    EXPECT_EQ(Plugin().pfnLiveObjects(), 0);
}

TEST_F(Border, AnArchiveCreatesObjectsOfAPluginsRegisteredClass) {
    const auto file = SavedNode(77);
    const auto archive = Made(TnCreateRobotArchive);
    archive->Attach(file.get(), false);
    ASSERT_EQ(archive->ReadMapHeader(), 1);
    CTnRobotObject* pLoaded = nullptr;
    ASSERT_EQ(archive->ReadObject(&pLoaded), 1);
    ASSERT_STREQ(pLoaded->GetRuntimeClass()->m_lpszClassGuid, kPluginNodeGuid);
    EXPECT_EQ(Plugin().pfnNumberOf(pLoaded), 77);
    EXPECT_EQ(RootOf(pLoaded)->Release(), 0);
}

TEST_F(Border, AnArchiveDestroysAnObjectOfAPluginThatFailsToLoad) {
    const auto file = SavedNode(kNodeThatFailsToLoad);
    const auto archive = Made(TnCreateRobotArchive);
    archive->Attach(file.get(), false);
    ASSERT_EQ(archive->ReadMapHeader(), 1);
    const int nBefore = Plugin().pfnLiveObjects();
    CTnRobotObject* pLoaded = nullptr;
    EXPECT_EQ(archive->ReadObject(&pLoaded), 0);
    EXPECT_EQ(pLoaded, nullptr);
    EXPECT_EQ(Plugin().pfnLiveObjects(), nBefore);
}

TEST_F(Border, APluginHandsOutObjectsOfTheLibrary) {
    const auto group = tn::Adopt(Plugin().pfnCreateGroup());
    const auto clone = tn::Adopt(group->Clone());
    int nError = -1;
    EXPECT_EQ(clone->IntData("answer", &nError), 42);
    EXPECT_EQ(nError, 0);
}

TEST_F(Border, APluginCatchesWhatTheLibraryThrows) {
    EXPECT_TRUE(Plugin().pfnCatchesWhatTheLibraryThrows());
}

// Nothing but the plug-in uses the library here, so both leave when the plug-in is closed.
TEST(PluginOfAForeignHost, LeavesTogetherWithTheLibrary) {
    const ChildResult result = RunChild({TNROBOT_PLUGIN_PROBE, {TNROBOT_TEST_PLUGIN, "3"}, {}, {}});
    const std::string visit = "worked 1 alive 0 plugin 0 library 0\n";
    EXPECT_EQ(result.output, visit + visit + visit);
    EXPECT_EQ(result.nExitCode, 0);
}

// The chain of classes runs through the records of every module that has registered any, so a
// plug-in that is closed leaves a gap in it.
TEST_F(Border, AClassOfAClosedPluginIsForgottenAndTheOthersAreFound) {
    Close();
    Register<kFirst>();
    Open();
    Register<kSecond>();
    EXPECT_TRUE(IsCreated(kPluginNodeGuid));
    Close();
    ASSERT_EQ(dlopen(TNROBOT_TEST_PLUGIN, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "it is still there";
    EXPECT_FALSE(IsCreated(kPluginNodeGuid));
    EXPECT_TRUE(IsCreated(kFirst));
    EXPECT_TRUE(IsCreated(kSecond));

    Open();
    EXPECT_TRUE(IsCreated(kPluginNodeGuid));
    Close();
    // The first to meet the gap is a registration.
    Register<kThird>();
    EXPECT_FALSE(IsCreated(kPluginNodeGuid));
    EXPECT_TRUE(IsCreated(kFirst));
    EXPECT_TRUE(IsCreated(kSecond));
    EXPECT_TRUE(IsCreated(kThird));
}

// The first look-up closes the gap; nothing but the chain that it left tells the second one.
TEST_F(Border, EveryLookUpAfterAPluginHasClosedIsRight) {
    Close();
    Register<kFirst>();
    Open();
    Register<kSecond>();
    Close();
    for (int n = 0; n < 3; ++n) {
        EXPECT_TRUE(IsCreated(kFirst)) << n;
        EXPECT_FALSE(IsCreated(kPluginNodeGuid)) << n;
        EXPECT_TRUE(IsCreated(kSecond)) << n;
    }
    Open();
    for (int n = 0; n < 3; ++n) {
        EXPECT_TRUE(IsCreated(kPluginNodeGuid)) << n;
        EXPECT_TRUE(IsCreated(kFirst)) << n;
    }
    Close();
    // Two that are closed one after the other, and one that comes back before anything is looked up.
    Open();
    Close();
    Open();
    EXPECT_TRUE(IsCreated(kPluginNodeGuid));
    EXPECT_TRUE(IsCreated(kSecond));
    EXPECT_TRUE(IsCreated(kPluginNodeGuid));
    Close();
    EXPECT_FALSE(IsCreated(kPluginNodeGuid));
    EXPECT_FALSE(IsCreated(kPluginNodeGuid));
}

// The program's classes are older than the plug-in's, so every search passes through the plug-in's records.
TEST_F(Border, ClassesMayBeLookedUpAndRegisteredWhileAPluginComesAndGoes) {
    Close();
    Register<kFirst>();
    Register<kSecond>();
    std::atomic<bool> bStop{false};
    std::atomic<int> nWrong{0};
    std::vector<std::thread> threads;
    for (int n = 0; n < 3; ++n) {
        threads.emplace_back([&bStop, &nWrong] {
            while (!bStop) {
                nWrong += IsCreated(kFirst) && !IsCreated("no class") ? 0 : 1;
            }
        });
    }
    threads.emplace_back([&bStop] {
        while (!bStop) {
            Register<kThird>();
            std::this_thread::yield();
        }
    });
    constexpr int kVisits = 1000;
    for (int n = 0; n < kVisits; ++n) {
        Open();
        Close();
    }
    bStop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(nWrong, 0);
    EXPECT_FALSE(IsCreated(kPluginNodeGuid));
}

TEST_F(Border, APluginComesAndGoesWithItsClasses) {
    for (int n = 0; n < 100; ++n) {
        Close();
        ASSERT_FALSE(IsCreated(kPluginNodeGuid));
        Open();
        ASSERT_TRUE(IsCreated(kPluginNodeGuid));
    }
}
