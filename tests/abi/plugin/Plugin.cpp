// A plug-in as applications write them: its own files, blocks, pool elements and serialisable
// classes behind the library's interfaces. It is built with more than one compiler.

#include "abi/plugin/Plugin.h"

#include <atomic>
#include <stdexcept>

#include "support/Archives.h"
#include "support/TestBlocks.h"
#include "support/TestFile.h"
#include "support/TestObjects.h"

namespace {

using tntest::TestNode;
using tntest::operator+;

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
    return tntest::TestFile::LiveCount() + tntest::TestBlock::LiveCount() + tntest::LiveObject::Count() +
           PluginElement::LiveCount();
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
tntest::Bytes Saved(CTnRobotObject* pObject) {
    const tntest::Channel objects = tntest::Storing();
    objects->WriteObject(pObject);
    const tntest::Bytes records = objects.file->TakeNew();
    objects->WriteMapHeader();
    return objects.file->TakeNew() + records;
}

bool RunAlone() {
    const auto node = TestNode::Create(7);
    const tntest::Channel loading = tntest::Loading(Saved(node.get()));
    CTnRobotObject* pLoaded = nullptr;
    if (loading->ReadMapHeader() != 1 || loading->ReadObject(&pLoaded) != 1) {
        return false;
    }
    const int nNumber = NumberOf(pLoaded);
    dynamic_cast<ITnUnknown*>(pLoaded)->Release();
    return nNumber == 7;
}

const tntest::PluginTable s_table = {
    []() -> ITnRobotFile* { return new tntest::TestFile; },
    []() -> ITnRobotMemoryBlockPool* { return new tntest::TestBlockPool; },
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

extern "C" __attribute__((visibility("default"))) const tntest::PluginTable* TnGetTestPlugin() {
    return &s_table;
}
