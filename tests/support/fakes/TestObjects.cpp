#include "support/fakes/TestObjects.h"

namespace tntest {

namespace {

template <typename Class>
CTnRobotObject* CreateNew() {
    return new Class;
}

CTnRobotObject* CreateNothing() {
    return nullptr;
}

STnRuntimeClass s_classWithoutFunction = {kGuidWithoutFunction, nullptr, nullptr, nullptr};
STnRuntimeClass s_classThatGivesNull = {kGuidThatGivesNull, CreateNothing, nullptr, nullptr};

}  // namespace

std::atomic<int> LiveObject::s_nLive{0};

STnRuntimeClass TestNode::s_class = {TestNode::kGuid, CreateNew<TestNode>, nullptr, nullptr};
STnRuntimeClass TolerantNode::s_class = {TolerantNode::kGuid, CreateNew<TolerantNode>, nullptr, nullptr};
STnRuntimeClass PlainObject::s_class = {PlainObject::kGuid, CreateNew<PlainObject>, nullptr, nullptr};
STnRuntimeClass MuteObject::s_class = {MuteObject::kGuid, CreateNew<MuteObject>, nullptr, nullptr};
STnRuntimeClass EmptyObject::s_class = {EmptyObject::kGuid, CreateNew<EmptyObject>, nullptr, nullptr};

namespace {

const TN_REG_CLASS s_registerTestNode(&TestNode::s_class);
const TN_REG_CLASS s_registerTolerantNode(&TolerantNode::s_class);
const TN_REG_CLASS s_registerPlainObject(&PlainObject::s_class);
const TN_REG_CLASS s_registerMuteObject(&MuteObject::s_class);
const TN_REG_CLASS s_registerEmptyObject(&EmptyObject::s_class);
const TN_REG_CLASS s_registerWithoutFunction(&s_classWithoutFunction);
const TN_REG_CLASS s_registerThatGivesNull(&s_classThatGivesNull);

}  // namespace

TestNode::~TestNode() {
    DropChildren();
}

void TestNode::Add(TestNode* pChild) {
    m_children.push_back(pChild);
    pChild->AddRef();
}

void TestNode::DropChildren() {
    std::vector<TestNode*> children;
    children.swap(m_children);
    for (TestNode* pChild : children) {
        if (pChild != nullptr) {
            pChild->Release();
        }
    }
}

int TestNode::Serialize(ITnRobotArchive* pArchive) {
    if (pArchive->IsLoading()) {
        return Load(*pArchive);
    }
    const int nChildren = static_cast<int>(m_children.size());
    if (pArchive->Write(&m_nNumber, sizeof(m_nNumber)) == 0 || pArchive->Write(&nChildren, sizeof(nChildren)) == 0) {
        return 0;
    }
    for (TestNode* pChild : m_children) {
        if (pArchive->WriteObject(pChild) == 0 && !Tolerates()) {
            return 0;
        }
    }
    return 1;
}

int TestNode::Load(ITnRobotArchive& archive) {
    int nChildren = 0;
    if (archive.Read(&m_nNumber, sizeof(m_nNumber)) != sizeof(m_nNumber) ||
        archive.Read(&nChildren, sizeof(nChildren)) != sizeof(nChildren) || nChildren > kMostChildren) {
        return 0;
    }
    for (int i = 0; i < nChildren; ++i) {
        m_children.push_back(nullptr);  // ahead of the child, which nobody would own if this threw
        CTnRobotObject* pObject = nullptr;
        if (archive.ReadObject(&pObject) == 0 && !Tolerates()) {
            return 0;
        }
        m_children.back() = dynamic_cast<TestNode*>(pObject);
        if (pObject != nullptr && m_children.back() == nullptr) {
            return 0;
        }
    }
    return m_nNumber == kFailsToLoad ? 0 : 1;
}

int PlainObject::Serialize(ITnRobotArchive* pArchive) {
    if (pArchive->IsLoading()) {
        return pArchive->Read(&m_byValue, 1) == 1 ? 1 : 0;
    }
    return pArchive->Write(&m_byValue, 1) != 0 ? 1 : 0;
}

}  // namespace tntest
