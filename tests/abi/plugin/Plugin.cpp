// A plug-in as applications write them: its own files, blocks, pool elements and serialisable
// classes behind the library's interfaces. It is built with more than one compiler.

#include "abi/plugin/Plugin.h"

#include <atomic>
#include <stdexcept>

#include "support/fakes/TestBlocks.h"
#include "support/fakes/TestFile.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"

using namespace tntest;

namespace {

class PluginElement final : public ITnPoolElement {
public:
    PluginElement() { ++s_nLive; }
    ~PluginElement() override { --s_nLive; }
    static int LiveCount() { return s_nLive.load(); }

    void ClearResource() override {}

private:
    static std::atomic<int> s_nLive;
};

std::atomic<int> PluginElement::s_nLive{0};

class PluginElementAlloc final : public ITnElementAlloc {
public:
    bool AllocElement(void* /*pParam*/, ITnPoolElement** ppElement) override {
        *ppElement = new PluginElement;
        return true;
    }
    void SetElementParam(ITnPoolElement* /*pElement*/, void* /*pParam*/) override {}
};

template <typename Interface>
bool Is(ITnUnknown* pObject) {
    return dynamic_cast<Interface*>(pObject) != nullptr;
}

int NumberOf(CTnRobotObject* pNode) {
    const auto* pOwn = dynamic_cast<TestNode*>(pNode);
    return pOwn != nullptr ? pOwn->Number() : -1;
}

int LiveObjects() {
    return TestFile::LiveCount() + TestBlock::LiveCount() + LiveObject::Count() + PluginElement::LiveCount();
}

ITnRobotDataValueGroup* CreateGroup() {
    ITnRobotDataValueGroup* pGroup = nullptr;
    if (TnCreateRobotValueDataGroup(&pGroup) == 1) {
        pGroup->SetValue("answer", 42);
    }
    return pGroup;
}

bool CatchesWhatTheLibraryThrows() {
    const auto group = tn::Adopt(CreateGroup());
    try {
        group->GetDataValueType(nullptr);
    } catch (const std::logic_error&) {
        return true;
    } catch (...) {
    }
    return false;
}

// Tables first, as a reader needs them.
Bytes Saved(CTnRobotObject* pObject) {
    const Channel objects = Storing();
    objects->WriteObject(pObject);
    const Bytes records = objects.file->TakeNew();
    objects->WriteMapHeader();
    return objects.file->TakeNew() + records;
}

bool RunAlone() {
    const auto node = TestNode::Create(7);
    const Channel loading = Loading(Saved(node.get()));
    CTnRobotObject* pLoaded = nullptr;
    if (loading->ReadMapHeader() != 1 || loading->ReadObject(&pLoaded) != 1) {
        return false;
    }
    const int nNumber = NumberOf(pLoaded);
    dynamic_cast<ITnUnknown*>(pLoaded)->Release();
    return nNumber == 7;
}

const PluginTable s_table = {
    []() -> ITnRobotFile* { return new TestFile; },
    []() -> ITnRobotMemoryBlockPool* { return new TestBlockPool; },
    []() -> ITnElementAlloc* { return new PluginElementAlloc; },
    [](int nNumber) -> CTnRobotObject* { return new TestNode(nNumber); },
    NumberOf,
    LiveObjects,
    [](ITnUnknown* pObject) -> const std::type_info* { return &typeid(*pObject); },
    Is<ITnRobotDataValue>,
    Is<ITnRobotDataValueGroup>,
    Is<ITnRobotMemFile>,
    Is<ITnRobotSerialize>,
    [](ITnRobotSerialize* pObject) { return dynamic_cast<ITnUnknown*>(pObject); },
    [](ITnRobotSerialize* pObject) { delete pObject; },
    &typeid(ITnUnknown),
    &typeid(ITnRobotFile),
    &typeid(ITnRobotSerialize),
    &typeid(CTnRobotObject),
    CreateGroup,
    CatchesWhatTheLibraryThrows,
    RunAlone,
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const PluginTable* TnGetTestPlugin() {
    return &s_table;
}
